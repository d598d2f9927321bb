#include "Vellumline/Platform/Linux/SecretServiceKeychain.h"
#include "Vellumline/TokenStore.h"
#include "fakes/FakeKeychain.h"

#include <QCoroTask>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <csignal>

using namespace vellumline;
using Status = Keychain::Status;

namespace {

const QString service = QStringLiteral("org.example.contract");
constexpr char fakeRow[] = "the fake keeps its promise";
constexpr auto accessible = Keychain::Accessible::afterFirstUnlockThisDeviceOnly;
const QString secretsName = QStringLiteral("org.freedesktop.secrets");

template<class T> T await(QCoro::Task<T> task) {
    return QCoro::waitFor(std::move(task));
}

/// Ticks while the main loop turns, and remembers the longest time that it did not.
class Heartbeat : public QObject {
  public:
    Heartbeat() {
        timer_.setTimerType(Qt::PreciseTimer);
        connect(&timer_, &QTimer::timeout, this, [this]() {
            longest_ = std::max(longest_, sinceBeat_.restart());
            ++beats_;
        });
        sinceBeat_.start();
        timer_.start(5);
    }
    int beats() const { return beats_; }
    /// Milliseconds, with the five between two beats.
    qint64 longestPause() { return std::max(longest_, sinceBeat_.elapsed()); }

  private:
    QTimer timer_;
    QElapsedTimer sinceBeat_;
    qint64 longest_ = 0;
    int beats_ = 0;
};

AuthSession sampleSession() {
    AuthSession session;
    session.accessToken = QStringLiteral("header.payload.signature");
    session.refreshToken = QStringLiteral("refresh-1");
    session.userId = 4182;
    session.email = QStringLiteral("ada@example.org");
    return session;
}

/// Runs a program with text on its standard input; its standard output without the last line break.
QString run(const QString& program, const QStringList& arguments, const QByteArray& input = {},
            int* exitCode = nullptr) {
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(20000);
    if (exitCode)
        *exitCode = finished ? process.exitCode() : -1;
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

/// A secret as the bus carries it: session, parameters, value, content type.
struct BusSecret {
    QDBusObjectPath session;
    QByteArray parameters;
    QByteArray value;
    QString contentType;
};

QDBusArgument& operator<<(QDBusArgument& argument, const BusSecret& secret) {
    argument.beginStructure();
    argument << secret.session << secret.parameters << secret.value << secret.contentType;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, BusSecret& secret) {
    argument.beginStructure();
    argument >> secret.session >> secret.parameters >> secret.value >> secret.contentType;
    argument.endStructure();
    return argument;
}

const QString loginKeyring = QStringLiteral("/org/freedesktop/secrets/collection/login");

void lockKeyring() {
    QDBusMessage lock = QDBusMessage::createMethodCall(
        secretsName, QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("Lock"));
    lock << QVariant::fromValue(QList<QDBusObjectPath>{QDBusObjectPath(loginKeyring)});
    const QDBusMessage reply = QDBusConnection::sessionBus().call(lock);
    QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
}

/// What the daemon's own prompt does once the user has typed the password.
void unlockKeyring() {
    qDBusRegisterMetaType<BusSecret>();
    const QString path = QStringLiteral("/org/freedesktop/secrets");
    QDBusMessage open = QDBusMessage::createMethodCall(
        secretsName, path, QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("OpenSession"));
    open << QStringLiteral("plain") << QVariant::fromValue(QDBusVariant(QString()));
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QDBusMessage session = bus.call(open);
    QVERIFY2(session.type() == QDBusMessage::ReplyMessage, qPrintable(session.errorMessage()));
    const BusSecret password{
        session.arguments().at(1).value<QDBusObjectPath>(), {}, "test", QStringLiteral("text/plain")};
    QDBusMessage unlock = QDBusMessage::createMethodCall(
        secretsName, path, QStringLiteral("org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface"),
        QStringLiteral("UnlockWithMasterPassword"));
    unlock << QVariant::fromValue(QDBusObjectPath(loginKeyring)) << QVariant::fromValue(password);
    const QDBusMessage reply = bus.call(unlock);
    QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
}

/// Process id of the daemon on this session's own bus; 0 when none runs.
qint64 daemonPid() {
    const QDBusReply<uint> pid = QDBusConnection::sessionBus().interface()->servicePid(secretsName);
    return pid.isValid() ? pid.value() : 0;
}

} // namespace

/// What every keychain must do, asked of the fake and of the desktop's own keyring daemon; then what only the
/// real one can show: other processes, and a daemon that is locked, hung, killed or absent.
class KeychainContractTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Keychain> keychain_;

