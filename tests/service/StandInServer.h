#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QMutex>
#include <QSemaphore>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>
#include <atomic>
#include <functional>
#include <thread>

namespace vellumline::test {

/// Stands in for an engine's server: real sockets on the loopback address, on a thread of its own, one
/// connection after the other, one request each.
class StandInServer {
  public:
    struct Request {
        QByteArray line; ///< "POST /path HTTP/1.1"
        QByteArray head; ///< The headers as they came, in lower case.
        QByteArray body;
    };
    /// Writes what it likes to the socket.
    using Behaviour = std::function<void(QTcpSocket&, const Request&)>;

    explicit StandInServer(Behaviour behaviour, QSslConfiguration encryption = QSslConfiguration())
        : behaviour_(std::move(behaviour)), encryption_(std::move(encryption)) {
        QSemaphore ready;
        thread_ = std::thread([this, &ready] { run(ready); });
        ready.acquire();
    }
    ~StandInServer() {
        stopping_ = true;
        thread_.join();
    }
    StandInServer(const StandInServer&) = delete;
    StandInServer& operator=(const StandInServer&) = delete;

    quint16 port() const { return port_; }
    QString address(const QString& scheme = QStringLiteral("http")) const {
        return QStringLiteral("%1://127.0.0.1:%2").arg(scheme).arg(port_);
    }
    QList<Request> requests() const {
        const QMutexLocker lock(&mutex_);
        return requests_;
    }
    bool stopping() const { return stopping_; }

    static void answer(QTcpSocket& socket, int status, const QByteArray& body,
                       const QByteArray& headers = {}) {
        socket.write("HTTP/1.1 " + QByteArray::number(status) +
                     " Whatever\r\nContent-Type: application/json\r\n" + headers + "Content-Length: " +
                     QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    }
    static Behaviour always(int status, const QByteArray& body, const QByteArray& headers = {}) {
        return [=](QTcpSocket& socket, const Request&) { answer(socket, status, body, headers); };
    }
    /// Says nothing until the other side has gone or the test is over.
    void hold(QTcpSocket& socket) const {
        while (!stopping_ && socket.state() == QAbstractSocket::ConnectedState) {
            socket.waitForReadyRead(20);
        }
    }

  private:
    class Listener : public QTcpServer {
      public:
        void incomingConnection(qintptr handle) override {
            auto* socket = new QSslSocket(this);
            socket->setSocketDescriptor(handle);
            addPendingConnection(socket);
        }
    };

    void run(QSemaphore& ready) {
        Listener listener;
        listener.listen(QHostAddress::LocalHost);
        port_ = listener.serverPort();
        ready.release();
        while (!stopping_) {
            if (listener.waitForNewConnection(20)) {
                while (auto* socket = static_cast<QSslSocket*>(listener.nextPendingConnection())) {
                    serve(*socket);
                    delete socket;
                }
            }
        }
    }
    void serve(QSslSocket& socket) {
        if (!encryption_.isNull()) {
            socket.setSslConfiguration(encryption_);
            socket.startServerEncryption();
            if (!socket.waitForEncrypted(5'000)) {
                return;
            }
        }
        QByteArray bytes;
        QElapsedTimer timer;
        timer.start();
        while (!stopping_ && timer.elapsed() < 10'000 && socket.state() == QAbstractSocket::ConnectedState) {
            const qsizetype end = bytes.indexOf("\r\n\r\n");
            if (end >= 0) {
                const QByteArray head = bytes.left(end + 2).toLower();
                const qsizetype at = head.indexOf("\r\ncontent-length: ") + 18;
                const qsizetype length = head.mid(at, head.indexOf('\r', at) - at).toLongLong();
                if (bytes.size() >= end + 4 + length) {
                    const Request request{bytes.left(bytes.indexOf('\r')), head, bytes.mid(end + 4, length)};
                    {
                        const QMutexLocker lock(&mutex_);
                        requests_.append(request);
                    }
                    behaviour_(socket, request);
                    while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(2'000)) {
                    }
                    socket.disconnectFromHost();
                    return;
                }
            }
            socket.waitForReadyRead(20);
            bytes += socket.readAll();
        }
    }

    Behaviour behaviour_;
    QSslConfiguration encryption_;
    std::atomic<bool> stopping_ = false;
    std::atomic<quint16> port_ = 0;
    mutable QMutex mutex_;
    QList<Request> requests_;
    std::thread thread_;
};

} // namespace vellumline::test
