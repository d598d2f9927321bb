#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QList>
#include <QString>
#include <QUrl>
#include <chrono>
#include <tl/expected.hpp>
#include <utility>

namespace vellumline {

struct HTTPRequest {
    QUrl url;
    QByteArray method = "GET";
    QList<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    std::chrono::milliseconds timeout = std::chrono::seconds(60); ///< Of the whole exchange.
};

struct HTTPResponse {
    int status = 0; ///< Any status, 4xx and 5xx included: they are answers.
    QByteArray body;
};

/// Why no HTTP response came, by what happened; adapters classify, the caller decides what it means.
enum class TransportError {
    timedOut,
    notConnectedToInternet,
    networkConnectionLost,
    cannotFindHost,
    cannotConnectToHost,
    dnsLookupFailed,
    dataNotAllowed,
    internationalRoamingOff,
    other,  ///< anything else of the transfer: TLS refused, a malformed answer, an unusable redirect, too
            ///< large a body
    notHTTP ///< a response came that is not HTTP
};

/// The one shared HTTP session: no cookies, no cache, TLS verified, no retries; a redirect to another origin
/// never carries the Authorization header. Main thread; several requests may run at once.
class HTTPTransport {
  public:
    virtual ~HTTPTransport() = default;
    virtual QCoro::Task<tl::expected<HTTPResponse, TransportError>> send(HTTPRequest request) = 0;
};

} // namespace vellumline