    void parts() {
        QTest::addColumn<bool>("real");
        QTest::newRow(fakeRow) << false;
        QTest::newRow("the Secret Service keeps its promise") << true;
    }

  private Q_SLOTS:
    void init() {
        const bool fake = qstrcmp(QTest::currentDataTag(), fakeRow) == 0;
        if (fake)
            keychain_ = std::make_unique<FakeKeychain>();
        else
            keychain_ = std::make_unique<SecretServiceKeychain>();
    }

    void anItemThatWasNeverAddedIsNotFound_data() { parts(); }
    void anItemThatWasNeverAddedIsNotFound() {
        const Keychain::Found found = await(keychain_->copyMatching(service, QStringLiteral("nobody")));
        QCOMPARE(found.status, Status::itemNotFound);
        QVERIFY(found.data.isEmpty());
    }

    void anAddedItemIsFoundByteForByte_data() { parts(); }
    void anAddedItemIsFoundByteForByte() {
        const QByteArray data("{\"accessToken\":\"a\xC3\xA9\"}\n");
        QCOMPARE(await(keychain_->add(service, QStringLiteral("bytes"), data, accessible)), Status::success);
        const Keychain::Found found = await(keychain_->copyMatching(service, QStringLiteral("bytes")));
        QCOMPARE(found.status, Status::success);
        QCOMPARE(found.data, data);
    }

    void anUpdateReplacesTheDataInPlace_data() { parts(); }
    void anUpdateReplacesTheDataInPlace() {
        const QString account = QStringLiteral("update");
        QCOMPARE(await(keychain_->add(service, account, "one", accessible)), Status::success);
        QCOMPARE(await(keychain_->update(service, account, "two")), Status::success);
        QCOMPARE(await(keychain_->copyMatching(service, account)).data, QByteArray("two"));
        QCOMPARE(await(keychain_->remove(service, account)), Status::success);
        // In place: there was one item only.
        QCOMPARE(await(keychain_->copyMatching(service, account)).status, Status::itemNotFound);
    }

    void anUpdateOfAnItemThatIsNotThereAddsNothing_data() { parts(); }
    void anUpdateOfAnItemThatIsNotThereAddsNothing() {
        const QString account = QStringLiteral("absent");
        QCOMPARE(await(keychain_->update(service, account, "data")), Status::itemNotFound);
        QCOMPARE(await(keychain_->copyMatching(service, account)).status, Status::itemNotFound);
    }

    void aRemovedItemIsGoneAndRemovingItAgainFindsNothing_data() { parts(); }
    void aRemovedItemIsGoneAndRemovingItAgainFindsNothing() {
        const QString account = QStringLiteral("removed");
        QCOMPARE(await(keychain_->add(service, account, "data", accessible)), Status::success);
        QCOMPARE(await(keychain_->remove(service, account)), Status::success);
        QCOMPARE(await(keychain_->remove(service, account)), Status::itemNotFound);
        QCOMPARE(await(keychain_->copyMatching(service, account)).status, Status::itemNotFound);
    }

