#include "Vellumline/Platform/Linux/DBusApplication.h"

#include <QCoroDBusPendingCall>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <utility>

namespace vellumline {

namespace {

constexpr int claimTimeoutMs = 2000;
constexpr int handOverTimeoutMs = 5000;
// org.freedesktop.DBus.RequestName (D-Bus Specification, "Message Bus Messages")
constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;

} // namespace

DBusApplication::DBusApplication(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {
    new DBusApplicationAdaptor(this);
}

QCoro::Task<DBusApplication::Claim> DBusApplication::claim() {
    if (!bus_.isConnected())
        co_return Claim::noBus;
    // The object first: a second process may call it as soon as the name is ours.
    bus_.registerObject(objectPath, this, QDBusConnection::ExportAdaptors);
    QDBusMessage request = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
    request << serviceName << doNotQueue;
    const QDBusPendingCall pending = bus_.asyncCall(request, claimTimeoutMs);
    const QDBusMessage answer = co_await pending;
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
        co_return Claim::noBus;
    const uint result = answer.arguments().constFirst().toUInt();
    co_return result == primaryOwner || result == alreadyOwner ? Claim::first : Claim::another;
}

QCoro::Task<bool> DBusApplication::handOver(QStringList links) {
    if (!bus_.isConnected())
        co_return false;
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName, objectPath, QStringLiteral("org.freedesktop.Application"),
                                       links.isEmpty() ? QStringLiteral("Activate") : QStringLiteral("Open"));
    if (!links.isEmpty())
        call << links;
    call << QVariantMap();
    const QDBusPendingCall pending = bus_.asyncCall(call, handOverTimeoutMs);
    const QDBusMessage answer = co_await pending;
    co_return answer.type() == QDBusMessage::ReplyMessage;
}

void DBusApplication::deliver() {
    delivering_ = true;
    const QList<Request> waiting = std::exchange(waiting_, {});
    for (const Request& request : waiting)
        announce(request);
}

void DBusApplication::receive(Request request) {
    if (delivering_)
        announce(request);
    else
        waiting_.append(std::move(request));
}

void DBusApplication::announce(const Request& request) {
    if (request)
        Q_EMIT linkOpened(*request);
    else
        Q_EMIT activated();
}

DBusApplicationAdaptor::DBusApplicationAdaptor(DBusApplication* application)
    : QDBusAbstractAdaptor(application), application_(application) {}

void DBusApplicationAdaptor::Activate(const QVariantMap& /*platformData*/) {
    application_->receive(std::nullopt);
}

void DBusApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& /*platformData*/) {
    for (const QString& uri : uris)
        application_->receive(uri);
}

void DBusApplicationAdaptor::ActivateAction(const QString& /*name*/, const QVariantList& /*parameter*/,
                                            const QVariantMap& /*platformData*/) {
    // The desktop entry names no actions; the interface requires the method.
}

} // namespace vellumline
