#include "VellumlineService/Service/AccountSite.h"

#include "VellumlineService/Service/Pages.h"

#include <QHostAddress>

namespace vellumline {

namespace {

constexpr const char* sessionCookie = "vellumline_session";
constexpr const char* visitCookie = "vellumline_visit";

HttpAnswer unreadable() {
    return pages::message(503, QStringLiteral("Not available"),
                          QStringLiteral("The service cannot read its data. Try again in a minute."));
}

HttpAnswer unwritable() {
    return pages::message(503, QStringLiteral("Not available"),
                          QStringLiteral("The service cannot write its data. Try again in a minute."));
}

HttpAnswer startFromTheProgram(const QString& text) {
    return pages::message(400, QStringLiteral("Start from the program"), text);
}

/// `path` is always one of the service's own, written here: no form or query can send a browser elsewhere.
HttpAnswer goTo(const QByteArray& path) {
    HttpAnswer answer =
        pages::message(303, QStringLiteral("Done"), QStringLiteral("This page has moved on."));
    answer.headers.emplace_back("Location", path);
    return answer;
}

/// What tries are counted for: an IPv4 address, or the network of an IPv6 one. Whoever has IPv6 has at least
/// 2^64 addresses to try from (RFC 6177 section 2).
QByteArray networkOf(const QByteArray& text) {
    const QHostAddress address(QString::fromLatin1(text));
    bool isIpv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIpv4);
    if (isIpv4) {
        return QHostAddress(ipv4).toString().toLatin1();
    }
    if (address.protocol() != QAbstractSocket::IPv6Protocol) {
        return text;
    }
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    return QByteArray(reinterpret_cast<const char*>(bytes.c), 8).toHex();
}

QString valueOf(const QList<QPair<QString, QString>>& items, const char* name) {
    return formValue(items, QString::fromLatin1(name)).value_or(QString());
}

} // namespace

AccountSite::AccountSite(const ServiceSettings& settings, Storage& storage, KeyRing& keys, Seconds now)
    : settings_(settings), storage_(storage), keys_(keys), now_(std::move(now)),
      passwords_(settings.accounts == Accounts::local ? Passwords::Cost::least : settings.passwordCost) {}

QByteArray AccountSite::cookieName(const char* name) const {
    // A browser takes a name with this prefix only over TLS, for exactly this host and every path (RFC
    // 6265bis section 4.1.3.2).
    return (settings_.publicUrl.scheme() == QStringLiteral("https") ? QByteArray("__Host-") : QByteArray()) +
           name;
}

QByteArray AccountSite::cookie(const HttpRequest& request, const QByteArray& name) const {
    for (const auto& [header, value] : request.headers) {
        if (header != "cookie") {
            continue;
        }
        const QList<QByteArray> pieces = value.split(';');
        for (const QByteArray& piece : pieces) {
            const QByteArray item = piece.trimmed();
            if (item.startsWith(name + '=') && item.size() - name.size() - 1 <= 128) {
                return item.mid(name.size() + 1);
            }
        }
    }
    return {};
}

void AccountSite::setCookie(HttpAnswer& answer, const char* name, const QByteArray& value,
                            qint64 seconds) const {
    QByteArray text = cookieName(name) + '=' + value +
                      "; Path=/; HttpOnly; SameSite=Lax; Max-Age=" + QByteArray::number(seconds);
    if (settings_.publicUrl.scheme() == QStringLiteral("https")) {
        text += "; Secure";
    }
    answer.headers.emplace_back("Set-Cookie", text);
}

std::optional<AccountSite::Browser> AccountSite::browserOf(const HttpRequest& request) {
    Browser browser;
    if (local()) {
        return browser;
    }
    const QByteArray session = cookie(request, cookieName(sessionCookie));
    if (!session.isEmpty()) {
        const auto visitor = storage_.visitor(session, now_());
        if (visitor.failed()) {
            return {};
        }
        if (visitor) {
            browser.visitor = *visitor;
            browser.session = session;
        }
    }
    browser.visit = cookie(request, cookieName(visitCookie));
    if (browser.visit.size() < 22) {
        browser.visit = randomToken(16);
    }
    return browser;
}

HttpAnswer AccountSite::withVisit(HttpAnswer answer, const HttpRequest& request,
                                  const Browser& browser) const {
    if (!browser.visit.isEmpty() && cookie(request, cookieName(visitCookie)) != browser.visit) {
        setCookie(answer, visitCookie, browser.visit, 3600);
    }
    return answer;
}

