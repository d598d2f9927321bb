#include "Vellumline/API.h"
#include "Vellumline/Platform/QtHTTPTransport.h"
#include "Vellumline/Platform/SystemClock.h"
#include "fakes/SignedInService.h"

#include <QCoroTask>
#include <QFile>
#include <QHash>
#include <QHostAddress>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <functional>
#include <sys/socket.h>

using namespace vellumline;
using Answer = tl::expected<HTTPResponse, TransportError>;

namespace {

struct SeenRequest {
    QByteArray method;
    QByteArray target;
    QHash<QByteArray, QByteArray> headers; ///< Names in lower case.
    QByteArray body;
};

/// A real server on a loopback port that does with each complete request what the test says.
class TestServer : public QObject {
  public:
    using Handler = std::function<void(QTcpSocket* socket, const SeenRequest& request)>;

    explicit TestServer(Handler handler, std::unique_ptr<QTcpServer> server = nullptr)
        : handler_(std::move(handler)), server_(server ? std::move(server) : std::make_unique<QTcpServer>()) {
        connect(server_.get(), &QTcpServer::pendingConnectionAvailable, this, [this]() {
            while (QTcpSocket* socket = server_->nextPendingConnection()) {
                ++connections;
                connect(socket, &QTcpSocket::readyRead, this, [this, socket]() { read(socket); });
                connect(socket, &QTcpSocket::disconnected, this, [this, socket]() {
                    ++closed;
                    socket->deleteLater();
                });
                read(socket);
            }
        });
        if (!server_->listen(QHostAddress::LocalHost))
            qFatal("no port to listen on");
    }

    QUrl url(const QString& path = QStringLiteral("/"),
             const QString& scheme = QStringLiteral("http")) const {
        return QUrl(QStringLiteral("%1://127.0.0.1:%2%3").arg(scheme).arg(server_->serverPort()).arg(path));
    }

    /// An answer with a length, on a connection that stays open.
    static void answer(QTcpSocket* socket, int status, const QByteArray& body,
                       const QByteArray& moreHeaders = {}) {
        socket->write("HTTP/1.1 " + QByteArray::number(status) + " Text\r\nContent-Length: " +
                      QByteArray::number(body.size()) + "\r\n" + moreHeaders + "\r\n" + body);
        socket->flush();
    }
    /// Ends the connection with a TCP reset.
    static void reset(QTcpSocket* socket) {
        const linger now{1, 0};
        ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        socket->abort();
    }

    QList<SeenRequest> requests;
    int connections = 0;
    int closed = 0;

  private:
    void read(QTcpSocket* socket) {
        QByteArray& buffer = buffers_[socket];
        buffer += socket->readAll();
        for (;;) {
            const qsizetype end = buffer.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            SeenRequest request;
            const QList<QByteArray> lines = buffer.left(end).split('\n');
            const QList<QByteArray> first = lines.first().trimmed().split(' ');
            request.method = first.value(0);
            request.target = first.value(1);
            for (const QByteArray& line : lines.mid(1)) {
                const qsizetype colon = line.indexOf(':');
                request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
            }
            const qsizetype length = request.headers.value("content-length").toLongLong();
            if (buffer.size() < end + 4 + length)
                return;
            request.body = buffer.mid(end + 4, length);
            buffer.remove(0, end + 4 + length);
            requests.append(request);
            handler_(socket, request);
            if (socket->state() != QAbstractSocket::ConnectedState)
                return;
        }
    }

