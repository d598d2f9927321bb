#include "Vellumline/OnboardingWindow.h"
#include "Vellumline/Platform/Linux/SettingsDefaults.h"
#include "desktop/DesktopProgram.h"
#include "fakes/SignedFeed.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace vellumline;
using test::DesktopProgram;

namespace {

QString program() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/../../Vellumline/vellumline");
}

bool isOnScreen(const char* title) {
    const QStringList windows = DesktopProgram::windows();
    return std::ranges::any_of(windows,
                               [&](const QString& window) { return window.contains(QLatin1String(title)); });
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

} // namespace

class UpdateFeedTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(QFileInfo(program()).isExecutable(), qPrintable(program()));
        SettingsDefaults().set(OnboardingWindow::doneKey, true); // the welcome window takes the keyboard
    }

    void theProgramThatStartsShowsANewerVersionAndLeavesTheKeyboardWhereItIs() {
        QTemporaryDir folder;
        const Publisher publisher;
        const QByteArray feed = feedWith("99.0");
        writeFile(folder.filePath(QStringLiteral("feed.xml")), feed);
        writeFile(folder.filePath(QStringLiteral("feed.xml.sig")), publisher.sign(feed));
        const FileServer server(QDir(folder.path()));
        DesktopProgram editor(QStringLiteral("mousepad"), {});
        QVERIFY(editor.waitForWindow(QStringLiteral("Mousepad")));

        QProcess vellumline;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELLUMLINE_APPCAST"), server.address("feed.xml"));
        environment.insert(QStringLiteral("VELLUMLINE_APPCAST_KEY"), publisher.publicKey());
        vellumline.setProcessEnvironment(environment);
        vellumline.setProcessChannelMode(QProcess::ForwardedChannels);
        vellumline.start(program(), {QStringLiteral("--no-local-service")});
        QTRY_VERIFY_WITH_TIMEOUT(isOnScreen("Software Update"), 60000);

        test::pressKeys({QStringLiteral("a")});
        QTRY_VERIFY_WITH_TIMEOUT(isOnScreen("*Untitled"), 10000); // a changed text
        QVERIFY(isOnScreen("Software Update"));

        test::commandOutput(QStringLiteral("wmctrl"),
                            {QStringLiteral("-c"), QStringLiteral("Software Update")});
        QTRY_VERIFY_WITH_TIMEOUT(!isOnScreen("Software Update"), 10000);
        QCOMPARE(vellumline.state(), QProcess::Running);
        vellumline.terminate();
        QVERIFY(vellumline.waitForFinished(20000));
    }
};

QTEST_GUILESS_MAIN(UpdateFeedTest)
#include "tst_updatefeed.moc"
