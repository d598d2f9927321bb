#include "Vellumline/AppStatus.h"
#include "Vellumline/DoctorApp.h"
#include "Vellumline/Platform/Linux/DBusApplication.h"
#include "Vellumline/VellumlineApp.h"
#include "VellumlineHardening/CoreDumps.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <malloc.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace {

int signalDescriptor = -1;

void handleSignal(int /*number*/) {
    const std::uint64_t one = 1;
    // The one thing that may be done here; the main loop does the rest.
    [[maybe_unused]] const auto written = write(signalDescriptor, &one, sizeof one);
}

/// SIGTERM, SIGINT and SIGHUP as events of the main loop. Handlers, not a blocked mask: the browsers and the
/// service that this program starts would inherit the mask and could not be ended.
void watchSignals() {
    signalDescriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    struct sigaction action = {};
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaction(number, &action, nullptr);
}

/// Qt ends the process with a message of its own where it finds no display; ours says what to do.
bool hasDisplay() {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const bool works = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return works;
}

using vellumline::Command;
using vellumline::DBusApplication;
using vellumline::Request;
namespace exitStatus = vellumline::exitStatus;

enum class Form { text, json };

int complain(const QString& line, int status) {
    std::fprintf(stderr, "vellumline: %s\n", line.toLocal8Bit().constData());
    return status;
}

QCoro::Task<void> ask(DBusApplication& instance, Command command, Form form, std::optional<int>& result) {
    DBusApplication::Status status;
    if (command == Command::status)
        status = co_await instance.askForStatus();
    else
        status.answer = co_await instance.request(command);
    switch (status.answer) {
    case DBusApplication::Answer::given:
        result = exitStatus::done;
        break;
    case DBusApplication::Answer::noAnswer:
        result = complain(QStringLiteral("the running program does not answer"), exitStatus::failed);
        break;
    case DBusApplication::Answer::nobody:
        if (!vellumline::startsProgram(command))
            result = complain(QStringLiteral("it is not running in this session"), exitStatus::unavailable);
        break;
    }
    if (result == exitStatus::done && command == Command::status) {
        const QByteArray text = form == Form::json
                                    ? QJsonDocument(QJsonObject::fromVariantMap(status.facts)).toJson()
                                    : vellumline::textOf(status.facts).toLocal8Bit();
        std::fputs(text.constData(), stdout);
    }
    if (result == exitStatus::done && command == Command::quit) {
        const bool ended = co_await instance.waitForEnd();
        if (!ended)
            result = complain(QStringLiteral("the running program does not end"), exitStatus::failed);
    }
    QCoreApplication::exit();
}

/// Hands a command to the running program; no display is needed for that. Nothing when none runs and this
/// process shall become it.
std::optional<int> handToRunningProgram(Command command, Form form) {
    std::optional<int> result;
    // A connection of its own: the application object of this function ends before that of the program.
    const QString name = QStringLiteral("command");
    {
        DBusApplication instance(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name));
        QMetaObject::invokeMethod(
            &instance, [&] { ask(instance, command, form, result); }, Qt::QueuedConnection);
        QCoreApplication::exec();
    }
    QDBusConnection::disconnectFromBus(name);
    return result;
}

} // namespace

int main(int argc, char** argv) {
    vellumline::refuseCoreDumps();
    QCoreApplication::setApplicationName(QStringLiteral("vellumline"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELLUMLINE_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Corrects the grammar and spelling of the selected text in place.\n\n"
                       "Commands, for the program that runs in this session:\n"
                       "  rewrite      correct the selected text, as the shortcut does\n"
                       "  open-menu    open the menu\n"
                       "  settings     open the settings\n"
                       "  sign-in      open the sign-in page in the browser\n"
                       "  sign-out     forget the session\n"
                       "  status       say who is signed in, the plan, the shortcut, the last status\n"
                       "  quit         end it, and wait until it has ended\n"
                       "  doctor       look at this desktop: what works here, what does not, what to do\n"
                       "The first four start the program when it does not run yet.\n\n"
                       "Exit status: 0 done, 1 no answer or a problem was found, 64 wrong arguments,\n"
                       "69 not running or no display."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("With status and doctor: answer in JSON."));
    parser.addOption(json);
    const QCommandLineOption noLocalService(
        QStringLiteral("no-local-service"),
        QStringLiteral("Do not start the correction service on this machine when it is not running."));
    parser.addOption(noLocalService);
    const QCommandLineOption startedByBus(
        QStringLiteral("bus-activated"),
        QStringLiteral("The session bus started the program and delivers the request for it."));
    parser.addOption(startedByBus);
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("A command, or a vellumline:// link from the browser."),
                                 QStringLiteral("[command]"));
    Request request;
    {
        // --help, --version and the commands work without a display.
        const QCoreApplication commandLine(argc, argv);
        if (!parser.parse(QCoreApplication::arguments()))
            return complain(parser.errorText(), exitStatus::usage);
        if (parser.isSet(help))
            parser.showHelp();
        if (parser.isSet(version))
            parser.showVersion();
        request = Request::of(parser.positionalArguments());
        if (request.wrong)
            return complain(*request.wrong, exitStatus::usage);
        if (parser.isSet(json) && request.command != Command::status && request.command != Command::doctor)
            return complain(QStringLiteral("--json belongs to status and doctor"), exitStatus::usage);
        if (request.command && request.command != Command::doctor) {
            const auto result =
                handToRunningProgram(*request.command, parser.isSet(json) ? Form::json : Form::text);
            if (result)
                return *result;
        }
    }
    // The clipboard, the keys and the shortcut are the X server's; under a Wayland session with Xwayland too.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    const bool display = qgetenv("QT_QPA_PLATFORM") != "xcb" || hasDisplay();
    if (request.command == Command::doctor) {
        // Without a display it has more to say than that.
        if (!display)
            qputenv("QT_QPA_PLATFORM", "offscreen");
        const QApplication application(argc, argv);
        QApplication::setApplicationDisplayName(QStringLiteral("Vellumline"));
        QApplication::setQuitOnLastWindowClosed(false);
        vellumline::DoctorApp doctor(parser.isSet(json) ? vellumline::DoctorApp::Form::json
                                                        : vellumline::DoctorApp::Form::text);
        doctor.start();
        return QApplication::exec();
    }
    if (!display) {
        std::fputs("vellumline: there is no X11 display here; Wayland alone is not supported yet\n", stderr);
        return exitStatus::unavailable;
    }

    // What a large clipboard needs is given back when the correction has ended. The threshold grows with what
    // is freed unless it is set, and 400 corrections beside clipboards of up to 20 MB left the heap 30 MB
    // larger.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);

    watchSignals();
    QApplication application(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Vellumline"));
    QApplication::setDesktopFileName(QStringLiteral("com.kelthorne.Vellumline"));
    QApplication::setQuitOnLastWindowClosed(false);

    vellumline::VellumlineApp app(
        {request.links, request.command, parser.isSet(startedByBus), !parser.isSet(noLocalService)});
    QSocketNotifier signalNotifier(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, [&app] {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto taken = read(signalDescriptor, &count, sizeof count);
        app.quit();
    });
    app.start();
    return QApplication::exec();
}
