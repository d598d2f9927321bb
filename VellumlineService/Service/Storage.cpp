#include "VellumlineService/Service/Storage.h"

#include "VellumlineService/Service/Migrations.h"
#include "VellumlineService/Service/Tokens.h"

#include <QDateTime>
#include <QStandardPaths>
#include <QTimeZone>

namespace vellumline {

namespace {

constexpr qint64 localId = 1;

// An empty QString may be null, and a null QString would be bound as NULL.
QString notNull(const QString& text) {
    return text.isNull() ? QStringLiteral("") : text;
}

} // namespace

Storage::Storage(DatabaseAddress address) : database_(std::move(address)) {}

QString Storage::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/vellumline-service/service.sqlite");
}

int Storage::schemaVersion() {
    return static_cast<int>(migrations().size());
}

bool Storage::isReady() {
    auto answer = database_.run("SELECT version FROM schema_version");
    return answer.next() && answer.number(0) == schemaVersion();
}

QString Storage::monthOf(qint64 nowMilliseconds) {
    return QDateTime::fromMSecsSinceEpoch(nowMilliseconds, QTimeZone::utc())
        .toString(QStringLiteral("yyyy-MM"));
}

std::optional<QString> Storage::setting(const QString& name) {
    auto answer = database_.run("SELECT value FROM settings WHERE name = ?", {name});
    return answer.next() ? std::optional(answer.text(0)) : std::nullopt;
}

bool Storage::setSetting(const QString& name, const QString& value) {
    return bool(database_.run("INSERT INTO settings (name, value) VALUES (?, ?)"
                              " ON CONFLICT (name) DO UPDATE SET value = excluded.value",
                              {name, notNull(value)}));
}

QByteArray Storage::signingKey() {
    const QString name = QStringLiteral("signingKey");
    database_.run("INSERT INTO settings (name, value) VALUES (?, ?) ON CONFLICT (name) DO NOTHING",
                  {name, QString::fromLatin1(randomToken(32))});
    return setting(name).value_or(QString()).toLatin1();
}

std::optional<Account> Storage::account(qint64 id) {
    auto answer =
        database_.run("SELECT email, plan, rewrites_used, free_rewrites, month, month_used, monthly_limit,"
                      " minute_limit, minute_started, minute_used, renewal_canceled, past_due, closed"
                      " FROM accounts WHERE id = ?",
                      {id});
    if (!answer.next()) {
        return {};
    }
    Account found;
    found.id = id;
    found.email = answer.text(0);
    found.plan = answer.text(1);
    found.rewritesUsed = answer.number(2);
    found.freeRewrites = answer.number(3);
    found.month = answer.text(4);
    found.monthUsed = answer.number(5);
    found.monthlyLimit = answer.number(6);
    found.minuteLimit = answer.number(7);
    found.minuteStarted = answer.number(8);
    found.minuteUsed = answer.number(9);
    found.renewalCanceled = answer.number(10) != 0;
    found.pastDue = answer.number(11) != 0;
    found.closed = answer.number(12) != 0;
    return found;
}

bool Storage::changeLocalAccount(const std::function<void(Account&)>& change) {
    if (!localAccount()) {
        return false;
    }
    return database_.inTransaction([&] {
        // Locks the row, so that no rewrite is counted between the reading and the writing.
        if (database_.run("UPDATE accounts SET id = id WHERE id = ?", {localId}).changed() != 1) {
            return false;
        }
        auto fresh = account(localId);
        if (!fresh) {
            return false;
        }
        change(*fresh);
        return saveAccount(*fresh);
    });
}

