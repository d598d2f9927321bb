#include "Vellumline/Platform/Linux/StatusItemHost.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QTimer>
#include <chrono>
#include <utility>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr auto longestWait = 10s; // panels come up within seconds of the login
const QString watcherName = QStringLiteral("org.kde.StatusNotifierWatcher");

} // namespace

StatusItemHost::StatusItemHost(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {}

void StatusItemHost::whenReady(bool embeddingHostIsThere, std::function<void()> ready) {
    ready_ = std::move(ready);
    if (embeddingHostIsThere || !bus_.isConnected()) {
        QTimer::singleShot(0, this, &StatusItemHost::finish);
        return;
    }
    auto* watcher =
        new QDBusServiceWatcher(watcherName, bus_, QDBusServiceWatcher::WatchForRegistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, &StatusItemHost::finish);

    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    question << watcherName;
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<bool> answer = *call;
        call->deleteLater();
        if (!answer.isError() && answer.value())
            finish();
    });
    QTimer::singleShot(longestWait, this, &StatusItemHost::finish);
}

void StatusItemHost::finish() {
    if (const auto ready = std::exchange(ready_, {}))
        ready();
}

} // namespace vellumline
