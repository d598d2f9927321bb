#include "Vellumline/VellumlineApp.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QSocketNotifier>
#include <csignal>
#include <cstdint>
#include <cstdio>
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

} // namespace

int main(int argc, char** argv) {
    QCoreApplication::setApplicationName(QStringLiteral("vellumline"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELLUMLINE_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Corrects the grammar and spelling of the selected text in place."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption noLocalService(
        QStringLiteral("no-local-service"),
        QStringLiteral("Do not start the correction service on this machine when it is not running."));
    parser.addOption(noLocalService);
    const QCommandLineOption startedByBus(
        QStringLiteral("bus-activated"),
        QStringLiteral("The session bus started the program and delivers the request for it."));
    parser.addOption(startedByBus);
    parser.addPositionalArgument(QStringLiteral("link"),
                                 QStringLiteral("A vellumline:// link from the browser."),
                                 QStringLiteral("[link]"));
    {
        // --help and --version work without a display.
        const QCoreApplication commandLine(argc, argv);
        parser.process(commandLine);
    }
    // The clipboard, the keys and the shortcut are the X server's; under a Wayland session with Xwayland too.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    if (qgetenv("QT_QPA_PLATFORM") == "xcb" && !hasDisplay()) {
        std::fputs("vellumline: there is no X11 display here; Wayland alone is not supported yet\n", stderr);
        return vellumline::VellumlineApp::exitNoDisplay;
    }

    watchSignals();
    QApplication application(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Vellumline"));
    QApplication::setDesktopFileName(QStringLiteral("com.kelthorne.vellumline"));
    QApplication::setQuitOnLastWindowClosed(false);

    vellumline::VellumlineApp app(
        {parser.positionalArguments(), parser.isSet(startedByBus), !parser.isSet(noLocalService)});
    QSocketNotifier signalNotifier(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, [&app] {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto taken = read(signalDescriptor, &count, sizeof count);
        app.quit();
    });
    app.start();
    return QApplication::exec();
}
