#include "fakes/ModelOnFakes.h"

#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

using namespace vellumline;

namespace {

using Problem = RewriteProblem::Kind;

const QByteArray freeAccount = ModelOnFakes::accountBody("free", 3, 30);
const QString notStartedHere =
    QStringLiteral("That sign-in link was not started from this Mac. Sign in again.");
const QString handoffLink = QStringLiteral("vellumline://auth?handoff=abcdefghijklmnop");
const QByteArray handoffReply =
    R"({"access_token":"opaque-2","refresh_token":"r","user_id":"7","email":"grace@example.org"})";

KeyPress press(std::uint16_t keyCode, HotkeyModifiers modifiers, const char* characters = "") {
    return {keyCode, modifiers, QString::fromUtf8(characters)};
}

} // namespace

class AppModelTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aNewModelIsSignedOutAndReady();
    void aSecondPressBeepsAndStartsNothing();
    void aSecondPressWhileTheSessionIsStillReadBeepsAndStartsNothing();
    void withoutASessionTheSignInPromptOpensWithoutABeep();
    void twoPressesWithoutASessionShowOnePrompt();
    void aPressDuringABrowserSignInKeepsItCompletable();
    void aClosedAccountBeepsAndIsNotRewritten();
    void aFreeAccountWithNothingLeftIsOfferedAPlanWithoutABeep();
    void aFreeAccountWithOneLeftIsRewritten();
    void aPaidAccountAboveTheFreeAllowanceIsRewritten();
    void everyOutcomeHasItsStatusBeepReloadAndPrompt_data();
    void everyOutcomeHasItsStatusBeepReloadAndPrompt();
    void busyIsClearedBeforeAPromptOpens();
    void aFreeLimitAnswerOffersTheLinksItCameWith();
    void aReloadThatIsSignedOutSignsOutWhileARewriteStillEnds();
    void aFailedReloadKeepsWhatIsHeld();
    void aCorrectionReloadsTheAccount();
    void aCorrectionThatFindsTheSessionGoneSignsOutAndAsks();
    void aPressAfterTheSessionWentClearsTheAccount();
    void theNumberInTheQuotaPromptIsTheAccounts();
    void restoringAdoptsTheStoredSession();
    void restoringFillsTheAddressFromTheTokenAndSavesIt();
    void restoringWithoutASessionDoesNothing();
    void aSessionBehindALockedKeyringIsAdoptedOnceItIsUnlocked();
    void anAccountThatSignedOutIsNotAdoptedAgain();
    void signingOutForgetsEverythingWithoutARequest();
    void theHintFollowsTheAccount();
    void anEqualValueIsAssignedSilently();
    void trustAndLoginStateAreReadAgain();
    void loginRefusalShowsItsSentenceAndTheRealState();
    void loginApprovalStillMissingShowsOff();

    void signInOpensTheLoginPageWithTheChallenge();
    void aHandoffLinkInTimeIsRedeemed();
    void aHandoffLinkTooLateIsRefused();
    void aClockThatWentBackCountsAsInTime();
    void aHandoffLinkWithoutASignInIsRefused();
    void aHandoffLinkWithoutASignInLeavesASignedInAccountAlone();
    void aHandoffLinkThatStartsTheProgramLeavesTheStoredAccountAlone();
    void ofTwoHandoffLinksTheFirstIsRedeemed();
    void onlyTheLastSignInCanComplete();
    void aRedemptionThatFailsSaysSo_data();
    void aRedemptionThatFailsSaysSo();
    void aForeignLinkIsIgnored();
    void aStartLinkSignedOutOpensTheLoginPage();
    void aStartLinkSignedInOffersToSwitch();
    void aRenewedNameIsShownOnlyWhenSignedIn();

    void recordingTakesTheNextKey();
    void escapeAloneStopsRecording();
    void escapeAloneKeepsTheNote();
    void escapeWithAModifierIsChecked();
    void aKeyWithoutAModifierKeepsRecording();
    void aReservedKeyKeepsRecording();
    void aKeyThatAnotherProgramHoldsRestoresTheOldOne();
    void whenBothAreRefusedTheNoteNamesThePreviousOne();
    void theButtonStopsRecordingWithNothingChanged();
    void aKeyQueuedBeforeRecordingStoppedIsIgnored();
    void theModelMayGoAwayInTheMiddleOfAnything();
};

void AppModelTest::aNewModelIsSignedOutAndReady() {
    ModelOnFakes f;
    QCOMPARE(f.model().account(), AccountState::signedOut());
    QCOMPARE(f.model().status(), MenuStatus::ready());
    QVERIFY(!f.model().statusText());
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃⌥R"));
    QVERIFY(f.model().trusted());
    QVERIFY(!f.model().busy());
}

void AppModelTest::aSecondPressBeepsAndStartsNothing() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->rewrite();
    QVERIFY(f->model().busy());
    QCOMPARE(f->workspace.beeps(), 0);
    f->rewrite();
    QCOMPARE(f->workspace.beeps(), 1);
    QCOMPARE(f->rewriter.runs(), 1);
    f->rewriter.finish(RewriteOutcome::rewrote());
    QVERIFY(!f->model().busy());
    f->rewrite();
    QCOMPARE(f->rewriter.runs(), 2);
}

