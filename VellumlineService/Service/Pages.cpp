#include "VellumlineService/Service/Pages.h"

#include "VellumlineService/Service/Passwords.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QTimeZone>

namespace vellumline::pages {

namespace {

const char* const styleSheet = R"(
:root{color-scheme:light dark;--page:#f3f1ec;--card:#fffdf9;--ink:#22201c;--soft:#6a655c;--line:#e2ddd2;--edge:#8b8579;--bad:#9c2f21;
--accent:#2f5d50;--accent-ink:#fff;--shade:0 1px 2px #0001,0 12px 32px #0001}
@media(prefers-color-scheme:dark){:root{--page:#191a1c;--card:#232528;--ink:#ecebe8;--soft:#a9a7a1;--line:#37393d;--edge:#85878d;--bad:#f3a195;
--accent:#8fc7b4;--accent-ink:#10201b;--shade:0 1px 2px #0006,0 12px 32px #0006}}
*{box-sizing:border-box}
body{margin:0;min-height:100vh;display:grid;place-items:center;padding:16px;background:var(--page);color:var(--ink);
font:16px/1.5 system-ui,-apple-system,"Segoe UI","Cantarell","Noto Sans","DejaVu Sans",sans-serif}
main{width:100%;max-width:26rem;background:var(--card);border:1px solid var(--line);border-radius:16px;
padding:clamp(20px,7vw,40px);box-shadow:var(--shade);overflow-wrap:anywhere}
.brand{display:flex;align-items:center;gap:10px;margin:0 0 24px;font-weight:600;letter-spacing:.01em}
.brand svg{width:28px;height:28px;flex:none}
h1{margin:0 0 8px;font-size:1.5rem;line-height:1.25;letter-spacing:-.01em}
p{margin:0 0 16px;color:var(--soft)}
p.strong{color:var(--ink)}
form{margin:24px 0 0}
.button{display:block;width:100%;padding:12px 16px;border:0;border-radius:10px;background:var(--accent);
color:var(--accent-ink);font:inherit;font-weight:600;text-align:center;text-decoration:none;cursor:pointer}
.button:hover{filter:brightness(1.08)}
.button:focus-visible,a:focus-visible{outline:3px solid var(--accent);outline-offset:3px}
.note{margin:20px 0 0;padding-top:16px;border-top:1px solid var(--line);font-size:.875rem}
dl{display:grid;grid-template-columns:auto 1fr;gap:8px 24px;margin:20px 0 0;padding:16px 0 0;
border-top:1px solid var(--line)}
dt{color:var(--soft)}dd{margin:0;text-align:right;font-variant-numeric:tabular-nums}
h2{margin:28px 0 8px;font-size:1.0625rem;line-height:1.3}
label{display:block;margin:16px 0 6px;font-weight:600}
input:not([type=hidden]){display:block;width:100%;padding:11px 12px;border:1px solid var(--edge);border-radius:10px;
background:var(--page);color:var(--ink);font:inherit}
input:focus-visible{outline:3px solid var(--accent);outline-offset:1px}
input[readonly]{color:var(--soft)}
form .button{margin-top:20px}
.hint{margin:6px 0 0;font-size:.875rem}
.problem{margin:16px 0;padding:12px 14px;border:1px solid var(--bad);border-radius:10px;color:var(--bad);font-weight:600}
.quiet{background:none;border:1px solid var(--edge);color:var(--ink)}
.small{width:auto;padding:6px 14px;font-size:.875rem}
.sessions{margin:12px 0 0;padding:0;list-style:none}
.sessions li{display:flex;flex-wrap:wrap;gap:8px 16px;align-items:center;justify-content:space-between;padding:12px 0;
border-top:1px solid var(--line)}
.sessions form,.sessions .button{margin:0}
.sessions span span{display:block;color:var(--soft);font-size:.875rem}
.links{display:flex;flex-wrap:wrap;gap:8px 20px;margin:20px 0 0}
a{color:var(--accent)}a.button{color:var(--accent-ink)}
details{margin-top:20px;padding-top:16px;border-top:1px solid var(--line)}
summary{font-weight:600;cursor:pointer}
summary:focus-visible{outline:3px solid var(--accent);outline-offset:3px}
@media(forced-colors:active){.button{border:1px solid}}
code{font:.875em/1.4 ui-monospace,"DejaVu Sans Mono",monospace;color:var(--ink)}
)";

// The program's mark, as in its symbolic icon.
const char* const brand =
    R"svg(<div class="brand"><svg viewBox="0 0 16 16" aria-hidden="true"><rect width="16" height="16" rx="4"
fill="var(--accent)"/><path fill="var(--accent-ink)" transform="translate(2.9 3) scale(.6375)" d=")svg"
    "M3.382 5.152L7.026 10.221C7.136 10.374 7.283 10.501 7.453 10.587"
    "C7.622 10.675 7.81 10.72 8 10.72C8.19 10.72 8.378 10.675 8.547 10.587"
    "C8.717 10.501 8.864 10.374 8.974 10.221L12.618 5.152C13.557 3.845 14.035 3.398 14.598 2.614"
    "C15.027 2.019 14.891 1.19 14.294 0.762C13.699 0.333 12.87 0.469 12.442 1.066"
    "C11.502 2.371 11.232 2.966 10.669 3.75L8.56 6.685C8.28 7.074 8.144 7.272 8 7.272"
    "C7.856 7.272 7.72 7.074 7.44 6.685L5.331 3.75C4.392 2.445 4.122 1.85 3.558 1.066"
    "C3.13 0.469 2.301 0.333 1.706 0.762C1.109 1.19 0.973 2.019 1.402 2.614"
    "C2.341 3.922 2.819 4.368 3.382 5.152ZM14 13C14.552 13 15 13.448 15 14"
    "C15 14.552 14.552 15 14 15L9.6 15C8.894 15 8.626 14.616 7.92 14.616"
    "C7.08 14.616 6.76 15.896 5.92 15.896C5.013 15.896 4.667 14.104 3.76 14.104"
    "C3.021 14.104 2.739 15.192 2 15.192C1.448 15.192 1 14.744 1 14.192"
    "C1 13.64 1.448 13.192 2 13.192C2.739 13.192 3.021 12.104 3.76 12.104"
    "C4.667 12.104 5.013 13.896 5.92 13.896C6.76 13.896 7.08 12.616 7.92 12.616"
    "C8.626 12.616 8.894 13 9.6 13L14 13Z"
    R"svg("/></svg>Vellumline</div>)svg";

HttpAnswer servicePage(int status, const QString& title, const QString& body, const QString& headExtra = {}) {
    static const QByteArray styleHash =
        QCryptographicHash::hash(QByteArray(styleSheet), QCryptographicHash::Sha256).toBase64();
    HttpAnswer answer;
    answer.status = status;
    answer.contentType = "text/html; charset=utf-8";
    answer.body = "<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\">"
                  "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">" +
                  headExtra.toUtf8() + "<title>" + title.toHtmlEscaped().toUtf8() +
                  " · Vellumline</title><style>" + styleSheet + "</style></head><body><main>" + brand +
                  body.toUtf8() + "</main></body></html>\n";
    answer.headers = {
        {"Content-Security-Policy", "default-src 'none'; style-src 'sha256-" + styleHash +
                                        "'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'"},
        {"X-Frame-Options", "DENY"},
        // Not "no-referrer": browsers then send "Origin: null" with a form, and the same-origin check needs
        // it.
        {"Referrer-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
    };
    return answer;
}

QString hidden(const QString& name, const QString& value) {
    return QStringLiteral("<input type=\"hidden\" name=\"%1\" value=\"%2\">")
        .arg(name, value.toHtmlEscaped());
}

QString planText(const Account& account) {
    const QString ending = account.renewalCanceled ? QStringLiteral(" · renewal canceled") : QString();
    if (account.plan == QStringLiteral("free")) {
        return QStringLiteral("Free");
    }
    if (account.plan == QStringLiteral("monthly")) {
        return QStringLiteral("Monthly") + ending;
    }
    if (account.plan == QStringLiteral("yearly")) {
        return QStringLiteral("Yearly") + ending;
    }
    return QStringLiteral("Paid") + ending;
}

QString problemText(const QString& problem) {
    return problem.isEmpty()
               ? QString()
               : QStringLiteral("<p class=\"problem\" role=\"alert\">%1</p>").arg(problem.toHtmlEscaped());
}

QString tokenField(const QByteArray& token) {
    return hidden(QStringLiteral("form_token"), QString::fromLatin1(token));
}

QString challengeField(const QString& challenge) {
    return challenge.isEmpty() ? QString() : hidden(QStringLiteral("app_challenge"), challenge);
}

enum class PasswordKind { present, chosen };

QString passwordField(const QString& name, const QString& label, PasswordKind kind) {
    const QString field =
        QStringLiteral("<label for=\"%1\">%2</label><input id=\"%1\" name=\"%1\" type=\"password\" required "
                       "maxlength=\"256\" %3>")
            .arg(name, label);
    if (kind == PasswordKind::present) {
        return field.arg(QStringLiteral("autocomplete=\"current-password\""));
    }
    return field.arg(
               QStringLiteral("minlength=\"%1\" autocomplete=\"new-password\" aria-describedby=\"hint\"")
                   .arg(Passwords::shortest)) +
           QStringLiteral("<p class=\"hint\" id=\"hint\">At least %1 characters. A few words are good.</p>")
               .arg(Passwords::shortest);
}

enum class EmailKind { typed, fixed };

QString emailField(const QString& email, EmailKind kind) {
    return QStringLiteral(
               "<label for=\"email\">E-mail address</label><input id=\"email\" name=\"email\" type=\"email\" "
               "required maxlength=\"254\" autocomplete=\"username\" value=\"%1\"%2>")
        .arg(email.toHtmlEscaped(), kind == EmailKind::fixed ? QStringLiteral(" readonly")
                                    : email.isEmpty()        ? QStringLiteral(" autofocus")
                                                             : QString());
}

QString row(const QString& name, const QString& value) {
    return QStringLiteral("<dt>%1</dt><dd>%2</dd>").arg(name, value.toHtmlEscaped());
}

QString usageRows(const Account& account, const QString& thisMonth) {
    QString rows = row(QStringLiteral("Plan"), planText(account));
    rows += account.plan == QStringLiteral("free")
                ? row(QStringLiteral("Free rewrites"),
                      QStringLiteral("%1 of %2 used").arg(account.rewritesUsed).arg(account.freeRewrites))
                : row(QStringLiteral("Rewrites"), QString::number(account.rewritesUsed));
    if (account.monthlyLimit > 0) {
        rows += row(QStringLiteral("This month"), QStringLiteral("%1 of %2 used")
                                                      .arg(account.month == thisMonth ? account.monthUsed : 0)
                                                      .arg(account.monthlyLimit));
    }
    return rows;
}

/// What can be bought, or who can change the plan instead.
QString planOffer(const Plans& plans, bool isLocal) {
    QString text;
    const auto offer = [&](const QString& plan, const QString& url, const QString& label) {
        if (!url.isEmpty() && (plans.wanted.isEmpty() || plans.wanted == plan)) {
            text += QStringLiteral("<p><a class=\"button\" href=\"%1\">%2</a></p>")
                        .arg(url.toHtmlEscaped(), label);
        }
    };
    offer(QStringLiteral("monthly"), plans.monthlyCheckoutUrl, QStringLiteral("Get the monthly plan"));
    offer(QStringLiteral("yearly"), plans.yearlyCheckoutUrl, QStringLiteral("Get the yearly plan"));
    if (!text.isEmpty()) {
        return text;
    }
    const bool known = plans.wanted == QStringLiteral("monthly") || plans.wanted == QStringLiteral("yearly");
    if (!isLocal) {
        return QStringLiteral("<p>This service sells no plans. Ask whoever runs it for another one.</p>");
    }
    return QStringLiteral("<p>This service sells no plans. Whoever runs it can set %1 with "
                          "<code>vellumline-service account set --plan %2</code>.</p>")
        .arg(known ? QStringLiteral("the %1 plan").arg(plans.wanted) : QStringLiteral("a plan"),
             known ? plans.wanted : QStringLiteral("paid"));
}

QString dayOf(qint64 seconds) {
    return QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::utc())
        .toString(QStringLiteral("d MMM yyyy, HH:mm"));
}

QString sessionList(const AccountPage& page) {
    QString text = QStringLiteral("<h2>Where you are signed in</h2>");
    if (page.sessions.isEmpty()) {
        return text + QStringLiteral("<p>Nowhere at present.</p>");
    }
    text += QStringLiteral("<p class=\"hint\">Times are in UTC.</p><ul class=\"sessions\">");
    for (const Storage::Session& session : page.sessions) {
        const bool own = session.id == page.ownSession;
        const QString name = own ? QStringLiteral("This browser")
                             : session.kind == Storage::Session::Kind::program
                                 ? QStringLiteral("The Vellumline program")
                                 : QStringLiteral("A browser");
        text += QStringLiteral("<li><span>%1<span>Signed in %2<br>Last used %3</span></span>")
                    .arg(name, dayOf(session.createdAt), dayOf(session.lastUsedAt));
        if (!own) {
            text += QStringLiteral(
                        "<form method=\"post\" action=\"/account/sessions/end\">%1%2<button class=\"button "
                        "quiet small\" type=\"submit\" aria-label=\"End the session of %3, signed in "
                        "%4\">End</button></form>")
                        .arg(tokenField(page.formToken), hidden(QStringLiteral("session"), session.id),
                             name.toLower(), dayOf(session.createdAt));
        }
        text += QStringLiteral("</li>");
    }
    text += QStringLiteral("</ul>");
    if (page.sessions.size() > 1) {
        text +=
            QStringLiteral("<form method=\"post\" action=\"/account/sessions/end\">%1<button class=\"button "
                           "quiet\" type=\"submit\">End all %2sessions</button></form>")
                .arg(tokenField(page.formToken),
                     page.ownSession.isEmpty() ? QString() : QStringLiteral("other "));
    }
    return text;
}

QString button(const char* action, const QByteArray& token, const QString& label, const char* classes) {
    return QStringLiteral("<form method=\"post\" action=\"%1\">%2<button class=\"%3\" "
                          "type=\"submit\">%4</button></form>")
        .arg(QLatin1String(action), tokenField(token), QLatin1String(classes), label);
}

} // namespace

HttpAnswer confirmSignIn(const Confirmation& page) {
    const QString who = page.account.email.isEmpty()
                            ? QStringLiteral("the account of this machine")
                            : QStringLiteral("<strong>%1</strong>").arg(page.account.email.toHtmlEscaped());
    QString text =
        QStringLiteral("<h1>Sign in to Vellumline</h1>"
                       "<p>The Vellumline program on this machine asks to use %1 for its corrections.</p>"
                       "<form method=\"post\" action=\"/login/\">%2%3"
                       "<button class=\"button\" type=\"submit\" autofocus>Sign in</button></form>")
            .arg(who, challengeField(page.challenge), tokenField(page.formToken));
    if (!page.isLocal) {
        text += QStringLiteral("<form method=\"post\" action=\"/logout\">%1%2<button class=\"button quiet\" "
                               "type=\"submit\">Use another account</button></form>")
                    .arg(challengeField(page.challenge), tokenField(page.logoutToken));
    }
    text +=
        page.isLocal
            ? QStringLiteral("<p class=\"note\">Your text is corrected by this service on your own machine "
                             "and is not kept. If you did not start this sign-in, close this page.</p>")
            : QStringLiteral("<p class=\"note\">Your text is corrected by this service and is not kept. If "
                             "you did not start this sign-in, close this page.</p>");
    return servicePage(200, QStringLiteral("Sign in"), text);
}

HttpAnswer login(int status, const LoginForm& page) {
    QString text = QStringLiteral("<h1>Sign in to Vellumline</h1>");
    text += page.challenge.isEmpty()
                ? QStringLiteral("<p>For your account page.</p>")
                : QStringLiteral("<p>The Vellumline program on this machine asks to use your account.</p>");
    text += problemText(page.problem) + QStringLiteral("<form method=\"post\" action=\"/login/\">") +
            challengeField(page.challenge) + tokenField(page.formToken) +
            emailField(page.email, EmailKind::typed) +
            passwordField(QStringLiteral("password"), QStringLiteral("Password"), PasswordKind::present) +
            QStringLiteral("<button class=\"button\" type=\"submit\">Sign in</button></form>");
    if (page.mayRegister) {
        text += QStringLiteral("<p class=\"links\"><a href=\"/register/%1\">Create an account</a></p>")
                    .arg(page.challenge.isEmpty() ? QString()
                                                  : QStringLiteral("?app_challenge=") + page.challenge);
    }
    text += QStringLiteral(
        "<p class=\"note\">Forgot the password? Whoever runs this service can send you a link for a new "
        "one.</p>");
    return servicePage(status, QStringLiteral("Sign in"), text);
}

HttpAnswer registration(int status, const RegisterForm& page) {
    return servicePage(
        status, QStringLiteral("Create an account"),
        QStringLiteral("<h1>Create an account</h1>") + problemText(page.problem) +
            QStringLiteral("<form method=\"post\" action=\"/register/\">") + challengeField(page.challenge) +
            (page.invitation.isEmpty() ? QString() : hidden(QStringLiteral("invitation"), page.invitation)) +
            tokenField(page.formToken) +
            emailField(page.email, page.emailFixed ? EmailKind::fixed : EmailKind::typed) +
            passwordField(QStringLiteral("password"), QStringLiteral("Password"), PasswordKind::chosen) +
            QStringLiteral("<button class=\"button\" type=\"submit\">Create the account</button></form>"
                           "<p class=\"links\"><a href=\"/login/%1\">Sign in instead</a></p>")
                .arg(page.challenge.isEmpty() ? QString()
                                              : QStringLiteral("?app_challenge=") + page.challenge));
}

HttpAnswer passwordReset(int status, const QString& code, const QByteArray& formToken,
                         const QString& problem) {
    return servicePage(
        status, QStringLiteral("New password"),
        QStringLiteral(
            "<h1>Choose a new password</h1><p>It ends every sign-in of the account, here and in the "
            "program.</p>") +
            problemText(problem) + QStringLiteral("<form method=\"post\" action=\"/reset/\">") +
            hidden(QStringLiteral("code"), code) + tokenField(formToken) +
            passwordField(QStringLiteral("password"), QStringLiteral("New password"), PasswordKind::chosen) +
            QStringLiteral("<button class=\"button\" type=\"submit\">Set the password</button></form>"));
}

HttpAnswer signedIn(const QByteArray& code) {
    const QString link = QStringLiteral("vellumline://auth?handoff=") + QString::fromLatin1(code);
    return servicePage(
        200, QStringLiteral("Signed in"),
        QStringLiteral("<h1>You are signed in</h1>"
                       "<p>Vellumline opens now. If your browser asks, allow it.</p>"
                       "<p><a class=\"button\" id=\"open\" href=\"%1\" autofocus>Open Vellumline</a></p>"
                       "<p class=\"note\">Nothing happens? Press the button. The link works once, for ten "
                       "minutes. Afterwards you can close this page.</p>")
            .arg(link),
        QStringLiteral("<meta http-equiv=\"refresh\" content=\"0;url=%1\">").arg(link));
}

HttpAnswer account(int status, const AccountPage& page) {
    const Account& account = page.account;
    QString text = QStringLiteral("<h1>Your account</h1>");
    // Beside a name, in the list below, an address breaks within a word on a narrow screen.
    if (!account.email.isEmpty()) {
        text += QStringLiteral("<p>%1</p>").arg(account.email.toHtmlEscaped());
    }
    text += problemText(page.problem);
    if (account.closed) {
        text += QStringLiteral("<p class=\"strong\">This account is closed.</p>") +
                button("/account/reopen", page.formToken, QStringLiteral("Reopen the account"), "button");
    } else if (account.pastDue && account.plan != QStringLiteral("free")) {
        text += QStringLiteral("<p class=\"strong\">The last payment failed.</p>");
    }
    if (!page.plans.wanted.isEmpty()) {
        text += planOffer(page.plans, page.isLocal);
    } else if (page.isLocal) {
        text += QStringLiteral("<p>This account belongs to the correction service on this machine.</p>");
    }
    text += QStringLiteral("<dl>") + usageRows(account, page.thisMonth) +
            QStringLiteral("</dl><p class=\"links\"><a href=\"/plan/\">Plans</a></p>") + sessionList(page);
    if (!page.isLocal) {
        text +=
            button("/logout", page.formToken, QStringLiteral("Sign out here"), "button quiet") +
            QStringLiteral("<details%1><summary>Change the password</summary><form method=\"post\" "
                           "action=\"/account/password\">")
                .arg(page.problem.isEmpty() ? QString() : QStringLiteral(" open")) +
            hidden(QStringLiteral("username"), account.email) + tokenField(page.formToken) +
            passwordField(QStringLiteral("old_password"), QStringLiteral("Present password"),
                          PasswordKind::present) +
            passwordField(QStringLiteral("password"), QStringLiteral("New password"), PasswordKind::chosen) +
            QStringLiteral(
                "<button class=\"button\" type=\"submit\">Change the password</button></form></details>");
    }
    if (!account.closed) {
        text +=
            QStringLiteral(
                "<details><summary>Close the account</summary><p>A closed account corrects nothing. You can "
                "reopen it here at any time.</p>") +
            button("/account/close", page.formToken, QStringLiteral("Close the account"), "button quiet") +
            QStringLiteral("</details>");
    }
    return servicePage(status, QStringLiteral("Account"), text);
}

HttpAnswer plan(const Account& account, const Plans& plans, bool isLocal) {
    QString text = QStringLiteral("<h1>Your plan</h1><dl>") + row(QStringLiteral("Plan"), planText(account));
    text += row(QStringLiteral("Rewrites"),
                account.plan == QStringLiteral("free") ? QStringLiteral("%1 in all").arg(account.freeRewrites)
                : account.monthlyLimit > 0 ? QStringLiteral("%1 a month").arg(account.monthlyLimit)
                                           : QStringLiteral("as many as you like"));
    if (account.minuteLimit > 0) {
        text += row(QStringLiteral("At most"), QStringLiteral("%1 a minute").arg(account.minuteLimit));
    }
    text += QStringLiteral("</dl><h2>Another plan</h2>") + planOffer(plans, isLocal) +
            QStringLiteral("<p class=\"links\"><a href=\"/account/\">Your account</a></p>");
    return servicePage(200, QStringLiteral("Plan"), text);
}

HttpAnswer message(int status, const QString& title, const QString& text) {
    return servicePage(
        status, title,
        QStringLiteral("<h1>%1</h1><p>%2</p>").arg(title.toHtmlEscaped(), text.toHtmlEscaped()));
}

} // namespace vellumline::pages
