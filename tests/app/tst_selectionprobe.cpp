#include "Vellumline/SelectionProbe.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeSecureInput.h"
#include "fakes/FakeWorkspace.h"

#include <QTest>
#include <optional>

using namespace vellumline;
using Kind = ProbeAnswer::Kind;
namespace Attribute = AccessibilityAttribute;

Q_DECLARE_METATYPE(vellumline::AccessibilityError)
Q_DECLARE_METATYPE(vellumline::ProbeAnswer::Kind)

namespace {

constexpr qint64 editorPid = 42;
const QString sentence = QStringLiteral("i has went to the shop");

/// What "is it settable" answers: yes, no or an error.
enum class Settable { yes, no, error };

void answer(FakeElement& element, const QString& attribute, Settable settable) {
    if (settable == Settable::error)
        element.failSettable(attribute, AccessibilityError::cannotComplete);
    else
        element.setSettable(attribute, settable == Settable::yes);
}

} // namespace

class SelectionProbeTest : public QObject {
    Q_OBJECT

  private:
    struct Desktop {
        QStringList log;
        FakeClock clock;
        FakeAccessibility accessibility{&log, &clock};
        FakeWorkspace workspace{&log};
        FakeSecureInput secureInput{&log};
        SelectionProbe probe{accessibility, workspace, secureInput};

        Desktop() { workspace.front = Workspace::Application{editorPid}; }
        /// An editable text with a selection.
        FakeElement& editor() {
            return accessibility.focus(editorPid, QStringLiteral("editor"))
                .set(Attribute::role, QStringLiteral("AXTextArea"))
                .set(Attribute::selectedTextRange, TextRange{3, sentence.size()})
                .set(Attribute::selectedText, sentence)
                .setSettable(Attribute::selectedText, true);
        }
        ProbeAnswer answer() { return QCoro::waitFor(probe.focused()); }
    };

