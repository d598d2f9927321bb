// The program ends, or loses its model, at every point at which a run is suspended. Each time in a process of
// its own: what a run leaves behind at the end of the program is left to the end of the process, as in the
// real one. The rule is worth most under AddressSanitizer.

#include "Vellumline/AppModel.h"
#include "Vellumline/SelectionSwapper.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeClipboardGuardian.h"
#include "fakes/FakeHotkeys.h"
#include "fakes/FakeKeyEvents.h"
#include "fakes/FakeKeyMonitor.h"
#include "fakes/FakeLoginService.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakePrompts.h"
#include "fakes/FakeSecureInput.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/SignedInService.h"

#include <QTest>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

using namespace vellumline;
using namespace std::chrono_literals;

namespace {

enum class Scenario { correction, signIn };
enum class Ending { theProgramQuits, theModelGoes, everythingGoes };
/// How a process of its own ended, besides the statuses of a crash.
enum Status { well = 0, runWasOver = 40, clipboardNotGivenBack, pastedAfterwards, neverAtRest, notCorrected };

constexpr std::uint16_t pasteKey = 9;
constexpr int mostSteps = 20000;

/// The parts of the program in their order, on fakes that all suspend.
struct Program {
    explicit Program(Scenario chosen) : scenario(chosen) {
        keychain.items.insert({QStringLiteral("com.kelthorne.vellumline.session"), QStringLiteral("session")},
                              // Expired, so that a token is exchanged on the way.
                              {sessionWith(tokenExpiring(clock.now() - 10)).toStoredJson()});
        if (scenario == Scenario::signIn)
            keychain.items.clear();
        keychain.hold();
        workspace.front = Workspace::Application{42};
        pasteboard.copyElsewhere(mine);
        pasteboard.readDelay = 1ms;
        pasteboard.writeDelay = 1ms;
        accessibility.delay = 1ms;
        accessibility.focus(42, QStringLiteral("field"))
            .set(AccessibilityAttribute::selectedTextRange, TextRange{0, 3})
            .setSettable(AccessibilityAttribute::selectedText, true);
        keys.setAnswer([this](std::uint16_t key) {
            if (key != pasteKey)
                pasteboard.copyElsewhereAfter(7ms, {FakePasteboard::textItem(QStringLiteral("teh"))});
        });
        model = std::make_unique<AppModel>(
            AppModel::Dependencies{store, accountClient, authClient, swapper, hotkeyMonitor, keyMonitor,
                                   accessibility, loginService, workspace, prompts, defaults, clock, config});
        model->restoreAccount();
    }

    static QByteArray replyTo(const HTTPRequest& request) {
        const QString path = request.url.path();
        const QString access = tokenExpiring(2e9);
        QByteArray body = "{\"plan\":\"free\",\"rewritesUsed\":3,\"freeRewrites\":30}";
        if (path.endsWith(QStringLiteral("/oauth/token")))
            body = refreshReply(access);
        else if (path.endsWith(QStringLiteral("/redeem")))
            body = "{\"access_token\":\"" + access.toUtf8() + "\",\"refresh_token\":\"r\",\"user_id\":\"7\"}";
        else if (path.endsWith(QStringLiteral("/v1/rewrite")))
            body = "{\"text\":\"the\"}";
        return body;
    }

    /// What the user does next, as soon as it can be done.
    void act() {
        if (!model || acted)
            return;
        if (scenario == Scenario::correction && model->accountInfo()) {
            acted = true;
            model->rewrite();
        } else if (scenario == Scenario::signIn) {
            acted = true;
            model->startSignIn();
            model->open(QStringLiteral("vellumline://auth?handoff=abcdefghijklmnop"));
        }
    }
    /// Resumes one that is suspended: one answer of the keyring, one of the service, or one wait.
    void step() {
        act();
        if (!keychain.releaseOne() && !answerOne())
            clock.advanceToNextSleep();
        QTest::qWait(0);
    }
    bool answerOne() {
        for (qsizetype i = 0; i < transport.requests.size(); ++i) {
            if (transport.answer(i, 200, replyTo(transport.requests.at(i))))
                return true;
        }
        return false;
    }
    bool isBusy() const {
        return swapper.holdsClipboard() || store.isWriting() || transport.pending() > 0 ||
               clock.pendingSleeps() > 0 || keychain.pending() > 0;
    }
    /// Nothing has been under way for some turns.
    bool isAtRest() {
        quiet = isBusy() || (model && (!acted || model->busy())) ? 0 : quiet + 1;
        return quiet > 3;
    }
    bool isGivenBack() const {
        QList<PasteboardItem> marked = mine;
        Clipboard::markPrivate(marked.first());
        return pasteboard.items() == mine || pasteboard.items() == marked;
    }
    qsizetype pastes() const { return keys.posted().count(pasteKey); }

