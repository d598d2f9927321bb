#include "Vellumline/SelectionSwapper.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeClipboardGuardian.h"
#include "fakes/FakeKeyEvents.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakeSecureInput.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/SignedInService.h"

#include <QFile>
#include <QTest>
#include <malloc.h>
#include <unistd.h>

using namespace vellumline;

namespace {

constexpr int warmUp = 1000;
constexpr int corrections = 10000;
// A leak of 210 bytes in each correction; a QString alone has 24 besides its text.
constexpr double mostGrowthInMegabytes = 2;

/// The resident memory of this process, without what the allocator merely keeps.
double residentMegabytes() {
    malloc_trim(0);
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const auto pages = file.readAll().split(' ').value(1).toDouble();
    return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

QCoro::Task<void> keep(QCoro::Task<RewriteOutcome> run, std::optional<RewriteOutcome>* outcome) {
    *outcome = co_await run;
}

/// A program in front with a text that is selected, a user's clipboard, and a service that corrects it.
struct Desktop {
    Desktop() {
        workspace.front = Workspace::Application{42};
        accessibility.focus(42, QStringLiteral("field"))
            .set(AccessibilityAttribute::selectedTextRange, TextRange{0, 3})
            .set(AccessibilityAttribute::selectedText, QStringLiteral("teh"))
            .setSettable(AccessibilityAttribute::selectedText, true);
        keys.setAnswer([this](std::uint16_t key) {
            if (key == 8)
                pasteboard.copyElsewhere({FakePasteboard::textItem(
                    QStringLiteral("teh"), "{\\rtf1{\\fonttbl{\\f0 Serif;}}\\f0 teh}")});
        });
    }

    bool correct() {
        pasteboard.copyElsewhere({FakePasteboard::textItem(QStringLiteral("mine"), "{\\rtf1 mine}")});
        service.transport.queue(200, "{\"text\":\"the\"}");
        std::optional<RewriteOutcome> outcome;
        auto task = keep(swapper.rewrite(), &outcome);
        for (int turn = 0; turn < 5000 && !outcome; ++turn) {
            QTest::qWait(0);
            service.clock.advanceToNextSleep();
        }
        // The fakes write down everything that they are asked.
        service.transport.clearCalls();
        service.clock.clearCalls();
        accessibility.clearCalls();
        workspace.clearCalls();
        secureInput.clearCalls();
        pasteboard.clearCalls();
        keys.clearCalls();
        guardian.clearCalls();
        return outcome == RewriteOutcome::rewrote();
    }

    SignedInService service{sessionWith(tokenExpiring(2e9))};
    FakeAccessibility accessibility;
    FakeWorkspace workspace;
    FakeSecureInput secureInput;
    FakePasteboard pasteboard{service.clock};
    FakeKeyEvents keys;
    FakeUserDefaults defaults;
    SelectionProbe probe{accessibility, workspace, secureInput};
    RewriteClient client{service.api, exampleConfig()};
    FakeClipboardGuardian guardian;
    SelectionSwapper swapper{service.store, accessibility, probe,     pasteboard, guardian,
                             keys,          client,        workspace, defaults,   service.clock};
};

} // namespace

class SteadyMemoryTest : public QObject {
    Q_OBJECT
  private Q_SLOTS:
    void tenThousandCorrectionsTakeNoMemory() {
#ifdef __SANITIZE_ADDRESS__
        QSKIP("AddressSanitizer keeps what was freed; its leak check looks instead");
#endif
        Desktop desktop;
        for (int i = 0; i < warmUp; ++i)
            QVERIFY(desktop.correct());
        const double before = residentMegabytes();
        for (int i = 0; i < corrections; ++i)
            QVERIFY(desktop.correct());
        const double after = residentMegabytes();
        qInfo("resident memory: %.2f MB after %d corrections, %.2f MB after %d more", before, warmUp, after,
              corrections);
        QVERIFY(before > 0);
        QVERIFY(after - before < mostGrowthInMegabytes);
    }
};

QTEST_GUILESS_MAIN(SteadyMemoryTest)
#include "tst_steadymemory.moc"
