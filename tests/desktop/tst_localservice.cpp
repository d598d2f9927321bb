#include "Vellumline/Platform/Linux/LocalService.h"

#include <QCoroTask>
#include <QFileInfo>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <csignal>

using namespace vellumline;
using Result = LocalService::Result;

namespace {

quint16 freePort() {
    QTcpServer server;
    return server.listen(QHostAddress::LocalHost) ? server.serverPort() : 0;
}

QUrl originAt(quint16 port) {
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port));
}

bool answers(quint16 port) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return socket.waitForConnected(1000);
}

QString realService() {
    return QCoreApplication::applicationDirPath() +
           QStringLiteral("/../../VellumlineService/vellumline-service");
}

} // namespace

class LocalServiceTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() { QVERIFY2(QFileInfo(realService()).isExecutable(), qPrintable(realService())); }

    void anOriginElsewhereIsLeftAlone() {
        LocalService service(QUrl(QStringLiteral("https://api.example.org")), realService());
        QCOMPARE(QCoro::waitFor(service.ensureRunning()), Result::notLocal);
        QVERIFY(!service.processIdentifier());
    }

    void somebodyWhoAnswersIsLeftAlone() {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        LocalService service(originAt(server.serverPort()), realService());
        QCOMPARE(QCoro::waitFor(service.ensureRunning()), Result::alreadyRunning);
        QVERIFY(!service.processIdentifier());
        QCoro::waitFor(service.stop());
        QVERIFY(server.isListening());
    }

    void aMissingProgramFails() {
        LocalService service(originAt(freePort()), QStringLiteral("/nonexistent/vellumline-service"));
        QCOMPARE(QCoro::waitFor(service.ensureRunning()), Result::failed);
    }

    void aProgramThatEndsAtOnceFails() {
        LocalService service(originAt(freePort()), QStringLiteral("/bin/true"));
        QCOMPARE(QCoro::waitFor(service.ensureRunning()), Result::failed);
        QTest::qWait(50);
        QVERIFY(!service.processIdentifier());
    }

    void theRealServiceIsStartedAndEnded() {
        const quint16 port = freePort();
        LocalService service(originAt(port), realService());
        QCOMPARE(QCoro::waitFor(service.ensureRunning()), Result::started);
        QVERIFY(service.processIdentifier());
        QVERIFY(answers(port));
        QCoro::waitFor(service.stop());
        QVERIFY(!service.processIdentifier());
        QVERIFY(!answers(port));
    }

    void aServiceThatFallsOverIsStartedAgain() {
        const quint16 port = freePort();
        LocalService service(originAt(port), realService());
        QCOMPARE(QCoro::waitFor(service.ensureRunning()), Result::started);
        const qint64 first = *service.processIdentifier();
        QCOMPARE(::kill(static_cast<pid_t>(first), SIGKILL), 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            service.processIdentifier() && *service.processIdentifier() != first && answers(port), 10000);
        QCoro::waitFor(service.stop());
        QVERIFY(!answers(port));
    }
};

QTEST_GUILESS_MAIN(LocalServiceTest)
#include "tst_localservice.moc"