void AppModelTest::aSecondPressWhileTheSessionIsStillReadBeepsAndStartsNothing() {
    ModelOnFakes f(sessionWith(QStringLiteral("opaque")));
    f.service.keychain.hold();
    f.model().rewrite();
    f.model().rewrite();
    QCOMPARE(f.workspace.beeps(), 1);
    QVERIFY(!f.model().busy());
    f.service.keychain.release();
    ModelOnFakes::waitUntil([&] { return f.model().busy(); });
    QCOMPARE(f.rewriter.runs(), 1);
    f.rewriter.finish(RewriteOutcome::rewrote());
}

void AppModelTest::withoutASessionTheSignInPromptOpensWithoutABeep() {
    ModelOnFakes f;
    f.model().setStatus(MenuStatus::rewrote());
    f.rewrite();
    QVERIFY(f.prompts.shown);
    QCOMPARE(f.prompts.title, QStringLiteral("Sign in to rewrite"));
    QCOMPARE(f.prompts.detail,
             QStringLiteral("Sign in or create an account on the Vellumline site. The first 30 "
                            "rewrites are free."));
    QCOMPARE(f.prompts.actionTitles(), QStringList{QStringLiteral("Sign in")});
    QCOMPARE(f.workspace.beeps(), 0);
    QCOMPARE(f.model().status(), MenuStatus::rewrote());
    QCOMPARE(f.rewriter.runs(), 0);
    QVERIFY(f.prompts.press(QStringLiteral("Sign in")));
    QCOMPARE(f.model().account(), AccountState::signingIn());
    QCOMPARE(f.workspace.openedURLs().size(), 1);
}

void AppModelTest::twoPressesWithoutASessionShowOnePrompt() {
    ModelOnFakes f;
    f.rewrite();
    f.rewrite();
    const QStringList expected = {QStringLiteral("show(Sign in to rewrite)"), QStringLiteral("bringToFront")};
    QCOMPARE(f.prompts.calls(), expected);
}

void AppModelTest::aPressDuringABrowserSignInKeepsItCompletable() {
    ModelOnFakes f;
    f.model().startSignIn();
    f.rewrite();
    QCOMPARE(f.model().account(), AccountState::signedOut());
    QVERIFY(f.prompts.shown);
    QVERIFY(f.model().hasPendingSignIn());
    f.service.transport.queue(200, handoffReply);
    QCoro::waitFor(f.model().open(handoffLink));
    QCOMPARE(f.model().account(), AccountState::signedIn(QStringLiteral("grace@example.org")));
}

void AppModelTest::aClosedAccountBeepsAndIsNotRewritten() {
    const auto f = ModelOnFakes::signedIn(ModelOnFakes::accountBody("paid", 1, 30, ",\"closed\":true"));
    f->rewrite();
    QCOMPARE(f->model().status(), MenuStatus::problem(Problem::accountClosed));
    QCOMPARE(f->workspace.beeps(), 1);
    QCOMPARE(f->prompts.title, QStringLiteral("This account is closed"));
    QCOMPARE(f->prompts.detail,
             QStringLiteral("Reopen it on the account page to rewrite. You stay signed in."));
    QCOMPARE(f->rewriter.runs(), 0);
    QVERIFY(f->prompts.press(QStringLiteral("Account")));
    QCOMPARE(f->workspace.openedURLs().last(), QUrl(QStringLiteral("https://www.example.org/account/")));
}

void AppModelTest::aFreeAccountWithNothingLeftIsOfferedAPlanWithoutABeep() {
    const auto f = ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 30, 30));
    f->rewrite();
    QCOMPARE(f->model().status(), MenuStatus::problem(Problem::freeLimit));
    QCOMPARE(f->workspace.beeps(), 0);
    QCOMPARE(f->rewriter.runs(), 0);
    QCOMPARE(f->prompts.title, QStringLiteral("You've used your 30 free rewrites"));
    QCOMPARE(
        f->prompts.detail,
        QStringLiteral("Pick a plan to keep correcting text where you write it. You can cancel any time."));
    const QStringList actions = {QStringLiteral("Yearly"), QStringLiteral("Monthly")};
    QCOMPARE(f->prompts.actionTitles(), actions);
    QVERIFY(f->prompts.press(QStringLiteral("Yearly")));
    QCOMPARE(f->workspace.openedURLs().last(),
             QUrl(QStringLiteral("https://www.example.org/account/?plan=yearly")));
    f->rewrite();
    QVERIFY(f->prompts.press(QStringLiteral("Monthly")));
    QCOMPARE(f->workspace.openedURLs().last(),
             QUrl(QStringLiteral("https://www.example.org/account/?plan=monthly")));
}

void AppModelTest::aFreeAccountWithOneLeftIsRewritten() {
    const auto f = ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 29, 30));
    f->rewrite();
    QCOMPARE(f->rewriter.runs(), 1);
    f->rewriter.finish(RewriteOutcome::rewrote());
}

