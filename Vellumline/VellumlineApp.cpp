#include "Vellumline/VellumlineApp.h"

#include "Vellumline/API.h"
#include "Vellumline/AccountClient.h"
#include "Vellumline/AppDelegate.h"
#include "Vellumline/AppModel.h"
#include "Vellumline/AppStatus.h"
#include "Vellumline/AuthClient.h"
#include "Vellumline/AuthConfig.h"
#include "Vellumline/DesktopAdapters.h"
#include "Vellumline/HotkeyMonitor.h"
#include "Vellumline/OnboardingWindow.h"
#include "Vellumline/Platform/Linux/DBusApplication.h"
#include "Vellumline/Platform/Linux/DesktopStatusItem.h"
#include "Vellumline/Platform/Linux/GuardianProcess.h"
#include "Vellumline/Platform/Linux/LocalService.h"
#include "Vellumline/Platform/Linux/PortalAppearance.h"
#include "Vellumline/Platform/Linux/QtKeyMonitor.h"
#include "Vellumline/Platform/Linux/SecretServiceKeychain.h"
#include "Vellumline/Platform/Linux/SettingsDefaults.h"
#include "Vellumline/Platform/Linux/XdgAutostart.h"
#include "Vellumline/Platform/QtHTTPTransport.h"
#include "Vellumline/Platform/SystemClock.h"
#include "Vellumline/Platform/X11/VirtualKeyCodes.h"
#include "Vellumline/Platform/X11/X11MouseMonitor.h"
#include "Vellumline/Platform/X11/X11PanelColor.h"
#include "Vellumline/Platform/X11/X11PanelWindow.h"
#include "Vellumline/Platform/X11/X11Pasteboard.h"
#include "Vellumline/PromptPanel.h"
#include "Vellumline/RewriteClient.h"
#include "Vellumline/SelectionSwapper.h"
#include "Vellumline/SessionRefresher.h"
#include "Vellumline/StatusMenu.h"
#include "Vellumline/Style.h"
#include "Vellumline/TokenStore.h"
#include "Vellumline/Updates.h"

#include <QApplication>
#include <QPointer>
#include <QStandardPaths>
#include <QTimer>
#include <cstdio>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds longestFinish =
    5s; // a correction that runs, and the secret store's last write
constexpr std::chrono::milliseconds finishPoll = 20ms;
constexpr std::chrono::milliseconds longestForeignPress = 1s;

QString legacySessionFile() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/com.kelthorne.vellumline/session.json");
}

/// Whether the desktop hands its own colours to the toolkit; then they are used.
bool desktopHasPalette() {
    return !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORMTHEME") ||
           qEnvironmentVariable("XDG_CURRENT_DESKTOP")
               .split(QLatin1Char(':'))
               .contains(QStringLiteral("KDE"), Qt::CaseInsensitive);
}

void adoptAppearance(const PortalAppearance& appearance) {
    const bool dark = appearance.colorScheme() == PortalAppearance::ColorScheme::dark;
    QApplication::setPalette(
        Style::palette(dark ? Style::ColorScheme::dark : Style::ColorScheme::light,
                       appearance.wantsHighContrast() ? Style::Contrast::high : Style::Contrast::normal));
}

} // namespace

/// Every part of the running program, in the order of construction; destroyed in the reverse order.
struct VellumlineApp::Parts {
    explicit Parts(Options chosen) : options(std::move(chosen)) {}

    QCoro::Task<void> start(VellumlineApp* app);
    QCoro::Task<void> finish();
    QCoro::Task<void> rewriteOnCommand();
    void carryOut(Command command, VellumlineApp* app);
    bool build();
    AppDelegate::Steps steps(VellumlineApp* app);

    Options options;
    bool finishing = false;

    PortalAppearance appearance;
    DBusApplication instance;
    DesktopStatusItem statusItem{
        [this] { return connection ? X11PanelColor::read(*connection) : std::nullopt; }};
    SystemClock clock;
    SettingsDefaults defaults;
    AuthConfig config = AuthConfig::shared();
    LocalService localService{config.backendURL};

    GuardianProcess guardian{GuardianProcess::find()};
    std::unique_ptr<X11Connection> connection;
    std::unique_ptr<X11Pasteboard> pasteboard;
    std::unique_ptr<DesktopAdapters> desktop;
    X11MouseMonitor mouseMonitor;

