#pragma once

#include "Vellumline/AppModel.h"
#include "Vellumline/MenuContent.h"
#include "VellumlineCore/MenuPanelPlacement.h"

#include <QObject>
#include <QPoint>
#include <functional>
#include <memory>
#include <optional>

class QSystemTrayIcon;

namespace vellumline {

class MenuPanel;

/// The item in the desktop's panel and the menu that drops from it. Main thread only.
class StatusMenu : public QObject {
    Q_OBJECT
  public:
    /// `whenHostIsReady` calls its argument once, when a program that shows status items is there or none is
    /// expected: Qt decides once, at the first use of a status item, which kind of host it talks to.
    using HostGate = std::function<void(std::function<void()>)>;

    StatusMenu(AppModel& model, MenuContent::Actions actions, HostGate whenHostIsReady, Clock& clock);
    ~StatusMenu() override;

    /// Creates the status item; again does nothing.
    void start();
    /// The item's action: opens the panel, or closes it. Nothing within 0.25 s of closing.
    void toggle();
    void show();
    void close();
    bool isOpen() const;

  private:
    void showItem();
    void updateIcon();
    void relayout();
    PanelRect anchor() const;

    AppModel& model_;
    MenuContent::Actions actions_;
    HostGate whenHostIsReady_;
    Clock& clock_;
    bool started_ = false;
    std::unique_ptr<QSystemTrayIcon> item_;
    std::unique_ptr<MenuPanel> panel_;
    std::optional<QPoint> clickedAt_; ///< where the item was clicked, for hosts that do not tell where it is
    std::optional<std::chrono::nanoseconds> closedAt_;
};

} // namespace vellumline
