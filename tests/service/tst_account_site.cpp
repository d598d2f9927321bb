#include "TestSite.h"

using namespace vellumline;
using namespace vellumline::test;

/// Accounts with passwords, used as a browser does, on either database.
class AccountSiteTest : public QObject, private Site {
    Q_OBJECT

  private Q_SLOTS:
    void init() { QVERIFY2(begin(), "no database to test with"); }
    void cleanup() { end(); }

    void thePagesBearTheProgramsMark() {
        QFile icon(QStringLiteral(QT_TESTCASE_SOURCEDIR
                                  "/../../packaging/icons/com.kelthorne.Vellumline-symbolic.svg"));
        QVERIFY(icon.open(QIODevice::ReadOnly));
        const QByteArray svg = icon.readAll();
        const auto path = svg.indexOf(" d=\"");
        QVERIFY(path > 0);
        Browser browser{*this};
        QVERIFY(browser.get("/login/?app_challenge=" + challenge)
                    .body.contains(svg.mid(path, svg.indexOf('"', path + 4) - path)));
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
        const auto login = storage_->login(QStringLiteral("ada@example.org"));
        QVERIFY(!login && !login.failed());
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
        const auto sessions = storage_->sessions(id, now_ / 1000);
        QVERIFY(sessions);
        for (const auto& listed : *sessions) {
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
    void aKeyThatCannotBeLookedForIsNotUnknown() {
        KeyRing ring(*storage_, 1000, 600);
        {
            const TableAway away(address_, QStringLiteral("signing_keys"));
            // More often than a ring asks the database in a second.
            for (int i = 0; i < 30; ++i) {
                QVERIFY(ring.find(QStringLiteral("invented"), 10'000).failed());
            }
            QVERIFY(!ring.current(10'000));
        }
        const auto invented = ring.find(QStringLiteral("invented"), 10'001);
        QVERIFY(!invented && !invented.failed());
        QVERIFY(ring.current(10'001));
    }
    void aDatabaseThatFailsSignsNoBrowserOut_data() {
        QTest::addColumn<QString>("table");
        for (const char* table : {"accounts", "browser_sessions", "signing_keys"}) {
            QTest::newRow(table) << QString::fromLatin1(table);
        }
    }
    void aDatabaseThatFailsSignsNoBrowserOut() {
        QFETCH(QString, table);
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        const HttpAnswer page = browser.get("/account/");
        const QByteArray form = "form_token=" + tokenOf(page, "/account/close");
        const auto cookies = browser.cookies;
        {
            const TableAway away(address_, table);
            serve(); // as another process, which has no key yet
            for (const QByteArray& path : {QByteArray("/account/"), "/login/?app_challenge=" + challenge}) {
                const HttpAnswer answer = browser.get(path);
                QCOMPARE(answer.status, 503);
                QVERIFY(answer.body.contains("cannot read its data"));
            }
            for (const char* path : {"/account/close", "/account/password", "/account/sessions/end",
                                     "/logout", "/login/", "/register/", "/reset/"}) {
                const QByteArray more =
                    path == QByteArray("/login/") ? "&app_challenge=" + challenge : QByteArray();
                QCOMPARE(browser.post(path, form + more).status, 503);
            }
        }
        QCOMPARE(browser.cookies, cookies);
        const HttpAnswer again = browser.get("/account/");
        QCOMPARE(again.status, 200);
        QVERIFY(again.body.contains("ada@example.org") && !again.body.contains("This account is closed"));
        QCOMPARE(browser.post("/account/close", form).status, 303);
    }
    void whatAPageCannotReadIsNotMissing_data() {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QByteArray>("path");
        QTest::newRow("the links to buy a plan") << QStringLiteral("settings") << QByteArray("/plan/");
        QTest::newRow("the same on the account") << QStringLiteral("settings") << QByteArray("/account/");
        QTest::newRow("the sessions") << QStringLiteral("families") << QByteArray("/account/");
        QTest::newRow("the invitation")
            << QStringLiteral("one_time_codes") << QByteArray("/register/?invitation=code");
        QTest::newRow("the code for a new password")
            << QStringLiteral("one_time_codes") << QByteArray("/reset/?code=code");
    }
    void whatAPageCannotReadIsNotMissing() {
        QFETCH(QString, table);
        QFETCH(QByteArray, path);
        addAccount("ada@example.org");
        QVERIFY(storage_->addOneTimeCode(Storage::Purpose::passwordReset, "code", {2, QString()},
                                         now_ / 1000 + 60));
        Browser browser{*this};
        browser.signIn("ada@example.org");
        {
            const TableAway away(address_, table);
            QCOMPARE(browser.get(path).status, 503);
        }
        QVERIFY(browser.get(path).status != 503);
    }
    void aSignInThatCannotBeLookedUpIsNoWrongPasswordAndNoTry_data() {
        QTest::addColumn<QString>("table");
        for (const char* table : {"attempts", "logins", "accounts", "browser_sessions"}) {
            QTest::newRow(table) << QString::fromLatin1(table);
        }
    }
    void aSignInThatCannotBeLookedUpIsNoWrongPasswordAndNoTry() {
        QFETCH(QString, table);
        addAccount("ada@example.org");
        Browser browser{*this};
        {
            const TableAway away(address_, table);
            QCOMPARE(browser.signIn("ada@example.org").status, 503);
        }
        QCOMPARE(browser.signIn("ada@example.org").status, 303);
    }
    void aSessionThatCannotBeEndedIsNotForgotten() {
        addAccount("ada@example.org");
        Browser browser{*this};
        browser.signIn("ada@example.org");
        const QByteArray form = "form_token=" + tokenOf(browser.get("/account/"), "/account/close");
        {
            const TableAway away(address_, QStringLiteral("families"));
            QCOMPARE(browser.post("/logout", form).status, 503);
        }
        QCOMPARE(browser.post("/logout", form).status, 303);
        QCOMPARE(browser.get("/account/").status, 303);
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
