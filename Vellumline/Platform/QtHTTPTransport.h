#pragma once

#include "Vellumline/Platform/HTTPTransport.h"

#include <chrono>
#include <memory>

class QNetworkAccessManager;
class QTimer;

namespace vellumline {

/// HTTP/1.1 through Qt Network. Redirects are followed within the origin only (scheme, host and port), at
/// most five: a redirect that leads elsewhere is `other`, since the requests carry tokens in their headers
/// and the user's text or tokens in their bodies. Nothing is sent twice. Must outlive its requests.
class QtHTTPTransport : public HTTPTransport {
  public:
    static constexpr qint64 largestBody = qint64(8) * 1024 * 1024; ///< Bytes.
    static constexpr std::chrono::milliseconds usualIdleTime = std::chrono::seconds(30);

    /// Connections are closed when there was no request for so long: each keeps its last one in its buffers,
    /// with the token and the text.
    explicit QtHTTPTransport(std::chrono::milliseconds idleTime = usualIdleTime);
    ~QtHTTPTransport() override;

    QCoro::Task<tl::expected<HTTPResponse, TransportError>> send(HTTPRequest request) override;

  private:
    class Running;

    std::unique_ptr<QNetworkAccessManager> manager_;
    std::unique_ptr<QTimer> idle_;
    int running_ = 0;
};

} // namespace vellumline
