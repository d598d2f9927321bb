#pragma once

#include <QByteArray>
#include <QSqlDatabase>
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
    qint64 monthUsed = 0;    ///< Rewrites in `month`.
    QString month;           ///< "2026-03", UTC.
    qint64 monthlyLimit = 0; ///< 0: none.
    qint64 minuteLimit = 60; ///< 0: none.
    bool renewalCanceled = false;
    bool pastDue = false;
    bool closed = false;

    bool freeUsedUp() const { return plan == QStringLiteral("free") && rewritesUsed >= freeRewrites; }
    bool monthUsedUp(const QString& thisMonth) const {
        return monthlyLimit > 0 && month == thisMonth && monthUsed >= monthlyLimit;
    }
};

/// Everything the service keeps. Thread-safe: each thread has a database connection of its own. Operations
/// answer `storageFailure` (or nothing) when the database does; they never throw.
class Storage {
  public:
    /// Times are seconds since 1970-01-01 UTC.
    static constexpr qint64 handoffSeconds = 600;
    static constexpr qint64 refreshIdleSeconds = qint64{180} * 86400;

    explicit Storage(QString path);
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;
    ~Storage();

    /// The usual place: vellumline-service/service.sqlite under the XDG data folder.
    static QString defaultPath();
    /// The schema this program writes.
    static int schemaVersion();

    /// Creates the file (0600) and its folder (0700) when missing and brings the schema up to date. A
    /// sentence for the user when that cannot be.
    std::optional<QString> open();

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

    enum class Use { counted, freeLimit, monthlyLimit, closed, missing, storageFailure };
    /// Counts one rewrite, if the account may have it, in one atomic statement: of any number of simultaneous
    /// requests exactly as many are counted as the allowance holds.
    Use countRewrite(qint64 accountId, const QString& month);

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
    bool saveAccount(QSqlDatabase& database, const Account& account);
    QSqlDatabase database();
    /// Runs `work` in a write transaction; false rolls back.
    bool inTransaction(const std::function<bool(QSqlDatabase&)>& work);
    std::optional<Account> account(QSqlDatabase& database, qint64 id);
    bool addRefreshToken(QSqlDatabase& database, const QString& family, const QByteArray& token, qint64 now);

    const QString path_;
    const quint64 id_;
};

} // namespace vellumline
