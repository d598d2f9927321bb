#pragma once

#include "Vellumline/OnboardingWindow.h"
#include "Vellumline/PromptPanel.h"
#include "Vellumline/StatusMenu.h"
#include "Vellumline/Style.h"
#include "Vellumline/UpdateDialog.h"
#include "fakes/FakeMouseMonitor.h"
#include "fakes/FakeStatusItem.h"
#include "fakes/ModelOnFakes.h"

#include <QAbstractButton>
#include <QList>
#include <QPlainTextEdit>
#include <functional>
#include <memory>

namespace vellumline::test {

/// Everything that a person sees of the program, on fakes.
struct Stage {
    explicit Stage(std::unique_ptr<ModelOnFakes> made)
        : fakes(std::move(made)),
          menu(fakes->model(), {},
               {item, mouse, fakes->keyMonitor, fakes->workspace, fakes->service.clock, {}}),
          onboarding(fakes->model(), fakes->defaults, fakes->service.clock) {
        menu.start();
    }
    ~Stage() {
        // Tasks that sleep end when they find their view closed.
        menu.close();
        prompts.dismiss();
        if (onboarding.window() != nullptr)
            onboarding.window()->close();
        fakes->rewriter.finishAll();
        for (int i = 0; i < 10 && fakes->service.clock.advanceToNextSleep(); ++i)
            QTest::qWait(0);
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    AppModel& model() const { return fakes->model(); }

    /// The panel, open on that page and settled.
    QWidget* openMenu(MenuContent::Page page = MenuContent::Page::main) {
        menu.show();
        menu.content()->showPage(page);
        settle();
        return menu.panel();
    }
    QWidget* openWelcome() {
        onboarding.show();
        settle();
        return onboarding.window();
    }
    /// The prompt that the model has asked for, in the real window.
    QWidget* openPrompt() {
        QList<PromptAction> actions;
        for (const QString& title : fakes->prompts.actionTitles())
            actions.append({title, [] {}});
        prompts.show(fakes->prompts.title, fakes->prompts.detail, actions, [] {});
        settle();
        return prompts.window();
    }
    QWidget* openUpdate(const std::optional<UpdateResult>& result) {
        if (result)
            update.showResult(*result);
        else
            update.showChecking();
        update.show();
        settle();
        return &update;
    }
    void settle() {
        for (int i = 0; i < 3; ++i)
            QTest::qWait(1);
        fakes->service.clock.advance(std::chrono::milliseconds(50));
        QTest::qWait(1);
    }

    std::unique_ptr<ModelOnFakes> fakes;
    FakeStatusItem item;
    FakeMouseMonitor mouse;
    StatusMenu menu;
    OnboardingWindow onboarding;
    PromptPanel prompts;
    UpdateDialog update{QStringLiteral("0.1.0")};
};

/// One state of one page, as a person meets it.
struct Scene {
    QString place; ///< "menu", "settings", "about", "welcome window", "prompt", "update"
    QString state;
    std::function<std::unique_ptr<Stage>()> make;
    std::function<QWidget*(Stage&)> open;

