#pragma once

#include "Vellumline/APIError.h"
#include "Vellumline/Platform/Clock.h"
#include "Vellumline/Platform/HTTPTransport.h"
#include "Vellumline/SessionRefresher.h"
#include "Vellumline/TokenStore.h"

#include <QCoroTask>
#include <functional>

namespace vellumline {

/// The single door to the two remote services. Main thread only; calls suspend, and whatever they use, this
/// included, must outlive them.
class API {
  public:
    API(HTTPTransport& transport, TokenStore& store, SessionRefresher& refresher, Clock& clock);

    /// Sends a request once and returns the answer whatever its status; transport failures become an
    /// APIError.
    static QCoro::Task<APIResult<HTTPResponse>> perform(HTTPTransport& transport, HTTPRequest request);
    /// Whether the answer is the service's "account closed" rejection.
    static bool accountClosed(const HTTPResponse& response);

    /// Makes the request for an access token; called once per attempt.
    using RequestBuilder = std::function<HTTPRequest(const QString& accessToken)>;
    /// The only way to make an authorised call: attaches the token, renews it before expiry and after a 401,
    /// retries once.
    QCoro::Task<APIResult<HTTPResponse>> send(RequestBuilder makeRequest);

  private:
    HTTPTransport& transport_;
    TokenStore& store_;
    SessionRefresher& refresher_;
    Clock& clock_;
};

} // namespace vellumline
