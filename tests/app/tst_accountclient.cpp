#include "Vellumline/AccountClient.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QTest>

using namespace vellumline;

class AccountClientTest : public QObject {
    Q_OBJECT

  private:
    static APIResult<AccountInfo> load(SignedInService& service) {
        AccountClient client(service.api, exampleConfig());
        return QCoro::waitFor(client.load());
    }
    static constexpr char shortReply[] = R"({"plan":"free","rewritesUsed":3,"freeRewrites":30})";

  private Q_SLOTS:
    void theRequestIsAGetWithTheTokenAndNothingElse() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(200, shortReply);
        load(service);
        QCOMPARE(service.transport.requests.size(), 1);
        const HTTPRequest request = service.transport.requests.first();
        QCOMPARE(request.url, QUrl(QStringLiteral("https://api.example.org/v1/account")));
        QCOMPARE(request.method, QByteArray("GET"));
        QCOMPARE(request.timeout, std::chrono::seconds(10));
        QCOMPARE(request.headers.size(), 1);
        QCOMPARE(FakeHTTPTransport::header(request, "Authorization").value(), QByteArray("Bearer one"));
        QVERIFY(request.body.isEmpty());
    }

    void aReplyWithoutTheThreeFlagsHasAllOfThemFalse() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(200, shortReply);
        const APIResult<AccountInfo> account = load(service);
        QVERIFY(account.has_value());
        QCOMPARE(account->plan, Plan::free);
        QCOMPARE(account->rewritesUsed, 3);
        QCOMPARE(account->freeRewrites, 30);
        QVERIFY(!account->renewalCanceled);
        QVERIFY(!account->pastDue);
        QVERIFY(!account->closed);
    }

    void anythingElseFails_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("an unknown plan")
            << 200 << QByteArray(R"({"plan":"gold","rewritesUsed":3,"freeRewrites":30})");
        QTest::newRow("a body that is not JSON") << 200 << QByteArray("x");
        QTest::newRow("status 201 with a good body") << 201 << QByteArray(shortReply);
        QTest::newRow("status 401 that says the account is closed")
            << 401 << QByteArray(R"({"error":"account closed"})");
        QTest::newRow("status 500") << 500 << QByteArray();
    }
    void anythingElseFails() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(status, body);
        const APIResult<AccountInfo> account = load(service);
        QVERIFY(!account.has_value());
        QCOMPARE(account.error(), APIError::failed);
        QCOMPARE(service.transport.requests.size(), 1);
        QVERIFY(service.kept().has_value());
    }

    void noSessionIsSignedOut() {
        SignedInService service(std::nullopt);
        QCOMPARE(load(service).error(), APIError::signedOut);
    }

    void aRefusedRenewalIsSignedOut() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(400);
        QCOMPARE(load(service).error(), APIError::signedOut);
    }

    void aTokenThatIsRefusedAfterItsRenewalIsSignedOut() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(200, refreshReply(QStringLiteral("two")));
        service.transport.queue(401);
        QCOMPARE(load(service).error(), APIError::signedOut);
    }

    void networkFailuresKeepTheirKind_data() {
        QTest::addColumn<int>("transport");
        QTest::addColumn<int>("expected");
        QTest::newRow("offline") << static_cast<int>(TransportError::cannotConnectToHost)
                                 << static_cast<int>(APIError::offline);
        QTest::newRow("timed out") << static_cast<int>(TransportError::timedOut)
                                   << static_cast<int>(APIError::timedOut);
    }
    void networkFailuresKeepTheirKind() {
        QFETCH(int, transport);
        QFETCH(int, expected);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(static_cast<TransportError>(transport));
        QCOMPARE(static_cast<int>(load(service).error()), expected);
    }
};

QTEST_GUILESS_MAIN(AccountClientTest)
#include "tst_accountclient.moc"
