#include "Vellumline/AppDelegate.h"
#include "Vellumline/OnboardingWindow.h"
#include "fakes/ModelOnFakes.h"

#include <QTest>

using namespace vellumline;

namespace {

/// The delegate with its steps written down in order.
struct StartUp {
    explicit StartUp(const std::optional<AuthSession>& stored = std::nullopt) : fakes(stored) {}

    AppDelegate::Steps steps() {
        AppDelegate::Steps made;
        made.becomeAccessory = [this] { log.append(QStringLiteral("accessory")); };
        made.receiveLinks = [this](const std::function<void(QString)>& receive) {
            log.append(QStringLiteral("links"));
            link = receive;
        };
        made.makeModel = [this]() -> AppModel& {
            log.append(QStringLiteral("model"));
            return fakes.model();
        };
        made.startUpdater = [this] { log.append(QStringLiteral("updater")); };
        made.startStatusMenu = [this] {
            log.append(fakes.hotkeys.registrationCount() > 0 ? QStringLiteral("menu, shortcut registered")
                                                             : QStringLiteral("menu, no shortcut"));
        };
        made.showWelcomeWindow = [this] { log.append(QStringLiteral("welcome")); };
        return made;
    }

    ModelOnFakes fakes;
    QStringList log;
    std::function<void(QString)> link;
    AppDelegate delegate{steps(), fakes.hotkeyMonitor, fakes.defaults};
};

} // namespace

class StartupTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void thePartsStartInTheirOrderAndTheFirstLaunchWelcomes() {
        StartUp f;
        f.delegate.applicationDidFinishLaunching();
        const QStringList expected = {QStringLiteral("accessory"),
                                      QStringLiteral("links"),
                                      QStringLiteral("model"),
                                      QStringLiteral("updater"),
                                      QStringLiteral("menu, shortcut registered"),
                                      QStringLiteral("welcome")};
        QCOMPARE(f.log, expected);
    }

    void aLaterLaunchDoesNotWelcome() {
        StartUp f;
        f.fakes.defaults.set(OnboardingWindow::doneKey, true);
        f.delegate.applicationDidFinishLaunching();
        QVERIFY(!f.log.contains(QStringLiteral("welcome")));
        QCOMPARE(OnboardingWindow::doneKey, QStringLiteral("vellumline.onboardingDone"));
    }

    void theSavedShortcutStartsACorrection() {
        StartUp f(sessionWith(QStringLiteral("opaque")));
        HotkeyBinding{96, HotkeyModifiers::control, QStringLiteral("F5")}.save(f.fakes.defaults);
        f.delegate.applicationDidFinishLaunching();
        QVERIFY(f.fakes.hotkeys.press(96, 0x1000));
        ModelOnFakes::waitUntil([&] { return f.fakes.rewriter.runs() == 1; });
        f.fakes.rewriter.finish(RewriteOutcome::rewrote());
    }

    void aShortcutThatAnotherProgramHoldsIsSaidInTheStatusLine() {
        StartUp f;
        f.fakes.hotkeys.takeElsewhere(15, 0x1800);
        f.delegate.applicationDidFinishLaunching();
        QCOMPARE(f.fakes.model().statusText(),
                 std::optional(QStringLiteral("Could not register ⌃⌥R. Pick another shortcut in Settings.")));
        QVERIFY(f.log.contains(QStringLiteral("menu, no shortcut")));
    }

    void aHotKeyServiceThatIsNotThereIsSaidToo() {
        StartUp f;
        f.fakes.hotkeys.refusesHandler = true;
        f.delegate.applicationDidFinishLaunching();
        QVERIFY(f.fakes.model().statusText()->startsWith(QStringLiteral("Could not register ⌃⌥R.")));
    }

    void aStoredSessionIsAdopted() {
        StartUp f(sessionWith(QStringLiteral("opaque")));
        f.delegate.applicationDidFinishLaunching();
        ModelOnFakes::waitUntil([&] { return f.fakes.model().account().isSignedIn(); });
    }

    void aLinkReachesTheModelAsItArrived() {
        StartUp f;
        f.delegate.applicationDidFinishLaunching();
        f.link(QStringLiteral("Vellumline://sign-in")); // another scheme: capitals count
        QTest::qWait(1);
        QVERIFY(f.fakes.workspace.openedURLs().isEmpty());
        f.link(QStringLiteral("vellumline://sign-in"));
        ModelOnFakes::waitUntil([&] { return f.fakes.workspace.openedURLs().size() == 1; });
        f.link(QString());
        f.link(QStringLiteral("%%%"));
        QTest::qWait(1);
        QCOMPARE(f.fakes.model().account(), AccountState::signingIn());
    }

    void aLinkBeforeTheModelExistsIsIgnored() {
        StartUp f;
        f.delegate.handleGetURLEvent(QStringLiteral("vellumline://sign-in"));
        QVERIFY(f.fakes.workspace.openedURLs().isEmpty());
    }
};

QTEST_MAIN(StartupTest)
#include "tst_startup.moc"
