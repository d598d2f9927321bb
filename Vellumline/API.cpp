#include "Vellumline/API.h"

#include "VellumlineCore/AuthSession.h"
#include "VellumlineCore/Json.h"

namespace vellumline {

namespace {

APIError classify(TransportError error) {
    switch (error) {
    case TransportError::timedOut:
        return APIError::timedOut;
    case TransportError::notConnectedToInternet:
    case TransportError::networkConnectionLost:
    case TransportError::cannotFindHost:
    case TransportError::cannotConnectToHost:
    case TransportError::dnsLookupFailed:
    case TransportError::dataNotAllowed:
    case TransportError::internationalRoamingOff:
        return APIError::offline;
    case TransportError::other:
    case TransportError::notHTTP:
        break;
    }
    return APIError::failed;
}

} // namespace

API::API(HTTPTransport& transport, TokenStore& store, SessionRefresher& refresher, Clock& clock)
    : transport_(transport), store_(store), refresher_(refresher), clock_(clock) {}

QCoro::Task<APIResult<HTTPResponse>> API::perform(HTTPTransport& transport, HTTPRequest request) {
    tl::expected<HTTPResponse, TransportError> answer = co_await transport.send(std::move(request));
    if (!answer)
        co_return tl::unexpected(classify(answer.error()));
    co_return std::move(*answer);
}

bool API::accountClosed(const HTTPResponse& response) {
    if (response.status != 401)
        return false;
    JsonReader reader(response.body);
    return reader.optionalString(QStringLiteral("error")) == QLatin1String("account closed");
}

QCoro::Task<APIResult<HTTPResponse>> API::send(RequestBuilder makeRequest) {
    using Kind = SessionRefresher::Outcome::Kind;

    const std::optional<AuthSession> session = co_await store_.session();
    if (!session)
        co_return tl::unexpected(APIError::signedOut);

    QString token = session->accessToken;
    if (session->accessTokenNeedsRefresh(clock_.now())) {
        const SessionRefresher::Outcome early = co_await refresher_.refresh(token);
        if (early.kind == Kind::signedOut)
            co_return tl::unexpected(APIError::signedOut);
        if (early.kind == Kind::refreshed)
            token = early.accessToken;
    }

    HTTPRequest request = makeRequest(token);
    APIResult<HTTPResponse> answer = co_await perform(transport_, std::move(request));
    if (!answer || accountClosed(*answer) || answer->status != 401)
        co_return std::move(answer);

    const SessionRefresher::Outcome renewal = co_await refresher_.refresh(token);
    if (renewal.kind == Kind::signedOut)
        co_return tl::unexpected(APIError::signedOut);
    if (renewal.kind == Kind::unreachable)
        co_return tl::unexpected(APIError::offline);

    HTTPRequest again = makeRequest(renewal.accessToken);
    APIResult<HTTPResponse> retried = co_await perform(transport_, std::move(again));
    if (retried && retried->status == 401 && !accountClosed(*retried)) {
        // Forgotten at once; nobody waits until the secret store has forgotten it too.
        store_.setSession(std::nullopt);
        co_return tl::unexpected(APIError::signedOut);
    }
    co_return std::move(retried);
}

} // namespace vellumline
