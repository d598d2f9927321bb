#pragma once

#include "Vellumline/AppModel.h"
#include "Vellumline/HotkeyMonitor.h"
#include "VellumlineCore/UserDefaults.h"

#include <QPointer>
#include <QString>
#include <functional>

namespace vellumline {

/// The program's start-up, in its fixed order, and the links that the desktop hands over. Main thread only.
class AppDelegate {
  public:
    /// The steps that belong to the platform or to the views.
    struct Steps {
        std::function<void()> becomeAccessory; ///< no window list entry, no main menu
        std::function<void(std::function<void(QString)>)>
            receiveLinks;                     ///< installs the handler of incoming links
        std::function<AppModel&()> makeModel; ///< constructs the one model
        std::function<void()> startUpdater;
        std::function<void()> startStatusMenu;
        std::function<void()> showWelcomeWindow;
    };

    AppDelegate(Steps steps, HotkeyMonitor& hotkeyMonitor, UserDefaults& defaults);

    void applicationDidFinishLaunching();
    /// A link, its text exactly as it arrived; what is not a link of this program is ignored.
    void handleGetURLEvent(const QString& link);

  private:
    Steps steps_;
    HotkeyMonitor& hotkeyMonitor_;
    UserDefaults& defaults_;
    QPointer<AppModel> model_;
};

} // namespace vellumline
