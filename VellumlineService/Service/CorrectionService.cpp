#include "VellumlineService/Service/CorrectionService.h"

#include "VellumlineService/Service/Pages.h"
#include "VellumlineService/Service/Tokens.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTextBoundaryFinder>

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

std::optional<QJsonObject> parseObject(const QByteArray& body) {
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(body, &problem);
    if (problem.error != QJsonParseError::NoError || !document.isObject()) {
        return {};
    }
    return document.object();
}

} // namespace

std::optional<RedeemBody> parseRedeemBody(const QByteArray& body) {
    const auto object = parseObject(body);
    if (!object) {
        return {};
    }
    const QJsonValue code = object->value(QStringLiteral("code"));
    const QJsonValue verifier = object->value(QStringLiteral("code_verifier"));
    if (!code.isString() || !verifier.isString() || code.toString().size() < 16 ||
        code.toString().size() > 128 || !isPkceVerifier(verifier.toString())) {
        return {};
    }
    return RedeemBody{code.toString(), verifier.toString()};
}

std::optional<QString> parseRewriteBody(const QByteArray& body) {
    const auto object = parseObject(body);
    if (!object || !object->value(QStringLiteral("text")).isString()) {
        return {};
    }
    return object->value(QStringLiteral("text")).toString();
}

int characterCount(const QString& text, int limit) {
    // A cluster has at least one UTF-16 unit, so short texts need no look.
    if (text.size() <= limit) {
        return static_cast<int>(text.size());
    }
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (count <= limit && finder.toNextBoundary() > 0) {
        ++count;
    }
    return count;
}

CorrectionService::CorrectionService(ServiceSettings settings, Storage& storage, CorrectionEngine& engine,
                                     Now now)
    : settings_(std::move(settings)), storage_(storage), engine_(engine), now_(std::move(now)),
      key_(storage.signingKey()) {}

