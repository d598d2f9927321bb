#pragma once

#include "VellumlineService/Service/Database.h"

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
/// processes on one database. Operations answer `storageFailure` (or nothing) when the database does; they
/// never throw.
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

    std::optional<QString> setting(const QString& name);
    bool setSetting(const QString& name, const QString& value);
    /// The key that signs access tokens; made on first use.
    QByteArray signingKey();

    std::optional<Account> account(qint64 id);
    /// Reads, changes and writes the local account in one transaction; the account is made on first use.
    bool changeLocalAccount(const std::function<void(Account&)>& change);
    bool reopenAccount(qint64 id);
    /// The one account of a service for one person; made on first use.
    std::optional<Account> localAccount();

    enum class Use { counted, freeLimit, monthlyLimit, minuteLimit, closed, missing, storageFailure };
    /// Counts one rewrite, if the account may have it, in one atomic statement: of any number of simultaneous
    /// requests, in any number of processes, exactly as many are counted as the allowance holds.
    Use countRewrite(qint64 accountId, qint64 nowMilliseconds);
    /// "2026-03", UTC.
    static QString monthOf(qint64 nowMilliseconds);

    bool addHandoff(const QByteArray& code, const QString& challenge, qint64 accountId, qint64 now);
    enum class Exchange { done, refused, gone, storageFailure };
    struct Issued {
        Exchange outcome = Exchange::storageFailure;
        Account account;
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
    bool addRefreshToken(const QString& family, const QByteArray& token, qint64 now);

    Database database_;
};

} // namespace vellumline
