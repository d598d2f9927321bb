#include "TestSite.h"

#include <QElapsedTimer>
#include <algorithm>
#include <functional>
#include <limits>

using namespace vellumline;
using namespace vellumline::test;

/// What somebody would try against the service, by name; each is refused. Attacks on the bytes of HTTP stand
/// with the parser, and those that need a real browser in web_pages.py.
class AttacksTest : public QObject, private Site {
    Q_OBJECT

    using Routes = QList<std::pair<QByteArray, QByteArray>>;
    static Routes routes() {
        return {{"GET", "/"},
                {"GET", "/login/"},
                {"GET", "/register/"},
                {"GET", "/reset/"},
                {"GET", "/account/"},
                {"GET", "/plan/"},
                {"GET", "/healthz"},
                {"GET", "/readyz"},
                {"GET", "/metrics"},
                {"GET", "/v1/account"},
                {"POST", "/login/"},
                {"POST", "/account/close"},
                {"POST", "/v1/rewrite"},
                {"POST", "/v1/auth/handoff/redeem"},
                {"POST", "/auth/oauth/token"},
                {"OPTIONS", "/v1/rewrite"},
                {"OPTIONS", "/account/close"},
                {"GET", "/nowhere"}};
    }
    HttpRequest plainRequest(const QByteArray& method, const QByteArray& path) {
        HttpRequest request;
        request.method = method;
        request.path = path;
        return request;
    }
    /// What each takes at the least of several times, in nanoseconds. They take turns, so that what else the
    /// machine does meets all of them.
    static std::vector<qint64> leastTimes(const std::vector<std::function<void()>>& works) {
        std::vector<qint64> least(works.size(), std::numeric_limits<qint64>::max());
        for (int i = 0; i < 15; ++i) {
            for (size_t which = 0; which < works.size(); ++which) {
                QElapsedTimer timer;
                timer.start();
                works[which]();
                least[which] = std::min(least[which], timer.nsecsElapsed());
            }
        }
        return least;
    }
    static bool isComparable(qint64 one, qint64 other) { return one > other / 3 && one < other * 3; }

