#include "Vellumline/Platform/X11/X11Hotkeys.h"
#include "Vellumline/Platform/X11/X11KeyEvents.h"
#include "Vellumline/Platform/X11/X11Workspace.h"
#include "desktop/X11TestClient.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace vellumline;

/// Copying and pasting in editors that nobody here wrote, in layouts that have a c, have it elsewhere, or
/// have none, while the user holds the hot key.
class KeyEventsEditorsTest : public QObject {
    Q_OBJECT

  private:
    static QByteArray clipboard() {
        QProcess reader;
        reader.start(QStringLiteral("xclip"),
                     {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
        reader.waitForFinished(2000);
        return reader.readAllStandardOutput().trimmed();
    }
    static void fillClipboard(const QByteArray& text) {
        // xclip leaves a process behind that serves the text.
        QProcess writer;
        writer.setStandardOutputFile(QProcess::nullDevice());
        writer.setStandardErrorFile(QProcess::nullDevice());
        writer.start(QStringLiteral("xclip"), {QStringLiteral("-selection"), QStringLiteral("clipboard")});
        writer.write(text);
        writer.closeWriteChannel();
        QVERIFY(writer.waitForFinished());
    }

  private Q_SLOTS:
    void initTestCase() {
        if (QStandardPaths::findExecutable(QStringLiteral("xclip")).isEmpty())
            QSKIP("xclip is not installed");
    }
    void cleanup() { QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us")})); }

    void theHeldHotKeyCopiesAndPastes_data() {
        QTest::addColumn<QString>("editor");
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<int>("group");
        for (const auto* editor : {"mousepad", "featherpad"}) {
            const QString name = QString::fromLatin1(editor);
            QTest::addRow("%s, us", editor) << name << QStringList{QStringLiteral("us")} << 0;
            QTest::addRow("%s, dvorak", editor)
                << name
                << QStringList{QStringLiteral("us"), QStringLiteral("-variant"), QStringLiteral("dvorak")}
                << 0;
            QTest::addRow("%s, us,ru in the second group", editor)
                << name << QStringList{QStringLiteral("us,ru")} << 1;
        }
    }
    void theHeldHotKeyCopiesAndPastes() {
        QFETCH(QString, editor);
        QFETCH(QStringList, layout);
        QFETCH(int, group);
        if (QStandardPaths::findExecutable(editor).isEmpty())
            QSKIP("the editor is not installed");
        QTemporaryDir folder;
        QFile document(folder.filePath(QStringLiteral("text.txt")));
        QVERIFY(document.open(QIODevice::WriteOnly));
        const QByteArray text = "i has went " + QByteArray(QTest::currentDataTag());
        document.write(text);
        document.close();
        X11PhysicalKeyboard user;
        QVERIFY(setKeyboardLayout(QStringList{QStringLiteral("-layout")} + layout));
        user.lockGroup(static_cast<std::uint8_t>(group));

        QProcess program;
        program.start(editor, {document.fileName()});
        QVERIFY(program.waitForStarted());
        const auto connection = X11Connection::open();
        X11KeyEvents keys(*connection);
        X11Hotkeys hotkeys(*connection);
        const X11Workspace workspace(*connection);
        QTRY_COMPARE_WITH_TIMEOUT(workspace.frontmostApplication(),
                                  Workspace::Application{program.processId()}, 20000);
        std::uint16_t stroke = 8;
        QVERIFY(hotkeys.installHandler([&keys, &stroke] { keys.postCommand(stroke); }));
        QVERIFY(hotkeys.registerHotKey(15, 0x1800, {}));
        const QList<std::uint8_t> hotKey{XKey::control, XKey::alt, XKey::r};

        // An editor that has just come to the front may not take keys yet: select and copy until it does.
        QElapsedTimer time;
        time.start();
        QByteArray copied;
        while (copied != text && time.elapsed() < 15000) {
            keys.postCommand(0);
            QTest::qWait(100);
            user.press(hotKey);
            QTest::qWait(200);
            user.release(hotKey);
            copied = clipboard();
        }
        QCOMPARE(copied, text);

        const QByteArray correction = "I have gone " + QByteArray(QTest::currentDataTag());
        time.restart();
        do { // the editor may do a copy of before only now, and take the clipboard with it
            keys.postCommand(0);
            fillClipboard(correction);
            QCOMPARE(clipboard(), correction);
            stroke = 9;
            user.press(hotKey);
            QTest::qWait(300);
            user.release(hotKey);
            stroke = 8;
        } while (clipboard() != correction && time.elapsed() < 15000);
        fillClipboard("between");
        time.restart();
        copied.clear();
        while (copied != correction && time.elapsed() < 10000) {
            keys.postCommand(0);
            QTest::qWait(100);
            user.press(hotKey);
            QTest::qWait(200);
            user.release(hotKey);
            copied = clipboard();
        }
        QCOMPARE(copied, correction);
        QTRY_COMPARE(user.keysDown(), QList<int>());
        program.kill();
        program.waitForFinished();
        QTRY_COMPARE(workspace.activeWindow(), xcb_window_t{XCB_WINDOW_NONE});
    }
};

QTEST_GUILESS_MAIN(KeyEventsEditorsTest)
#include "tst_keyevents_editors.moc"
