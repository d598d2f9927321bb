#include "Vellumline/RewriteClient.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace vellumline {

RewriteClient::RewriteClient(API& api, AuthConfig config) : api_(api), config_(std::move(config)) {}

QCoro::Task<APIResult<RewriteReply>> RewriteClient::rewrite(QString text) {
    QJsonObject object;
    object.insert(QStringLiteral("text"), text);
    const QByteArray body = QJsonDocument(object).toJson(QJsonDocument::Compact);
    const QUrl url = AuthConfig::appending(config_.backendURL, QStringLiteral("v1/rewrite"));
    API::RequestBuilder makeRequest = [url, body](const QString& accessToken) {
        HTTPRequest request;
        request.url = url;
        request.method = "POST";
        request.timeout = std::chrono::seconds(15);
        request.headers.append({QByteArrayLiteral("Authorization"), "Bearer " + accessToken.toUtf8()});
        request.headers.append({QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json")});
        request.body = body;
        return request;
    };

    const APIResult<HTTPResponse> answer = co_await api_.send(makeRequest);
    if (!answer)
        co_return tl::unexpected(answer.error());
    co_return RewriteReply::from(answer->status, answer->body);
}

} // namespace vellumline
