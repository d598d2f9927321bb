#include "Vellumline/Platform/Linux/SettingsDefaults.h"
#include "fakes/FakeUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vellumline;

namespace {

constexpr char fakeRow[] = "the fake keeps its promise";
const QString key = QStringLiteral("vellumline.hotkey.keyLabel");

} // namespace

/// What every settings store must do, asked of the fake and of the settings file; then what only a file can
/// show.
class UserDefaultsContractTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<QTemporaryDir> folder_;
    QString file_;
    int copies_ = 0;
    std::unique_ptr<UserDefaults> defaults_;

    static void parts() {
        QTest::addColumn<bool>("real");
        QTest::newRow(fakeRow) << false;
        QTest::newRow("the settings file keeps its promise") << true;
    }
    void writeFile(const QByteArray& bytes) const {
        QFile file(file_);
        QVERIFY(QDir().mkpath(QFileInfo(file_).path()));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    /// The settings as another process finds them: Qt shares what it has read of a file within a process.
    std::unique_ptr<SettingsDefaults> restarted() {
        const QString copy = folder_->filePath(QStringLiteral("copy%1.conf").arg(++copies_));
        if (!QFile::copy(file_, copy))
            qFatal("the settings were not written");
        return std::make_unique<SettingsDefaults>(copy);
    }
    QByteArray fileBytes() const {
        QFile file(file_);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

  private Q_SLOTS:
    void init() {
        folder_ = std::make_unique<QTemporaryDir>();
        file_ = folder_->filePath(QStringLiteral("vellumline/vellumline.conf"));
        if (qstrcmp(QTest::currentDataTag(), fakeRow) == 0)
            defaults_ = std::make_unique<FakeUserDefaults>();
        else
            defaults_ = std::make_unique<SettingsDefaults>(file_);
    }

    void whatWasNeverSetIsAbsent_data() { parts(); }
    void whatWasNeverSetIsAbsent() {
        QVERIFY(!defaults_->contains(key));
        QCOMPARE(defaults_->integer(key), 0);
        QVERIFY(defaults_->string(key).isNull());
        QVERIFY(!defaults_->boolean(key));
    }

    void anIntegerComesBack_data() { parts(); }
    void anIntegerComesBack() {
        for (const qint64 value : {qint64(0), qint64(15), qint64(-1), qint64(4294967296)}) {
            defaults_->set(key, value);
            QVERIFY(defaults_->contains(key));
            QCOMPARE(defaults_->integer(key), value);
        }
    }

    void aTextComesBackAsItWas_data() { parts(); }
    void aTextComesBackAsItWas() {
        for (const char* value : {"R", ",", ";", "a,b", "=", "\"", "\\", "@", "@Invalid()", "@@x", " ",
                                  "  x  ", "true", "12", "é", "⌃⌥", "line\nbreak", "%41", "[General]"}) {
            const QString text = QString::fromUtf8(value);
            defaults_->set(key, text);
            QCOMPARE(defaults_->string(key), text);
        }
    }

    void aTextThatIsNoNumberCountsAsZero_data() { parts(); }
    void aTextThatIsNoNumberCountsAsZero() {
        defaults_->set(key, QStringLiteral("R"));
        QCOMPARE(defaults_->integer(key), 0);
    }

    void aBooleanComesBack_data() { parts(); }
    void aBooleanComesBack() {
        defaults_->set(key, true);
        QVERIFY(defaults_->boolean(key));
        defaults_->set(key, false);
        QVERIFY(!defaults_->boolean(key));
        QVERIFY(defaults_->contains(key));
    }

    void whatIsRemovedIsAbsentAgain_data() { parts(); }
    void whatIsRemovedIsAbsentAgain() {
        defaults_->set(key, 7);
        defaults_->remove(key);
        QVERIFY(!defaults_->contains(key));
        QVERIFY(defaults_->string(key).isNull());
        defaults_->remove(key);
    }

    void keysDoNotDisturbEachOther_data() { parts(); }
    void keysDoNotDisturbEachOther() {
        defaults_->set(QStringLiteral("vellumline.hotkey.keyCode"), 15);
        defaults_->set(QStringLiteral("vellumline.hotkey"), 1);
        defaults_->set(QStringLiteral("vellumline.Hotkey.keyCode"), 2);
        defaults_->remove(QStringLiteral("vellumline.hotkey"));
        QCOMPARE(defaults_->integer(QStringLiteral("vellumline.hotkey.keyCode")), 15);
        QCOMPARE(defaults_->integer(QStringLiteral("vellumline.Hotkey.keyCode")), 2);
    }

    void everyChangeIsInTheFileAtOnceUnderItsOwnName() {
        defaults_->set(QStringLiteral("vellumline.hotkey.keyCode"), 15);
        QVERIFY2(fileBytes().contains("vellumline.hotkey.keyCode=15\n"), fileBytes().constData());
        defaults_->set(QStringLiteral("vellumline.onboardingDone"), true);
        QVERIFY2(fileBytes().contains("vellumline.onboardingDone=true\n"), fileBytes().constData());
        defaults_->remove(QStringLiteral("vellumline.hotkey.keyCode"));
        QVERIFY(!fileBytes().contains("keyCode"));
    }

    void settingsSurviveARestart() {
        for (const char* value : {",", "a,b", "⌃⌥", "@x", "true", ""}) {
            const QString text = QString::fromUtf8(value);
            defaults_->set(key, text);
            const std::unique_ptr<SettingsDefaults> next = restarted();
            QVERIFY(next->contains(key));
            QCOMPARE(next->string(key), text);
        }
        defaults_->set(key, qint64(4294967296));
        QCOMPARE(restarted()->integer(key), qint64(4294967296));
        defaults_->set(key, true);
        QVERIFY(restarted()->boolean(key));
    }

    void aFileThatCannotBeReadIsAnEmptyOne_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("bytes that are no text") << QByteArray("\xFF\xFE\x00\x01\x02 garbage", 14);
        QTest::newRow("text without keys") << QByteArray("not a settings file\n\n]]]\n");
        QTest::newRow("nothing") << QByteArray();
    }
    void aFileThatCannotBeReadIsAnEmptyOne() {
        QFETCH(QByteArray, bytes);
        writeFile(bytes);
        SettingsDefaults defaults(file_);
        QVERIFY(!defaults.contains(key));
        QCOMPARE(defaults.integer(key), 0);
        QVERIFY(defaults.string(key).isNull());
        QVERIFY(!defaults.boolean(key));
    }

    void aPathThatCannotBeAFileKeepsSettingsForTheProcessOnly() {
        QVERIFY(QDir().mkpath(file_));
        SettingsDefaults defaults(file_);
        defaults.set(key, 7);
        QCOMPARE(defaults.integer(key), 7);
        QVERIFY(QFileInfo(file_).isDir());
    }

    void aFullDiskLeavesTheFileWholeAndKeepsTheSettingForTheProcess() {
        SettingsDefaults defaults(file_);
        defaults.set(key, 7);
        const QByteArray before = fileBytes();
        // A limit of no bytes for a file refuses writes as a full disk does, once its signal is ignored.
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &limit), 0);
        const rlimit nothing{0, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &nothing);
        defaults.set(key, 8);
        setrlimit(RLIMIT_FSIZE, &limit);
        QCOMPARE(defaults.integer(key), 8);
        QCOMPARE(fileBytes(), before);
        defaults.set(QStringLiteral("another"), 1);
        QCOMPARE(restarted()->integer(key), 8);
    }

    void aValueOfTheWrongKindIsAbsentOrZero() {
        writeFile("[General]\nvellumline.hotkey.keyLabel=a, b, c\nvellumline.pasteDelayMs=soon\n"
                  "vellumline.hotkey.keyCode=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\fQStringList2\\0)\n");
        SettingsDefaults defaults(file_);
        QCOMPARE(defaults.integer(key), 0);
        QCOMPARE(defaults.integer(QStringLiteral("vellumline.pasteDelayMs")), 0);
        QCOMPARE(defaults.integer(QStringLiteral("vellumline.hotkey.keyCode")), 0);
        QVERIFY(!defaults.boolean(key));
    }

    void theFileIsForItsUserOnly() {
        const mode_t before = umask(0);
        SettingsDefaults(file_).set(key, 1);
        umask(before);
        const QFile::Permissions all = QFileInfo(file_).permissions();
        const QFile::Permissions others =
            QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
        QVERIFY(!fileBytes().isEmpty());
        QCOMPARE(all & others, QFile::Permissions());

        QVERIFY(QFile::setPermissions(file_, all | QFile::ReadOther));
        SettingsDefaults(file_).set(key, 2);
        QCOMPARE(QFileInfo(file_).permissions() & others, QFile::Permissions());
    }

    void theFileIsInTheUsersConfigurationFolder() {
        QVERIFY(SettingsDefaults::defaultFile().endsWith(QStringLiteral("/vellumline/vellumline.conf")));
        const QString configured = qEnvironmentVariable("XDG_CONFIG_HOME");
        QVERIFY(!configured.isEmpty());
        QVERIFY(SettingsDefaults::defaultFile().startsWith(configured));
    }
};

QTEST_GUILESS_MAIN(UserDefaultsContractTest)
#include "tst_userdefaults_contract.moc"
