#pragma once

#include "VellumlineService/Service/Database.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vellumline::test {

/// A PostgreSQL server of the test's own: in a temporary folder, on a socket in it and on no port, as another
/// user when the test runs as root, gone with the test.
class PostgresServer {
  public:
    /// The one of this test program; null, with a text on the standard error, when it cannot be started.
    static PostgresServer* shared() {
        static PostgresServer server;
        return server.running_ ? &server : nullptr;
    }
    PostgresServer(const PostgresServer&) = delete;
    PostgresServer& operator=(const PostgresServer&) = delete;
    ~PostgresServer() { stop(); }

    /// The address of a new, empty database.
    QString freshDatabase() {
        const QString name = QStringLiteral("test%1").arg(++databases_);
        return sql(QStringLiteral("CREATE DATABASE ") + name) ? addressOf(name) : QString();
    }
    QString socketFolder() const { return folder_.path(); }
    QString addressOf(const QString& name) const {
        return QStringLiteral("postgresql://vellumline@/%1?host=%2").arg(name, folder_.path());
    }
    /// Runs a statement as its administrator.
    bool sql(const QString& statement) {
        bool done = false;
        {
            QSqlDatabase database =
                QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), QStringLiteral("admin"));
            database.setHostName(folder_.path());
            database.setDatabaseName(QStringLiteral("postgres"));
            database.setUserName(QStringLiteral("vellumline"));
            done = database.open();
            QSqlQuery query(database);
            done = done && query.exec(statement);
        }
        QSqlDatabase::removeDatabase(QStringLiteral("admin"));
        return done;
    }

    /// One of its programs; empty when it is missing.
    static QString program(const QString& name) {
        // Debian keeps each major version's programs in a folder of its own.
        const QDir versions(QStringLiteral("/usr/lib/postgresql"));
        QStringList folders;
        for (const QString& version : versions.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            folders.prepend(versions.filePath(version) + QStringLiteral("/bin"));
        }
        const QString found = QStandardPaths::findExecutable(name, folders);
        return found.isEmpty() ? QStandardPaths::findExecutable(name) : found;
    }

  private:
    PostgresServer() {
        const QString initdb = program(QStringLiteral("initdb"));
        if (initdb.isEmpty() || !folder_.isValid() || !giveFolderAway()) {
            qWarning("PostgreSQL is not installed, or its user is missing.");
            return;
        }
        QProcess making;
        making.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        start(making, {initdb, QStringLiteral("--no-sync"), QStringLiteral("--auth=trust"),
                       QStringLiteral("--username=vellumline"), QStringLiteral("--encoding=UTF8"),
                       QStringLiteral("--locale=C"), QStringLiteral("-D"), data()});
        if (!making.waitForFinished(60'000) || making.exitCode() != 0) {
            qWarning("initdb failed.");
            return;
        }
        process_.setStandardErrorFile(QProcess::nullDevice());
        start(process_,
              {program(QStringLiteral("postgres")), QStringLiteral("-D"), data(), QStringLiteral("-k"),
               folder_.path(), QStringLiteral("-c"), QStringLiteral("listen_addresses="),
               QStringLiteral("-c"), QStringLiteral("max_connections=60"), QStringLiteral("-c"),
               QStringLiteral("fsync=off")});
        QElapsedTimer waited;
        waited.start();
        while (!running_ && process_.state() != QProcess::NotRunning && waited.elapsed() < 30'000) {
            running_ = sql(QStringLiteral("SELECT 1"));
            QThread::msleep(running_ ? 0 : 50);
        }
    }
    void stop() {
        if (process_.state() == QProcess::NotRunning) {
            return;
        }
        // An immediate shutdown: nothing of it is wanted any more. The signal goes to the server itself, as
        // setpriv became it.
        ::kill(static_cast<pid_t>(process_.processId()), SIGQUIT);
        process_.waitForFinished(10'000);
    }
    QString data() const { return folder_.filePath(QStringLiteral("data")); }
    /// PostgreSQL refuses to run as root; its package brings a user for it.
    bool giveFolderAway() {
        if (::geteuid() != 0) {
            return true;
        }
        const passwd* other = ::getpwnam("postgres");
        if (!other) {
            return false;
        }
        prefix_ = {QStringLiteral("--reuid=postgres"), QStringLiteral("--regid=postgres"),
                   QStringLiteral("--clear-groups")};
        return ::chown(QFile::encodeName(folder_.path()).constData(), other->pw_uid, other->pw_gid) == 0;
    }
    void start(QProcess& process, const QStringList& command) {
        process.setWorkingDirectory(folder_.path());
        process.setStandardOutputFile(QProcess::nullDevice());
        // A test that is killed takes its server along.
        process.start(QStringLiteral("setpriv"),
                      QStringList{QStringLiteral("--pdeathsig"), QStringLiteral("QUIT")} + prefix_ + command);
    }

    QTemporaryDir folder_;
    QStringList prefix_;
    QProcess process_;
    bool running_ = false;
    int databases_ = 0;
};

/// Which database this run of a test program is for; CTest runs some of them once for each.
inline bool onPostgres() {
    return qEnvironmentVariable("VELLUMLINE_TEST_DATABASE") == QStringLiteral("postgresql");
}

/// The address of a new, empty database of that kind; a file lies in `folder`. Empty when there can be none.
inline QString freshDatabase(const QString& folder) {
    static int number = 0;
    if (!onPostgres()) {
        return QStringLiteral("sqlite:%1/data/service%2.sqlite").arg(folder).arg(++number);
    }
    PostgresServer* const server = PostgresServer::shared();
    return server ? server->freshDatabase() : QString();
}

inline DatabaseAddress databaseAddress(const QString& text) {
    QString problem;
    return DatabaseAddress::from(text, problem).value_or(DatabaseAddress());
}

/// What a test says to the database past the storage.
inline bool sqlPast(const QString& address, const QStringList& statements) {
    const DatabaseAddress place = databaseAddress(address);
    const bool isFile = place.kind == DatabaseAddress::Kind::sqlite;
    bool done = false;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(
            isFile ? QStringLiteral("QSQLITE") : QStringLiteral("QPSQL"), QStringLiteral("past"));
        database.setDatabaseName(isFile ? place.path : place.name);
        database.setHostName(place.host);
        database.setUserName(place.user);
        done = database.open();
        for (const QString& statement : statements) {
            QSqlQuery query(database);
            done = done && query.exec(statement);
        }
    }
    QSqlDatabase::removeDatabase(QStringLiteral("past"));
    return done;
}