    SecretServiceKeychain keychain;
    TokenStore store{keychain, legacySessionFile()};
    QtHTTPTransport transport;
    SessionRefresher refresher{transport, store, config};
    API api{transport, store, refresher, clock};
    AccountClient accountClient{api, config};
    AuthClient authClient{transport, config};
    RewriteClient rewriteClient{api, config};

    std::unique_ptr<SelectionSwapper> swapper;
    std::unique_ptr<HotkeyMonitor> hotkeyMonitor;
    QtKeyMonitor keyMonitor{VirtualKeyCodes::virtualKeyCode, [this](std::uint32_t scanCode) {
                                return desktop ? desktop->keyEvents.characters(scanCode) : QString();
                            }};
    XdgAutostart autostart{{QStringLiteral("com.kelthorne.Vellumline"),
                            QStringLiteral("Vellumline"),
                            {QCoreApplication::applicationFilePath()}}};
    PromptPanel prompts{X11PanelWindow::joinAllDesktops};

    std::unique_ptr<AppModel> model;
    std::unique_ptr<Updates> updates;
    std::unique_ptr<StatusMenu> statusMenu;
    std::unique_ptr<OnboardingWindow> onboarding;
    std::unique_ptr<AppDelegate> delegate;
};

VellumlineApp::VellumlineApp(Options options, QObject* parent)
    : QObject(parent), parts_(std::make_unique<Parts>(std::move(options))) {}

VellumlineApp::~VellumlineApp() = default;

void VellumlineApp::start() {
    QTimer::singleShot(0, this, [this] { parts_->start(this); });
}

void VellumlineApp::quit() {
    if (parts_->finishing)
        return;
    parts_->finishing = true;
    parts_->finish();
}

bool VellumlineApp::Parts::build() {
    connection = X11Connection::open();
    pasteboard = X11Pasteboard::open();
    if (!connection || !pasteboard)
        return false;
    desktop = std::make_unique<DesktopAdapters>(*connection);
    guardian.start();
    swapper = std::make_unique<SelectionSwapper>(store, desktop->accessibility, desktop->probe, *pasteboard,
                                                 guardian, desktop->keyEvents, rewriteClient,
                                                 desktop->workspace, defaults, clock);
    hotkeyMonitor = std::make_unique<HotkeyMonitor>(desktop->hotkeys);
    return true;
}

AppDelegate::Steps VellumlineApp::Parts::steps(VellumlineApp* app) {
    AppDelegate::Steps steps;
    steps.becomeAccessory = [this] {
        QApplication::setQuitOnLastWindowClosed(false);
        QApplication::setWindowIcon(Style::applicationIcon());
        if (!desktopHasPalette()) {
            adoptAppearance(appearance);
            QObject::connect(&appearance, &PortalAppearance::changed, &appearance,
                             [this] { adoptAppearance(appearance); });
            appearance.start();
        }
    };
    steps.receiveLinks = [this, app](const std::function<void(QString)>& receive) {
        QObject::connect(&instance, &DBusApplication::linkOpened, &instance, receive);
        QObject::connect(&instance, &DBusApplication::activated, &instance, [this] { statusMenu->show(); });
        QObject::connect(&instance, &DBusApplication::commandGiven, &instance,
                         [this, app](Command command) { carryOut(command, app); });
    };
    steps.makeModel = [this]() -> AppModel& {
        model = std::make_unique<AppModel>(AppModel::Dependencies{
            store, accountClient, authClient, *swapper, *hotkeyMonitor, keyMonitor, desktop->accessibility,
            autostart, desktop->workspace, prompts, defaults, clock, config});
        refresher.onRenewed = [model = QPointer<AppModel>(model.get())](const QString& displayName) {
            if (model)
                model->adoptRenewedName(displayName);
        };
        QObject::connect(&desktop->accessibility, &AtSpiAccessibility::trustChanged, model.get(),
                         &AppModel::refreshTrust);
        return *model;
    };
    steps.startUpdater = [this] {
        updates = std::make_unique<Updates>(UpdateFeed::shared(), QCoreApplication::applicationVersion(),
                                            *model, transport, desktop->workspace, clock);
        updates->start();
    };
    steps.startStatusMenu = [this, app] {
        MenuContent::Actions actions;
        actions.checkForUpdates = [this] { updates->checkForUpdates(); };
        actions.showWelcomeWindow = [this] {
            if (!onboarding)
                onboarding = std::make_unique<OnboardingWindow>(*model, defaults, clock);
            onboarding->show();
        };
        actions.quit = [app] { app->quit(); };
        actions.openLink = [this](const QUrl& link) { desktop->workspace.openURL(link); };
        statusMenu = std::make_unique<StatusMenu>(*model, std::move(actions),
                                                  StatusMenu::Dependencies{statusItem, mouseMonitor,
                                                                           keyMonitor, desktop->workspace,
                                                                           clock, X11PanelWindow::prepare});
        statusMenu->start();
    };
    steps.showWelcomeWindow = [this] {
        onboarding = std::make_unique<OnboardingWindow>(*model, defaults, clock);
        onboarding->show();
    };
    return steps;
}

