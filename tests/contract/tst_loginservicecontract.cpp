#include "Vellumline/Platform/Linux/XdgAutostart.h"
#include "fakes/FakeLoginService.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

using namespace vellumline;

namespace {

using Status = LoginService::Status;

const QString identifier = QStringLiteral("org.example.Program");

class Bench {
  public:
    virtual ~Bench() = default;
    virtual LoginService& service() = 0;
    virtual void refuse() = 0;
};

class FakeBench final : public Bench {
  public:
    LoginService& service() override { return service_; }
    void refuse() override { service_.refuses = true; }

  private:
    FakeLoginService service_;
};

class XdgBench final : public Bench {
  public:
    XdgBench()
        : service_({identifier, QStringLiteral("Program"), {QCoreApplication::applicationFilePath()}},
                   folder_.filePath(QStringLiteral("config")), QStringList()) {}
    LoginService& service() override { return service_; }
    void refuse() override {
        // A plain file where the folder should be: nobody can write below it, root included.
        QDir(folder_.filePath(QStringLiteral("config"))).removeRecursively();
        QFile file(folder_.filePath(QStringLiteral("config")));
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

  private:
    QTemporaryDir folder_;
    XdgAutostart service_;
};

} // namespace

/// What every login service does, the real one and the one of the tests; below, the entry itself.
class LoginServiceContract : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Bench> bench_;
    LoginService& service() { return bench_->service(); }

