#include "Vellumline/VellumlineApp.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QSocketNotifier>
#include <csignal>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

/// SIGTERM and SIGINT as events of the main loop; -1 when the system does not offer that.
int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    if (sigprocmask(SIG_BLOCK, &signals, nullptr) != 0)
        return -1;
    return signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

} // namespace

int main(int argc, char** argv) {
    // Tokens and selected text pass through this process: no core dump, no other process of the user may read
    // them.
    prctl(PR_SET_DUMPABLE, 0);
    const int signalDescriptor = openSignals();
    // The clipboard, the keys and the shortcut are the X server's; under a Wayland session with Xwayland too.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");

    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vellumline"));
    QApplication::setApplicationDisplayName(QStringLiteral("Vellumline"));
    QApplication::setApplicationVersion(QStringLiteral(VELLUMLINE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.kelthorne.vellumline"));
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Corrects the grammar and spelling of the selected text in place."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption noLocalService(
        QStringLiteral("no-local-service"),
        QStringLiteral("Do not start the correction service on this machine when it is not running."));
    parser.addOption(noLocalService);
    parser.addPositionalArgument(QStringLiteral("link"),
                                 QStringLiteral("A vellumline:// link from the browser."),
                                 QStringLiteral("[link]"));
    parser.process(application);

    vellumline::VellumlineApp app({parser.positionalArguments(), !parser.isSet(noLocalService)});
    if (signalDescriptor >= 0) {
        auto* notifier = new QSocketNotifier(signalDescriptor, QSocketNotifier::Read, &app);
        QObject::connect(notifier, &QSocketNotifier::activated, &app, [&app, signalDescriptor] {
            signalfd_siginfo information{};
            while (read(signalDescriptor, &information, sizeof information) > 0)
                app.quit();
        });
    }
    app.start();
    return QApplication::exec();
}
