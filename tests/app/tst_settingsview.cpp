#include "Vellumline/InfoView.h"
#include "Vellumline/SettingsView.h"
#include "Vellumline/VellumlineMark.h"
#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QFontDatabase>
#include <QTest>

using namespace vellumline;
using namespace vellumline::test;

namespace {

struct Settings {
    explicit Settings(std::unique_ptr<ModelOnFakes> made = std::make_unique<ModelOnFakes>())
        : fakes(std::move(made)), view(fakes->model(), {[this] { ++welcomes; }, [this] { ++dones; }}) {
        fakes->hotkeyMonitor.registerBinding(HotkeyBinding::load(fakes->defaults));
        view.show();
        QTest::qWait(1);
    }

    QAbstractButton* button(const char* text) const { return test::button(&view, QString::fromUtf8(text)); }
    Style::Label* label(const char* text) const {
        return qobject_cast<Style::Label*>(showing(&view, QString::fromUtf8(text)));
    }
    void pressKey(const KeyPress& key) const {
        fakes->keyMonitor.press(key);
        QTest::qWait(1);
    }

    std::unique_ptr<ModelOnFakes> fakes;
    int welcomes = 0;
    int dones = 0;
    SettingsView view;
};

constexpr const char* hint = "Include Control, Option, or Command. Escape cancels.";

} // namespace

class SettingsViewTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theRowsStandInOrder() {
        const Settings f;
        const QStringList expected{QStringLiteral("Settings"),
                                   QStringLiteral("Hotkey"),
                                   QStringLiteral("⌃⌥R"),
                                   QStringLiteral("Change"),
                                   QString::fromUtf8(hint),
                                   QStringLiteral("Accessibility"),
                                   QStringLiteral("Allowed"),
                                   QStringLiteral("Open at login"),
                                   QStringLiteral("Show the welcome window"),
                                   QStringLiteral("Done")};
        QCOMPARE(visibleTextStrings(&f.view), expected);
    }

    void theShortcutStandsInAFixedFont() {
        const Settings f;
        QCOMPARE(f.label("⌃⌥R")->font().family(),
                 QFontDatabase::systemFont(QFontDatabase::FixedFont).family());
    }

    void whileRecordingTheButtonAsksForKeysAndThenShowsTheNewShortcut() {
        const Settings f;
        f.button("Change")->click();
        QVERIFY(f.button("Press keys…"));
        QVERIFY(!f.button("Change"));
        f.pressKey({40, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("k")});
        QVERIFY(f.button("Change"));
        QVERIFY(f.label("⌃⌥K"));
    }

    void theButtonStopsARecordingWithNothingChanged() {
        const Settings f;
        f.button("Change")->click();
        f.button("Press keys…")->click();
        QVERIFY(f.button("Change"));
        QVERIFY(f.label("⌃⌥R"));
    }

    void theHintIsSecondaryAndANoteReplacesItInThePrimaryColour() {
        const Settings f;
        QCOMPARE(f.label(hint)->tone(), Style::Tone::secondary);
        f.button("Change")->click();
        f.pressKey({3, HotkeyModifiers::shift, QStringLiteral("f")});
        QVERIFY(!f.label(hint));
        QCOMPARE(f.label("Include Control, Option, or Command.")->tone(), Style::Tone::primary);
        f.pressKey({12, HotkeyModifiers::command, QStringLiteral("q")});
        QCOMPARE(f.label("⌘Q is a system shortcut. Pick another.")->tone(), Style::Tone::primary);
        QVERIFY(f.button("Press keys…"));
    }

    void escapeAloneEndsTheRecordingAndKeepsTheNote() {
        const Settings f;
        f.button("Change")->click();
        f.pressKey({KeyCode::escape, {}, {}});
        QVERIFY(f.button("Change"));
        QVERIFY(f.label(hint));
    }

    void aShortcutOfAnotherAppIsNamed() {
        const Settings f;
        f.fakes->hotkeys.takeElsewhere(40,
                                       (HotkeyModifiers::control | HotkeyModifiers::option).carbonFlags());
        f.button("Change")->click();
        f.pressKey({40, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("k")});
        QVERIFY(f.label("Another app already uses ⌃⌥K."));
        QVERIFY(f.label("⌃⌥R"));
    }

    void accessIsGreenWhenAllowedAndOffersTheSettingsWhenNot() {
        const Settings f;
        const auto* symbol = f.view.findChild<Style::Symbol*>();
        QCOMPARE(symbol->name(), QStringLiteral("check"));
        QCOMPARE(symbol->tone(), Style::Tone::good);
        QVERIFY(!f.button("Open System Settings"));
        f.fakes->accessibility.trusted = false;
        f.fakes->model().refreshTrust();
        QVERIFY(f.label("Not allowed"));
        QVERIFY(!f.label("Allowed"));
        QCOMPARE(symbol->name(), QStringLiteral("cross"));
        QCOMPARE(symbol->tone(), Style::Tone::secondary);
        f.button("Open System Settings")->click();
        QCOMPARE(f.fakes->rewriter.settingsOpened, 1);
        QVERIFY(f.fakes->accessibility.calls().contains(QStringLiteral("requestTrust")));
    }

    void theLoginSwitchShowsWhatIs_data() {
        QTest::addColumn<bool>("refuses");
        QTest::addColumn<bool>("requiresApproval");
        QTest::addColumn<bool>("shown");
        QTest::newRow("taken") << false << false << true;
        QTest::newRow("refused") << true << false << false;
        QTest::newRow("to be approved by the user") << false << true << false;
    }

    void theLoginSwitchShowsWhatIs() {
        QFETCH(const bool, refuses);
        QFETCH(const bool, requiresApproval);
        QFETCH(const bool, shown);
        const Settings f;
        f.fakes->loginService.refuses = refuses;
        f.fakes->loginService.requiresApproval = requiresApproval;
        f.button("Open at login")->click();
        QCOMPARE(f.button("Open at login")->isChecked(), shown);
        QCOMPARE(f.fakes->model().statusText().has_value(), refuses);
        if (refuses)
            QCOMPARE(*f.fakes->model().statusText(),
                     QStringLiteral(
                         "Could not change Open at login. Move Vellumline to Applications and try again."));
    }

    void theLoginSwitchFollowsTheSystem() {
        const Settings f;
        f.fakes->loginService.current = LoginService::Status::enabled;
        f.fakes->model().refreshTrust();
        QVERIFY(f.button("Open at login")->isChecked());
    }

    void theOtherButtonsReachTheirOwners() {
        const Settings f;
        f.button("Show the welcome window")->click();
        f.button("Done")->click();
        QCOMPARE(f.welcomes, 1);
        QCOMPARE(f.dones, 1);
    }

    void theAboutPageNamesVersionAuthorAndContact() {
        QList<QUrl> opened;
        int dones = 0;
        InfoView view({QStringLiteral("1.2.3"), QStringLiteral("Somebody"),
                       QUrl(QStringLiteral("https://www.example.org")), QStringLiteral("help@example.org")},
                      {[&](const QUrl& link) { opened.append(link); }, [&] { ++dones; }});
        view.show();
        QTest::qWait(1);
        const QStringList expected{QStringLiteral("Vellumline"), QStringLiteral("Version 1.2.3"),
                                   QStringLiteral("Developer"),  QStringLiteral("Somebody"),
                                   QStringLiteral("Website"),    QStringLiteral("www.example.org"),
                                   QStringLiteral("Email"),      QStringLiteral("help@example.org"),
                                   QStringLiteral("Done")};
        QCOMPARE(visibleTextStrings(&view), expected);
        test::button(&view, QStringLiteral("www.example.org"))->click();
        test::button(&view, QStringLiteral("help@example.org"))->click();
        test::button(&view, QStringLiteral("Done"))->click();
        const QList<QUrl> targets{QUrl(QStringLiteral("https://www.example.org")),
                                  QUrl(QStringLiteral("mailto:help@example.org"))};
        QCOMPARE(opened, targets);
        QCOMPARE(dones, 1);
        QCOMPARE(view.findChild<VellumlineMark*>()->size(), QSize(16, 16));
    }

    void aBuildWithoutVersionShowsNone() {
        InfoView view({{},
                       QStringLiteral("Somebody"),
                       QUrl(QStringLiteral("https://www.example.org")),
                       QStringLiteral("help@example.org")},
                      {});
        view.show();
        QTest::qWait(1);
        for (const QString& text : visibleTextStrings(&view))
            QVERIFY(!text.startsWith(QStringLiteral("Version")));
    }
};

QTEST_MAIN(SettingsViewTest)
#include "tst_settingsview.moc"
