#include "Vellumline/SessionRefresher.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QTest>

using namespace vellumline;
using Outcome = SessionRefresher::Outcome;

namespace {

const QString oldToken = QStringLiteral("token-1");
const QString newToken = QStringLiteral("token-2");

} // namespace

class SessionRefresherTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theExchangeIsAFormPostWithTheRefreshToken() {
        SignedInService service(sessionWith(oldToken));
        service.transport.queue(200, refreshReply(newToken));
        const Outcome outcome = QCoro::waitFor(service.refresher.refresh(oldToken));
        QCOMPARE(outcome, Outcome::refreshed(newToken));
        QCOMPARE(service.transport.requests.size(), 1);
        const HTTPRequest request = service.transport.requests.first();
        QCOMPARE(request.url, QUrl(QStringLiteral("https://id.example.org/auth/oauth/token")));
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.timeout, std::chrono::seconds(10));
        QCOMPARE(request.headers.size(), 1);
        QCOMPARE(FakeHTTPTransport::header(request, "Content-Type").value(),
                 QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(request.body, QByteArray("grant_type=refresh_token&refresh_token=refresh-1"));
    }

    void theRefreshTokenIsPercentEncoded_data() {
        QTest::addColumn<QString>("token");
        QTest::addColumn<QByteArray>("encoded");
        QTest::newRow("plus, ampersand and equals sign are always encoded")
            << "a+b&c=d" << QByteArray("a%2Bb%26c%3Dd");
        QTest::newRow("what a query may hold stays")
            << "AZaz09-._~!$'()*,;:@/?" << QByteArray("AZaz09-._~!$'()*,;:@/?");
        QTest::newRow("everything else is encoded")
            << QStringLiteral("%#[]\" <>\\^`{|}é")
            << QByteArray("%25%23%5B%5D%22%20%3C%3E%5C%5E%60%7B%7C%7D%C3%A9");
    }
    void theRefreshTokenIsPercentEncoded() {
        QFETCH(QString, token);
        QFETCH(QByteArray, encoded);
        SignedInService service(sessionWith(oldToken, token));
        service.transport.queue(500);
        QCoro::waitFor(service.refresher.refresh(oldToken));
        QCOMPARE(service.transport.requests.first().body,
                 "grant_type=refresh_token&refresh_token=" + encoded);
    }

    void aRenewedSessionIsStored() {
        SignedInService service(sessionWith(oldToken));
        service.transport.queue(200, refreshReply(newToken, QStringLiteral("refresh-9")));
        QCoro::waitFor(service.refresher.refresh(oldToken));
        const AuthSession renewed = sessionWith(newToken, QStringLiteral("refresh-9"));
        QCOMPARE(QCoro::waitFor(service.store.session()), std::optional<AuthSession>(renewed));
        QTRY_COMPARE(service.kept(), std::optional<AuthSession>(renewed));
    }

    void twoCallsStartedTogetherShareOneExchange() {
        SignedInService service(sessionWith(oldToken));
        QCoro::Task<Outcome> first = service.refresher.refresh(oldToken);
        QCoro::Task<Outcome> second = service.refresher.refresh(oldToken);
        QTRY_COMPARE(service.transport.requests.size(), 1);
        QTest::qWait(0);
        QVERIFY(service.transport.answer(0, 200, refreshReply(newToken)));
        QCOMPARE(QCoro::waitFor(first), Outcome::refreshed(newToken));
        QCOMPARE(QCoro::waitFor(second), Outcome::refreshed(newToken));
        QCOMPARE(service.transport.requests.size(), 1);
    }

    void everyJoinedCallGetsTheSameOutcome_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("kind");
        QTest::newRow("all are refreshed")
            << 200 << refreshReply(newToken) << static_cast<int>(Outcome::Kind::refreshed);
        QTest::newRow("all are signed out")
            << 401 << QByteArray() << static_cast<int>(Outcome::Kind::signedOut);
        QTest::newRow("all find it unreachable")
            << 500 << QByteArray() << static_cast<int>(Outcome::Kind::unreachable);
    }
    void everyJoinedCallGetsTheSameOutcome() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(int, kind);
        SignedInService service(sessionWith(oldToken));
        std::vector<QCoro::Task<Outcome>> calls;
        for (int count = 0; count < 10; ++count)
            calls.push_back(service.refresher.refresh(oldToken));
        QTRY_COMPARE(service.transport.requests.size(), 1);
        service.transport.answer(0, status, body);
        for (QCoro::Task<Outcome>& call : calls)
            QCOMPARE(static_cast<int>(QCoro::waitFor(call).kind), kind);
        QCOMPARE(service.transport.requests.size(), 1);
    }

    void aCallThatJoinsDoesNotEndTheExchangeForTheOthers() {
        SignedInService service(sessionWith(oldToken));
        QCoro::Task<Outcome> creator = service.refresher.refresh(oldToken);
        QTRY_COMPARE(service.transport.requests.size(), 1);
        {
            // A caller that loses interest: its task is dropped.
            QCoro::Task<Outcome> joining = service.refresher.refresh(oldToken);
        }
        QCoro::Task<Outcome> late = service.refresher.refresh(oldToken);
        service.transport.answer(0, 500);
        QCOMPARE(QCoro::waitFor(creator), Outcome::unreachable());
        QCOMPARE(QCoro::waitFor(late), Outcome::unreachable());
        QCOMPARE(service.transport.requests.size(), 1);
    }

    void aCreatorThatIsDroppedStillFinishesTheExchange() {
        SignedInService service(sessionWith(oldToken));
        { QCoro::Task<Outcome> creator = service.refresher.refresh(oldToken); }
        QTRY_COMPARE(service.transport.requests.size(), 1);
        QCoro::Task<Outcome> joined = service.refresher.refresh(oldToken);
        service.transport.answer(0, 500);
        QCOMPARE(QCoro::waitFor(joined), Outcome::unreachable());
        // The next call begins a new exchange.
        service.transport.queue(200, refreshReply(newToken));
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::refreshed(newToken));
        QCOMPARE(service.transport.requests.size(), 2);
    }

    void aTokenThatWasReplacedMeanwhileNeedsNoExchange() {
        SignedInService service(sessionWith(newToken));
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::refreshed(newToken));
        QVERIFY(service.transport.requests.isEmpty());
    }

    void noStoredSessionIsSignedOutWithoutARequest() {
        SignedInService service(std::nullopt);
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::signedOut());
        QVERIFY(service.transport.requests.isEmpty());
    }

    void aRefusedRefreshTokenErasesTheSession_data() {
        QTest::addColumn<int>("status");
        QTest::newRow("status 400") << 400;
        QTest::newRow("status 401") << 401;
        QTest::newRow("status 403") << 403;
    }
    void aRefusedRefreshTokenErasesTheSession() {
        QFETCH(int, status);
        SignedInService service(sessionWith(oldToken));
        service.transport.queue(status, "{\"error\":\"invalid_grant\"}");
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::signedOut());
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::signedOut());
        QCOMPARE(service.transport.requests.size(), 1);
        QTRY_COMPARE(service.kept(), std::nullopt);
    }

    void anExchangeThatCouldNotBeMadeKeepsTheSession_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("status 402") << 402 << QByteArray();
        QTest::newRow("status 404") << 404 << QByteArray();
        QTest::newRow("status 429") << 429 << QByteArray();
        QTest::newRow("status 500") << 500 << QByteArray();
        QTest::newRow("status 503") << 503 << QByteArray();
        QTest::newRow("another success than 200") << 201 << refreshReply(newToken);
        QTest::newRow("a 200 that is not JSON") << 200 << QByteArray("<html>");
        QTest::newRow("a 200 with an empty access token") << 200 << refreshReply(QString());
        QTest::newRow("a 200 without an access token") << 200 << QByteArray("{}");
    }
    void anExchangeThatCouldNotBeMadeKeepsTheSession() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        SignedInService service(sessionWith(oldToken));
        service.transport.queue(status, body);
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::unreachable());
        QCOMPARE(service.kept(), std::optional<AuthSession>(sessionWith(oldToken)));
        QCOMPARE(QCoro::waitFor(service.store.session()), std::optional<AuthSession>(sessionWith(oldToken)));
    }

    void aNetworkThatFailsKeepsTheSession_data() {
        QTest::addColumn<int>("error");
        QTest::newRow("a time-out") << static_cast<int>(TransportError::timedOut);
        QTest::newRow("no network") << static_cast<int>(TransportError::notConnectedToInternet);
        QTest::newRow("a transfer that fails otherwise") << static_cast<int>(TransportError::other);
    }
    void aNetworkThatFailsKeepsTheSession() {
        QFETCH(int, error);
        SignedInService service(sessionWith(oldToken));
        service.transport.queue(static_cast<TransportError>(error));
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::unreachable());
        QCOMPARE(service.kept(), std::optional<AuthSession>(sessionWith(oldToken)));
        QVERIFY(!service.store.isWriting());
    }

    void aLaterCallAfterAFailureTriesAgain() {
        SignedInService service(sessionWith(oldToken));
        service.transport.queue(TransportError::timedOut);
        service.transport.queue(200, refreshReply(newToken));
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::unreachable());
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::refreshed(newToken));
    }

    void theNameIsAnnouncedOnALaterTurnOfTheMainLoop() {
        SignedInService service(sessionWith(oldToken));
        QStringList names;
        service.refresher.onRenewed = [&names](const QString& name) { names.append(name); };
        QCoro::Task<Outcome> call = service.refresher.refresh(oldToken);
        QTRY_COMPARE(service.transport.requests.size(), 1);
        service.transport.answer(0, 200, R"({"access_token":"token-2","email":"new@example.org"})");
        QVERIFY(call.isReady());
        QVERIFY(names.isEmpty());
        QTRY_COMPARE(names, QStringList({QStringLiteral("new@example.org")}));
    }

    void aSessionWithoutAnAddressAnnouncesNothing() {
        AuthSession session = sessionWith(oldToken);
        session.email.reset();
        SignedInService service(session);
        QStringList names;
        service.refresher.onRenewed = [&names](const QString& name) { names.append(name); };
        service.transport.queue(200, refreshReply(newToken));
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::refreshed(newToken));
        QTest::qWait(0);
        QVERIFY(names.isEmpty());
    }

    void noOutcomeWaitsForASlowKeychain() {
        SignedInService service(sessionWith(oldToken));
        QCoro::waitFor(service.store.session());
        service.keychain.hold();
        service.transport.queue(200, refreshReply(newToken));
        QCOMPARE(QCoro::waitFor(service.refresher.refresh(oldToken)), Outcome::refreshed(newToken));
        QVERIFY(service.store.isWriting());
        service.keychain.release();
        QTRY_VERIFY(!service.store.isWriting());
    }
};

QTEST_GUILESS_MAIN(SessionRefresherTest)
#include "tst_sessionrefresher.moc"
