#include "VellumlineService/Service/Pages.h"

#include <QCryptographicHash>

namespace vellumline::pages {

namespace {

const char* const styleSheet = R"(
:root{color-scheme:light dark;--page:#f3f1ec;--card:#fffdf9;--ink:#22201c;--soft:#6a655c;--line:#e2ddd2;
--accent:#2f5d50;--accent-ink:#fff;--shade:0 1px 2px #0001,0 12px 32px #0001}
@media(prefers-color-scheme:dark){:root{--page:#191a1c;--card:#232528;--ink:#ecebe8;--soft:#a9a7a1;--line:#37393d;
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
code{font:.875em/1.4 ui-monospace,"DejaVu Sans Mono",monospace;color:var(--ink)}
)";

const char* const brand =
    R"svg(<div class="brand"><svg viewBox="0 0 28 28" aria-hidden="true"><rect width="28" height="28" rx="7"
fill="var(--accent)"/><path d="M7 9h14M7 14h9M7 19h5" stroke="var(--accent-ink)" stroke-width="2"
stroke-linecap="round"/><path d="m15 18.5 2.2 2.2 4.3-4.6" fill="none" stroke="var(--accent-ink)"
stroke-width="2" stroke-linecap="round" stroke-linejoin="round"/></svg>Vellumline</div>)svg";

HttpAnswer page(int status, const QString& title, const QString& body, const QString& headExtra = {}) {
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

} // namespace

HttpAnswer signIn(const QString& challenge, const QByteArray& formToken, const Account& account) {
    const QString who = account.email.isEmpty()
                            ? QStringLiteral("the account of this machine")
                            : QStringLiteral("<strong>%1</strong>").arg(account.email.toHtmlEscaped());
    return page(
        200, QStringLiteral("Sign in"),
        QStringLiteral("<h1>Sign in to Vellumline</h1>"
                       "<p>The Vellumline program on this machine asks to use %1 for its corrections.</p>"
                       "<form method=\"post\" action=\"/login/\">%2%3"
                       "<button class=\"button\" type=\"submit\" autofocus>Sign in</button></form>"
                       "<p class=\"note\">Your text is corrected by this service on your own machine and is "
                       "not kept. If you did not start this sign-in, close this page.</p>")
            .arg(who, hidden(QStringLiteral("app_challenge"), challenge),
                 hidden(QStringLiteral("form_token"), QString::fromLatin1(formToken))));
}

HttpAnswer signedIn(const QByteArray& code) {
    const QString link = QStringLiteral("vellumline://auth?handoff=") + QString::fromLatin1(code);
    return page(
        200, QStringLiteral("Signed in"),
        QStringLiteral("<h1>You are signed in</h1>"
                       "<p>Vellumline opens now. If your browser asks, allow it.</p>"
                       "<p><a class=\"button\" id=\"open\" href=\"%1\" autofocus>Open Vellumline</a></p>"
                       "<p class=\"note\">Nothing happens? Press the button. The link works once, for ten "
                       "minutes. Afterwards you can close this page.</p>")
            .arg(link),
        QStringLiteral("<meta http-equiv=\"refresh\" content=\"0;url=%1\">").arg(link));
}

HttpAnswer account(const Account& account, const QString& plan, const QByteArray& formToken) {
    QString text = QStringLiteral("<h1>Your account</h1>");
    if (account.closed) {
        text += QStringLiteral("<p class=\"strong\">This account is closed.</p>");
    } else if (account.pastDue && account.plan != QStringLiteral("free")) {
        text += QStringLiteral("<p class=\"strong\">The last payment failed.</p>");
    }
    if (plan == QStringLiteral("monthly") || plan == QStringLiteral("yearly")) {
        text += QStringLiteral("<p>This service sells no plans. Whoever runs it can set the %1 plan with "
                               "<code>vellumline-service account set --plan %1</code>.</p>")
                    .arg(plan);
    } else {
        text += QStringLiteral("<p>This account belongs to the correction service on this machine.</p>");
    }
    const auto row = [](const QString& name, const QString& value) {
        return QStringLiteral("<dt>%1</dt><dd>%2</dd>").arg(name, value.toHtmlEscaped());
    };
    text += QStringLiteral("<dl>") + row(QStringLiteral("Plan"), planText(account));
    text += account.plan == QStringLiteral("free")
                ? row(QStringLiteral("Free rewrites"),
                      QStringLiteral("%1 of %2 used").arg(account.rewritesUsed).arg(account.freeRewrites))
                : row(QStringLiteral("Rewrites"), QString::number(account.rewritesUsed));
    if (!account.email.isEmpty()) {
        text += row(QStringLiteral("E-mail"), account.email);
    }
    text += QStringLiteral("</dl>");
    if (account.closed) {
        text += QStringLiteral("<form method=\"post\" action=\"/account/reopen\">%1"
                               "<button class=\"button\" type=\"submit\">Reopen the account</button></form>")
                    .arg(hidden(QStringLiteral("form_token"), QString::fromLatin1(formToken)));
    }
    return page(200, QStringLiteral("Account"), text);
}

HttpAnswer message(int status, const QString& title, const QString& text) {
    return page(status, title,
                QStringLiteral("<h1>%1</h1><p>%2</p>").arg(title.toHtmlEscaped(), text.toHtmlEscaped()));
}

} // namespace vellumline::pages
