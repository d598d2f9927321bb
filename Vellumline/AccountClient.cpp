#include "Vellumline/AccountClient.h"

namespace vellumline {

AccountClient::AccountClient(API& api, AuthConfig config) : api_(api), config_(std::move(config)) {}

QCoro::Task<APIResult<AccountInfo>> AccountClient::load() {
    const QUrl url = AuthConfig::appending(config_.backendURL, QStringLiteral("v1/account"));
    API::RequestBuilder makeRequest = [url](const QString& accessToken) {
        HTTPRequest request;
        request.url = url;
        request.timeout = std::chrono::seconds(10);
        request.headers.append({QByteArrayLiteral("Authorization"), "Bearer " + accessToken.toUtf8()});
        return request;
    };

    const APIResult<HTTPResponse> answer = co_await api_.send(makeRequest);
    if (!answer)
        co_return tl::unexpected(answer.error());
    std::optional<AccountInfo> account;
    if (answer->status == 200)
        account = AccountInfo::fromJson(answer->body);
    if (!account)
        co_return tl::unexpected(APIError::failed);
    co_return *account;
}

} // namespace vellumline