HttpServer::Lane CorrectionService::laneOf(const HttpRequest& request) {
    return request.path == "/v1/rewrite" ? HttpServer::Lane::correction : HttpServer::Lane::quick;
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
        {"GET", "/login/", &CorrectionService::loginPage},
        {"GET", "/login", &CorrectionService::loginPage},
        {"POST", "/login/", &CorrectionService::login},
        {"GET", "/account/", &CorrectionService::accountPage},
        {"GET", "/account", &CorrectionService::accountPage},
        {"POST", "/account/reopen", &CorrectionService::reopen},
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

bool CorrectionService::sameOrigin(const HttpRequest& request) const {
    const QByteArray site = request.header("sec-fetch-site");
    if (!site.isEmpty() && site != "same-origin" && site != "none") {
        return false;
    }
    if (!request.hasHeader("origin")) {
        return true; // No browser; the form token still decides.
    }
    const QByteArray origin = request.header("origin");
    const QByteArray host = request.header("host");
    if (!settings_.publicUrl.isEmpty() &&
        origin == settings_.publicUrl.toString(QUrl::FullyEncoded).toLatin1()) {
        return true;
    }
    return origin == "http://" + host || origin == "https://" + host;
}

QByteArray CorrectionService::formToken(const QByteArray& purpose) const {
    const QByteArray until = QByteArray::number(seconds() + 600);
    return until + '.' + base64Url(hmacSha256(key_, "form\n" + purpose + '\n' + until));
}

bool CorrectionService::formTokenValid(const QByteArray& purpose, const QString& token) const {
    const QByteArray bytes = token.toLatin1();
    const qsizetype dot = bytes.indexOf('.');
    if (dot <= 0 || bytes.left(dot).toLongLong() <= seconds()) {
        return false;
    }
    return equalInConstantTime(base64Url(hmacSha256(key_, "form\n" + purpose + '\n' + bytes.left(dot))),
                               bytes.mid(dot + 1));
}

QByteArray CorrectionService::accessToken(const Account& account) const {
    AccessClaims claims;
    claims.accountId = account.id;
    claims.email = account.email;
    claims.issuedAt = seconds();
    claims.expiresAt = seconds() + settings_.accessSeconds;
    return signAccessToken(claims, key_);
}

std::optional<Account> CorrectionService::authorised(const HttpRequest& request) {
    const QByteArray value = request.header("authorization");
    // The scheme's name is case-insensitive (RFC 9110 section 11.1).
    if (value.left(7).toLower() != "bearer ") {
        return {};
    }
    const auto claims = verifyAccessToken(value.mid(7).trimmed(), key_, seconds());
    return claims ? storage_.account(claims->accountId) : std::nullopt;
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

HttpAnswer CorrectionService::loginPage(const HttpRequest& request) {
    const auto items = parseForm(request.query);
    const auto challenge = items ? formValue(*items, QStringLiteral("app_challenge")) : std::nullopt;
    if (!challenge || !isPkceChallenge(*challenge)) {
        return pages::message(
            400, QStringLiteral("Start from the program"),
            QStringLiteral("This page is opened by Vellumline when you choose Sign in there. The link "
                           "that brought you here is incomplete."));
    }
    const auto account = storage_.localAccount();
    if (!account) {
        return pages::message(503, QStringLiteral("Not available"),
                              QStringLiteral("The service cannot read its data. Try again in a minute."));
    }
    return pages::signIn(*challenge, formToken("login\n" + challenge->toLatin1()), *account);
}

HttpAnswer CorrectionService::login(const HttpRequest& request) {
    const auto items =
        request.mediaType() == "application/x-www-form-urlencoded" ? parseForm(request.body) : std::nullopt;
    const auto challenge = items ? formValue(*items, QStringLiteral("app_challenge")) : std::nullopt;
    const auto token = items ? formValue(*items, QStringLiteral("form_token")) : std::nullopt;
    if (!challenge || !token || !isPkceChallenge(*challenge)) {
        return pages::message(
            400, QStringLiteral("Start from the program"),
            QStringLiteral("This sign-in is incomplete. Choose Sign in in Vellumline again."));
    }
    if (!sameOrigin(request)) {
        return pages::message(
            403, QStringLiteral("Not from here"),
            QStringLiteral("Another web site tried to sign you in. Choose Sign in in Vellumline."));
    }
    if (!formTokenValid("login\n" + challenge->toLatin1(), *token)) {
        return pages::message(403, QStringLiteral("This page is too old"),
                              QStringLiteral("Choose Sign in in Vellumline again to get a fresh one."));
    }
    const auto account = storage_.localAccount();
    const QByteArray code = randomToken(24);
    if (!account || !storage_.addHandoff(code, *challenge, account->id, seconds())) {
        return pages::message(503, QStringLiteral("Not available"),
                              QStringLiteral("The service cannot write its data. Try again in a minute."));
    }
    return pages::signedIn(code);
}

HttpAnswer CorrectionService::accountPage(const HttpRequest& request) {
    const auto items = parseForm(request.query);
    const QString plan = items ? formValue(*items, QStringLiteral("plan")).value_or(QString()) : QString();
    const auto account = storage_.localAccount();
    if (!account) {
        return pages::message(503, QStringLiteral("Not available"),
                              QStringLiteral("The service cannot read its data. Try again in a minute."));
    }
    return pages::account(*account, plan, formToken("reopen"));
}

HttpAnswer CorrectionService::reopen(const HttpRequest& request) {
    const auto items =
        request.mediaType() == "application/x-www-form-urlencoded" ? parseForm(request.body) : std::nullopt;
    const auto token = items ? formValue(*items, QStringLiteral("form_token")) : std::nullopt;
    if (!token || !sameOrigin(request) || !formTokenValid("reopen", *token)) {
        return pages::message(403, QStringLiteral("This page is too old"),
                              QStringLiteral("Open the account page again and retry."));
    }
    const auto account = storage_.localAccount();
    if (!account || !storage_.reopenAccount(account->id)) {
        return pages::message(503, QStringLiteral("Not available"),
                              QStringLiteral("The service cannot write its data. Try again in a minute."));
    }
    HttpAnswer answer =
        pages::message(303, QStringLiteral("Reopened"), QStringLiteral("The account is open again."));
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
    const auto issued =
        storage_.redeemHandoff(body->code.toUtf8(), pkceChallenge(body->verifier.toLatin1()), seconds());
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
    QJsonObject reply{{QStringLiteral("access_token"), QString::fromLatin1(accessToken(issued.account))},
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
    const auto issued = storage_.rotateRefreshToken(refresh->toUtf8(), seconds());
    if (issued.outcome == Storage::Exchange::storageFailure) {
        return storageProblem();
    }
    if (issued.outcome != Storage::Exchange::done) {
        return error(400, "invalid_grant");
    }
    QJsonObject reply{{QStringLiteral("access_token"), QString::fromLatin1(accessToken(issued.account))},
                      {QStringLiteral("refresh_token"), QString::fromLatin1(issued.refreshToken)},
                      {QStringLiteral("token_type"), QStringLiteral("Bearer")},
                      {QStringLiteral("expires_in"), settings_.accessSeconds}};
    if (!issued.account.email.isEmpty()) {
        reply.insert(QStringLiteral("email"), issued.account.email);
    }
    return json(200, reply);
}

HttpAnswer CorrectionService::accountInfo(const HttpRequest& request) {
    const auto account = authorised(request);
    if (!account) {
        return error(401, "not signed in");
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
    for (const QString& name : {QStringLiteral("monthlyCheckoutUrl"), QStringLiteral("yearlyCheckoutUrl")}) {
        const QString url = storage_.setting(name).value_or(QString());
        if (!url.isEmpty()) {
            reply.insert(name, url);
        }
    }
    return json(402, reply);
}

HttpAnswer CorrectionService::rewrite(const HttpRequest& request) {
    const auto account = authorised(request);
    if (!account) {
        return error(401, "not signed in");
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
    if (characterCount(*text, textLimit) > textLimit) {
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
