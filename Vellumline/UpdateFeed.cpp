#include "Vellumline/UpdateFeed.h"

#include "Vellumline/AuthConfig.h"

#include <QtGlobal>

namespace vellumline {

std::optional<UpdateFeed> UpdateFeed::shared() {
    return resolve(QStringLiteral(VELLUMLINE_APPCAST_URL), QStringLiteral(VELLUMLINE_UPDATE_KEY),
                   qEnvironmentVariable("VELLUMLINE_APPCAST"),
                   qEnvironmentVariable("VELLUMLINE_APPCAST_KEY"));
}

std::optional<UpdateFeed> UpdateFeed::resolve(const QString& url, const QString& key, const QString& localURL,
                                              const QString& localKey) {
    const QUrl local(localURL, QUrl::StrictMode);
    const bool isLocal = AuthConfig::isAcceptable(local) && AuthConfig::isLoopback(local);
    const QUrl address = isLocal ? local : QUrl(url, QUrl::StrictMode);
    const std::optional<UpdateKey> publisher =
        UpdateKey::fromBase64((isLocal ? localKey : key).trimmed().toUtf8());
    if (!publisher || !AuthConfig::isAcceptable(address) || address.fileName().isEmpty())
        return std::nullopt;
    return UpdateFeed{address, *publisher};
}

QUrl UpdateFeed::signatureURL() const {
    QUrl signature = url;
    signature.setPath(url.path(QUrl::FullyEncoded) + QStringLiteral(".sig"), QUrl::TolerantMode);
    return signature;
}

} // namespace vellumline
