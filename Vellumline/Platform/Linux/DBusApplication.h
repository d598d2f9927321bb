#pragma once

#include <QCoroTask>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <optional>

namespace vellumline {

/// One instance of the program per session, reachable under a well-known name of the session bus with the
/// interface org.freedesktop.Application (Desktop Entry Specification, "D-Bus Activation"). Main thread only.
class DBusApplication : public QObject {
    Q_OBJECT
  public:
    inline static const QString serviceName = QStringLiteral("com.kelthorne.vellumline");
    inline static const QString objectPath = QStringLiteral("/com/kelthorne/vellumline");

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
    /// Announces what has arrived since the claim, in its order, and from now on everything at once. The bus
    /// starts the program for a request and delivers it as soon as the name is taken, which is before there
    /// is anything that could answer it.
    void deliver();

  Q_SIGNALS:
    /// The user started the program again without a link.
    void activated();
    /// A link arrived, its text exactly as it was given.
    void linkOpened(QString link);

  private:
    friend class DBusApplicationAdaptor;
    /// No link: the program was asked to show itself.
    using Request = std::optional<QString>;
    void receive(Request request);
    void announce(const Request& request);

    QDBusConnection bus_;
    QList<Request> waiting_;
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

} // namespace vellumline
