#include "Vellumline/API.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QTest>
#include <cmath>

using namespace vellumline;

namespace {

using Reply = APIResult<HTTPResponse>;

/// The moment at which the fake clock starts.
constexpr double start = 1'700'000'000.0;
const QByteArray closedBody = "{\"error\":\"account closed\"}";

HTTPRequest plainRequest(const QString& accessToken) {
    HTTPRequest request;
    request.url = QUrl(QStringLiteral("https://api.example.org/v1/thing"));
    request.headers.append({"Authorization", "Bearer " + accessToken.toUtf8()});
    return request;
}

/// The bearer tokens of the requests to the service, in order; "exchange" for each token exchange.
QStringList traffic(const FakeHTTPTransport& transport) {
    QStringList result;
    for (const HTTPRequest& request : transport.requests) {
        const std::optional<QByteArray> value = FakeHTTPTransport::header(request, "Authorization");
        result.append(value ? QString::fromUtf8(value->mid(7)) : QStringLiteral("exchange"));
    }
    return result;
}

const QString exchange = QStringLiteral("exchange");

} // namespace

class APITest : public QObject {
    Q_OBJECT

  private:
    static Reply send(SignedInService& service) { return QCoro::waitFor(service.api.send(plainRequest)); }

  private Q_SLOTS:
    void transportFailuresBecomeTheFourErrors_data() {
        QTest::addColumn<int>("transport");
        QTest::addColumn<int>("expected");
        const auto row = [](const char* name, TransportError from, APIError to) {
            QTest::newRow(name) << static_cast<int>(from) << static_cast<int>(to);
        };
        row("a time-out is timedOut", TransportError::timedOut, APIError::timedOut);
        row("no network is offline", TransportError::notConnectedToInternet, APIError::offline);
        row("a lost connection is offline", TransportError::networkConnectionLost, APIError::offline);
        row("an unknown host is offline", TransportError::cannotFindHost, APIError::offline);
        row("a refused connection is offline", TransportError::cannotConnectToHost, APIError::offline);
        row("a failed look-up is offline", TransportError::dnsLookupFailed, APIError::offline);
        row("forbidden data is offline", TransportError::dataNotAllowed, APIError::offline);
        row("roaming switched off is offline", TransportError::internationalRoamingOff, APIError::offline);
        row("anything else is failed", TransportError::other, APIError::failed);
        row("a response that is not HTTP is failed", TransportError::notHTTP, APIError::failed);
    }
    void transportFailuresBecomeTheFourErrors() {
        QFETCH(int, transport);
        QFETCH(int, expected);
        FakeHTTPTransport fake;
        fake.queue(static_cast<TransportError>(transport));
        const Reply reply = QCoro::waitFor(API::perform(fake, plainRequest(QStringLiteral("t"))));
        QVERIFY(!reply.has_value());
        QCOMPARE(static_cast<int>(reply.error()), expected);
        QCOMPARE(fake.requests.size(), 1);
    }

