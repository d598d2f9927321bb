#include "Vellumline/Doctor.h"
#include "VellumlineCore/HotkeyBinding.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeHTTPTransport.h"
#include "fakes/FakeKeyEvents.h"
#include "fakes/FakeKeychain.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakeSecureInput.h"
#include "fakes/SignedInService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace vellumline;
using Verdict = Finding::Verdict;

namespace {

class FakeField final : public PracticeField {
  public:
    void show() override { shown = true; }
    bool hasKeyboard() const override { return shown && focused; }
    void setText(const QString& text) override { content = text; }
    QString text() const override { return content; }
    void selectAll() override { selected = true; }
    void close() override { shown = false; }

    QString content;
    bool shown = false, focused = true, selected = false;
};

class NoGuardian final : public ClipboardGuardian {
  public:
    QCoro::Task<void> hold(QList<PasteboardItem> /*items*/) override { co_return; }
    void borrow() override {}
    void settle() override {}
    void forget() override {}
};

DisplayFacts wholeDisplay() {
    DisplayFacts facts;
    facts.display = QStringLiteral(":0");
    facts.windowManager = QStringLiteral("Openbox");
    facts.connected = true;
    return facts;
}

/// The trial of the keys with a desktop that does what the test says.
struct KeyTrial {
    Finding run() {
        std::optional<Finding> result;
        finish(&result);
        for (int step = 0; step < 1000 && !result; ++step)
            if (!clock.advanceToNextSleep())
                QTest::qWait(1);
        return result.value_or(Finding{});
    }
    QCoro::Task<void> finish(std::optional<Finding>* result) {
        const Finding made =
            co_await examine::keys(field, pasteboard, guardian, keyEvents, secureInput, clock);
        *result = made;
    }
    void obeyKeys() {
        keyEvents.setAnswer([this](std::uint16_t key) {
            if (key == KeyCode::c && field.selected)
                pasteboard.copyElsewhere(field.content);
            if (key == KeyCode::v)
                field.content = QString::fromUtf8(
                    pasteboard.items().value(0).data(PasteboardType::string).value_or(QByteArray()));
        });
    }

    FakeClock clock;
    FakePasteboard pasteboard{clock};
    FakeKeyEvents keyEvents;
    FakeSecureInput secureInput;
    NoGuardian guardian;
    FakeField field;
};

} // namespace

class DoctorTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aWholeDisplayIsGood() {
        const Finding finding = examine::display(wholeDisplay());
        QCOMPARE(finding.verdict, Verdict::good);
        QVERIFY(finding.seen.contains(QStringLiteral("Openbox")));
        QVERIFY(finding.advice.isEmpty());
    }

    void whatTheDisplayLacksIsNamed() {
        DisplayFacts facts = wholeDisplay();
        facts.missing = {QStringLiteral("XTEST")};
        QCOMPARE(examine::display(facts).verdict, Verdict::problem);
        QVERIFY(examine::display(facts).seen.contains(QStringLiteral("XTEST")));
    }

    void aWaylandSessionIsNoted() {
        DisplayFacts facts = wholeDisplay();
        facts.waylandDisplay = QStringLiteral("wayland-0");
        QCOMPARE(examine::display(facts).verdict, Verdict::note);
        facts.connected = false;
        QCOMPARE(examine::display(facts).verdict, Verdict::problem);
        QVERIFY(examine::display(facts).seen.contains(QStringLiteral("wayland-0")));
    }

    void whatIsMissingComesWithWhatToDo() {
        const QList<Finding> findings = {
            examine::display({}),
            examine::program(std::nullopt),
            examine::shortcut(QStringLiteral("⌃⌥R"), false),
            examine::accessibility(false),
            examine::focus({}, ProbeAnswer::of(ProbeAnswer::Kind::readOnly)),
            examine::tray({}),
            examine::links({}),
            examine::links({QStringLiteral("a.desktop"), QStringLiteral("/gone"), false, true}),
            examine::correction(examine::practiceSentence, {})};
        for (const Finding& finding : findings) {
            QVERIFY2(finding.verdict == Verdict::problem || finding.verdict == Verdict::note,
                     qPrintable(finding.check));
            QVERIFY2(!finding.seen.isEmpty() && !finding.advice.isEmpty(), qPrintable(finding.check));
        }
    }

    void whatIsThereNeedsNoAdvice() {
        const QList<Finding> findings = {
            examine::program(QStringLiteral("1.0")),
            examine::shortcut(QStringLiteral("⌃⌥R"), true),
            examine::accessibility(true),
            examine::focus(QStringLiteral("Mousepad"), ProbeAnswer::editable(QStringLiteral("text"))),
            examine::tray({true, false}),
            examine::tray({false, true}),
            examine::links({QStringLiteral("a.desktop"), QStringLiteral("/there"), true, true}),
            examine::correction(QStringLiteral("I went."), {})};
        for (const Finding& finding : findings) {
            QVERIFY2(finding.verdict == Verdict::good, qPrintable(finding.check));
            QVERIFY2(finding.advice.isEmpty(), qPrintable(finding.check));
        }
    }

    void theTextInFrontIsCountedAndNotShown() {
        const Finding finding =
            examine::focus(QStringLiteral("Mousepad"), ProbeAnswer::editable(QStringLiteral("secret")));
        QVERIFY(finding.seen.contains(QLatin1Char('6')));
        QVERIFY(!finding.seen.contains(QStringLiteral("secret")));
    }

    void theKeyringIsLeftAsItWas() {
        FakeKeychain keychain;
        QCOMPARE(QCoro::waitFor(examine::keyring(keychain)).verdict, Verdict::good);
        QVERIFY(keychain.items.isEmpty());
        keychain.condition = Keychain::Status::locked;
        QVERIFY(QCoro::waitFor(examine::keyring(keychain)).seen.contains(QStringLiteral("locked")));
        keychain.condition = Keychain::Status::unavailable;
        QCOMPARE(QCoro::waitFor(examine::keyring(keychain)).verdict, Verdict::note);
    }

    void theServiceIsAskedWhetherItIsReady() {
        FakeHTTPTransport transport;
        FakeClock clock;
        transport.queue(200, "ready");
        QCOMPARE(QCoro::waitFor(examine::service(transport, exampleConfig(), clock)).verdict, Verdict::good);
        QVERIFY(transport.requests.first().url.path().endsWith(QStringLiteral("/readyz")));
        transport.queue(503, "no dictionary");
        const Finding unready = QCoro::waitFor(examine::service(transport, exampleConfig(), clock));
        QCOMPARE(unready.verdict, Verdict::problem);
        QVERIFY(unready.seen.contains(QStringLiteral("no dictionary")));
        transport.queue(TransportError::cannotConnectToHost);
        QCOMPARE(QCoro::waitFor(examine::service(transport, exampleConfig(), clock)).verdict,
                 Verdict::problem);
    }

    void aClipboardThatCannotBeReadIsAProblem() {
        FakeClock clock;
        FakePasteboard pasteboard(clock);
        QCOMPARE(QCoro::waitFor(examine::clipboard(pasteboard, clock)).verdict, Verdict::good);
        pasteboard.completeness = PasteboardContents::Completeness::partial;
        QCOMPARE(QCoro::waitFor(examine::clipboard(pasteboard, clock)).verdict, Verdict::note);
        pasteboard.completeness = PasteboardContents::Completeness::unreadable;
        QCOMPARE(QCoro::waitFor(examine::clipboard(pasteboard, clock)).verdict, Verdict::problem);
    }

    void keysThatArriveLeaveTheClipboardAsItWas() {
        KeyTrial trial;
        trial.pasteboard.copyElsewhere(QStringLiteral("what I had"));
        trial.obeyKeys();
        const Finding finding = trial.run();
        QVERIFY2(finding.verdict == Verdict::good, qPrintable(finding.seen));
        QCOMPARE(trial.pasteboard.items().value(0).data(PasteboardType::string),
                 std::optional(QByteArray("what I had")));
    }

    void keysThatDoNotArriveAreAProblem() {
        KeyTrial trial;
        QVERIFY(trial.run().seen.contains(QStringLiteral("Ctrl+C")));
        KeyTrial half;
        half.keyEvents.setAnswer([&half](std::uint16_t key) {
            if (key == KeyCode::c)
                half.pasteboard.copyElsewhere(half.field.content);
        });
        QVERIFY(half.run().seen.contains(QStringLiteral("Ctrl+V")));
    }

    void withoutTheKeyboardNothingIsTyped() {
        KeyTrial trial;
        trial.field.focused = false;
        QCOMPARE(trial.run().verdict, Verdict::problem);
        QVERIFY(trial.keyEvents.posted().isEmpty());
        KeyTrial held;
        held.secureInput.enabled = true;
        QCOMPARE(held.run().verdict, Verdict::problem);
        QVERIFY(held.keyEvents.posted().isEmpty());
    }

    void aClipboardThatWouldBeLostIsNotBorrowed() {
        KeyTrial trial;
        trial.pasteboard.completeness = PasteboardContents::Completeness::unreadable;
        QCOMPARE(trial.run().verdict, Verdict::skipped);
        QVERIFY(trial.keyEvents.posted().isEmpty());
    }

    void theReportIsHealthyUnlessSomethingIsAProblem() {
        DoctorReport report;
        report.add(examine::tray({}));
        report.add(examine::correctionSkipped(QStringLiteral("nobody is signed in"), {}));
        QVERIFY(report.isHealthy());
        report.add(examine::accessibility(false));
        QVERIFY(!report.isHealthy());
        const QJsonObject json = QJsonDocument::fromJson(report.json(QStringLiteral("1.2.3"))).object();
        QCOMPARE(json.value(QStringLiteral("healthy")).toBool(true), false);
        QCOMPARE(json.value(QStringLiteral("version")).toString(), QStringLiteral("1.2.3"));
        const QJsonArray findings = json.value(QStringLiteral("findings")).toArray();
        QCOMPARE(findings.size(), 3);
        for (const auto& finding : findings)
            for (const char* key : {"check", "title", "verdict", "tried", "seen", "advice"})
                QVERIFY(finding.toObject().contains(QLatin1String(key)));
        QCOMPARE(report.summary(), QStringLiteral("0 ok, 1 to note, 1 skipped, 1 problems\n"));
        QVERIFY(DoctorReport::text(report.findings().last()).startsWith(QStringLiteral("problem")));
    }
};

QTEST_MAIN(DoctorTest)
#include "tst_doctor.moc"
