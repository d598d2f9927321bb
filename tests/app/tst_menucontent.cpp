#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QTest>

using namespace vellumline;
using namespace vellumline::test;

namespace {

struct Menu {
    explicit Menu(std::unique_ptr<ModelOnFakes> made = std::make_unique<ModelOnFakes>())
        : fakes(std::move(made)),
          content(fakes->model(), {[this] { ++updateChecks; }, [this] { ++welcomes; },
                                   [this](const QUrl& link) { links.append(link); }, [this] { ++quits; }}) {
        content.show();
    }

    QStringList rows() const {
        QTest::qWait(1); // the layout
        return visibleTextStrings(&content);
    }
    QAbstractButton* button(const char* text) const {
        return test::button(&content, QString::fromUtf8(text));
    }
    bool shows(const char* text) const { return showing(&content, QString::fromUtf8(text)) != nullptr; }
    Style::Label* label(const char* text) const {
        return qobject_cast<Style::Label*>(showing(&content, QString::fromUtf8(text)));
    }
    Style::UsageBar* usage() const {
        auto* bar = content.findChild<Style::UsageBar*>();
        return bar->isVisible() ? bar : nullptr;
    }

    std::unique_ptr<ModelOnFakes> fakes;
    int updateChecks = 0;
    int welcomes = 0;
    int quits = 0;
    QList<QUrl> links;
    MenuContent content;
};

const QStringList head{QStringLiteral("Vellumline"), QStringLiteral("About Vellumline"),
                       QStringLiteral("Settings")};
const QStringList signedInFoot{QStringLiteral("Check for Updates…"), QStringLiteral("Account"),
                               QStringLiteral("Sign out"), QStringLiteral("Quit")};
const QStringList signedOutFoot{QStringLiteral("Check for Updates…"), QStringLiteral("Quit")};
const QString signedInAs = QStringLiteral("Signed in as ada@example.org.");
const QString hint = QStringLiteral("Select text, then press ⌃⌥R.");

QStringList texts(const char* rows) {
    return QString::fromUtf8(rows).split(QLatin1Char('|'), Qt::SkipEmptyParts);
}

} // namespace

class MenuContentTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void everyStateShowsItsRowsAndNoOthers_data() {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QStringList>("middle");
        QTest::addColumn<bool>("signedIn");
        const auto row = [](const char* state, const char* middle, bool signedIn) {
            QTest::newRow(state) << QString::fromUtf8(state) << texts(middle) << signedIn;
        };
        row("signed out", "Not signed in.|Sign in", false);
        row("signing in", "Finish signing in in your browser.|Open the sign-in page again", false);
        row("link not started here",
            "That sign-in link was not started from this Mac. Sign in again.|Sign in", false);
        row("sign-in not finished", "Sign-in did not finish. Sign in again.|Sign in", false);
        row("free", "Free · 3 of 30 used|Select text, then press ⌃⌥R.", true);
        row("free with five left",
            "Free · 25 of 30 used|5 free rewrites left.|Select text, then press ⌃⌥R.|Monthly|Yearly", true);
        row("free with one left",
            "Free · 29 of 30 used|1 free rewrite left.|Select text, then press ⌃⌥R.|Monthly|Yearly", true);
        row("free used up",
            "Free · 30 of 30 used|Free rewrites used up.|Select text, then press ⌃⌥R.|Monthly|Yearly", true);
        row("monthly", "Monthly plan|Select text, then press ⌃⌥R.", true);
        row("yearly canceled", "Yearly plan · renewal canceled|Select text, then press ⌃⌥R.", true);
        row("payment failed",
            "Monthly plan|Payment failed. Update your card on the account page.|Select text, then press ⌃⌥R.",
            true);
        row("paid", "Paid plan|Select text, then press ⌃⌥R.", true);
        row("closed",
            "Monthly plan|This account is closed. Reopen it on the account page.|Select text, then press "
            "⌃⌥R.",
            true);
        row("correcting", "Paid plan|Correcting…", true);
        row("corrected", "Free · 4 of 30 used|Rewrote the selection.", true);
        row("shortcut taken",
            "Not signed in.|Sign in|Could not register ⌃⌥R. Pick another shortcut in Settings.", false);
        row("access missing",
            "Free · 4 of 30 used|Allow Accessibility for Vellumline, then press ⌃⌥R again.|Allow "
            "Accessibility…",
            true);
        row("login item refused",
            "Free · 4 of 30 used|Could not change Open at login. Move Vellumline to Applications and try "
            "again.",
            true);
        row("problem nothing selected", "Paid plan|Select some text first, then press ⌃⌥R.", true);
    }

    void everyStateShowsItsRowsAndNoOthers() {
        QFETCH(const QString, state);
        QFETCH(const QStringList, middle);
        QFETCH(const bool, signedIn);
        const auto scenes = menuScenes();
        const auto scene = std::ranges::find(scenes, state, &Scene::state);
        QVERIFY(scene != scenes.end());
        const auto stage = scene->make();
        const QWidget* panel = scene->open(*stage);
        const QStringList expected = head + (signedIn ? QStringList{signedInAs} : QStringList()) + middle +
                                     (signedIn ? signedInFoot : signedOutFoot);
        QCOMPARE(visibleTextStrings(panel), expected);
    }

    void theSignInButtonStartsASignInAndOpensItsPageAgain() {
        const Menu f;
        f.button("Sign in")->click();
        QCOMPARE(f.fakes->workspace.openedURLs().size(), 1);
        QVERIFY(!f.button("Sign in"));
        f.button("Open the sign-in page again")->click();
        QCOMPARE(f.fakes->workspace.openedURLs().size(), 2);
        // Each has a challenge of its own: only the newest can complete.
        QVERIFY(f.fakes->workspace.openedURLs().at(0) != f.fakes->workspace.openedURLs().at(1));
    }

    void accountOpensItsPageAndSignOutSignsOut() {
        const Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 3, 30)));
        f.button("Account")->click();
        QCOMPARE(f.fakes->workspace.openedURLs().last(),
                 QUrl(QStringLiteral("https://www.example.org/account/")));
        f.button("Sign out")->click();
        QCOMPARE(f.rows(), head + texts("Not signed in.|Sign in") + signedOutFoot);
    }

    void plansAreOfferedToFreeAccountsNearTheirEnd_data() {
        QTest::addColumn<QByteArray>("account");
        QTest::addColumn<bool>("offered");
        QTest::newRow("25 of 30: five are left") << ModelOnFakes::accountBody("free", 25, 30) << true;
        QTest::newRow("24 of 30: six are left") << ModelOnFakes::accountBody("free", 24, 30) << false;
        QTest::newRow("31 of 30: past the end") << ModelOnFakes::accountBody("free", 31, 30) << true;
        QTest::newRow("a yearly plan never") << ModelOnFakes::accountBody("yearly", 31, 30) << false;
        QTest::newRow("a monthly plan never") << ModelOnFakes::accountBody("monthly", 31, 30) << false;
        QTest::newRow("a paid plan never") << ModelOnFakes::accountBody("paid", 31, 30) << false;
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
            f.button("Monthly")->click();
            QCOMPARE(f.fakes->workspace.openedURLs().last(),
                     QUrl(QStringLiteral("https://www.example.org/account/?plan=monthly")));
        }
    }

    void onlyAFreePlanHasAUsageBar() {
        const Menu free(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 25, 30)));
        QVERIFY(free.usage() != nullptr);
        QCOMPARE(free.usage()->value(), 25);
        QCOMPARE(free.usage()->maximum(), 30);
        QCOMPARE(free.usage()->accessibleName(), QStringLiteral("Free rewrites used"));
        // Beside its label, in the same row.
        const QWidget* label = free.label("Free · 25 of 30 used");
        QCOMPARE(free.usage()->parentWidget(), label->parentWidget());
        QVERIFY(free.usage()->geometry().left() >= label->geometry().right());
        const Menu past(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 31, 30)));
        QCOMPARE(past.usage()->value(), 30);
        const Menu none(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 0, 0)));
        QVERIFY(none.usage() == nullptr);
        const Menu paid(ModelOnFakes::signedIn(ModelOnFakes::accountBody("paid", 3, 30)));
        QVERIFY(paid.usage() == nullptr);
    }

    void theNoticeStandsOutFromTheCaptions() {
        const Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 29, 30)));
        QCOMPARE(f.label("1 free rewrite left.")->tone(), Style::Tone::primary);
        QCOMPARE(f.label("1 free rewrite left.")->font().weight(), QFont::Medium);
        QCOMPARE(f.label("Free · 29 of 30 used")->tone(), Style::Tone::secondary);
        QCOMPARE(f.label("Signed in as ada@example.org.")->tone(), Style::Tone::secondary);
    }

    void busyHidesTheStatus() {
        const Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("paid", 3, 30)));
        f.fakes->model().setStatus(MenuStatus::rewrote());
        QVERIFY(f.shows("Rewrote the selection."));
        f.fakes->rewrite();
        QVERIFY(f.shows("Correcting…"));
        QVERIFY(!f.shows("Rewrote the selection."));
        f.fakes->rewriter.finish(RewriteOutcome::problem(RewriteProblem::Kind::noSelection));
        QVERIFY(!f.shows("Correcting…"));
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
        f.button("Settings")->click();
        f.button("Show the welcome window")->click();
        QCOMPARE(f.welcomes, 1);
        f.button("Done")->click();
        f.button("About Vellumline")->click();
        f.button("support@kelthorne.com")->click();
        QCOMPARE(f.links, QList<QUrl>{QUrl(QStringLiteral("mailto:support@kelthorne.com"))});
    }

    void settingsDoneReturnsAndStopsRecording() {
        const Menu f;
        f.button("Settings")->click();
        QCOMPARE(f.content.page(), MenuContent::Page::settings);
        QVERIFY(!f.button("Quit"));
        f.button("Change")->click();
        QVERIFY(f.fakes->model().recordingHotkey());
        f.button("Done")->click();
        QVERIFY(!f.fakes->model().recordingHotkey());
        QCOMPARE(f.content.page(), MenuContent::Page::main);
    }

    void thePageSurvivesClosingThePanel() {
        Menu f;
        f.button("Settings")->click();
        f.content.hide();
        f.content.show();
        QCOMPARE(f.content.page(), MenuContent::Page::settings);
    }

    void openingTheMainPageMakesItsFiguresFresh() {
        Menu f(ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 3, 30)));
        const qsizetype before = f.fakes->accountRequests();
        f.fakes->accessibility.trusted = false;
        f.content.willShow();
        QVERIFY(f.button("Allow Accessibility…"));
        ModelOnFakes::waitUntil([&] { return f.fakes->accountRequests() == before + 1; });
        f.button("About Vellumline")->click();
        f.content.willShow();
        QTest::qWait(1);
        QCOMPARE(f.fakes->accountRequests(), before + 1);
        f.button("Done")->click();
        ModelOnFakes::waitUntil([&] { return f.fakes->accountRequests() == before + 2; });
    }

    void aLongNameIsElidedInItsMiddle() {
        const QString name = QString(60, QLatin1Char('a')) + QStringLiteral("@example.org");
        auto session = sessionWith(QStringLiteral("opaque"));
        session.email = name;
        auto fakes = std::make_unique<ModelOnFakes>(session);
        fakes->service.transport.queue(200, ModelOnFakes::accountBody("paid", 1, 30));
        QCoro::waitFor(fakes->model().restoreAccount());
        const Menu f(std::move(fakes));
        QTest::qWait(1);
        const auto* label =
            qobject_cast<Style::Label*>(showing(&f.content, QStringLiteral("Signed in as ") + name + u'.'));
        QVERIFY(label != nullptr);
        QVERIFY(label->text().contains(QChar(0x2026)));
        QVERIFY(label->text().endsWith(QStringLiteral("org.")));
        QCOMPARE(label->toolTip(), label->fullText());
        QCOMPARE(label->accessibleName(), label->fullText());
        QCOMPARE(f.content.width(), Style::scaled(300));
    }

    void thePagesAreThreeHundredWide() {
        Menu f;
        for (const auto page :
             {MenuContent::Page::main, MenuContent::Page::settings, MenuContent::Page::info}) {
            f.content.showPage(page);
            QTest::qWait(1);
            QCOMPARE(f.content.width(), 300);
        }
    }
};

QTEST_MAIN(MenuContentTest)
#include "tst_menucontent.moc"
