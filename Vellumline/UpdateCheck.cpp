#include "Vellumline/UpdateCheck.h"

#include "Vellumline/API.h"
#include "Vellumline/AuthConfig.h"

namespace vellumline {

namespace {

using Kind = UpdateResult::Kind;

UpdateResult ended(Kind kind, int status = 0) {
    return {kind, {}, status};
}

UpdateResult failed(APIError error) {
    switch (error) {
    case APIError::offline:
        return ended(Kind::offline);
    case APIError::timedOut:
        return ended(Kind::timedOut);
    case APIError::failed:
    case APIError::signedOut:
        break;
    }
    return ended(Kind::refused);
}

HTTPRequest requestFor(const QUrl& url) {
    HTTPRequest request;
    request.url = url;
    request.timeout = UpdateCheck::timeout;
    return request;
}

} // namespace

QCoro::Task<UpdateResult> UpdateCheck::run(HTTPTransport& transport, UpdateFeed feed,
                                           SoftwareVersion current) {
    HTTPRequest documentRequest = requestFor(feed.url);
    const APIResult<HTTPResponse> document = co_await API::perform(transport, std::move(documentRequest));
    if (!document)
        co_return failed(document.error());
    if (document->status != 200)
        co_return ended(Kind::refused, document->status);
    if (document->body.size() > Appcast::largestDocument)
        co_return ended(Kind::invalid);

    HTTPRequest signatureRequest = requestFor(feed.signatureURL());
    const APIResult<HTTPResponse> signature = co_await API::perform(transport, std::move(signatureRequest));
    if (!signature)
        co_return failed(signature.error());
    // A host that has the feed but not its signature says so with a 4xx; with a 5xx it cannot tell now.
    if (signature->status >= 500)
        co_return ended(Kind::refused, signature->status);
    if (signature->status != 200 || !feed.key.verifies(document->body, signature->body))
        co_return ended(Kind::unverified);

    const std::optional<Appcast> appcast = Appcast::parse(document->body, AuthConfig::isAcceptable);
    if (!appcast)
        co_return ended(Kind::invalid);
    const AppcastItem* newer = appcast->newestAfter(current);
    if (newer == nullptr)
        co_return ended(Kind::newest);
    co_return UpdateResult{Kind::newVersion, *newer, 0};
}

} // namespace vellumline
