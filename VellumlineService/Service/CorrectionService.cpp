#include "VellumlineService/Service/CorrectionService.h"

#include "VellumlineCore/Json.h"
#include "VellumlineCore/Text.h"
#include "VellumlineService/Service/Pages.h"
#include "VellumlineService/Service/Tokens.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

namespace vellumline {

namespace {

HttpAnswer json(int status, const QJsonObject& object) {
    HttpAnswer answer;
    answer.status = status;
    answer.body = QJsonDocument(object).toJson(QJsonDocument::Compact);
    return answer;
}

HttpAnswer error(int status, const char* text) {
    HttpAnswer answer = json(status, {{QStringLiteral("error"), QString::fromLatin1(text)}});
    if (status == 401) {
        answer.headers.emplace_back("WWW-Authenticate", "Bearer"); // RFC 9110 section 11.6.1
    }
    return answer;
}

HttpAnswer storageProblem() {
    return error(503, "storage unavailable");
}

} // namespace

std::optional<RedeemBody> parseRedeemBody(const QByteArray& body) {
    JsonReader reader(body);
    const QString code = reader.string(QStringLiteral("code"));
    const QString verifier = reader.string(QStringLiteral("code_verifier"));
    if (reader.failed() || code.size() < 16 || code.size() > 128 || !isPkceVerifier(verifier)) {
        return {};
    }
    return RedeemBody{code, verifier};
}

std::optional<QString> parseRewriteBody(const QByteArray& body) {
    JsonReader reader(body);
    QString text = reader.string(QStringLiteral("text"));
    return reader.failed() ? std::nullopt : std::optional(std::move(text));
}

CorrectionService::CorrectionService(ServiceSettings settings, Storage& storage, CorrectionEngine& engine,
                                     Now now)
    : settings_(std::move(settings)), storage_(storage), engine_(engine), now_(std::move(now)),
      keys_(storage, settings_.keySeconds, std::max<qint64>(settings_.accessSeconds, 600)),
      site_(settings_, storage_, keys_, [this] { return seconds(); }) {}

HttpServer::Lane CorrectionService::laneOf(const HttpRequest& request) {
    if (request.path == "/v1/rewrite") {
        return HttpServer::Lane::correction;
    }
    const bool password = request.path == "/login/" || request.path == "/register/" ||
                          request.path == "/reset/" || request.path == "/account/password";
    return password && request.method == "POST" ? HttpServer::Lane::password : HttpServer::Lane::quick;
}

HttpAnswer CorrectionService::handle(const HttpRequest& request) {
    if (!hostAllowed(request)) {
        return error(421, "unknown host");
    }
    return route(request);
}

const std::vector<CorrectionService::Route>& CorrectionService::routes() {
    static const std::vector<Route> all = {
        {"GET", "/healthz", &CorrectionService::health},
        {"GET", "/readyz", &CorrectionService::readiness},
        {"GET", "/metrics", &CorrectionService::metrics},
        {"GET", "/", &CorrectionService::home},
        {"GET", "/login/", &CorrectionService::site<&AccountSite::loginPage>},
        {"GET", "/login", &CorrectionService::site<&AccountSite::loginPage>},
        {"POST", "/login/", &CorrectionService::site<&AccountSite::login>},
        {"POST", "/logout", &CorrectionService::site<&AccountSite::logout>},
        {"GET", "/register/", &CorrectionService::site<&AccountSite::registerPage>},
        {"POST", "/register/", &CorrectionService::site<&AccountSite::registerAccount>},
        {"GET", "/reset/", &CorrectionService::site<&AccountSite::resetPage>},
        {"POST", "/reset/", &CorrectionService::site<&AccountSite::reset>},
        {"GET", "/account/", &CorrectionService::site<&AccountSite::accountPage>},
        {"GET", "/account", &CorrectionService::site<&AccountSite::accountPage>},
        {"GET", "/plan/", &CorrectionService::site<&AccountSite::planPage>},
        {"POST", "/account/reopen", &CorrectionService::site<&AccountSite::reopen>},
        {"POST", "/account/close", &CorrectionService::site<&AccountSite::close>},
        {"POST", "/account/password", &CorrectionService::site<&AccountSite::changePassword>},
        {"POST", "/account/sessions/end", &CorrectionService::site<&AccountSite::endSession>},
        {"POST", "/v1/auth/handoff/redeem", &CorrectionService::redeem},
        {"POST", "/auth/oauth/token", &CorrectionService::token},
        {"GET", "/v1/account", &CorrectionService::accountInfo},
        {"POST", "/v1/rewrite", &CorrectionService::rewrite},
    };
    return all;
}

QByteArray CorrectionService::routeOf(const QByteArray& path) {
    for (const Route& candidate : routes()) {
        if (path == candidate.path) {
            return path;
        }
    }
    return "other";
}

QString CorrectionService::methodOf(const QByteArray& method) {
    static const QList<QByteArray> known = {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"};
    return known.contains(method) ? QString::fromLatin1(method) : QStringLiteral("other");
}

HttpAnswer CorrectionService::route(const HttpRequest& request) {
    const QByteArray method = request.method == "HEAD" ? QByteArray("GET") : request.method;
    QByteArray allowed;
    for (const Route& candidate : routes()) {
        if (request.path != candidate.path) {
            continue;
        }
        if (method == candidate.method) {
            return (this->*candidate.handler)(request);
        }
        allowed += (allowed.isEmpty() ? "" : ", ") + QByteArray(candidate.method);
    }
    if (!allowed.isEmpty()) {
        HttpAnswer answer = error(405, "method not allowed");
        answer.headers.emplace_back("Allow", allowed);
        return answer;
    }
    return error(404, "not found");
}

bool CorrectionService::hostAllowed(const HttpRequest& request) const {
    if (settings_.hosts.isEmpty()) {
        return true;
    }
    QByteArray host = request.header("host").toLower();
    const qsizetype colon = host.lastIndexOf(':');
    if (colon > host.lastIndexOf(']')) {
        host.truncate(colon);
    }
    return settings_.hosts.contains(QString::fromLatin1(host));
}

QByteArray CorrectionService::accessToken(const Storage::Issued& issued, const SigningKey& key,
                                          qint64 now) const {
    AccessClaims claims;
    claims.accountId = issued.account.id;
    claims.email = issued.account.email;
    claims.issuedAt = now;
    claims.expiresAt = now + settings_.accessSeconds;
    claims.session = issued.session;
    return signAccessToken(claims, key);
}

std::optional<Account> CorrectionService::authorised(const HttpRequest& request, HttpAnswer& refusal) {
    refusal = error(401, "not signed in");
    const QByteArray value = request.header("authorization");
    // The scheme's name is case-insensitive (RFC 9110 section 11.1).
    if (value.left(7).toLower() != "bearer ") {
        return {};
    }
    const QByteArray token = value.mid(7).trimmed();
    const auto key = keys_.find(accessTokenKeyId(token), seconds());
    if (key.failed()) {
        refusal = storageProblem();
        return {};
    }
    const auto claims = key ? verifyAccessToken(token, *key, seconds()) : std::nullopt;
    if (!claims) {
        return {};
    }
    const auto account = storage_.accountOfSession(claims->accountId, claims->session);
    if (account.failed()) {
        refusal = storageProblem();
    }
    return account ? std::optional(*account) : std::nullopt;
}

HttpAnswer CorrectionService::health(const HttpRequest&) {
    return json(200, {{QStringLiteral("status"), QStringLiteral("ok")}});
}

HttpAnswer CorrectionService::readiness(const HttpRequest&) {
    return storage_.isReady() ? json(200, {{QStringLiteral("status"), QStringLiteral("ready")}})
                              : storageProblem();
}

HttpAnswer CorrectionService::metrics(const HttpRequest&) {
    if (!metricsText_) {
        return error(404, "not found");
    }
    HttpAnswer answer;
    answer.contentType = "text/plain; version=0.0.4; charset=utf-8";
    answer.body = metricsText_();
    return answer;
}

HttpAnswer CorrectionService::home(const HttpRequest&) {
    HttpAnswer answer =
        pages::message(303, QStringLiteral("Vellumline"), QStringLiteral("See your account page."));
    answer.headers.emplace_back("Location", "/account/");
    return answer;
}

HttpAnswer CorrectionService::redeem(const HttpRequest& request) {
    if (request.mediaType() != "application/json") {
        return error(415, "content type must be application/json");
    }
    const auto body = parseRedeemBody(request.body);
    if (!body) {
        return error(400, "code and code_verifier are needed");
    }
    // Before the code is used up: without a key there would be nothing to give for it.
    const qint64 now = seconds();
    const auto key = keys_.current(now);
    if (!key) {
        return storageProblem();
    }
    const auto issued =
        storage_.redeemHandoff(body->code.toUtf8(), pkceChallenge(body->verifier.toLatin1()), now);
    switch (issued.outcome) {
    case Storage::Exchange::done:
        break;
    case Storage::Exchange::refused:
        return error(400, "code is not valid");
    case Storage::Exchange::gone:
        return error(410, "code is used or expired");
    case Storage::Exchange::storageFailure:
        return storageProblem();
    }
    QJsonObject reply{{QStringLiteral("access_token"), QString::fromLatin1(accessToken(issued, *key, now))},
                      {QStringLiteral("refresh_token"), QString::fromLatin1(issued.refreshToken)},
                      {QStringLiteral("user_id"), QString::number(issued.account.id)}};
    if (!issued.account.email.isEmpty()) {
        reply.insert(QStringLiteral("email"), issued.account.email);
    }
    return json(200, reply);
}

HttpAnswer CorrectionService::token(const HttpRequest& request) {
    // Error names are those of RFC 6749 section 5.2. Only `invalid_grant` may be 400 or 401 lightly: the
    // program gives its session up on both.
    if (request.mediaType() != "application/x-www-form-urlencoded") {
        return error(415, "invalid_request");
    }
    const auto items = parseForm(request.body);
    const auto grant = items ? formValue(*items, QStringLiteral("grant_type")) : std::nullopt;
    const auto refresh = items ? formValue(*items, QStringLiteral("refresh_token")) : std::nullopt;
    if (!grant) {
        return error(400, "invalid_request");
    }
    if (*grant != QStringLiteral("refresh_token")) {
        return error(400, "unsupported_grant_type");
    }
    if (!refresh || refresh->isEmpty() || refresh->size() > 512) {
        return error(400, "invalid_request");
    }
    // Before the token is exchanged: an exchange whose answer cannot be made would end the session.
    const qint64 now = seconds();
    const auto key = keys_.current(now);
    if (!key) {
        return storageProblem();
    }
    const auto issued = storage_.rotateRefreshToken(refresh->toUtf8(), now);
    if (issued.outcome == Storage::Exchange::storageFailure) {
        return storageProblem();
    }
    if (issued.outcome != Storage::Exchange::done) {
        return error(400, "invalid_grant");
    }
    QJsonObject reply{{QStringLiteral("access_token"), QString::fromLatin1(accessToken(issued, *key, now))},
                      {QStringLiteral("refresh_token"), QString::fromLatin1(issued.refreshToken)},
                      {QStringLiteral("token_type"), QStringLiteral("Bearer")},
                      {QStringLiteral("expires_in"), settings_.accessSeconds}};
    if (!issued.account.email.isEmpty()) {
        reply.insert(QStringLiteral("email"), issued.account.email);
    }
    return json(200, reply);
}

HttpAnswer CorrectionService::accountInfo(const HttpRequest& request) {
    HttpAnswer refusal;
    const auto account = authorised(request, refusal);
    if (!account) {
        return refusal;
    }
    return json(200, {{QStringLiteral("plan"), account->plan},
                      {QStringLiteral("rewritesUsed"), account->rewritesUsed},
                      {QStringLiteral("freeRewrites"), account->freeRewrites},
                      {QStringLiteral("renewalCanceled"), account->renewalCanceled},
                      {QStringLiteral("pastDue"), account->pastDue},
                      {QStringLiteral("closed"), account->closed}});
}

HttpAnswer CorrectionService::freeLimitAnswer() {
    QJsonObject reply{{QStringLiteral("error"), QStringLiteral("free rewrites used up")}};
    for (const QString& plan : {QStringLiteral("monthly"), QStringLiteral("yearly")}) {
        const auto url = checkoutUrl(storage_, settings_, plan);
        if (!url) {
            return storageProblem();
        }
        if (!url->isEmpty()) {
            reply.insert(plan + QStringLiteral("CheckoutUrl"), *url);
        }
    }
    return json(402, reply);
}

HttpAnswer CorrectionService::rewrite(const HttpRequest& request) {
    HttpAnswer refusal;
    const auto account = authorised(request, refusal);
    if (!account) {
        return refusal;
    }
    if (account->closed) {
        return error(401, "account closed");
    }
    if (request.mediaType() != "application/json") {
        return error(415, "content type must be application/json");
    }
    const auto text = parseRewriteBody(request.body);
    if (!text) {
        return error(400, "text is needed");
    }
    if (text->trimmed().isEmpty()) {
        return error(400, "text is empty");
    }
    if (hasMoreCharactersThan(*text, textLimit)) {
        return error(400, "text is too long");
    }
    // Looked at here so that the engine does not work for nothing; what counts is the look when it is
    // counted.
    if (account->freeUsedUp()) {
        return freeLimitAnswer();
    }
    if (account->monthUsedUp(Storage::monthOf(now_()))) {
        return error(429, "monthly limit reached");
    }
    if (account->minuteUsedUp(now_())) {
        return error(429, "too many rewrites in a minute");
    }
    const CorrectionResult result = engine_.correct(*text);
    switch (result.status) {
    case CorrectionResult::Status::corrected:
        break;
    case CorrectionResult::Status::unavailable:
    case CorrectionResult::Status::refused:
        return error(503, "corrections are unavailable");
    case CorrectionResult::Status::failed:
        return error(502, "the correction failed");
    case CorrectionResult::Status::timedOut:
        return error(504, "the correction took too long");
    }
    // Counted only when this answer will be sent, and before it is sent. A request that came too late or
    // whose client went away was given up by the server, and is not counted.
    if (!request.claim->claim()) {
        return error(504, "the correction took too long");
    }
    switch (storage_.countRewrite(account->id, now_())) {
    case Storage::Use::counted:
        return json(200, {{QStringLiteral("text"), result.text}});
    case Storage::Use::freeLimit:
        return freeLimitAnswer();
    case Storage::Use::monthlyLimit:
        return error(429, "monthly limit reached");
    case Storage::Use::minuteLimit:
        return error(429, "too many rewrites in a minute");
    case Storage::Use::closed:
        return error(401, "account closed");
    case Storage::Use::missing:
        return error(401, "not signed in");
    case Storage::Use::storageFailure:
        break;
    }
    return storageProblem();
}

} // namespace vellumline