Lookup<Account> AccountSite::ownerOf(const Browser& browser) {
    if (local()) {
        return storage_.localAccount();
    }
    return browser.visitor ? Lookup<Account>(browser.visitor->account) : Lookup<Account>::none();
}

QByteArray AccountSite::bound(const QByteArray& purpose, const Browser& browser) const {
    // The local user has no cookie: whoever reaches the service is that user, and other web pages are kept
    // out by the origin, the host and a token that they cannot read.
    const QByteArray browserPart = browser.visitor ? browser.session : browser.visit;
    return "form\n" + purpose + '\n' + browserPart + '\n';
}

std::optional<QByteArray> AccountSite::formToken(const QByteArray& purpose, const Browser& browser) {
    const auto key = keys_.current(now_());
    if (!key) {
        return {};
    }
    const QByteArray until = QByteArray::number(now_() + 600);
    return until + '.' + key->id.toLatin1() + '.' +
           base64Url(hmacSha256(key->secret, bound(purpose, browser) + until));
}

AccountSite::FormToken AccountSite::checkFormToken(const QByteArray& purpose, const Browser& browser,
                                                   const QString& token) {
    const QList<QByteArray> pieces = token.toLatin1().split('.');
    if (pieces.size() != 3 || pieces.at(0).toLongLong() <= now_()) {
        return FormToken::invalid;
    }
    const auto key = keys_.find(QString::fromLatin1(pieces.at(1)), now_());
    if (key.failed()) {
        return FormToken::storageFailure;
    }
    const bool valid =
        key && equalInConstantTime(base64Url(hmacSha256(key->secret, bound(purpose, browser) + pieces.at(0))),
                                   pieces.at(2));
    return valid ? FormToken::valid : FormToken::invalid;
}

bool AccountSite::sameOrigin(const HttpRequest& request) const {
    const QByteArray site = request.header("sec-fetch-site");
    if (!site.isEmpty() && site != "same-origin" && site != "none") {
        return false;
    }
    if (!request.hasHeader("origin")) {
        return true; // No browser; the form token still decides.
    }
    const QByteArray origin = request.header("origin");
    const QByteArray host = request.header("host");
    if (settings_.publicUrl.isEmpty()) {
        return origin == "http://" + host || origin == "https://" + host;
    }
    // Not the unencrypted page of the public name, which anybody on the way can write. Past the proxy, on
    // this machine, there is only HTTP.
    const bool isPublic = host.toLower() == settings_.publicUrl.authority(QUrl::FullyEncoded).toLatin1();
    return origin == settings_.publicUrl.toString(QUrl::FullyEncoded).toLatin1() ||
           (!isPublic && origin == "http://" + host);
}

std::optional<AccountSite::Form> AccountSite::formOf(const HttpRequest& request, const Browser& browser,
                                                     const QByteArray& purpose, HttpAnswer& refusal) {
    auto items =
        request.mediaType() == "application/x-www-form-urlencoded" ? parseForm(request.body) : std::nullopt;
    if (!items) {
        refusal =
            pages::message(400, QStringLiteral("Not a form"),
                           QStringLiteral("What the browser sent cannot be read. Go back and try again."));
        return {};
    }
    if (!sameOrigin(request)) {
        refusal =
            pages::message(403, QStringLiteral("Not from here"),
                           QStringLiteral("Another web site tried to use this page. Nothing was done."));
        return {};
    }
    switch (checkFormToken(purpose, browser, valueOf(*items, "form_token"))) {
    case FormToken::valid:
        return items;
    case FormToken::invalid:
        refusal = pages::message(403, QStringLiteral("This page is too old"),
                                 QStringLiteral("Open the page again to get a fresh one, and retry."));
        break;
    case FormToken::storageFailure:
        refusal = unreadable();
        break;
    }
    return {};
}

QByteArray AccountSite::clientOf(const HttpRequest& request) const {
    if (!settings_.trustedProxies.contains(QString::fromLatin1(request.peer))) {
        return networkOf(request.peer);
    }
    // Only the last element was written by the proxy itself; what stands before can be invented.
    QByteArray forwarded;
    for (const auto& [name, value] : request.headers) {
        if (name == "x-forwarded-for") {
            forwarded = value;
        }
    }
    return networkOf(forwarded.isEmpty() ? request.peer
                                         : forwarded.mid(forwarded.lastIndexOf(',') + 1).trimmed());
}

