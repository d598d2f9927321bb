#pragma once

#include "VellumlineService/Service/Database.h"
#include "VellumlineService/Service/Lookup.h"
#include "VellumlineService/Service/Tokens.h"

#include <QByteArray>
#include <QString>
#include <functional>
#include <optional>

namespace vellumline {

struct Account {
    qint64 id = 0;
    QString email; ///< Empty when none is known.
    QString plan = QStringLiteral("paid");
    qint64 rewritesUsed = 0;
    qint64 freeRewrites = 30;
    qint64 monthUsed = 0;     ///< Rewrites in `month`.
    QString month;            ///< "2026-03", UTC.
    qint64 monthlyLimit = 0;  ///< 0: none.
    qint64 minuteLimit = 60;  ///< 0: none.
    qint64 minuteStarted = 0; ///< Milliseconds; the minute that `minuteUsed` counts.
    qint64 minuteUsed = 0;
    bool renewalCanceled = false;
    bool pastDue = false;
    bool closed = false;

    bool freeUsedUp() const { return plan == QStringLiteral("free") && rewritesUsed >= freeRewrites; }
    bool monthUsedUp(const QString& thisMonth) const {
        return monthlyLimit > 0 && month == thisMonth && monthUsed >= monthlyLimit;
    }
    bool minuteUsedUp(qint64 nowMilliseconds) const {
        return minuteLimit > 0 && minuteStarted > nowMilliseconds - 60'000 && minuteUsed >= minuteLimit;
    }
};

/// Everything the service keeps, the same on SQLite and PostgreSQL. Thread-safe, and safe for several
/// processes on one database. When the database fails, operations answer `storageFailure`, a failed lookup,
/// false or nothing; they never throw.
class Storage {
  public:
    /// Times are seconds since 1970-01-01 UTC, where not called milliseconds.
    static constexpr qint64 handoffSeconds = 600;
    static constexpr qint64 refreshIdleSeconds = qint64{180} * 86400;

    explicit Storage(DatabaseAddress address);

    /// The usual place: vellumline-service/service.sqlite under the XDG data folder.
    static QString defaultPath();
    /// The schema this program writes.
    static int schemaVersion();

    /// See Database::open.
    std::optional<QString> open() { return database_.open(); }
    /// Whether the database answers, with the schema that this program knows.
    bool isReady();
    /// See Database::reportFailuresTo.
    void reportFailuresTo(Database::FailureReport report) { database_.reportFailuresTo(std::move(report)); }

    Lookup<QString> setting(const QString& name);
    bool setSetting(const QString& name, const QString& value);
    /// Every key that was not thrown away yet, newest first.
    std::optional<QList<SigningKey>> signingKeys();
    /// Adds a key and throws away those made before `obsolete`.
    bool addSigningKey(const SigningKey& key, qint64 obsolete);

    Lookup<Account> account(qint64 id);
    /// The account of a program's sign-in, as long as that was not ended.
    Lookup<Account> accountOfSession(qint64 id, const QString& session);
    /// Reads, changes and writes an account in one transaction.
    bool changeAccount(qint64 id, const std::function<void(Account&)>& change);
    /// The same for the local account, which is made on first use.
    bool changeLocalAccount(const std::function<void(Account&)>& change);
    bool setClosed(qint64 id, bool closed);
    std::optional<QList<Account>> accounts();
    /// The one account of a service for one person; made on first use.
    Lookup<Account> localAccount();

    enum class Use { counted, freeLimit, monthlyLimit, minuteLimit, closed, missing, storageFailure };
    /// Counts one rewrite, if the account may have it, in one atomic statement: of any number of simultaneous
    /// requests, in any number of processes, exactly as many are counted as the allowance holds.
    Use countRewrite(qint64 accountId, qint64 nowMilliseconds);
    /// "2026-03", UTC.
    static QString monthOf(qint64 nowMilliseconds);

    /// What somebody signs in with in a browser. Addresses are in the form of `normalEmail`.
    struct Login {
        qint64 accountId = 0;
        QString passwordHash; ///< Empty: none was chosen yet.
    };
    /// Trimmed, in lower case; nothing when it cannot be an e-mail address.
    static std::optional<QString> normalEmail(const QString& text);
    Lookup<Login> login(const QString& email);
    Lookup<Login> loginOfAccount(qint64 accountId);
    bool setPassword(qint64 accountId, const QString& passwordHash);

    enum class Registered { done, taken, badInvitation, storageFailure };
    struct NewAccount {
        Registered outcome = Registered::storageFailure;
        qint64 id = 0;
    };
    /// Makes an account with the plan and limits of `fresh`. An invitation, when one is given, is used up.
    NewAccount registerAccount(const QString& email, const QString& passwordHash, const Account& fresh,
                               const std::optional<QByteArray>& invitation, qint64 now);

    enum class Purpose { invitation, passwordReset };
    struct OneTimeCode {
        qint64 accountId = 0; ///< 0 for an invitation.
        QString email;        ///< Empty: any.
    };
    bool addOneTimeCode(Purpose purpose, const QByteArray& code, const OneTimeCode& what, qint64 expiresAt);
    /// What a code is for, while it can be used.
    Lookup<OneTimeCode> oneTimeCode(Purpose purpose, const QByteArray& code, qint64 now);
    /// Sets the password, uses the code up, and ends every session of the account.
    bool resetPassword(const QByteArray& code, const QString& passwordHash, qint64 now);

    static constexpr qint64 browserSeconds = qint64{30} * 86400;
    struct Session {
        QString id;
        enum class Kind { program, browser } kind = Kind::program;
        qint64 createdAt = 0;
        qint64 lastUsedAt = 0;
    };
    struct Visitor {
        QString session;
        Account account;
    };
    bool addBrowserSession(const QByteArray& token, qint64 accountId, qint64 now);
    /// Whose browser this is; the session lives 30 days from its last use.
    Lookup<Visitor> visitor(const QByteArray& token, qint64 now);
    /// Those that can still be used, last used first.
    std::optional<QList<Session>> sessions(qint64 accountId, qint64 now);
    bool endSession(qint64 accountId, const QString& id, qint64 now);
    /// Ends all but one, or all.
    bool endSessions(qint64 accountId, const QString& except, qint64 now);

    /// Counts a try and says how many there were in the present window of so many seconds; nothing when the
    /// database fails.
    std::optional<qint64> countAttempt(const QByteArray& subject, qint64 window, qint64 now);
    bool forgetAttempts(const QByteArray& subject, qint64 now);

    bool addHandoff(const QByteArray& code, const QString& challenge, qint64 accountId, qint64 now);
    enum class Exchange { done, refused, gone, storageFailure };
    struct Issued {
        Exchange outcome = Exchange::storageFailure;
        Account account;
        QString session;
        QByteArray refreshToken;
    };
    /// Redeems a code once. The first attempt uses it up whether its challenge fits or not; a second attempt
    /// also ends the tokens that the first one got (RFC 6749 section 4.1.2).
    Issued redeemHandoff(const QByteArray& code, const QByteArray& challenge, qint64 now);
    /// Exchanges a refresh token for its successor. A token that was exchanged before ends its whole family:
    /// somebody has a copy (RFC 9700 section 4.14.2).
    Issued rotateRefreshToken(const QByteArray& token, qint64 now);

  private:
    bool saveAccount(const Account& account);
    bool insertAccount(const Account& account);
    static Account accountIn(const DatabaseAnswer& answer);
    static Login loginIn(const DatabaseAnswer& answer);
    bool addRefreshToken(const QString& family, const QByteArray& token, qint64 now);

    Database database_;
};

} // namespace vellumline
