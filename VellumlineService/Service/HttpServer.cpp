#include "VellumlineService/Service/HttpServer.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTimer>

namespace vellumline {

namespace {

HttpAnswer errorAnswer(int status, const QString& text) {
    HttpAnswer answer;
    answer.status = status;
    answer.body = QJsonDocument(QJsonObject{{QStringLiteral("error"), text}}).toJson(QJsonDocument::Compact);
    return answer;
}

} // namespace

/// One client connection: one request at a time, in order.
class HttpConnection : public QObject {
    Q_OBJECT
  public:
    HttpConnection(QTcpSocket* socket, HttpServer& server)
        : QObject(&server), socket_(socket), server_(server), parser_(server.limits_) {
        socket_->setParent(this);
        socket_->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        // A client that sends ahead is held back by TCP instead of by our memory.
        socket_->setReadBufferSize(64 * 1024);
        timer_.setSingleShot(true);
        connect(&timer_, &QTimer::timeout, this, &HttpConnection::tooLate);
        connect(socket_, &QTcpSocket::readyRead, this, &HttpConnection::read);
        connect(socket_, &QTcpSocket::disconnected, this, &HttpConnection::end);
        connect(socket_, &QTcpSocket::bytesWritten, this, &HttpConnection::written);
        waiting_.start();
        timer_.start(server_.limits_.idleMilliseconds);
        read();
    }

    /// Called when the server stops: nothing begun is cut off, and what is idle not waited for. It is closed
    /// a moment later: a proxy that uses it just then would have sent a request into a closed connection, and
    /// may not send it again. Behind nginx under load, with a machine that was busy ten times over, a tenth
    /// of a second still lost one request in sixteen stops.
    void stop() {
        if (!busy_ && parser_.state() == HttpParser::State::idle) {
            timer_.start(server_.limits_.partingMilliseconds);
        }
    }

    /// For how long this connection has waited for its client; nothing while the client waits for us.
    std::optional<qint64> idleFor() const {
        return busy_ || ended_ ? std::nullopt : std::optional(waiting_.elapsed());
    }

    /// Called when a handler has made the answer to the request that this connection waits for.
    void answered(const HttpAnswer& made) {
        // A handler that never claimed (it had nothing to commit) is still in time here.
        claim_->claim();
        if (!claim_->givenUp()) {
            answer(made);
        }
    }

    /// Gives the place up for another client.
    void evict() {
        socket_->abort();
        end();
    }

  private:
    QByteArray peer() const {
        // A socket for both protocols calls 192.0.2.1 ::ffff:192.0.2.1, which no setting does.
        bool isIpv4 = false;
        const quint32 ipv4 = socket_->peerAddress().toIPv4Address(&isIpv4);
        return (isIpv4 ? QHostAddress(ipv4) : socket_->peerAddress()).toString().toLatin1();
    }

    void read() {
        if (busy_ || closing_ || unsent_) {
            return;
        }
        const HttpParser::State before = parser_.state();
        advance(before, parser_.feed(socket_->readAll()));
    }

    void advance(HttpParser::State before, HttpParser::State now) {
        if (now == HttpParser::State::failed) {
            refuse(parser_.failure());
            return;
        }
        if (now == HttpParser::State::complete) {
            dispatch(parser_.take());
            return;
        }
        if (before != now) {
            if (now == HttpParser::State::inHeaders) {
                timer_.start(server_.limits_.headerMilliseconds);
            } else if (now == HttpParser::State::inBody) {
                timer_.start(server_.limits_.bodyMilliseconds);
                if (parser_.current().expectsContinue) {
                    socket_->write("HTTP/1.1 100 Continue\r\n\r\n");
                }
            }
        }
    }

