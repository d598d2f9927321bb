#include "Vellumline/SelectionSwapper.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeClipboardGuardian.h"
#include "fakes/FakeKeyEvents.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakeSecureInput.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/SignedInService.h"

#include <QLoggingCategory>
#include <QScopeGuard>
#include <QTest>

using namespace vellumline;
using Problem = RewriteProblem::Kind;

namespace {

QCoro::Task<void> keep(QCoro::Task<RewriteOutcome> run, std::optional<RewriteOutcome>* outcome) {
    *outcome = co_await run;
}

QByteArray corrected(const QString& text) {
    return QJsonDocument(QJsonObject{{QStringLiteral("text"), text}}).toJson(QJsonDocument::Compact);
}

const QByteArray bold = "{\\rtf1\\deff0{\\fonttbl{\\f0 Serif;}}\\f0\\fs24\\b teh}";

/// A desktop with a user's clipboard, a program in front that copies when asked, and a service.
struct Desktop {
    explicit Desktop(bool signedIn = true)
        : service(signedIn ? std::optional(sessionWith(tokenExpiring(2e9))) : std::nullopt) {
        workspace.front = Workspace::Application{42};
        pasteboard.copyElsewhere(mine);
        copies(FakePasteboard::textItem(QStringLiteral("teh")));
    }

    void copies(const PasteboardItem& item) {
        keys.setAnswer([this, item](std::uint16_t key) {
            if (key == 8)
                pasteboard.copyElsewhere({item});
            else
                atPaste = pasteboard.items();
        });
    }
    void ignoresKeys() { keys.setAnswer({}); }
    void hangs() {
        ignoresKeys();
        workspace.front = Workspace::Application{42, 7};
        workspace.takesInput.emplace();
        pasteboard.copiesFrom = 7;
    }
    void letTimePass() {
        do {
            QTest::qWait(0);
        } while (service.clock.advanceToNextSleep());
    }
    FakeElement& field(qint64 length = 3) {
        return accessibility.focus(42, QStringLiteral("field"))
            .set(AccessibilityAttribute::selectedTextRange, TextRange{0, length})
            .setSettable(AccessibilityAttribute::selectedText, true);
    }
    FakeElement& fieldWith(const QString& text) {
        return field().set(AccessibilityAttribute::selectedText, text);
    }
    RewriteOutcome run() {
        std::optional<RewriteOutcome> outcome;
        auto task = keep(swapper.rewrite(), &outcome);
        for (int turn = 0; turn < 5000 && !outcome; ++turn) {
            QTest::qWait(0);
            service.clock.advanceToNextSleep();
        }
        if (!outcome)
            qFatal("the run did not end");
        return *outcome;
    }
    /// The user's clipboard is back, the first item marked, and nothing is under way.
    bool isGivenBack() const {
        QList<PasteboardItem> expected = mine;
        Clipboard::markPrivate(expected.first());
        return pasteboard.items() == expected && isQuiet();
    }
    bool isUntouched() const {
        return pasteboard.items() == mine && pasteboard.writes().isEmpty() && isQuiet();
    }
    bool isQuiet() const {
        return pasteboard.pending() == 0 && service.clock.pendingSleeps() == 0 &&
               service.transport.pending() == 0;
    }

    QList<PasteboardItem> mine = {FakePasteboard::textItem(QStringLiteral("mine"), "{\\rtf1 mine}"),
                                  FakePasteboard::textItem(QStringLiteral("also mine"))};
    QList<PasteboardItem> atPaste; ///< what the target of the paste found
    QStringList log;
    SignedInService service;
    FakeAccessibility accessibility{&log};
    FakeWorkspace workspace{&log};
    FakeSecureInput secureInput{&log};
    FakePasteboard pasteboard{service.clock, &log};
    FakeKeyEvents keys{&log};
    FakeUserDefaults defaults;
    SelectionProbe probe{accessibility, workspace, secureInput};
    RewriteClient client{service.api, exampleConfig()};
    FakeClipboardGuardian guardian;
    SelectionSwapper swapper{service.store, accessibility, probe,     pasteboard, guardian,
                             keys,          client,        workspace, defaults,   service.clock};
};

} // namespace

