#pragma once

#include "Vellumline/AppModel.h"

#include <QWidget>
#include <functional>

namespace vellumline {

namespace Style {
class Button;
class Label;
class Symbol;
class Toggle;
} // namespace Style

/// The settings page of the menu panel. A picture of the model without state of its own. Main thread only.
class SettingsView : public QWidget {
    Q_OBJECT
  public:
    struct Actions {
        std::function<void()> showWelcomeWindow;
        std::function<void()> onDone;
    };

    SettingsView(AppModel& model, Actions actions, QWidget* parent = nullptr);

  private:
    QLayout* shortcutRow();
    QLayout* accessibilityRow();
    void refresh();

    AppModel& model_;
    Actions actions_;
    Style::Label* hotkey_ = nullptr;
    Style::Button* record_ = nullptr;
    Style::Label* hotkeyNote_ = nullptr;
    Style::Symbol* trustSymbol_ = nullptr;
    Style::Label* trust_ = nullptr;
    Style::Button* openSettings_ = nullptr;
    Style::Toggle* launchAtLogin_ = nullptr;
};

} // namespace vellumline