    void dispatch(HttpRequest request) {
        busy_ = true;
        keepAlive_ = request.keepAlive;
        head_ = request.method == "HEAD";
        claim_ = request.claim;
        answered_ = {request.method, request.path, 0, 0};
        took_.start();
        request.peer = peer();
        const HttpServer::Lane lane = server_.laneOf_(request);
        if (!server_.post(std::move(request), lane)) {
            claim_->giveUp();
            answer(errorAnswer(503, lane == HttpServer::Lane::correction
                                        ? QStringLiteral("too many corrections are waiting")
                                        : QStringLiteral("too many requests are waiting")));
            return;
        }
        server_.unanswered_.emplace(claim_, this);
        timer_.start(server_.limits_.answerMilliseconds);
    }

    void answer(const HttpAnswer& made) {
        busy_ = false;
        server_.unanswered_.erase(claim_);
        claim_.reset();
        waiting_.start();
        if (server_.observer_) {
            answered_.status = made.status;
            answered_.microseconds = took_.isValid() ? took_.nsecsElapsed() / 1000 : 0;
            server_.observer_(answered_);
        }
        const bool keep = keepAlive_ && !server_.stopping_;
        QByteArray out = "HTTP/1.1 " + QByteArray::number(made.status) + ' ' + httpReason(made.status) +
                         "\r\nContent-Length: " + QByteArray::number(made.body.size()) +
                         "\r\nContent-Type: " + made.contentType +
                         "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff"
                         "\r\nCross-Origin-Resource-Policy: same-origin\r\nConnection: " +
                         (keep ? "keep-alive" : "close") + "\r\n";
        for (const auto& [name, value] : made.headers) {
            out += name + ": " + value + "\r\n";
        }
        out += "\r\n";
        if (!head_) {
            out += made.body;
        }
        socket_->write(out);
        if (!keep) {
            closing_ = true;
            // A client that does not take its answer is not waited for longer than one that does not send.
            timer_.start(server_.limits_.bodyMilliseconds);
            socket_->disconnectFromHost();
            return;
        }
        if (socket_->bytesToWrite() > server_.limits_.unsentBytes) {
            unsent_ = true;
            timer_.start(server_.limits_.bodyMilliseconds);
            return;
        }
        proceed();
    }

    void proceed() {
        timer_.start(server_.limits_.idleMilliseconds);
        const HttpParser::State before = parser_.state();
        advance(before, parser_.proceed());
        if (!busy_ && !closing_ && !unsent_ && socket_->bytesAvailable() > 0) {
            read();
        }
    }

    void written() {
        if (unsent_ && socket_->bytesToWrite() <= server_.limits_.unsentBytes) {
            unsent_ = false;
            proceed();
        }
    }

    void refuse(int status) {
        keepAlive_ = false;
        head_ = false;
        answered_ = {};
        took_.invalidate();
        answer(errorAnswer(status, QString::fromLatin1(httpReason(status)).toLower()));
    }

    void tooLate() {
        if (closing_ || unsent_) {
            evict();
        } else if (busy_) {
            if (claim_->giveUp()) {
                answer(errorAnswer(504, QStringLiteral("the correction took too long")));
            } else {
                // The handler is committing right now; its answer is on its way.
                timer_.start(server_.limits_.answerMilliseconds);
            }
        } else if (parser_.state() == HttpParser::State::idle) {
            // What arrived by now, and was not read yet, is no longer idle.
            if (socket_->waitForReadyRead(0)) {
                if (!busy_ && !closing_ && parser_.state() == HttpParser::State::idle) {
                    timer_.start(server_.limits_.partingMilliseconds);
                }
                return;
            }
            closing_ = true;
            timer_.start(server_.limits_.bodyMilliseconds);
            socket_->disconnectFromHost();
        } else {
            refuse(408);
        }
    }

    void end() {
        if (ended_) {
            return;
        }
        ended_ = true;
        timer_.stop();
        if (claim_) {
            claim_->giveUp();
            server_.unanswered_.erase(claim_);
        }
        server_.connectionEnded();
        deleteLater();
    }