std::optional<HttpAnswer> AccountSite::tooManyAttempts(const QByteArray& client, const QString& email) {
    // Counted before the password is looked at, so that simultaneous guesses count too.
    const auto ofAddress = storage_.countAttempt("address\n" + client, attemptWindow, now_());
    if (!ofAddress) {
        return unwritable();
    }
    bool tooMany = *ofAddress > attemptsOfAddress;
    if (!tooMany && !email.isEmpty()) {
        const auto ofOne =
            storage_.countAttempt("one\n" + email.toUtf8() + '\n' + client, attemptWindow, now_());
        if (!ofOne) {
            return unwritable();
        }
        tooMany = *ofOne > attemptsOfOne;
        if (!tooMany) {
            const auto forAccount =
                storage_.countAttempt("account\n" + email.toUtf8(), attemptWindow, now_());
            if (!forAccount) {
                return unwritable();
            }
            tooMany = *forAccount > attemptsForAccount;
        }
    }
    if (!tooMany) {
        return {};
    }
    HttpAnswer answer = pages::message(
        429, QStringLiteral("Too many tries"),
        QStringLiteral("Wait a quarter of an hour before you try again. If you forgot the password, ask "
                       "whoever runs this service for a new one."));
    answer.headers.emplace_back("Retry-After", QByteArray::number(attemptWindow));
    return answer;
}

HttpAnswer AccountSite::handOver(const Account& account, const QString& challenge) {
    const QByteArray code = randomToken(24);
    if (!storage_.addHandoff(code, challenge, account.id, now_())) {
        return unwritable();
    }
    return pages::signedIn(code);
}

HttpAnswer AccountSite::signInBrowser(HttpAnswer answer, qint64 accountId) {
    // A new session for each sign-in: one that somebody else put into this browser is not taken over.
    const QByteArray token = randomToken(32);
    if (!storage_.addBrowserSession(token, accountId, now_())) {
        return unwritable();
    }
    setCookie(answer, sessionCookie, token, Storage::browserSeconds);
    return answer;
}

HttpAnswer AccountSite::loginForm(const HttpRequest& request, Browser browser, const QString& challenge,
                                  int status, const QString& problem, const QString& email) {
    browser.visitor.reset();
    const auto token = formToken("login\n" + challenge.toLatin1(), browser);
    if (!token) {
        return unreadable();
    }
    pages::LoginForm page;
    page.challenge = challenge;
    page.formToken = *token;
    page.email = email;
    page.problem = problem;
    page.mayRegister = settings_.registration == Registration::open;
    return withVisit(pages::login(status, page), request, browser);
}

HttpAnswer AccountSite::loginPage(const HttpRequest& request) {
    const auto items = parseForm(request.query);
    const auto given = items ? formValue(*items, QStringLiteral("app_challenge")) : std::nullopt;
    const bool asked = !items || given || request.query.contains("app_challenge");
    if ((asked || local()) && (!given || !isPkceChallenge(*given))) {
        return startFromTheProgram(
            QStringLiteral("This page is opened by Vellumline when you choose Sign in there. The link "
                           "that brought you here is incomplete."));
    }
    const QString challenge = given.value_or(QString());
    const auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    const auto account = ownerOf(*browser);
    if (!account) {
        return account.failed() ? unreadable()
                                : loginForm(request, *browser, challenge, 200, QString(), QString());
    }
    if (challenge.isEmpty()) {
        return goTo("/account/");
    }
    const auto token = formToken("login\n" + challenge.toLatin1(), *browser);
    const auto logoutToken = formToken("account", *browser);
    if (!token || !logoutToken) {
        return unreadable();
    }
    pages::Confirmation page;
    page.challenge = challenge;
    page.formToken = *token;
    page.logoutToken = local() ? QByteArray() : *logoutToken;
    page.account = *account;
    page.isLocal = local();
    return pages::confirmSignIn(page);
}

