#include "Vellumline/AuthClient.h"

#include "Vellumline/API.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace vellumline {

AuthClient::AuthClient(HTTPTransport& transport, AuthConfig config)
    : transport_(transport), config_(std::move(config)) {}

QCoro::Task<APIResult<AuthSession>> AuthClient::redeem(QString code, QString verifier) {
    QJsonObject body;
    body.insert(QStringLiteral("code"), code);
    body.insert(QStringLiteral("code_verifier"), verifier);

    HTTPRequest request;
    request.url = AuthConfig::appending(config_.backendURL, QStringLiteral("v1/auth/handoff/redeem"));
    request.method = "POST";
    request.timeout = std::chrono::seconds(10);
    request.headers.append({QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json")});
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact);

    const APIResult<HTTPResponse> answer = co_await API::perform(transport_, std::move(request));
    if (!answer)
        co_return tl::unexpected(answer.error());
    std::optional<AuthSession> session;
    if (answer->status == 200)
        session = AuthSession::fromHandoff(answer->body);
    if (!session)
        co_return tl::unexpected(APIError::failed);
    co_return std::move(*session);
}

} // namespace vellumline
