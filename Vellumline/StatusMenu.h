#pragma once

#include "Vellumline/AppModel.h"
#include "Vellumline/MenuContent.h"
#include "Vellumline/Platform/MouseMonitor.h"
#include "Vellumline/Platform/StatusItem.h"
#include "VellumlineCore/MenuPanelPlacement.h"

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <functional>
#include <memory>
#include <optional>

class QScreen;

namespace vellumline {

class StatusMenuPanel;

/// The item in the desktop's panel and the menu that drops from it. Main thread only.
class StatusMenu : public QObject {
    Q_OBJECT
  public:
    /// What the menu needs from outside; all of it outlives the menu.
    struct Dependencies {
        StatusItem& statusItem;
        MouseMonitor& mouseMonitor;
        KeyMonitor& keyMonitor;
        Workspace& workspace;
        Clock& clock;
        /// Tells the window manager what cannot be told through the toolkit; called once, before the panel is
        /// shown.
        std::function<void(QWidget& panel)> preparePanel;
    };

    StatusMenu(AppModel& model, MenuContent::Actions actions, Dependencies dependencies);
    ~StatusMenu() override;

    /// Shows the status item; again does nothing.
    void start();
    /// The item's action: opens the panel, or closes it. Nothing within 0.25 s of closing.
    void toggle();
    void show();
    void close();
    bool isOpen() const;
    /// Fits the panel to its content and places it at the item, now.
    void relayout();
    /// The same now, on the next turn of the main loop, and 50 ms later, when late changes have settled.
    void relayoutSoon();

    /// The panel once it has been shown for the first time.
    QWidget* panel() const;
    MenuContent* content() const;

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    StatusMenuPanel& buildPanel();
    void updateIcon();
    void setImage(const QString& symbol);
    QCoro::Task<void> animateWhileBusy();
    QCoro::Task<void> relayoutLater();
    /// After a press near the item where its place is only guessed: that may have been another item.
    QCoro::Task<void> closeUnlessItemPressed();
    void installMonitors();
    void removeMonitors();
    void closeIfClick(const QWidget* window, QPoint position);
    void giveInputBack();
    PanelRect frameUnderStatusItem(QSize size) const;
    /// Where the item is; nothing where the desktop does not tell.
    std::optional<QRect> itemFrame() const;
    PanelRect anchor() const;
    PanelRect clickedButtonFrame(QPoint point) const;
    PanelRect fallbackButtonFrame() const;
    const QScreen* screenOf(const PanelRect& rect) const;

    AppModel& model_;
    MenuContent::Actions actions_;
    Dependencies dependencies_;
    bool started_ = false;
    int itemPresses_ = 0;
    std::unique_ptr<StatusMenuPanel> panel_;
    std::optional<QPoint>
        clickedAt_; ///< where the item was pressed, for desktops that do not tell where it is
    std::optional<MouseMonitor::Token> globalMonitor_;
    bool localMonitor_ = false;
    std::optional<KeyMonitor::Token> keyMonitor_;
    std::optional<std::chrono::nanoseconds> closedAt_;
    bool placing_ = false;
    std::optional<Workspace::Application>
        cameFrom_; ///< the program that had the user's input before the panel
    bool animating_ = false;
};

} // namespace vellumline