HttpAnswer AccountSite::login(const HttpRequest& request) {
    const auto items =
        request.mediaType() == "application/x-www-form-urlencoded" ? parseForm(request.body) : std::nullopt;
    const QString challenge = items ? valueOf(*items, "app_challenge") : QString();
    const bool forProgram = local() || !challenge.isEmpty();
    if (!items || valueOf(*items, "form_token").isEmpty() || (forProgram && !isPkceChallenge(challenge))) {
        return startFromTheProgram(
            QStringLiteral("This sign-in is incomplete. Choose Sign in in Vellumline again."));
    }
    auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    const bool withPassword =
        !local() && items->contains({QStringLiteral("email"), valueOf(*items, "email")});
    if (withPassword) {
        // The form of a signed-out browser, even when somebody signed in in another window meanwhile.
        browser->visitor.reset();
    }
    HttpAnswer refusal;
    if (!formOf(request, *browser, "login\n" + challenge.toLatin1(), refusal)) {
        return refusal;
    }
    if (!withPassword) {
        const auto account = ownerOf(*browser);
        if (!account) {
            return account.failed() ? unreadable()
                                    : loginForm(request, *browser, challenge, 200, QString(), QString());
        }
        return handOver(*account, challenge);
    }

    const QString typed = valueOf(*items, "email");
    const QString email = Storage::normalEmail(typed).value_or(QString());
    const QByteArray client = clientOf(request);
    if (auto answer = tooManyAttempts(client, email)) {
        return *answer;
    }
    const auto found = storage_.login(email);
    if (found.failed()) {
        return unreadable();
    }
    const QString password = valueOf(*items, "password");
    const QString hash = found ? found->passwordHash : QString();
    const bool right = password.size() <= Passwords::longest && passwords_.matches(password, hash);
    const auto account = found && right ? storage_.account(found->accountId) : Lookup<Account>::none();
    if (account.failed()) {
        return unreadable();
    }
    if (!account) {
        return loginForm(request, *browser, challenge, 401,
                         QStringLiteral("The e-mail address or the password is not right."), typed);
    }
    storage_.forgetAttempts("one\n" + email.toUtf8() + '\n' + client, now_());
    return signInBrowser(challenge.isEmpty() ? goTo("/account/") : handOver(*account, challenge),
                         account->id);
}

HttpAnswer AccountSite::logout(const HttpRequest& request) {
    const auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    HttpAnswer refusal;
    const auto items = formOf(request, *browser, "account", refusal);
    if (!items) {
        return refusal;
    }
    // A browser whose session could not be ended keeps its cookie: with it the button can be pressed again.
    if (browser->visitor &&
        !storage_.endSession(browser->visitor->account.id, browser->visitor->session, now_())) {
        return unwritable();
    }
    const QString challenge = valueOf(*items, "app_challenge");
    HttpAnswer answer = goTo(isPkceChallenge(challenge) ? "/login/?app_challenge=" + challenge.toLatin1()
                                                        : QByteArray("/login/"));
    setCookie(answer, sessionCookie, QByteArray(), 0);
    return answer;
}

HttpAnswer AccountSite::registerForm(const HttpRequest& request, Browser browser, const QString& challenge,
                                     const QString& invitation, int status, const QString& problem,
                                     const QString& email) {
    browser.visitor.reset();
    pages::RegisterForm page;
    page.challenge = challenge;
    page.invitation = invitation;
    page.email = email;
    page.problem = problem;
    if (local() || settings_.registration == Registration::closed) {
        return pages::message(403, QStringLiteral("No registration"),
                              QStringLiteral("Whoever runs this service makes its accounts."));
    }
    if (settings_.registration == Registration::invitation || !invitation.isEmpty()) {
        const auto what = storage_.oneTimeCode(Storage::Purpose::invitation, invitation.toUtf8(), now_());
        if (what.failed()) {
            return unreadable();
        }
        if (!what) {
            return pages::message(
                403, QStringLiteral("An invitation is needed"),
                QStringLiteral("Use the link of your invitation. It works once, and not for ever: ask "
                               "whoever runs this service for a new one."));
        }
        page.emailFixed = !what->email.isEmpty();
        page.email = page.emailFixed ? what->email : email;
    }
    const auto token = formToken("register", browser);
    if (!token) {
        return unreadable();
    }
    page.formToken = *token;
    return withVisit(pages::registration(status, page), request, browser);
}