  private Q_SLOTS:
    void init() { QVERIFY2(begin(), "no database to test with"); }
    void cleanup() { end(); }

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
    void nobodyEndsTheSessionOfAnother() {
        addAccount("ada@example.org");
        addAccount("eve@example.org");
        Browser ada{*this};
        const QByteArray token =
            fieldOf(redeem(ada.signIn("ada@example.org", password, challenge)), "access_token");
        const qint64 id = storage_->login(QStringLiteral("ada@example.org"))->accountId;
        Browser eve{*this};
        eve.signIn("eve@example.org");
        const auto sessions = storage_->sessions(id, now_ / 1000);
        QVERIFY(sessions && !sessions->isEmpty());
        for (const auto& session : *sessions) {
            eve.press("/account/sessions/end", "&session=" + session.id.toLatin1());
        }
        QCOMPARE(rewrite(token).status, 200);
        QCOMPARE(ada.get("/account/").status, 200);
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
        QVERIFY(!storage_->accounts()->first().closed);
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
    void aPasswordIsNotGuessedFromManyAddresses() {
        addAccount("ada@example.org");
        int looked = 0;
        for (int i = 0; i < AccountSite::attemptsForAccount + 10; ++i) {
            Browser browser{*this, "198.51.100." + QByteArray::number(i)};
            looked += browser.signIn("ada@example.org", "wrong password").status == 401 ? 1 : 0;
        }
        QCOMPARE(looked, int(AccountSite::attemptsForAccount));
        // The price: nobody else signs in for the rest of the quarter hour. Who is signed in stays it.
        QCOMPARE((Browser{*this, "203.0.113.1"}.signIn("ada@example.org").status), 429);
        now_ += 901'000;
        QCOMPARE((Browser{*this, "203.0.113.1"}.signIn("ada@example.org").status), 303);
    }
    void theAddressesOfOneIpv6NetworkCountAsOne() {
        addAccount("ada@example.org");
        for (int i = 0; i < AccountSite::attemptsOfOne; ++i) {
            Browser browser{*this, "2001:db8:0:7::" + QByteArray::number(i)};
            QCOMPARE(browser.signIn("ada@example.org", "wrong password").status, 401);
        }
        QCOMPARE((Browser{*this, "2001:db8:0:7:a:b:c:d"}.signIn("ada@example.org").status), 429);
        QCOMPARE((Browser{*this, "2001:db8:0:8::1"}.signIn("ada@example.org").status), 303);
        QCOMPARE((Browser{*this, "::ffff:192.0.2.77"}.signIn("ada@example.org", "wrong").status), 401);
        QCOMPARE((Browser{*this, "::ffff:192.0.2.78"}.signIn("ada@example.org").status), 303);
    }
    void thePresentPasswordIsNotGuessedFromASignedInBrowser() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        const auto change = [&](const QByteArray& old) {
            return browser
                .press("/account/password", "&old_password=" + encoded(old) + "&password=another+long+one")
                .status;
        };
        for (int i = 0; i < AccountSite::attemptsOfOne; ++i) {
            QCOMPARE(change("wrong password"), 401);
        }
        QCOMPARE(change(password), 429);
    }
    void anUnknownAddressTakesAsLongAsAWrongPassword() {
        // The hash of the usual cost takes some 50 ms, and everything else together less than one.
        const Passwords passwords;
        const QString hash = passwords.hash(QString::fromLatin1(password));
        const QString guess = QStringLiteral("wrong password");
        const auto times =
            leastTimes({[&] { QVERIFY(!passwords.matches(guess, hash)); },
                        [&] { QVERIFY(!passwords.matches(guess, QString())); },
                        [&] { QVERIFY(passwords.matches(QString::fromLatin1(password), hash)); }});
        QVERIFY2(isComparable(times[0], times[1]),
                 qPrintable(QStringLiteral("%1 and %2").arg(times[0]).arg(times[1])));
        QVERIFY(isComparable(times[0], times[2]));
    }
    void secretsAreComparedInTheSameTimeWhereverTheyDiffer() {
        const QByteArray secret(4'000'000, 'a');
        QByteArray early = secret;
        early[0] = 'b';
        QByteArray late = secret;
        late[late.size() - 1] = 'b';
        // A comparison that stops at the first difference would be a thousand times as fast with the first.
        const auto times = leastTimes({[&] { QVERIFY(!equalInConstantTime(secret, early)); },
                                       [&] { QVERIFY(!equalInConstantTime(secret, late)); }});
        QVERIFY2(isComparable(times[0], times[1]),
                 qPrintable(QStringLiteral("%1 and %2").arg(times[0]).arg(times[1])));
    }
    void everyOtherSecretIsLookedUpByItsHashOnly() {
        // What an index tells by its time is then about a hash that nobody can choose.
        addAccount("ada@example.org");
        Browser browser{*this};
        const HttpAnswer session = redeem(browser.signIn("ada@example.org", password, challenge));
        QVERIFY(
            storage_->addOneTimeCode(Storage::Purpose::invitation, "invitation-code", {}, now_ / 1000 + 9));
        const QByteArrayList secrets = {fieldOf(session, "refresh_token"),
                                        browser.cookies.value("__Host-vellumline_session"), "invitation-code",
                                        password};
        Database look(databaseAddress(address_));
        QString everything;
        for (const char* statement :
             {"SELECT token_hash, family_id FROM refresh_tokens", "SELECT id, id FROM families",
              "SELECT token_hash, id FROM browser_sessions", "SELECT code_hash, email FROM one_time_codes",
              "SELECT code_hash, challenge FROM handoffs", "SELECT email, password_hash FROM logins",
              "SELECT subject, subject FROM attempts"}) {
            auto answer = look.run(statement);
            while (answer.next()) {
                everything += answer.text(0) + u'\n' + answer.text(1) + u'\n';
            }
        }
        for (const QByteArray& secret : secrets) {
            QVERIFY(secret.size() > 10);
            QVERIFY2(!everything.contains(QString::fromLatin1(secret)), secret.constData());
        }
        QVERIFY(everything.contains(secretHash(secrets.first())));
    }
    void aForgedTokenOpensNothing() {
        addAccount("ada@example.org");
        Browser browser{*this};
        const QByteArray token =
            fieldOf(redeem(browser.signIn("ada@example.org", password, challenge)), "access_token");
        QCOMPARE(rewrite(token).status, 200);
        const QByteArrayList pieces = token.split('.');
        const QByteArray claims = QByteArray::fromBase64(pieces.at(1), QByteArray::Base64UrlEncoding)
                                      .replace("\"sub\":\"2\"", "\"sub\":\"1\"");
        const QByteArray head = QByteArray::fromBase64(pieces.at(0), QByteArray::Base64UrlEncoding);
        const SigningKey empty{QStringLiteral("k"), {}, now_ / 1000};
        for (const QByteArray& forged :
             {pieces.at(0) + '.' + base64Url(claims) + '.' + pieces.at(2),
              pieces.at(0) + '.' + pieces.at(1) + '.',
              base64Url(QByteArray(head).replace("HS256", "none")) + '.' + pieces.at(1) + '.',
              base64Url(QByteArray(head).replace("HS256", "RS256")) + '.' + pieces.at(1) + '.' + pieces.at(2),
              signAccessToken({2, {}, 0, now_ / 1000 + 600, {}}, empty), QByteArray("."), QByteArray(".."),
              QByteArray(100'000, 'a')}) {
            QCOMPARE(rewrite(forged).status, 401);
        }
    }
    void noAnswerAllowsAnotherOrigin() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        for (const auto& [method, path] : routes()) {
            HttpRequest request = plainRequest(method, path);
            request.headers = {{"origin", "https://evil.example"},
                               {"sec-fetch-site", "cross-site"},
                               {"access-control-request-method", "POST"},
                               {"access-control-request-headers", "authorization"}};
            const HttpAnswer answer = browser.send(request);
            for (const auto& [name, value] : answer.headers) {
                QVERIFY2(!name.toLower().startsWith("access-control-"), path.constData());
                QVERIFY2(!value.contains("evil"), path.constData());
            }
            QVERIFY2(!answer.body.contains("evil"), path.constData());
            if (method == "OPTIONS") {
                QCOMPARE(answer.status, 405);
            }
        }
    }
    void aFormOfAnotherOriginReachesNoEndpointOfTheProgram() {
        // A page can send these types anywhere without asking first; none of them is taken for JSON.
        addAccount("ada@example.org");
        Browser browser{*this};
        const QByteArray token =
            fieldOf(redeem(browser.signIn("ada@example.org", password, challenge)), "access_token");
        for (const char* type :
             {"text/plain", "application/x-www-form-urlencoded", "multipart/form-data", ""}) {
            for (const char* path : {"/v1/rewrite", "/v1/auth/handoff/redeem"}) {
                HttpRequest request = plainRequest("POST", path);
                request.headers = {{"content-type", type}, {"authorization", "Bearer " + token}};
                request.body = R"({"text":"a","code":"a","code_verifier":"a"})";
                QCOMPARE(browser.send(request).status, 415);
            }
        }
        // Without its token a request is nobody's: a cookie opens pages only.
        for (const char* path : {"/v1/account", "/v1/rewrite"}) {
            HttpRequest request = plainRequest(QByteArray(path).endsWith("rewrite") ? "POST" : "GET", path);
            request.headers = {{"content-type", "application/json"}};
            request.body = R"({"text":"a"})";
            QCOMPARE(browser.send(request).status, 401);
        }
    }
    void theUnencryptedPageOfThePublicNameIsAnotherOrigin() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        const QByteArray token = tokenOf(browser.get("/account/"), "/account/close");
        browser.origin = "http://corrections.example.org";
        QCOMPARE(browser.post("/account/close", "form_token=" + token).status, 403);
        QVERIFY(!storage_->account(2)->closed);
    }
    void aWebPageWhoseNamePointsHereIsNotAnswered() {
        settings_ = ServiceSettings();
        serve();
        for (const auto& [method, path] : routes()) {
            HttpRequest request = plainRequest(method, path);
            for (const char* host :
                 {"evil.example", "evil.example:8642", "127.0.0.1.evil.example", "localhost.evil.example",
                  "127.0.0.1@evil.example", "[::1].evil.example", ""}) {
                request.headers = {{"host", host}};
                QCOMPARE(service_->handle(request).status, 421);
            }
        }
    }
    void noHeaderPutsAnotherHostIntoAPage() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        for (const auto& [method, path] : routes()) {
            HttpRequest request = plainRequest(method, path);
            request.headers = {{"x-forwarded-host", "evil.example"}, {"x-forwarded-server", "evil.example"},
                               {"x-forwarded-proto", "evil"},        {"forwarded", "host=evil.example"},
                               {"x-original-url", "/evil.example"},  {"referer", "https://evil.example/"}};
            const HttpAnswer answer = browser.send(request);
            QVERIFY2(!answer.body.contains("evil"), path.constData());
            QVERIFY2(!headerOf(answer, "Location").contains("evil"), path.constData());
            QVERIFY2(!answer.body.contains("http://") && !answer.body.contains("https://"), path.constData());
        }
    }
    void noParameterBecomesMarkupOrAHeader_data() {
        QTest::addColumn<QByteArray>("text");
        for (const char* text :
             {"\"><b>evil</b>", "'><b>evil", "</title><b>evil", "%1<b>evil", "javascript:evil",
              "a\r\nSet-Cookie: evil=1", "a\nLocation: https://evil.example", "\\\"><b>evil"}) {
            QTest::newRow(text) << QByteArray(text);
        }
    }
    void noParameterBecomesMarkupOrAHeader() {
        QFETCH(QByteArray, text);
        addAccount("ada@example.org");
        Browser browser{*this};
        const auto harmless = [&](const HttpAnswer& answer) {
            QVERIFY2(!answer.body.contains("<b>"), answer.body.constData());
            QVERIFY(!answer.body.contains("href=\"javascript:") && !answer.body.contains("url=javascript:"));
            for (const auto& [name, value] : answer.headers) {
                QVERIFY2(!value.contains("evil") && !value.contains('\r') && !value.contains('\n'),
                         name.constData());
            }
        };
        const QByteArray typed = encoded(text);
        const QByteArray query = "?app_challenge=" + typed + "&invitation=" + typed + "&code=" + typed +
                                 "&plan=" + typed + "&email=" + typed + "&" + typed + "=1";
        const QByteArray form = query.mid(1) + "&password=" + typed + "&session=" + typed;
        for (int round = 0; round < 2; ++round) {
            for (const char* path : {"/", "/login/", "/register/", "/reset/", "/account/", "/plan/"}) {
                harmless(browser.get(path + query));
            }
            harmless(browser.get("/" + typed));
            for (const char* path : {"/login/", "/register/", "/reset/", "/logout", "/account/close",
                                     "/account/password", "/account/sessions/end"}) {
                harmless(browser.post(path, form));
                harmless(browser.post(
                    path, form + "&form_token=" + tokenOf(browser.get("/account/"), "/account/close")));
                harmless(
                    browser.post(path, form + "&form_token=" + tokenOf(browser.get("/login/"), "/login/")));
            }
            harmless(browser.signIn(text));
            harmless(browser.registerWith(text));
            browser.cookies.clear();
            browser.signIn("ada@example.org");
        }
    }
    void anOldCookieIsWorthNothingAfterSigningOutOrANewPassword() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        Browser thief{*this};
        thief.cookies = browser.cookies;
        QCOMPARE(thief.get("/account/").status, 200);
        QCOMPARE(browser.press("/logout").status, 303);
        QCOMPARE(thief.get("/account/").status, 303);
        browser.signIn("ada@example.org");
        Browser second{*this};
        second.signIn("ada@example.org");
        thief.cookies = second.cookies;
        QCOMPARE(browser
                     .press("/account/password",
                            "&old_password=" + encoded(password) + "&password=another+long+one")
                     .status,
                 303);
        QCOMPARE(thief.get("/account/").status, 303);
        QCOMPARE(browser.get("/account/").status, 200);
    }
    void aLinkForANewPasswordWorksOnceEvenForTwoAtOnce() {
        addAccount("ada@example.org");
        QVERIFY(storage_->addOneTimeCode(Storage::Purpose::passwordReset, "code",
                                         {2, QStringLiteral("ada@example.org")}, now_ / 1000 + 60));
        std::atomic<int> done = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&, i] {
                Browser browser{*this, "192.0.2." + QByteArray::number(i + 1)};
                const QByteArray token = tokenOf(browser.get("/reset/?code=code"), "/reset/");
                done += browser.post("/reset/", "code=code&password=new+password+" + QByteArray::number(i) +
                                                    "&form_token=" + token)
                                    .status == 303
                            ? 1
                            : 0;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(done.load(), 1);
    }
    void aPasswordTooLongToBeOneIsNotHashed() {
        addAccount("ada@example.org");
        Browser browser{*this};
        QCOMPARE(browser.signIn("ada@example.org", QByteArray(200'000, 'a')).status, 401);
        QCOMPARE(browser.registerWith("eve@example.org", QByteArray(200'000, 'a')).status, 400);
    }
};

QTEST_GUILESS_MAIN(AttacksTest)
#include "tst_attacks.moc"
