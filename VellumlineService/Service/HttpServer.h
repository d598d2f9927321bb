#pragma once

#include "VellumlineService/Service/HttpMessage.h"

#include <QTcpServer>
#include <QThreadPool>
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
    /// Whether a request may take long; such requests have workers of their own, so that they cannot keep
    /// sign-in and health waiting.
    using SlowTest = std::function<bool(const HttpRequest&)>;

    HttpServer(HttpLimits limits, Handler handler, SlowTest isSlow, QObject* parent = nullptr);
    ~HttpServer() override;

    /// Closes the listening socket and idle connections; `drained` follows once every begun request is
    /// answered.
    void stop();

  Q_SIGNALS:
    void drained();

  private:
    friend class HttpConnection;
    void accept();
    void connectionEnded();
    QThreadPool& poolFor(const HttpRequest& request);

    HttpLimits limits_;
    Handler handler_;
    SlowTest isSlow_;
    QThreadPool quickPool_;
    QThreadPool slowPool_;
    std::shared_ptr<std::atomic<int>> slowQueued_ = std::make_shared<std::atomic<int>>(0);
    int connections_ = 0;
    bool stopping_ = false;
};

} // namespace vellumline
