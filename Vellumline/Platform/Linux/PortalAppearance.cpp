#include "Vellumline/Platform/Linux/PortalAppearance.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <utility>

namespace vellumline {

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearance = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");
const QString contrastKey = QStringLiteral("contrast");
constexpr int answerTimeoutMs = 2000;

} // namespace

PortalAppearance::PortalAppearance(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {}

void PortalAppearance::start() {
    if (!bus_.isConnected())
        return;
    bus_.connect(portalService, portalPath, settingsInterface, QStringLiteral("SettingChanged"), this,
                 SLOT(settingChanged(QString, QString, QDBusVariant)));
    const auto askForAll = [this] {
        ask(colorSchemeKey);
        ask(contrastKey);
    };
    auto* watcher =
        new QDBusServiceWatcher(portalService, bus_, QDBusServiceWatcher::WatchForRegistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, askForAll);
    askForAll();
}

void PortalAppearance::ask(const QString& key) {
    QDBusMessage question =
        QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface, QStringLiteral("Read"));
    question << appearance << key;
    question.setAutoStartService(false);
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(question, answerTimeoutMs), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this, key](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<QDBusVariant> answer = *call;
        call->deleteLater();
        if (answer.isError())
            return;
        // Read wraps the value in a variant once more than its successor does.
        QVariant value = answer.value().variant();
        if (value.canConvert<QDBusVariant>())
            value = value.value<QDBusVariant>().variant();
        take(key, value);
    });
}

void PortalAppearance::settingChanged(const QString& space, const QString& key, const QDBusVariant& value) {
    if (space == appearance)
        take(key, value.variant());
}

void PortalAppearance::take(const QString& key, const QVariant& value) {
    bool isNumber = false;
    const uint number = value.toUInt(&isNumber);
    if (!isNumber)
        return;
    if (key == colorSchemeKey) {
        // 1 and 2 as defined; what is unknown is no preference.
        const ColorScheme scheme = number == 1   ? ColorScheme::dark
                                   : number == 2 ? ColorScheme::light
                                                 : ColorScheme::noPreference;
        if (std::exchange(colorScheme_, scheme) != scheme)
            Q_EMIT changed();
    } else if (key == contrastKey) {
        const bool high = number == 1;
        if (std::exchange(highContrast_, high) != high)
            Q_EMIT changed();
    }
}

} // namespace vellumline
