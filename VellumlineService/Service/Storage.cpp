#include "VellumlineService/Service/Storage.h"

#include "VellumlineService/Service/Tokens.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QVariant>
#include <atomic>
#include <vector>

namespace vellumline {

namespace {

std::atomic<quint64> nextStorageId = 1;

/// The connections of one thread; QSqlDatabase belongs to the thread that opened it.
struct ThreadConnections {
    QHash<quint64, QString> names;
    ~ThreadConnections() {
        for (const QString& name : std::as_const(names)) {
            QSqlDatabase::removeDatabase(name);
        }
    }
};

ThreadConnections& threadConnections() {
    thread_local ThreadConnections connections;
    return connections;
}

/// One list of statements for each schema version, first to last; never edited once released. The text keeps
/// to what SQLite and PostgreSQL share.
const std::vector<std::vector<const char*>>& migrations() {
    static const std::vector<std::vector<const char*>> all = {
        {
            "CREATE TABLE settings (name TEXT PRIMARY KEY, value TEXT NOT NULL)",
            "CREATE TABLE accounts (id BIGINT PRIMARY KEY, email TEXT NOT NULL, plan TEXT NOT NULL,"
            " rewrites_used BIGINT NOT NULL, free_rewrites BIGINT NOT NULL, month TEXT NOT NULL,"
            " month_used BIGINT NOT NULL, monthly_limit BIGINT NOT NULL, minute_limit BIGINT NOT NULL,"
            " renewal_canceled INTEGER NOT NULL, past_due INTEGER NOT NULL, closed INTEGER NOT NULL)",
            "CREATE TABLE families (id TEXT PRIMARY KEY, account_id BIGINT NOT NULL REFERENCES accounts(id),"
            " created_at BIGINT NOT NULL, ended_at BIGINT)",
            "CREATE TABLE handoffs (code_hash TEXT PRIMARY KEY, challenge TEXT NOT NULL,"
            " account_id BIGINT NOT NULL REFERENCES accounts(id), expires_at BIGINT NOT NULL, used_at BIGINT,"
            " family_id TEXT)",
            "CREATE TABLE refresh_tokens (token_hash TEXT PRIMARY KEY,"
            " family_id TEXT NOT NULL REFERENCES families(id), issued_at BIGINT NOT NULL, used_at BIGINT)",
            "CREATE INDEX refresh_tokens_family ON refresh_tokens (family_id)",
        },
    };
    return all;
}

/// A prepared statement with its values; false when the database refuses.
bool run(QSqlQuery& query, const char* text, const QVariantList& values = {}) {
    if (!query.prepare(QString::fromLatin1(text))) {
        return false;
    }
    for (const QVariant& value : values) {
        query.addBindValue(value);
    }
    return query.exec();
}

bool run(QSqlDatabase& database, const char* text, const QVariantList& values = {}) {
    QSqlQuery query(database);
    return run(query, text, values);
}

// An empty QString may be null, and a null QString would be bound as NULL.
QString notNull(const QString& text) {
    return text.isNull() ? QStringLiteral("") : text;
}

} // namespace

Storage::Storage(QString path) : path_(std::move(path)), id_(nextStorageId.fetch_add(1)) {}

Storage::~Storage() {
    const QString name = threadConnections().names.take(id_);
    if (!name.isEmpty()) {
        QSqlDatabase::removeDatabase(name);
    }
}

QString Storage::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/vellumline-service/service.sqlite");
}

int Storage::schemaVersion() {
    return static_cast<int>(migrations().size());
}

QSqlDatabase Storage::database() {
    QString& name = threadConnections().names[id_];
    if (!name.isEmpty()) {
        return QSqlDatabase::database(name);
    }
    static std::atomic<quint64> number = 0;
    name = QStringLiteral("service-%1-%2").arg(id_).arg(number.fetch_add(1));
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
    database.setDatabaseName(path_);
    database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
    if (database.open()) {
        run(database, "PRAGMA journal_mode = WAL");
        // With WAL, NORMAL loses at most the last commits when the machine (not the program) dies, and never
        // breaks the file (sqlite.org/pragma.html#pragma_synchronous).
        run(database, "PRAGMA synchronous = NORMAL");
        run(database, "PRAGMA foreign_keys = ON");
    }
    return database;
}

