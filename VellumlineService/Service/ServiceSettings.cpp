#include "VellumlineService/Service/ServiceSettings.h"

#include <QHostAddress>

namespace vellumline {

const QStringList& planNames() {
    static const QStringList names = {QStringLiteral("free"), QStringLiteral("monthly"),
                                      QStringLiteral("yearly"), QStringLiteral("paid")};
    return names;
}

bool isCheckoutUrl(const QString& text) {
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || !url.userInfo().isEmpty()) {
        return false;
    }
    const bool loopback = url.host() == QStringLiteral("localhost") || QHostAddress(url.host()).isLoopback();
    return url.scheme() == QStringLiteral("https") || (url.scheme() == QStringLiteral("http") && loopback);
}

std::optional<QString> checkoutUrl(Storage& storage, const ServiceSettings& settings, const QString& plan) {
    const auto set = storage.setting(plan + QStringLiteral("CheckoutUrl"));
    if (set.failed()) {
        return {};
    }
    if (set && !set->isEmpty()) {
        return *set;
    }
    return plan == QStringLiteral("monthly") ? settings.monthlyCheckoutUrl : settings.yearlyCheckoutUrl;
}

} // namespace vellumline