    QString fileName() const {
        QString name = place + QLatin1Char('-') + state;
        return name.replace(QLatin1Char(' '), QLatin1Char('-'));
    }
};

inline std::unique_ptr<Stage> signedOutStage() {
    return std::make_unique<Stage>(std::make_unique<ModelOnFakes>());
}

inline std::function<std::unique_ptr<Stage>()> signedInStage(const QByteArray& account) {
    return [account] {
        auto stage = std::make_unique<Stage>(ModelOnFakes::signedIn(account));
        // The panel asks again when it opens; it gets the same answer.
        for (int i = 0; i < 8; ++i)
            stage->fakes->service.transport.queue(200, account);
        return stage;
    };
}

inline void press(QWidget* window, const QString& text) {
    for (auto* each : window->findChildren<QAbstractButton*>()) {
        if (each->isVisible() && each->text() == text) {
            each->click();
            return;
        }
    }
    qFatal("no button \"%s\"", qUtf8Printable(text));
}

inline QList<Scene> menuScenes() {
    const auto account = ModelOnFakes::accountBody;
    const auto main = [](Stage& stage) { return stage.openMenu(); };
    const QString menu = QStringLiteral("menu");
    const auto state = [](const char* name) { return QString::fromUtf8(name); };
    QList<Scene> scenes{
        {menu, state("signed out"), signedOutStage, main},
        {menu, state("signing in"), signedOutStage,
         [](Stage& stage) {
             stage.model().startSignIn();
             return stage.openMenu();
         }},
        {menu, state("link not started here"), signedOutStage,
         [](Stage& stage) {
             QCoro::waitFor(stage.model().open(QStringLiteral("vellumline://auth?handoff=abcdefghijklmnop")));
             return stage.openMenu();
         }},
        {menu, state("sign-in not finished"), signedOutStage,
         [](Stage& stage) {
             stage.model().startSignIn();
             stage.fakes->service.transport.queue(500, "");
             QCoro::waitFor(stage.model().open(QStringLiteral("vellumline://auth?handoff=abcdefghijklmnop")));
             return stage.openMenu();
         }},
        {menu, state("free"), signedInStage(account("free", 3, 30, "")), main},
        {menu, state("free with five left"), signedInStage(account("free", 25, 30, "")), main},
        {menu, state("free with one left"), signedInStage(account("free", 29, 30, "")), main},
        {menu, state("free used up"), signedInStage(account("free", 30, 30, "")), main},
        {menu, state("monthly"), signedInStage(account("monthly", 412, 30, "")), main},
        {menu, state("yearly canceled"),
         signedInStage(account("yearly", 412, 30, ",\"renewalCanceled\":true")), main},
        {menu, state("payment failed"), signedInStage(account("monthly", 412, 30, ",\"pastDue\":true")),
         main},
        {menu, state("paid"), signedInStage(account("paid", 412, 30, "")), main},
        {menu, state("closed"), signedInStage(account("monthly", 412, 30, ",\"closed\":true")), main},
        {menu, state("correcting"), signedInStage(account("paid", 412, 30, "")),
         [](Stage& stage) {
             stage.fakes->rewrite();
             return stage.openMenu();
         }},
        {menu, state("corrected"), signedInStage(account("free", 4, 30, "")),
         [](Stage& stage) {
             stage.model().setStatus(MenuStatus::rewrote());
             return stage.openMenu();
         }},
        {menu, state("shortcut taken"), signedOutStage,
         [](Stage& stage) {
             stage.model().setStatus(MenuStatus::message(
                 QStringLiteral("Could not register ⌃⌥R. Pick another shortcut in Settings.")));
             return stage.openMenu();
         }},
        {menu, state("access missing"), signedInStage(account("free", 4, 30, "")),
         [](Stage& stage) {
             stage.fakes->accessibility.trusted = false;
             stage.model().setStatus(MenuStatus::problem(RewriteProblem::Kind::accessibilityNeeded));
             return stage.openMenu();
         }},
        {menu, state("login item refused"), signedInStage(account("free", 4, 30, "")),
         [](Stage& stage) {
             stage.fakes->loginService.refuses = true;
             stage.model().setLaunchAtLogin(true);
             return stage.openMenu();
         }},
    };
    using Problem = RewriteProblem::Kind;
    const std::pair<const char*, Problem> problems[] = {{"nothing selected", Problem::noSelection},
                                                        {"read only", Problem::readOnly},
                                                        {"password field", Problem::secureField},
                                                        {"too long", Problem::tooLong},
                                                        {"offline", Problem::offline},
                                                        {"timed out", Problem::timedOut},
                                                        {"model unavailable", Problem::modelUnavailable},
                                                        {"rate limited", Problem::rateLimited},
                                                        {"monthly limit", Problem::monthlyLimit},
                                                        {"free limit", Problem::freeLimit},
                                                        {"account closed", Problem::accountClosed},
                                                        {"failed", Problem::failed}};
    for (const auto& [name, problem] : problems)
        scenes.append({menu, QStringLiteral("problem ") + state(name),
                       signedInStage(account("paid", 4, 30, "")), [problem = problem](Stage& stage) {
                           stage.model().setStatus(MenuStatus::problem(problem == Problem::tooLong
                                                                           ? RewriteProblem::tooLong(4000)
                                                                           : RewriteProblem::of(problem)));
                           return stage.openMenu();
                       }});
    return scenes;
}

inline QList<Scene> otherPageScenes() {
    const auto state = [](const char* name) { return QString::fromUtf8(name); };
    const QString settings = QStringLiteral("settings");
    const QString welcome = QStringLiteral("welcome window");
    const auto record = [](Stage& stage, const KeyPress& key) {
        stage.model().toggleRecording();
        stage.fakes->keyMonitor.press(key);
    };
    return {
        {settings, state("plain"), signedOutStage,
         [](Stage& stage) { return stage.openMenu(MenuContent::Page::settings); }},
        {settings, state("recording"), signedOutStage,
         [](Stage& stage) {
             stage.model().toggleRecording();
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {settings, state("key without modifier"), signedOutStage,
         [record](Stage& stage) {
             record(stage, {3, HotkeyModifiers::shift, QStringLiteral("f")});
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {settings, state("system shortcut"), signedOutStage,
         [record](Stage& stage) {
             record(stage, {12, HotkeyModifiers::command, QStringLiteral("q")});
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {settings, state("shortcut of another app"), signedOutStage,
         [record](Stage& stage) {
             stage.fakes->hotkeyMonitor.registerBinding(HotkeyBinding::load(stage.fakes->defaults));
             stage.fakes->hotkeys.takeElsewhere(
                 40, (HotkeyModifiers::control | HotkeyModifiers::option).carbonFlags());
             record(stage, {40, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("k")});
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {settings, state("no shortcut left"), signedOutStage,
         [record](Stage& stage) {
             stage.fakes->hotkeys.refusesEverything = true;
             record(stage, {40, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("k")});
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {settings, state("access missing"), signedOutStage,
         [](Stage& stage) {
             stage.fakes->accessibility.trusted = false;
             stage.model().refreshTrust();
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {settings, state("open at login"), signedOutStage,
         [](Stage& stage) {
             stage.model().setLaunchAtLogin(true);
             return stage.openMenu(MenuContent::Page::settings);
         }},
        {QStringLiteral("about"), state("plain"), signedOutStage,
         [](Stage& stage) { return stage.openMenu(MenuContent::Page::info); }},
        {welcome, state("first start"), signedOutStage,
         [](Stage& stage) {
             stage.fakes->accessibility.trusted = false;
             return stage.openWelcome();
         }},
        {welcome, state("recording"), signedOutStage,
         [record](Stage& stage) {
             QWidget* window = stage.openWelcome();
             record(stage, {3, HotkeyModifiers::shift, QStringLiteral("f")});
             stage.settle();
             return window;
         }},
        {welcome, state("corrected"), signedInStage(ModelOnFakes::accountBody("free", 1, 30, "")),
         [](Stage& stage) {
             QWidget* window = stage.openWelcome();
             stage.model().setStatus(MenuStatus::rewrote());
             window->findChild<QPlainTextEdit*>()->setPlainText(
                 QStringLiteral("I went to the shop yesterday and bought three apples."));
             stage.settle();
             return window;
         }},
        {QStringLiteral("prompt"), state("sign in"), signedOutStage,
         [](Stage& stage) {
             stage.fakes->rewrite();
             return stage.openPrompt();
         }},
        {QStringLiteral("prompt"), state("closed"),
         signedInStage(ModelOnFakes::accountBody("monthly", 4, 30, ",\"closed\":true")),
         [](Stage& stage) {
             stage.fakes->rewrite();
             return stage.openPrompt();
         }},
        {QStringLiteral("prompt"), state("used up"),
         signedInStage(ModelOnFakes::accountBody("free", 30, 30, "")),
         [](Stage& stage) {
             stage.fakes->rewrite();
             return stage.openPrompt();
         }},
        {QStringLiteral("prompt"), state("signed in already"),
         signedInStage(ModelOnFakes::accountBody("paid", 4, 30, "")),
         [](Stage& stage) {
             QCoro::waitFor(stage.model().open(QStringLiteral("vellumline://sign-in")));
             return stage.openPrompt();
         }},
    };
}

inline QList<Scene> updateScenes() {
    using Kind = UpdateResult::Kind;
    const auto scene = [](const char* state, const std::optional<UpdateResult>& result) {
        return Scene{QStringLiteral("update"), QString::fromUtf8(state), signedOutStage,
                     [result](Stage& stage) { return stage.openUpdate(result); }};
    };
    AppcastItem item;
    item.version = *SoftwareVersion::parse(QStringLiteral("0.2.0"));
    item.enclosure.url = QUrl(QStringLiteral("https://example.org/vellumline-0.2.0.tar.gz"));
    const AppcastItem bare = item;
    item.title = QStringLiteral("A calmer panel");
    item.link = QUrl(QStringLiteral("https://example.org/0.2.0"));
    item.published = QDateTime({2027, 3, 3}, {9, 30}, Qt::UTC);
    item.notes =
        QStringLiteral("- The panel opens where the pointer is.\n- Function keys can be the shortcut.");
    AppcastItem wordy = item;
    wordy.title = QStringLiteral(
        "A calmer panel, corrections that keep paragraphs, and many small things that were in the way");
    wordy.notes =
        QStringLiteral("- A selection over several paragraphs keeps its empty lines, in every editor.\n")
            .repeated(12);
    return {scene("looking", std::nullopt),
            scene("new version", UpdateResult{Kind::newVersion, item, 0}),
            scene("new version with much to say", UpdateResult{Kind::newVersion, wordy, 0}),
            scene("new version without notes", UpdateResult{Kind::newVersion, bare, 0}),
            scene("newest version", UpdateResult{Kind::newest, {}, 0}),
            scene("offline", UpdateResult{Kind::offline, {}, 0}),
            scene("timed out", UpdateResult{Kind::timedOut, {}, 0}),
            scene("refused", UpdateResult{Kind::refused, {}, 404}),
            scene("not verified", UpdateResult{Kind::unverified, {}, 0}),
            scene("not valid", UpdateResult{Kind::invalid, {}, 0})};
}

inline QList<Scene> allScenes() {
    return menuScenes() + otherPageScenes() + updateScenes();
}

} // namespace vellumline::test