    QTcpSocket* socket_;
    HttpServer& server_;
    HttpParser parser_;
    QTimer timer_;
    QElapsedTimer waiting_; ///< Since the client was last answered, or came.
    QElapsedTimer took_;
    HttpServer::Answered answered_;
    std::shared_ptr<RequestClaim> claim_;
    bool unsent_ = false;
    bool busy_ = false;
    bool keepAlive_ = true;
    bool head_ = false;
    bool closing_ = false;
    bool ended_ = false;
};

HttpServer::HttpServer(HttpLimits limits, Handler handler, LaneOf laneOf, QObject* parent)
    : QTcpServer(parent), limits_(limits), handler_(std::move(handler)),
      laneOf_(std::move(laneOf)), lanes_{{{2, 0},
                                          {limits.parallelCorrections, limits.waitingCorrections},
                                          {1, limits.waitingPasswords}}} {
    connect(this, &QTcpServer::newConnection, this, &HttpServer::accept);
    connect(this, &HttpServer::answersWait, this, &HttpServer::takeAnswers, Qt::QueuedConnection);
}

// The workers, the last member, end first; answers that nobody takes any more go with the server.
HttpServer::~HttpServer() = default;

bool HttpServer::post(HttpRequest request, Lane lane) {
    const auto made = std::make_shared<Made>();
    made->claim = request.claim;
    return lanes_[static_cast<size_t>(lane)].post(
        [this, made, request = std::move(request)] {
            if (!made->claim->givenUp()) {
                made->answer = handler_(request);
            }
        },
        [this, made] { handBack(std::move(*made)); });
}

void HttpServer::handBack(Made made) {
    bool first = false;
    {
        const std::scoped_lock lock(madeMutex_);
        first = made_.empty();
        made_.push_back(std::move(made));
    }
    // Whoever takes the first takes all.
    if (first) {
        Q_EMIT answersWait({});
    }
}

void HttpServer::takeAnswers() {
    std::vector<Made> taken;
    {
        const std::scoped_lock lock(madeMutex_);
        taken.swap(made_);
    }
    for (const Made& made : taken) {
        const auto waits = unanswered_.find(made.claim);
        if (waits != unanswered_.end()) {
            waits->second->answered(made.answer);
        }
    }
}

bool HttpServer::makeRoom() {
    if (connections_ < limits_.connections) {
        return true;
    }
    // Whoever has kept us waiting longest goes: clients that hold connections open, or send a byte now and
    // then, cannot shut others out.
    HttpConnection* longest = nullptr;
    qint64 most = -1;
    const QList<HttpConnection*> open = findChildren<HttpConnection*>(Qt::FindDirectChildrenOnly);
    for (HttpConnection* connection : open) {
        const auto idle = connection->idleFor();
        if (idle && *idle > most) {
            most = *idle;
            longest = connection;
        }
    }
    if (longest) {
        longest->evict();
    }
    return longest != nullptr;
}

void HttpServer::accept() {
    while (QTcpSocket* socket = nextPendingConnection()) {
        if (stopping_ || !makeRoom()) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        ++connections_;
        new HttpConnection(socket, *this);
    }
}

void HttpServer::connectionEnded() {
    --connections_;
    if (stopping_ && connections_ == 0) {
        Q_EMIT drained();
    }
}

void HttpServer::stop() {
    // Those that the kernel has accepted already, for as many as there is room.
    for (int more = maxPendingConnections(); more > 0 && waitForNewConnection(0); --more) {
    }
    stopping_ = true;
    close();
    const QList<HttpConnection*> open = findChildren<HttpConnection*>(Qt::FindDirectChildrenOnly);
    for (HttpConnection* connection : open) {
        connection->stop();
    }
    if (connections_ == 0) {
        QMetaObject::invokeMethod(this, &HttpServer::drained, Qt::QueuedConnection);
    }
}

} // namespace vellumline

#include "HttpServer.moc"