    void anAnswerIsReturnedAsItIsWhateverItsStatus_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("a 200 that is not JSON") << 200 << QByteArray("<html>hello");
        QTest::newRow("a 204 without a body") << 204 << QByteArray();
        QTest::newRow("a 404") << 404 << QByteArray("{}");
        QTest::newRow("a 500") << 500 << QByteArray("oops");
    }
    void anAnswerIsReturnedAsItIsWhateverItsStatus() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        FakeHTTPTransport fake;
        fake.queue(status, body);
        const Reply reply = QCoro::waitFor(API::perform(fake, plainRequest(QStringLiteral("t"))));
        QVERIFY(reply.has_value());
        QCOMPARE(reply->status, status);
        QCOMPARE(reply->body, body);
    }

    void aClosedAccountIsRecognisedExactly_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("closed");
        QTest::newRow("a 401 that says so") << 401 << closedBody << true;
        QTest::newRow("other members do not matter")
            << 401 << QByteArray("{\"id\":7,\"error\":\"account closed\"}") << true;
        QTest::newRow("another letter case") << 401 << QByteArray("{\"error\":\"Account closed\"}") << false;
        QTest::newRow("an invisible first character") << 401
                                                      << QByteArray("{\"error\":\"\xEF\xBB\xBF"
                                                                    "account closed\"}")
                                                      << false;
        QTest::newRow("a trailing space") << 401 << QByteArray("{\"error\":\"account closed \"}") << false;
        QTest::newRow("a body that is not JSON") << 401 << QByteArray("account closed") << false;
        QTest::newRow("no body") << 401 << QByteArray() << false;
        QTest::newRow("an array at the top") << 401 << QByteArray("[\"account closed\"]") << false;
        QTest::newRow("an error that is no text") << 401 << QByteArray("{\"error\":{}}") << false;
        QTest::newRow("the same body with status 403") << 403 << closedBody << false;
        QTest::newRow("the same body with status 200") << 200 << closedBody << false;
    }
    void aClosedAccountIsRecognisedExactly() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, closed);
        QCOMPARE(API::accountClosed(HTTPResponse{status, body}), closed);
    }

    void noSessionIsSignedOutBeforeAnyTraffic() {
        SignedInService service(std::nullopt);
        const Reply reply = send(service);
        QCOMPARE(reply.error(), APIError::signedOut);
        QVERIFY(service.transport.requests.isEmpty());
    }

    void aTokenIsRenewedInTheLastMinute_data() {
        QTest::addColumn<double>("expiresIn");
        QTest::addColumn<bool>("renewed");
        QTest::newRow("61 seconds before its expiry it is used as it is") << 61.0 << false;
        QTest::newRow("60.5 seconds before its expiry it is used as it is") << 60.5 << false;
        QTest::newRow("exactly 60 seconds before its expiry it is renewed") << 60.0 << true;
        QTest::newRow("59 seconds before its expiry it is renewed") << 59.0 << true;
        QTest::newRow("at its expiry it is renewed") << 0.0 << true;
        QTest::newRow("long after its expiry it is renewed") << -86400.0 << true;
    }
    void aTokenIsRenewedInTheLastMinute() {
        QFETCH(double, expiresIn);
        QFETCH(bool, renewed);
        const QString token = tokenExpiring(start + expiresIn);
        const QString next = tokenExpiring(start + 600, 1);
        SignedInService service(sessionWith(token));
        service.clock.setNow(start);
        if (renewed)
            service.transport.queue(200, refreshReply(next));
        service.transport.queue(200, "answer");
        const Reply reply = send(service);
        QCOMPARE(reply->body, QByteArray("answer"));
        QCOMPARE(traffic(service.transport), renewed ? QStringList({exchange, next}) : QStringList({token}));
    }

    void aTokenWithoutAReadableExpiryIsUsedAsItIs_data() {
        QTest::addColumn<QString>("token");
        QTest::newRow("a token without a point") << QStringLiteral("opaque");
        QTest::newRow("a payload without exp") << tokenWith({{QStringLiteral("sub"), 7}});
        QTest::newRow("an exp that is a text") << tokenWith({{QStringLiteral("exp"), QStringLiteral("1")}});
        QTest::newRow("a payload that is not JSON") << QStringLiteral("a.!!!.c");
    }
    void aTokenWithoutAReadableExpiryIsUsedAsItIs() {
        QFETCH(QString, token);
        SignedInService service(sessionWith(token));
        service.transport.queue(200);
        QVERIFY(send(service).has_value());
        QCOMPARE(traffic(service.transport), QStringList({token}));
    }

    void anEarlyRenewalThatIsRefusedIsSignedOut() {
        SignedInService service(sessionWith(tokenExpiring(start)));
        service.transport.queue(401);
        QCOMPARE(send(service).error(), APIError::signedOut);
        QCOMPARE(traffic(service.transport), QStringList({exchange}));
    }

    void anEarlyRenewalOutOfReachGoesOnWithTheOldToken() {
        const QString token = tokenExpiring(start + 30);
        SignedInService service(sessionWith(token));
        service.transport.queue(TransportError::timedOut);
        service.transport.queue(200, "answer");
        QCOMPARE(send(service)->body, QByteArray("answer"));
        QCOMPARE(traffic(service.transport), QStringList({exchange, token}));
    }

    void twoRenewalsOutOfReachAreReportedAsOffline() {
        const QString token = tokenExpiring(start + 30);
        SignedInService service(sessionWith(token));
        service.transport.queue(503);
        service.transport.queue(401);
        service.transport.queue(503);
        QCOMPARE(send(service).error(), APIError::offline);
        QCOMPARE(traffic(service.transport), QStringList({exchange, token, exchange}));
        QCOMPARE(service.kept(), std::optional<AuthSession>(sessionWith(token)));
    }

    void aClosedAccountIsReturnedUntouched() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401, closedBody);
        const Reply reply = send(service);
        QCOMPARE(reply->status, 401);
        QCOMPARE(reply->body, closedBody);
        QCOMPARE(traffic(service.transport), QStringList({QStringLiteral("one")}));
        QVERIFY(service.kept().has_value());
    }

    void aRejectedTokenIsRenewedAndTheCallMadeAgainOnce_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("no body") << QByteArray();
        QTest::newRow("another letter case of the closed account")
            << QByteArray("{\"error\":\"Account Closed\"}");
        QTest::newRow("a body that is not JSON") << QByteArray("account closed");
    }
    void aRejectedTokenIsRenewedAndTheCallMadeAgainOnce() {
        QFETCH(QByteArray, body);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401, body);
        service.transport.queue(200, refreshReply(QStringLiteral("two")));
        service.transport.queue(200, "answer");
        QCOMPARE(send(service)->body, QByteArray("answer"));
        QCOMPARE(traffic(service.transport),
                 QStringList({QStringLiteral("one"), exchange, QStringLiteral("two")}));
    }

    void aRejectedTokenWhoseRenewalIsRefusedIsSignedOut() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(403);
        QCOMPARE(send(service).error(), APIError::signedOut);
        QCOMPARE(service.transport.requests.size(), 2);
        QTRY_COMPARE(service.kept(), std::nullopt);
    }

    void aSecondRejectionEndsTheSession() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(200, refreshReply(QStringLiteral("two")));
        service.transport.queue(401);
        QCOMPARE(send(service).error(), APIError::signedOut);
        QCOMPARE(QCoro::waitFor(service.store.session()), std::nullopt);
        QTRY_COMPARE(service.kept(), std::nullopt);
        QCOMPARE(send(service).error(), APIError::signedOut);
        QCOMPARE(service.transport.requests.size(), 3);
    }

    void aClosedAccountAfterTheRenewalIsReturnedAndEndsNothing() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(200, refreshReply(QStringLiteral("two")));
        service.transport.queue(401, closedBody);
        QCOMPARE(send(service)->body, closedBody);
        QCOMPARE(QCoro::waitFor(service.store.session())->accessToken, QStringLiteral("two"));
    }

    void anyOtherStatusAfterTheRenewalIsReturned_data() {
        QTest::addColumn<int>("status");
        for (const int status : {200, 402, 403, 429, 500, 503})
            QTest::addRow("status %d", status) << status;
    }
    void anyOtherStatusAfterTheRenewalIsReturned() {
        QFETCH(int, status);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(200, refreshReply(QStringLiteral("two")));
        service.transport.queue(status, "body");
        const Reply reply = send(service);
        QCOMPARE(reply->status, status);
        QCOMPARE(reply->body, QByteArray("body"));
        QCOMPARE(service.transport.requests.size(), 3);
    }

    void otherStatusesAreTheCallersBusiness_data() {
        QTest::addColumn<int>("status");
        for (const int status : {200, 201, 400, 402, 403, 404, 429, 500, 502, 503, 504})
            QTest::addRow("status %d", status) << status;
    }
    void otherStatusesAreTheCallersBusiness() {
        QFETCH(int, status);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(status);
        QCOMPARE(send(service)->status, status);
        QCOMPARE(service.transport.requests.size(), 1);
    }

    void transportErrorsPassThrough_data() {
        QTest::addColumn<bool>("afterRenewal");
        QTest::newRow("on the first attempt") << false;
        QTest::newRow("on the attempt after a renewal") << true;
    }
    void transportErrorsPassThrough() {
        QFETCH(bool, afterRenewal);
        SignedInService service(sessionWith(QStringLiteral("one")));
        if (afterRenewal) {
            service.transport.queue(401);
            service.transport.queue(200, refreshReply(QStringLiteral("two")));
        }
        service.transport.queue(TransportError::timedOut);
        QCOMPARE(send(service).error(), APIError::timedOut);
        QVERIFY(QCoro::waitFor(service.store.session()).has_value());
    }

    void twoHundredCallsWithAnExpiringTokenMakeOneExchange() {
        const QString next = tokenExpiring(start + 600, 1);
        SignedInService service(sessionWith(tokenExpiring(start + 10)));
        int exchanges = 0;
        service.transport.handler =
            [&](const HTTPRequest& request) -> std::optional<FakeHTTPTransport::Answer> {
            if (!FakeHTTPTransport::header(request, "Authorization")) {
                ++exchanges;
                return HTTPResponse{200, refreshReply(next)};
            }
            return HTTPResponse{200, *FakeHTTPTransport::header(request, "Authorization")};
        };
        std::vector<QCoro::Task<Reply>> calls;
        for (int count = 0; count < 200; ++count)
            calls.push_back(service.api.send(plainRequest));
        for (QCoro::Task<Reply>& call : calls)
            QCOMPARE(QCoro::waitFor(call)->body, "Bearer " + next.toUtf8());
        QCOMPARE(exchanges, 1);
        QCOMPARE(service.transport.requests.size(), 201);
        QCOMPARE(service.transport.pending(), 0);
        QCOMPARE(service.keychain.count(QStringLiteral("copyMatching")), 1);
    }

    void twoHundredCallsThatAreRejectedTogetherMakeOneExchange() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        int exchanges = 0;
        service.transport.handler =
            [&](const HTTPRequest& request) -> std::optional<FakeHTTPTransport::Answer> {
            const std::optional<QByteArray> bearer = FakeHTTPTransport::header(request, "Authorization");
            if (!bearer) {
                ++exchanges;
                return HTTPResponse{200, refreshReply(QStringLiteral("two"))};
            }
            return HTTPResponse{*bearer == "Bearer two" ? 200 : 401, {}};
        };
        std::vector<QCoro::Task<Reply>> calls;
        for (int count = 0; count < 200; ++count)
            calls.push_back(service.api.send(plainRequest));
        for (QCoro::Task<Reply>& call : calls)
            QCOMPARE(QCoro::waitFor(call)->status, 200);
        QCOMPARE(exchanges, 1);
        QCOMPARE(service.transport.requests.size(), 401);
    }
};

QTEST_GUILESS_MAIN(APITest)
#include "tst_api.moc"