void AppModelTest::aPaidAccountAboveTheFreeAllowanceIsRewritten() {
    const auto f = ModelOnFakes::signedIn(ModelOnFakes::accountBody("monthly", 500, 30));
    f->rewrite();
    QCOMPARE(f->rewriter.runs(), 1);
    f->rewriter.finish(RewriteOutcome::rewrote());
}

void AppModelTest::everyOutcomeHasItsStatusBeepReloadAndPrompt_data() {
    QTest::addColumn<int>("problem");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("reloads");
    QTest::addColumn<QString>("prompt");
    const auto row = [](const char* name, Problem problem, const char* text, bool reloads,
                        const char* prompt = "") {
        QTest::newRow(name) << static_cast<int>(problem) << QString::fromUtf8(text) << reloads
                            << QString::fromUtf8(prompt);
    };
    row("too long", Problem::tooLong, "That selection is too long. Select up to 4000 characters.", false);
    row("nothing selected", Problem::noSelection, "Select some text first, then press ⌃⌥R.", false);
    row("read-only", Problem::readOnly, "That text can't be edited here, so nothing was changed.", false);
    row("a password", Problem::secureField, "Vellumline does not read password fields.", false);
    row("no access", Problem::accessibilityNeeded,
        "Allow Accessibility for Vellumline, then press ⌃⌥R again.", false);
    row("offline reloads", Problem::offline, "You're offline. Connect to the internet and try again.", true);
    row("timed out", Problem::timedOut, "The correction took too long. Try again.", false);
    row("unavailable reloads", Problem::modelUnavailable,
        "Corrections are unavailable right now. Try again in a minute.", true);
    row("too many", Problem::rateLimited, "Too many rewrites in a minute. Wait a moment and try again.",
        false);
    row("the month's limit reloads", Problem::monthlyLimit,
        "You've reached this month's fair-use limit. It resets on the 1st.", true);
    row("closed reloads and prompts", Problem::accountClosed,
        "This account is closed. Reopen it on the account page to rewrite.", true, "This account is closed");
    row("failed", Problem::failed, "The rewrite failed. Try again.", false);
}

void AppModelTest::everyOutcomeHasItsStatusBeepReloadAndPrompt() {
    QFETCH(const int, problem);
    QFETCH(const QString, text);
    QFETCH(const bool, reloads);
    QFETCH(const QString, prompt);
    const auto f = ModelOnFakes::signedIn(freeAccount);
    const qsizetype before = f->accountRequests();
    f->rewrite();
    const auto kind = static_cast<Problem>(problem);
    f->rewriter.finish(RewriteOutcome::problem(kind == Problem::tooLong ? RewriteProblem::tooLong(4000)
                                                                        : RewriteProblem::of(kind)));
    QTest::qWait(1);
    QCOMPARE(f->model().statusText(), std::optional(text));
    QCOMPARE(f->workspace.beeps(), 1);
    QCOMPARE(f->accountRequests() - before, reloads ? 1 : 0);
    QCOMPARE(f->prompts.title, prompt);
    QVERIFY(!f->model().busy());
}

void AppModelTest::busyIsClearedBeforeAPromptOpens() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->rewrite();
    QList<bool> busyAtStatusChange;
    connect(&f->model(), &AppModel::statusChanged, &f->model(),
            [&] { busyAtStatusChange.append(f->model().busy()); });
    f->rewriter.finish(RewriteOutcome::problem(Problem::accountClosed));
    QCOMPARE(busyAtStatusChange, QList<bool>{false});
}

void AppModelTest::aFreeLimitAnswerOffersTheLinksItCameWith() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    const qsizetype before = f->accountRequests();
    f->rewrite();
    f->rewriter.finish(
        RewriteOutcome::freeLimit(QUrl(QStringLiteral("https://pay.example.org/m")), std::nullopt));
    QTest::qWait(1);
    QCOMPARE(f->model().status(), MenuStatus::problem(Problem::freeLimit));
    QCOMPARE(f->workspace.beeps(), 0);
    QCOMPARE(f->accountRequests() - before, 1);
    QVERIFY(f->prompts.press(QStringLiteral("Monthly")));
    QCOMPARE(f->workspace.openedURLs().last(), QUrl(QStringLiteral("https://pay.example.org/m")));
    f->rewrite();
    f->rewriter.finish(
        RewriteOutcome::freeLimit(QUrl(QStringLiteral("https://pay.example.org/m")), std::nullopt));
    QVERIFY(f->prompts.press(QStringLiteral("Yearly")));
    QCOMPARE(f->workspace.openedURLs().last(),
             QUrl(QStringLiteral("https://www.example.org/account/?plan=yearly")));
}