    const Scenario scenario;
    bool acted = false;
    int quiet = 0;
    QList<PasteboardItem> mine = {FakePasteboard::textItem(QStringLiteral("mine"), "{\\rtf1 mine}")};

    AuthConfig config = exampleConfig();
    FakeClock clock;
    FakeHTTPTransport transport;
    FakeKeychain keychain;
    TokenStore store{keychain, QStringLiteral("/nonexistent/session.json")};
    SessionRefresher refresher{transport, store, config};
    API api{transport, store, refresher, clock};
    AccountClient accountClient{api, config};
    AuthClient authClient{transport, config};
    RewriteClient rewriteClient{api, config};
    FakeAccessibility accessibility;
    FakeWorkspace workspace;
    FakeSecureInput secureInput;
    FakePasteboard pasteboard{clock};
    FakeKeyEvents keys;
    FakeUserDefaults defaults;
    FakeHotkeys hotkeys;
    FakeKeyMonitor keyMonitor;
    FakeLoginService loginService;
    FakePrompts prompts;
    FakeClipboardGuardian guardian;
    SelectionProbe probe{accessibility, workspace, secureInput};
    HotkeyMonitor hotkeyMonitor{hotkeys};
    SelectionSwapper swapper{store, accessibility, probe,     pasteboard, guardian,
                             keys,  rewriteClient, workspace, defaults,   clock};
    std::unique_ptr<AppModel> model; // last: goes first
};

int endAfter(int steps, Scenario scenario, Ending ending) {
    auto program = std::make_unique<Program>(scenario);
    for (int i = 0; i < steps; ++i) {
        program->step();
        if (program->isAtRest()) {
            const bool corrected = program->pastes() == 1 && program->isGivenBack();
            return scenario == Scenario::signIn || corrected ? runWasOver : notCorrected;
        }
    }
    if (ending == Ending::theProgramQuits) {
        // What is about to be pasted still is; what waits for its answer is not.
        const bool pastes = program->swapper.holdsClipboard() || program->pastes() > 0;
        program->swapper.stop();
        int more = 0;
        while (program->swapper.holdsClipboard() || program->store.isWriting()) {
            if (++more > mostSteps)
                return neverAtRest;
            program->step();
        }
        if (!pastes && program->pastes() > 0)
            return pastedAfterwards;
    } else if (ending == Ending::theModelGoes) {
        program->model.reset();
        int more = 0;
        while (!program->isAtRest()) {
            if (++more > mostSteps)
                return neverAtRest;
            program->step();
        }
    }
    if (ending != Ending::everythingGoes && !program->isGivenBack())
        return clipboardNotGivenBack;
    program.reset();
    return well;
}

} // namespace

class EndAtAnyStepTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void nothingIsUsedAfterItsEnd_data() {
        QTest::addColumn<Scenario>("scenario");
        QTest::addColumn<Ending>("ending");
        QTest::newRow("a correction, and the program quits")
            << Scenario::correction << Ending::theProgramQuits;
        QTest::newRow("a correction, and the model goes") << Scenario::correction << Ending::theModelGoes;
        QTest::newRow("a correction, and everything goes") << Scenario::correction << Ending::everythingGoes;
        QTest::newRow("a sign-in, and the program quits") << Scenario::signIn << Ending::theProgramQuits;
        QTest::newRow("a sign-in, and the model goes") << Scenario::signIn << Ending::theModelGoes;
        QTest::newRow("a sign-in, and everything goes") << Scenario::signIn << Ending::everythingGoes;
    }
    void nothingIsUsedAfterItsEnd() {
        QFETCH(Scenario, scenario);
        QFETCH(Ending, ending);
        int steps = 0;
        for (;; ++steps) {
            QVERIFY2(steps < mostSteps, "the run never ended");
            std::fflush(nullptr);
            const pid_t child = fork();
            if (child == 0)
                _exit(endAfter(steps, scenario, ending));
            int status = 0;
            QCOMPARE(waitpid(child, &status, 0), child);
            if (WIFEXITED(status) && WEXITSTATUS(status) == runWasOver)
                break;
            QVERIFY2(status == well, qPrintable(QStringLiteral("ended after %1 steps: signal %2, status %3")
                                                    .arg(steps)
                                                    .arg(WIFSIGNALED(status) ? WTERMSIG(status) : 0)
                                                    .arg(WIFEXITED(status) ? WEXITSTATUS(status) : 0)));
        }
        qInfo("ended at each of %d steps", steps);
        QVERIFY(steps > (scenario == Scenario::correction ? 15 : 5));
    }
};

QTEST_GUILESS_MAIN(EndAtAnyStepTest)
#include "tst_endatanystep.moc"
