#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"
#include "VellumlineService/Service/AccountSite.h"
#include "VellumlineService/Service/HttpServer.h"

#include <functional>
#include <vector>

namespace vellumline {

/// The texts of the request bodies; nothing when a body is not what it must be.
struct RedeemBody {
    QString code;
    QString verifier;
};
std::optional<RedeemBody> parseRedeemBody(const QByteArray& body);
std::optional<QString> parseRewriteBody(const QByteArray& body);

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
    template<HttpAnswer (AccountSite::*page)(const HttpRequest&)>
    HttpAnswer site(const HttpRequest& request) {
        return (site_.*page)(request);
    }
    HttpAnswer redeem(const HttpRequest& request);
    HttpAnswer token(const HttpRequest& request);
    HttpAnswer accountInfo(const HttpRequest& request);
    HttpAnswer rewrite(const HttpRequest& request);

    qint64 seconds() const { return now_() / 1000; }
    bool hostAllowed(const HttpRequest& request) const;
    QByteArray accessToken(const Storage::Issued& issued, const SigningKey& key, qint64 now) const;
    /// The account of the bearer token; else an answer in `refusal`.
    std::optional<Account> authorised(const HttpRequest& request, HttpAnswer& refusal);
    HttpAnswer freeLimitAnswer();

    const ServiceSettings settings_;
    Storage& storage_;
    CorrectionEngine& engine_;
    const Now now_;
    KeyRing keys_;
    AccountSite site_;
    std::function<QByteArray()> metricsText_;
};

} // namespace vellumline