void AppModelTest::aReloadThatIsSignedOutSignsOutWhileARewriteStillEnds() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->rewrite();
    f->service.transport.queue(401);
    f->service.transport.queue(401); // the exchange is refused too
    f->model().refreshAccount();
    ModelOnFakes::waitUntil([&] { return !f->model().account().isSignedIn(); });
    QVERIFY(!f->model().accountInfo());
    QVERIFY(!f->prompts.shown);
    QVERIFY(f->model().busy());
    f->rewriter.finish(RewriteOutcome::rewrote());
    QCOMPARE(f->model().statusText(), std::optional(QStringLiteral("Rewrote the selection.")));
}

void AppModelTest::aFailedReloadKeepsWhatIsHeld() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    const auto held = f->model().accountInfo();
    f->service.transport.queue(500);
    f->model().refreshAccount();
    ModelOnFakes::waitUntil([&] { return f->accountRequests() == 2 && f->service.transport.pending() == 0; });
    QTest::qWait(1);
    QVERIFY(f->model().accountInfo() == held);
    QVERIFY(f->model().account().isSignedIn());
}

void AppModelTest::aCorrectionReloadsTheAccount() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->accessibility.trusted = false;
    const qsizetype before = f->accountRequests();
    f->rewrite();
    f->service.transport.queue(200, ModelOnFakes::accountBody("free", 4, 30));
    f->rewriter.finish(RewriteOutcome::rewrote());
    ModelOnFakes::waitUntil([&] { return f->model().accountInfo()->rewritesUsed == 4; });
    QCOMPARE(f->accountRequests() - before, 1);
    QCOMPARE(f->model().status(), MenuStatus::rewrote());
    QCOMPARE(f->workspace.beeps(), 0);
    QVERIFY(!f->model().trusted());
}

void AppModelTest::aCorrectionThatFindsTheSessionGoneSignsOutAndAsks() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    const qsizetype before = f->accountRequests();
    f->model().setStatus(MenuStatus::rewrote());
    f->rewrite();
    f->rewriter.finish(RewriteOutcome::signedOut());
    QTest::qWait(1);
    QCOMPARE(f->model().account(), AccountState::signedOut());
    QVERIFY(!f->model().accountInfo());
    QCOMPARE(f->model().status(), MenuStatus::ready());
    QCOMPARE(f->prompts.title, QStringLiteral("Sign in to rewrite"));
    QCOMPARE(f->workspace.beeps(), 0);
    QCOMPARE(f->accountRequests(), before);
}

void AppModelTest::aPressAfterTheSessionWentClearsTheAccount() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->service.store.setSession(std::nullopt);
    f->rewrite();
    QCOMPARE(f->model().account(), AccountState::signedOut());
    QVERIFY(!f->model().accountInfo());
    QVERIFY(f->prompts.shown);
    QCOMPARE(f->rewriter.runs(), 0);
}

void AppModelTest::theNumberInTheQuotaPromptIsTheAccounts() {
    const auto f = ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 50, 50));
    f->rewrite();
    QCOMPARE(f->prompts.title, QStringLiteral("You've used your 50 free rewrites"));

    ModelOnFakes notLoaded(sessionWith(QStringLiteral("opaque")));
    notLoaded.rewrite();
    notLoaded.rewriter.finish(RewriteOutcome::freeLimit(std::nullopt, std::nullopt));
    QTest::qWait(1);
    QCOMPARE(notLoaded.prompts.title, QStringLiteral("You've used your 30 free rewrites"));
}

void AppModelTest::restoringAdoptsTheStoredSession() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    QCOMPARE(f->model().account(), AccountState::signedIn(QStringLiteral("ada@example.org")));
    QCOMPARE(f->model().accountInfo()->rewritesUsed, 3);
}

void AppModelTest::restoringFillsTheAddressFromTheTokenAndSavesIt() {
    AuthSession session =
        sessionWith(tokenWith({{QStringLiteral("email"), QStringLiteral("from@token.org")}}));
    session.email.reset();
    ModelOnFakes f(session);
    QCoro::waitFor(f.model().restoreAccount());
    QCOMPARE(f.model().account(), AccountState::signedIn(QStringLiteral("from@token.org")));
    ModelOnFakes::waitUntil([&] { return !f.service.store.isWriting(); });
    QCOMPARE(f.service.kept()->email, std::optional(QStringLiteral("from@token.org")));
}

void AppModelTest::restoringWithoutASessionDoesNothing() {
    ModelOnFakes f;
    QCoro::waitFor(f.model().restoreAccount());
    QCOMPARE(f.model().account(), AccountState::signedOut());
    QVERIFY(f.service.transport.requests.isEmpty());
}

void AppModelTest::aSessionBehindALockedKeyringIsAdoptedOnceItIsUnlocked() {
    ModelOnFakes f(sessionWith(QStringLiteral("opaque")));
    f.service.keychain.condition = Keychain::Status::locked;
    QCoro::waitFor(f.model().restoreAccount());
    QCOMPARE(f.model().account(), AccountState::signedOut());
    f.model().refreshAccount();
    QTest::qWait(1);
    QCOMPARE(f.model().account(), AccountState::signedOut());

    f.service.keychain.condition = Keychain::Status::success;
    f.service.transport.queue(200, freeAccount);
    f.model().refreshAccount();
    ModelOnFakes::waitUntil([&] { return f.model().accountInfo().has_value(); });
    QCOMPARE(f.model().account(), AccountState::signedIn(QStringLiteral("ada@example.org")));
}

