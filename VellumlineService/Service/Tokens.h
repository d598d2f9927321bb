#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace vellumline {

/// What an access token says; times in seconds since 1970-01-01 UTC.
struct AccessClaims {
    qint64 accountId = 0;
    QString email; ///< Empty when none is known.
    qint64 issuedAt = 0;
    qint64 expiresAt = 0;
    QString session; ///< The sign-in that it belongs to.
};

/// A key that signs, and the name that its tokens bear.
struct SigningKey {
    QString id;
    QByteArray secret;
    qint64 createdAt = 0;
};

/// Base64url without padding (RFC 4648 section 5).
QByteArray base64Url(const QByteArray& bytes);
/// `count` bytes of the system's secure random generator, base64url.
QByteArray randomToken(int count);
/// What is stored of a secret: SHA-256 in hexadecimal. Enough for random 256-bit secrets.
QString secretHash(const QByteArray& secret);
QByteArray hmacSha256(const QByteArray& key, const QByteArray& message);
/// Comparison whose time does not depend on where the texts differ.
bool equalInConstantTime(const QByteArray& a, const QByteArray& b);

/// The PKCE challenge of a verifier, method S256 (RFC 7636 section 4.2).
QByteArray pkceChallenge(const QByteArray& verifier);
/// 43 base64url characters: what S256 makes.
bool isPkceChallenge(const QString& text);
/// 43 to 128 unreserved characters (RFC 7636 section 4.1).
bool isPkceVerifier(const QString& text);

/// A JWT signed with HS256 (RFC 7519).
QByteArray signAccessToken(const AccessClaims& claims, const SigningKey& key);
/// The key that a token says it was signed with; empty when it says none that could be ours.
QString accessTokenKeyId(const QByteArray& token);
/// The claims of a token that this key signed and that is valid at `now`; else nothing.
std::optional<AccessClaims> verifyAccessToken(const QByteArray& token, const SigningKey& key, qint64 now);

} // namespace vellumline