bool Storage::inTransaction(const std::function<bool(QSqlDatabase&)>& work) {
    QSqlDatabase connection = database();
    // The write lock is taken at once: a transaction that first reads and then writes could meet SQLITE_BUSY
    // without any wait (sqlite.org/lang_transaction.html).
    if (!run(connection, "BEGIN IMMEDIATE")) {
        return false;
    }
    if (work(connection) && run(connection, "COMMIT")) {
        return true;
    }
    run(connection, "ROLLBACK");
    return false;
}

std::optional<QString> Storage::open() {
    const QFileInfo file(path_);
    const QString folder = file.absolutePath();
    if (!QFileInfo::exists(folder)) {
        if (!QDir().mkpath(folder) ||
            !QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
            return QStringLiteral("The data folder %1 cannot be made.").arg(folder);
        }
    }
    if (!file.exists()) {
        QFile made(path_);
        if (!made.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFile::ReadOwner | QFile::WriteOwner) &&
            !QFileInfo::exists(path_)) {
            return QStringLiteral("The database %1 cannot be made.").arg(path_);
        }
    }
    QSqlDatabase connection = database();
    if (!connection.isOpen()) {
        return QStringLiteral("The database %1 cannot be opened: %2")
            .arg(path_, connection.lastError().text());
    }
    std::optional<QString> problem;
    const bool done = inTransaction([&](QSqlDatabase& db) {
        if (!run(db, "CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)")) {
            return false;
        }
        QSqlQuery query(db);
        if (!run(query, "SELECT version FROM schema_version")) {
            return false;
        }
        const bool known = query.next();
        const int present = known ? query.value(0).toInt() : 0;
        query.finish();
        if (present > schemaVersion()) {
            problem =
                QStringLiteral("The database %1 was written by a newer version of this program (schema %2, "
                               "this one knows %3). Nothing was changed.")
                    .arg(path_)
                    .arg(present)
                    .arg(schemaVersion());
            return false;
        }
        for (int version = present; version < schemaVersion(); ++version) {
            for (const char* statement : migrations()[static_cast<size_t>(version)]) {
                if (!run(db, statement)) {
                    return false;
                }
            }
        }
        return known ? run(db, "UPDATE schema_version SET version = ?", {schemaVersion()})
                     : run(db, "INSERT INTO schema_version (version) VALUES (?)", {schemaVersion()});
    });
    if (!done && !problem) {
        problem = QStringLiteral("The database %1 cannot be used; it may be damaged, locked or read-only.")
                      .arg(path_);
    }
    return problem;
}

std::optional<QString> Storage::setting(const QString& name) {
    QSqlDatabase connection = database();
    QSqlQuery query(connection);
    if (!run(query, "SELECT value FROM settings WHERE name = ?", {name}) || !query.next()) {
        return {};
    }
    return query.value(0).toString();
}

bool Storage::setSetting(const QString& name, const QString& value) {
    QSqlDatabase connection = database();
    return run(connection,
               "INSERT INTO settings (name, value) VALUES (?, ?)"
               " ON CONFLICT (name) DO UPDATE SET value = excluded.value",
               {name, notNull(value)});
}

QByteArray Storage::signingKey() {
    QSqlDatabase connection = database();
    const QString name = QStringLiteral("signingKey");
    run(connection, "INSERT INTO settings (name, value) VALUES (?, ?) ON CONFLICT (name) DO NOTHING",
        {name, QString::fromLatin1(randomToken(32))});
    return setting(name).value_or(QString()).toLatin1();
}

std::optional<Account> Storage::account(QSqlDatabase& connection, qint64 id) {
    QSqlQuery query(connection);
    if (!run(query,
             "SELECT email, plan, rewrites_used, free_rewrites, month, month_used, monthly_limit, "
             "minute_limit,"
             " renewal_canceled, past_due, closed FROM accounts WHERE id = ?",
             {id}) ||
        !query.next()) {
        return {};
    }
    Account found;
    found.id = id;
    found.email = query.value(0).toString();
    found.plan = query.value(1).toString();
    found.rewritesUsed = query.value(2).toLongLong();
    found.freeRewrites = query.value(3).toLongLong();
    found.month = query.value(4).toString();
    found.monthUsed = query.value(5).toLongLong();
    found.monthlyLimit = query.value(6).toLongLong();
    found.minuteLimit = query.value(7).toLongLong();
    found.renewalCanceled = query.value(8).toInt() != 0;
    found.pastDue = query.value(9).toInt() != 0;
    found.closed = query.value(10).toInt() != 0;
    return found;
}