void AppModelTest::anAccountThatSignedOutIsNotAdoptedAgain() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->model().signOut();
    f->model().refreshAccount();
    QTest::qWait(1);
    QCOMPARE(f->model().account(), AccountState::signedOut());
    f->service.store.setSession(sessionWith(QStringLiteral("opaque")));
    f->model().startSignIn();
    f->model().refreshAccount();
    QTest::qWait(1);
    QCOMPARE(f->model().account(), AccountState::signingIn());
}

void AppModelTest::signingOutForgetsEverythingWithoutARequest() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    const auto before = f->service.transport.requests.size();
    f->model().startSignIn();
    f->model().signOut();
    QCOMPARE(f->model().account(), AccountState::signedOut());
    QVERIFY(!f->model().accountInfo());
    QVERIFY(!f->model().hasPendingSignIn());
    QCOMPARE(f->model().status(), MenuStatus::ready());
    ModelOnFakes::waitUntil([&] { return !f->service.store.isWriting(); });
    QVERIFY(!f->service.kept());
    QCOMPARE(f->service.transport.requests.size(), before);
}

void AppModelTest::theHintFollowsTheAccount() {
    ModelOnFakes f;
    const QString thirty = QStringLiteral("Sign in to rewrite. The first 30 rewrites are free.");
    QCOMPARE(f.model().readyHint(), thirty);
    f.model().startSignIn();
    QCOMPARE(f.model().readyHint(), thirty);
    f.model().signOut();
    QCoro::waitFor(f.model().open(handoffLink));
    QCOMPARE(f.model().account(), AccountState::failed(notStartedHere));
    QCOMPARE(f.model().readyHint(), thirty);
    const auto signedIn = ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 0, 50));
    QCOMPARE(signedIn->model().readyHint(), QStringLiteral("Select text, then press ⌃⌥R."));
    signedIn->model().startSignIn();
    QCOMPARE(signedIn->model().readyHint(),
             QStringLiteral("Sign in to rewrite. The first 50 rewrites are free."));
}

void AppModelTest::anEqualValueIsAssignedSilently() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    QSignalSpy status(&f->model(), &AppModel::statusChanged);
    QSignalSpy info(&f->model(), &AppModel::accountInfoChanged);
    QSignalSpy pending(&f->model(), &AppModel::pendingSignInChanged);
    f->model().setStatus(MenuStatus::ready());
    f->model().setStatus(MenuStatus::message(QStringLiteral("x")));
    f->model().setStatus(MenuStatus::message(QStringLiteral("x")));
    QCOMPARE(status.count(), 1);
    f->service.transport.queue(200, freeAccount);
    f->model().refreshAccount();
    ModelOnFakes::waitUntil([&] { return f->service.transport.pending() == 0 && f->accountRequests() == 2; });
    QTest::qWait(1);
    QCOMPARE(info.count(), 0);
    f->model().signOut();
    f->model().signOut();
    QCOMPARE(pending.count(), 2);
}

void AppModelTest::trustAndLoginStateAreReadAgain() {
    ModelOnFakes f;
    f.accessibility.trusted = false;
    QVERIFY(!f.model().trusted());
    f.accessibility.trusted = true;
    f.loginService.current = LoginService::Status::enabled;
    f.model().refreshTrust();
    QVERIFY(f.model().trusted());
    QVERIFY(f.model().launchAtLogin());
    f.accessibility.trusted = false;
    f.model().refreshTrust();
    f.accessibility.trustedAfterRequest = true;
    f.model().allowAccessibility();
    QVERIFY(f.model().trusted());
}

void AppModelTest::loginRefusalShowsItsSentenceAndTheRealState() {
    ModelOnFakes f;
    f.loginService.refuses = true;
    QSignalSpy changed(&f.model(), &AppModel::launchAtLoginChanged);
    f.model().setLaunchAtLogin(true);
    QVERIFY(!f.model().launchAtLogin());
    QCOMPARE(changed.count(), 0);
    QCOMPARE(f.model().statusText(),
             std::optional(QStringLiteral("Could not change Open at login. Move Vellumline to "
                                          "Applications and try again.")));
}

void AppModelTest::loginApprovalStillMissingShowsOff() {
    ModelOnFakes f;
    f.loginService.requiresApproval = true;
    f.model().setLaunchAtLogin(true);
    QVERIFY(!f.model().launchAtLogin());
    QVERIFY(!f.model().statusText());
    f.loginService.requiresApproval = false;
    f.model().setLaunchAtLogin(true);
    QVERIFY(f.model().launchAtLogin());
    f.model().setLaunchAtLogin(false);
    QVERIFY(!f.model().launchAtLogin());
}