  private Q_SLOTS:
    void secureInputInAnotherApplicationIsSecureWithoutAnyAccessibilityCall() {
        Desktop desktop;
        desktop.editor();
        desktop.secureInput.enabled = true;
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::secure));
        QCOMPARE(desktop.log, QStringList{QStringLiteral("isSecureEventInputEnabled")});
    }

    void noFrontApplicationIsUnknownWithoutAnyAccessibilityCall() {
        Desktop desktop;
        desktop.workspace.front.reset();
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::unknown));
        QCOMPARE(desktop.accessibility.calls(), QStringList());
    }

    void theLongestWayTakesEightCallsInTheirOrder() {
        Desktop desktop;
        FakeElement& editor = desktop.editor();
        editor.setSettable(Attribute::selectedText, false).setSettable(Attribute::value, true);
        QCOMPARE(desktop.answer(), ProbeAnswer::editable(sentence));
        const QStringList expected{
            QStringLiteral("isSecureEventInputEnabled"),
            QStringLiteral("frontmostApplication"),
            QStringLiteral("applicationElement(42)"),
            QStringLiteral("setMessagingTimeout(application 42, 250)"),
            QStringLiteral("setAttribute(application 42, AXManualAccessibility, true)"),
            QStringLiteral("copyAttribute(application 42, AXFocusedUIElement)"),
            QStringLiteral("copyAttribute(editor, AXSubrole)"),
            QStringLiteral("copyAttribute(editor, AXRole)"),
            QStringLiteral("copyAttribute(editor, AXSelectedTextRange)"),
            QStringLiteral("isAttributeSettable(editor, AXSelectedText)"),
            QStringLiteral("isAttributeSettable(editor, AXValue)"),
            QStringLiteral("copyAttribute(editor, AXSelectedText)"),
        };
        QCOMPARE(desktop.log, expected);
        QCOMPARE(desktop.accessibility.messages(), 8);
    }

    void aSecondProbeOfTheSameApplicationDoesNotSwitchItsTreeOnAgain() {
        Desktop desktop;
        desktop.editor();
        desktop.answer();
        desktop.accessibility.clearCalls();
        QCOMPARE(desktop.answer(), ProbeAnswer::editable(sentence));
        QCOMPARE(desktop.accessibility.calls().filter(Attribute::manualAccessibility), QStringList());
    }

    void eachApplicationIsSwitchedOnceEvenWhenItRefuses() {
        Desktop desktop;
        desktop.accessibility.application(editorPid).takesAttributes = false;
        desktop.accessibility.application(7).takesAttributes = false;
        for (const qint64 pid : {editorPid, qint64(7), editorPid, qint64(7)}) {
            desktop.workspace.front = Workspace::Application{pid};
            desktop.answer();
        }
        const QStringList expected{
            QStringLiteral("setAttribute(application 42, AXManualAccessibility, true)"),
            QStringLiteral("setAttribute(application 7, AXManualAccessibility, true)"),
        };
        QCOMPARE(desktop.accessibility.calls().filter(Attribute::manualAccessibility), expected);
    }

    void theTimeoutIsSetOnEveryProbeBeforeAnyOtherCall() {
        Desktop desktop;
        desktop.editor();
        for (int i = 0; i < 2; ++i) {
            desktop.accessibility.clearCalls();
            desktop.answer();
            QCOMPARE(desktop.accessibility.calls().at(0), QStringLiteral("applicationElement(42)"));
            QCOMPARE(desktop.accessibility.calls().at(1),
                     QStringLiteral("setMessagingTimeout(application 42, 250)"));
        }
    }

    void anUnusableFocusedElementIsUnknown_data() {
        QTest::addColumn<int>("kind");
        QTest::newRow("the call fails") << 0;
        QTest::newRow("the application does not answer") << 1;
        QTest::newRow("there is no such attribute") << 2;
        QTest::newRow("nothing is focused") << 3;
        QTest::newRow("the answer is a text") << 4;
        QTest::newRow("the answer is a range") << 5;
    }
    void anUnusableFocusedElementIsUnknown() {
        QFETCH(int, kind);
        Desktop desktop;
        FakeElement& root = desktop.accessibility.application(editorPid);
        switch (kind) {
        case 0:
            root.fail(Attribute::focusedElement, AccessibilityError::failed);
            break;
        case 1:
            root.fail(Attribute::focusedElement, AccessibilityError::cannotComplete);
            break;
        case 2:
            break;
        case 3:
            root.set(Attribute::focusedElement, AccessibilityElement());
            break;
        case 4:
            root.set(Attribute::focusedElement, QStringLiteral("editor"));
            break;
        default:
            root.set(Attribute::focusedElement, TextRange{0, 4});
            break;
        }
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::unknown));
        QVERIFY(desktop.accessibility.calls().last().startsWith(
            QStringLiteral("copyAttribute(application 42, AXFocusedUIElement")));
    }

    void aPasswordFieldIsSecureBySubroleOrRole_data() {
        QTest::addColumn<QString>("attribute");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("secure");
        QTest::newRow("its subrole says so")
            << Attribute::subrole << QStringLiteral("AXSecureTextField") << true;
        QTest::newRow("its role says so") << Attribute::role << QStringLiteral("AXSecureTextField") << true;
        QTest::newRow("another case is another name")
            << Attribute::subrole << QStringLiteral("axsecuretextfield") << false;
        QTest::newRow("a longer name is another name")
            << Attribute::role << QStringLiteral("AXSecureTextField2") << false;
    }
    void aPasswordFieldIsSecureBySubroleOrRole() {
        QFETCH(QString, attribute);
        QFETCH(QString, name);
        QFETCH(bool, secure);
        Desktop desktop;
        desktop.editor().set(attribute, name);
        QCOMPARE(desktop.answer().kind, secure ? Kind::secure : Kind::editable);
        QCOMPARE(desktop.accessibility.calls().filter(Attribute::selectedTextRange).isEmpty(), secure);
    }

    void aSubroleThatIsNotATextLeavesTheDecisionToTheRole() {
        Desktop desktop;
        desktop.editor().set(Attribute::subrole, true).set(Attribute::role, Attribute::secureTextField);
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::secure));
    }

    void anElementWithoutRoleAndSubroleIsNotSecure() {
        Desktop desktop;
        desktop.editor()
            .fail(Attribute::subrole, AccessibilityError::failed)
            .fail(Attribute::role, AccessibilityError::failed);
        QCOMPARE(desktop.answer(), ProbeAnswer::editable(sentence));
    }

    void aCaretWithoutASelectionIsAnEmptySelection() {
        Desktop desktop;
        desktop.editor().set(Attribute::selectedTextRange, TextRange{11, 0});
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::emptySelection));
        QCOMPARE(desktop.accessibility.calls().filter(QStringLiteral("isAttributeSettable")), QStringList());
    }

    void anUnusableSelectedRangeIsUnknown_data() {
        QTest::addColumn<int>("kind");
        QTest::newRow("the application does not implement it") << 0;
        QTest::newRow("the call fails") << 1;
        QTest::newRow("the application does not answer") << 2;
        QTest::newRow("the answer is a text") << 3;
        QTest::newRow("the answer is an element") << 4;
    }
    void anUnusableSelectedRangeIsUnknown() {
        QFETCH(int, kind);
        Desktop desktop;
        FakeElement& editor = desktop.editor();
        switch (kind) {
        case 0:
            editor.attributes.remove(Attribute::selectedTextRange);
            break;
        case 1:
            editor.fail(Attribute::selectedTextRange, AccessibilityError::failed);
            break;
        case 2:
            editor.fail(Attribute::selectedTextRange, AccessibilityError::cannotComplete);
            break;
        case 3:
            editor.set(Attribute::selectedTextRange, QStringLiteral("3..25"));
            break;
        default:
            editor.set(Attribute::selectedTextRange, AccessibilityElement());
            break;
        }
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::unknown));
    }

    void theTwoSettableAnswersDecide_data() {
        QTest::addColumn<int>("selectedText");
        QTest::addColumn<int>("value");
        QTest::addColumn<Kind>("kind");
        const auto row = [](const char* sentence, Settable selectedText, Settable value, Kind kind) {
            QTest::newRow(sentence) << int(selectedText) << int(value) << kind;
        };
        row("yes is enough", Settable::yes, Settable::error, Kind::editable);
        row("no, then yes is editable", Settable::no, Settable::yes, Kind::editable);
        row("an error, then yes is editable", Settable::error, Settable::yes, Kind::editable);
        row("no and no is read-only", Settable::no, Settable::no, Kind::readOnly);
        row("no and an error is read-only", Settable::no, Settable::error, Kind::readOnly);
        row("an error and no is read-only", Settable::error, Settable::no, Kind::readOnly);
        row("two errors leave it unknown", Settable::error, Settable::error, Kind::unknown);
    }
    void theTwoSettableAnswersDecide() {
        QFETCH(int, selectedText);
        QFETCH(int, value);
        QFETCH(Kind, kind);
        Desktop desktop;
        FakeElement& editor = desktop.editor();
        ::answer(editor, Attribute::selectedText, Settable(selectedText));
        ::answer(editor, Attribute::value, Settable(value));
        const ProbeAnswer expected =
            kind == Kind::editable ? ProbeAnswer::editable(sentence) : ProbeAnswer::of(kind);
        QCOMPARE(desktop.answer(), expected);
        const bool askedForTheValue =
            !desktop.accessibility.calls().filter(QStringLiteral("AXValue")).isEmpty();
        QCOMPARE(askedForTheValue, Settable(selectedText) != Settable::yes);
        const bool askedForTheText =
            desktop.accessibility.calls().contains(QStringLiteral("copyAttribute(editor, AXSelectedText)"));
        QCOMPARE(askedForTheText, kind == Kind::editable);
    }

    void aSelectionInTheTextOfAReadOnlyPageIsReadOnly() {
        Desktop desktop;
        desktop.editor()
            .set(Attribute::role, QStringLiteral("AXWebArea"))
            .setSettable(Attribute::selectedText, false)
            .setSettable(Attribute::value, false);
        QCOMPARE(desktop.answer(), ProbeAnswer::of(Kind::readOnly));
    }

    void anUnusableSelectedTextIsEditableWithoutText_data() {
        QTest::addColumn<std::optional<QString>>("text");
        QTest::newRow("with an embedded image") << std::optional(QStringLiteral("see \uFFFC here"));
        QTest::newRow("an embedded image alone") << std::optional(QStringLiteral("\uFFFC"));
        QTest::newRow("empty") << std::optional(QString());
        QTest::newRow("not readable") << std::optional<QString>();
    }
    void anUnusableSelectedTextIsEditableWithoutText() {
        QFETCH(std::optional<QString>, text);
        Desktop desktop;
        FakeElement& editor = desktop.editor();
        if (text)
            editor.set(Attribute::selectedText, *text);
        else
            editor.fail(Attribute::selectedText, AccessibilityError::cannotComplete);
        QCOMPARE(desktop.answer(), ProbeAnswer::editable(std::nullopt));
    }

    void aSelectedTextOfAnotherTypeIsEditableWithoutText() {
        Desktop desktop;
        desktop.editor().set(Attribute::selectedText, TextRange{0, 3});
        QCOMPARE(desktop.answer(), ProbeAnswer::editable(std::nullopt));
    }

    void aTextOfWhiteSpaceIsHandedOnUntouched() {
        Desktop desktop;
        desktop.editor().set(Attribute::selectedText, QStringLiteral(" \r\n\t"));
        QCOMPARE(desktop.answer(), ProbeAnswer::editable(QStringLiteral(" \r\n\t")));
    }

    void aHungApplicationIsUnknownWithinTheTimeoutOfEachCall() {
        Desktop desktop;
        desktop.editor();
        desktop.accessibility.delay = std::chrono::seconds(30);
        std::optional<ProbeAnswer> answer;
        desktop.probe.focused().then([&answer](ProbeAnswer given) { answer = std::move(given); });
        QVERIFY(!answer); // it suspended
        const auto start = desktop.clock.monotonic();
        while (desktop.clock.advanceToNextSleep()) {
        }
        QVERIFY(answer);
        QCOMPARE(*answer, ProbeAnswer::of(Kind::unknown));
        // The switch and the focused element, a quarter of a second each.
        QCOMPARE(desktop.clock.monotonic() - start, std::chrono::nanoseconds(std::chrono::milliseconds(500)));
        QCOMPARE(desktop.clock.pendingSleeps(), 0);
    }

    void aSlowApplicationIsGivenASecondBeforeAPaste_data() {
        QTest::addColumn<int>("delay");
        QTest::addColumn<bool>("isThere");
        QTest::newRow("it answers") << 900 << true;
        QTest::newRow("it hangs") << 30'000 << false;
    }
    void aSlowApplicationIsGivenASecondBeforeAPaste() {
        QFETCH(const int, delay);
        Desktop desktop;
        desktop.editor();
        const ProbeTarget target = desktop.answer().target;
        desktop.accessibility.delay = std::chrono::milliseconds(delay);
        std::optional<bool> isThere;
        desktop.probe.isStillThere(target).then([&isThere](bool given) { isThere = given; });
        while (desktop.clock.advanceToNextSleep()) {
        }
        QVERIFY(isThere);
        QTEST(*isThere, "isThere");
    }
};

QTEST_GUILESS_MAIN(SelectionProbeTest)
#include "tst_selectionprobe.moc"