std::optional<Account> Storage::account(qint64 id) {
    QSqlDatabase connection = database();
    return account(connection, id);
}

bool Storage::changeLocalAccount(const std::function<void(Account&)>& change) {
    const auto present = localAccount();
    if (!present) {
        return false;
    }
    return inTransaction([&](QSqlDatabase& db) {
        auto fresh = account(db, present->id);
        if (!fresh) {
            return false;
        }
        change(*fresh);
        return saveAccount(db, *fresh);
    });
}

bool Storage::saveAccount(QSqlDatabase& connection, const Account& a) {
    return run(
        connection,
        "INSERT INTO accounts (id, email, plan, rewrites_used, free_rewrites, month, month_used,"
        " monthly_limit, minute_limit, renewal_canceled, past_due, closed)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT (id) DO UPDATE SET email = excluded.email,"
        " plan = excluded.plan, rewrites_used = excluded.rewrites_used,"
        " free_rewrites = excluded.free_rewrites, month = excluded.month, month_used = excluded.month_used,"
        " monthly_limit = excluded.monthly_limit, minute_limit = excluded.minute_limit,"
        " renewal_canceled = excluded.renewal_canceled, past_due = excluded.past_due,"
        " closed = excluded.closed",
        {a.id, notNull(a.email), a.plan, a.rewritesUsed, a.freeRewrites, notNull(a.month), a.monthUsed,
         a.monthlyLimit, a.minuteLimit, int(a.renewalCanceled), int(a.pastDue), int(a.closed)});
}

bool Storage::reopenAccount(qint64 id) {
    QSqlDatabase connection = database();
    return run(connection, "UPDATE accounts SET closed = 0 WHERE id = ?", {id});
}

std::optional<Account> Storage::localAccount() {
    constexpr qint64 localId = 1;
    std::optional<Account> found;
    const bool done = inTransaction([&](QSqlDatabase& db) {
        // Nobody sells anything to a person on their own machine: the plan is "paid", the defaults of
        // Account.
        const Account fresh;
        if (!run(db,
                 "INSERT INTO accounts (id, email, plan, rewrites_used, free_rewrites, month, month_used,"
                 " monthly_limit, minute_limit, renewal_canceled, past_due, closed)"
                 " VALUES (?, '', ?, 0, ?, '', 0, ?, ?, 0, 0, 0) ON CONFLICT (id) DO NOTHING",
                 {localId, fresh.plan, fresh.freeRewrites, fresh.monthlyLimit, fresh.minuteLimit})) {
            return false;
        }
        found = account(db, localId);
        return found.has_value();
    });
    return done ? found : std::nullopt;
}

Storage::Use Storage::countRewrite(qint64 accountId, const QString& month) {
    QSqlDatabase connection = database();
    QSqlQuery query(connection);
    if (!run(query,
             "UPDATE accounts SET rewrites_used = rewrites_used + 1,"
             " month_used = CASE WHEN month = ? THEN month_used + 1 ELSE 1 END, month = ?"
             " WHERE id = ? AND closed = 0 AND (plan <> 'free' OR rewrites_used < free_rewrites)"
             " AND (monthly_limit = 0 OR month <> ? OR month_used < monthly_limit)",
             {month, month, accountId, month})) {
        return Use::storageFailure;
    }
    if (query.numRowsAffected() == 1) {
        return Use::counted;
    }
    const auto refused = account(connection, accountId);
    if (!refused) {
        return Use::missing;
    }
    if (refused->closed) {
        return Use::closed;
    }
    return refused->freeUsedUp() ? Use::freeLimit : Use::monthlyLimit;
}

bool Storage::addHandoff(const QByteArray& code, const QString& challenge, qint64 accountId, qint64 now) {
    return inTransaction([&](QSqlDatabase& db) {
        // Codes are kept a day past their end so that a late program is told "gone" instead of "unknown".
        return run(db, "DELETE FROM handoffs WHERE expires_at < ?", {now - 86400}) &&
               run(db,
                   "INSERT INTO handoffs (code_hash, challenge, account_id, expires_at) VALUES (?, ?, ?, ?)",
                   {secretHash(code), challenge, accountId, now + handoffSeconds});
    });
}