void AppModelTest::signInOpensTheLoginPageWithTheChallenge() {
    ModelOnFakes f;
    f.model().startSignIn();
    QCOMPARE(f.model().account(), AccountState::signingIn());
    const QUrl url = f.workspace.openedURLs().constLast();
    QCOMPARE(url.adjusted(QUrl::RemoveQuery), QUrl(QStringLiteral("https://www.example.org/login/")));
    const auto items = QUrlQuery(url).queryItems();
    QCOMPARE(items.size(), 1);
    QCOMPARE(items.first().first, QStringLiteral("app_challenge"));
    QCOMPARE(items.first().second.size(), 43);
}

void AppModelTest::aHandoffLinkInTimeIsRedeemed() {
    ModelOnFakes f;
    f.model().setStatus(MenuStatus::message(QStringLiteral("old")));
    f.model().startSignIn();
    const QString challenge =
        QUrlQuery(f.workspace.openedURLs().last()).queryItemValue(QStringLiteral("app_challenge"));
    f.service.clock.setNow(f.service.clock.now() + 599);
    f.service.transport.queue(200, handoffReply);
    QCoro::waitFor(f.model().open(handoffLink));
    QCOMPARE(f.model().account(), AccountState::signedIn(QStringLiteral("grace@example.org")));
    QCOMPARE(f.model().status(), MenuStatus::ready());
    QVERIFY(!f.model().hasPendingSignIn());
    QVERIFY(!f.prompts.shown);
    const QByteArray body = f.service.transport.requests.first().body;
    const QJsonObject sent = QJsonDocument::fromJson(body).object();
    QCOMPARE(sent.value(QStringLiteral("code")).toString(), QStringLiteral("abcdefghijklmnop"));
    QCOMPARE(Pkce(sent.value(QStringLiteral("code_verifier")).toString()).challenge(), challenge);
    ModelOnFakes::waitUntil([&] { return !f.service.store.isWriting(); });
    QCOMPARE(f.service.kept()->accessToken, QStringLiteral("opaque-2"));
    ModelOnFakes::waitUntil([&] { return f.accountRequests() == 1; });
}

void AppModelTest::aHandoffLinkTooLateIsRefused() {
    ModelOnFakes f;
    f.model().startSignIn();
    f.service.clock.setNow(f.service.clock.now() + 600);
    QCoro::waitFor(f.model().open(handoffLink));
    QCOMPARE(f.model().account(), AccountState::failed(notStartedHere));
    QVERIFY(!f.model().hasPendingSignIn());
    QVERIFY(f.service.transport.requests.isEmpty());
}

void AppModelTest::aClockThatWentBackCountsAsInTime() {
    ModelOnFakes f;
    f.model().startSignIn();
    f.service.clock.setNow(f.service.clock.now() - 5000);
    f.service.transport.queue(200, handoffReply);
    QCoro::waitFor(f.model().open(handoffLink));
    QVERIFY(f.model().account().isSignedIn());
}

void AppModelTest::aHandoffLinkWithoutASignInIsRefused() {
    ModelOnFakes f;
    QCoro::waitFor(f.model().open(handoffLink));
    QCOMPARE(f.model().account(), AccountState::failed(notStartedHere));
}

void AppModelTest::aHandoffLinkWithoutASignInLeavesASignedInAccountAlone() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    QCoro::waitFor(f->model().open(handoffLink));
    QCOMPARE(f->model().account(), AccountState::signedIn(QStringLiteral("ada@example.org")));
    QVERIFY(!f->prompts.shown);
}

void AppModelTest::aHandoffLinkThatStartsTheProgramLeavesTheStoredAccountAlone() {
    ModelOnFakes f(sessionWith(QStringLiteral("opaque")));
    f.service.keychain.hold();
    QStringList accounts;
    connect(&f.model(), &AppModel::accountChanged, &f.model(), [&] {
        accounts.append(f.model().account().isSignedIn() ? QStringLiteral("signed in")
                                                         : QStringLiteral("not"));
    });
    f.model().restoreAccount();
    f.model().open(handoffLink);
    f.service.keychain.release();
    ModelOnFakes::waitUntil([&] { return !accounts.isEmpty(); });
    QTest::qWait(1);
    QCOMPARE(accounts, QStringList{QStringLiteral("signed in")});
}

void AppModelTest::ofTwoHandoffLinksTheFirstIsRedeemed() {
    ModelOnFakes f;
    f.model().startSignIn();
    f.service.transport.queueHeld();
    f.model().open(handoffLink);
    QCOMPARE(f.service.transport.requests.size(), 1);
    QCoro::waitFor(f.model().open(QStringLiteral("vellumline://auth?handoff=qrstuvwxyzabcdef")));
    QCOMPARE(f.model().account(), AccountState::failed(notStartedHere));
    QCOMPARE(f.service.transport.requests.size(), 1);
    QVERIFY(f.service.transport.answer(0, 200, handoffReply));
    ModelOnFakes::waitUntil([&] { return f.model().account().isSignedIn(); });
}

