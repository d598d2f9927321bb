#include "VellumlineService/Service/Tokens.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <algorithm>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace vellumline {

namespace {

constexpr auto base64UrlOptions = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;

bool isBase64UrlCharacter(QChar c) {
    return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'-' ||
           c == u'_';
}

constexpr qsizetype longestToken = 4096;

QByteArray tokenHeader(const QString& keyId) {
    return base64Url(R"({"alg":"HS256","kid":")" + keyId.toLatin1() + R"(","typ":"JWT"})");
}

} // namespace

QByteArray base64Url(const QByteArray& bytes) {
    return bytes.toBase64(base64UrlOptions);
}

QByteArray randomToken(int count) {
    QByteArray bytes(count, Qt::Uninitialized);
    for (char& byte : bytes) {
        byte = static_cast<char>(QRandomGenerator::system()->generate() & 0xFF);
    }
    return base64Url(bytes);
}

QString secretHash(const QByteArray& secret) {
    return QString::fromLatin1(QCryptographicHash::hash(secret, QCryptographicHash::Sha256).toHex());
}

QByteArray hmacSha256(const QByteArray& key, const QByteArray& message) {
    QByteArray digest(EVP_MAX_MD_SIZE, Qt::Uninitialized);
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.constData(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(message.constData()), static_cast<size_t>(message.size()),
         reinterpret_cast<unsigned char*>(digest.data()), &length);
    digest.truncate(static_cast<qsizetype>(length));
    return digest;
}

bool equalInConstantTime(const QByteArray& a, const QByteArray& b) {
    return a.size() == b.size() &&
           CRYPTO_memcmp(a.constData(), b.constData(), static_cast<size_t>(a.size())) == 0;
}

QByteArray pkceChallenge(const QByteArray& verifier) {
    return base64Url(QCryptographicHash::hash(verifier, QCryptographicHash::Sha256));
}

bool isPkceChallenge(const QString& text) {
    return text.size() == 43 && std::all_of(text.cbegin(), text.cend(), isBase64UrlCharacter);
}

bool isPkceVerifier(const QString& text) {
    return text.size() >= 43 && text.size() <= 128 && std::all_of(text.cbegin(), text.cend(), [](QChar c) {
               return isBase64UrlCharacter(c) || c == u'.' || c == u'~';
           });
}

QByteArray signAccessToken(const AccessClaims& claims, const SigningKey& key) {
    QJsonObject payload{
        {QStringLiteral("sub"), QString::number(claims.accountId)},
        {QStringLiteral("iat"), claims.issuedAt},
        {QStringLiteral("exp"), claims.expiresAt},
        {QStringLiteral("sid"), claims.session},
        // Two tokens of one second differ: a client tells a renewed token from a refused one by it.
        {QStringLiteral("jti"), QString::fromLatin1(randomToken(9))}};
    if (!claims.email.isEmpty()) {
        payload.insert(QStringLiteral("email"), claims.email);
    }
    const QByteArray signedPart =
        tokenHeader(key.id) + '.' + base64Url(QJsonDocument(payload).toJson(QJsonDocument::Compact));
    return signedPart + '.' + base64Url(hmacSha256(key.secret, signedPart));
}

QString accessTokenKeyId(const QByteArray& token) {
    const qsizetype dot = token.indexOf('.');
    if (dot < 0 || token.size() > longestToken) {
        return {};
    }
    const auto decoded = QByteArray::fromBase64Encoding(token.left(dot), base64UrlOptions);
    const QString id =
        QJsonDocument::fromJson(decoded.decoded).object().value(QStringLiteral("kid")).toString();
    return std::all_of(id.cbegin(), id.cend(), isBase64UrlCharacter) && id.size() <= 32 ? id : QString();
}

std::optional<AccessClaims> verifyAccessToken(const QByteArray& token, const SigningKey& key, qint64 now) {
    const QList<QByteArray> pieces = token.split('.');
    // Only our own header is accepted, so that no token can choose its algorithm (RFC 8725 section 3.1).
    if (pieces.size() != 3 || token.size() > longestToken || pieces.at(0) != tokenHeader(key.id)) {
        return {};
    }
    const QByteArray expected = base64Url(hmacSha256(key.secret, pieces.at(0) + '.' + pieces.at(1)));
    if (!equalInConstantTime(expected, pieces.at(2))) {
        return {};
    }
    const auto decoded = QByteArray::fromBase64Encoding(pieces.at(1), base64UrlOptions);
    const QJsonObject payload = QJsonDocument::fromJson(decoded.decoded).object();
    AccessClaims claims;
    bool numeric = false;
    claims.accountId = payload.value(QStringLiteral("sub")).toString().toLongLong(&numeric);
    claims.issuedAt = payload.value(QStringLiteral("iat")).toInteger(-1);
    claims.expiresAt = payload.value(QStringLiteral("exp")).toInteger(-1);
    claims.session = payload.value(QStringLiteral("sid")).toString();
    claims.email = payload.value(QStringLiteral("email")).toString();
    if (!numeric || claims.expiresAt <= now) {
        return {};
    }
    return claims;
}

} // namespace vellumline
