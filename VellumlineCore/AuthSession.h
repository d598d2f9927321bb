#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace vellumline {

/// The signed-in user's session. Value type; safe to copy between threads.
struct AuthSession {
    QString accessToken; ///< Bearer token of the service API; a JWT (RFC 7519), read but never verified here.
    QString refreshToken; ///< Exchanged for a new access token.
    qint64 userId = 0;
    std::optional<QString> email; ///< The address shown to the user; absent when none is known.

    bool operator==(const AuthSession&) const = default;

    /// Builds a session from the body of a handoff redemption reply; nothing when the body is unusable.
    static std::optional<AuthSession> fromHandoff(const QByteArray& data);
    /// Builds the renewed session from the body of a refresh reply and this session; nothing when it is
    /// unusable.
    std::optional<AuthSession> refreshed(const QByteArray& data) const;
    /// This session with a missing e-mail address filled in from the access token's claims.
    AuthSession withEmailFromToken() const;

    /// The name in "Signed in as …".
    QString displayName() const;
    /// True when the access token has an expiry that is 60 seconds or less after `now` (seconds since
    /// 1970-01-01 UTC).
    bool accessTokenNeedsRefresh(double now) const;

    /// The one rule for every address accepted from outside: the trimmed address, or nothing.
    static std::optional<QString> displayEmail(const std::optional<QString>& candidate);

    /// The stored form: a JSON object with camelCase keys ("accessToken", "refreshToken", "userId", "email").
    QByteArray toStoredJson() const;
    static std::optional<AuthSession> fromStoredJson(const QByteArray& data);
};

/// Reads the payload of a JSON Web Token (RFC 7519). No signature is checked: the service that issued it
/// checks it.
namespace JWT {
std::optional<QJsonObject> payload(const QString& token);
/// The payload's value for `name` when it is a string.
std::optional<QString> claim(const QString& name, const QString& token);
/// The payload's "exp" when it is a number: seconds since 1970-01-01 UTC.
std::optional<double> expiration(const QString& token);
} // namespace JWT

} // namespace vellumline