    void itemsAreKeptApartByServiceAndAccount_data() { parts(); }
    void itemsAreKeptApartByServiceAndAccount() {
        const QString other = QStringLiteral("org.example.other");
        await(keychain_->add(service, QStringLiteral("one"), "service/one", accessible));
        await(keychain_->add(service, QStringLiteral("two"), "service/two", accessible));
        await(keychain_->add(other, QStringLiteral("one"), "other/one", accessible));
        QCOMPARE(await(keychain_->remove(service, QStringLiteral("one"))), Status::success);
        QCOMPARE(await(keychain_->copyMatching(service, QStringLiteral("two"))).data,
                 QByteArray("service/two"));
        QCOMPARE(await(keychain_->copyMatching(other, QStringLiteral("one"))).data, QByteArray("other/one"));
    }

    void noCallIsAnsweredBeforeTheMainLoopTurns_data() { parts(); }
    void noCallIsAnsweredBeforeTheMainLoopTurns() {
        QCoro::Task<Keychain::Found> found = keychain_->copyMatching(service, QStringLiteral("any"));
        QVERIFY(!found.isReady());
        await(std::move(found));
    }

    void callsThatOverlapAreAllAnswered_data() { parts(); }
    void callsThatOverlapAreAllAnswered() {
        const QString account = QStringLiteral("overlap");
        await(keychain_->add(service, account, "data", accessible));
        std::vector<QCoro::Task<Keychain::Found>> calls;
        for (int count = 0; count < 20; ++count)
            calls.push_back(keychain_->copyMatching(service, account));
        for (QCoro::Task<Keychain::Found>& call : calls)
            QCOMPARE(QCoro::waitFor(call).data, QByteArray("data"));
    }

