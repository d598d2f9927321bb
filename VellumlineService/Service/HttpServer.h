#pragma once

#include "VellumlineService/Service/HttpMessage.h"
#include "VellumlineService/Service/WorkerPool.h"

#include <QTcpServer>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace vellumline {

class HttpConnection;

/// A small HTTP/1.1 server with a bound on every size and every wait. The sockets live on the thread that
/// owns the server; handlers run on worker threads.
///
/// Between the two go only a request, with its claim, and its answer, each through a standard lock. Qt merely
/// wakes the server's thread up: ThreadSanitizer does not see what Qt's own locks put in order.
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
    int waitingCorrections() const { return lanes_[1].load(); }

    /// Closes the listening socket and idle connections; `drained` follows once every begun request is
    /// answered.
    void stop();

  Q_SIGNALS:
    void drained();
    /// From any thread to the server's own: there are answers to be taken.
    void answersWait(QPrivateSignal);

  private:
    friend class HttpConnection;
    using Claim = std::shared_ptr<RequestClaim>;
    struct Made {
        Claim claim;
        HttpAnswer answer;
    };

    void accept();
    void connectionEnded();
    bool makeRoom();

    bool post(HttpRequest request, Lane lane);
    void handBack(Made made);
    void takeAnswers();

    HttpLimits limits_;
    Handler handler_;
    LaneOf laneOf_;
    Observer observer_;
    std::atomic<int> connections_ = 0;
    bool stopping_ = false;
    /// Who waits for an answer, by the claim on it.
    std::unordered_map<Claim, HttpConnection*> unanswered_;
    std::mutex madeMutex_;
    std::vector<Made> made_;          ///< Of `madeMutex_`.
    std::array<WorkerPool, 3> lanes_; ///< By `Lane`. They end first.
};

} // namespace vellumline