class SelectionSwapperTest : public QObject {
    Q_OBJECT
  private Q_SLOTS:
    void withoutASessionNothingIsAsked();
    void withoutTrustTheSystemIsAskedAndNoKeyPosted();
    void secureInputLeavesTheClipboardUntouched();
    void aPasswordFieldLeavesTheClipboardUntouched();
    void aReadOnlyElementIsNotCopied();
    void anEmptySelectionIsNotCopied();
    void anUnreadableOwnerEndsTheRunBeforeAnythingIsTouched();
    void aTargetThatIgnoresCopyingEndsAfter800Milliseconds();
    void aTargetThatIgnoresCopyingIsCorrectedFromTheProbesText();
    void aCopyThatComesTooLateIsUndone_data();
    void aCopyThatComesTooLateIsUndone();
    void whatTheUserCopiesElsewhereMeanwhileStays();
    void whatTheUserCopiesAfterTheProgramHasWorkedOffItsInputStays();
    void theNextRunEndsTheWatchForALateCopy();
    void theEndOfTheProgramEndsTheWatchForALateCopy();
    void aCopyWithoutTextIsGivenBack();
    void whiteSpaceAloneIsNoSelection();
    void exactly4000CharactersAreSent();
    void oneMoreThan4000IsRefusedWithoutARequest();
    void theCallsComeInTheirFixedOrder();
    void theProbesTextWins();
    void aDifferenceInLineEndsKeepsTheFont();
    void anotherTextIsPastedPlain();
    void theReplyDecides_data();
    void theReplyDecides();
    void aSessionThatIsRefusedTwiceIsSignedOut();
    void aTransportErrorDecides_data();
    void aTransportErrorDecides();
    void theFreeLimitCarriesItsLinks();
    void aRefusedWriteIsNotPastedAndTheClipboardGivenBack();
    void nothingIsPastedIntoAnotherPlace_data();
    void nothingIsPastedIntoAnotherPlace();
    void whatTheUserCopiesWhileTheCorrectionIsPastedStays();
    void whatTheUserCopiesJustBeforeThePasteStays();
    void aClipboardManagerThatTakesTheCorrectionUpDoesNotKeepIt();
    void theGuardianHoldsTheClipboardWhileItIsBorrowed();
    void theGuardianForgetsWhatTheUserHasReplaced();
    void theGuardianIsToldAlsoWhenNothingIsPasted();
    void thePasteDelayIsClamped_data();
    void thePasteDelayIsClamped();
    void theCopyIsReadOnlyWhenItHasBeenQuiet();
    void aChangeAtTheDeadlineStillCounts();
    void theClipboardIsBackWhileTheRequestIsUnderWay();
    void aStoppedRunPastesNothingMore();
    void aStoppedSwapperCopiesNothing();
    void theBorrowedClipboardIsKnown();
    void theAccessibilitySettingsAreOpenedByURL();
    void theStepsAreToldToWhoeverAsksAndNothingElse();
};

void SelectionSwapperTest::withoutASessionNothingIsAsked() {
    Desktop desktop(false);
    QVERIFY(desktop.run() == RewriteOutcome::signedOut());
    QVERIFY(desktop.log.isEmpty());
    QVERIFY(desktop.isUntouched());
}

void SelectionSwapperTest::withoutTrustTheSystemIsAskedAndNoKeyPosted() {
    Desktop desktop;
    desktop.accessibility.trusted = false;
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::accessibilityNeeded));
    QCOMPARE(desktop.log, QStringList({QStringLiteral("isProcessTrusted"), QStringLiteral("requestTrust")}));
}

void SelectionSwapperTest::secureInputLeavesTheClipboardUntouched() {
    Desktop desktop;
    desktop.secureInput.enabled = true;
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::secureField));
    QVERIFY(desktop.isUntouched() && desktop.pasteboard.calls().isEmpty() && desktop.keys.posted().isEmpty());
}

void SelectionSwapperTest::aPasswordFieldLeavesTheClipboardUntouched() {
    Desktop desktop;
    desktop.fieldWith(QStringLiteral("x"))
        .set(AccessibilityAttribute::subrole, AccessibilityAttribute::secureTextField);
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::secureField));
    QVERIFY(desktop.isUntouched() && desktop.pasteboard.calls().isEmpty() && desktop.keys.posted().isEmpty());
}

