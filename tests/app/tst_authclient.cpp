#include "Vellumline/AuthClient.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace vellumline;

class AuthClientTest : public QObject {
    Q_OBJECT

  private:
    FakeHTTPTransport transport_;

    APIResult<AuthSession> redeem() {
        AuthClient client(transport_, exampleConfig());
        return QCoro::waitFor(client.redeem(QStringLiteral("code-1"), QStringLiteral("verifier-1")));
    }
    static constexpr char goodReply[] =
        R"({"access_token":"a","refresh_token":"r","user_id":"42","email":"ada@example.org"})";

  private Q_SLOTS:
    void init() { transport_.requests.clear(); }

    void theRequestHasTheCodeAndTheVerifierAndNoToken() {
        transport_.queue(200, goodReply);
        redeem();
        QCOMPARE(transport_.requests.size(), 1);
        const HTTPRequest request = transport_.requests.first();
        QCOMPARE(request.url, QUrl(QStringLiteral("https://api.example.org/v1/auth/handoff/redeem")));
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.timeout, std::chrono::seconds(10));
        QCOMPARE(request.headers.size(), 1);
        QCOMPARE(FakeHTTPTransport::header(request, "Content-Type").value(), QByteArray("application/json"));
        const QJsonObject expected{{QStringLiteral("code"), QStringLiteral("code-1")},
                                   {QStringLiteral("code_verifier"), QStringLiteral("verifier-1")}};
        QCOMPARE(QJsonDocument::fromJson(request.body).object(), expected);
        QVERIFY(!request.body.contains('\n'));
    }

    void aGoodReplyIsASession() {
        transport_.queue(200, goodReply);
        const APIResult<AuthSession> session = redeem();
        QVERIFY(session.has_value());
        QCOMPARE(session->accessToken, QStringLiteral("a"));
        QCOMPARE(session->refreshToken, QStringLiteral("r"));
        QCOMPARE(session->userId, 42);
        QCOMPARE(session->email.value(), QStringLiteral("ada@example.org"));
    }

    void anythingElseFails_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("a user id that is a number")
            << 200 << QByteArray(R"({"access_token":"a","refresh_token":"r","user_id":42})");
        QTest::newRow("a body that is not JSON") << 200 << QByteArray("ok");
        QTest::newRow("an empty body") << 200 << QByteArray();
        QTest::newRow("status 201 with a good body") << 201 << QByteArray(goodReply);
        QTest::newRow("status 400 with a good body") << 400 << QByteArray(goodReply);
        QTest::newRow("status 410 without a body") << 410 << QByteArray();
        QTest::newRow("status 410 with a good body") << 410 << QByteArray(goodReply);
        QTest::newRow("status 401 that says the account is closed")
            << 401 << QByteArray(R"({"error":"account closed"})");
        QTest::newRow("status 500") << 500 << QByteArray();
    }
    void anythingElseFails() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        transport_.queue(status, body);
        const APIResult<AuthSession> session = redeem();
        QVERIFY(!session.has_value());
        QCOMPARE(session.error(), APIError::failed);
        QCOMPARE(transport_.requests.size(), 1);
    }

    void networkFailuresKeepTheirKind_data() {
        QTest::addColumn<int>("transport");
        QTest::addColumn<int>("expected");
        QTest::newRow("offline") << static_cast<int>(TransportError::cannotFindHost)
                                 << static_cast<int>(APIError::offline);
        QTest::newRow("timed out") << static_cast<int>(TransportError::timedOut)
                                   << static_cast<int>(APIError::timedOut);
        QTest::newRow("failed") << static_cast<int>(TransportError::notHTTP)
                                << static_cast<int>(APIError::failed);
    }
    void networkFailuresKeepTheirKind() {
        QFETCH(int, transport);
        QFETCH(int, expected);
        transport_.queue(static_cast<TransportError>(transport));
        QCOMPARE(static_cast<int>(redeem().error()), expected);
    }
};

QTEST_GUILESS_MAIN(AuthClientTest)
#include "tst_authclient.moc"
