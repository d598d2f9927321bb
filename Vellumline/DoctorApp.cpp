#include "Vellumline/DoctorApp.h"

#include "Vellumline/API.h"
#include "Vellumline/AuthConfig.h"
#include "Vellumline/Command.h"
#include "Vellumline/DesktopAdapters.h"
#include "Vellumline/Doctor.h"
#include "Vellumline/DoctorWindow.h"
#include "Vellumline/HotkeyMonitor.h"
#include "Vellumline/MenuStatus.h"
#include "Vellumline/Platform/Linux/DBusApplication.h"
#include "Vellumline/Platform/Linux/GuardianProcess.h"
#include "Vellumline/Platform/Linux/LinuxDesktopSurvey.h"
#include "Vellumline/Platform/Linux/LocalService.h"
#include "Vellumline/Platform/Linux/SecretServiceKeychain.h"
#include "Vellumline/Platform/Linux/SettingsDefaults.h"
#include "Vellumline/Platform/QtHTTPTransport.h"
#include "Vellumline/Platform/SystemClock.h"
#include "Vellumline/Platform/X11/X11Pasteboard.h"
#include "Vellumline/RewriteClient.h"
#include "Vellumline/SelectionSwapper.h"
#include "Vellumline/SessionRefresher.h"
#include "Vellumline/TokenStore.h"

#include <QCoreApplication>
#include <QTimer>
#include <cstdio>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds poll = 100ms;
constexpr std::chrono::milliseconds longestCorrection = 20s;
constexpr std::chrono::milliseconds longestBeginning = 2s; ///< some ends come before a look at "busy"
constexpr std::chrono::milliseconds longestWrite = 3s;

QString textIn(const QVariantMap& facts, const char* key) {
    return facts.value(QString::fromLatin1(key)).toString();
}

} // namespace

/// The same parts as the program's, without its model and windows; destroyed in the reverse order.
struct DoctorApp::Parts {
    explicit Parts(Form chosen) : form(chosen) {}

    QCoro::Task<void> run();
    QCoro::Task<void> lookAtTheScreen();
    QCoro::Task<void> lookAtTheService();
    QCoro::Task<void> correct();
    QCoro::Task<void> correctByTheProgram();
    QCoro::Task<void> correctHere();
    void add(const Finding& finding);
    void skip(const char* check, const QString& title);

    Form form;
    DoctorReport report;
    SystemClock clock;
    SettingsDefaults defaults;
    AuthConfig config = AuthConfig::shared();
    DBusApplication instance;
    DBusApplication::Status program;
    LocalService localService{config.backendURL};
    GuardianProcess guardian{GuardianProcess::find()};

    std::unique_ptr<X11Connection> connection = X11Connection::open();
    LinuxDesktopSurvey survey{connection.get()};
    std::unique_ptr<X11Pasteboard> pasteboard;
    std::unique_ptr<DesktopAdapters> desktop;

    SecretServiceKeychain keychain;
    TokenStore store{keychain, {}};
    QtHTTPTransport transport;
    SessionRefresher refresher{transport, store, config};
    API api{transport, store, refresher, clock};
    RewriteClient rewriteClient{api, config};
    DoctorWindow window;
};

DoctorApp::DoctorApp(Form form, QObject* parent) : QObject(parent), parts_(std::make_unique<Parts>(form)) {}

DoctorApp::~DoctorApp() = default;

void DoctorApp::start() {
    QTimer::singleShot(0, this, [this] { parts_->run(); });
}

void DoctorApp::Parts::add(const Finding& finding) {
    report.add(finding);
    if (form == Form::text) {
        std::fputs(DoctorReport::text(finding).toLocal8Bit().constData(), stdout);
        std::fflush(stdout);
    }
}

void DoctorApp::Parts::skip(const char* check, const QString& title) {
    add({QString::fromLatin1(check),
         title,
         Finding::Verdict::skipped,
         {},
         QStringLiteral("there is no display"),
         {}});
}