QCoro::Task<void> VellumlineApp::Parts::start(VellumlineApp* app) {
    const QPointer<VellumlineApp> alive(app);
    const DBusApplication::Claim claim = co_await instance.claim();
    if (!alive)
        co_return;
    if (claim == DBusApplication::Claim::another) {
        // The request that this process was started for is delivered to the instance that has the name; it
        // may well be a link, so that the panel is not asked for here.
        if (options.startedByBus && options.links.isEmpty()) {
            QCoreApplication::exit(0);
            co_return;
        }
        const QStringList links = options.links;
        bool taken = false;
        if (options.command) {
            const Command command = *options.command;
            const DBusApplication::Answer answer = co_await instance.request(command);
            taken = answer == DBusApplication::Answer::given;
        } else {
            taken = co_await instance.handOver(links);
        }
        if (!taken)
            std::fputs("vellumline: the running instance does not answer\n", stderr);
        QCoreApplication::exit(taken ? exitStatus::done : exitStatus::failed);
        co_return;
    }
    if (!build()) {
        std::fputs(
            "vellumline: no X11 display with the XFIXES extension; Wayland alone is not supported yet\n",
            stderr);
        QCoreApplication::exit(exitStatus::unavailable);
        co_return;
    }
    // Without the X server there is neither a shortcut nor a selection: end as the rest of the session does.
    QObject::connect(connection.get(), &X11Connection::connectionLost, app,
                     [] { QCoreApplication::exit(1); });

    if (options.startLocalService)
        localService.ensureRunning();
    delegate = std::make_unique<AppDelegate>(steps(app), *hotkeyMonitor, defaults);
    delegate->applicationDidFinishLaunching();
    for (const QString& link : std::as_const(options.links))
        delegate->handleGetURLEvent(link);
    instance.status = [this] {
        return describe(*model, *hotkeyMonitor, QCoreApplication::applicationVersion());
    };
    if (options.command)
        carryOut(*options.command, app);
    instance.deliver();
}

void VellumlineApp::Parts::carryOut(Command command, VellumlineApp* app) {
    switch (command) {
    case Command::rewrite:
        rewriteOnCommand();
        break;
    case Command::openMenu:
        statusMenu->show();
        break;
    case Command::settings:
        statusMenu->show();
        statusMenu->content()->showPage(MenuContent::Page::settings);
        break;
    case Command::signIn:
        delegate->handleGetURLEvent(QStringLiteral("vellumline://sign-in"));
        break;
    case Command::signOut:
        model->signOut();
        break;
    case Command::quit:
        app->quit();
        break;
    case Command::status:
    case Command::doctor:
        break;
    }
}

QCoro::Task<void> VellumlineApp::Parts::rewriteOnCommand() {
    // Where the desktop bound the command to a key, its grab lasts until the user lets that key go. Keys
    // would go to it and not to the text, and a grab is what a password field is known by.
    const auto deadline = clock.monotonic() + longestForeignPress;
    while (desktop->secureInput.isSecureEventInputEnabled() && clock.monotonic() < deadline)
        co_await clock.sleepFor(finishPoll);
    model->rewrite();
}

QCoro::Task<void> VellumlineApp::Parts::finish() {
    // A correction that holds the user's clipboard gives it back first; one that waits for its answer pastes
    // nothing more.
    if (swapper)
        swapper->stop();
    const auto deadline = clock.monotonic() + longestFinish;
    while (((swapper && swapper->holdsClipboard()) || store.isWriting()) && clock.monotonic() < deadline)
        co_await clock.sleepFor(finishPoll);
    if (pasteboard)
        co_await pasteboard->handToClipboardManager();
    co_await localService.stop();
    QCoreApplication::exit(0);
}

} // namespace vellumline
