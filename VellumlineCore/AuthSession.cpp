#include "VellumlineCore/AuthSession.h"

#include "VellumlineCore/Json.h"
#include "VellumlineCore/Text.h"

#include <QJsonDocument>
#include <QStringList>

namespace vellumline {

namespace {

constexpr double refreshMarginSeconds = 60;
constexpr qsizetype longestEmail = 320;

/// Decimal digits with an optional sign, nothing else, within 64 bits.
std::optional<qint64> decimalInteger(const QString& text) {
    const qsizetype digits = text.startsWith(QLatin1Char('+')) || text.startsWith(QLatin1Char('-')) ? 1 : 0;
    if (digits == text.size())
        return std::nullopt;
    for (qsizetype i = digits; i < text.size(); ++i) {
        if (text.at(i) < QLatin1Char('0') || text.at(i) > QLatin1Char('9'))
            return std::nullopt;
    }
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok ? std::optional(value) : std::nullopt;
}

std::optional<QString> emailFromClaims(const QString& token) {
    auto email = AuthSession::displayEmail(JWT::claim(QStringLiteral("email"), token));
    if (email)
        return email;
    return AuthSession::displayEmail(JWT::claim(QStringLiteral("username"), token));
}

} // namespace

std::optional<AuthSession> AuthSession::fromHandoff(const QByteArray& data) {
    JsonReader body(data);
    const QString accessToken = trimmedWhitespace(body.string(QStringLiteral("access_token")));
    const QString refreshToken = trimmedWhitespace(body.string(QStringLiteral("refresh_token")));
    const QString userId = trimmedWhitespace(body.string(QStringLiteral("user_id")));
    const std::optional<QString> email = body.optionalString(QStringLiteral("email"));
    if (body.failed() || accessToken.isEmpty() || refreshToken.isEmpty())
        return std::nullopt;
    const std::optional<qint64> number = decimalInteger(userId);
    if (!number)
        return std::nullopt;
    std::optional<QString> shown = displayEmail(email);
    if (!shown)
        shown = emailFromClaims(accessToken);
    return AuthSession{accessToken, refreshToken, *number, shown};
}

std::optional<AuthSession> AuthSession::refreshed(const QByteArray& data) const {
    JsonReader body(data);
    const QString newAccessToken = trimmedWhitespace(body.string(QStringLiteral("access_token")));
    const auto newRefreshToken = body.optionalString(QStringLiteral("refresh_token"));
    const auto newEmail = body.optionalString(QStringLiteral("email"));
    const auto username = body.optionalString(QStringLiteral("username"));
    if (body.failed() || newAccessToken.isEmpty())
        return std::nullopt;

    AuthSession renewed = *this;
    renewed.accessToken = newAccessToken;
    if (newRefreshToken && !trimmedWhitespace(*newRefreshToken).isEmpty())
        renewed.refreshToken = trimmedWhitespace(*newRefreshToken);
    // A present but unusable "email" deliberately does not fall back to "username".
    std::optional<QString> shown = displayEmail(newEmail ? newEmail : username);
    if (!shown)
        shown = emailFromClaims(newAccessToken);
    if (shown)
        renewed.email = shown;
    return renewed;
}

AuthSession AuthSession::withEmailFromToken() const {
    if (email)
        return *this;
    AuthSession filled = *this;
    filled.email = emailFromClaims(accessToken);
    return filled;
}

QString AuthSession::displayName() const {
    return email ? *email : QStringLiteral("account %1").arg(userId);
}

bool AuthSession::accessTokenNeedsRefresh(double now) const {
    const std::optional<double> expiry = JWT::expiration(accessToken);
    return expiry && *expiry - now <= refreshMarginSeconds;
}

std::optional<QString> AuthSession::displayEmail(const std::optional<QString>& candidate) {
    if (!candidate)
        return std::nullopt;
    const QString trimmed = trimmedWhitespace(*candidate);
    if (hasMoreCharactersThan(trimmed, longestEmail))
        return std::nullopt;
    const QStringList pieces = trimmed.split(QLatin1Char('@'));
    if (pieces.size() != 2 || pieces.at(0).isEmpty() || !pieces.at(1).contains(QLatin1Char('.')))
        return std::nullopt;
    for (const QChar unit : trimmed) {
        if (isWhitespace(unit.unicode()))
            return std::nullopt;
    }
    return trimmed;
}

QByteArray AuthSession::toStoredJson() const {
    QJsonObject object{{QStringLiteral("accessToken"), accessToken},
                       {QStringLiteral("refreshToken"), refreshToken},
                       {QStringLiteral("userId"), userId}};
    if (email)
        object.insert(QStringLiteral("email"), *email);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<AuthSession> AuthSession::fromStoredJson(const QByteArray& data) {
    JsonReader body(data);
    AuthSession session;
    session.accessToken = body.string(QStringLiteral("accessToken"));
    session.refreshToken = body.string(QStringLiteral("refreshToken"));
    session.userId = body.integer(QStringLiteral("userId"));
    session.email = body.optionalString(QStringLiteral("email"));
    return body.failed() ? std::nullopt : std::optional(session);
}

namespace JWT {

std::optional<QJsonObject> payload(const QString& token) {
    const qsizetype first = token.indexOf(QLatin1Char('.'));
    if (first < 0)
        return std::nullopt;
    const qsizetype second = token.indexOf(QLatin1Char('.'), first + 1);
    QByteArray encoded = token.sliced(first + 1, (second < 0 ? token.size() : second) - first - 1).toUtf8();
    encoded.replace('-', '+').replace('_', '/');
    if (encoded.size() % 4 != 0)
        encoded.append(4 - encoded.size() % 4, '=');
    const auto decoded = QByteArray::fromBase64Encoding(encoded, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(decoded.decoded, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

std::optional<QString> claim(const QString& name, const QString& token) {
    const auto object = payload(token);
    if (!object || !object->value(name).isString())
        return std::nullopt;
    QString text = object->value(name).toString();
    // Half a surrogate pair could be stored with the session, but not be read again.
    return text.isValidUtf16() ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<double> expiration(const QString& token) {
    const auto object = payload(token);
    if (!object || !object->value(QStringLiteral("exp")).isDouble())
        return std::nullopt;
    return object->value(QStringLiteral("exp")).toDouble();
}

} // namespace JWT

} // namespace vellumline
