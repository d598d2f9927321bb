#pragma once

#include "Vellumline/Platform/HTTPTransport.h"

#include <memory>

class QNetworkAccessManager;

namespace vellumline {

/// HTTP/1.1 through Qt Network. Redirects are followed within the origin only (scheme, host and port), at
/// most five: a redirect that leads elsewhere is `other`, since the requests carry tokens in their headers
/// and the user's text or tokens in their bodies. Nothing is sent twice. Must outlive its requests.
class QtHTTPTransport : public HTTPTransport {
  public:
    static constexpr qint64 largestBody = qint64(8) * 1024 * 1024; ///< Bytes.

    QtHTTPTransport();
    ~QtHTTPTransport() override;

    QCoro::Task<tl::expected<HTTPResponse, TransportError>> send(HTTPRequest request) override;

  private:
    std::unique_ptr<QNetworkAccessManager> manager_;
};

} // namespace vellumline
