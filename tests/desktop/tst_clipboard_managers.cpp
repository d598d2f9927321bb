// What the clipboard managers of a desktop do with what this program borrows. Klipper must not store it. The
// others are run as well; what they store is printed, since no marker is known that they honour.

#include "Vellumline/ClipboardSnapshot.h"
#include "Vellumline/Platform/X11/X11Pasteboard.h"
#include "tests/contract/ClipboardPeers.h"
#include "tests/desktop/DesktopProgram.h"

#include <QCoroTask>
#include <QTemporaryDir>
#include <QTest>

using namespace vellumline;
using namespace vellumline::test;

namespace {

const QString users = QStringLiteral("what the user copied");
const QString secret = QStringLiteral("the borrowed correction");

QString klipper(const QString& method, const QStringList& arguments = {}) {
    return commandOutput(QStringLiteral("gdbus"),
                         QStringList{QStringLiteral("call"), QStringLiteral("--session"),
                                     QStringLiteral("--dest"), QStringLiteral("org.kde.klipper"),
                                     QStringLiteral("--object-path"), QStringLiteral("/klipper"),
                                     QStringLiteral("--method"),
                                     QStringLiteral("org.kde.klipper.klipper.") + method} +
                             arguments);
}

} // namespace

class ClipboardManagers : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        board_ = X11Pasteboard::open();
        QVERIFY(board_);
        QCoro::waitFor(board_->clearContents());
    }
    void cleanup() {
        manager_.reset();
        owner_.reset();
        board_.reset();
    }

    void klipperDoesNotStoreWhatIsBorrowed() {
        if (!isInstalled(QStringLiteral("klipper")))
            QSKIP("Klipper is not installed");
        manager_ = std::make_unique<DesktopProgram>(QStringLiteral("klipper"), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(
            klipper(QStringLiteral("getClipboardHistoryMenu")).startsWith(QLatin1Char('(')), 20000);
        userCopies();
        QTRY_VERIFY_WITH_TIMEOUT(
            klipper(QStringLiteral("getClipboardHistoryItem"), {QStringLiteral("0")}).contains(users), 5000);

        const auto before = QCoro::waitFor(ClipboardSnapshot::capture(*board_));
        QVERIFY(!before.items().isEmpty());
        borrow();
        QCoro::waitFor(ClipboardSnapshot::restore(before, *board_));
        QTest::qWait(300);
        const auto menu = klipper(QStringLiteral("getClipboardHistoryMenu"));
        QVERIFY2(menu.contains(users), qPrintable(menu));
        QVERIFY2(!menu.contains(secret), qPrintable(menu));
        // And the user's clipboard is there, from us and not from Klipper's history.
        QCOMPARE(QCoro::waitFor(board_->string()), users);
        QVERIFY(board_->ownsClipboard());
        // The same text, written without the marks, is stored: the history was looked at rightly.
        PasteboardItem unmarked;
        unmarked.set(PasteboardType::string, "not marked");
        QVERIFY(QCoro::waitFor(board_->write({unmarked})));
        QTRY_VERIFY_WITH_TIMEOUT(
            klipper(QStringLiteral("getClipboardHistoryMenu")).contains(QStringLiteral("not marked")), 5000);
    }

    void theOthersAreObserved_data() {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("history");
        QTest::newRow("CopyQ") << QStringLiteral("copyq") << QStringList()
                               << QStringLiteral(
                                      "copyq eval -- 'for(i=0;i<size();++i) print(str(read(i))+\"\\n\")'");
        QTest::newRow("xfce4-clipman")
            << QStringLiteral("xfce4-clipman") << QStringList()
            << QStringLiteral("xfce4-clipman-history --help >/dev/null 2>&1; "
                              "cat \"$XDG_CACHE_HOME\"/xfce4/clipman/* 2>/dev/null");
        QTest::newRow("GPaste") << QStringLiteral("/usr/libexec/gpaste/gpaste-daemon") << QStringList()
                                << QStringLiteral("gpaste-client history --oneline");
        QTest::newRow("diodon") << QStringLiteral("diodon") << QStringList() << QString();
    }
    void theOthersAreObserved() {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(QString, history);
        if (!isInstalled(program))
            QSKIP(qPrintable(program + QStringLiteral(" is not installed")));
        manager_ = std::make_unique<DesktopProgram>(program, arguments);
        QTest::qWait(2500); // none of them says when it is ready
        userCopies();
        QTest::qWait(700);
        const auto before = QCoro::waitFor(ClipboardSnapshot::capture(*board_));
        QVERIFY(!before.items().isEmpty());
        borrow();
        QCoro::waitFor(ClipboardSnapshot::restore(before, *board_));
        QTest::qWait(700);
        const auto stored = history.isEmpty()
                                ? QString()
                                : commandOutput(QStringLiteral("sh"), {QStringLiteral("-c"), history});
        qInfo().noquote() << QTest::currentDataTag() << "stores what is borrowed:"
                          << (history.isEmpty()         ? QStringLiteral("cannot be asked")
                              : stored.contains(secret) ? QStringLiteral("yes")
                              : stored.contains(users)  ? QStringLiteral("no")
                                                        : QStringLiteral("its history was not readable"))
                          << "; hands over at our end:" << QCoro::waitFor(board_->handToClipboardManager());
        // Whatever they store, the user's clipboard must be back.
        QCOMPARE(QCoro::waitFor(board_->string()), users);
    }

  private:
    void userCopies() {
        PasteboardItem item;
        item.set(PasteboardType::string, users.toUtf8());
        owner_ = std::make_unique<ScriptedOwner>(scriptFor({item}));
    }
    /// The correction, for as long as the shortest paste delay.
    void borrow() {
        QVERIFY(QCoro::waitFor(Clipboard::writePrivately(secret, std::nullopt, *board_)));
        QTest::qWait(100);
    }

    std::unique_ptr<X11Pasteboard> board_;
    std::unique_ptr<ScriptedOwner> owner_;
    std::unique_ptr<DesktopProgram> manager_;
};

QTEST_GUILESS_MAIN(ClipboardManagers)
#include "tst_clipboard_managers.moc"
