#include "TestDatabase.h"

#include "VellumlineService/Service/CorrectionService.h"
#include "VellumlineService/Service/Tokens.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>
#include <QUrl>
#include <atomic>
#include <thread>

using namespace vellumline;

namespace {

const QByteArray verifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
const QByteArray challenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
const QByteArray password = "correct horse battery";

class EchoEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString text) override { return {CorrectionResult::Status::corrected, text}; }
};

QByteArray headerOf(const HttpAnswer& answer, const QByteArray& name) {
    for (const auto& [key, value] : answer.headers) {
        if (key == name) {
            return value;
        }
    }
    return {};
}

QByteArray fieldOf(const HttpAnswer& answer, const char* name) {
    return QJsonDocument::fromJson(answer.body).object().value(QLatin1String(name)).toString().toLatin1();
}

/// The hidden token of the form with that action.
QByteArray tokenOf(const HttpAnswer& answer, const QByteArray& action) {
    const QRegularExpression form(QStringLiteral("action=\"%1\">.*?name=\"form_token\" value=\"([^\"]*)\"")
                                      .arg(QString::fromLatin1(action)),
                                  QRegularExpression::DotMatchesEverythingOption);
    return form.match(QString::fromUtf8(answer.body)).captured(1).toLatin1();
}

QByteArray encoded(const QByteArray& text) {
    return QUrl::toPercentEncoding(QString::fromUtf8(text));
}

} // namespace

/// Accounts with passwords, used as a browser does, on either database.
class AccountSiteTest : public QObject {
    Q_OBJECT

    /// A browser: it keeps cookies and says where a form comes from.
    struct Browser {
        AccountSiteTest& test;
        QByteArray address = "192.0.2.1";
        QMap<QByteArray, QByteArray> cookies = {};
        QByteArray origin = "https://corrections.example.org";

        HttpAnswer send(HttpRequest request) {
            request.headers.prepend({"host", "corrections.example.org"});
            request.peer = address;
            QByteArray line;
            for (auto cookie = cookies.begin(); cookie != cookies.end(); ++cookie) {
                line += (line.isEmpty() ? "" : "; ") + cookie.key() + '=' + cookie.value();
            }
            if (!line.isEmpty()) {
                request.headers.emplace_back("cookie", line);
            }
            const HttpAnswer answer = test.service_->handle(request);
            for (const auto& [name, value] : answer.headers) {
                if (name == "Set-Cookie") {
                    const QByteArray item = value.left(value.indexOf(';'));
                    const QByteArray key = item.left(item.indexOf('='));
                    if (value.contains("Max-Age=0")) {
                        cookies.remove(key);
                    } else {
                        cookies.insert(key, item.mid(key.size() + 1));
                    }
                }
            }
            return answer;
        }
        HttpAnswer get(const QByteArray& target) {
            HttpRequest request;
            request.method = "GET";
            const qsizetype question = target.indexOf('?');
            request.path = question < 0 ? target : target.left(question);
            request.query = question < 0 ? QByteArray() : target.mid(question + 1);
            return send(request);
        }
        HttpAnswer post(const QByteArray& path, const QByteArray& body) {
            HttpRequest request;
            request.method = "POST";
            request.path = path;
            request.headers = {{"content-type", "application/x-www-form-urlencoded"}, {"origin", origin}};
            request.body = body;
            return send(request);
        }
        HttpAnswer signIn(const QByteArray& email, const QByteArray& with = password,
                          const QByteArray& appChallenge = {}) {
            const QByteArray query = appChallenge.isEmpty() ? QByteArray() : "?app_challenge=" + appChallenge;
            const QByteArray token = tokenOf(get("/login/" + query), "/login/");
            return post("/login/", "email=" + encoded(email) + "&password=" + encoded(with) +
                                       "&form_token=" + token +
                                       (query.isEmpty() ? QByteArray() : "&app_challenge=" + appChallenge));
        }
        HttpAnswer registerWith(const QByteArray& email, const QByteArray& with = password,
                                const QByteArray& invitation = {}) {
            const QByteArray query = invitation.isEmpty() ? QByteArray() : "?invitation=" + invitation;
            const QByteArray token = tokenOf(get("/register/" + query), "/register/");
            return post("/register/", "email=" + encoded(email) + "&password=" + encoded(with) +
                                          "&form_token=" + token +
                                          (query.isEmpty() ? QByteArray() : "&invitation=" + invitation));
        }
        /// Presses a button of the account page.
        HttpAnswer press(const QByteArray& action, const QByteArray& more = {}) {
            return post(action, "form_token=" + tokenOf(get("/account/"), "/account/close") + more);
        }
    };
    friend struct Browser;

