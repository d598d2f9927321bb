#pragma once

#include "VellumlineService/Service/HttpMessage.h"
#include "VellumlineService/Service/KeyRing.h"
#include "VellumlineService/Service/Pages.h"
#include "VellumlineService/Service/ServiceSettings.h"

#include <functional>

namespace vellumline {

/// The pages for browsers: signing in, registering, a forgotten password, the account, the plans. No page
/// needs a script. Every form bears a token bound to the browser and to what the form does. Thread-safe.
class AccountSite {
  public:
    using Seconds = std::function<qint64()>;

    AccountSite(const ServiceSettings& settings, Storage& storage, KeyRing& keys, Seconds now);

    HttpAnswer loginPage(const HttpRequest& request);
    HttpAnswer login(const HttpRequest& request);
    HttpAnswer logout(const HttpRequest& request);
    HttpAnswer registerPage(const HttpRequest& request);
    HttpAnswer registerAccount(const HttpRequest& request);
    HttpAnswer resetPage(const HttpRequest& request);
    HttpAnswer reset(const HttpRequest& request);
    HttpAnswer accountPage(const HttpRequest& request);
    HttpAnswer planPage(const HttpRequest& request);
    HttpAnswer reopen(const HttpRequest& request) { return setClosed(request, false); }
    HttpAnswer close(const HttpRequest& request) { return setClosed(request, true); }
    HttpAnswer endSession(const HttpRequest& request);
    HttpAnswer changePassword(const HttpRequest& request);

    /// Tries in a quarter of an hour before a sign-in has to wait: of one address for one account, of all
    /// addresses for one account, and of one address for all accounts.
    static constexpr qint64 attemptWindow = 900;
    static constexpr qint64 attemptsOfOne = 5;
    static constexpr qint64 attemptsForAccount = 50;
    static constexpr qint64 attemptsOfAddress = 100;

  private:
    using Form = QList<QPair<QString, QString>>;
    struct Browser {
        std::optional<Storage::Visitor> visitor; ///< Nothing when nobody is signed in.
        QByteArray session;                      ///< The cookie of a signed-in browser.
        QByteArray visit;                        ///< The cookie of any other.
    };

    bool local() const { return settings_.accounts == Accounts::local; }
    /// Nothing when the database fails, so that it is not known who this is.
    std::optional<Browser> browserOf(const HttpRequest& request);
    /// Whose page this is: the local account, or the signed-in one.
    Lookup<Account> ownerOf(const Browser& browser);
    QByteArray cookie(const HttpRequest& request, const QByteArray& name) const;
    QByteArray cookieName(const char* name) const;
    void setCookie(HttpAnswer& answer, const char* name, const QByteArray& value, qint64 seconds) const;
    /// Gives a browser without one the cookie that its form tokens are bound to.
    HttpAnswer withVisit(HttpAnswer answer, const HttpRequest& request, const Browser& browser) const;

    /// Nothing when the database fails.
    std::optional<QByteArray> formToken(const QByteArray& purpose, const Browser& browser);
    /// The items of a form that this browser was given for this purpose; else an answer in `refusal`.
    std::optional<Form> formOf(const HttpRequest& request, const Browser& browser, const QByteArray& purpose,
                               HttpAnswer& refusal);
    enum class FormToken { valid, invalid, storageFailure };
    FormToken checkFormToken(const QByteArray& purpose, const Browser& browser, const QString& token);
    QByteArray bound(const QByteArray& purpose, const Browser& browser) const;
    bool sameOrigin(const HttpRequest& request) const;
    QByteArray clientOf(const HttpRequest& request) const;

    /// Nothing, or why there is no try now. One that cannot be counted is none.
    std::optional<HttpAnswer> tooManyAttempts(const QByteArray& client, const QString& email);
    /// What is sold, with what the address of the page asks for; nothing when the database fails.
    std::optional<pages::Plans> plansFor(const HttpRequest& request);
    HttpAnswer setClosed(const HttpRequest& request, bool closed);
    HttpAnswer handOver(const Account& account, const QString& challenge);
    HttpAnswer signInBrowser(HttpAnswer answer, qint64 accountId);
    HttpAnswer loginForm(const HttpRequest& request, Browser browser, const QString& challenge, int status,
                         const QString& problem, const QString& email);
    HttpAnswer registerForm(const HttpRequest& request, Browser browser, const QString& challenge,
                            const QString& invitation, int status, const QString& problem,
                            const QString& email);
    HttpAnswer accountAnswer(const HttpRequest& request, const Browser& browser, int status,
                             const QString& problem);

    const ServiceSettings& settings_;
    Storage& storage_;
    KeyRing& keys_;
    const Seconds now_;
    const Passwords passwords_;
};

} // namespace vellumline