void AppModelTest::onlyTheLastSignInCanComplete() {
    ModelOnFakes f;
    f.model().startSignIn();
    f.model().startSignIn();
    const QString last =
        QUrlQuery(f.workspace.openedURLs().last()).queryItemValue(QStringLiteral("app_challenge"));
    f.service.transport.queue(200, handoffReply);
    QCoro::waitFor(f.model().open(handoffLink));
    const QJsonObject sent = QJsonDocument::fromJson(f.service.transport.requests.first().body).object();
    QCOMPARE(Pkce(sent.value(QStringLiteral("code_verifier")).toString()).challenge(), last);
}

void AppModelTest::aRedemptionThatFailsSaysSo_data() {
    QTest::addColumn<int>("status");
    QTest::newRow("the service refuses the code") << 410;
    QTest::newRow("the service cannot be reached") << 0;
    QTest::newRow("the answer is unusable") << 200;
}

void AppModelTest::aRedemptionThatFailsSaysSo() {
    QFETCH(const int, status);
    ModelOnFakes f;
    f.model().startSignIn();
    if (status == 0)
        f.service.transport.queue(TransportError::cannotConnectToHost);
    else
        f.service.transport.queue(status, "{}");
    QCoro::waitFor(f.model().open(handoffLink));
    QCOMPARE(f.model().account(),
             AccountState::failed(QStringLiteral("Sign-in did not finish. Sign in again.")));
    QVERIFY(!f.model().hasPendingSignIn());
    QVERIFY(!f.service.kept());
}

void AppModelTest::aForeignLinkIsIgnored() {
    ModelOnFakes f;
    for (const char* link :
         {"https://www.example.org/", "VELLUMLINE://auth?handoff=abcdefghijklmnop", "not a link", ""})
        QCoro::waitFor(f.model().open(QString::fromUtf8(link)));
    QCOMPARE(f.model().account(), AccountState::signedOut());
    QVERIFY(f.workspace.openedURLs().isEmpty());
}

void AppModelTest::aStartLinkSignedOutOpensTheLoginPage() {
    ModelOnFakes f;
    QCoro::waitFor(f.model().open(QStringLiteral("vellumline://sign-in")));
    QCOMPARE(f.model().account(), AccountState::signingIn());
    QCOMPARE(f.workspace.openedURLs().size(), 1);
}

void AppModelTest::aStartLinkSignedInOffersToSwitch() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    const qsizetype before = f->accountRequests();
    QCoro::waitFor(f->model().open(QStringLiteral("vellumline://sign-in")));
    QTest::qWait(1);
    QCOMPARE(f->accountRequests() - before, 1);
    QCOMPARE(f->prompts.title, QStringLiteral("Vellumline is signed in"));
    QCOMPARE(f->prompts.detail,
             QStringLiteral("Signed in as ada@example.org. Select text in any app and press ⌃⌥R."));
    QCOMPARE(f->prompts.actionTitles(), QStringList{QStringLiteral("Switch account")});
    QVERIFY(f->prompts.press(QStringLiteral("Switch account")));
    QCOMPARE(f->model().account(), AccountState::signingIn());
}

void AppModelTest::aRenewedNameIsShownOnlyWhenSignedIn() {
    const auto f = ModelOnFakes::signedIn(freeAccount);
    f->model().adoptRenewedName(QStringLiteral("new@example.org"));
    QCOMPARE(f->model().account(), AccountState::signedIn(QStringLiteral("new@example.org")));
    f->model().signOut();
    f->model().adoptRenewedName(QStringLiteral("late@example.org"));
    QCOMPARE(f->model().account(), AccountState::signedOut());
    f->model().startSignIn();
    f->model().adoptRenewedName(QStringLiteral("late@example.org"));
    QCOMPARE(f->model().account(), AccountState::signingIn());
}

void AppModelTest::recordingTakesTheNextKey() {
    ModelOnFakes f;
    QVERIFY(f.hotkeyMonitor.registerBinding(HotkeyBinding::defaultBinding()));
    f.model().toggleRecording();
    QVERIFY(f.model().recordingHotkey());
    QCOMPARE(f.keyMonitor.monitorCount(), 1);
    QCOMPARE(f.keyMonitor.press(press(96, HotkeyModifiers::control, "x")), KeyMonitor::Handling::swallow);
    QVERIFY(f.model().recordingHotkey()); // handled after the monitor has returned
    QTest::qWait(1);
    QVERIFY(!f.model().recordingHotkey());
    QCOMPARE(f.keyMonitor.monitorCount(), 0);
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃F5"));
    QVERIFY(f.hotkeys.isRegistered(96, 0x1000));
    QVERIFY(!f.hotkeys.isRegistered(15, 0x1800));
    QCOMPARE(f.defaults.integer(QStringLiteral("vellumline.hotkey.keyCode")), 96);
    QCOMPARE(f.defaults.integer(QStringLiteral("vellumline.hotkey.modifiers")), 0x1000);
    QCOMPARE(f.defaults.string(QStringLiteral("vellumline.hotkey.keyLabel")), QStringLiteral("F5"));
}

void AppModelTest::escapeAloneStopsRecording() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.keyMonitor.press(press(KeyCode::escape, {}));
    QTest::qWait(1);
    QVERIFY(!f.model().recordingHotkey());
    QVERIFY(!f.model().hotkeyNote());
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃⌥R"));
}