QCoro::Task<void> DoctorApp::Parts::run() {
    add(examine::display(survey.display()));
    program = co_await instance.askForStatus();
    const bool runs = program.answer == DBusApplication::Answer::given;
    add(examine::program(runs ? std::optional(textIn(program.facts, "version")) : std::nullopt));
    if (connection)
        pasteboard = X11Pasteboard::open();
    if (pasteboard) {
        co_await lookAtTheScreen();
    } else {
        skip("shortcut", QStringLiteral("Shortcut"));
        skip("accessibility", QStringLiteral("Accessibility bus"));
        skip("focus", QStringLiteral("Focused application"));
        skip("clipboard", QStringLiteral("Clipboard"));
    }
    const Finding keyring = co_await examine::keyring(keychain);
    add(keyring);
    const TrayFacts tray = co_await survey.tray();
    add(examine::tray(tray));
    co_await lookAtTheService();
    const LinkFacts links = co_await survey.links();
    add(examine::links(links));
    if (pasteboard) {
        guardian.start();
        const Finding keys = co_await examine::keys(window, *pasteboard, guardian, desktop->keyEvents,
                                                    desktop->secureInput, clock);
        add(keys);
        if (keys.verdict == Finding::Verdict::good)
            co_await correct();
        else
            add(examine::correctionSkipped(QStringLiteral("key strokes do not arrive"), {}));
        window.close();
        // What was on the clipboard is offered by this process now, which is about to end.
        co_await pasteboard->handToClipboardManager();
    } else {
        skip("keys", QStringLiteral("Copy and paste by key strokes"));
        skip("correction", QStringLiteral("A real correction"));
    }
    const auto deadline = clock.monotonic() + longestWrite;
    while (store.isWriting() && clock.monotonic() < deadline)
        co_await clock.sleepFor(poll);
    co_await localService.stop();
    std::fputs(form == Form::json ? report.json(QCoreApplication::applicationVersion()).constData()
                                  : report.summary().toLocal8Bit().constData(),
               stdout);
    QCoreApplication::exit(report.isHealthy() ? exitStatus::done : exitStatus::failed);
}

QCoro::Task<void> DoctorApp::Parts::lookAtTheScreen() {
    desktop = std::make_unique<DesktopAdapters>(*connection);
    if (program.answer == DBusApplication::Answer::given) {
        add(examine::shortcut(textIn(program.facts, "shortcut"),
                              program.facts.value(QStringLiteral("shortcutRegistered")).toBool()));
    } else {
        const HotkeyBinding binding = HotkeyBinding::load(defaults);
        HotkeyMonitor monitor(desktop->hotkeys);
        add(examine::shortcut(binding.label(), monitor.registerBinding(binding)));
    }
    const bool reached = co_await desktop->accessibility.ready();
    add(examine::accessibility(reached));
    const QString front = desktop->workspace.activeWindowClass().name;
    const ProbeAnswer answer = co_await desktop->probe.focused();
    add(examine::focus(front, answer));
    const Finding clipboard = co_await examine::clipboard(*pasteboard, clock);
    add(clipboard);
}

QCoro::Task<void> DoctorApp::Parts::lookAtTheService() {
    // As the program does when it starts; ended again with this process.
    if (program.answer != DBusApplication::Answer::given)
        co_await localService.ensureRunning();
    const Finding service = co_await examine::service(transport, config, clock);
    add(service);
}

QCoro::Task<void> DoctorApp::Parts::correct() {
    window.setText(examine::practiceSentence);
    window.selectAll();
    if (program.answer == DBusApplication::Answer::given)
        co_await correctByTheProgram();
    else
        co_await correctHere();
}

QCoro::Task<void> DoctorApp::Parts::correctByTheProgram() {
    if (textIn(program.facts, "accountState") != QStringLiteral("signed-in")) {
        add(examine::correctionSkipped(QStringLiteral("nobody is signed in"),
                                       QStringLiteral("Sign in: \"vellumline sign-in\".")));
        co_return;
    }
    const DBusApplication::Answer taken = co_await instance.request(Command::rewrite);
    QString status;
    if (taken == DBusApplication::Answer::given) {
        const auto begin = clock.monotonic();
        // It is busy soon after it was asked, and done when it is not any more.
        bool wasBusy = false;
        bool busy = false;
        do {
            co_await clock.sleepFor(poll);
            const DBusApplication::Status now = co_await instance.askForStatus();
            busy = now.facts.value(QStringLiteral("busy")).toBool();
            wasBusy = wasBusy || busy || window.text() != examine::practiceSentence;
            status = textIn(now.facts, "statusText");
        } while (clock.monotonic() - begin < (busy ? longestCorrection : (wasBusy ? 0ms : longestBeginning)));
    } else {
        status = QStringLiteral("the running program does not answer");
    }
    add(examine::correction(window.text(), status));
}

QCoro::Task<void> DoctorApp::Parts::correctHere() {
    SelectionSwapper swapper(store, desktop->accessibility, desktop->probe, *pasteboard, guardian,
                             desktop->keyEvents, rewriteClient, desktop->workspace, defaults, clock);
    const RewriteOutcome outcome = co_await swapper.rewrite();
    switch (outcome.kind) {
    case RewriteOutcome::Kind::rewrote:
        add(examine::correction(window.text(), {}));
        break;
    case RewriteOutcome::Kind::problem:
        add(examine::correction({}, MenuStatus::problem(outcome.why)
                                        .statusText(HotkeyBinding::load(defaults).label())
                                        .value_or(QString())));
        break;
    case RewriteOutcome::Kind::freeLimit:
        add(examine::correctionSkipped(QStringLiteral("the account has no rewrites left"),
                                       QStringLiteral("Choose a plan on the account page.")));
        break;
    case RewriteOutcome::Kind::signedOut:
        add(examine::correctionSkipped(QStringLiteral("nobody is signed in"),
                                       QStringLiteral("Sign in: \"vellumline sign-in\".")));
        break;
    }
}

} // namespace vellumline