void SelectionSwapperTest::aReadOnlyElementIsNotCopied() {
    Desktop desktop;
    desktop.field()
        .setSettable(AccessibilityAttribute::selectedText, false)
        .setSettable(AccessibilityAttribute::value, false);
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::readOnly));
    QVERIFY(desktop.isUntouched() && desktop.pasteboard.calls().isEmpty() && desktop.keys.posted().isEmpty());
}

void SelectionSwapperTest::anEmptySelectionIsNotCopied() {
    Desktop desktop;
    desktop.field(0);
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::noSelection));
    QVERIFY(desktop.isUntouched() && desktop.keys.posted().isEmpty());
}

void SelectionSwapperTest::anUnreadableOwnerEndsTheRunBeforeAnythingIsTouched() {
    Desktop desktop;
    desktop.pasteboard.ownerHangs = true;
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::failed));
    QVERIFY(desktop.isUntouched() && desktop.keys.posted().isEmpty());
}

void SelectionSwapperTest::aTargetThatIgnoresCopyingEndsAfter800Milliseconds() {
    Desktop desktop;
    desktop.ignoresKeys();
    const auto start = desktop.service.clock.monotonic();
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::noSelection));
    QVERIFY(desktop.service.clock.monotonic() - start == std::chrono::milliseconds(800));
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.isUntouched());
}

void SelectionSwapperTest::aTargetThatIgnoresCopyingIsCorrectedFromTheProbesText() {
    Desktop desktop;
    desktop.fieldWith(QStringLiteral("probed"));
    desktop.keys.setAnswer([&](std::uint16_t) { desktop.atPaste = desktop.pasteboard.items(); });
    desktop.service.transport.queue(200, corrected(QStringLiteral("fixed")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QVERIFY(desktop.atPaste == QList{Clipboard::privateItem(QStringLiteral("fixed"), std::nullopt)});
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::aCopyThatComesTooLateIsUndone_data() {
    QTest::addColumn<bool>("beforeItsAnswer");
    QTest::newRow("before it says that it has taken its input") << true;
    QTest::newRow("just after that") << false;
}

void SelectionSwapperTest::aCopyThatComesTooLateIsUndone() {
    QFETCH(const bool, beforeItsAnswer);
    Desktop desktop;
    desktop.hangs();
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::noSelection));
    QVERIFY(desktop.isUntouched());
    if (beforeItsAnswer)
        desktop.pasteboard.copyElsewhere(QStringLiteral("teh"));
    desktop.workspace.takesInput->set(true);
    if (!beforeItsAnswer)
        desktop.pasteboard.copyElsewhere(QStringLiteral("teh"));
    desktop.letTimePass();
    QVERIFY(desktop.isGivenBack());
    QVERIFY(!desktop.swapper.holdsClipboard());
}

void SelectionSwapperTest::whatTheUserCopiesElsewhereMeanwhileStays() {
    Desktop desktop;
    desktop.hangs();
    desktop.run();
    desktop.pasteboard.copiesFrom = 8;
    desktop.pasteboard.copyElsewhere(QStringLiteral("from another window"));
    desktop.workspace.takesInput->set(true);
    desktop.letTimePass();
    QCOMPARE(desktop.pasteboard.items(), {FakePasteboard::textItem(QStringLiteral("from another window"))});
}

void SelectionSwapperTest::whatTheUserCopiesAfterTheProgramHasWorkedOffItsInputStays() {
    Desktop desktop;
    desktop.hangs();
    desktop.run();
    desktop.workspace.takesInput->set(true);
    desktop.letTimePass();
    desktop.pasteboard.copyElsewhere(QStringLiteral("by the user"));
    desktop.letTimePass();
    QCOMPARE(desktop.pasteboard.items(), {FakePasteboard::textItem(QStringLiteral("by the user"))});
}

void SelectionSwapperTest::theNextRunEndsTheWatchForALateCopy() {
    Desktop desktop;
    desktop.hangs();
    desktop.run();
    auto first = *desktop.workspace.takesInput;
    desktop.workspace.takesInput.reset();
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::noSelection));
    desktop.pasteboard.copyElsewhere(QStringLiteral("by the user"));
    first.set(true);
    desktop.letTimePass();
    QCOMPARE(desktop.pasteboard.items(), {FakePasteboard::textItem(QStringLiteral("by the user"))});
}

