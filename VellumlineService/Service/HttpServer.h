#pragma once

#include "VellumlineService/Service/HttpMessage.h"

#include <QTcpServer>
#include <QThreadPool>
#include <array>
#include <atomic>
#include <functional>

namespace vellumline {

/// A small HTTP/1.1 server with a bound on every size and every wait. The sockets live on the thread that
/// owns the server; handlers run on worker threads.
///
/// It exists because neither packaged choice has all the bounds: cpp-httplib 0.11.4 times each read but not a
/// whole request (one byte every few seconds holds a thread for ever) and does not bound the number of
/// headers; QHttpServer 6.4 has no limit on body, header or time.
class HttpServer : public QTcpServer {
    Q_OBJECT
  public:
    using Handler = std::function<HttpAnswer(const HttpRequest&)>;
    /// Which workers answer a request. Corrections and passwords have their own, so that neither can keep the
    /// other, or sign-in and health, waiting.
    enum class Lane { quick, correction, password };
    using LaneOf = std::function<Lane(const HttpRequest&)>;
    /// Told about each answer, on the server's thread; a request that could not be read has no method.
    struct Answered {
        QByteArray method;
        QByteArray path;
        int status = 0;
        qint64 microseconds = 0; ///< From the whole request to its answer.
    };
    using Observer = std::function<void(const Answered&)>;

    HttpServer(HttpLimits limits, Handler handler, LaneOf laneOf, QObject* parent = nullptr);
    ~HttpServer() override;

    void observe(Observer observer) { observer_ = std::move(observer); }
    /// For any thread.
    int openConnections() const { return connections_; }
    int waitingCorrections() const { return lanes_[1].queued; }

    /// Closes the listening socket and idle connections; `drained` follows once every begun request is
    /// answered.
    void stop();

  Q_SIGNALS:
    void drained();

  private:
    friend class HttpConnection;
    void accept();
    void connectionEnded();
    bool makeRoom();

    struct Workers {
        QThreadPool pool;
        std::atomic<int> queued = 0;
        int limit = 0;
    };

    HttpLimits limits_;
    Handler handler_;
    LaneOf laneOf_;
    Observer observer_;
    std::array<Workers, 3> lanes_; ///< By `Lane`.
    std::atomic<int> connections_ = 0;
    bool stopping_ = false;
};

} // namespace vellumline
