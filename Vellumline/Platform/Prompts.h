#pragma once

#include <QList>
#include <QString>
#include <functional>

namespace vellumline {

/// One button of a prompt and what it does.
struct PromptAction {
    QString title;
    std::function<void()> run;
};

/// Asks the user one question at a time; a new one finishes the old one first. Main thread only.
class Prompts {
  public:
    virtual ~Prompts() = default;

    /// Shows a prompt with "Not now" and the actions. `onFinish` is called exactly once, when it closes for
    /// any reason.
    virtual void show(
        const QString& title, const QString& detail, const QList<PromptAction>& actions,
        std::function<void()> onFinish = [] {}) = 0;
    /// If a prompt is on screen: places it again, brings it to the front and answers true.
    virtual bool bringToFront() = 0;
};

} // namespace vellumline