void SelectionSwapperTest::theEndOfTheProgramEndsTheWatchForALateCopy() {
    auto desktop = std::make_unique<Desktop>();
    desktop->hangs();
    desktop->run();
    auto takesInput = *desktop->workspace.takesInput;
    desktop.reset();
    takesInput.set(true); // for AddressSanitizer to look at
    Desktop quitting;
    quitting.hangs();
    quitting.run();
    quitting.swapper.stop();
    quitting.pasteboard.copyElsewhere(QStringLiteral("teh"));
    quitting.workspace.takesInput->set(true);
    quitting.letTimePass();
    QCOMPARE(quitting.pasteboard.items(), {FakePasteboard::textItem(QStringLiteral("teh"))});
}

void SelectionSwapperTest::aCopyWithoutTextIsGivenBack() {
    Desktop desktop;
    PasteboardItem picture;
    picture.set(QStringLiteral("image/png"), "png");
    desktop.copies(picture);
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::noSelection));
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::whiteSpaceAloneIsNoSelection() {
    Desktop desktop;
    desktop.copies(FakePasteboard::textItem(QStringLiteral(" \t\u2028\u00a0\n")));
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::noSelection));
    QVERIFY(desktop.service.transport.requests.isEmpty() && desktop.isGivenBack());
}