void AppModelTest::escapeAloneKeepsTheNote() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.keyMonitor.press(press(3, HotkeyModifiers::shift, "f"));
    QTest::qWait(1);
    f.keyMonitor.press(press(KeyCode::escape, {}));
    QTest::qWait(1);
    QVERIFY(!f.model().recordingHotkey());
    QCOMPARE(f.model().hotkeyNote(), std::optional(QStringLiteral("Include Control, Option, or Command.")));
}

void AppModelTest::escapeWithAModifierIsChecked() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.keyMonitor.press(press(KeyCode::escape, HotkeyModifiers::shift));
    QTest::qWait(1);
    QVERIFY(f.model().recordingHotkey());
    QCOMPARE(f.model().hotkeyNote(), std::optional(QStringLiteral("Include Control, Option, or Command.")));
}

void AppModelTest::aKeyWithoutAModifierKeepsRecording() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.keyMonitor.press(press(3, HotkeyModifiers::shift, "f"));
    QTest::qWait(1);
    QVERIFY(f.model().recordingHotkey());
    QCOMPARE(f.model().hotkeyNote(), std::optional(QStringLiteral("Include Control, Option, or Command.")));
}

void AppModelTest::aReservedKeyKeepsRecording() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.keyMonitor.press(press(KeyCode::space, HotkeyModifiers::command, " "));
    QTest::qWait(1);
    QVERIFY(f.model().recordingHotkey());
    QCOMPARE(f.model().hotkeyNote(),
             std::optional(QStringLiteral("⌘Space is a system shortcut. Pick another.")));
}

void AppModelTest::aKeyThatAnotherProgramHoldsRestoresTheOldOne() {
    ModelOnFakes f;
    QVERIFY(f.hotkeyMonitor.registerBinding(HotkeyBinding::defaultBinding()));
    f.hotkeys.takeElsewhere(17, 0x1800);
    f.model().toggleRecording();
    f.keyMonitor.press(press(17, HotkeyModifiers::control | HotkeyModifiers::option, "t"));
    QTest::qWait(1);
    QVERIFY(!f.model().recordingHotkey());
    QCOMPARE(f.model().hotkeyNote(), std::optional(QStringLiteral("Another app already uses ⌃⌥T.")));
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃⌥R"));
    int presses = 0;
    f.hotkeyMonitor.onPress = [&] { ++presses; };
    QVERIFY(f.hotkeys.press(15, 0x1800));
    QTest::qWait(1);
    QCOMPARE(presses, 1);
    QVERIFY(f.defaults.changes.isEmpty());
}

void AppModelTest::whenBothAreRefusedTheNoteNamesThePreviousOne() {
    ModelOnFakes f;
    f.hotkeys.refusesEverything = true;
    f.model().toggleRecording();
    f.keyMonitor.press(press(17, HotkeyModifiers::control | HotkeyModifiers::option, "t"));
    QTest::qWait(1);
    QCOMPARE(f.model().hotkeyNote(), std::optional(QStringLiteral("Could not register ⌃⌥R.")));
    QCOMPARE(f.hotkeys.registrationCount(), 0);
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃⌥R"));
}

void AppModelTest::theButtonStopsRecordingWithNothingChanged() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.model().toggleRecording();
    QVERIFY(!f.model().recordingHotkey());
    QCOMPARE(f.keyMonitor.monitorCount(), 0);
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃⌥R"));
    QVERIFY(f.defaults.changes.isEmpty());
}

void AppModelTest::aKeyQueuedBeforeRecordingStoppedIsIgnored() {
    ModelOnFakes f;
    f.model().toggleRecording();
    f.keyMonitor.press(press(96, HotkeyModifiers::control));
    f.model().stopRecording();
    QTest::qWait(1);
    QCOMPARE(f.model().hotkeyLabel(), QStringLiteral("⌃⌥R"));
    QVERIFY(f.hotkeys.calls().isEmpty());
}

void AppModelTest::theModelMayGoAwayInTheMiddleOfAnything() {
    ModelOnFakes f(sessionWith(QStringLiteral("opaque")));
    f.service.transport.queueHeld();
    f.service.transport.queueHeld();
    f.rewrite();
    QCOMPARE(f.rewriter.runs(), 1);
    f.model().refreshAccount();
    f.model().startSignIn();
    f.model().open(handoffLink);
    f.model().toggleRecording();
    f.keyMonitor.press(press(96, HotkeyModifiers::control));
    QTest::qWait(0);
    f.destroyModel();
    QCOMPARE(f.keyMonitor.monitorCount(), 0);
    f.rewriter.finish(RewriteOutcome::rewrote());
    for (qsizetype i = 0; i < f.service.transport.requests.size(); ++i)
        f.service.transport.answer(i, 200, handoffReply);
    QTest::qWait(1);
    QCOMPARE(f.service.transport.pending(), 0);
}

QTEST_GUILESS_MAIN(AppModelTest)
#include "tst_appmodel.moc"
