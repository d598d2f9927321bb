#pragma once

#include "Vellumline/Command.h"

#include <QCoroTask>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusContext>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <functional>

namespace vellumline {

/// One instance of the program per session, reachable under a well-known name of the session bus with the
/// interface org.freedesktop.Application (Desktop Entry Specification, "D-Bus Activation"), and with one of
/// our own for what has an answer. Main thread only.
class DBusApplication : public QObject, protected QDBusContext {
    Q_OBJECT
  public:
    inline static const QString serviceName = QStringLiteral("com.kelthorne.Vellumline");
    inline static const QString objectPath = QStringLiteral("/com/kelthorne/Vellumline");

    enum class Claim {
        first,   ///< this process is the instance now
        another, ///< another process is
        noBus    ///< there is no session bus, or it did not answer within 2 s: run alone
    };

    explicit DBusApplication(QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    /// Publishes the object, then asks for the name.
    QCoro::Task<Claim> claim();
    /// Gives links to the running instance, or, with none, asks it to show itself. False when it did not take
    /// them within 5 s.
    QCoro::Task<bool> handOver(QStringList links);

    enum class Answer {
        given,   ///< the running instance took it
        nobody,  ///< there is no running instance, or no session bus
        noAnswer ///< there is one, and it refused or did not answer within 5 s
    };
    /// Asks the running instance to do that. Starts none.
    QCoro::Task<Answer> request(Command command);
    struct Status {
        Answer answer = Answer::nobody;
        QVariantMap facts;
    };
    /// What the running instance says about itself. Starts none.
    QCoro::Task<Status> askForStatus();
    /// Waits until no instance runs any more, at most about 10 s; false when one still does.
    QCoro::Task<bool> waitForEnd();

    /// Answers the question for the status.
    std::function<QVariantMap()> status;

    /// Announces what has arrived since the claim, in its order, and from now on everything at once. The bus
    /// starts the program for a request and delivers it as soon as the name is taken, which is before there
    /// is anything that could answer it.
    void deliver();

  Q_SIGNALS:
    /// The user started the program again without a link.
    void activated();
    /// A link arrived, its text exactly as it was given.
    void linkOpened(QString link);
    /// A command or an action of the desktop entry.
    void commandGiven(Command command);

  private:
    friend class DBusApplicationAdaptor;
    friend class DBusControlAdaptor;
    using Arrival = std::function<void()>;
    void receive(Arrival arrival);
    void refuse(const QString& why);

    QDBusConnection bus_;
    QList<Arrival> waiting_;
    bool delivering_ = false;
};

/// The D-Bus face of DBusApplication; the interface fixes the names of its methods.
class DBusApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
  public:
    explicit DBusApplicationAdaptor(DBusApplication* application);

  public Q_SLOTS:
    // NOLINTBEGIN(readability-identifier-naming)
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& name, const QVariantList& parameter, const QVariantMap& platformData);
    // NOLINTEND(readability-identifier-naming)

  private:
    DBusApplication* application_;
};

/// What has an answer.
class DBusControlAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kelthorne.Vellumline.Control")
  public:
    explicit DBusControlAdaptor(DBusApplication* application);

  public Q_SLOTS:
    // NOLINTNEXTLINE(readability-identifier-naming)
    QVariantMap Status();

  private:
    DBusApplication* application_;
};

} // namespace vellumline