    void theWholeContractHoldsWithoutQtsGLibDispatcher() {
        if (qEnvironmentVariableIsSet("QT_NO_GLIB"))
            QSKIP("this is the run without it");
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_NO_GLIB"), QStringLiteral("1"));
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("anItemThatWasNeverAddedIsNotFound"),
                       QStringLiteral("anAddedItemIsFoundByteForByte"),
                       QStringLiteral("anUpdateReplacesTheDataInPlace"),
                       QStringLiteral("anUpdateOfAnItemThatIsNotThereAddsNothing"),
                       QStringLiteral("aRemovedItemIsGoneAndRemovingItAgainFindsNothing"),
                       QStringLiteral("callsThatOverlapAreAllAnswered")});
        QVERIFY(process.waitForFinished(60000));
        const QByteArray output = process.readAll();
        QVERIFY2(process.exitCode() == 0, output.constData());
        QVERIFY(output.contains("14 passed, 0 failed"));
    }

    void anotherProgramFindsTheItemByServiceAndAccount() {
        await(keychain_->add(service, QStringLiteral("shared"), "seen by others", accessible));
        QCOMPARE(
            run(QStringLiteral("secret-tool"), {QStringLiteral("lookup"), QStringLiteral("service"), service,
                                                QStringLiteral("account"), QStringLiteral("shared")}),
            QStringLiteral("seen by others"));
    }

    void aSessionOutlivesTheProcessThatStoredIt() {
        const QString me = QCoreApplication::applicationFilePath();
        int exitCode = 0;
        QCOMPARE(run(me, {QStringLiteral("--store-session")}, {}, &exitCode), QStringLiteral("stored"));
        QCOMPARE(exitCode, 0);
        TokenStore store(*keychain_, QStringLiteral("/nonexistent/session.json"));
        QCOMPARE(await(store.session()), std::optional<AuthSession>(sampleSession()));
        QCOMPARE(run(me, {QStringLiteral("--read-session")}), QStringLiteral("account ada@example.org"));
        QCoro::waitFor(store.setSession(std::nullopt));
        QCOMPARE(run(me, {QStringLiteral("--read-session")}), QStringLiteral("signed out"));
    }

    void theLegacyFileAndTheLegacyItemAreMigrated() {
        const QString legacyService = QStringLiteral("com.kelthorne.vellumline");
        run(QStringLiteral("secret-tool"),
            {QStringLiteral("store"), QStringLiteral("--label=old"), QStringLiteral("service"), legacyService,
             QStringLiteral("account"), QStringLiteral("accessToken")},
            "old token");
        QCOMPARE(await(keychain_->copyMatching(legacyService, QStringLiteral("accessToken"))).data,
                 QByteArray("old token"));
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("session.json"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(sampleSession().toStoredJson());
        file.close();

        TokenStore store(*keychain_, path);
        QCOMPARE(await(store.session()), std::optional<AuthSession>(sampleSession()));
        QVERIFY(!QFile::exists(path));
        QCOMPARE(await(keychain_->copyMatching(legacyService, QStringLiteral("accessToken"))).status,
                 Status::itemNotFound);
        TokenStore next(*keychain_, path);
        QCOMPARE(await(next.session()), std::optional<AuthSession>(sampleSession()));
        QCoro::waitFor(next.setSession(std::nullopt));
    }

    void noBusAndNoDaemonMeanSignedOutAtOnce_data() {
        QTest::addColumn<QString>("address");
        QTest::newRow("there is no session bus") << QStringLiteral("unix:path=/nonexistent/bus");
        QTest::newRow("no daemon is installed on the bus") << QString();
    }
    void noBusAndNoDaemonMeanSignedOutAtOnce() {
        QFETCH(QString, address);
        const QTemporaryDir folder;
        QProcess bus;
        if (address.isEmpty()) {
            // A bus with no activatable services.
            QFile configuration(folder.filePath(QStringLiteral("bus.conf")));
            QVERIFY(configuration.open(QIODevice::WriteOnly));
            address = QStringLiteral("unix:path=") + folder.filePath(QStringLiteral("bus"));
            configuration.write("<busconfig><type>session</type><listen>" + address.toUtf8() +
                                "</listen><policy context=\"default\">"
                                "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>");
            configuration.close();
            bus.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--nofork"),
                       QStringLiteral("--config-file=") + folder.filePath(QStringLiteral("bus.conf"))});
            QTRY_VERIFY(QFile::exists(folder.filePath(QStringLiteral("bus"))));
        }
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--read-session")});
        QVERIFY(process.waitForFinished(20000));
        QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()).trimmed(), QStringLiteral("signed out"));
        qInfo().noquote() << QString::fromUtf8(process.readAllStandardError()).trimmed();
        bus.terminate();
        bus.waitForFinished(5000);
    }

    void aLockedKeyringIsSignedOutAndIsReadAgainOnceUnlocked() {
        QCoro::waitFor(TokenStore(*keychain_, QString()).setSession(sampleSession()));
        lockKeyring();
        Heartbeat heartbeat;
        TokenStore store(*keychain_, QStringLiteral("/nonexistent/session.json"));
        QCOMPARE(await(store.session()), std::nullopt);
        QCOMPARE(await(keychain_->update(service, QStringLiteral("a"), "data")), Status::locked);
        QCOMPARE(await(keychain_->add(service, QStringLiteral("a"), "data", accessible)), Status::locked);
        QCOMPARE(await(keychain_->remove(service, QStringLiteral("a"))), Status::locked);
        qInfo() << "locked: longest pause of the main loop" << heartbeat.longestPause() << "ms";

        unlockKeyring();
        QCOMPARE(await(store.session()), std::optional<AuthSession>(sampleSession()));
    }

    void whatALockedKeyringCouldNotTakeIsStoredOnceUnlocked() {
        lockKeyring();
        AuthSession renewed = sampleSession();
        renewed.refreshToken = QStringLiteral("refresh-2");
        TokenStore store(*keychain_, QStringLiteral("/nonexistent/session.json"));
        QCoro::waitFor(store.setSession(renewed));
        QCOMPARE(await(store.session()), std::optional<AuthSession>(renewed));
        unlockKeyring();
        QCOMPARE(await(store.session()), std::optional<AuthSession>(renewed));
        QTRY_VERIFY(!store.isWriting());
        TokenStore next(*keychain_, QStringLiteral("/nonexistent/session.json"));
        QCOMPARE(await(next.session()), std::optional<AuthSession>(renewed));
    }

    void aDaemonThatDoesNotAnswerEndsInABoundedSilence() {
        const qint64 pid = daemonPid();
        QVERIFY(pid > 0);
        QCOMPARE(::kill(static_cast<pid_t>(pid), SIGSTOP), 0);
        Heartbeat heartbeat;
        QElapsedTimer elapsed;
        elapsed.start();
        const QString account = QStringLiteral("hung");
        const Status found = await(keychain_->copyMatching(service, account)).status;
        const Status updated = await(keychain_->update(service, account, "data"));
        const Status added = await(keychain_->add(service, account, "data", accessible));
        const Status removed = await(keychain_->remove(service, account));
        const qint64 spent = elapsed.elapsed();
        TokenStore store(*keychain_, QStringLiteral("/nonexistent/session.json"));
        const std::optional<AuthSession> session = await(store.session());
        ::kill(static_cast<pid_t>(pid), SIGCONT);
        qInfo() << "hung: four calls in" << spent << "ms, beats of the main loop" << heartbeat.beats()
                << ", longest pause" << heartbeat.longestPause() << "ms";
        QCOMPARE(found, Status::unavailable);
        QCOMPARE(updated, Status::unavailable);
        QCOMPARE(added, Status::unavailable);
        QCOMPARE(removed, Status::unavailable);
        QCOMPARE(session, std::nullopt);
        QVERIFY(heartbeat.beats() > 0);
        // It answers again, and is asked again.
        QTRY_VERIFY(await(store.session()).has_value());
    }

    void aDaemonThatIsKilledWhileItIsAskedEndsTheCall() {
        const qint64 pid = daemonPid();
        QVERIFY(pid > 0);
        QCOMPARE(::kill(static_cast<pid_t>(pid), SIGSTOP), 0);
        Heartbeat heartbeat;
        QCoro::Task<Keychain::Found> call = keychain_->copyMatching(service, QStringLiteral("killed"));
        QTest::qWait(100);
        QVERIFY(!call.isReady());
        QCOMPARE(::kill(static_cast<pid_t>(pid), SIGKILL), 0);
        // The bus may have started another daemon, and the call gone on with that one.
        const Status status = QCoro::waitFor(call).status;
        QVERIFY(status == Status::unavailable || status == Status::locked);

        // The other daemon knows no password: signed out, and nobody is asked for one.
        TokenStore store(*keychain_, QStringLiteral("/nonexistent/session.json"));
        QCOMPARE(await(store.session()), std::nullopt);
        qInfo() << "killed: longest pause of the main loop" << heartbeat.longestPause() << "ms";
        QVERIFY(heartbeat.beats() > 0);
        const QString prompter = QStringLiteral("org.gnome.keyring.SystemPrompter");
        QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(prompter).value());
    }
};

namespace {

/// The part of a second process: stores the sample session, or reads the stored one and says what it found.
int runSecondProcess(const QString& task) {
    Heartbeat heartbeat;
    QElapsedTimer elapsed;
    elapsed.start();
    SecretServiceKeychain keychain;
    TokenStore store(keychain, QStringLiteral("/nonexistent/session.json"));
    QTextStream out(stdout);
    if (task == QLatin1String("--store-session")) {
        QCoro::waitFor(store.setSession(sampleSession()));
        out << "stored\n";
        return 0;
    }
    const std::optional<AuthSession> session = await(store.session());
    out << (session ? QStringLiteral("account ") + session->displayName() : QStringLiteral("signed out"))
        << "\n";
    QTextStream(stderr) << "answered in " << elapsed.elapsed() << " ms, longest pause of the main loop "
                        << heartbeat.longestPause() << " ms\n";
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 2 && arguments.at(1).startsWith(QLatin1String("--")))
        return runSecondProcess(arguments.at(1));
    KeychainContractTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_keychain_contract.moc"
