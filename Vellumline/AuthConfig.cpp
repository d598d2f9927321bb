#include "Vellumline/AuthConfig.h"

#include <QHostAddress>
#include <QtGlobal>

namespace vellumline {

namespace {

QUrl withQueryItem(QUrl url, const QString& name, const QString& value) {
    const QByteArray encoded = QUrl::toPercentEncoding(name) + '=' + QUrl::toPercentEncoding(value);
    url.setQuery(QString::fromLatin1(encoded));
    return url;
}

AuthConfig resolveShared() {
    const QString localOrigin = qEnvironmentVariable("VELLUMLINE_ORIGIN");
    const std::optional<AuthConfig> config =
        AuthConfig::resolve(QStringLiteral(VELLUMLINE_LANDING_URL), QStringLiteral(VELLUMLINE_AUTH_URL),
                            QStringLiteral(VELLUMLINE_BACKEND_URL), localOrigin);
    if (!config) {
        // Going on with another origin than the one that was asked for would send tokens to the wrong place.
        if (localOrigin.isEmpty())
            qFatal("The service origins of this build are not acceptable: each must be HTTPS, or HTTP on a "
                   "loopback address.");
        qFatal("VELLUMLINE_ORIGIN must be an HTTP or HTTPS origin on a loopback address.");
    }
    return *config;
}

} // namespace

const AuthConfig& AuthConfig::shared() {
    static const AuthConfig config = resolveShared();
    return config;
}

std::optional<AuthConfig> AuthConfig::resolve(const QString& landing, const QString& auth,
                                              const QString& backend, const QString& localOrigin) {
    AuthConfig config;
    if (localOrigin.isEmpty()) {
        config.landingURL = QUrl(landing, QUrl::StrictMode);
        config.authBaseURL = QUrl(auth, QUrl::StrictMode);
        config.backendURL = QUrl(backend, QUrl::StrictMode);
    } else {
        const QUrl origin(localOrigin, QUrl::StrictMode);
        if (!isAcceptable(origin) || !isLoopback(origin))
            return std::nullopt;
        config.landingURL = origin;
        config.authBaseURL = appending(origin, QStringLiteral("auth"));
        config.backendURL = origin;
    }
    for (const QUrl& origin : {config.landingURL, config.authBaseURL, config.backendURL}) {
        if (!isAcceptable(origin))
            return std::nullopt;
    }
    return config;
}

bool AuthConfig::isAcceptable(const QUrl& origin) {
    if (!origin.isValid() || origin.host().isEmpty() || !origin.userInfo().isEmpty())
        return false;
    if (origin.scheme() == QLatin1String("https"))
        return true;
    return origin.scheme() == QLatin1String("http") && isLoopback(origin);
}

bool AuthConfig::isLoopback(const QUrl& origin) {
    const QString host = origin.host();
    return host == QLatin1String("localhost") || QHostAddress(host).isLoopback();
}

QUrl AuthConfig::loginURL(const QString& challenge) const {
    return withQueryItem(appending(landingURL, QStringLiteral("login/")), QStringLiteral("app_challenge"),
                         challenge);
}

QUrl AuthConfig::accountURL() const {
    return appending(landingURL, QStringLiteral("account/"));
}

QUrl AuthConfig::checkoutURL(const QString& plan) const {
    return withQueryItem(accountURL(), QStringLiteral("plan"), plan);
}

QUrl AuthConfig::appending(const QUrl& origin, const QString& path) {
    QString whole = origin.path(QUrl::FullyEncoded);
    if (!whole.endsWith(QLatin1Char('/')))
        whole += QLatin1Char('/');
    whole += path;
    QUrl url = origin;
    url.setPath(whole, QUrl::TolerantMode);
    return url;
}

} // namespace vellumline