bool Storage::saveAccount(const Account& a) {
    return database_
               .run(
                   "UPDATE accounts SET email = ?, plan = ?, rewrites_used = ?, free_rewrites = ?, month = ?,"
                   " month_used = ?, monthly_limit = ?, minute_limit = ?, minute_started = ?, minute_used = "
                   "?,"
                   " renewal_canceled = ?, past_due = ?, closed = ? WHERE id = ?",
                   {notNull(a.email), a.plan, a.rewritesUsed, a.freeRewrites, notNull(a.month), a.monthUsed,
                    a.monthlyLimit, a.minuteLimit, a.minuteStarted, a.minuteUsed, int(a.renewalCanceled),
                    int(a.pastDue), int(a.closed), a.id})
               .changed() == 1;
}

bool Storage::reopenAccount(qint64 id) {
    return bool(database_.run("UPDATE accounts SET closed = 0 WHERE id = ?", {id}));
}

std::optional<Account> Storage::localAccount() {
    if (auto present = account(localId)) {
        return present;
    }
    // Nobody sells anything to a person on their own machine: the plan is "paid", the defaults of Account.
    const Account fresh;
    if (!database_.run(
            "INSERT INTO accounts (id, email, plan, rewrites_used, free_rewrites, month, month_used,"
            " monthly_limit, minute_limit, renewal_canceled, past_due, closed)"
            " VALUES (?, '', ?, 0, ?, '', 0, ?, ?, 0, 0, 0) ON CONFLICT (id) DO NOTHING",
            {localId, fresh.plan, fresh.freeRewrites, fresh.monthlyLimit, fresh.minuteLimit})) {
        return {};
    }
    return account(localId);
}

Storage::Use Storage::countRewrite(qint64 accountId, qint64 nowMilliseconds) {
    const QString month = monthOf(nowMilliseconds);
    const qint64 minuteAgo = nowMilliseconds - 60'000;
    {
        const auto answer =
            database_.run("UPDATE accounts SET rewrites_used = rewrites_used + 1,"
                          " month_used = CASE WHEN month = ? THEN month_used + 1 ELSE 1 END, month = ?,"
                          " minute_used = CASE WHEN minute_started > ? THEN minute_used + 1 ELSE 1 END,"
                          " minute_started = CASE WHEN minute_started > ? THEN minute_started ELSE ? END"
                          " WHERE id = ? AND closed = 0 AND (plan <> 'free' OR rewrites_used < free_rewrites)"
                          " AND (monthly_limit = 0 OR month <> ? OR month_used < monthly_limit)"
                          " AND (minute_limit = 0 OR minute_started <= ? OR minute_used < minute_limit)",
                          {month, month, minuteAgo, minuteAgo, nowMilliseconds, accountId, month, minuteAgo});
        if (!answer) {
            return Use::storageFailure;
        }
        if (answer.changed() == 1) {
            return Use::counted;
        }
    }
    const auto refused = account(accountId);
    if (!refused) {
        return Use::missing;
    }
    if (refused->closed) {
        return Use::closed;
    }
    if (refused->freeUsedUp()) {
        return Use::freeLimit;
    }
    return refused->monthUsedUp(month) ? Use::monthlyLimit : Use::minuteLimit;
}

bool Storage::addHandoff(const QByteArray& code, const QString& challenge, qint64 accountId, qint64 now) {
    return database_.inTransaction([&] {
        // Codes are kept a day past their end so that a late program is told "gone" instead of "unknown".
        return database_.run("DELETE FROM handoffs WHERE expires_at < ?", {now - 86400}) &&
               database_.run(
                   "INSERT INTO handoffs (code_hash, challenge, account_id, expires_at) VALUES (?, ?, ?, ?)",
                   {secretHash(code), challenge, accountId, now + handoffSeconds});
    });
}

bool Storage::addRefreshToken(const QString& family, const QByteArray& token, qint64 now) {
    return bool(
        database_.run("INSERT INTO refresh_tokens (token_hash, family_id, issued_at) VALUES (?, ?, ?)",
                      {secretHash(token), family, now}));
}

