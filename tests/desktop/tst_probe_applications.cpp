// What the selection probe says of real programs on a real desktop, and how long it takes. Started with
// "--field KIND" this program is one of them: a window with a single Qt 6 field.

#include "DesktopProgram.h"
#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"
#include "Vellumline/Platform/X11/X11Connection.h"
#include "Vellumline/Platform/X11/X11KeyEvents.h"
#include "Vellumline/Platform/X11/X11Workspace.h"
#include "Vellumline/SelectionProbe.h"

#include <QApplication>
#include <QCoroTask>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <algorithm>

using namespace vellumline;
using namespace vellumline::test;
using Kind = ProbeAnswer::Kind;

namespace {

const QString practice = QStringLiteral("i has went to the shop");

const char* nameOf(Kind kind) {
    switch (kind) {
    case Kind::editable:
        return "editable";
    case Kind::emptySelection:
        return "emptySelection";
    case Kind::readOnly:
        return "readOnly";
    case Kind::secure:
        return "secure";
    case Kind::unknown:
        return "unknown";
    }
    return "";
}

/// Names a wrong answer in the test's output.
QByteArray described(const ProbeAnswer& answer) {
    return QByteArray(nameOf(answer.kind)) + " \"" + answer.selectedText.value_or(QString()).toUtf8() + '"';
}

const QByteArray page = R"(<!DOCTYPE html><meta charset="utf-8"><title>fields</title>
<p id="text">some text of the page</p>
<textarea autofocus rows="3" cols="40">i has went to the shop</textarea><br>
<input value="i has went to the shop"><br>
<input type="password" value="hunter2"><br>
<input readonly value="i has went to the shop"><br>
<div contenteditable="true">i has went to the shop</div>
<script>
addEventListener('keydown', event => {
    if (event.key !== 'F4') return;
    document.activeElement.blur();
    getSelection().selectAllChildren(document.getElementById('text'));
});
</script>)";

int showField(const QString& kind) {
    int count = 1;
    char name[] = "field";
    char* arguments[] = {name, nullptr};
    QApplication application(count, arguments);
    std::unique_ptr<QWidget> field;
    if (kind == QStringLiteral("plain")) {
        field = std::make_unique<QPlainTextEdit>(practice);
    } else {
        auto line = std::make_unique<QLineEdit>(practice);
        if (kind == QStringLiteral("password"))
            line->setEchoMode(QLineEdit::Password);
        line->setReadOnly(kind == QStringLiteral("readonly"));
        field = std::move(line);
    }
    field->setWindowTitle(QStringLiteral("field"));
    field->resize(400, 100);
    field->show();
    return QApplication::exec();
}

} // namespace

class ProbeApplicationsTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<QTemporaryDir> home_;
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11SecureInput> secureInput_;
    std::unique_ptr<X11Workspace> workspace_;
    std::unique_ptr<AtSpiAccessibility> accessibility_;
    std::unique_ptr<SelectionProbe> probe_;

    ProbeAnswer probe() { return QCoro::waitFor(probe_->focused()); }
    /// Keys take their time to arrive: asks until the answer is of that kind.
    ProbeAnswer probeUntil(Kind kind, int milliseconds = 8000) {
        QElapsedTimer timer;
        timer.start();
        ProbeAnswer answer = probe();
        while (answer.kind != kind && timer.elapsed() < milliseconds) {
            QTest::qWait(50);
            answer = probe();
        }
        return answer;
    }
    void report(const char* program) {
        QList<double> times;
        for (int i = 0; i < 20; ++i) {
            QElapsedTimer timer;
            timer.start();
            probe();
            times.append(double(timer.nsecsElapsed()) / 1e6);
        }
        std::sort(times.begin(), times.end());
        qInfo("probe of %s: median %.1f ms, longest %.1f ms", program, times.at(10), times.last());
    }
    QString file(const QString& name, const QByteArray& bytes) const {
        QFile file(home_->filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(name));
        return file.fileName();
    }
    static QStringList fieldArguments(const char* kind) {
        return {QStringLiteral("--field"), QString::fromLatin1(kind)};
    }

    /// A caret is an empty selection; everything selected is editable.
    void checkEditor(const char* name, bool givesText) {
        pressKeys({QStringLiteral("ctrl+End")});
        const ProbeAnswer caret = probeUntil(Kind::emptySelection);
        QVERIFY2(caret.kind == Kind::emptySelection, described(caret).constData());
        pressKeys({QStringLiteral("ctrl+a")});
        const ProbeAnswer selected = probeUntil(Kind::editable);
        QVERIFY2(selected.kind == Kind::editable, described(selected).constData());
        QCOMPARE(selected.selectedText.value_or(QString()).trimmed(), givesText ? practice : QString());
        report(name);
    }

    /// The fields of the page in the order of the tabulator key.
    void checkBrowser(const char* name) {
        ProbeAnswer answer = probeUntil(Kind::emptySelection, 20000);
        QVERIFY2(answer.kind == Kind::emptySelection, described(answer).constData());
        pressKeys({QStringLiteral("ctrl+a")});
        answer = probeUntil(Kind::editable);
        QVERIFY2(answer == ProbeAnswer::editable(practice), described(answer).constData());
        report(name);
        // A tabulator selects what is in the field that it comes to.
        pressKeys({QStringLiteral("ctrl+End"), QStringLiteral("Tab"), QStringLiteral("End")});
        answer = probeUntil(Kind::emptySelection);
        QVERIFY2(answer.kind == Kind::emptySelection, described(answer).constData());
        pressKeys({QStringLiteral("ctrl+a")});
        answer = probeUntil(Kind::editable);
        QVERIFY2(answer == ProbeAnswer::editable(practice), described(answer).constData());
        pressKeys({QStringLiteral("Tab")});
        answer = probeUntil(Kind::secure);
        QVERIFY2(answer.kind == Kind::secure, described(answer).constData());
        pressKeys({QStringLiteral("Tab")});
        answer = probeUntil(Kind::readOnly);
        QVERIFY2(answer.kind == Kind::readOnly, described(answer).constData());
        pressKeys({QStringLiteral("Tab")});
        answer = probeUntil(Kind::emptySelection);
        QVERIFY2(answer.kind == Kind::emptySelection, described(answer).constData());
        pressKeys({QStringLiteral("ctrl+a")});
        answer = probeUntil(Kind::editable);
        QVERIFY2(answer.kind == Kind::editable, described(answer).constData());
        if (answer.selectedText)
            QCOMPARE(*answer.selectedText, practice);
        pressKeys({QStringLiteral("F4")});
        answer = probeUntil(Kind::readOnly);
        QVERIFY2(answer.kind == Kind::readOnly, described(answer).constData());
    }

  private Q_SLOTS:
    void init() {
        home_ = std::make_unique<QTemporaryDir>();
        QVERIFY(home_->isValid());
        for (const auto& [variable, folder] :
             {std::pair("HOME", ""), std::pair("XDG_CONFIG_HOME", "/.config"),
              std::pair("XDG_CACHE_HOME", "/.cache"), std::pair("XDG_DATA_HOME", "/.local/share")}) {
            QDir().mkpath(home_->path() + QLatin1String(folder));
            qputenv(variable, QFile::encodeName(home_->path()) + folder);
        }
        connection_ = X11Connection::open();
        QVERIFY(connection_);
        secureInput_ = std::make_unique<X11SecureInput>(*connection_);
        workspace_ = std::make_unique<X11Workspace>(*connection_);
        accessibility_ = std::make_unique<AtSpiAccessibility>([this] {
            const auto windowClass = workspace_->activeWindowClass();
            return QStringList{windowClass.instance, windowClass.name};
        });
        QVERIFY(QCoro::waitFor(accessibility_->ready()));
        QVERIFY(accessibility_->isProcessTrusted());
        probe_ = std::make_unique<SelectionProbe>(*accessibility_, *workspace_, *secureInput_);
    }
    void cleanup() {
        probe_.reset();
        accessibility_.reset();
        workspace_.reset();
        secureInput_.reset();
        connection_.reset();
    }

    void anEditorGivesItsSelection_data() {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("options");
        QTest::newRow("GTK 3 (mousepad)")
            << QStringLiteral("mousepad") << QStringList{QStringLiteral("--disable-server")};
        QTest::newRow("GTK 4 (gnome-text-editor)")
            << QStringLiteral("gnome-text-editor") << QStringList{QStringLiteral("-s")};
        QTest::newRow("Qt 5 (featherpad)")
            << QStringLiteral("featherpad") << QStringList{QStringLiteral("--standalone")};
    }
    void anEditorGivesItsSelection() {
        QFETCH(QString, program);
        QFETCH(QStringList, options);
        if (!isInstalled(program))
            QSKIP("not installed");
        const QString text = file(QStringLiteral("practice.txt"), practice.toUtf8());
        DesktopProgram editor(program, options + QStringList{text});
        QVERIFY(editor.waitForWindow(QStringLiteral("practice")));
        checkEditor(QTest::currentDataTag(), true);
    }

    void aFieldOfQt6_data() {
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<Kind>("caret");
        QTest::addColumn<Kind>("selected");
        QTest::newRow("a text can be corrected")
            << QByteArray("plain") << Kind::emptySelection << Kind::editable;
        QTest::newRow("a line can be corrected")
            << QByteArray("line") << Kind::emptySelection << Kind::editable;
        QTest::newRow("a read-only line cannot")
            << QByteArray("readonly") << Kind::emptySelection << Kind::readOnly;
        QTest::newRow("a password is never touched")
            << QByteArray("password") << Kind::secure << Kind::secure;
    }
    void aFieldOfQt6() {
        QFETCH(QByteArray, field);
        QFETCH(Kind, caret);
        QFETCH(Kind, selected);
        DesktopProgram program(QCoreApplication::applicationFilePath(), fieldArguments(field.constData()));
        QVERIFY(program.waitForWindow(QStringLiteral("field")));
        pressKeys({QStringLiteral("End")});
        const ProbeAnswer before = probeUntil(caret);
        QVERIFY2(before.kind == caret, described(before).constData());
        pressKeys({QStringLiteral("ctrl+a")});
        const ProbeAnswer after = probeUntil(selected);
        QVERIFY2(after.kind == selected, described(after).constData());
        QCOMPARE(after.selectedText.value_or(QString()), selected == Kind::editable ? practice : QString());
        report(QTest::currentDataTag());
    }

    void aTextKeepsAZeroWidthSpaceAtItsBeginning() {
        const QString text = QStringLiteral(u"\ufeff\U00010348"); // two of anything without the first, too
        // The first mark of a file is that of its encoding, and no character.
        const QString name =
            file(QStringLiteral("practice.txt"), (QChar(QChar::ByteOrderMark) + text).toUtf8());
        DesktopProgram editor(QStringLiteral("mousepad"), {QStringLiteral("--disable-server"), name});
        QVERIFY(editor.waitForWindow(QStringLiteral("practice")));
        pressKeys({QStringLiteral("ctrl+a")});
        const ProbeAnswer answer = probeUntil(Kind::editable);
        QVERIFY2(answer == ProbeAnswer::editable(text), described(answer).constData());
    }

    void aHungProgramIsUnknownWithinBounds() {
        DesktopProgram program(QCoreApplication::applicationFilePath(), fieldArguments("plain"));
        QVERIFY(program.waitForWindow(QStringLiteral("field")));
        QCOMPARE(probeUntil(Kind::emptySelection).kind, Kind::emptySelection);
        const auto front = workspace_->frontmostApplication();
        QVERIFY(front);
        QCOMPARE(kill(static_cast<pid_t>(front->processIdentifier), SIGSTOP), 0);
        // Known or new to the probe.
        for (int i = 0; i < 2; ++i) {
            QElapsedTimer timer;
            timer.start();
            const ProbeAnswer answer = probe();
            const auto elapsed = timer.elapsed();
            qInfo("probe of a hung program: %lld ms", static_cast<long long>(elapsed));
            QVERIFY2(answer.kind == Kind::unknown, described(answer).constData());
            // Two calls, each within a quarter of a second, and what the machine adds.
            QVERIFY2(elapsed < 1500, QByteArray::number(elapsed).constData());
            probe_ = std::make_unique<SelectionProbe>(*accessibility_, *workspace_, *secureInput_);
        }
        QCOMPARE(kill(static_cast<pid_t>(front->processIdentifier), SIGCONT), 0);
        QCOMPARE(probeUntil(Kind::emptySelection).kind, Kind::emptySelection);
    }

    void aTerminalIsReadOnlyWithAndWithoutASelection_data() {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("xterm, without a tree")
            << QStringLiteral("xterm") << QStringList{QStringLiteral("-T"), QStringLiteral("shell-window")};
        QTest::newRow("xfce4-terminal") << QStringLiteral("xfce4-terminal")
                                        << QStringList{QStringLiteral("--disable-server"),
                                                       QStringLiteral("-T"), QStringLiteral("shell-window")};
    }
    void aTerminalIsReadOnlyWithAndWithoutASelection() {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        if (!isInstalled(program))
            QSKIP("not installed");
        DesktopProgram terminal(program, arguments);
        QVERIFY(terminal.waitForWindow(QStringLiteral("shell-window")));
        const ProbeAnswer answer = probe();
        QVERIFY2(answer.kind == Kind::readOnly, described(answer).constData());
        pressKeys({QStringLiteral("ctrl+shift+a")});
        QCOMPARE(probe().kind, Kind::readOnly);
        report(QTest::currentDataTag());
    }

    void aTerminalIsKnownByItsTreeWhenItsWindowSaysNothing() {
        if (!isInstalled(QStringLiteral("xfce4-terminal")))
            QSKIP("not installed");
        accessibility_ = std::make_unique<AtSpiAccessibility>([] { return QStringList(); });
        QVERIFY(QCoro::waitFor(accessibility_->ready()));
        probe_ = std::make_unique<SelectionProbe>(*accessibility_, *workspace_, *secureInput_);
        DesktopProgram terminal(
            QStringLiteral("xfce4-terminal"),
            {QStringLiteral("--disable-server"), QStringLiteral("-T"), QStringLiteral("shell-window")});
        QVERIFY(terminal.waitForWindow(QStringLiteral("shell-window")));
        const ProbeAnswer answer = probeUntil(Kind::readOnly);
        QVERIFY2(answer.kind == Kind::readOnly, described(answer).constData());
    }

    void aProgramWithoutATreeIsUnknown() {
        if (!isInstalled(QStringLiteral("xcalc")))
            QSKIP("not installed");
        DesktopProgram calculator(QStringLiteral("xcalc"), {});
        QVERIFY(calculator.waitForWindow(QStringLiteral("Calculator")));
        const ProbeAnswer answer = probe();
        QVERIFY2(answer.kind == Kind::unknown, described(answer).constData());
        report("xcalc");
    }

    void libreOfficeWriterGivesItsSelectionWithoutText() {
        if (!isInstalled(QStringLiteral("soffice")))
            QSKIP("not installed");
        const QString document = file(QStringLiteral("practice.html"), "<p>" + practice.toUtf8() + "</p>");
        DesktopProgram writer(QStringLiteral("soffice"),
                              {QStringLiteral("-env:UserInstallation=file://") + home_->filePath({}) +
                                   QStringLiteral("profile"),
                               QStringLiteral("--norestore"), QStringLiteral("--nologo"),
                               QStringLiteral("--nofirststartwizard"), QStringLiteral("--writer"), document});
        QVERIFY(writer.waitForWindow(QStringLiteral("practice")));
        // A paragraph knows its own part of a selection only, so the text is left to the clipboard.
        checkEditor("LibreOffice Writer", false);
    }

    void libreOfficeWriterSeesASelectionOfTwoParagraphs() {
        if (!isInstalled(QStringLiteral("soffice")))
            QSKIP("not installed");
        const QString document = file(QStringLiteral("two.html"), "<p>first one</p><p>second one</p>");
        DesktopProgram writer(QStringLiteral("soffice"),
                              {QStringLiteral("-env:UserInstallation=file://") + home_->filePath({}) +
                                   QStringLiteral("profile"),
                               QStringLiteral("--norestore"), QStringLiteral("--nologo"),
                               QStringLiteral("--nofirststartwizard"), QStringLiteral("--writer"), document});
        QVERIFY(writer.waitForWindow(QStringLiteral("two")));
        // A young window may drop keys.
        ProbeAnswer answer;
        for (int i = 0; i < 8 && answer.kind != Kind::emptySelection; ++i) {
            pressKeys({QStringLiteral("ctrl+Home")});
            answer = probeUntil(Kind::emptySelection, 3000);
        }
        QVERIFY2(answer.kind == Kind::emptySelection, described(answer).constData());
        // The whole first line and its end: the caret stands at the start of the second, where nothing is
        // selected.
        pressKeys({QStringLiteral("shift+Down"), QStringLiteral("shift+Home")});
        answer = probeUntil(Kind::editable);
        QVERIFY2(answer == ProbeAnswer::editable(std::nullopt), described(answer).constData());
        pressKeys({QStringLiteral("ctrl+a")});
        answer = probeUntil(Kind::editable);
        QVERIFY2(answer == ProbeAnswer::editable(std::nullopt), described(answer).constData());
    }

    void chromiumBuildsItsTreeOnDemand() {
        if (!isInstalled(QStringLiteral("chromium")))
            QSKIP("not installed");
        const QString url = QStringLiteral("file://") + file(QStringLiteral("fields.html"), page);
        DesktopProgram browser(QStringLiteral("chromium"),
                               {QStringLiteral("--no-sandbox"), QStringLiteral("--no-first-run"),
                                QStringLiteral("--no-default-browser-check"), QStringLiteral("--disable-gpu"),
                                QStringLiteral("--password-store=basic"), QStringLiteral("--disable-sync"),
                                QStringLiteral("--disable-background-networking"),
                                QStringLiteral("--user-data-dir=") + home_->filePath(QStringLiteral("p")),
                                url});
        QVERIFY(browser.waitForWindow(QStringLiteral("fields")));
        checkBrowser("Chromium");
    }

    void firefoxFields() {
        if (!isInstalled(QStringLiteral("firefox-esr")))
            QSKIP("not installed");
        const QString url = QStringLiteral("file://") + file(QStringLiteral("fields.html"), page);
        const QString profile = home_->filePath(QStringLiteral("p"));
        QVERIFY(QDir().mkpath(profile));
        DesktopProgram browser(QStringLiteral("firefox-esr"),
                               {QStringLiteral("--profile"), profile, QStringLiteral("--no-remote"), url});
        QVERIFY(browser.waitForWindow(QStringLiteral("fields")));
        checkBrowser("Firefox");
    }
};

int main(int argc, char** argv) {
    if (argc == 3 && QByteArray(argv[1]) == "--field")
        return showField(QString::fromLatin1(argv[2]));
    QCoreApplication application(argc, argv);
    ProbeApplicationsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_probe_applications.moc"
