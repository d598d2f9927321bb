#include "TestDatabase.h"

#include "VellumlineCore/RewriteReply.h"
#include "VellumlineService/Service/CorrectionService.h"
#include "VellumlineService/Service/Tokens.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>
#include <atomic>
#include <thread>

using namespace vellumline;

namespace {

class FakeEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString text) override {
        ++calls;
        return {status, QStringLiteral("<") + text + QStringLiteral(">")};
    }
    std::atomic<CorrectionResult::Status> status = CorrectionResult::Status::corrected;
    std::atomic<int> calls = 0;
};

const QByteArray verifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
const QByteArray challenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";

QJsonObject object(const HttpAnswer& answer) {
    return QJsonDocument::fromJson(answer.body).object();
}
QByteArray field(const HttpAnswer& answer, const char* name) {
    return object(answer).value(QLatin1String(name)).toString().toLatin1();
}
QByteArray errorOf(const HttpAnswer& answer) {
    return field(answer, "error");
}

} // namespace

class CorrectionServiceTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> folder_;
    QString address_;
    std::unique_ptr<Storage> storage_;
    FakeEngine engine_;
    std::unique_ptr<CorrectionService> service_;
    std::atomic<qint64> now_ = 1'800'000'000'000;

    void serve() {
        service_ = std::make_unique<CorrectionService>(ServiceSettings(), *storage_, engine_,
                                                       [this] { return now_.load(); });
    }
    static HttpRequest request(const QByteArray& method, const QByteArray& target,
                               const QByteArray& type = {}, const QByteArray& body = {},
                               const QByteArray& token = {}) {
        HttpRequest made;
        made.method = method;
        const qsizetype question = target.indexOf('?');
        made.path = question < 0 ? target : target.left(question);
        made.query = question < 0 ? QByteArray() : target.mid(question + 1);
        made.headers.emplace_back("host", "127.0.0.1:8642");
        if (!type.isEmpty()) {
            made.headers.emplace_back("content-type", type);
        }
        if (!token.isEmpty()) {
            made.headers.emplace_back("authorization", "Bearer " + token);
        }
        made.body = body;
        return made;
    }
    HttpAnswer get(const QByteArray& target, const QByteArray& token = {}) {
        return service_->handle(request("GET", target, {}, {}, token));
    }
    HttpAnswer postJson(const QByteArray& target, const QJsonObject& body, const QByteArray& token = {}) {
        return service_->handle(request("POST", target, "application/json",
                                        QJsonDocument(body).toJson(QJsonDocument::Compact), token));
    }
    HttpAnswer postForm(const QByteArray& target, const QByteArray& body) {
        return service_->handle(request("POST", target, "application/x-www-form-urlencoded", body));
    }
    HttpAnswer rewrite(const QString& text, const QByteArray& token) {
        return postJson("/v1/rewrite", {{QStringLiteral("text"), text}}, token);
    }
    QByteArray formToken() {
        const QString page = QString::fromUtf8(get("/login/?app_challenge=" + challenge).body);
        return QRegularExpression(QStringLiteral("name=\"form_token\" value=\"([^\"]+)\""))
            .match(page)
            .captured(1)
            .toLatin1();
    }
    QByteArray newCode() {
        const HttpAnswer answer =
            postForm("/login/", "app_challenge=" + challenge + "&form_token=" +
                                    QUrl::toPercentEncoding(QString::fromLatin1(formToken())));
        return QRegularExpression(QStringLiteral("url=vellumline://auth\\?handoff=([A-Za-z0-9_-]{16,128})\""))
            .match(QString::fromUtf8(answer.body))
            .captured(1)
            .toLatin1();
    }
    HttpAnswer redeem(const QByteArray& code, const QByteArray& withVerifier = verifier) {
        return postJson("/v1/auth/handoff/redeem",
                        {{QStringLiteral("code"), QString::fromLatin1(code)},
                         {QStringLiteral("code_verifier"), QString::fromLatin1(withVerifier)}});
    }
    HttpAnswer refresh(const QByteArray& token) {
        return postForm("/auth/oauth/token", "grant_type=refresh_token&refresh_token=" + token);
    }
    QByteArray signIn() { return field(redeem(newCode()), "access_token"); }
    void change(const std::function<void(Account&)>& what) { QVERIFY(storage_->changeLocalAccount(what)); }

  private Q_SLOTS:
    void init() {
        folder_ = std::make_unique<QTemporaryDir>();
        address_ = test::freshDatabase(folder_->path());
        storage_ = std::make_unique<Storage>(test::databaseAddress(address_));
        QVERIFY(!storage_->open());
        now_ = 1'800'000'000'000;
        engine_.status = CorrectionResult::Status::corrected;
        engine_.calls = 0;
        serve();
    }
    void cleanup() {
        service_.reset();
        storage_.reset();
        folder_.reset();
    }

    void aSignInGoesFromThePageToAnAuthorisedAccount() {
        const HttpAnswer redeemed = redeem(newCode());
        QCOMPARE(redeemed.status, 200);
        QCOMPARE(field(redeemed, "user_id"), "1");
        QVERIFY(object(redeemed).value(QStringLiteral("user_id")).isString());
        QVERIFY(!object(redeemed).contains(QStringLiteral("email")));
        const HttpAnswer account = get("/v1/account", field(redeemed, "access_token"));
        QCOMPARE(account.status, 200);
        const QJsonObject expected{{QStringLiteral("plan"), QStringLiteral("paid")},
                                   {QStringLiteral("rewritesUsed"), 0},
                                   {QStringLiteral("freeRewrites"), 30},
                                   {QStringLiteral("renewalCanceled"), false},
                                   {QStringLiteral("pastDue"), false},
                                   {QStringLiteral("closed"), false}};
        QCOMPARE(object(account), expected);
    }
    void anAddressOfTheAccountIsSentAndStandsInTheToken() {
        change([](Account& a) { a.email = QStringLiteral("ada@example.org"); });
        const HttpAnswer redeemed = redeem(newCode());
        QCOMPARE(field(redeemed, "email"), "ada@example.org");
        const auto claims =
            verifyAccessToken(field(redeemed, "access_token"), storage_->signingKeys()->first(), now_ / 1000);
        QVERIFY(claims);
        QCOMPARE(claims->email, QStringLiteral("ada@example.org"));
        QCOMPARE(claims->expiresAt - claims->issuedAt, qint64{600});
    }
    void theLoginPageNeedsAWholeChallenge_data() {
        QTest::addColumn<QByteArray>("target");
        QTest::newRow("no query") << QByteArray("/login/");
        QTest::newRow("empty") << QByteArray("/login/?app_challenge=");
        QTest::newRow("42 characters") << "/login/?app_challenge=" + challenge.left(42);
        QTest::newRow("44 characters") << "/login/?app_challenge=" + challenge + "A";
        QTest::newRow("a character outside base64url")
            << "/login/?app_challenge=" + challenge.left(42) + "%3D";
        QTest::newRow("given twice") << "/login/?app_challenge=" + challenge + "&app_challenge=" + challenge;
        QTest::newRow("broken percent-encoding") << QByteArray("/login/?app_challenge=%zz");
    }
    void theLoginPageNeedsAWholeChallenge() {
        QFETCH(QByteArray, target);
        const HttpAnswer answer = get(target);
        QCOMPARE(answer.status, 400);
        QVERIFY(answer.body.contains("Start from the program"));
        QVERIFY(!answer.body.contains("<form"));
    }
    void pagesForbidFramesScriptsAndForeignResources() {
        const HttpAnswer answer = get("/login/?app_challenge=" + challenge);
        QCOMPARE(answer.status, 200);
        QHash<QByteArray, QByteArray> headers;
        for (const auto& [name, value] : answer.headers) {
            headers.insert(name, value);
        }
        QVERIFY(headers.value("Content-Security-Policy").startsWith("default-src 'none'"));
        QVERIFY(headers.value("Content-Security-Policy").contains("frame-ancestors 'none'"));
        QCOMPARE(headers.value("X-Frame-Options"), "DENY");
        QCOMPARE(headers.value("Referrer-Policy"), "same-origin");
        QVERIFY(!headers.contains("Access-Control-Allow-Origin"));
        QVERIFY(!answer.body.contains("<script"));
        QVERIFY(!answer.body.contains("http://") && !answer.body.contains("https://"));
    }
    void signingInNeedsThePagesOwnToken() {
        QCOMPARE(postForm("/login/", "app_challenge=" + challenge).status, 400);
        QCOMPARE(postForm("/login/", "app_challenge=" + challenge + "&form_token=1900000000.AAAA").status,
                 403);
        const QByteArray token = formToken();
        now_ += 600'000;
        QCOMPARE(postForm("/login/", "app_challenge=" + challenge + "&form_token=" + token).status, 403);
    }
    void aFormFromAnotherOriginIsRefused() {
        HttpRequest made = request("POST", "/login/", "application/x-www-form-urlencoded",
                                   "app_challenge=" + challenge + "&form_token=" + formToken());
        made.headers.emplace_back("origin", "http://evil.example");
        QCOMPARE(service_->handle(made).status, 403);
        made.headers.back().second = "null";
        QCOMPARE(service_->handle(made).status, 403);
        made.headers.back().second = "http://127.0.0.1:8642";
        QCOMPARE(service_->handle(made).status, 200);
    }
    void aCodeWorksOnce() {
        const QByteArray code = newCode();
        const HttpAnswer first = redeem(code);
        QCOMPARE(first.status, 200);
        QCOMPARE(redeem(code).status, 410);
        // Somebody else has the code: what it gave is taken back.
        QCOMPARE(refresh(field(first, "refresh_token")).status, 400);
    }
    void aCodeLivesTenMinutes() {
        const QByteArray inTime = newCode();
        const QByteArray late = newCode();
        now_ += 599'000;
        QCOMPARE(redeem(inTime).status, 200);
        now_ += 1'000;
        QCOMPARE(redeem(late).status, 410);
    }
    void aWrongVerifierIsRefusedAndUsesTheCodeUp() {
        const QByteArray code = newCode();
        QCOMPARE(redeem(code, QByteArray(43, 'A')).status, 400);
        QCOMPARE(redeem(code).status, 410);
    }
    void aRedemptionWithABadBodyIsRefused_data() {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("status");
        QTest::newRow("not JSON") << QByteArray("application/json") << QByteArray("{") << 400;
        QTest::newRow("an array") << QByteArray("application/json") << QByteArray("[]") << 400;
        QTest::newRow("no verifier") << QByteArray("application/json")
                                     << QByteArray("{\"code\":\"abcdefghijklmnop\"}") << 400;
        QTest::newRow("a code that is a number")
            << QByteArray("application/json") << QByteArray("{\"code\":1,\"code_verifier\":\"x\"}") << 400;
        QTest::newRow("a short verifier")
            << QByteArray("application/json")
            << QByteArray("{\"code\":\"abcdefghijklmnop\",\"code_verifier\":\"x\"}") << 400;
        QTest::newRow("an unknown code")
            << QByteArray("application/json")
            << "{\"code\":\"abcdefghijklmnop\",\"code_verifier\":\"" + verifier + "\"}" << 400;
        QTest::newRow("text") << QByteArray("text/plain") << QByteArray("{}") << 415;
    }
    void aRedemptionWithABadBodyIsRefused() {
        QFETCH(QByteArray, type);
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        const HttpAnswer answer = service_->handle(request("POST", "/v1/auth/handoff/redeem", type, body));
        QCOMPARE(answer.status, status);
        QVERIFY(!errorOf(answer).isEmpty());
    }
    void refreshTokensRotate() {
        const QByteArray first = field(redeem(newCode()), "refresh_token");
        const HttpAnswer second = refresh(first);
        QCOMPARE(second.status, 200);
        QVERIFY(field(second, "refresh_token") != first);
        QCOMPARE(get("/v1/account", field(second, "access_token")).status, 200);
        QCOMPARE(refresh(field(second, "refresh_token")).status, 200);
    }
    void anOldRefreshTokenEndsItsFamily() {
        const QByteArray first = field(redeem(newCode()), "refresh_token");
        const QByteArray other = field(redeem(newCode()), "refresh_token");
        const QByteArray second = field(refresh(first), "refresh_token");
        const HttpAnswer reused = refresh(first);
        QCOMPARE(reused.status, 400);
        QCOMPARE(errorOf(reused), "invalid_grant");
        QCOMPARE(refresh(second).status, 400);
        QCOMPARE(refresh(other).status, 200);
    }
    void aRefreshTokenIdleForHalfAYearIsDead() {
        const QByteArray token = field(redeem(newCode()), "refresh_token");
        now_ += Storage::refreshIdleSeconds * 1000;
        QCOMPARE(refresh(token).status, 400);
    }
    void theTokenEndpointRefusesOtherForms() {
        QCOMPARE(errorOf(refresh("unknown")), "invalid_grant");
        QCOMPARE(errorOf(postForm("/auth/oauth/token", "grant_type=password&username=a")),
                 "unsupported_grant_type");
        QCOMPARE(errorOf(postForm("/auth/oauth/token", "refresh_token=a")), "invalid_request");
        QCOMPARE(errorOf(postForm("/auth/oauth/token", "grant_type=refresh_token")), "invalid_request");
        QCOMPARE(service_->handle(request("POST", "/auth/oauth/token", "application/json", "{}")).status,
                 415);
    }
    void tokensAreStoredHashedOnly() {
        const HttpAnswer redeemed = redeem(newCode());
        Database look(test::databaseAddress(address_));
        auto answer = look.run("SELECT token_hash FROM refresh_tokens");
        QVERIFY(answer.next());
        QCOMPARE(answer.text(0), secretHash(field(redeemed, "refresh_token")));
    }

    void aDatabaseThatFailsEndsNoSession_data() {
        QTest::addColumn<QString>("table");
        QTest::newRow("all of it") << QString();
        for (const char* table : {"accounts", "families", "signing_keys"}) {
            QTest::newRow(table) << QString::fromLatin1(table);
        }
    }
    void aDatabaseThatFailsEndsNoSession() {
        QFETCH(QString, table);
        const HttpAnswer session = redeem(newCode());
        const QByteArray code = newCode();
        const QByteArray token = field(session, "access_token");
        if (table.isEmpty() && !test::onPostgres()) {
            service_.reset();
            storage_ = std::make_unique<Storage>(test::databaseAddress(address_));
        }
        if (!table.isEmpty() || !test::onPostgres()) {
            serve(); // as another process, which has no key yet
        }
        {
            const auto all = table.isEmpty() ? std::make_unique<test::DatabaseAway>(address_) : nullptr;
            const auto one = table.isEmpty() ? nullptr : std::make_unique<test::TableAway>(address_, table);
            for (const HttpAnswer& answer :
                 {get("/v1/account", token), rewrite(QStringLiteral("a"), token),
                  refresh(field(session, "refresh_token")), redeem(code), get("/v1/account", token),
                  refresh(field(session, "refresh_token"))}) {
                QCOMPARE(answer.status, 503);
                QCOMPARE(errorOf(answer), "storage unavailable");
            }
            QCOMPARE(engine_.calls.load(), 0);
        }
        QCOMPARE(get("/v1/account", token).status, 200);
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{1});
        const HttpAnswer renewed = refresh(field(session, "refresh_token"));
        QCOMPARE(renewed.status, 200);
        QCOMPARE(get("/v1/account", field(renewed, "access_token")).status, 200);
        QCOMPARE(redeem(code).status, 200);
    }
    void checkoutLinksThatCannotBeReadAreNotMissing() {
        const QByteArray token = signIn();
        change([](Account& a) {
            a.plan = QStringLiteral("free");
            a.freeRewrites = 0;
        });
        const test::TableAway away(address_, QStringLiteral("settings"));
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 503);
    }

    void aRewriteAnswersWithTheEnginesText() {
        const QByteArray token = signIn();
        const HttpAnswer answer = rewrite(QStringLiteral(" a\tb\n"), token);
        QCOMPARE(answer.status, 200);
        QCOMPARE(object(answer).value(QStringLiteral("text")).toString(), QStringLiteral("< a\tb\n>"));
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{1});
        QVERIFY(RewriteReply::from(answer.status, answer.body).kind == RewriteReply::Kind::corrected);
    }
    void aTextThatBeginsWithAZeroWidthSpaceKeepsIt() {
        const HttpAnswer answer = rewrite(QStringLiteral(u"\ufeffa"), signIn());
        QCOMPARE(object(answer).value(QStringLiteral("text")).toString(), QStringLiteral(u"<\ufeffa>"));
    }
    void textsOf4000CharactersPassAndLongerOnesDoNot() {
        const QByteArray token = signIn();
        // A family emoji is one character of seven code points.
        const QString family =
            QString::fromUtf8("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7");
        QCOMPARE(rewrite(family.repeated(4000), token).status, 200);
        QCOMPARE(rewrite(QStringLiteral("\u0915 ") + family.repeated(3998), token).status,
                 200); // a Hindi letter before
        const HttpAnswer answer = rewrite(QString(4001, u'a'), token);
        QCOMPARE(answer.status, 400);
        QCOMPARE(errorOf(answer), "text is too long");
    }
    void aBlankTextIsEmpty() {
        const QByteArray token = signIn();
        for (const QString& text : {QString(), QStringLiteral(" \n\t"), QString(QChar(0xA0))}) {
            const HttpAnswer answer = rewrite(text, token);
            QCOMPARE(answer.status, 400);
            QCOMPARE(errorOf(answer), "text is empty");
        }
        QCOMPARE(engine_.calls.load(), 0);
    }
    void aRewriteNeedsAGoodBody() {
        const QByteArray token = signIn();
        QCOMPARE(
            service_->handle(request("POST", "/v1/rewrite", "application/json", "{\"text\":", token)).status,
            400);
        QCOMPARE(service_->handle(request("POST", "/v1/rewrite", "application/json", "{\"text\":1}", token))
                     .status,
                 400);
        QCOMPARE(
            service_->handle(request("POST", "/v1/rewrite", "text/plain", "{\"text\":\"a\"}", token)).status,
            415);
        QCOMPARE(service_
                     ->handle(request("POST", "/v1/rewrite", "Application/JSON; charset=utf-8",
                                      "{\"text\":\"a\"}", token))
                     .status,
                 200);
    }
    void aRewriteNeedsAGoodToken() {
        const QByteArray token = signIn();
        QCOMPARE(rewrite(QStringLiteral("a"), {}).status, 401);
        QByteArray forged = token;
        forged.back() = forged.back() == 'A' ? 'E' : 'A';
        QCOMPARE(rewrite(QStringLiteral("a"), forged).status, 401);
        const QByteArray none =
            base64Url("{\"alg\":\"none\",\"typ\":\"JWT\"}") + '.' + token.split('.').at(1) + '.';
        QCOMPARE(rewrite(QStringLiteral("a"), none).status, 401);
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
        now_ += 600'000;
        const HttpAnswer expired = rewrite(QStringLiteral("a"), token);
        QCOMPARE(expired.status, 401);
        QVERIFY(errorOf(expired) != "account closed");
        QCOMPARE(get("/v1/account", token).status, 401);
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{1});
    }
    void aClosedAccountRewritesNothingButIsShown() {
        const QByteArray token = signIn();
        change([](Account& a) { a.closed = true; });
        const HttpAnswer answer = rewrite(QStringLiteral("a"), token);
        QCOMPARE(answer.status, 401);
        QCOMPARE(errorOf(answer), "account closed");
        const HttpAnswer account = get("/v1/account", token);
        QCOMPARE(account.status, 200);
        QCOMPARE(object(account).value(QStringLiteral("closed")).toBool(), true);
    }
    void theAccountPageReopensAClosedAccount() {
        change([](Account& a) { a.closed = true; });
        const QString page = QString::fromUtf8(get("/account/").body);
        const QByteArray token = QRegularExpression(QStringLiteral("name=\"form_token\" value=\"([^\"]+)\""))
                                     .match(page)
                                     .captured(1)
                                     .toLatin1();
        QCOMPARE(postForm("/account/reopen", "form_token=wrong").status, 403);
        QVERIFY(storage_->localAccount()->closed);
        QCOMPARE(postForm("/account/reopen", "form_token=" + token).status, 303);
        QVERIFY(!storage_->localAccount()->closed);
        QVERIFY(get("/account/?plan=yearly").body.contains("--plan yearly"));
    }
    void freeRewritesRunOut() {
        const QByteArray token = signIn();
        change([](Account& a) {
            a.plan = QStringLiteral("free");
            a.freeRewrites = 2;
        });
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
        const HttpAnswer plain = rewrite(QStringLiteral("a"), token);
        QCOMPARE(plain.status, 402);
        QVERIFY(!errorOf(plain).isEmpty());
        QVERIFY(!object(plain).contains(QStringLiteral("monthlyCheckoutUrl")));
        QVERIFY(storage_->setSetting(QStringLiteral("monthlyCheckoutUrl"),
                                     QStringLiteral("https://pay.example.org/m")));
        QVERIFY(storage_->setSetting(QStringLiteral("yearlyCheckoutUrl"),
                                     QStringLiteral("https://pay.example.org/y")));
        const HttpAnswer linked = rewrite(QStringLiteral("a"), token);
        QCOMPARE(field(linked, "monthlyCheckoutUrl"), "https://pay.example.org/m");
        QCOMPARE(field(linked, "yearlyCheckoutUrl"), "https://pay.example.org/y");
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{2});
    }
    void theMonthlyLimitHoldsUntilTheNextMonth() {
        const QByteArray refreshToken = field(redeem(newCode()), "refresh_token");
        HttpAnswer session = refresh(refreshToken);
        change([](Account& a) { a.monthlyLimit = 1; });
        QCOMPARE(rewrite(QStringLiteral("a"), field(session, "access_token")).status, 200);
        const HttpAnswer answer = rewrite(QStringLiteral("a"), field(session, "access_token"));
        QCOMPARE(answer.status, 429);
        QCOMPARE(errorOf(answer), "monthly limit reached");
        now_ += qint64{31} * 86400 * 1000;
        session = refresh(field(session, "refresh_token"));
        QCOMPARE(rewrite(QStringLiteral("a"), field(session, "access_token")).status, 200);
    }
    void tooManyRewritesInAMinuteHaveToWait() {
        const QByteArray token = signIn();
        change([](Account& a) { a.minuteLimit = 2; });
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
        const HttpAnswer answer = rewrite(QStringLiteral("a"), token);
        QCOMPARE(answer.status, 429);
        QVERIFY(errorOf(answer) != "monthly limit reached");
        now_ += 60'000;
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 200);
    }
    void anEngineThatCannotWorkIsUnavailableAndOneThatBreaksIsABadGateway() {
        const QByteArray token = signIn();
        engine_.status = CorrectionResult::Status::unavailable;
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 503);
        engine_.status = CorrectionResult::Status::failed;
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 502);
        engine_.status = CorrectionResult::Status::refused;
        QCOMPARE(rewrite(QStringLiteral("a"), token).status, 503);
        engine_.status = CorrectionResult::Status::timedOut;
        const HttpAnswer late = rewrite(QStringLiteral("a"), token);
        QCOMPARE(late.status, 504);
        QCOMPARE(errorOf(late), "the correction took too long");
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{0});
    }
    void aRequestThatWasGivenUpIsNotCounted() {
        const QByteArray token = signIn();
        HttpRequest made = request("POST", "/v1/rewrite", "application/json", "{\"text\":\"a\"}", token);
        made.claim->giveUp();
        QCOMPARE(service_->handle(made).status, 504);
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{0});
    }
    void parallelRewritesAreCountedExactlyOnceEach() {
        const QByteArray token = signIn();
        change([](Account& a) {
            a.plan = QStringLiteral("free");
            a.freeRewrites = 25;
            a.minuteLimit = 0;
        });
        std::atomic<int> good = 0;
        std::atomic<int> refused = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 10; ++i) {
                    const int status = rewrite(QStringLiteral("a"), token).status;
                    good += status == 200 ? 1 : 0;
                    refused += status == 402 ? 1 : 0;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(good.load(), 25);
        QCOMPARE(refused.load(), 55);
        QCOMPARE(storage_->localAccount()->rewritesUsed, qint64{25});
    }
    void oneOfManySimultaneousRefreshesWins() {
        const QByteArray token = field(redeem(newCode()), "refresh_token");
        std::atomic<int> good = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&] { good += refresh(token).status == 200 ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(good.load(), 1);
    }

    void foreignHostNamesAreRefused() {
        HttpRequest made = request("GET", "/healthz");
        for (const char* host : {"evil.example", "evil.example:8642", "127.0.0.1.evil.example", ""}) {
            made.headers.front().second = host;
            QCOMPARE(service_->handle(made).status, 421);
        }
        for (const char* host : {"127.0.0.1", "localhost:8642", "LOCALHOST", "[::1]:8642"}) {
            made.headers.front().second = host;
            QCOMPARE(service_->handle(made).status, 200);
        }
    }
    void unknownPathsAndMethodsAreRefused() {
        QCOMPARE(get("/v1/nothing").status, 404);
        const HttpAnswer answer = get("/v1/rewrite");
        QCOMPARE(answer.status, 405);
        QVERIFY(answer.headers.contains(QPair<QByteArray, QByteArray>("Allow", "POST")));
    }
    void thePublishedPkceExampleHolds() { QCOMPARE(pkceChallenge(verifier), challenge); }
    void everyJwtDiffersFromTheOneBefore() {
        const SigningKey key{QStringLiteral("a"), "k"};
        const AccessClaims claims{1, {}, 5, 605, QStringLiteral("s")};
        QVERIFY(signAccessToken(claims, key) != signAccessToken(claims, key));
        QCOMPARE(accessTokenKeyId(signAccessToken(claims, key)), QStringLiteral("a"));
        QVERIFY(verifyAccessToken(signAccessToken(claims, key), key, 10));
        QVERIFY(!verifyAccessToken(signAccessToken(claims, key), {QStringLiteral("a"), "other"}, 10));
        QVERIFY(!verifyAccessToken(signAccessToken(claims, key), {QStringLiteral("b"), "k"}, 10));
        QVERIFY(!verifyAccessToken(signAccessToken(claims, key), key, 605));
    }
};

QTEST_GUILESS_MAIN(CorrectionServiceTest)
#include "tst_correction_service.moc"
