#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QTest>

using namespace vellumline;
using namespace vellumline::test;
using namespace std::chrono_literals;

namespace {

const QString sentence = QStringLiteral("i has went to the shop yesterday and buyed three apple.");

QList<Style::Symbol*> symbols(const QWidget* window) {
    auto found = window->findChildren<Style::Symbol*>();
    std::ranges::sort(found, {},
                      [window](const Style::Symbol* each) { return each->mapTo(window, QPoint()).y(); });
    return found;
}

} // namespace

class OnboardingWindowTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theStepsStandInOrder() {
        const auto f = signedOutStage();
        f->fakes->accessibility.trusted = false;
        const QWidget* window = f->openWelcome();
        const QStringList expected{
            QStringLiteral("Correct the sentence where you wrote it"),
            QStringLiteral("Allow Accessibility"),
            QStringLiteral(
                "Vellumline copies your selection and pastes the correction. macOS asks you to allow "
                "that once."),
            QStringLiteral("Open System Settings"),
            QStringLiteral("Your shortcut is ⌃⌥R"),
            QStringLiteral("Change"),
            QStringLiteral("Open at login"),
            QStringLiteral("Sign in"),
            QStringLiteral("The first 30 rewrites are free. You sign in on the Vellumline site."),
            QStringLiteral("Sign in"),
            QStringLiteral("Try it"),
            QStringLiteral("Select the sentence below and press ⌃⌥R."),
            QStringLiteral("Done")};
        QCOMPARE(visibleTextStrings(window), expected);
        QCOMPARE(window->windowTitle(), QStringLiteral("Welcome to Vellumline"));
        QCOMPARE(window->findChild<QPlainTextEdit*>()->toPlainText(), sentence);
        QCOMPARE(window->width(), 460);
        const auto icons = symbols(window);
        QCOMPARE(icons.size(), 4);
        for (int i = 0; i < 4; ++i)
            QCOMPARE(icons.at(i)->name(), QStringLiteral("step-%1").arg(i + 1));
    }

    void grantedAccessIsSeenWithinASecond() {
        const auto f = signedOutStage();
        f->fakes->accessibility.trusted = false;
        const QWidget* window = f->openWelcome();
        f->fakes->accessibility.trusted = true;
        f->fakes->service.clock.advance(1s);
        QCOMPARE(symbols(window).at(0)->name(), QStringLiteral("check"));
        QCOMPARE(symbols(window).at(0)->tone(), Style::Tone::good);
        QVERIFY(!button(window, QStringLiteral("Open System Settings")));
    }

    void nothingWakesOnceTheWindowIsClosed() {
        const auto f = signedOutStage();
        f->openWelcome()->close();
        f->fakes->service.clock.advance(5s);
        QCOMPARE(f->fakes->service.clock.pendingSleeps(), 0);
    }

    void missingAccessLeadsToTheSettings() {
        const auto f = signedOutStage();
        f->fakes->accessibility.trusted = false;
        const QWidget* window = f->openWelcome();
        button(window, QStringLiteral("Open System Settings"))->click();
        QCOMPARE(f->fakes->rewriter.settingsOpened, 1);
        QVERIFY(f->fakes->accessibility.calls().contains(QStringLiteral("requestTrust")));
    }

    void signingInChecksTheStepAndHidesItsButton() {
        const auto f = signedOutStage();
        const QWidget* window = f->openWelcome();
        QAbstractButton* signIn = nullptr;
        for (QWidget* each : visibleTexts(window)) {
            if (textOf(each) == QStringLiteral("Sign in") && qobject_cast<QAbstractButton*>(each) != nullptr)
                signIn = qobject_cast<QAbstractButton*>(each);
        }
        QVERIFY(signIn != nullptr);
        signIn->click();
        QCOMPARE(f->fakes->workspace.openedURLs().size(), 1);
        f->fakes->service.transport.queue(
            200, R"({"access_token":"opaque","refresh_token":"r","user_id":"7","email":"ada@example.org"})");
        QCoro::waitFor(f->model().open(QStringLiteral("vellumline://auth?handoff=abcdefghijklmnop")));
        QVERIFY2(f->model().account().isSignedIn(), qPrintable(f->model().account().label()));
        QCOMPARE(symbols(window).at(2)->name(), QStringLiteral("check"));
        QVERIFY(!signIn->isVisible());
    }

    void theShortcutCanBeChangedHere() {
        const auto f = signedOutStage();
        f->fakes->hotkeyMonitor.registerBinding(HotkeyBinding::load(f->fakes->defaults));
        const QWidget* window = f->openWelcome();
        button(window, QStringLiteral("Change"))->click();
        QVERIFY(button(window, QStringLiteral("Press keys…")));
        f->fakes->keyMonitor.press({3, HotkeyModifiers::shift, QStringLiteral("f")});
        f->settle();
        QVERIFY(showing(window, QStringLiteral("Include Control, Option, or Command.")));
        f->fakes->keyMonitor.press(
            {40, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("k")});
        f->settle();
        QVERIFY(showing(window, QStringLiteral("Your shortcut is ⌃⌥K")));
        QVERIFY(showing(window, QStringLiteral("Select the sentence below and press ⌃⌥K.")));
        QVERIFY(button(window, QStringLiteral("Change")));
    }

    void anOldComplaintDoesNotGreetTheUser() {
        const auto f = signedOutStage();
        f->model().toggleRecording();
        f->fakes->keyMonitor.press({3, HotkeyModifiers::shift, QStringLiteral("f")});
        QTest::qWait(1);
        QVERIFY(f->model().hotkeyNote());
        f->openWelcome();
        QVERIFY(!f->model().hotkeyNote());
    }

    void theOutcomeOfThePracticeIsShown() {
        const auto f = signedInStage(ModelOnFakes::accountBody("free", 1, 30))();
        const QWidget* window = f->openWelcome();
        f->fakes->rewrite();
        f->fakes->rewriter.finish(RewriteOutcome::problem(RewriteProblem::Kind::noSelection));
        QVERIFY(showing(window, QStringLiteral("Select some text first, then press ⌃⌥R.")));
        QCOMPARE(symbols(window).at(3)->name(), QStringLiteral("step-4"));
        f->fakes->rewrite();
        f->fakes->rewriter.finish(RewriteOutcome::rewrote());
        QVERIFY(showing(window, QStringLiteral("Rewrote the selection.")));
        QCOMPARE(symbols(window).at(3)->name(), QStringLiteral("check"));
    }

    void finishing_data() {
        QTest::addColumn<bool>("byButton");
        QTest::newRow("with Done") << true;
        QTest::newRow("with the close button") << false;
    }

    void finishing() {
        QFETCH(const bool, byButton);
        const auto f = signedOutStage();
        QWidget* window = f->openWelcome();
        f->model().toggleRecording();
        QVERIFY(!f->fakes->defaults.boolean(OnboardingWindow::doneKey));
        if (byButton)
            button(window, QStringLiteral("Done"))->click();
        else
            window->close();
        QVERIFY(f->fakes->defaults.boolean(OnboardingWindow::doneKey));
        QVERIFY(!f->model().recordingHotkey());
        QVERIFY(f->onboarding.window() == nullptr);
    }

    void showingTwiceShowsOneWindow() {
        const auto f = signedOutStage();
        const QWidget* window = f->openWelcome();
        QCOMPARE(f->openWelcome(), window);
    }

    void thePracticeStartsAgainFromTheWrongSentence() {
        const auto f = signedOutStage();
        QWidget* window = f->openWelcome();
        window->findChild<QPlainTextEdit*>()->setPlainText(QStringLiteral("Something else."));
        window->close();
        QCOMPARE(f->openWelcome()->findChild<QPlainTextEdit*>()->toPlainText(), sentence);
    }

    void theWindowFollowsItsRows() {
        const auto f = signedOutStage();
        const QWidget* window = f->openWelcome();
        const int height = window->height();
        f->model().setStatus(MenuStatus::rewrote());
        QTRY_VERIFY(window->height() > height);
        f->model().setStatus(MenuStatus::ready());
        QTRY_COMPARE(window->height(), height);
    }

    void endingTheProgramWithTheWindowOpenLeavesNothing() {
        auto f = signedOutStage();
        f->openWelcome();
        f.reset();
        QVERIFY(QApplication::topLevelWidgets().isEmpty() ||
                std::ranges::none_of(QApplication::topLevelWidgets(),
                                     [](const QWidget* each) { return each->isVisible(); }));
    }
};

QTEST_MAIN(OnboardingWindowTest)
#include "tst_onboardingwindow.moc"