    QTemporaryDir folder_;
    QString config() { return folder_.filePath(QStringLiteral("config")); }
    XdgAutostart autostart(const QStringList& commandLine, const QStringList& systemFolders = {}) {
        return XdgAutostart({identifier, QStringLiteral("Program"), commandLine}, config(), systemFolders);
    }
    static QStringList thisProgram() { return {QCoreApplication::applicationFilePath()}; }
    static void writeFile(const QString& path, const QByteArray& contents) {
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }
    static QByteArray readFile(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

  private Q_SLOTS:
    void initTestCase_data() {
        QTest::addColumn<bool>("real");
        QTest::newRow("the fake") << false;
        QTest::newRow("XDG autostart") << true;
    }
    void init() {
        QFETCH_GLOBAL(bool, real);
        bench_.reset();
        if (real)
            bench_ = std::make_unique<XdgBench>();
        else
            bench_ = std::make_unique<FakeBench>();
        QDir(config()).removeRecursively();
    }

    void atFirstItIsNotRegistered() { QCOMPARE(service().status(), Status::notRegistered); }
    void registeringEnablesIt() {
        QVERIFY(service().registerService());
        QCOMPARE(service().status(), Status::enabled);
    }
    void registeringTwiceIsNoError() {
        QVERIFY(service().registerService());
        QVERIFY(service().registerService());
        QCOMPARE(service().status(), Status::enabled);
    }
    void unregisteringDisablesIt() {
        QVERIFY(service().registerService());
        QVERIFY(service().unregisterService());
        QCOMPARE(service().status(), Status::notRegistered);
    }
    void unregisteringWhatIsNotRegisteredIsNoError() {
        QVERIFY(service().unregisterService());
        QCOMPARE(service().status(), Status::notRegistered);
    }
    void aRefusalIsReportedAndChangesNothing() {
        bench_->refuse();
        QVERIFY(!service().registerService());
        QCOMPARE(service().status(), Status::notRegistered);
    }

    // The entry

    void theUsersSwitchInTheDesktopsSettingsIsRespected_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<int>("expected");
        QTest::newRow("nothing said: enabled") << QByteArray() << 1;
        QTest::newRow("Hidden: as if it were not there") << QByteArray("Hidden=true\n") << 0;
        QTest::newRow("Hidden=false: enabled") << QByteArray("Hidden=false\n") << 1;
        QTest::newRow("switched off by the desktop") << QByteArray("X-GNOME-Autostart-enabled=false\n") << 0;
        QTest::newRow("switched on by the desktop") << QByteArray("X-GNOME-Autostart-enabled=true\n") << 1;
        QTest::newRow("spaces around the equals sign") << QByteArray("Hidden = true\n") << 0;
        QTest::newRow("in another group it means nothing")
            << QByteArray("[Desktop Action x]\nHidden=true\n") << 1;
        QTest::newRow("a comment means nothing") << QByteArray("#Hidden=true\n") << 1;
    }
    void theUsersSwitchInTheDesktopsSettingsIsRespected() {
        QFETCH(QByteArray, line);
        QFETCH(int, expected);
        auto service = autostart(thisProgram());
        QVERIFY(service.registerService());
        QByteArray contents = readFile(service.path());
        contents.replace("X-GNOME-Autostart-enabled=true\n", "");
        writeFile(service.path(), contents + line);
        QCOMPARE(int(service.status()), expected);
        QVERIFY(service.registerService());
        QCOMPARE(service.status(), Status::enabled);
    }
    void anEntryWhoseProgramIsGoneIsNotFound() {
        const QString program = folder_.filePath(QStringLiteral("gone program"));
        QFile::remove(program);
        QVERIFY(QFile::copy(QStringLiteral("/bin/true"), program));
        auto service = autostart({program});
        QVERIFY(service.registerService());
        QCOMPARE(service.status(), Status::enabled);
        QVERIFY(QFile::remove(program));
        QCOMPARE(service.status(), Status::notFound);
        QVERIFY(!service.registerService());
    }
    void garbageIsNoRegistration() {
        auto service = autostart(thisProgram());
        writeFile(service.path(), QByteArray("\0\xff garbage = \n[Desktop", 23));
        QCOMPARE(service.status(), Status::notFound);
        QDir(config()).removeRecursively();
        QVERIFY(QDir().mkpath(service.path())); // a folder of that name
        QCOMPARE(service.status(), Status::notRegistered);
        QVERIFY(!service.registerService());
    }
    void theOldEntryStaysWholeWhenTheNewOneCannotBeWritten() {
        auto service = autostart(thisProgram());
        QVERIFY(service.registerService());
        const QByteArray before = readFile(service.path());
        QVERIFY(!autostart({QStringLiteral("/no/such/program")}).registerService());
        QCOMPARE(readFile(service.path()), before);
        QCOMPARE(QDir(QFileInfo(service.path()).path()).entryList(QDir::Files).size(), 1);
    }
    void aReadOnlyFolderIsAnError() {
        if (geteuid() == 0)
            QSKIP("root may write to every folder; the refusal above covers the same path");
        auto service = autostart(thisProgram());
        QVERIFY(QDir().mkpath(QFileInfo(service.path()).path()));
        const QString autostartFolder = QFileInfo(service.path()).path();
        QVERIFY(QFile::setPermissions(autostartFolder, QFile::ReadOwner | QFile::ExeOwner));
        QVERIFY(!service.registerService());
        QFile::setPermissions(autostartFolder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    void anEntryForAllUsersIsHiddenNotRemoved() {
        const QString system = folder_.filePath(QStringLiteral("system"));
        auto service = autostart(thisProgram(), {system});
        const QString systemEntry =
            system + QStringLiteral("/autostart/") + identifier + QStringLiteral(".desktop");
        const QByteArray contents =
            "[Desktop Entry]\nType=Application\nName=Program\nExec=" + thisProgram().first().toUtf8() + "\n";
        writeFile(systemEntry, contents);
        QCOMPARE(service.status(), Status::enabled);
        QVERIFY(service.unregisterService());
        QCOMPARE(service.status(), Status::notRegistered);
        QCOMPARE(readFile(systemEntry), contents);
        QVERIFY(service.registerService());
        QCOMPARE(service.status(), Status::enabled);
        QFile::remove(systemEntry);
    }
    void theEntryIsValid() {
        if (QStandardPaths::findExecutable(QStringLiteral("desktop-file-validate")).isEmpty())
            QSKIP("desktop-file-validate is not installed");
        auto service =
            autostart({thisProgram().first(), QStringLiteral("--background"), QStringLiteral("a b")});
        QVERIFY(service.registerService());
        QCOMPARE(QProcess::execute(QStringLiteral("desktop-file-validate"), {service.path()}), 0);
    }
    void sessionsPassOverTheEntryOfARemovedProgram() {
        // Desktop Application Autostart Specification: an entry whose TryExec is not there is ignored.
        auto service = autostart(thisProgram());
        QVERIFY(service.registerService());
        QVERIFY(readFile(service.path()).contains("\nTryExec=" + thisProgram().first().toUtf8() + "\n"));
    }
    void execValuesAreQuotedAsTheSpecificationSays_data() {
        QTest::addColumn<QStringList>("commandLine");
        QTest::addColumn<QString>("value");
        const auto text = [](const char* utf8) { return QString::fromUtf8(utf8); };
        QTest::newRow("plain words stay plain") << QStringList{text("/usr/bin/program"), text("--background")}
                                                << text("/usr/bin/program --background");
        QTest::newRow("a space needs quotes")
            << QStringList{text("/opt/my program")} << text("\"/opt/my program\"");
        QTest::newRow("a per cent sign is doubled") << QStringList{text("/opt/100%f")} << text("/opt/100%%f");
        QTest::newRow("an empty argument") << QStringList{text("a"), QString()} << text("a \"\"");
        QTest::newRow("a dollar sign is escaped twice")
            << QStringList{text("/opt/$x")} << text("\"/opt/\\\\$x\"");
        QTest::newRow("a quote is escaped twice")
            << QStringList{text("/opt/\"x")} << text("\"/opt/\\\\\"x\"");
        QTest::newRow("a backslash becomes four")
            << QStringList{text("/opt/\\x")} << text("\"/opt/\\\\\\\\x\"");
    }
    void execValuesAreQuotedAsTheSpecificationSays() {
        QFETCH(QStringList, commandLine);
        QFETCH(QString, value);
        QCOMPARE(XdgAutostart::execValue(commandLine), value);
    }
    void anotherImplementationStartsExactlyThisCommand() {
        if (QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty())
            QSKIP("gio is not installed");
        const QString program = folder_.filePath(QStringLiteral("a 'strange' $HOME `name` (ü) \"q\""));
        const QString out = folder_.filePath(QStringLiteral("out"));
        QFile::remove(out);
        writeFile(program, "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" >" + out.toUtf8() + ".new\nmv " +
                               out.toUtf8() + ".new " + out.toUtf8() + "\n");
        QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        const QStringList command{program, QStringLiteral("--flag=a b"), QStringLiteral("%U"),
                                  QStringLiteral("\\n"), QStringLiteral("$(x);&|<>*?#~")};
        auto service = autostart(command);
        QVERIFY(service.registerService());
        QCOMPARE(service.status(), Status::enabled);
        QCOMPARE(QProcess::execute(QStringLiteral("gio"), {QStringLiteral("launch"), service.path()}), 0);
        QTRY_VERIFY(QFile::exists(out));
        QCOMPARE(QString::fromUtf8(readFile(out)), command.join(QLatin1Char('\n')) + QLatin1Char('\n'));
    }
    void theUsersOwnFolderIsTheDefault() {
        const XdgAutostart service({identifier, QStringLiteral("Program"), thisProgram()});
        QCOMPARE(service.path(), QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                     QStringLiteral("/autostart/org.example.Program.desktop"));
    }
};

QTEST_GUILESS_MAIN(LoginServiceContract)
#include "tst_loginservicecontract.moc"