void SelectionSwapperTest::exactly4000CharactersAreSent() {
    Desktop desktop;
    // A family: seven code points, one character.
    const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466");
    const QString text = QString(3998, QLatin1Char('a')) + family + QLatin1Char(' ');
    desktop.copies(FakePasteboard::textItem(text));
    desktop.service.transport.queue(200, corrected(QStringLiteral("fixed")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(desktop.service.transport.requests.size(), 1);
    QCOMPARE(QJsonDocument::fromJson(desktop.service.transport.requests.at(0).body).object(),
             (QJsonObject{{QStringLiteral("text"), text}}));
}

void SelectionSwapperTest::oneMoreThan4000IsRefusedWithoutARequest() {
    Desktop desktop;
    desktop.copies(FakePasteboard::textItem(QString(4000, QLatin1Char('a')) + QLatin1Char(' ')));
    QVERIFY(desktop.run() == RewriteOutcome::problem(RewriteProblem::tooLong(4000)));
    QVERIFY(desktop.service.transport.requests.isEmpty() && desktop.isGivenBack());
}

void SelectionSwapperTest::theCallsComeInTheirFixedOrder() {
    Desktop desktop;
    desktop.workspace.front.reset();
    desktop.copies(FakePasteboard::textItem(QStringLiteral("teh"), bold));
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    const QString restore =
        QStringLiteral("write(public.rtf, public.utf8-plain-text, org.nspasteboard.TransientType, "
                       "org.nspasteboard.AutoGeneratedType | public.utf8-plain-text)");
    QCOMPARE(
        desktop.log,
        QStringList({QStringLiteral("isProcessTrusted"), QStringLiteral("isSecureEventInputEnabled"),
                     QStringLiteral("frontmostApplication"), QStringLiteral("contents"),
                     QStringLiteral("postCommand(8)"), QStringLiteral("string"),
                     QStringLiteral("data(public.rtf)"), restore,
                     QStringLiteral("write(public.rtf, public.utf8-plain-text, "
                                    "org.nspasteboard.TransientType, org.nspasteboard.AutoGeneratedType)"),
                     QStringLiteral("frontmostApplication"), QStringLiteral("postCommand(9)"), restore}));
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::theProbesTextWins() {
    Desktop desktop;
    desktop.fieldWith(QStringLiteral("probed"));
    desktop.service.transport.queue(200, corrected(QStringLiteral("fixed")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(desktop.service.transport.requests.at(0).body, QByteArray("{\"text\":\"probed\"}"));
}

void SelectionSwapperTest::aDifferenceInLineEndsKeepsTheFont() {
    Desktop desktop;
    desktop.fieldWith(QStringLiteral("caf\u00e9\nteh"));
    desktop.copies(FakePasteboard::textItem(QStringLiteral("cafe\u0301\r\nteh\n"), bold));
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QVERIFY(desktop.atPaste ==
            QList{Clipboard::privateItem(QStringLiteral("the"),
                                         Font{QStringLiteral("Serif"), {}, 12, true, false})});
}

void SelectionSwapperTest::anotherTextIsPastedPlain() {
    Desktop desktop;
    desktop.fieldWith(QStringLiteral("teh other"));
    desktop.copies(FakePasteboard::textItem(QStringLiteral("teh"), bold));
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QVERIFY(desktop.atPaste == QList{Clipboard::privateItem(QStringLiteral("the"), std::nullopt)});
}

void SelectionSwapperTest::theReplyDecides_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<RewriteOutcome>("outcome");
    const auto row = [](const char* name, int status, const QByteArray& body, const RewriteOutcome& outcome) {
        QTest::newRow(name) << status << body << outcome;
    };
    const auto problem = [](Problem why) { return RewriteOutcome::problem(why); };
    row("an empty correction failed", 200, corrected(QStringLiteral(" \n")), problem(Problem::failed));
    row("a closed account is told", 401, R"({"error":"account closed"})", problem(Problem::accountClosed));
    row("the monthly limit is told", 429, R"({"error":"monthly limit reached"})",
        problem(Problem::monthlyLimit));
    row("too many requests are told", 429, {}, problem(Problem::rateLimited));
    row("a text too long for the service carries our limit", 400, R"({"error":"text is too long"})",
        RewriteOutcome::problem(RewriteProblem::tooLong(4000)));
    row("nothing to correct is no selection", 400, R"({"error":"text is empty"})",
        problem(Problem::noSelection));
    row("an absent model is told", 503, {}, problem(Problem::modelUnavailable));
    row("a slow service is told", 504, {}, problem(Problem::timedOut));
    row("a broken service failed", 500, {}, problem(Problem::failed));
    row("no links are no links", 402, {}, RewriteOutcome::freeLimit({}, {}));
}

void SelectionSwapperTest::theReplyDecides() {
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(RewriteOutcome, outcome);
    Desktop desktop;
    desktop.service.transport.queue(status, body);
    QVERIFY(desktop.run() == outcome);
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::aSessionThatIsRefusedTwiceIsSignedOut() {
    Desktop desktop;
    desktop.service.transport.queue(401);
    desktop.service.transport.queue(401); // the exchange
    QVERIFY(desktop.run() == RewriteOutcome::signedOut());
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.isGivenBack());
    QVERIFY(!desktop.service.kept());
}

void SelectionSwapperTest::aTransportErrorDecides_data() {
    QTest::addColumn<int>("error");
    QTest::addColumn<RewriteOutcome>("outcome");
    QTest::newRow("offline is told") << int(TransportError::notConnectedToInternet)
                                     << RewriteOutcome::problem(Problem::offline);
    QTest::newRow("a time-out is told")
        << int(TransportError::timedOut) << RewriteOutcome::problem(Problem::timedOut);
    QTest::newRow("anything else failed")
        << int(TransportError::other) << RewriteOutcome::problem(Problem::failed);
}

void SelectionSwapperTest::aTransportErrorDecides() {
    QFETCH(int, error);
    QFETCH(RewriteOutcome, outcome);
    Desktop desktop;
    desktop.service.transport.queue(static_cast<TransportError>(error));
    QVERIFY(desktop.run() == outcome);
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::theFreeLimitCarriesItsLinks() {
    Desktop desktop;
    desktop.service.transport.queue(402, R"({"monthlyCheckoutUrl":"ftp://example.org/m",)"
                                         R"("yearlyCheckoutUrl":"https://example.org/y"})");
    QVERIFY(desktop.run() ==
            RewriteOutcome::freeLimit(std::nullopt, QUrl(QStringLiteral("https://example.org/y"))));
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::aRefusedWriteIsNotPastedAndTheClipboardGivenBack() {
    Desktop desktop;
    desktop.fieldWith(QStringLiteral("teh"));
    desktop.ignoresKeys();
    desktop.pasteboard.refusesWrites = true;
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::failed));
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.isUntouched());
}

void SelectionSwapperTest::nothingIsPastedIntoAnotherPlace_data() {
    QTest::addColumn<int>("change");
    QTest::newRow("another program is in front") << 0;
    QTest::newRow("another window of the program is in front") << 1;
    QTest::newRow("nothing is in front") << 2;
    QTest::newRow("another element has the focus") << 3;
    QTest::newRow("no element has the focus") << 4;
    QTest::newRow("another part is selected") << 5;
    QTest::newRow("nothing is selected") << 6;
    QTest::newRow("the program hangs") << 7;
}

void SelectionSwapperTest::nothingIsPastedIntoAnotherPlace() {
    QFETCH(const int, change);
    Desktop desktop;
    desktop.workspace.front = Workspace::Application{42, 7};
    FakeElement& field = desktop.fieldWith(QStringLiteral("teh"));
    desktop.service.transport.queueHeld();
    std::optional<RewriteOutcome> outcome;
    auto task = keep(desktop.swapper.rewrite(), &outcome);
    for (int turn = 0; turn < 5000 && desktop.service.transport.requests.isEmpty(); ++turn) {
        QTest::qWait(0);
        desktop.service.clock.advanceToNextSleep();
    }
    const QList<std::function<void()>> changes{
        [&] {
            desktop.workspace.front = Workspace::Application{43, 7};
        },
        [&] {
            desktop.workspace.front = Workspace::Application{42, 8};
        },
        [&] { desktop.workspace.front.reset(); },
        [&] {
            desktop.accessibility.focus(42, QStringLiteral("another field"))
                .set(AccessibilityAttribute::selectedTextRange, TextRange{0, 3});
        },
        [&] { desktop.accessibility.unfocus(42); },
        [&] {
            field.set(AccessibilityAttribute::selectedTextRange, TextRange{4, 3});
        },
        [&] {
            field.set(AccessibilityAttribute::selectedTextRange, TextRange{3, 0});
        },
        [&] { field.fail(AccessibilityAttribute::selectedTextRange, AccessibilityError::cannotComplete); }};
    changes.at(change)();
    QVERIFY(desktop.service.transport.answer(0, 200, corrected(QStringLiteral("the"))));
    QTRY_VERIFY(outcome.has_value());
    QVERIFY(*outcome == RewriteOutcome::problem(Problem::failed));
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::whatTheUserCopiesWhileTheCorrectionIsPastedStays() {
    Desktop desktop;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        if (key == 8)
            desktop.pasteboard.copyElsewhere(QStringLiteral("teh"));
        else
            desktop.pasteboard.copyElsewhereAfter(
                std::chrono::milliseconds(300),
                {FakePasteboard::textItem(QStringLiteral("copied just now"))});
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QVERIFY(desktop.pasteboard.items() == QList{FakePasteboard::textItem(QStringLiteral("copied just now"))});
}

void SelectionSwapperTest::whatTheUserCopiesJustBeforeThePasteStays() {
    Desktop desktop;
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    int writes = 0;
    desktop.pasteboard.afterWrite = [&] {
        if (++writes == 2) // the first gives the clipboard back after the copy
            desktop.accessibility.beforeAnswer = [&] {
                desktop.pasteboard.copyElsewhere(QStringLiteral("copied just now"));
                desktop.accessibility.beforeAnswer = {};
            };
    };
    desktop.fieldWith(QStringLiteral("teh"));
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::failed));
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.pasteboard.items() == QList{FakePasteboard::textItem(QStringLiteral("copied just now"))});
}

void SelectionSwapperTest::aClipboardManagerThatTakesTheCorrectionUpDoesNotKeepIt() {
    Desktop desktop;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        desktop.pasteboard.copyElsewhere(key == 8 ? QStringLiteral("teh") : QStringLiteral("the"));
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::theGuardianHoldsTheClipboardWhileItIsBorrowed() {
    using State = FakeClipboardGuardian::State;
    Desktop desktop;
    QList<State> atKeys;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        atKeys.append(desktop.guardian.state);
        if (key == 8)
            desktop.pasteboard.copyElsewhere(QStringLiteral("teh"));
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(atKeys, QList<State>({State::borrowed, State::borrowed}));
    QVERIFY(desktop.guardian.held == desktop.mine);
    QCOMPARE(desktop.guardian.calls(), QStringList({QStringLiteral("hold"), QStringLiteral("settle"),
                                                    QStringLiteral("borrow"), QStringLiteral("settle")}));
}

void SelectionSwapperTest::theGuardianForgetsWhatTheUserHasReplaced() {
    Desktop desktop;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        desktop.pasteboard.copyElsewhere(key == 8 ? QStringLiteral("teh") : QStringLiteral("mine, just now"));
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QVERIFY(desktop.guardian.state == FakeClipboardGuardian::State::nothing);
}

void SelectionSwapperTest::theGuardianIsToldAlsoWhenNothingIsPasted() {
    Desktop ignoring;
    ignoring.ignoresKeys();
    ignoring.run();
    QVERIFY(ignoring.guardian.state == FakeClipboardGuardian::State::settled);
    Desktop offline;
    offline.service.transport.queue(TransportError::notConnectedToInternet);
    offline.run();
    QVERIFY(offline.guardian.state == FakeClipboardGuardian::State::settled);
    Desktop refusing;
    refusing.fieldWith(QStringLiteral("teh"));
    refusing.service.transport.queue(200, corrected(QStringLiteral("the")));
    refusing.pasteboard.afterWrite = [&] { refusing.pasteboard.refusesWrites = true; };
    refusing.run();
    QVERIFY(refusing.guardian.state == FakeClipboardGuardian::State::settled);
}

void SelectionSwapperTest::thePasteDelayIsClamped_data() {
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<int>("expected");
    QTest::newRow("50 is too short") << QVariant(50) << 100;
    QTest::newRow("5000 is too long") << QVariant(5000) << 3000;
    QTest::newRow("0 is none") << QVariant(0) << 600;
    QTest::newRow("-7 is none") << QVariant(-7) << 600;
    QTest::newRow("absent is none") << QVariant() << 600;
    QTest::newRow("250 is taken") << QVariant(250) << 250;
}

void SelectionSwapperTest::thePasteDelayIsClamped() {
    QFETCH(QVariant, stored);
    QFETCH(int, expected);
    Desktop desktop;
    if (stored.isValid())
        desktop.defaults.values.insert(QStringLiteral("vellumline.pasteDelayMs"), stored);
    QCOMPARE(desktop.swapper.pasteDelay().count(), expected);
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(desktop.service.clock.sleeps().last().count(), expected);
}

void SelectionSwapperTest::theCopyIsReadOnlyWhenItHasBeenQuiet() {
    Desktop desktop;
    using std::chrono::milliseconds;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        if (key == 8)
            desktop.pasteboard.copyElsewhereInSteps(
                {{milliseconds(15), {FakePasteboard::textItem(QStringLiteral("half"))}},
                 {milliseconds(30), {FakePasteboard::textItem(QStringLiteral("whole"))}}});
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(desktop.service.transport.requests.at(0).body, QByteArray("{\"text\":\"whole\"}"));
}

void SelectionSwapperTest::aChangeAtTheDeadlineStillCounts() {
    Desktop desktop;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        if (key == 8)
            desktop.pasteboard.copyElsewhereAfter(std::chrono::milliseconds(785),
                                                  {FakePasteboard::textItem(QStringLiteral("late"))});
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(desktop.service.transport.requests.at(0).body, QByteArray("{\"text\":\"late\"}"));
}

void SelectionSwapperTest::theClipboardIsBackWhileTheRequestIsUnderWay() {
    Desktop desktop;
    desktop.service.transport.queueHeld();
    std::optional<RewriteOutcome> outcome;
    auto task = keep(desktop.swapper.rewrite(), &outcome);
    for (int turn = 0; turn < 5000 && desktop.service.transport.requests.isEmpty(); ++turn) {
        QTest::qWait(0);
        desktop.service.clock.advanceToNextSleep();
    }
    QCOMPARE(desktop.service.transport.pending(), 1);
    QVERIFY(!outcome);
    bool alive = false;
    QMetaObject::invokeMethod(
        this, [&alive] { alive = true; }, Qt::QueuedConnection);
    QTRY_VERIFY(alive);
    QList<PasteboardItem> back = desktop.mine;
    Clipboard::markPrivate(back.first());
    QVERIFY(desktop.pasteboard.items() == back);
    QVERIFY(desktop.service.transport.answer(0, 503));
    QTRY_VERIFY(outcome.has_value());
    QVERIFY(*outcome == RewriteOutcome::problem(Problem::modelUnavailable));
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::aStoppedRunPastesNothingMore() {
    Desktop desktop;
    desktop.service.transport.queueHeld();
    std::optional<RewriteOutcome> outcome;
    auto task = keep(desktop.swapper.rewrite(), &outcome);
    for (int turn = 0; turn < 5000 && desktop.service.transport.requests.isEmpty(); ++turn) {
        QTest::qWait(0);
        desktop.service.clock.advanceToNextSleep();
    }
    QVERIFY(!desktop.swapper.holdsClipboard());
    desktop.swapper.stop();
    QVERIFY(desktop.service.transport.answer(0, 200, corrected(QStringLiteral("the"))));
    QTRY_VERIFY(outcome.has_value());
    QVERIFY(*outcome == RewriteOutcome::problem(Problem::failed));
    QCOMPARE(desktop.keys.posted(), QList<std::uint16_t>{8});
    QVERIFY(desktop.isGivenBack());
}

void SelectionSwapperTest::aStoppedSwapperCopiesNothing() {
    Desktop desktop;
    desktop.swapper.stop();
    QVERIFY(desktop.run() == RewriteOutcome::problem(Problem::failed));
    QVERIFY(desktop.keys.posted().isEmpty());
    QVERIFY(desktop.isUntouched());
}

void SelectionSwapperTest::theBorrowedClipboardIsKnown() {
    Desktop desktop;
    QList<bool> held;
    desktop.keys.setAnswer([&](std::uint16_t key) {
        held.append(desktop.swapper.holdsClipboard());
        if (key == 8)
            desktop.pasteboard.copyElsewhere(QStringLiteral("teh"));
    });
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    QVERIFY(desktop.run() == RewriteOutcome::rewrote());
    QCOMPARE(held, QList<bool>({true, true}));
    QVERIFY(!desktop.swapper.holdsClipboard());
}

void SelectionSwapperTest::theAccessibilitySettingsAreOpenedByURL() {
    Desktop desktop;
    desktop.swapper.openAccessibilitySettings();
    QCOMPARE(desktop.workspace.openedURLs(),
             QList<QUrl>{QUrl(QStringLiteral("x-apple.systempreferences:com.apple.preference.security?"
                                             "Privacy_Accessibility"))});
}

namespace {

QStringList toldSteps;

void noteStep(QtMsgType, const QMessageLogContext& context, const QString& message) {
    if (QLatin1String(context.category) == QLatin1String("vellumline.timing"))
        toldSteps.append(message.section(QLatin1Char(' '), 0, -2));
}

} // namespace

void SelectionSwapperTest::theStepsAreToldToWhoeverAsksAndNothingElse() {
    toldSteps.clear();
    const QtMessageHandler before = qInstallMessageHandler(noteStep);
    const auto restored = qScopeGuard([before] {
        QLoggingCategory::setFilterRules(QString());
        qInstallMessageHandler(before);
    });
    Desktop silent;
    silent.service.transport.queue(200, corrected(QStringLiteral("the")));
    silent.run();
    QVERIFY(toldSteps.isEmpty());

    QLoggingCategory::setFilterRules(QStringLiteral("vellumline.timing=true"));
    Desktop desktop;
    desktop.service.transport.queue(200, corrected(QStringLiteral("the")));
    desktop.run();
    const auto step = [](const char* name) { return QString::fromLatin1(name); };
    QCOMPARE(toldSteps, QStringList({step("begun"), step("probed"), step("snapshot"), step("guarded"),
                                     step("copy posted"), step("changed"), step("settled"), step("copy read"),
                                     step("asking"), step("answered"), step("written"), step("same place"),
                                     step("paste posted"), step("given back")}));
}

QTEST_GUILESS_MAIN(SelectionSwapperTest)
#include "tst_selectionswapper.moc"
