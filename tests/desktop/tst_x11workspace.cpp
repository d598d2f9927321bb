#include "Vellumline/Platform/X11/X11Workspace.h"
#include "desktop/X11TestClient.h"

#include <QCoroTask>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

using namespace vellumline;

namespace {

struct Launch {
    QString program;
    QStringList arguments;
    bool operator==(const Launch&) const = default;
};

/// Another program's window; the window manager makes it the active one.
class Program : public X11TestClient {
  public:
    Program() : window_(xcb_generate_id(raw())) {
        xcb_create_window(raw(), XCB_COPY_FROM_PARENT, window_, root(), 0, 0, 100, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    }
    xcb_window_t window() const { return window_; }
    void declareProcess(std::uint32_t pid) {
        xcb_change_property(raw(), XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32,
                            1, &pid);
    }
    void declare(xcb_atom_t property, const QByteArray& text) {
        xcb_change_property(raw(), XCB_PROP_MODE_REPLACE, window_, property, XCB_ATOM_STRING, 8,
                            static_cast<std::uint32_t>(text.size()), text.constData());
    }
    void show() {
        xcb_map_window(raw(), window_);
        sync();
    }
    void hide() {
        xcb_unmap_window(raw(), window_);
        sync();
    }

  private:
    xcb_window_t window_;
};

/// A process that has ended.
std::uint32_t endedProcess() {
    QProcess process;
    process.start(QStringLiteral("true"), {});
    process.waitForStarted();
    const auto pid = static_cast<std::uint32_t>(process.processId());
    process.waitForFinished();
    return pid;
}

} // namespace

/// The part of a desktop portal that opens links.
class PortalStandIn : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.OpenURI")
  public:
    QStringList opened;
    bool refuses = false;
    bool isSilent = false;

  public Q_SLOTS:
    QDBusObjectPath OpenURI(const QString&, const QString& uri, const QVariantMap&) {
        opened.append(uri);
        if (isSilent)
            setDelayedReply(true);
        else if (refuses)
            sendErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                           QStringLiteral("no backend"));
        return QDBusObjectPath(QStringLiteral("/org/freedesktop/portal/desktop/request/1"));
    }
};