/// While it lives, every statement that needs this table fails.
class TableAway {
  public:
    TableAway(const QString& address, const QString& table) : address_(address), table_(table) {
        rename(table_, table_ + QStringLiteral("_away"));
    }
    Q_DISABLE_COPY_MOVE(TableAway)
    ~TableAway() { rename(table_ + QStringLiteral("_away"), table_); }

  private:
    void rename(const QString& from, const QString& to) const {
        if (!sqlPast(address_, {QStringLiteral("ALTER TABLE %1 RENAME TO %2").arg(from, to)})) {
            qFatal("%s could not be renamed", qPrintable(from));
        }
    }

    const QString address_;
    const QString table_;
};

/// While it lives, the permissions of files count for this thread also when it is root's.
class WithoutRootsPower {
  public:
    WithoutRootsPower() {
        syscall(SYS_capget, &header_, held_);
        __user_cap_data_struct fewer[2] = {held_[0], held_[1]};
        fewer[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &header_, fewer);
    }
    Q_DISABLE_COPY_MOVE(WithoutRootsPower)
    ~WithoutRootsPower() { syscall(SYS_capset, &header_, held_); }

  private:
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct held_[2]{};
};

/// While it lives, nobody gets to the database: its server has ended the connections and takes no new ones,
/// the file may not be read. SQLite goes on with a file that is open already, so let it be opened meanwhile.
class DatabaseAway {
  public:
    explicit DatabaseAway(const QString& address) : place_(databaseAddress(address)) {
        if (place_.kind == DatabaseAddress::Kind::sqlite) {
            power_.emplace(); // with the other database it is what reaches the server's socket
        }
        allow(false);
    }
    Q_DISABLE_COPY_MOVE(DatabaseAway)
    ~DatabaseAway() { allow(true); }

  private:
    void allow(bool allowed) const {
        const bool done =
            place_.kind == DatabaseAddress::Kind::sqlite ? allowFile(allowed) : allowConnections(allowed);
        if (!done) {
            qFatal("the database could not be taken away or brought back");
        }
    }
    bool allowFile(bool allowed) const {
        return QFile::setPermissions(place_.path,
                                     allowed ? QFile::ReadOwner | QFile::WriteOwner : QFile::Permissions());
    }
    bool allowConnections(bool allowed) const {
        PostgresServer* const server = PostgresServer::shared();
        return server->sql(
                   QStringLiteral("ALTER DATABASE %1 ALLOW_CONNECTIONS %2")
                       .arg(place_.name, allowed ? QStringLiteral("true") : QStringLiteral("false"))) &&
               server->sql(QStringLiteral(
                               "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '%1'")
                               .arg(place_.name));
    }

    const DatabaseAddress place_;
    std::optional<WithoutRootsPower> power_;
};

} // namespace vellumline::test