bool Storage::addRefreshToken(QSqlDatabase& db, const QString& family, const QByteArray& token, qint64 now) {
    return run(db, "INSERT INTO refresh_tokens (token_hash, family_id, issued_at) VALUES (?, ?, ?)",
               {secretHash(token), family, now});
}

Storage::Issued Storage::redeemHandoff(const QByteArray& code, const QByteArray& challenge, qint64 now) {
    Issued issued;
    const bool done = inTransaction([&](QSqlDatabase& db) {
        const QString hash = secretHash(code);
        QSqlQuery query(db);
        if (!run(query,
                 "SELECT challenge, account_id, expires_at, used_at, family_id FROM handoffs WHERE code_hash "
                 "= ?",
                 {hash})) {
            return false;
        }
        if (!query.next()) {
            issued.outcome = Exchange::refused;
            return true;
        }
        const QByteArray expected = query.value(0).toString().toLatin1();
        const qint64 accountId = query.value(1).toLongLong();
        const bool expired = query.value(2).toLongLong() <= now;
        const bool used = !query.value(3).isNull();
        const QString earlier = query.value(4).toString();
        query.finish();
        if (used || expired) {
            issued.outcome = Exchange::gone;
            return earlier.isEmpty() ||
                   run(db, "UPDATE families SET ended_at = ? WHERE id = ? AND ended_at IS NULL",
                       {now, earlier});
        }
        const bool fits = equalInConstantTime(expected, challenge);
        const QString family = fits ? QString::fromLatin1(randomToken(16)) : QString();
        if (!run(db, "UPDATE handoffs SET used_at = ?, family_id = ? WHERE code_hash = ?",
                 {now, family, hash})) {
            return false;
        }
        if (!fits) {
            issued.outcome = Exchange::refused;
            return true;
        }
        const auto owner = account(db, accountId);
        if (!owner) {
            return false;
        }
        issued.account = *owner;
        issued.refreshToken = randomToken(32);
        issued.outcome = Exchange::done;
        return run(db, "INSERT INTO families (id, account_id, created_at) VALUES (?, ?, ?)",
                   {family, accountId, now}) &&
               addRefreshToken(db, family, issued.refreshToken, now);
    });
    return done ? issued : Issued();
}

Storage::Issued Storage::rotateRefreshToken(const QByteArray& token, qint64 now) {
    Issued issued;
    const bool done = inTransaction([&](QSqlDatabase& db) {
        const QString hash = secretHash(token);
        QSqlQuery query(db);
        if (!run(query,
                 "SELECT t.family_id, t.issued_at, t.used_at, f.account_id, f.ended_at FROM refresh_tokens t"
                 " JOIN families f ON f.id = t.family_id WHERE t.token_hash = ?",
                 {hash})) {
            return false;
        }
        if (!query.next()) {
            issued.outcome = Exchange::refused;
            return true;
        }
        const QString family = query.value(0).toString();
        const bool idle = query.value(1).toLongLong() + refreshIdleSeconds <= now;
        const bool used = !query.value(2).isNull();
        const qint64 accountId = query.value(3).toLongLong();
        const bool ended = !query.value(4).isNull();
        query.finish();
        if (used || ended || idle) {
            issued.outcome = Exchange::refused;
            return run(db, "UPDATE families SET ended_at = ? WHERE id = ? AND ended_at IS NULL",
                       {now, family});
        }
        const auto owner = account(db, accountId);
        if (!owner) {
            return false;
        }
        issued.account = *owner;
        issued.refreshToken = randomToken(32);
        issued.outcome = Exchange::done;
        // Exchanged tokens are remembered as long as they could have lived, so that a copy is still
        // recognised.
        return run(db, "DELETE FROM refresh_tokens WHERE family_id = ? AND used_at < ?",
                   {family, now - refreshIdleSeconds}) &&
               run(db, "UPDATE refresh_tokens SET used_at = ? WHERE token_hash = ?", {now, hash}) &&
               addRefreshToken(db, family, issued.refreshToken, now);
    });
    return done ? issued : Issued();
}

} // namespace vellumline
