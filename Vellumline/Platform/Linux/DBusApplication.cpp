#include "Vellumline/Platform/Linux/DBusApplication.h"

#include <QCoroDBusPendingCall>
#include <QCoroTimer>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <utility>

namespace vellumline {

namespace {

constexpr int claimTimeoutMs = 2000;
constexpr int handOverTimeoutMs = 5000;
constexpr std::chrono::milliseconds endPoll{50};
constexpr int endPolls = 200;
// org.freedesktop.DBus.RequestName (D-Bus Specification, "Message Bus Messages")
constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;

DBusApplication::Answer answerOf(const QDBusMessage& message) {
    if (message.type() == QDBusMessage::ReplyMessage)
        return DBusApplication::Answer::given;
    const QString error = message.errorName();
    return error == QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown") ||
                   error == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner")
               ? DBusApplication::Answer::nobody
               : DBusApplication::Answer::noAnswer;
}

} // namespace

DBusApplication::DBusApplication(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {
    new DBusApplicationAdaptor(this);
    new DBusControlAdaptor(this);
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

QCoro::Task<DBusApplication::Answer> DBusApplication::request(Command command) {
    if (!bus_.isConnected())
        co_return Answer::nobody;
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName, objectPath, QStringLiteral("org.freedesktop.Application"),
                                       QStringLiteral("ActivateAction"));
    call << nameOf(command) << QVariantList() << QVariantMap();
    call.setAutoStartService(false);
    const QDBusPendingCall pending = bus_.asyncCall(call, handOverTimeoutMs);
    const QDBusMessage answer = co_await pending;
    co_return answerOf(answer);
}

QCoro::Task<DBusApplication::Status> DBusApplication::askForStatus() {
    if (!bus_.isConnected())
        co_return Status{};
    QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath,
                                                       QStringLiteral("com.kelthorne.Vellumline.Control"),
                                                       QStringLiteral("Status"));
    call.setAutoStartService(false);
    const QDBusPendingCall pending = bus_.asyncCall(call, handOverTimeoutMs);
    const QDBusMessage answer = co_await pending;
    Status status{answerOf(answer), {}};
    if (status.answer == Answer::given && !answer.arguments().isEmpty())
        status.facts = qdbus_cast<QVariantMap>(answer.arguments().constFirst());
    co_return status;
}

QCoro::Task<bool> DBusApplication::waitForEnd() {
    if (!bus_.isConnected())
        co_return true;
    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    question << serviceName;
    for (int poll = 0; poll < endPolls; ++poll) {
        const QDBusPendingCall pending = bus_.asyncCall(question, claimTimeoutMs);
        const QDBusMessage answer = co_await pending;
        if (answer.type() == QDBusMessage::ReplyMessage && !answer.arguments().constFirst().toBool())
            co_return true;
        co_await QCoro::sleepFor(endPoll);
    }
    co_return false;
}

void DBusApplication::deliver() {
    delivering_ = true;
    const QList<Arrival> waiting = std::exchange(waiting_, {});
    for (const Arrival& arrival : waiting)
        arrival();
}

void DBusApplication::receive(Arrival arrival) {
    if (delivering_)
        arrival();
    else
        waiting_.append(std::move(arrival));
}

void DBusApplication::refuse(const QString& why) {
    if (calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, why);
}

DBusApplicationAdaptor::DBusApplicationAdaptor(DBusApplication* application)
    : QDBusAbstractAdaptor(application), application_(application) {}

void DBusApplicationAdaptor::Activate(const QVariantMap& /*platformData*/) {
    application_->receive([application = application_] { Q_EMIT application->activated(); });
}

void DBusApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& /*platformData*/) {
    for (const QString& uri : uris)
        application_->receive([application = application_, uri] { Q_EMIT application->linkOpened(uri); });
}

void DBusApplicationAdaptor::ActivateAction(const QString& name, const QVariantList& /*parameter*/,
                                            const QVariantMap& /*platformData*/) {
    const std::optional<Command> command = commandNamed(name);
    if (!command || !isAction(*command)) {
        application_->refuse(QStringLiteral("There is no action \"%1\".").arg(name));
        return;
    }
    application_->receive(
        [application = application_, action = *command] { Q_EMIT application->commandGiven(action); });
}

DBusControlAdaptor::DBusControlAdaptor(DBusApplication* application)
    : QDBusAbstractAdaptor(application), application_(application) {}

QVariantMap DBusControlAdaptor::Status() {
    return application_->status ? application_->status() : QVariantMap();
}

} // namespace vellumline
