#include "Vellumline/Platform/Linux/DBusApplication.h"

#include <QCoroTask>
#include <QSignalSpy>
#include <QTest>

using namespace vellumline;

namespace {

/// One process's side of the session bus.
struct Instance {
    explicit Instance(const char* name)
        : connectionName(QString::fromLatin1(name)),
          application(QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName)),
          activations(&application, &DBusApplication::activated),
          links(&application, &DBusApplication::linkOpened),
          commands(&application, &DBusApplication::commandGiven) {}
    ~Instance() { QDBusConnection::disconnectFromBus(connectionName); }

    DBusApplication::Claim claim() { return QCoro::waitFor(application.claim()); }

    QString connectionName;
    DBusApplication application;
    QSignalSpy activations;
    QSignalSpy links;
    QSignalSpy commands;
};

} // namespace

class SingleInstanceTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aSecondInstanceHandsItsLinkToTheFirst() {
        Instance first("first");
        Instance second("second");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        first.application.deliver();
        QCOMPARE(second.claim(), DBusApplication::Claim::another);
        // The text arrives as it was: capitals, escapes and all.
        const QString link = QStringLiteral("Vellumline://Auth?handoff=a%20B&x=é");
        QVERIFY(QCoro::waitFor(second.application.handOver({link})));
        QTRY_COMPARE(first.links.count(), 1);
        QCOMPARE(first.links.first().first().toString(), link);
        QCOMPARE(first.activations.count(), 0);
    }

    void aSecondStartWithoutALinkShowsTheFirst() {
        Instance first("first");
        Instance second("second");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        first.application.deliver();
        QCOMPARE(second.claim(), DBusApplication::Claim::another);
        QVERIFY(QCoro::waitFor(second.application.handOver({})));
        QTRY_COMPARE(first.activations.count(), 1);
        QCOMPARE(first.links.count(), 0);
    }

    void whatArrivesWhileTheProgramStartsIsKeptInItsOrder() {
        Instance first("first");
        Instance second("second");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        const QString one = QStringLiteral("vellumline://sign-in");
        const QString two = QStringLiteral("vellumline://auth?handoff=0123456789abcdef");
        QStringList order;
        QObject::connect(&first.application, &DBusApplication::linkOpened,
                         [&order](const QString& link) { order.append(link); });
        QObject::connect(&first.application, &DBusApplication::activated,
                         [&order] { order.append(QStringLiteral("activated")); });
        QVERIFY(QCoro::waitFor(second.application.handOver({one})));
        QVERIFY(QCoro::waitFor(second.application.handOver({})));
        QVERIFY(QCoro::waitFor(second.application.handOver({two})));
        QCOMPARE(order, QStringList());
        first.application.deliver();
        QCOMPARE(order, QStringList({one, QStringLiteral("activated"), two}));
        first.application.deliver();
        QCOMPARE(order.size(), 3);
    }

    void theNameIsFreeWhenTheFirstHasEnded() {
        {
            Instance first("first");
            QCOMPARE(first.claim(), DBusApplication::Claim::first);
        }
        Instance second("second");
        QTRY_COMPARE(second.claim(), DBusApplication::Claim::first);
    }

    void claimingTwiceIsClaimingOnce() {
        Instance first("first");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
    }

    void withoutABusItRunsAlone() {
        DBusApplication alone(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent"),
                                                            QStringLiteral("nowhere")));
        QCOMPARE(QCoro::waitFor(alone.claim()), DBusApplication::Claim::noBus);
        QVERIFY(!QCoro::waitFor(alone.handOver({QStringLiteral("vellumline://sign-in")})));
    }

    void withNobodyThereNothingIsHandedOver() {
        Instance lonely("lonely");
        QVERIFY(!QCoro::waitFor(lonely.application.handOver({})));
        QCOMPARE(QCoro::waitFor(lonely.application.request(Command::rewrite)),
                 DBusApplication::Answer::nobody);
        QCOMPARE(QCoro::waitFor(lonely.application.askForStatus()).answer, DBusApplication::Answer::nobody);
        QVERIFY(QCoro::waitFor(lonely.application.waitForEnd()));
    }

    void aCommandReachesTheFirstInItsTurn() {
        Instance first("first");
        Instance second("second");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        QCOMPARE(QCoro::waitFor(second.application.request(Command::openMenu)),
                 DBusApplication::Answer::given);
        QCOMPARE(first.commands.count(), 0);
        first.application.deliver();
        QCOMPARE(first.commands.count(), 1);
        QCOMPARE(first.commands.first().first().value<Command>(), Command::openMenu);
    }

    void whatIsNoActionIsRefused() {
        Instance first("first");
        Instance second("second");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        first.application.deliver();
        QCOMPARE(QCoro::waitFor(second.application.request(Command::status)),
                 DBusApplication::Answer::noAnswer);
        QCOMPARE(first.commands.count(), 0);
    }

    void theStatusIsWhatTheFirstSays() {
        Instance first("first");
        Instance second("second");
        QCOMPARE(first.claim(), DBusApplication::Claim::first);
        first.application.status = [] {
            return QVariantMap{{QStringLiteral("busy"), true}, {QStringLiteral("rewritesUsed"), qint64{7}}};
        };
        const DBusApplication::Status status = QCoro::waitFor(second.application.askForStatus());
        QCOMPARE(status.answer, DBusApplication::Answer::given);
        QCOMPARE(status.facts.value(QStringLiteral("busy")).toBool(), true);
        QCOMPARE(status.facts.value(QStringLiteral("rewritesUsed")).toInt(), 7);
    }
};

QTEST_GUILESS_MAIN(SingleInstanceTest)
#include "tst_singleinstance.moc"
