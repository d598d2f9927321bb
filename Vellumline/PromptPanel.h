#pragma once

#include "Vellumline/Platform/Prompts.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

namespace vellumline {

/// The small floating window that asks the user one question: title, explanation, "Not now" and the actions.
class PromptPanel final : public QObject, public Prompts {
    Q_OBJECT
  public:
    using Action = PromptAction;

    /// `prepareWindow` is given each window before it is shown.
    explicit PromptPanel(std::function<void(QWidget& window)> prepareWindow = {});
    ~PromptPanel() override;

    void show(const QString& title, const QString& detail, const QList<Action>& actions,
              std::function<void()> onFinish) override;
    bool bringToFront() override;

    /// "Not now": closes the window if there is one.
    void dismiss();
    /// The button of that action; an index outside of the list does nothing.
    void pressed(qsizetype index);
    /// The window on screen, if any.
    QWidget* window() const { return window_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    static void place(QWidget* window);
    void close();
    void windowWillClose();

    std::function<void(QWidget& window)> prepareWindow_;
    QPointer<QWidget> window_;
    QList<Action> actions_;
    std::function<void()> onFinish_ = [] {};
};

} // namespace vellumline
