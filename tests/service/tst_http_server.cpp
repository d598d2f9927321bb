#include "VellumlineService/Service/HttpServer.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace vellumline;

class HttpServerTest : public QObject {
    Q_OBJECT

    static QByteArray exchange(HttpServer& server, const QByteArray& bytes) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, server.serverPort());
        socket.write(bytes);
        QByteArray answer;
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT(
                (answer += socket.readAll(), socket.state() == QAbstractSocket::UnconnectedState), 5000);
        }();
        return answer + socket.readAll();
    }
    static HttpServer::LaneOf never() {
        return [](const HttpRequest&) { return HttpServer::Lane::quick; };
    }
    static HttpServer::Handler echo() {
        return [](const HttpRequest& request) {
            HttpAnswer answer;
            answer.contentType = "text/plain";
            answer.body = request.method + ' ' + request.path + ' ' + request.body;
            return answer;
        };
    }

  private Q_SLOTS:
    void requestsThatMeanTwoThingsAreRefused_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("status");
        const auto row = [](const char* name, const QByteArray& bytes, int status) {
            QTest::newRow(name) << bytes << status;
        };
        row("no version", "GET /\r\n\r\n", 400);
        row("another protocol", "GET / FTP/1.1\r\n\r\n", 400);
        row("a newer version", "GET / HTTP/2.0\r\n\r\n", 505);
        row("no host", "GET / HTTP/1.1\r\n\r\n", 400);
        row("two hosts", "GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400);
        row("two lengths", "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 1\r\nContent-Length: 1\r\n\r\n",
            400);
        row("a negative length", "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: -1\r\n\r\n", 400);
        row("a signed length", "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: +1\r\n\r\n", 400);
        row("a chunked body", "POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n", 411);
        row("a body without a length", "POST / HTTP/1.1\r\nHost: a\r\n\r\n", 411);
        row("a body too large", "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 262145\r\n\r\n", 413);
        row("a folded header", "GET / HTTP/1.1\r\nHost: a\r\n b\r\n\r\n", 400);
        row("a space before the colon", "GET / HTTP/1.1\r\nHost : a\r\n\r\n", 400);
        row("a bare line feed", "GET / HTTP/1.1\nHost: a\n\r\n\r\n", 400);
        row("a bare carriage return", "GET / HTTP/1.1\r\nHost: a\rb: c\r\n\r\n", 400);
        row("a long address", "GET /" + QByteArray(9000, 'a'), 414);
        row("large headers", "GET / HTTP/1.1\r\nHost: a\r\nb: " + QByteArray(20000, 'c'), 431);
        row("many headers", "GET / HTTP/1.1\r\nHost: a\r\n" + QByteArray("b: c\r\n").repeated(101) + "\r\n",
            431);
        row("an unknown expectation",
            "POST / HTTP/1.1\r\nHost: a\r\nExpect: tea\r\nContent-Length: 0\r\n\r\n", 417);
    }
    void requestsThatMeanTwoThingsAreRefused() {
        QFETCH(QByteArray, bytes);
        QFETCH(int, status);
        HttpParser whole;
        QCOMPARE(whole.feed(bytes), HttpParser::State::failed);
        QCOMPARE(whole.failure(), status);
        HttpParser trickled;
        for (const char byte : bytes) {
            trickled.feed(QByteArray(1, byte));
        }
        QCOMPARE(trickled.state(), HttpParser::State::failed);
        QCOMPARE(trickled.failure(), status);
    }
    void aRequestIsReadHoweverItIsCut() {
        const QByteArray bytes =
            "POST /a?b=c HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\n\r\nabcGET / HTTP/1.0\r\n\r\n";
        for (qsizetype cut = 1; cut < bytes.size(); ++cut) {
            HttpParser parser;
            parser.feed(bytes.left(cut));
            if (parser.state() != HttpParser::State::complete) {
                parser.feed(bytes.mid(cut));
            } else {
                const HttpRequest early = parser.take();
                QCOMPARE(early.body, "abc");
                parser.feed(bytes.mid(cut));
                QCOMPARE(parser.take().method, "GET");
                continue;
            }
            QCOMPARE(parser.state(), HttpParser::State::complete);
            const HttpRequest first = parser.take();
            QCOMPARE(first.path, "/a");
            QCOMPARE(first.query, "b=c");
            QCOMPARE(first.body, "abc");
            QCOMPARE(parser.proceed(), HttpParser::State::complete);
            QVERIFY(!parser.take().keepAlive);
        }
    }
    void formsAreReadStrictly() {
        const auto items = parseForm("a=b+c&d=%C3%A9%2B&e");
        QVERIFY(items);
        QCOMPARE(formValue(*items, QStringLiteral("a")), QStringLiteral("b c"));
        QCOMPARE(formValue(*items, QStringLiteral("d")), QStringLiteral("é+"));
        QCOMPARE(formValue(*items, QStringLiteral("e")), QString());
        QVERIFY(!formValue(*items, QStringLiteral("x")));
        QVERIFY(!formValue(*parseForm("a=1&a=2"), QStringLiteral("a")));
        QVERIFY(!parseForm("a=%"));
        QVERIFY(!parseForm("a=%ff"));
        QVERIFY(!parseForm("a=\n"));
    }
    void twoRequestsOnOneConnectionAreAnsweredInOrder() {
        HttpServer server({}, echo(), never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const QByteArray answer = exchange(
            server,
            "GET /one HTTP/1.1\r\nHost: a\r\n\r\nGET /two HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
        QVERIFY(answer.indexOf("GET /one") > 0);
        QVERIFY(answer.indexOf("GET /two") > answer.indexOf("GET /one"));
        QVERIFY(answer.contains("Cache-Control: no-store"));
    }
    void aBodyThatIsTooLargeIsRefusedBeforeItIsSent() {
        HttpServer server({}, echo(), never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const QByteArray answer =
            exchange(server, "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 262145\r\n\r\n");
        QVERIFY(answer.startsWith("HTTP/1.1 413 "));
    }
    void aClientThatNeverEndsItsHeadersIsSentAway() {
        HttpLimits limits;
        limits.headerMilliseconds = 50;
        HttpServer server(limits, echo(), never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QVERIFY(exchange(server, "GET / HTTP/1.1\r\nHost:").startsWith("HTTP/1.1 408 "));
    }
    void aClientThatNeverEndsItsBodyIsSentAway() {
        HttpLimits limits;
        limits.bodyMilliseconds = 50;
        HttpServer server(limits, echo(), never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QVERIFY(exchange(server, "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 9\r\n\r\nabc")
                    .startsWith("HTTP/1.1 408 "));
    }
    void anIdleConnectionIsClosed() {
        HttpLimits limits;
        limits.idleMilliseconds = 50;
        HttpServer server(limits, echo(), never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QCOMPARE(exchange(server, {}), QByteArray());
    }
    void clientsThatHoldEveryConnectionDoNotShutOthersOut() {
        HttpLimits limits;
        limits.connections = 8;
        HttpServer server(limits, echo(), never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        std::vector<std::unique_ptr<QTcpSocket>> slow;
        for (int i = 0; i < 24; ++i) {
            slow.push_back(std::make_unique<QTcpSocket>());
            slow.back()->connectToHost(QHostAddress::LocalHost, server.serverPort());
            slow.back()->write("GET / HTTP/1.1\r\nHost:");
        }
        const auto open = [&] {
            return std::count_if(slow.begin(), slow.end(), [](const auto& socket) {
                return socket->state() == QAbstractSocket::ConnectedState;
            });
        };
        QTRY_COMPARE(open(), 8);
        QVERIFY(exchange(server, "GET /served HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n")
                    .contains("GET /served"));
        QTRY_COMPARE(open(), 7);
    }
    void aClientThatIsBeingAnsweredKeepsItsPlace() {
        QSemaphore begun;
        QSemaphore gate;
        HttpLimits limits;
        limits.connections = 2;
        HttpServer server(
            limits,
            [&](const HttpRequest&) {
                begun.release();
                gate.acquire();
                return HttpAnswer();
            },
            never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket first;
        QTcpSocket second;
        for (QTcpSocket* socket : {&first, &second}) {
            socket->connectToHost(QHostAddress::LocalHost, server.serverPort());
            socket->write("GET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
        }
        QTRY_COMPARE(begun.available(), 2);
        QCOMPARE(exchange(server, {}), QByteArray());
        gate.release(2);
        QTRY_VERIFY(first.bytesAvailable() > 0 && second.bytesAvailable() > 0);
    }
    void aClientThatTakesNoAnswersIsSentAway() {
        std::atomic<int> answered = 0;
        HttpLimits limits;
        limits.bodyMilliseconds = 200;
        HttpServer server(
            limits,
            [&](const HttpRequest&) {
                ++answered;
                HttpAnswer answer;
                answer.body = QByteArray(4 * 1024 * 1024, 'a');
                return answer;
            },
            never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket socket;
        socket.setReadBufferSize(1024);
        socket.connectToHost(QHostAddress::LocalHost, server.serverPort());
        socket.write(QByteArray("GET / HTTP/1.1\r\nHost: a\r\n\r\n").repeated(50));
        QTRY_COMPARE(server.openConnections(), 1);
        QTRY_COMPARE(server.openConnections(), 0);
        QVERIFY2(answered.load() < 10, qPrintable(QString::number(answered.load())));
    }
    void passwordsAndCorrectionsDoNotKeepOthersWaiting() {
        QSemaphore gate;
        HttpLimits limits;
        limits.waitingPasswords = 3;
        HttpServer server(
            limits,
            [&](const HttpRequest& request) {
                if (request.path != "/quick") {
                    gate.acquire();
                }
                return HttpAnswer();
            },
            [](const HttpRequest& request) {
                return request.path == "/password" ? HttpServer::Lane::password
                       : request.path == "/text"   ? HttpServer::Lane::correction
                                                   : HttpServer::Lane::quick;
            });
        QVERIFY(server.listen(QHostAddress::LocalHost));
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        for (int i = 0; i < 20; ++i) {
            sockets.push_back(std::make_unique<QTcpSocket>());
            sockets.back()->connectToHost(QHostAddress::LocalHost, server.serverPort());
            sockets.back()->write("GET " + QByteArray(i < 5 ? "/password" : "/text") +
                                  " HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
        }
        QTRY_COMPARE(server.waitingCorrections(), 15);
        QVERIFY(exchange(server, "GET /quick HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n")
                    .startsWith("HTTP/1.1 200 "));
        int refused = 0;
        for (int i = 0; i < 5; ++i) {
            refused += sockets[static_cast<size_t>(i)]->readAll().startsWith("HTTP/1.1 503 ") ? 1 : 0;
        }
        QCOMPARE(refused, 2);
        gate.release(20);
    }
    void correctionsThatWaitForAnotherServerDoNotWaitForEachOther() {
        QSemaphore gate;
        std::atomic<int> running = 0;
        HttpLimits limits;
        limits.parallelCorrections = 40;
        HttpServer server(
            limits,
            [&](const HttpRequest&) {
                ++running;
                gate.acquire();
                return HttpAnswer();
            },
            [](const HttpRequest&) { return HttpServer::Lane::correction; });
        QVERIFY(server.listen(QHostAddress::LocalHost));
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        for (int i = 0; i < 40; ++i) {
            sockets.push_back(std::make_unique<QTcpSocket>());
            sockets.back()->connectToHost(QHostAddress::LocalHost, server.serverPort());
            sockets.back()->write("GET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
        }
        [&running] { QTRY_COMPARE(running.load(), 40); }();
        gate.release(40);
    }
    void everyAnswerIsReportedOnce() {
        HttpServer server({}, echo(), never());
        QList<HttpServer::Answered> seen;
        server.observe([&](const HttpServer::Answered& answered) { seen.append(answered); });
        QVERIFY(server.listen(QHostAddress::LocalHost));
        exchange(server, "GET /one?secret HTTP/1.1\r\nHost: a\r\n\r\nnonsense\r\n\r\n");
        QCOMPARE(seen.size(), 2);
        QCOMPARE(seen.at(0).path, "/one");
        QCOMPARE(seen.at(0).status, 200);
        QCOMPARE(seen.at(1).path, QByteArray());
        QCOMPARE(seen.at(1).status, 400);
    }
    void aSlowHandlerIsGivenUpAndMayNotCommit() {
        QSemaphore gate;
        std::atomic<int> committed = 0;
        std::atomic<int> finished = 0;
        HttpLimits limits;
        limits.answerMilliseconds = 50;
        HttpServer server(
            limits,
            [&](const HttpRequest& request) {
                gate.acquire();
                committed += request.claim->claim() ? 1 : 0;
                ++finished;
                return HttpAnswer();
            },
            [](const HttpRequest&) { return HttpServer::Lane::correction; });
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const QByteArray answer = exchange(server, "GET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
        QVERIFY(answer.startsWith("HTTP/1.1 504 "));
        gate.release();
        QTRY_COMPARE(finished.load(), 1);
        QCOMPARE(committed.load(), 0);
    }
    void aClientThatLeavesIsNotCommittedFor() {
        QSemaphore begun;
        QSemaphore gate;
        std::atomic<int> committed = -1;
        HttpServer server(
            {},
            [&](const HttpRequest& request) {
                begun.release();
                gate.acquire();
                committed = request.claim->claim() ? 1 : 0;
                return HttpAnswer();
            },
            never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, server.serverPort());
        socket.write("GET / HTTP/1.1\r\nHost: a\r\n\r\n");
        QTRY_COMPARE(begun.available(), 1);
        QSignalSpy drained(&server, &HttpServer::drained);
        server.stop();
        socket.abort();
        QTRY_COMPARE(drained.count(), 1);
        gate.release();
        QTRY_COMPARE(committed.load(), 0);
    }
    void whatComesInTheMomentOfStoppingIsAnswered() {
        HttpServer server(
            {}, [](const HttpRequest&) { return HttpAnswer(); }, never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const QByteArray request = "GET / HTTP/1.1\r\nHost: a\r\n\r\n";
        QTcpSocket kept;
        kept.connectToHost(QHostAddress::LocalHost, server.serverPort());
        kept.write(request);
        QTRY_VERIFY(kept.bytesAvailable() > 0);
        QVERIFY(kept.readAll().contains("Connection: keep-alive"));
        QTcpSocket idle;
        idle.connectToHost(QHostAddress::LocalHost, server.serverPort());
        QTRY_COMPARE(server.openConnections(), 2);
        // The kernel has let it in, and the server has not seen it yet.
        QTcpSocket late;
        late.connectToHost(QHostAddress::LocalHost, server.serverPort());
        QVERIFY(late.waitForConnected());
        QSignalSpy drained(&server, &HttpServer::drained);
        server.stop();
        kept.write(request);
        late.write(request);
        QTRY_VERIFY(kept.bytesAvailable() > 0 && late.bytesAvailable() > 0);
        QVERIFY(kept.readAll().contains("Connection: close"));
        QVERIFY(late.readAll().contains("Connection: close"));
        QTRY_COMPARE(idle.state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(drained.count(), 1);
    }
    void stoppingAnswersWhatWasBegunAndClosesWhatIsIdle() {
        QSemaphore begun;
        QSemaphore gate;
        HttpServer server(
            {},
            [&](const HttpRequest&) {
                begun.release();
                gate.acquire();
                return HttpAnswer();
            },
            never());
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket busy;
        busy.connectToHost(QHostAddress::LocalHost, server.serverPort());
        busy.write("GET / HTTP/1.1\r\nHost: a\r\n\r\n");
        QTRY_COMPARE(begun.available(), 1);
        QSignalSpy drained(&server, &HttpServer::drained);
        server.stop();
        QVERIFY(!server.isListening());
        QCOMPARE(drained.count(), 0);
        gate.release();
        QTRY_COMPARE(drained.count(), 1);
        QVERIFY(busy.readAll().startsWith("HTTP/1.1 200 "));
    }
};

QTEST_GUILESS_MAIN(HttpServerTest)
#include "tst_http_server.moc"
