#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"
#include "VellumlineService/Service/HttpServer.h"
#include "VellumlineService/Service/Storage.h"

#include <QStringList>
#include <QUrl>
#include <functional>
#include <vector>

namespace vellumline {

struct ServiceSettings {
    /// Host names (without port) that a request may name. Empty: any. Against DNS rebinding, where a web
    /// page's own name points at this machine.
    QStringList hosts = {QStringLiteral("127.0.0.1"), QStringLiteral("localhost"), QStringLiteral("[::1]")};
    /// Where browsers reach the service; empty when that is where it listens.
    QUrl publicUrl;
    /// Seconds for which an access token is good.
    qint64 accessSeconds = 600;
};

/// The texts of the request bodies; nothing when a body is not what it must be.
struct RedeemBody {
    QString code;
    QString verifier;
};
std::optional<RedeemBody> parseRedeemBody(const QByteArray& body);
std::optional<QString> parseRewriteBody(const QByteArray& body);
/// User-visible characters (extended grapheme clusters), counted up to `limit` + 1.
int characterCount(const QString& text, int limit);

/// Every page and endpoint of the service, without sockets. Thread-safe.
class CorrectionService {
  public:
    /// Milliseconds since 1970-01-01 UTC.
    using Now = std::function<qint64()>;
    static constexpr int textLimit = 4000;

    CorrectionService(ServiceSettings settings, Storage& storage, CorrectionEngine& engine, Now now);

    HttpAnswer handle(const HttpRequest& request);
    static HttpServer::Lane laneOf(const HttpRequest& request);
    /// The path when it is one of the service's own, else "other": a name that may be logged and counted.
    static QByteArray routeOf(const QByteArray& path);
    /// The method when it is a known one, else "other".
    static QString methodOf(const QByteArray& method);
    /// Answers /metrics with this; without it there is none.
    void showMetrics(std::function<QByteArray()> text) { metricsText_ = std::move(text); }

  private:
    struct Route {
        const char* method;
        const char* path;
        HttpAnswer (CorrectionService::*handler)(const HttpRequest&);
    };
    static const std::vector<Route>& routes();

    HttpAnswer route(const HttpRequest& request);
    HttpAnswer health(const HttpRequest& request);
    HttpAnswer readiness(const HttpRequest& request);
    HttpAnswer metrics(const HttpRequest& request);
    HttpAnswer home(const HttpRequest& request);
    HttpAnswer loginPage(const HttpRequest& request);
    HttpAnswer login(const HttpRequest& request);
    HttpAnswer accountPage(const HttpRequest& request);
    HttpAnswer reopen(const HttpRequest& request);
    HttpAnswer redeem(const HttpRequest& request);
    HttpAnswer token(const HttpRequest& request);
    HttpAnswer accountInfo(const HttpRequest& request);
    HttpAnswer rewrite(const HttpRequest& request);

    qint64 seconds() const { return now_() / 1000; }
    bool hostAllowed(const HttpRequest& request) const;
    QByteArray formToken(const QByteArray& purpose) const;
    bool formTokenValid(const QByteArray& purpose, const QString& token) const;
    bool sameOrigin(const HttpRequest& request) const;
    QByteArray accessToken(const Account& account) const;
    /// The account of the bearer token; nothing when there is none or it is bad or expired.
    std::optional<Account> authorised(const HttpRequest& request);
    HttpAnswer freeLimitAnswer();

    const ServiceSettings settings_;
    Storage& storage_;
    CorrectionEngine& engine_;
    const Now now_;
    const QByteArray key_;
    std::function<QByteArray()> metricsText_;
};

} // namespace vellumline