    QTemporaryDir folder_;
    QString address_;
    std::unique_ptr<Storage> storage_;
    EchoEngine engine_;
    ServiceSettings settings_;
    std::unique_ptr<CorrectionService> service_;
    std::atomic<qint64> now_ = 1'800'000'000'000;

    void serve() {
        service_ = std::make_unique<CorrectionService>(settings_, *storage_, engine_,
                                                       [this] { return now_.load(); });
    }
    HttpAnswer api(const QByteArray& method, const QByteArray& path, const QByteArray& body,
                   const QByteArray& token = {}) {
        HttpRequest request;
        request.method = method;
        request.path = path;
        request.headers = {{"host", "corrections.example.org"},
                           {"content-type", path.contains("oauth") ? "application/x-www-form-urlencoded"
                                                                   : "application/json"}};
        if (!token.isEmpty()) {
            request.headers.emplace_back("authorization", "Bearer " + token);
        }
        request.body = body;
        return service_->handle(request);
    }
    HttpAnswer redeem(const HttpAnswer& page) {
        const QByteArray code = QRegularExpression(QStringLiteral("handoff=([A-Za-z0-9_-]+)\""))
                                    .match(QString::fromUtf8(page.body))
                                    .captured(1)
                                    .toLatin1();
        return api("POST", "/v1/auth/handoff/redeem",
                   R"({"code":")" + code + R"(","code_verifier":")" + verifier + R"("})");
    }
    HttpAnswer rewrite(const QByteArray& token) {
        return api("POST", "/v1/rewrite", R"({"text":"a"})", token);
    }
    void addAccount(const QByteArray& email) {
        const auto made = storage_->registerAccount(
            QString::fromLatin1(email), Passwords(Passwords::Cost::least).hash(QString::fromLatin1(password)),
            settings_.newAccount, std::nullopt, now_ / 1000);
        QCOMPARE(made.outcome, Storage::Registered::done);
    }

  private Q_SLOTS:
    void init() {
        address_ = test::freshDatabase(folder_.path());
        QVERIFY2(!address_.isEmpty(), "no database to test with");
        storage_ = std::make_unique<Storage>(test::databaseAddress(address_));
        QVERIFY(!storage_->open());
        now_ = 1'800'000'000'000;
        settings_ = ServiceSettings();
        settings_.hosts = {QStringLiteral("corrections.example.org")};
        settings_.publicUrl = QUrl(QStringLiteral("https://corrections.example.org"));
        settings_.accounts = Accounts::password;
        settings_.registration = Registration::open;
        settings_.passwordCost = Passwords::Cost::least;
        serve();
    }
    void cleanup() {
        service_.reset();
        storage_.reset();
    }

