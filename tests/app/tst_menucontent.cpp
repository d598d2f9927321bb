#include "Vellumline/MenuContent.h"
#include "fakes/ModelOnFakes.h"

#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

using namespace vellumline;

namespace {

struct Menu {
    explicit Menu(std::unique_ptr<ModelOnFakes> made = std::make_unique<ModelOnFakes>())
        : fakes(std::move(made)),
          content(fakes->model(), {[this] { ++updateChecks; }, {}, [this] { ++quits; }}) {
        content.show();
    }

    QPushButton* button(const char* text) const {
        for (auto* each : content.findChildren<QPushButton*>()) {
            if (each->text() == QString::fromUtf8(text) && each->isVisible())
                return each;
        }
        return nullptr;
    }
    bool shows(const char* text) const {
        for (const auto* each : content.findChildren<QLabel*>()) {
            if (each->text() == QString::fromUtf8(text) && each->isVisible())
                return true;
        }
        return false;
    }
    void press(const char* toolTip) const {
        for (auto* each : content.findChildren<QToolButton*>()) {
            if (each->toolTip() == QString::fromUtf8(toolTip))
                each->click();
        }
    }

    std::unique_ptr<ModelOnFakes> fakes;
    int updateChecks = 0;
    int quits = 0;
    MenuContent content;
};

} // namespace

class MenuContentTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void signedOutOffersToSignIn() {
        const Menu f;
        QVERIFY(f.shows("Not signed in."));
        QVERIFY(f.button("Sign in"));
        QVERIFY(!f.button("Account"));
        QVERIFY(!f.button("Sign out"));
        QVERIFY(f.button("Check for Updates…"));
        QVERIFY(f.button("Quit"));
        QVERIFY(!f.button("Allow Accessibility…"));
        f.button("Sign in")->click();
        QVERIFY(f.shows("Finish signing in in your browser."));
        QVERIFY(!f.button("Sign in"));
        QVERIFY(f.button("Open the sign-in page again"));
    }

    void aLateLinkIsSaidAboveTheSignInButton() {
        const Menu f;
        QCoro::waitFor(f.fakes->model().open(QStringLiteral("vellumline://auth?handoff=abcdefghijklmnop")));
        QVERIFY(f.shows("That sign-in link was not started from this Mac. Sign in again."));
        QVERIFY(f.button("Sign in"));
    }

    void signedInShowsTheAccountThePlanAndTheHint() {
        const Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 3, 30)));
        QVERIFY(f.shows("Signed in as ada@example.org."));
        QVERIFY(f.shows("Free · 3 of 30 used"));
        QVERIFY(f.shows("Select text, then press ⌃⌥R."));
        QVERIFY(!f.button("Sign in"));
        QVERIFY(f.button("Account"));
        f.button("Account")->click();
        QCOMPARE(f.fakes->workspace.openedURLs().last(),
                 QUrl(QStringLiteral("https://www.example.org/account/")));
        f.button("Sign out")->click();
        QVERIFY(f.shows("Not signed in."));
    }

    void plansAreOfferedToFreeAccountsNearTheirEnd_data() {
        QTest::addColumn<QByteArray>("account");
        QTest::addColumn<bool>("offered");
        QTest::newRow("25 of 30: five are left") << ModelOnFakes::accountBody("free", 25, 30) << true;
        QTest::newRow("24 of 30: six are left") << ModelOnFakes::accountBody("free", 24, 30) << false;
        QTest::newRow("31 of 30: past the end") << ModelOnFakes::accountBody("free", 31, 30) << true;
        QTest::newRow("a yearly plan never") << ModelOnFakes::accountBody("yearly", 31, 30) << false;
        QTest::newRow("a monthly plan never") << ModelOnFakes::accountBody("monthly", 31, 30) << false;
    }

    void plansAreOfferedToFreeAccountsNearTheirEnd() {
        QFETCH(const QByteArray, account);
        QFETCH(const bool, offered);
        const Menu f(ModelOnFakes::signedIn(account));
        QCOMPARE(f.button("Monthly") != nullptr, offered);
        QCOMPARE(f.button("Yearly") != nullptr, offered);
        if (offered) {
            f.button("Yearly")->click();
            QCOMPARE(f.fakes->workspace.openedURLs().last(),
                     QUrl(QStringLiteral("https://www.example.org/account/?plan=yearly")));
        }
    }

    void aNoticeIsShownUnderThePlan() {
        const Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 29, 30)));
        QVERIFY(f.shows("1 free rewrite left."));
    }

    void busyHidesTheStatus() {
        const Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("paid", 3, 30)));
        f.fakes->model().setStatus(MenuStatus::rewrote());
        QVERIFY(f.shows("Rewrote the selection."));
        f.fakes->rewrite();
        QVERIFY(f.shows("Correcting…"));
        QVERIFY(!f.shows("Rewrote the selection."));
        f.fakes->rewriter.finish(RewriteOutcome::problem(RewriteProblem::Kind::noSelection));
        QVERIFY(f.shows("Select some text first, then press ⌃⌥R."));
    }

    void missingAccessIsOffered() {
        const Menu f;
        f.fakes->accessibility.trusted = false;
        f.fakes->model().refreshTrust();
        QVERIFY(f.button("Allow Accessibility…"));
        f.fakes->accessibility.trustedAfterRequest = true;
        f.button("Allow Accessibility…")->click();
        QVERIFY(!f.button("Allow Accessibility…"));
    }

    void theCommandsReachTheProgram() {
        const Menu f;
        f.button("Check for Updates…")->click();
        f.button("Quit")->click();
        QCOMPARE(f.updateChecks, 1);
        QCOMPARE(f.quits, 1);
    }

    void recordingIsShownAndDoneEndsIt() {
        const Menu f;
        f.press("Settings");
        QVERIFY(f.shows("Settings"));
        QVERIFY(f.shows("Include Control, Option, or Command. Escape cancels."));
        QVERIFY(f.shows("⌃⌥R"));
        f.button("Change")->click();
        QVERIFY(f.button("Press keys…"));
        f.fakes->keyMonitor.press({3, HotkeyModifiers::shift, QStringLiteral("f")});
        QTest::qWait(1);
        QVERIFY(f.shows("Include Control, Option, or Command."));
        f.button("Done")->click();
        QVERIFY(!f.fakes->model().recordingHotkey());
        QVERIFY(f.shows("Vellumline"));
        QVERIFY(!f.shows("Settings"));
    }

    void openingTheMainPageMakesItsFiguresFresh() {
        Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 3, 30)));
        const qsizetype before = f.fakes->accountRequests();
        f.content.willShow();
        ModelOnFakes::waitUntil([&] { return f.fakes->accountRequests() == before + 1; });
        f.press("About Vellumline");
        QVERIFY(f.shows("Version 0.1.0"));
        f.content.willShow();
        QTest::qWait(1);
        QCOMPARE(f.fakes->accountRequests(), before + 1);
        f.button("Done")->click();
        ModelOnFakes::waitUntil([&] { return f.fakes->accountRequests() == before + 2; });
    }
};

QTEST_MAIN(MenuContentTest)
#include "tst_menucontent.moc"
