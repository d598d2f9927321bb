#include "Vellumline/RewriteClient.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace vellumline;

class RewriteClientTest : public QObject {
    Q_OBJECT

  private:
    static APIResult<RewriteReply> rewrite(SignedInService& service, const QString& text) {
        RewriteClient client(service.api, exampleConfig());
        return QCoro::waitFor(client.rewrite(text));
    }

  private Q_SLOTS:
    void theRequestHasTheTextTheTokenAndFifteenSeconds() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(200, R"({"text":"word"})");
        rewrite(service, QStringLiteral("wrod"));
        QCOMPARE(service.transport.requests.size(), 1);
        const HTTPRequest request = service.transport.requests.first();
        QCOMPARE(request.url, QUrl(QStringLiteral("https://api.example.org/v1/rewrite")));
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.timeout, std::chrono::seconds(15));
        QCOMPARE(request.headers.size(), 2);
        QCOMPARE(FakeHTTPTransport::header(request, "Authorization").value(), QByteArray("Bearer one"));
        QCOMPARE(FakeHTTPTransport::header(request, "Content-Type").value(), QByteArray("application/json"));
        QCOMPARE(request.body, QByteArray(R"({"text":"wrod"})"));
    }

    void anyTextArrivesAsItIs_data() {
        QTest::addColumn<QString>("text");
        QTest::newRow("quotes, backslashes and control characters")
            << QStringLiteral("\"a\\b\"\t\r\n\x01 end");
        QTest::newRow("emoji and combining marks") << QString::fromUtf8("\U0001F469\u200D\U0001F469 e\u0301");
        QTest::newRow("blanks at both ends") << QStringLiteral("  x \n");
        QTest::newRow("four thousand characters") << QString(4000, QLatin1Char('x'));
    }
    void anyTextArrivesAsItIs() {
        QFETCH(QString, text);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(200, R"({"text":"x"})");
        rewrite(service, text);
        const QJsonObject expected{{QStringLiteral("text"), text}};
        QCOMPARE(QJsonDocument::fromJson(service.transport.requests.first().body).object(), expected);
    }

    void everyStatusIsAReply_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        for (const int status : {200, 201, 204, 302, 400, 402, 403, 404, 429, 500, 502, 503, 504, 505})
            QTest::addRow("status %d", status) << status << QByteArray(R"({"text":" kept "})");
    }
    void everyStatusIsAReply() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(status, body);
        const APIResult<RewriteReply> reply = rewrite(service, QStringLiteral("text"));
        QVERIFY(reply.has_value());
        QCOMPARE(*reply, RewriteReply::from(status, body));
        QCOMPARE(service.transport.requests.size(), 1);
    }

    void aClosedAccountIsNotTriedAgain() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401, R"({"error":"account closed"})");
        const APIResult<RewriteReply> reply = rewrite(service, QStringLiteral("text"));
        QCOMPARE(reply->kind, RewriteReply::Kind::accountClosed);
        QCOMPARE(service.transport.requests.size(), 1);
    }

    void theTextIsSentAgainWithTheRenewedToken() {
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(401);
        service.transport.queue(200, refreshReply(QStringLiteral("two")));
        service.transport.queue(200, R"({"text":"right"})");
        const APIResult<RewriteReply> reply = rewrite(service, QStringLiteral("rihgt"));
        QCOMPARE(*reply, RewriteReply::corrected(QStringLiteral("right")));
        const HTTPRequest again = service.transport.requests.last();
        QCOMPARE(again.body, QByteArray(R"({"text":"rihgt"})"));
        QCOMPARE(FakeHTTPTransport::header(again, "Authorization").value(), QByteArray("Bearer two"));
    }

    void sessionAndTransportFailuresAreErrors() {
        SignedInService signedOut(std::nullopt);
        QCOMPARE(rewrite(signedOut, QStringLiteral("text")).error(), APIError::signedOut);
        SignedInService service(sessionWith(QStringLiteral("one")));
        service.transport.queue(TransportError::timedOut);
        QCOMPARE(rewrite(service, QStringLiteral("text")).error(), APIError::timedOut);
        service.transport.queue(TransportError::networkConnectionLost);
        QCOMPARE(rewrite(service, QStringLiteral("text")).error(), APIError::offline);
        service.transport.queue(TransportError::other);
        QCOMPARE(rewrite(service, QStringLiteral("text")).error(), APIError::failed);
    }
};

QTEST_GUILESS_MAIN(RewriteClientTest)
#include "tst_rewriteclient.moc"