HttpAnswer AccountSite::registerPage(const HttpRequest& request) {
    const auto items = parseForm(request.query).value_or(Form());
    const QString challenge = valueOf(items, "app_challenge");
    const auto browser = browserOf(request);
    return browser ? registerForm(request, *browser, isPkceChallenge(challenge) ? challenge : QString(),
                                  valueOf(items, "invitation").left(128), 200, QString(), QString())
                   : unreadable();
}

HttpAnswer AccountSite::registerAccount(const HttpRequest& request) {
    auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    browser->visitor.reset();
    HttpAnswer refusal;
    const auto items = formOf(request, *browser, "register", refusal);
    if (!items) {
        return refusal;
    }
    const QString challenge =
        isPkceChallenge(valueOf(*items, "app_challenge")) ? valueOf(*items, "app_challenge") : QString();
    const QString invitation = valueOf(*items, "invitation").left(128);
    const QString typed = valueOf(*items, "email");
    const auto again = [&](int status, const QString& problem) {
        return registerForm(request, *browser, challenge, invitation, status, problem, typed);
    };
    if (local() || settings_.registration == Registration::closed ||
        (settings_.registration == Registration::invitation && invitation.isEmpty())) {
        return again(403, QString());
    }
    if (auto answer = tooManyAttempts(clientOf(request), QString())) {
        return *answer;
    }
    const auto email = Storage::normalEmail(typed);
    if (!email) {
        return again(400, QStringLiteral("This is not an e-mail address."));
    }
    const QString password = valueOf(*items, "password");
    const QString unfit = Passwords::problemWith(password, *email);
    if (!unfit.isEmpty()) {
        return again(400, unfit);
    }
    const QString hash = passwords_.hash(password);
    if (hash.isEmpty()) {
        return unwritable();
    }
    const auto made = storage_.registerAccount(
        *email, hash, settings_.newAccount,
        invitation.isEmpty() ? std::nullopt : std::optional(invitation.toUtf8()), now_());
    switch (made.outcome) {
    case Storage::Registered::done:
        return signInBrowser(goTo(challenge.isEmpty() ? QByteArray("/account/")
                                                      : "/login/?app_challenge=" + challenge.toLatin1()),
                             made.id);
    case Storage::Registered::taken:
        return again(409, QStringLiteral("There is an account with this address already. Sign in instead."));
    case Storage::Registered::badInvitation:
        return again(403, QStringLiteral("The invitation is for another address, or was used meanwhile."));
    case Storage::Registered::storageFailure:
        break;
    }
    return unwritable();
}

HttpAnswer AccountSite::resetPage(const HttpRequest& request) {
    const QString code = valueOf(parseForm(request.query).value_or(Form()), "code").left(128);
    auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    browser->visitor.reset();
    const auto what = storage_.oneTimeCode(Storage::Purpose::passwordReset, code.toUtf8(), now_());
    if (what.failed()) {
        return unreadable();
    }
    if (local() || !what) {
        return pages::message(
            403, QStringLiteral("This link has ended"),
            QStringLiteral("It works once, and for a day. Ask whoever runs this service for a new "
                           "one."));
    }
    const auto token = formToken("reset", *browser);
    return token ? withVisit(pages::passwordReset(200, code, *token, QString()), request, *browser)
                 : unreadable();
}

HttpAnswer AccountSite::reset(const HttpRequest& request) {
    auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    browser->visitor.reset();
    HttpAnswer refusal;
    const auto items = formOf(request, *browser, "reset", refusal);
    if (!items) {
        return refusal;
    }
    if (auto answer = tooManyAttempts(clientOf(request), QString())) {
        return *answer;
    }
    const QString code = valueOf(*items, "code").left(128);
    const auto what = storage_.oneTimeCode(Storage::Purpose::passwordReset, code.toUtf8(), now_());
    if (what.failed()) {
        return unreadable();
    }
    if (local() || !what) {
        return resetPage(request);
    }
    const QString unfit = Passwords::problemWith(valueOf(*items, "password"), what->email);
    if (!unfit.isEmpty()) {
        const auto token = formToken("reset", *browser);
        return token ? pages::passwordReset(400, code, *token, unfit) : unreadable();
    }
    const QString hash = passwords_.hash(valueOf(*items, "password"));
    return !hash.isEmpty() && storage_.resetPassword(code.toUtf8(), hash, now_()) ? goTo("/login/")
                                                                                  : unwritable();
}

