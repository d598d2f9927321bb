#include "Vellumline/API.h"
#include "Vellumline/AuthClient.h"
#include "Vellumline/Platform/QtHTTPTransport.h"
#include "fakes/SignedInService.h"
#include "hardening/MemorySearch.h"

#include <QCoroTask>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <cstdlib>
#include <cstring>

using namespace vellumline;
using vellumline::test::Canary;
using namespace std::chrono_literals;

namespace {

constexpr auto shortIdleTime = 50ms;

QByteArray tokensReply(const Canary& access, const Canary& refresh) {
    return "{\"access_token\":\"" + access.bytes() + "\",\"refresh_token\":\"" + refresh.bytes() +
           "\",\"user_id\":\"4182\"}";
}

/// Answers each request with the same body; keeps no byte of what it is sent.
class ForgetfulServer : public QTcpServer {
  public:
    explicit ForgetfulServer(std::function<QByteArray()> body) : body_(std::move(body)) {
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                if (!socket->readAll().contains("\r\n\r\n"))
                    return;
                const QByteArray body = body_();
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) +
                              "\r\n\r\n" + body);
            });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        });
        if (!listen(QHostAddress::LocalHost))
            qFatal("no port to listen on");
    }
    QString origin() const { return QStringLiteral("http://127.0.0.1:%1").arg(serverPort()); }

  private:
    std::function<QByteArray()> body_;
};

} // namespace

/// What was secret is not in the memory of the process any more once nobody has it.
class Clearing : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() {
#ifndef VELLUMLINE_CLEARS_MEMORY
        QSKIP("this build does not clear memory: a sanitizer has its own");
#endif
    }

    void theSearchFindsWhatIsThere() {
        const Canary canary(1);
        {
            const QString text = canary.text();
            const QStringList places = canary.places();
            QVERIFY2(places.join(u' ').contains(QStringLiteral("UTF-16")), qPrintable(places.join(u',')));
        }
        {
            const QByteArray bytes = canary.bytes();
            QVERIFY(canary.places().join(u' ').contains(QStringLiteral("as bytes")));
        }
        QCOMPARE(canary.places(), QStringList());
    }

    void textsOfEverySizeAreCleared_data() {
        QTest::addColumn<int>("copies");
        for (const int copies : {1, 3, 20, 200, 3000, 60000})
            QTest::addRow("%d bytes", copies * 40) << copies;
    }
    void textsOfEverySizeAreCleared() {
        QFETCH(int, copies);
        const Canary canary(2);
        {
            QByteArray grown;
            for (int i = 0; i < copies; ++i)
                grown.append(canary.bytes());
            QString converted = QString::fromLatin1(grown);
            converted.squeeze();
            grown.truncate(grown.size() / 3);
            grown.squeeze();
        }
        QCOMPARE(canary.places(), QStringList());
    }

    void growingAndShrinkingKeepsTheContents() {
        for (std::size_t from = 1; from < 5000; from = from * 3 / 2 + 1) {
            for (std::size_t to = 1; to < 5000; to = to * 3 / 2 + 1) {
                auto* block = static_cast<unsigned char*>(std::malloc(from));
                for (std::size_t i = 0; i < from; ++i)
                    block[i] = static_cast<unsigned char>(i * 7);
                block = static_cast<unsigned char*>(std::realloc(block, to));
                for (std::size_t i = 0; i < std::min(from, to); ++i)
                    QCOMPARE(block[i], static_cast<unsigned char>(i * 7));
                std::free(block);
            }
        }
        void* none = std::realloc(nullptr, 10);
        QVERIFY(none != nullptr);
        std::free(none);
        std::free(nullptr);
    }

    void aSessionLeavesNothingAfterSignOut() {
        const Canary access(3), refresh(4);
        {
            FakeKeychain keychain;
            TokenStore store(keychain, QStringLiteral("/nonexistent/session.json"));
            QCoro::waitFor(store.setSession(AuthSession::fromHandoff(tokensReply(access, refresh))));
            QVERIFY(!access.places().isEmpty());
            QVERIFY(!refresh.places().isEmpty());
            QCoro::waitFor(store.setSession(std::nullopt));
            QCOMPARE(access.places(), QStringList());
            QCOMPARE(refresh.places(), QStringList());
        }
    }

    void aTokenThatWasExchangedIsGone() {
        const Canary access(5), refresh(6), newAccess(7), newRefresh(8);
        ForgetfulServer server([&] { return tokensReply(newAccess, newRefresh); });
        FakeKeychain keychain;
        TokenStore store(keychain, QStringLiteral("/nonexistent/session.json"));
        QCoro::waitFor(store.setSession(AuthSession::fromHandoff(tokensReply(access, refresh))));
        QtHTTPTransport transport(shortIdleTime);
        const auto config =
            AuthConfig::resolve(server.origin(), server.origin() + QStringLiteral("/auth"), server.origin());
        SessionRefresher refresher(transport, store, *config);
        const auto outcome = QCoro::waitFor(refresher.refresh(access.text()));
        QCOMPARE(outcome.kind, SessionRefresher::Outcome::Kind::refreshed);
        QTRY_VERIFY(!store.isWriting());
        QTRY_COMPARE(access.places(), QStringList());
        QTRY_COMPARE(refresh.places(), QStringList());
        QVERIFY(!newRefresh.places().isEmpty());
    }

    void whatWasSentIsGoneOnceTheConnectionWasIdle() {
        const Canary token(9), text(10);
        ForgetfulServer server([] { return QByteArrayLiteral("{}"); });
        QtHTTPTransport transport(shortIdleTime);
        {
            HTTPRequest request;
            request.url = QUrl(server.origin());
            request.method = "POST";
            request.headers.append({QByteArrayLiteral("Authorization"), "Bearer " + token.bytes()});
            request.body = "{\"text\":\"" + text.bytes() + "\"}";
            const auto answer = QCoro::waitFor(transport.send(std::move(request)));
            QVERIFY(answer.has_value());
        }
        QTRY_COMPARE(token.places(), QStringList());
        QTRY_COMPARE(text.places(), QStringList());
    }
};

QTEST_GUILESS_MAIN(Clearing)
#include "tst_clearing.moc"