Storage::Issued Storage::redeemHandoff(const QByteArray& code, const QByteArray& challenge, qint64 now) {
    Issued issued;
    const QString hash = secretHash(code);
    const bool done = database_.inTransaction([&] {
        // The first of several attempts takes the code; PostgreSQL lets the others wait here.
        const auto taken = database_.run(
            "UPDATE handoffs SET used_at = ? WHERE code_hash = ? AND used_at IS NULL", {now, hash});
        if (!taken) {
            return false;
        }
        const bool first = taken.changed() == 1;
        QByteArray expected;
        qint64 accountId = 0;
        bool expired = false;
        QString earlier;
        {
            auto answer = database_.run(
                "SELECT challenge, account_id, expires_at, family_id FROM handoffs WHERE code_hash = ?",
                {hash});
            if (!answer) {
                return false;
            }
            if (!answer.next()) {
                issued.outcome = Exchange::refused;
                return true;
            }
            expected = answer.text(0).toLatin1();
            accountId = answer.number(1);
            expired = answer.number(2) <= now;
            earlier = answer.text(3);
        }
        if (!first || expired) {
            issued.outcome = Exchange::gone;
            return earlier.isEmpty() ||
                   database_.run("UPDATE families SET ended_at = ? WHERE id = ? AND ended_at IS NULL",
                                 {now, earlier});
        }
        if (!equalInConstantTime(expected, challenge)) {
            issued.outcome = Exchange::refused;
            return true;
        }
        const auto owner = account(accountId);
        if (!owner) {
            return false;
        }
        const QString family = QString::fromLatin1(randomToken(16));
        issued.account = *owner;
        issued.refreshToken = randomToken(32);
        issued.outcome = Exchange::done;
        return database_.run("UPDATE handoffs SET family_id = ? WHERE code_hash = ?", {family, hash}) &&
               database_.run("INSERT INTO families (id, account_id, created_at) VALUES (?, ?, ?)",
                             {family, accountId, now}) &&
               addRefreshToken(family, issued.refreshToken, now);
    });
    return done ? issued : Issued();
}

Storage::Issued Storage::rotateRefreshToken(const QByteArray& token, qint64 now) {
    Issued issued;
    const QString hash = secretHash(token);
    const bool done = database_.inTransaction([&] {
        // The first of several attempts takes the token; PostgreSQL lets the others wait here.
        const auto taken = database_.run(
            "UPDATE refresh_tokens SET used_at = ? WHERE token_hash = ? AND used_at IS NULL", {now, hash});
        if (!taken) {
            return false;
        }
        const bool first = taken.changed() == 1;
        QString family;
        qint64 accountId = 0;
        bool idle = false;
        bool ended = false;
        {
            auto answer = database_.run(
                "SELECT t.family_id, t.issued_at, f.account_id, f.ended_at FROM refresh_tokens t"
                " JOIN families f ON f.id = t.family_id WHERE t.token_hash = ?",
                {hash});
            if (!answer) {
                return false;
            }
            if (!answer.next()) {
                issued.outcome = Exchange::refused;
                return true;
            }
            family = answer.text(0);
            idle = answer.number(1) + refreshIdleSeconds <= now;
            accountId = answer.number(2);
            ended = !answer.isNull(3);
        }
        if (!first || ended || idle) {
            issued.outcome = Exchange::refused;
            return bool(database_.run("UPDATE families SET ended_at = ? WHERE id = ? AND ended_at IS NULL",
                                      {now, family}));
        }
        const auto owner = account(accountId);
        if (!owner) {
            return false;
        }
        issued.account = *owner;
        issued.refreshToken = randomToken(32);
        issued.outcome = Exchange::done;
        // Exchanged tokens are remembered as long as they could have lived, so that a copy is still
        // recognised.
        return database_.run("DELETE FROM refresh_tokens WHERE family_id = ? AND used_at < ?",
                             {family, now - refreshIdleSeconds}) &&
               addRefreshToken(family, issued.refreshToken, now);
    });
    return done ? issued : Issued();
}

} // namespace vellumline