std::optional<pages::Plans> AccountSite::plansFor(const HttpRequest& request) {
    const auto monthly = checkoutUrl(storage_, settings_, QStringLiteral("monthly"));
    const auto yearly = checkoutUrl(storage_, settings_, QStringLiteral("yearly"));
    if (!monthly || !yearly) {
        return {};
    }
    return pages::Plans{valueOf(parseForm(request.query).value_or(Form()), "plan"), *monthly, *yearly};
}

HttpAnswer AccountSite::accountAnswer(const HttpRequest& request, const Browser& browser, int status,
                                      const QString& problem) {
    const auto account = ownerOf(browser);
    if (!account) {
        return account.failed() ? unreadable() : goTo("/login/");
    }
    const auto plans = plansFor(request);
    const auto sessions = storage_.sessions(account->id, now_());
    const auto token = formToken("account", browser);
    if (!plans || !sessions || !token) {
        return unreadable();
    }
    pages::AccountPage page;
    page.account = *account;
    page.thisMonth = Storage::monthOf(now_() * 1000);
    page.plans = *plans;
    page.isLocal = local();
    page.sessions = *sessions;
    page.ownSession = browser.visitor ? browser.visitor->session : QString();
    page.formToken = *token;
    page.problem = problem;
    return pages::account(status, page);
}

HttpAnswer AccountSite::accountPage(const HttpRequest& request) {
    const auto browser = browserOf(request);
    return browser ? accountAnswer(request, *browser, 200, QString()) : unreadable();
}

HttpAnswer AccountSite::planPage(const HttpRequest& request) {
    const auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    const auto account = ownerOf(*browser);
    if (!account) {
        return account.failed() ? unreadable() : goTo("/login/");
    }
    const auto plans = plansFor(request);
    return plans ? pages::plan(*account, *plans, local()) : unreadable();
}

HttpAnswer AccountSite::setClosed(const HttpRequest& request, bool closed) {
    const auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    HttpAnswer refusal;
    if (!formOf(request, *browser, "account", refusal)) {
        return refusal;
    }
    const auto account = ownerOf(*browser);
    return account && storage_.setClosed(account->id, closed) ? goTo("/account/") : unwritable();
}

HttpAnswer AccountSite::endSession(const HttpRequest& request) {
    const auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    HttpAnswer refusal;
    const auto items = formOf(request, *browser, "account", refusal);
    if (!items) {
        return refusal;
    }
    const auto account = ownerOf(*browser);
    if (!account) {
        return account.failed() ? unreadable() : goTo("/login/");
    }
    const QString id = valueOf(*items, "session");
    const bool done =
        id.isEmpty() ? storage_.endSessions(account->id,
                                            browser->visitor ? browser->visitor->session : QString(), now_())
                     : storage_.endSession(account->id, id, now_());
    return done ? goTo("/account/") : unwritable();
}

HttpAnswer AccountSite::changePassword(const HttpRequest& request) {
    const auto browser = browserOf(request);
    if (!browser) {
        return unreadable();
    }
    HttpAnswer refusal;
    const auto items = formOf(request, *browser, "account", refusal);
    if (!items) {
        return refusal;
    }
    if (!browser->visitor) {
        return goTo("/login/");
    }
    const Account& account = browser->visitor->account;
    const QByteArray client = clientOf(request);
    if (auto answer = tooManyAttempts(client, account.email)) {
        return *answer;
    }
    const auto present = storage_.loginOfAccount(account.id);
    if (present.failed()) {
        return unreadable();
    }
    const QString old = valueOf(*items, "old_password");
    const QString presentHash = present ? present->passwordHash : QString();
    if (old.size() > Passwords::longest || !passwords_.matches(old, presentHash)) {
        return accountAnswer(request, *browser, 401, QStringLiteral("The present password is not right."));
    }
    const QString unfit = Passwords::problemWith(valueOf(*items, "password"), account.email);
    if (!unfit.isEmpty()) {
        return accountAnswer(request, *browser, 400, unfit);
    }
    const QString hash = passwords_.hash(valueOf(*items, "password"));
    if (hash.isEmpty() || !storage_.setPassword(account.id, hash) ||
        !storage_.endSessions(account.id, browser->visitor->session, now_())) {
        return unwritable();
    }
    storage_.forgetAttempts("one\n" + account.email.toUtf8() + '\n' + client, now_());
    return goTo("/account/");
}

} // namespace vellumline