    Handler handler_;
    std::unique_ptr<QTcpServer> server_;
    QHash<QTcpSocket*, QByteArray> buffers_;
};

HTTPRequest requestFor(const QUrl& url, const QByteArray& method = "GET", const QByteArray& body = {}) {
    HTTPRequest request;
    request.url = url;
    request.method = method;
    request.body = body;
    request.timeout = std::chrono::seconds(20);
    request.headers.append({QByteArrayLiteral("Authorization"), QByteArrayLiteral("Bearer secret-token")});
    if (!body.isEmpty())
        request.headers.append({QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json")});
    return request;
}

} // namespace

class HTTPTransportTest : public QObject {
    Q_OBJECT

  private:
    QTemporaryDir folder_;
    QSslCertificate certificate_;
    QSslKey key_;

    static Answer send(const HTTPRequest& request) {
        QtHTTPTransport transport;
        return QCoro::waitFor(transport.send(request));
    }
    static APIResult<HTTPResponse> perform(const HTTPRequest& request) {
        QtHTTPTransport transport;
        return QCoro::waitFor(API::perform(transport, request));
    }
    std::unique_ptr<QTcpServer> secureServer() const {
        auto server = std::make_unique<QSslServer>();
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setLocalCertificate(certificate_);
        configuration.setPrivateKey(key_);
        configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
        server->setSslConfiguration(configuration);
        return server;
    }

  private Q_SLOTS:
    void initTestCase() {
        const QString keyFile = folder_.filePath(QStringLiteral("key.pem"));
        const QString certificateFile = folder_.filePath(QStringLiteral("certificate.pem"));
        QProcess openssl;
        openssl.start(QStringLiteral("openssl"),
                      {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                       QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                       QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                       QStringLiteral("-keyout"), keyFile, QStringLiteral("-out"), certificateFile,
                       QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                       QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-addext"),
                       QStringLiteral("subjectAltName=IP:127.0.0.1")});
        QVERIFY(openssl.waitForFinished());
        QFile keyPem(keyFile);
        QVERIFY(keyPem.open(QIODevice::ReadOnly));
        key_ = QSslKey(&keyPem, QSsl::Ec);
        certificate_ = QSslCertificate::fromPath(certificateFile).value(0);
        QVERIFY(!key_.isNull() && !certificate_.isNull());
    }

    void aPostArrivesWithItsHeadersAndBodyAndItsAnswerComesBack() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            TestServer::answer(socket, 200, "{\"text\":\"right\"}");
        });
        const QByteArray body("{\"text\":\"\xC3\xA9\"}");
        const Answer answer = send(requestFor(server.url(QStringLiteral("/v1/rewrite")), "POST", body));
        QVERIFY(answer.has_value());
        QCOMPARE(answer->status, 200);
        QCOMPARE(answer->body, QByteArray("{\"text\":\"right\"}"));
        QCOMPARE(server.requests.size(), 1);
        const SeenRequest request = server.requests.first();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.target, QByteArray("/v1/rewrite"));
        QCOMPARE(request.body, body);
        QCOMPARE(request.headers.value("authorization"), QByteArray("Bearer secret-token"));
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        QVERIFY(!request.headers.contains("transfer-encoding"));
    }

    void everyStatusIsAnAnswerWithItsBody_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("headers");
        for (const int status : {200, 201, 202, 300, 304, 399, 400, 401, 402, 403, 404, 405, 407,
                                 409, 410, 418, 429, 451, 499, 500, 501, 502, 503, 504, 505, 599})
            QTest::addRow("status %d", status) << status << QByteArray();
        QTest::newRow("a 401 that asks for a password")
            << 401 << QByteArray("WWW-Authenticate: Basic realm=\"x\"\r\n");
        QTest::newRow("a 401 that asks for a bearer token")
            << 401 << QByteArray("WWW-Authenticate: Bearer error=\"invalid_token\"\r\n");
        QTest::newRow("a redirect without a target") << 302 << QByteArray();
    }
    void everyStatusIsAnAnswerWithItsBody() {
        QFETCH(int, status);
        QFETCH(QByteArray, headers);
        TestServer server([&](QTcpSocket* socket, const SeenRequest&) {
            TestServer::answer(socket, status, status == 304 ? QByteArray() : QByteArray("the body"),
                               headers);
        });
        const Answer answer = send(requestFor(server.url(), "POST", "{}"));
        QVERIFY2(answer.has_value(), answer ? "" : QByteArray::number(static_cast<int>(answer.error())));
        QCOMPARE(answer->status, status);
        QCOMPARE(answer->body, status == 304 ? QByteArray() : QByteArray("the body"));
        QCOMPARE(server.requests.size(), 1);
    }

    void cookiesAndCachesAreNotKept() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            TestServer::answer(socket, 200, "once",
                               "Set-Cookie: id=1\r\nCache-Control: max-age=3600\r\nETag: \"x\"\r\n");
        });
        QtHTTPTransport transport;
        QVERIFY(QCoro::waitFor(transport.send(requestFor(server.url()))).has_value());
        QVERIFY(QCoro::waitFor(transport.send(requestFor(server.url()))).has_value());
        QCOMPARE(server.requests.size(), 2);
        QVERIFY(!server.requests.last().headers.contains("cookie"));
        QVERIFY(!server.requests.last().headers.contains("if-none-match"));
    }

    void aRedirectToAnotherOriginIsNotFollowed_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("method");
        for (const int status : {301, 302, 303, 307, 308}) {
            QTest::addRow("a GET with status %d", status) << status << QByteArray("GET");
            QTest::addRow("a POST with status %d", status) << status << QByteArray("POST");
        }
    }
    void aRedirectToAnotherOriginIsNotFollowed() {
        QFETCH(int, status);
        QFETCH(QByteArray, method);
        TestServer other([](QTcpSocket* socket, const SeenRequest&) { TestServer::answer(socket, 200, {}); });
        TestServer server([&](QTcpSocket* socket, const SeenRequest&) {
            TestServer::answer(socket, status, {}, "Location: " + other.url().toEncoded() + "\r\n");
        });
        const HTTPRequest request =
            requestFor(server.url(), method, method == "POST" ? "the user's text" : QByteArray());
        const Answer answer = send(request);
        QCOMPARE(answer.error(), TransportError::other);
        QCOMPARE(perform(request).error(), APIError::failed);
        QCOMPARE(server.requests.size(), 2);
        // Not a byte of token or text went there.
        QCOMPARE(other.connections, 0);
    }

    void anotherNameOfTheSameMachineIsAnotherOrigin() {
        TestServer server([](QTcpSocket* socket, const SeenRequest& request) {
            QByteArray host = request.headers.value("host");
            TestServer::answer(socket, 307, {},
                               "Location: http://" + host.replace("127.0.0.1", "localhost") + "/\r\n");
        });
        QCOMPARE(send(requestFor(server.url(), "POST", "text")).error(), TransportError::other);
        QCOMPARE(server.requests.size(), 1);
    }

    void aRedirectWithinTheOriginIsFollowedWithTheToken_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("301 makes a GET of a POST") << 301 << QByteArray("GET") << QByteArray();
        QTest::newRow("302 makes a GET of a POST") << 302 << QByteArray("GET") << QByteArray();
        QTest::newRow("303 makes a GET of a POST") << 303 << QByteArray("GET") << QByteArray();
        QTest::newRow("307 repeats the POST") << 307 << QByteArray("POST") << QByteArray("text");
        QTest::newRow("308 repeats the POST") << 308 << QByteArray("POST") << QByteArray("text");
    }
    void aRedirectWithinTheOriginIsFollowedWithTheToken() {
        QFETCH(int, status);
        QFETCH(QByteArray, method);
        QFETCH(QByteArray, body);
        TestServer server([&](QTcpSocket* socket, const SeenRequest& request) {
            if (request.target == "/old")
                TestServer::answer(socket, status, {}, "Location: new?x=1\r\n");
            else
                TestServer::answer(socket, 200, "here");
        });
        const Answer answer = send(requestFor(server.url(QStringLiteral("/old")), "POST", "text"));
        QCOMPARE(answer->body, QByteArray("here"));
        QCOMPARE(server.requests.size(), 2);
        const SeenRequest followed = server.requests.last();
        QCOMPARE(followed.target, QByteArray("/new?x=1"));
        QCOMPARE(followed.method, method);
        QCOMPARE(followed.body, body);
        QCOMPARE(followed.headers.value("authorization"), QByteArray("Bearer secret-token"));
        QCOMPARE(followed.headers.contains("content-type"), !body.isEmpty());
    }

    void redirectsThatGoInACircleEnd() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            TestServer::answer(socket, 302, {}, "Location: /again\r\n");
        });
        QCOMPARE(send(requestFor(server.url())).error(), TransportError::other);
        QCOMPARE(server.requests.size(), 6);
    }

    void aSelfSignedCertificateIsRefused() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) { TestServer::answer(socket, 200, {}); },
                          secureServer());
        const HTTPRequest request =
            requestFor(server.url(QStringLiteral("/"), QStringLiteral("https")), "POST", "text");
        QCOMPARE(send(request).error(), TransportError::other);
        QCOMPARE(perform(request).error(), APIError::failed);
        QVERIFY(server.requests.isEmpty());
    }

    void aTrustedCertificateIsAcceptedForItsHostOnly() {
        const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
        QSslConfiguration trusting = before;
        trusting.addCaCertificate(certificate_);
        QSslConfiguration::setDefaultConfiguration(trusting);
        TestServer plain([](QTcpSocket* socket, const SeenRequest&) { TestServer::answer(socket, 200, {}); });
        TestServer server(
            [&](QTcpSocket* socket, const SeenRequest& request) {
                if (request.target == "/downgrade")
                    TestServer::answer(socket, 307, {}, "Location: " + plain.url().toEncoded() + "\r\n");
                else
                    TestServer::answer(socket, 200, "secure");
            },
            secureServer());
        const QUrl url = server.url(QStringLiteral("/"), QStringLiteral("https"));
        const Answer good = send(requestFor(url));
        QUrl otherName = url;
        otherName.setHost(QStringLiteral("localhost"));
        const Answer wrongName = send(requestFor(otherName));
        const Answer downgraded = send(requestFor(
            server.url(QStringLiteral("/downgrade"), QStringLiteral("https")), "POST", "the user's text"));
        QSslConfiguration::setDefaultConfiguration(before);
        QVERIFY(good.has_value());
        QCOMPARE(good->body, QByteArray("secure"));
        QCOMPARE(wrongName.error(), TransportError::other);
        QCOMPARE(downgraded.error(), TransportError::other);
        QCOMPARE(plain.connections, 0);
    }

    void aClosedPortIsOffline() {
        QUrl url;
        {
            TestServer server([](QTcpSocket*, const SeenRequest&) {});
            url = server.url();
        }
        QCOMPARE(send(requestFor(url)).error(), TransportError::cannotConnectToHost);
        QCOMPARE(perform(requestFor(url, "POST", "x")).error(), APIError::offline);
    }

    void anUnknownHostIsOffline() {
        const QUrl url(QStringLiteral("http://no-such-host.invalid/"));
        QCOMPARE(send(requestFor(url)).error(), TransportError::cannotFindHost);
        QCOMPARE(perform(requestFor(url, "POST", "x")).error(), APIError::offline);
    }

    void aServerThatNeverAnswersTimesOut() {
        TestServer server([](QTcpSocket*, const SeenRequest&) {});
        HTTPRequest request = requestFor(server.url(), "POST", "x");
        request.timeout = std::chrono::milliseconds(150);
        QCOMPARE(send(request).error(), TransportError::timedOut);
        QCOMPARE(perform(request).error(), APIError::timedOut);
        QCOMPARE(server.requests.size(), 2);
    }

    void theTimeOutIsThatOfTheWholeExchange_data() {
        QTest::addColumn<bool>("redirecting");
        QTest::newRow("a server that sends a byte now and then") << false;
        QTest::newRow("a server that redirects slowly") << true;
    }
    void theTimeOutIsThatOfTheWholeExchange() {
        QFETCH(bool, redirecting);
        TestServer server([&](QTcpSocket* socket, const SeenRequest&) {
            if (redirecting) {
                QTimer::singleShot(
                    120, socket, [socket]() { TestServer::answer(socket, 307, {}, "Location: /again\r\n"); });
                return;
            }
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
            auto* timer = new QTimer(socket);
            QObject::connect(timer, &QTimer::timeout, socket, [socket]() { socket->write("x"); });
            timer->start(20);
        });
        HTTPRequest request = requestFor(server.url());
        request.timeout = std::chrono::milliseconds(300);
        QCOMPARE(send(request).error(), TransportError::timedOut);
    }

    void aConnectionThatBreaksIsOfflineAndNothingIsSentTwice_data() {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QByteArray>("begun");
        QTest::addColumn<bool>("reset");
        for (const QByteArray method : {"POST", "GET"}) {
            for (const bool reset : {false, true}) {
                const QByteArray how = (reset ? ", by a reset" : ", by an end of file");
                QTest::addRow("a %s, before the answer%s", method.data(), how.data())
                    << method << QByteArray() << reset;
                QTest::addRow("a %s, amid the status line%s", method.data(), how.data())
                    << method << QByteArray("HTTP/1.1 2") << reset;
                QTest::addRow("a %s, amid the headers%s", method.data(), how.data())
                    << method << QByteArray("HTTP/1.1 200 OK\r\nContent-Le") << reset;
                QTest::addRow("a %s, amid the body%s", method.data(), how.data())
                    << method << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"text\"")
                    << reset;
                QTest::addRow("a %s, amid the chunks%s", method.data(), how.data())
                    << method
                    << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n")
                    << reset;
            }
        }
    }
    void aConnectionThatBreaksIsOfflineAndNothingIsSentTwice() {
        QFETCH(QByteArray, method);
        QFETCH(QByteArray, begun);
        QFETCH(bool, reset);
        TestServer server([&](QTcpSocket* socket, const SeenRequest&) {
            socket->write(begun);
            socket->flush();
            // Later, so that what was begun is not lost with the reset.
            QTimer::singleShot(begun.isEmpty() ? 0 : 50, socket, [socket, reset]() {
                if (reset)
                    TestServer::reset(socket);
                else
                    socket->disconnectFromHost();
            });
        });
        const Answer answer = send(requestFor(server.url(), method, method == "POST" ? "x" : QByteArray()));
        QVERIFY(!answer.has_value());
        QCOMPARE(answer.error(), TransportError::networkConnectionLost);
        QCOMPARE(server.requests.size(), 1);
    }

    void aServerThatClosesAnIdleConnectionIsConnectedAgain() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            TestServer::answer(socket, 200, "ok");
            QTimer::singleShot(20, socket, [socket]() { socket->disconnectFromHost(); });
        });
        QtHTTPTransport transport;
        for (int count = 1; count <= 3; ++count) {
            const Answer answer = QCoro::waitFor(transport.send(requestFor(server.url(), "POST", "x")));
            QVERIFY(answer.has_value());
            QCOMPARE(server.requests.size(), count);
            QTRY_COMPARE(server.closed, count);
            QTest::qWait(20);
        }
    }

    void aConnectionIsUsedAgain() {
        TestServer server(
            [](QTcpSocket* socket, const SeenRequest&) { TestServer::answer(socket, 200, "ok"); });
        QtHTTPTransport transport;
        for (int count = 1; count <= 5; ++count)
            QVERIFY(QCoro::waitFor(transport.send(requestFor(server.url(), "POST", "x"))).has_value());
        QCOMPARE(server.connections, 1);
    }

    void aConnectionThatIsNotUsedIsClosed() {
        TestServer server(
            [](QTcpSocket* socket, const SeenRequest&) { TestServer::answer(socket, 200, "ok"); });
        QtHTTPTransport transport(std::chrono::milliseconds(50));
        for (int count = 1; count <= 2; ++count) {
            QVERIFY(QCoro::waitFor(transport.send(requestFor(server.url(), "POST", "x"))).has_value());
            QTRY_COMPARE(server.closed, count);
        }
        QCOMPARE(server.connections, 2);
    }

    void aSlowAnswerIsNotTakenForAnIdleConnection() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            QTimer::singleShot(200, socket, [socket] { TestServer::answer(socket, 200, "ok"); });
        });
        QtHTTPTransport transport(std::chrono::milliseconds(50));
        for (int count = 0; count < 2; ++count)
            QVERIFY(QCoro::waitFor(transport.send(requestFor(server.url(), "POST", "x"))).has_value());
    }

    void anAnswerAfterWhichTheServerHangsUpIsWhole_data() {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<bool>("atOnce");
        for (const QByteArray method : {"GET", "POST"}) {
            for (const bool atOnce : {true, false}) {
                const QByteArray when = atOnce ? ", hung up at once" : ", hung up later";
                QTest::addRow("a %s, a body without a length%s", method.data(), when.data())
                    << method << QByteArray("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nthe whole body")
                    << atOnce;
                QTest::addRow("a %s, a body with its length%s", method.data(), when.data())
                    << method
                    << QByteArray(
                           "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 14\r\n\r\nthe whole body")
                    << atOnce;
                QTest::addRow("a %s, a body in chunks%s", method.data(), when.data())
                    << method
                    << QByteArray("HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n"
                                  "4\r\nthe \r\na\r\nwhole body\r\n0\r\n\r\n")
                    << atOnce;
                QTest::addRow("a %s, an error with its length%s", method.data(), when.data())
                    << method << QByteArray("HTTP/1.1 502 Bad\r\nContent-Length: 14\r\n\r\nthe whole body")
                    << atOnce;
            }
        }
    }
    void anAnswerAfterWhichTheServerHangsUpIsWhole() {
        QFETCH(QByteArray, method);
        QFETCH(QByteArray, answer);
        QFETCH(bool, atOnce);
        TestServer server([&](QTcpSocket* socket, const SeenRequest&) {
            socket->write(answer);
            if (atOnce)
                socket->disconnectFromHost();
            else
                QTimer::singleShot(20, socket, [socket]() { socket->disconnectFromHost(); });
        });
        const Answer got = send(requestFor(server.url(), method, method == "POST" ? "x" : QByteArray()));
        QVERIFY2(got.has_value(), got ? "" : QByteArray::number(static_cast<int>(got.error())));
        QCOMPARE(got->body, QByteArray("the whole body"));
        QCOMPARE(server.requests.size(), 1);
    }

    void aBodyThatIsTooLargeFails_data() {
        QTest::addColumn<QByteArray>("headers");
        QTest::newRow("with a length") << QByteArray("Content-Length: 20000000\r\n");
        QTest::newRow("without a length") << QByteArray("Connection: close\r\n");
    }
    void aBodyThatIsTooLargeFails() {
        QFETCH(QByteArray, headers);
        qint64 written = 0;
        TestServer server([&](QTcpSocket* socket, const SeenRequest&) {
            socket->write("HTTP/1.1 200 OK\r\n" + headers + "\r\n");
            const auto more = [socket, &written]() {
                if (socket->bytesToWrite() < 1024 * 1024 && written < 100'000'000)
                    written += socket->write(QByteArray(256 * 1024, 'x'));
            };
            QObject::connect(socket, &QTcpSocket::bytesWritten, socket, more);
            more();
        });
        QCOMPARE(send(requestFor(server.url())).error(), TransportError::other);
        QVERIFY(written < 40'000'000);
    }

    void theLargestBodyArrivesWhole() {
        const QByteArray body(QtHTTPTransport::largestBody, 'y');
        TestServer server(
            [&](QTcpSocket* socket, const SeenRequest&) { TestServer::answer(socket, 200, body); });
        const Answer answer = send(requestFor(server.url()));
        QVERIFY(answer.has_value());
        QCOMPARE(answer->body.size(), body.size());
    }

    void aServerThatDoesNotSpeakHttpFails() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            socket->write("220 mail.example.org ESMTP\r\n500 what?\r\n\r\n");
            socket->disconnectFromHost();
        });
        QVERIFY(!send(requestFor(server.url(), "POST", "x")).has_value());
        QCOMPARE(server.requests.size(), 1);
    }

    void whatIsNotHttpIsNotRead_data() {
        QTest::addColumn<QString>("url");
        QTest::newRow("a file") << "file:///etc/hostname";
        QTest::newRow("a data URL") << "data:text/plain,hello";
        QTest::newRow("nothing") << "";
    }
    void whatIsNotHttpIsNotRead() {
        QFETCH(QString, url);
        QCOMPARE(send(requestFor(QUrl(url))).error(), TransportError::notHTTP);
        QCOMPARE(perform(requestFor(QUrl(url))).error(), APIError::failed);
    }

    void theMainLoopTurnsWhileARequestIsUnderWay() {
        TestServer server([](QTcpSocket* socket, const SeenRequest&) {
            QTimer::singleShot(100, socket, [socket]() { TestServer::answer(socket, 200, {}); });
        });
        int beats = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&beats]() { ++beats; });
        timer.start(5);
        QVERIFY(send(requestFor(server.url())).has_value());
        QVERIFY(beats > 0);
    }

    void twoHundredCallsWithAnExpiringTokenMakeOneExchangeOverARealConnection() {
        SystemClock clock;
        const QString next = tokenExpiring(clock.now() + 600, 1);
        int exchanges = 0;
        TestServer server([&](QTcpSocket* socket, const SeenRequest& request) {
            if (request.target == "/auth/oauth/token") {
                ++exchanges;
                TestServer::answer(socket, 200, refreshReply(next));
            } else {
                const bool fresh = request.headers.value("authorization") == "Bearer " + next.toUtf8();
                TestServer::answer(socket, fresh ? 200 : 401, {});
            }
        });
        const QUrl url = server.url(QStringLiteral("/v1/account"));
        const QString origin = server.url(QString()).toString();
        QtHTTPTransport transport;
        FakeKeychain keychain;
        TokenStore store(keychain, QStringLiteral("/nonexistent/session.json"));
        QCoro::waitFor(store.setSession(sessionWith(tokenExpiring(clock.now() + 30))));
        SessionRefresher refresher(transport, store, *AuthConfig::resolve({}, {}, {}, origin));
        API api(transport, store, refresher, clock);
        std::vector<QCoro::Task<APIResult<HTTPResponse>>> calls;
        for (int count = 0; count < 200; ++count) {
            calls.push_back(api.send([url](const QString& token) {
                HTTPRequest request = requestFor(url);
                request.headers = {{"Authorization", "Bearer " + token.toUtf8()}};
                return request;
            }));
        }
        for (QCoro::Task<APIResult<HTTPResponse>>& call : calls) {
            const APIResult<HTTPResponse> answer = QCoro::waitFor(call);
            QVERIFY(answer.has_value());
            QCOMPARE(answer->status, 200);
        }
        QCOMPARE(exchanges, 1);
        QCOMPARE(server.requests.size(), 201);
        QTRY_VERIFY(!store.isWriting());
    }
};

QTEST_GUILESS_MAIN(HTTPTransportTest)
#include "tst_httptransport.moc"
