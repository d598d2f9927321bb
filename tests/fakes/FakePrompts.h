#pragma once

#include "Vellumline/Platform/Prompts.h"
#include "tests/fakes/CallLog.h"

#include <utility>

namespace vellumline {

/// A prompt panel in memory: one prompt at a time. In the call log: "show(Sign in to rewrite)",
/// "bringToFront".
class FakePrompts final : public Prompts {
  public:
    explicit FakePrompts(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    void show(const QString& title, const QString& detail, const QList<PromptAction>& actions,
              std::function<void()> onFinish) override {
        finish();
        log_.add(QStringLiteral("show(%1)").arg(title));
        shown = true;
        this->title = title;
        this->detail = detail;
        actions_ = actions;
        onFinish_ = std::move(onFinish);
    }
    bool bringToFront() override {
        if (!shown)
            return false;
        log_.add(QStringLiteral("bringToFront"));
        return true;
    }

    QStringList actionTitles() const {
        QStringList titles;
        for (const PromptAction& each : actions_)
            titles.append(each.title);
        return titles;
    }
    /// The user presses the button of an action; false when there is none of that title.
    bool press(const QString& actionTitle) {
        for (const PromptAction& each : std::as_const(actions_)) {
            if (each.title == actionTitle) {
                const auto run = each.run;
                finish();
                run();
                return true;
            }
        }
        return false;
    }
    /// "Not now", or the window's close button.
    void finish() {
        if (!std::exchange(shown, false))
            return;
        actions_.clear();
        std::exchange(onFinish_, [] {})();
    }

    bool shown = false;
    QString title;
    QString detail;
    const QStringList& calls() const { return log_.calls(); }

  private:
    CallLog log_;
    QList<PromptAction> actions_;
    std::function<void()> onFinish_ = [] {};
};

} // namespace vellumline