/// The front window, links and settings pages of a real session.
class X11WorkspaceTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11Workspace> workspace_;
    QList<Launch> launches_;

    void bringToFront(Program& program) {
        program.show();
        const auto isActive = [&] { return workspace_->activeWindow() == program.window(); };
        // A busy window manager may have missed the first window of a session; no user notices, they click
        // again.
        if (!QTest::qWaitFor(isActive, 3000)) {
            program.hide();
            program.show();
        }
        QTRY_COMPARE(workspace_->activeWindow(), program.window());
    }

  private Q_SLOTS:
    void init() {
        connection_ = X11Connection::open();
        QVERIFY(connection_);
        launches_.clear();
        workspace_ = std::make_unique<X11Workspace>(
            *connection_, [this](const QString& program, const QStringList& arguments) {
                launches_.append({program, arguments});
                return true;
            });
    }
    void cleanup() {
        workspace_.reset();
        connection_.reset();
        qputenv("XDG_CURRENT_DESKTOP", "XFCE");
    }

    // Front application

    void aWindowThatDoesNotSayItsProcessIsKnownByItsConnection() {
        Program program;
        bringToFront(program);
        QCOMPARE(workspace_->frontmostApplication(), Workspace::Application{getpid()});
    }
    void aProcessThatHasEndedIsNotBelieved() {
        Program program;
        program.declareProcess(endedProcess());
        bringToFront(program);
        QCOMPARE(workspace_->frontmostApplication(), Workspace::Application{getpid()});
    }
    void aProcessOfAnotherMachineIsNotBelieved() {
        Program program;
        program.declareProcess(static_cast<std::uint32_t>(getppid()));
        program.declare(XCB_ATOM_WM_CLIENT_MACHINE, "elsewhere.example");
        bringToFront(program);
        QCOMPARE(workspace_->frontmostApplication(), Workspace::Application{getpid()});
    }
    void thisMachineByItsShortOrFullNameIsBelieved() {
        for (const auto& name :
             {QSysInfo::machineHostName(), QSysInfo::machineHostName() + QStringLiteral(".lan")}) {
            Program program;
            program.declareProcess(static_cast<std::uint32_t>(getppid()));
            program.declare(XCB_ATOM_WM_CLIENT_MACHINE, name.toLocal8Bit());
            bringToFront(program);
            QCOMPARE(workspace_->frontmostApplication(), Workspace::Application{getppid()});
        }
    }
    void aRealProgramIsKnownByItsProcess() {
        QProcess terminal;
        terminal.start(QStringLiteral("xterm"), {});
        QVERIFY(terminal.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(workspace_->activeWindowClass().name, QStringLiteral("XTerm"), 15000);
        QCOMPARE(workspace_->activeWindowClass().instance, QStringLiteral("xterm"));
        QCOMPARE(workspace_->frontmostApplication(), Workspace::Application{terminal.processId()});
        terminal.kill();
        terminal.waitForFinished();
        QTRY_COMPARE(workspace_->activeWindow(), xcb_window_t{XCB_WINDOW_NONE});
        QVERIFY(!workspace_->frontmostApplication());
        QCOMPARE(workspace_->activeWindowClass(), X11Workspace::WindowClass());
    }
    void aWindowClassWithOnePartOrNoneIsNoFault() {
        Program none;
        bringToFront(none);
        QCOMPARE(workspace_->activeWindowClass(), X11Workspace::WindowClass());
        Program one;
        one.declare(XCB_ATOM_WM_CLASS, QByteArray("lonely", 6));
        bringToFront(one);
        QCOMPARE(workspace_->activeWindowClass(),
                 (X11Workspace::WindowClass{QStringLiteral("lonely"), QString()}));
        Program both;
        both.declare(XCB_ATOM_WM_CLASS, QByteArray("gimp-2.10\0Gimp\0", 15));
        bringToFront(both);
        QCOMPARE(workspace_->activeWindowClass(),
                 (X11Workspace::WindowClass{QStringLiteral("gimp-2.10"), QStringLiteral("Gimp")}));
    }
    void aProgramThatCannotBeAskedOrDoesNotAnswerHasTakenNothing_data() {
        QTest::addColumn<bool>("takesPart");
        QTest::addColumn<bool>("exists");
        QTest::newRow("it does not take part in the protocol") << false << true;
        QTest::newRow("it does not answer in time") << true << true;
        QTest::newRow("its window is not there") << true << false;
    }
    void aProgramThatCannotBeAskedOrDoesNotAnswerHasTakenNothing() {
        QFETCH(const bool, takesPart);
        QFETCH(const bool, exists);
        Program program;
        if (takesPart) {
            const xcb_atom_t ping = program.atom("_NET_WM_PING");
            xcb_change_property(program.raw(), XCB_PROP_MODE_REPLACE, program.window(),
                                program.atom("WM_PROTOCOLS"), XCB_ATOM_ATOM, 32, 1, &ping);
        }
        program.show();
        const xcb_window_t window = exists ? program.window() : xcb_generate_id(program.raw());
        QVERIFY(
            !QCoro::waitFor(workspace_->hasTakenInput({getpid(), window}, std::chrono::milliseconds(50))));
    }
    void withoutAWindowManagerTheFocusedWindowIsInFront() {
        QProcess server;
        server.start(QStringLiteral("Xvfb"), {QStringLiteral("-displayfd"), QStringLiteral("1"),
                                              QStringLiteral("-nolisten"), QStringLiteral("tcp")});
        QVERIFY(server.waitForStarted());
        QTRY_VERIFY(server.canReadLine());
        const QByteArray display = ':' + server.readLine().trimmed();
        const QByteArray before = qgetenv("DISPLAY");
        qputenv("DISPLAY", display);
        {
            const auto connection = X11Connection::open();
            QVERIFY(connection);
            const X11Workspace workspace(*connection);
            QVERIFY(!workspace.frontmostApplication());
            X11KeyRecorder program;
            QTRY_COMPARE(workspace.activeWindow(), program.window());
            QCOMPARE(workspace.frontmostApplication(), Workspace::Application{getpid()});
        }
        qputenv("DISPLAY", before);
        server.kill();
        server.waitForFinished();
    }

    // Links

    void aRunningPortalOpensTheLinkAndNobodyWaitsForIt() {
        auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal"));
        PortalStandIn portal;
        QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                                   QDBusConnection::ExportAllSlots));
        QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop")));
        workspace_->openURL(QUrl(QStringLiteral("https://example.com/a?b=%20c")));
        QVERIFY(portal.opened.isEmpty()); // nothing has run yet: the call has returned before
        QTRY_COMPARE(portal.opened, QStringList({QStringLiteral("https://example.com/a?b=%20c")}));

        // One that refuses leaves the link to us.
        portal.refuses = true;
        QVERIFY(launches_.isEmpty());
        workspace_->openURL(QUrl(QStringLiteral("https://example.com/")));
        QTRY_COMPARE(launches_,
                     QList<Launch>({{QStringLiteral("xdg-open"), {QStringLiteral("https://example.com/")}}}));

        // One that never answers harms nobody, also when the workspace goes first.
        portal.isSilent = true;
        workspace_->openURL(QUrl(QStringLiteral("https://example.com/late")));
        QTRY_COMPARE(portal.opened.size(), 3);
        workspace_.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("portal"));
        QTest::qWait(50);
        QCOMPARE(launches_.size(), 1);
    }
    void withoutAPortalTheDesktopsOpenerGetsTheLink() {
        workspace_->openURL(QUrl(QStringLiteral("https://example.com/x y")));
        QTRY_COMPARE(launches_, QList<Launch>({{QStringLiteral("xdg-open"),
                                                {QStringLiteral("https://example.com/x%20y")}}}));
    }
    void theOpenerIsStartedWithoutAShell() {
        QTemporaryDir folder;
        QFile opener(folder.filePath(QStringLiteral("xdg-open")));
        QVERIFY(opener.open(QIODevice::WriteOnly));
        const QString out = folder.filePath(QStringLiteral("out"));
        opener.write("#!/bin/sh\nprintf '%s|' \"$@\" >" + out.toUtf8() + ".new; mv " + out.toUtf8() +
                     ".new " + out.toUtf8() + "\n");
        opener.close();
        QVERIFY(opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", folder.path().toUtf8() + ':' + path);
        X11Workspace workspace(*connection_);
        workspace.openURL(QUrl(QStringLiteral("https://example.com/?a=$(touch%20x)&b=;'`\"")));
        QTRY_VERIFY(QFile::exists(out));
        qputenv("PATH", path);
        QFile result(out);
        QVERIFY(result.open(QIODevice::ReadOnly));
        QCOMPARE(result.readAll(), QByteArray("https://example.com/?a=$(touch%20x)&b=;'%60%22|"));
    }
    void whatIsNoLinkIsNotOpened() {
        workspace_->openURL(QUrl());
        workspace_->openURL(QUrl(QStringLiteral("--help")));
        workspace_->openURL(QUrl(QStringLiteral("/etc/passwd")));
        workspace_->openURL(QUrl(QStringLiteral("https://exa mple:port/")));
        QTest::qWait(50);
        QVERIFY(launches_.isEmpty());
    }
    void theSettingsLinkOpensTheDesktopsAccessibilityPage_data() {
        QTest::addColumn<QByteArray>("desktop");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("GNOME") << QByteArray("GNOME") << QStringLiteral("gnome-control-center")
                               << QStringList{QStringLiteral("universal-access")};
        QTest::newRow("a GNOME of a distribution")
            << QByteArray("ubuntu:GNOME") << QStringLiteral("gnome-control-center")
            << QStringList{QStringLiteral("universal-access")};
        QTest::newRow("KDE") << QByteArray("KDE") << QStringLiteral("systemsettings")
                             << QStringList{QStringLiteral("kcm_access")};
        QTest::newRow("XFCE") << QByteArray("XFCE") << QStringLiteral("xfce4-accessibility-settings")
                              << QStringList();
        QTest::newRow("a desktop without such a page: nothing")
            << QByteArray("LXQt") << QString() << QStringList();
        QTest::newRow("no desktop: nothing") << QByteArray() << QString() << QStringList();
    }
    void theSettingsLinkOpensTheDesktopsAccessibilityPage() {
        QFETCH(QByteArray, desktop);
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QTemporaryDir folder;
        for (const auto* name : {"gnome-control-center", "systemsettings", "xfce4-accessibility-settings"}) {
            QFile file(folder.filePath(QLatin1String(name)));
            QVERIFY(file.open(QIODevice::WriteOnly));
            QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        }
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", folder.path().toUtf8());
        qputenv("XDG_CURRENT_DESKTOP", desktop);
        workspace_->openURL(QUrl(
            QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility")));
        qputenv("PATH", path);
        if (program.isEmpty())
            QCOMPARE(launches_, QList<Launch>());
        else
            QCOMPARE(launches_, QList<Launch>({{folder.filePath(program), arguments}}));
    }
    void theSettingsLinkOfADesktopWhoseProgramIsMissingDoesNothing() {
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", "/nonexistent");
        workspace_->openURL(QUrl(
            QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility")));
        qputenv("PATH", path);
        QCOMPARE(launches_, QList<Launch>());
    }
};

QTEST_GUILESS_MAIN(X11WorkspaceTest)
#include "tst_x11workspace.moc"
