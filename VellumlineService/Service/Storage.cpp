#include "VellumlineService/Service/Storage.h"

#include "VellumlineService/Service/Migrations.h"

#include <QDateTime>
#include <QStandardPaths>
#include <QTimeZone>
#include <algorithm>

namespace vellumline {

namespace {

constexpr qint64 localId = 1;

// An empty QString may be null, and a null QString would be bound as NULL.
QString notNull(const QString& text) {
    return text.isNull() ? QStringLiteral("") : text;
}

template<class T, class Read> Lookup<T> firstOf(DatabaseAnswer answer, Read read) {
    if (!answer) {
        return Lookup<T>::failure();
    }
    return answer.next() ? Lookup<T>(read(answer)) : Lookup<T>::none();
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

Lookup<QString> Storage::setting(const QString& name) {
    return firstOf<QString>(database_.run("SELECT value FROM settings WHERE name = ?", {name}),
                            [](const DatabaseAnswer& answer) { return answer.text(0); });
}

bool Storage::setSetting(const QString& name, const QString& value) {
    return bool(database_.run("INSERT INTO settings (name, value) VALUES (?, ?)"
                              " ON CONFLICT (name) DO UPDATE SET value = excluded.value",
                              {name, notNull(value)}));
}

std::optional<QList<SigningKey>> Storage::signingKeys() {
    auto answer =
        database_.run("SELECT id, secret, created_at FROM signing_keys ORDER BY created_at DESC, id");
    if (!answer) {
        return {};
    }
    QList<SigningKey> keys;
    while (answer.next()) {
        keys.append({answer.text(0), answer.text(1).toLatin1(), answer.number(2)});
    }
    return keys;
}

bool Storage::addSigningKey(const SigningKey& key, qint64 obsolete) {
    return database_.run("DELETE FROM signing_keys WHERE created_at < ?", {obsolete}) &&
           database_.run("INSERT INTO signing_keys (id, secret, created_at) VALUES (?, ?, ?)",
                         {key.id, QString::fromLatin1(key.secret), key.createdAt});
}

// A macro, as each statement has to be one literal.
#define ACCOUNT_COLUMNS                                                                                      \
    "SELECT a.id, a.email, a.plan, a.rewrites_used, a.free_rewrites, a.month, a.month_used, "                \
    "a.monthly_limit,"                                                                                       \
    " a.minute_limit, a.minute_started, a.minute_used, a.renewal_canceled, a.past_due, a.closed FROM "       \
    "accounts a"

Account Storage::accountIn(const DatabaseAnswer& answer) {
    Account found;
    found.id = answer.number(0);
    found.email = answer.text(1);
    found.plan = answer.text(2);
    found.rewritesUsed = answer.number(3);
    found.freeRewrites = answer.number(4);
    found.month = answer.text(5);
    found.monthUsed = answer.number(6);
    found.monthlyLimit = answer.number(7);
    found.minuteLimit = answer.number(8);
    found.minuteStarted = answer.number(9);
    found.minuteUsed = answer.number(10);
    found.renewalCanceled = answer.number(11) != 0;
    found.pastDue = answer.number(12) != 0;
    found.closed = answer.number(13) != 0;
    return found;
}

Lookup<Account> Storage::account(qint64 id) {
    return firstOf<Account>(database_.run(ACCOUNT_COLUMNS " WHERE a.id = ?", {id}), accountIn);
}

Lookup<Account> Storage::accountOfSession(qint64 id, const QString& session) {
    return firstOf<Account>(database_.run(ACCOUNT_COLUMNS
                                          " JOIN families f ON f.account_id = a.id"
                                          " WHERE a.id = ? AND f.id = ? AND f.ended_at IS NULL",
                                          {id, notNull(session)}),
                            accountIn);
}

std::optional<QList<Account>> Storage::accounts() {
    auto answer = database_.run(ACCOUNT_COLUMNS " ORDER BY a.id");
    if (!answer) {
        return {};
    }
    QList<Account> all;
    while (answer.next()) {
        all.append(accountIn(answer));
    }
    return all;
}

bool Storage::changeAccount(qint64 id, const std::function<void(Account&)>& change) {
    return database_.inTransaction([&] {
        // Locks the row, so that no rewrite is counted between the reading and the writing.
        if (database_.run("UPDATE accounts SET id = id WHERE id = ?", {id}).changed() != 1) {
            return false;
        }
        auto fresh = account(id);
        if (!fresh) {
            return false;
        }
        change(*fresh);
        return saveAccount(*fresh);
    });
}

bool Storage::changeLocalAccount(const std::function<void(Account&)>& change) {
    return localAccount() && changeAccount(localId, change);
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

bool Storage::insertAccount(const Account& a) {
    return bool(database_.run(
        "INSERT INTO accounts (id, email, plan, rewrites_used, free_rewrites, month, month_used,"
        " monthly_limit, minute_limit, renewal_canceled, past_due, closed)"
        " VALUES (?, ?, ?, 0, ?, '', 0, ?, ?, 0, 0, 0) ON CONFLICT (id) DO NOTHING",
        {a.id, notNull(a.email), a.plan, a.freeRewrites, a.monthlyLimit, a.minuteLimit}));
}

bool Storage::setClosed(qint64 id, bool closed) {
    return database_.run("UPDATE accounts SET closed = ? WHERE id = ?", {int(closed), id}).changed() == 1;
}

Lookup<Account> Storage::localAccount() {
    if (auto present = account(localId); present || present.failed()) {
        return present;
    }
    // Nobody sells anything to a person on their own machine: the plan is "paid", the defaults of Account.
    Account fresh;
    fresh.id = localId;
    return insertAccount(fresh) ? account(localId) : Lookup<Account>::failure();
}

std::optional<QString> Storage::normalEmail(const QString& text) {
    const QString email = text.trimmed().toLower();
    const qsizetype at = email.lastIndexOf(u'@');
    const bool odd = std::any_of(email.cbegin(), email.cend(), [](QChar c) {
        return c.isSpace() || !c.isPrint() || c == u'<' || c == u'>' || c == u',' || c == u';';
    });
    // RFC 5321 section 4.5.3.1: 64 and 255 octets, 254 in all.
    if (odd || at < 1 || at > 64 || at + 1 >= email.size() || email.toUtf8().size() > 254) {
        return {};
    }
    return email;
}

Storage::Login Storage::loginIn(const DatabaseAnswer& answer) {
    return {answer.number(0), answer.text(1)};
}

Lookup<Storage::Login> Storage::login(const QString& email) {
    return firstOf<Login>(
        database_.run("SELECT account_id, password_hash FROM logins WHERE email = ?", {notNull(email)}),
        loginIn);
}

Lookup<Storage::Login> Storage::loginOfAccount(qint64 accountId) {
    return firstOf<Login>(
        database_.run("SELECT account_id, password_hash FROM logins WHERE account_id = ?", {accountId}),
        loginIn);
}

bool Storage::setPassword(qint64 accountId, const QString& passwordHash) {
    return database_
               .run("UPDATE logins SET password_hash = ? WHERE account_id = ?",
                    {notNull(passwordHash), accountId})
               .changed() == 1;
}

Storage::NewAccount Storage::registerAccount(const QString& email, const QString& passwordHash,
                                             const Account& fresh,
                                             const std::optional<QByteArray>& invitation, qint64 now) {
    NewAccount made;
    const bool done = database_.inTransaction([&] {
        if (invitation) {
            const auto used = database_.run(
                "DELETE FROM one_time_codes WHERE code_hash = ? AND purpose = 'invitation' AND expires_at > ?"
                " AND (email = '' OR email = ?)",
                {secretHash(*invitation), now, email});
            if (used.changed() != 1) {
                made.outcome = used ? Registered::badInvitation : Registered::storageFailure;
                return false;
            }
        }
        // The local account has number 1, whether there is one yet or not.
        {
            auto next =
                database_.run("INSERT INTO counters (name, value) VALUES ('account', 2)"
                              " ON CONFLICT (name) DO UPDATE SET value = counters.value + 1 RETURNING value");
            if (!next.next()) {
                return false;
            }
            made.id = next.number(0);
        }
        Account account = fresh;
        account.id = made.id;
        account.email = email;
        if (!insertAccount(account)) {
            return false;
        }
        const auto added =
            database_.run("INSERT INTO logins (email, account_id, password_hash) VALUES (?, ?, ?)"
                          " ON CONFLICT (email) DO NOTHING",
                          {email, made.id, notNull(passwordHash)});
        if (added && added.changed() == 0) {
            made.outcome = Registered::taken;
        }
        return added.changed() == 1;
    });
    if (done) {
        made.outcome = Registered::done;
    }
    return made;
}

namespace {

QString purposeName(Storage::Purpose purpose) {
    return purpose == Storage::Purpose::invitation ? QStringLiteral("invitation") : QStringLiteral("reset");
}

} // namespace

bool Storage::addOneTimeCode(Purpose purpose, const QByteArray& code, const OneTimeCode& what,
                             qint64 expiresAt) {
    return bool(database_.run(
        "INSERT INTO one_time_codes (code_hash, purpose, account_id, email, expires_at)"
        " VALUES (?, ?, ?, ?, ?)",
        {secretHash(code), purposeName(purpose),
         what.accountId == 0 ? QVariant(QMetaType::fromType<qlonglong>()) : QVariant(what.accountId),
         notNull(what.email), expiresAt}));
}

Lookup<Storage::OneTimeCode> Storage::oneTimeCode(Purpose purpose, const QByteArray& code, qint64 now) {
    return firstOf<OneTimeCode>(
        database_.run("SELECT account_id, email FROM one_time_codes WHERE code_hash = ? AND purpose = ?"
                      " AND expires_at > ?",
                      {secretHash(code), purposeName(purpose), now}),
        [](const DatabaseAnswer& answer) {
            return OneTimeCode{answer.number(0), answer.text(1)};
        });
}

bool Storage::resetPassword(const QByteArray& code, const QString& passwordHash, qint64 now) {
    return database_.inTransaction([&] {
        const auto what = oneTimeCode(Purpose::passwordReset, code, now);
        return what && setPassword(what->accountId, passwordHash) &&
               database_.run("DELETE FROM one_time_codes WHERE code_hash = ?", {secretHash(code)})
                       .changed() == 1 &&
               endSessions(what->accountId, QString(), now);
    });
}

bool Storage::addBrowserSession(const QByteArray& token, qint64 accountId, qint64 now) {
    return database_.run("DELETE FROM browser_sessions WHERE last_used_at < ?", {now - browserSeconds}) &&
           database_.run("INSERT INTO browser_sessions (token_hash, id, account_id, created_at, last_used_at)"
                         " VALUES (?, ?, ?, ?, ?)",
                         {secretHash(token), QString::fromLatin1(randomToken(16)), accountId, now, now});
}

Lookup<Storage::Visitor> Storage::visitor(const QByteArray& token, qint64 now) {
    const QString hash = secretHash(token);
    Visitor found;
    qint64 lastUsed = 0;
    qint64 accountId = 0;
    {
        auto answer = database_.run("SELECT id, account_id, last_used_at FROM browser_sessions"
                                    " WHERE token_hash = ? AND last_used_at > ?",
                                    {hash, now - browserSeconds});
        if (!answer) {
            return Lookup<Visitor>::failure();
        }
        if (!answer.next()) {
            return Lookup<Visitor>::none();
        }
        found.session = answer.text(0);
        accountId = answer.number(1);
        lastUsed = answer.number(2);
    }
    // To the hour is enough for a list that people read, and spares a write for each page.
    if (lastUsed < now - 3600) {
        database_.run("UPDATE browser_sessions SET last_used_at = ? WHERE token_hash = ?", {now, hash});
    }
    const auto owner = account(accountId);
    if (!owner) {
        return owner.failed() ? Lookup<Visitor>::failure() : Lookup<Visitor>::none();
    }
    found.account = *owner;
    return found;
}

std::optional<QList<Storage::Session>> Storage::sessions(qint64 accountId, qint64 now) {
    QList<Session> all;
    auto programs = database_.run("SELECT id, created_at, last_used_at FROM families WHERE account_id = ?"
                                  " AND ended_at IS NULL AND last_used_at > ?",
                                  {accountId, now - refreshIdleSeconds});
    if (!programs) {
        return {};
    }
    while (programs.next()) {
        all.append({programs.text(0), Session::Kind::program, programs.number(1), programs.number(2)});
    }
    auto browsers =
        database_.run("SELECT id, created_at, last_used_at FROM browser_sessions WHERE account_id = ?"
                      " AND last_used_at > ?",
                      {accountId, now - browserSeconds});
    if (!browsers) {
        return {};
    }
    while (browsers.next()) {
        all.append({browsers.text(0), Session::Kind::browser, browsers.number(1), browsers.number(2)});
    }
    std::sort(all.begin(), all.end(),
              [](const Session& a, const Session& b) { return a.lastUsedAt > b.lastUsedAt; });
    return all;
}

bool Storage::endSession(qint64 accountId, const QString& id, qint64 now) {
    // An id is that of one kind: nothing is ended when this fails.
    return database_.run(
               "UPDATE families SET ended_at = ? WHERE account_id = ? AND id = ? AND ended_at IS NULL",
               {now, accountId, id}) &&
           database_.run("DELETE FROM browser_sessions WHERE account_id = ? AND id = ?", {accountId, id});
}

bool Storage::endSessions(qint64 accountId, const QString& except, qint64 now) {
    return database_.run(
               "UPDATE families SET ended_at = ? WHERE account_id = ? AND id <> ? AND ended_at IS NULL",
               {now, accountId, notNull(except)}) &&
           database_.run("DELETE FROM browser_sessions WHERE account_id = ? AND id <> ?",
                         {accountId, notNull(except)});
}

std::optional<qint64> Storage::countAttempt(const QByteArray& subject, qint64 window, qint64 now) {
    auto answer =
        database_.run("INSERT INTO attempts (subject, started_at, count) VALUES (?, ?, 1) ON CONFLICT "
                      "(subject) DO UPDATE SET"
                      " count = CASE WHEN attempts.started_at <= ? THEN 1 ELSE attempts.count + 1 END,"
                      " started_at = CASE WHEN attempts.started_at <= ? THEN ? ELSE attempts.started_at END "
                      "RETURNING count",
                      {secretHash(subject), now, now - window, now - window, now});
    return answer.next() ? std::optional(answer.number(0)) : std::nullopt;
}

bool Storage::forgetAttempts(const QByteArray& subject, qint64 now) {
    return bool(database_.run("DELETE FROM attempts WHERE subject = ? OR started_at < ?",
                              {secretHash(subject), now - 86400}));
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
        return refused.failed() ? Use::storageFailure : Use::missing;
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
        issued.session = family;
        issued.refreshToken = randomToken(32);
        issued.outcome = Exchange::done;
        return database_.run("UPDATE handoffs SET family_id = ? WHERE code_hash = ?", {family, hash}) &&
               database_.run("INSERT INTO families (id, account_id, created_at, last_used_at)"
                             " VALUES (?, ?, ?, ?)",
                             {family, accountId, now, now}) &&
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
        issued.session = family;
        issued.refreshToken = randomToken(32);
        issued.outcome = Exchange::done;
        // Exchanged tokens are remembered as long as they could have lived, so that a copy is still
        // recognised.
        return database_.run("DELETE FROM refresh_tokens WHERE family_id = ? AND used_at < ?",
                             {family, now - refreshIdleSeconds}) &&
               database_.run("UPDATE families SET last_used_at = ? WHERE id = ?", {now, family}) &&
               addRefreshToken(family, issued.refreshToken, now);
    });
    return done ? issued : Issued();
}

} // namespace vellumline