    void somebodyRegistersSignsTheProgramInAndRewrites() {
        Browser browser{*this};
        const HttpAnswer registered = browser.registerWith("Ada@Example.org");
        QCOMPARE(registered.status, 303);
        QCOMPARE(headerOf(registered, "Location"), "/account/");
        const HttpAnswer page = browser.get("/login/?app_challenge=" + challenge);
        QVERIFY(page.body.contains("ada@example.org"));
        const HttpAnswer session = redeem(browser.post(
            "/login/", "app_challenge=" + challenge + "&form_token=" + tokenOf(page, "/login/")));
        QCOMPARE(session.status, 200);
        QCOMPARE(fieldOf(session, "email"), "ada@example.org");
        QVERIFY(fieldOf(session, "user_id").toLongLong() > 1);
        const QByteArray token = fieldOf(session, "access_token");
        QCOMPARE(rewrite(token).status, 200);
        const HttpAnswer account = api("GET", "/v1/account", {}, token);
        QCOMPARE(fieldOf(account, "plan"), "free");
        QVERIFY(account.body.contains("\"rewritesUsed\":1") && account.body.contains("\"freeRewrites\":30"));
    }
    void aProgramIsSignedInWithThePasswordInOneStep() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const HttpAnswer page = browser.signIn(" ADA@example.org ", password, challenge);
        QCOMPARE(page.status, 200);
        QCOMPARE(redeem(page).status, 200);
        QVERIFY(browser.get("/account/").body.contains("ada@example.org"));
    }
    void aWrongPasswordAndAnUnknownAddressLookTheSame() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const HttpAnswer wrong = browser.signIn("ada@example.org", "something else");
        const HttpAnswer unknown = browser.signIn("bob@example.org", "something else");
        QCOMPARE(wrong.status, 401);
        QCOMPARE(unknown.status, 401);
        QVERIFY(wrong.body.contains("role=\"alert\""));
        const auto withoutForm = [](QByteArray body) {
            return QString::fromUtf8(body).remove(QRegularExpression(QStringLiteral("value=\"[^\"]*\"")));
        };
        QCOMPARE(withoutForm(wrong.body), withoutForm(unknown.body));
        QCOMPARE(browser.signIn("ada@example.org").status, 303);
    }
    void passwordsAreStoredAsArgon2idOnly() {
        Browser browser{*this};
        browser.registerWith("ada@example.org");
        const QString hash = storage_->login(QStringLiteral("ada@example.org"))->passwordHash;
        QVERIFY(hash.startsWith(QStringLiteral("$argon2id$v=19$")));
        QVERIFY(!hash.contains(QString::fromLatin1(password)));
        const QString usual = Passwords().hash(QString::fromLatin1(password));
        QVERIFY2(usual.startsWith(QStringLiteral("$argon2id$v=19$m=65536,t=2,p=1$")), qPrintable(usual));
        QVERIFY(Passwords().matches(QString::fromLatin1(password), usual));
    }
    void shortPasswordsAndOddAddressesAreRefusedWithASentence() {
        Browser browser{*this};
        QVERIFY(browser.registerWith("ada@example.org", "short").body.contains("at least 10 characters"));
        QVERIFY(browser.registerWith("adaadaada@example.org", "adaadaada@example.org")
                    .body.contains("must not be the e-mail address"));
        for (const char* email : {"", "ada", "@example.org", "ada@", "a da@example.org", "<b>@example.org"}) {
            QCOMPARE(browser.registerWith(email).status, 400);
        }
        QCOMPARE(browser.registerWith("ada@example.org").status, 303);
        const HttpAnswer taken = Browser{*this}.registerWith("ADA@example.org");
        QCOMPARE(taken.status, 409);
        QVERIFY(taken.body.contains("already"));
    }
    void whatAVisitorTypesIsNeverMarkup() {
        Browser browser{*this};
        const HttpAnswer answer = browser.registerWith("\"><b>%1@example.org", "x");
        QCOMPARE(answer.status, 400);
        QVERIFY(!answer.body.contains("<b>"));
        QVERIFY(answer.body.contains("&lt;b&gt;"));
    }
    void guessingAPasswordHasToWait() {
        addAccount("ada@example.org");
        Browser browser{*this};
        for (int i = 0; i < AccountSite::attemptsOfOne; ++i) {
            QCOMPARE(browser.signIn("ada@example.org", "wrong password").status, 401);
        }
        const HttpAnswer refused = browser.signIn("ada@example.org");
        QCOMPARE(refused.status, 429);
        QCOMPARE(headerOf(refused, "Retry-After"), "900");
        // Who guesses shuts nobody else out.
        Browser owner{*this, "192.0.2.2"};
        QCOMPARE(owner.signIn("ada@example.org").status, 303);
        now_ += 901'000;
        QCOMPARE(browser.signIn("ada@example.org").status, 303);
    }
    void guessingManyAccountsFromOneAddressHasToWait() {
        Browser browser{*this};
        int refused = 0;
        for (int i = 0; i < AccountSite::attemptsOfAddress + 5; ++i) {
            refused += browser.signIn("user" + QByteArray::number(i) + "@example.org").status == 429 ? 1 : 0;
        }
        QCOMPARE(refused, 5);
    }
    void simultaneousGuessesCountToo() {
        addAccount("ada@example.org");
        std::atomic<int> looked = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 12; ++i) {
            threads.emplace_back([&] {
                Browser browser{*this};
                looked += browser.signIn("ada@example.org", "wrong password").status == 401 ? 1 : 0;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(looked.load(), int(AccountSite::attemptsOfOne));
    }
    void theAddressBehindAProxyIsTheOneThatTheProxyWrote() {
        settings_.trustedProxies = {QStringLiteral("192.0.2.9")};
        serve();
        addAccount("ada@example.org");
        const auto tryFrom = [&](const QByteArray& peer, const QByteArray& forwarded) {
            Browser browser{*this, peer};
            const QByteArray token = tokenOf(browser.get("/login/"), "/login/");
            HttpRequest request;
            request.method = "POST";
            request.path = "/login/";
            request.headers = {{"content-type", "application/x-www-form-urlencoded"},
                               {"x-forwarded-for", forwarded}};
            request.body = "email=ada%40example.org&password=wrong+password&form_token=" + token;
            return browser.send(request).status;
        };
        for (int i = 0; i < AccountSite::attemptsOfOne; ++i) {
            QCOMPARE(tryFrom("192.0.2.9", "10.0.0." + QByteArray::number(i) + ", 198.51.100.7"), 401);
        }
        QCOMPARE(tryFrom("192.0.2.9", "10.0.0.99, 198.51.100.7"), 429);
        QCOMPARE(tryFrom("192.0.2.9", "198.51.100.8"), 401);
        // Whoever is no proxy cannot choose an address.
        for (int i = 0; i < AccountSite::attemptsOfOne; ++i) {
            QCOMPARE(tryFrom("192.0.2.3", "198.51.100." + QByteArray::number(20 + i)), 401);
        }
        QCOMPARE(tryFrom("192.0.2.3", "198.51.100.99"), 429);
    }
    void anInvitationMakesOneAccount() {
        settings_.registration = Registration::invitation;
        serve();
        Browser browser{*this};
        QCOMPARE(browser.get("/register/").status, 403);
        QCOMPARE(browser.get("/register/?invitation=invented").status, 403);
        QVERIFY(!browser.get("/login/").body.contains("/register/"));
        QVERIFY(storage_->addOneTimeCode(Storage::Purpose::invitation, "code-for-ada",
                                         {0, QStringLiteral("ada@example.org")}, now_ / 1000 + 60));
        const HttpAnswer page = browser.get("/register/?invitation=code-for-ada");
        QVERIFY(page.body.contains("value=\"ada@example.org\" readonly"));
        QCOMPARE(browser.registerWith("eve@example.org", password, "code-for-ada").status, 403);
        QCOMPARE(browser.registerWith("ada@example.org", password, "code-for-ada").status, 303);
        QCOMPARE(Browser{*this}.get("/register/?invitation=code-for-ada").status, 403);
        QVERIFY(storage_->addOneTimeCode(Storage::Purpose::invitation, "late", {}, now_ / 1000));
        QCOMPARE(browser.get("/register/?invitation=late").status, 403);
        QCOMPARE(browser.get("/reset/?code=late").status, 403);
    }
    void aClosedRegistrationMakesNoAccount() {
        Browser browser{*this};
        const QByteArray token = tokenOf(browser.get("/register/"), "/register/");
        settings_.registration = Registration::closed;
        serve();
        QCOMPARE(browser.get("/register/").status, 403);
        QCOMPARE(browser
                     .post("/register/",
                           "email=ada%40example.org&password=" + encoded(password) + "&form_token=" + token)
                     .status,
                 403);
        QCOMPARE(storage_->login(QStringLiteral("ada@example.org"))->accountId, qint64{0});
    }
    void aNewPasswordEndsEverySession() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const QByteArray token =
            fieldOf(redeem(browser.signIn("ada@example.org", password, challenge)), "access_token");
        const qint64 id = storage_->login(QStringLiteral("ada@example.org"))->accountId;
        QVERIFY(storage_->addOneTimeCode(Storage::Purpose::passwordReset, "reset-code",
                                         {id, QStringLiteral("ada@example.org")}, now_ / 1000 + 86400));
        Browser other{*this};
        const QByteArray form = tokenOf(other.get("/reset/?code=reset-code"), "/reset/");
        QCOMPARE(other.post("/reset/", "code=reset-code&password=short&form_token=" + form).status, 400);
        const HttpAnswer done =
            other.post("/reset/", "code=reset-code&password=another+good+one&form_token=" + form);
        QCOMPARE(done.status, 303);
        QCOMPARE(headerOf(done, "Location"), "/login/");
        QCOMPARE(other.get("/reset/?code=reset-code").status, 403);
        QCOMPARE(rewrite(token).status, 401);
        QCOMPARE(headerOf(browser.get("/account/"), "Location"), "/login/");
        QCOMPARE(browser.signIn("ada@example.org").status, 401);
        QCOMPARE(browser.signIn("ada@example.org", "another good one").status, 303);
    }
    void aPasswordIsChangedWithThePresentOne() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        Browser other{*this};
        other.signIn("ada@example.org");
        QCOMPARE(browser.press("/account/password", "&old_password=wrong&password=another+good+one").status,
                 401);
        QCOMPARE(browser.press("/account/password", "&old_password=" + encoded(password) + "&password=short")
                     .status,
                 400);
        QCOMPARE(browser
                     .press("/account/password",
                            "&old_password=" + encoded(password) + "&password=another+good+one")
                     .status,
                 303);
        QCOMPARE(browser.get("/account/").status, 200);
        QCOMPARE(other.get("/account/").status, 303);
        QCOMPARE(Browser{*this}.signIn("ada@example.org", "another good one").status, 303);
    }
    void sessionsAreListedAndEnded() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const HttpAnswer session = redeem(browser.signIn("ada@example.org", password, challenge));
        const QByteArray token = fieldOf(session, "access_token");
        Browser other{*this};
        other.signIn("ada@example.org");
        const HttpAnswer page = browser.get("/account/");
        QVERIFY(page.body.contains("This browser") && page.body.contains("The Vellumline program") &&
                page.body.contains("A browser"));
        QCOMPARE(page.body.count("action=\"/account/sessions/end\""), 3);
        const qint64 id = storage_->login(QStringLiteral("ada@example.org"))->accountId;
        QString program;
        for (const auto& listed : storage_->sessions(id, now_ / 1000)) {
            program = listed.kind == Storage::Session::Kind::program ? listed.id : program;
        }
        QCOMPARE(rewrite(token).status, 200);
        QCOMPARE(browser.press("/account/sessions/end", "&session=" + program.toLatin1()).status, 303);
        QCOMPARE(rewrite(token).status, 401);
        QCOMPARE(api("POST", "/auth/oauth/token",
                     "grant_type=refresh_token&refresh_token=" + fieldOf(session, "refresh_token"))
                     .status,
                 400);
        QCOMPARE(other.get("/account/").status, 200);
        QCOMPARE(browser.press("/account/sessions/end").status, 303);
        QCOMPARE(other.get("/account/").status, 303);
        QCOMPARE(browser.get("/account/").status, 200);
        QCOMPARE(browser.press("/logout").status, 303);
        QCOMPARE(browser.get("/account/").status, 303);
    }
    void nobodyEndsTheSessionOfAnother() {
        addAccount("ada@example.org");
        addAccount("eve@example.org");
        Browser ada{*this};
        const QByteArray token =
            fieldOf(redeem(ada.signIn("ada@example.org", password, challenge)), "access_token");
        const qint64 id = storage_->login(QStringLiteral("ada@example.org"))->accountId;
        Browser eve{*this};
        eve.signIn("eve@example.org");
        for (const auto& session : storage_->sessions(id, now_ / 1000)) {
            eve.press("/account/sessions/end", "&session=" + session.id.toLatin1());
        }
        QCOMPARE(rewrite(token).status, 200);
        QCOMPARE(ada.get("/account/").status, 200);
    }
    void anAccountIsClosedAndReopened() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const QByteArray token =
            fieldOf(redeem(browser.signIn("ada@example.org", password, challenge)), "access_token");
        QCOMPARE(browser.press("/account/close").status, 303);
        QCOMPARE(fieldOf(rewrite(token), "error"), "account closed");
        const HttpAnswer page = browser.get("/account/");
        QVERIFY(page.body.contains("This account is closed"));
        QCOMPARE(browser.post("/account/reopen", "form_token=" + tokenOf(page, "/account/reopen")).status,
                 303);
        QCOMPARE(rewrite(token).status, 200);
    }
    void plansAreOfferedWhereTheyAreSold() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        QVERIFY(browser.get("/plan/").body.contains("sells no plans"));
        settings_.monthlyCheckoutUrl = QStringLiteral("https://pay.example.org/m?a=1&b=2");
        settings_.yearlyCheckoutUrl = QStringLiteral("https://pay.example.org/y");
        serve();
        QVERIFY(browser.get("/plan/").body.contains("href=\"https://pay.example.org/m?a=1&amp;b=2\""));
        const QByteArray yearly = browser.get("/account/?plan=yearly").body;
        QVERIFY(yearly.contains("https://pay.example.org/y") &&
                !yearly.contains("https://pay.example.org/m"));
    }

    void everyFormNeedsItsOwnToken_data() {
        QTest::addColumn<QByteArray>("path");
        for (const char* path : {"/login/", "/logout", "/register/", "/reset/", "/account/reopen",
                                 "/account/close", "/account/password", "/account/sessions/end"}) {
            QTest::newRow(path) << QByteArray(path);
        }
    }
    void everyFormNeedsItsOwnToken() {
        QFETCH(QByteArray, path);
        addAccount("ada@example.org");
        Browser ada{*this};
        ada.signIn("ada@example.org");
        Browser eve{*this};
        const QByteArray evesVisit = tokenOf(eve.get("/login/"), "/login/");
        addAccount("eve@example.org");
        eve.signIn("eve@example.org");
        const QByteArray evesAccount = tokenOf(eve.get("/account/"), "/account/close");
        const QByteArray body = "email=eve%40example.org&password=" + encoded(password) +
                                "&old_password=" + encoded(password) + "&code=x&session=x&form_token=";
        for (const QByteArray& token :
             {QByteArray("x"), QByteArray("9999999999.a.b"), evesVisit, evesAccount}) {
            const HttpAnswer answer = ada.post(path, body + token);
            QVERIFY2(answer.status == 403, qPrintable(QString::number(answer.status)));
        }
        QVERIFY(ada.get("/account/").body.contains("ada@example.org"));
        QVERIFY(!storage_->accounts().first().closed);
    }
    void aFormFromAnotherSiteIsRefusedEvenWithItsToken() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        const QByteArray token = tokenOf(browser.get("/account/"), "/account/close");
        for (const char* origin :
             {"https://evil.example", "null", "https://corrections.example.org.evil.example",
              "https://corrections.example.org:444"}) {
            browser.origin = origin;
            QCOMPARE(browser.post("/account/close", "form_token=" + token).status, 403);
        }
        HttpRequest request;
        request.method = "POST";
        request.path = "/account/close";
        request.headers = {{"content-type", "application/x-www-form-urlencoded"},
                           {"sec-fetch-site", "cross-site"}};
        request.body = "form_token=" + token;
        QCOMPARE(browser.send(request).status, 403);
        browser.origin = "https://corrections.example.org";
        QCOMPARE(browser.post("/account/close", "form_token=" + token).status, 303);
    }
    void aFormTokenEndsAfterTenMinutes() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        const QByteArray token = tokenOf(browser.get("/account/"), "/account/close");
        now_ += 600'000;
        QCOMPARE(browser.post("/account/close", "form_token=" + token).status, 403);
    }
    void cookiesAreForThisHostOverTlsAndForNoScript() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const QByteArray cookie = headerOf(browser.signIn("ada@example.org"), "Set-Cookie");
        QVERIFY2(cookie.startsWith("__Host-vellumline_session="), cookie.constData());
        for (const char* word : {"; Secure", "; HttpOnly", "; SameSite=Lax", "; Path=/;"}) {
            QVERIFY2(cookie.contains(word), word);
        }
        QVERIFY(!cookie.contains("Domain"));
        const QByteArray value = cookie.mid(cookie.indexOf('=') + 1, 43);
        Database look(test::databaseAddress(address_));
        auto answer = look.run("SELECT token_hash FROM browser_sessions");
        QVERIFY(answer.next());
        QCOMPARE(answer.text(0), secretHash(value));
    }
    void aSessionThatSomebodyElsePutIntoTheBrowserIsNotTakenOver() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.cookies.insert("__Host-vellumline_session", QByteArray(43, 'A'));
        QCOMPARE(browser.signIn("ada@example.org").status, 303);
        QVERIFY(browser.cookies.value("__Host-vellumline_session") != QByteArray(43, 'A'));
    }
    void aBrowserIsForgottenAfterThirtyDaysWithoutUse() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        now_ += qint64{20} * 86400 * 1000;
        QCOMPARE(browser.get("/account/").status, 200);
        now_ += qint64{20} * 86400 * 1000;
        QCOMPARE(browser.get("/account/").status, 200);
        now_ += qint64{31} * 86400 * 1000;
        QCOMPARE(browser.get("/account/").status, 303);
    }
    void nothingInAnAddressSendsABrowserElsewhere() {
        addAccount("ada@example.org");
        Browser browser{*this};
        for (const char* name : {"next", "return", "redirect", "redirect_uri", "url", "continue"}) {
            const QByteArray query = QByteArray(name) + "=https%3A%2F%2Fevil.example%2F";
            const QByteArray login = browser.get("/login/?" + query).body;
            QVERIFY(!login.contains("evil.example"));
            const QByteArray token = tokenOf(browser.get("/login/?" + query), "/login/");
            const HttpAnswer answer =
                browser.post("/login/", "email=ada%40example.org&password=" + encoded(password) +
                                            "&form_token=" + token + '&' + query);
            QCOMPARE(headerOf(answer, "Location"), "/account/");
            browser.cookies.clear();
        }
        QCOMPARE(headerOf(browser.get("/account/?plan=//evil.example"), "Location"), "/login/");
        QCOMPARE(headerOf(browser.get("//evil.example/"), "Location"), QByteArray());
        QCOMPARE(browser.get("/login/?app_challenge=//evil.example").status, 400);
    }
    void everyPageForbidsFramesScriptsAndForeignResources() {
        addAccount("ada@example.org");
        Browser browser{*this};
        QVERIFY(
            storage_->addOneTimeCode(Storage::Purpose::passwordReset, "c", {2, QString()}, now_ / 1000 + 9));
        QList<HttpAnswer> pages = {browser.get("/login/"), browser.get("/register/"),
                                   browser.get("/reset/?code=c"), browser.get("/login/?app_challenge=x"),
                                   browser.get("/account/")};
        pages.append(browser.signIn("ada@example.org", password, challenge));
        pages.append(browser.get("/login/?app_challenge=" + challenge));
        pages.append(browser.get("/account/"));
        pages.append(browser.get("/plan/"));
        for (const HttpAnswer& page : pages) {
            const QByteArray policy = headerOf(page, "Content-Security-Policy");
            QVERIFY(policy.startsWith("default-src 'none'; style-src 'sha256-"));
            QVERIFY(policy.contains("frame-ancestors 'none'") && policy.contains("form-action 'self'") &&
                    policy.contains("base-uri 'none'") && !policy.contains("unsafe"));
            QCOMPARE(headerOf(page, "X-Frame-Options"), "DENY");
            QCOMPARE(headerOf(page, "Referrer-Policy"), "same-origin");
            QVERIFY(!page.body.contains("<script") && !page.body.contains(" style=") &&
                    !page.body.contains("onclick") && !page.body.contains("src="));
            QVERIFY(page.body.contains("<html lang=\"en\">") && page.body.count("<h1>") == 1);
            // Every field that people fill in has a label.
            const QRegularExpression field(QStringLiteral("<input id=\"([^\"]+)\""));
            auto fields = field.globalMatch(QString::fromUtf8(page.body));
            while (fields.hasNext()) {
                const QString id = fields.next().captured(1);
                QVERIFY2(page.body.contains("<label for=\"" + id.toUtf8() + "\">"), qPrintable(id));
            }
        }
    }
    void foreignHostNamesAreRefused() {
        HttpRequest request;
        request.method = "GET";
        request.path = "/login/";
        for (const char* host : {"evil.example", "corrections.example.org.evil.example", "127.0.0.1", ""}) {
            request.headers = {{"host", host}};
            QCOMPARE(service_->handle(request).status, 421);
        }
        request.headers = {{"host", "Corrections.example.org:443"}};
        QCOMPARE(service_->handle(request).status, 200);
    }

    void anotherProcessVerifiesWhatThisOneSigned() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const QByteArray first =
            fieldOf(redeem(browser.signIn("ada@example.org", password, challenge)), "access_token");
        CorrectionService other(settings_, *storage_, engine_, [this] { return now_.load(); });
        HttpRequest request;
        request.method = "GET";
        request.path = "/v1/account";
        request.headers = {{"host", "corrections.example.org"}, {"authorization", "Bearer " + first}};
        QCOMPARE(other.handle(request).status, 200);
    }
    void keysRotateAndOldOnesVerifyUntilTheirTokensHaveExpired() {
        KeyRing ring(*storage_, 1000, 600);
        KeyRing other(*storage_, 1000, 600);
        const SigningKey first = *ring.current(10'000);
        QCOMPARE(ring.current(10'999)->id, first.id);
        QCOMPARE(other.current(10'999)->id, first.id);
        const SigningKey second = *ring.current(11'000);
        QVERIFY(second.id != first.id);
        QCOMPARE(second.createdAt, qint64{11'000});
        // The other process signs with its own idea of the newest, and knows both.
        QCOMPARE(other.current(11'000)->id, second.id);
        QCOMPARE(other.find(first.id, 11'599)->secret, first.secret);
        QVERIFY(!other.find(first.id, 11'600));
        QVERIFY(!ring.find(first.id, 11'600));
        QVERIFY(!ring.find(QStringLiteral("invented"), 11'600));
        ring.current(13'500);
        QCOMPARE(storage_->signingKeys()->size(), 1);
        KeyRing late(*storage_, 1000, 600);
        QVERIFY(late.find(ring.current(13'500)->id, 13'500));
    }
    void aTokenOfARotatedKeyIsGoodUntilItExpires() {
        settings_.keySeconds = 1000;
        serve();
        addAccount("ada@example.org");
        Browser browser{*this};
        const HttpAnswer session = redeem(browser.signIn("ada@example.org", password, challenge));
        now_ += 900'000;
        const QByteArray access =
            fieldOf(api("POST", "/auth/oauth/token",
                        "grant_type=refresh_token&refresh_token=" + fieldOf(session, "refresh_token")),
                    "access_token");
        now_ += 599'000;
        QVERIFY(!browser.get("/account/").body.isEmpty());
        QCOMPARE(storage_->signingKeys()->size(), 2);
        QCOMPARE(rewrite(access).status, 200);
        now_ += 1'000;
        QCOMPARE(rewrite(access).status, 401);
    }
};

QTEST_GUILESS_MAIN(AccountSiteTest)
#include "tst_account_site.moc"
