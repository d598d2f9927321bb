#include "Vellumline/StatusMenu.h"

#include "Vellumline/Style.h"
#include "Vellumline/VellumlineMark.h"

#include <QApplication>
#include <QLayout>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>
#include <algorithm>
#include <cmath>
#include <utility>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr auto reopenDelay = 250ms;     // a click that just closed the panel must not open it again
constexpr auto itemActionDelay = 500ms; // the item's own action follows a press on it sooner than that
constexpr auto settleDelay = 50ms;
constexpr auto animationDelay = 300ms; // shorter corrections show one still picture
constexpr auto animationFrame = 150ms; // below 8 a second
constexpr int animationFrames = 3;
constexpr double margin = 4;
constexpr double buttonSide = 24;
constexpr double fallbackInset = 28;
constexpr QSize smallestContent(41, 21); // below that the content has not been laid out yet

double primaryHeight() {
    const QScreen* primary = QGuiApplication::primaryScreen();
    return primary != nullptr ? primary->geometry().height() : 0;
}

/// Screen coordinates whose y grows upward, with the origin at the bottom left of the primary screen.
PanelRect upward(const QRectF& rect) {
    return {rect.x(), primaryHeight() - rect.y() - rect.height(), rect.width(), rect.height()};
}

QRectF downward(const PanelRect& rect) {
    return {rect.x, primaryHeight() - rect.maxY(), rect.width, rect.height};
}

bool sameFrame(const PanelRect& a, const PanelRect& b) {
    constexpr double tolerance = 0.5;
    return std::abs(a.x - b.x) < tolerance && std::abs(a.y - b.y) < tolerance &&
           std::abs(a.width - b.width) < tolerance && std::abs(a.height - b.height) < tolerance;
}

} // namespace

/// The floating panel itself: frameless, above others.
class StatusMenuPanel : public QWidget {
  public:
    StatusMenuPanel(StatusMenu& menu, AppModel& model, const MenuContent::Actions& actions)
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), menu_(menu),
          content_(new MenuContent(model, actions, this)) {
        setWindowTitle(QStringLiteral("Vellumline"));
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0); // the border lies over the outermost points of the content
        layout->addWidget(content_);
        layout->setSizeConstraint(QLayout::SetNoConstraint); // the menu sizes it, together with its place
    }

    MenuContent* content() const { return content_; }

  protected:
    void paintEvent(QPaintEvent* /*event*/) override {
        QPainter painter(this);
        QColor border = palette().color(QPalette::WindowText);
        constexpr int borderAlpha = 70;
        border.setAlpha(borderAlpha);
        // Four bars rather than an outline, which at fractional scales lies half outside.
        painter.fillRect(QRect(0, 0, width(), 1), border);
        painter.fillRect(QRect(0, height() - 1, width(), 1), border);
        painter.fillRect(QRect(0, 1, 1, height() - 2), border);
        painter.fillRect(QRect(width() - 1, 1, 1, height() - 2), border);
    }
    void changeEvent(QEvent* event) override {
        QWidget::changeEvent(event);
        // Another window took over by the keyboard or on its own: a menu does not stay behind.
        if (event->type() == QEvent::ActivationChange && !isActiveWindow() && isVisible())
            menu_.close();
    }
    void closeEvent(QCloseEvent* event) override {
        // The window manager's wish, as with Alt+F4: the panel is kept for the next time.
        event->ignore();
        menu_.close();
    }

  private:
    StatusMenu& menu_;
    MenuContent* content_;
};

StatusMenu::StatusMenu(AppModel& model, MenuContent::Actions actions, Dependencies dependencies)
    : model_(model), actions_(std::move(actions)), dependencies_(std::move(dependencies)) {}

StatusMenu::~StatusMenu() {
    dependencies_.statusItem.onAction = {};
    removeMonitors();
}

void StatusMenu::start() {
    if (std::exchange(started_, true))
        return;
    connect(&model_, &AppModel::busyChanged, this, &StatusMenu::updateIcon);
    dependencies_.statusItem.onAction = [this](std::optional<QPoint> point) {
        clickedAt_ = point;
        ++itemPresses_;
        toggle();
    };
    updateIcon();
    dependencies_.statusItem.show();
}

void StatusMenu::updateIcon() {
    setImage(model_.busy() ? QStringLiteral("busy") : QString());
    dependencies_.statusItem.setAccessibilityLabel(model_.busy() ? QStringLiteral("Vellumline, correcting")
                                                                 : QStringLiteral("Vellumline"));
    if (model_.busy() && !animating_)
        animateWhileBusy();
}

void StatusMenu::setImage(const QString& symbol) {
    dependencies_.statusItem.setImage([symbol](const QColor& color) {
        return symbol.isEmpty() ? VellumlineMarkImage::image(color) : Style::icon(symbol, color);
    });
}

QCoro::Task<void> StatusMenu::animateWhileBusy() {
    // Desktops that want no animation say so through the widget style.
    if (QApplication::style()->styleHint(QStyle::SH_Widget_Animation_Duration) <= 0)
        co_return;
    const QPointer<StatusMenu> self(this);
    Clock& clock = dependencies_.clock;
    animating_ = true;
    co_await clock.sleepFor(animationDelay);
    for (int frame = 0; self && self->model_.busy(); frame = (frame + 1) % animationFrames) {
        self->setImage(QStringLiteral("busy-%1").arg(frame + 1));
        co_await clock.sleepFor(animationFrame);
    }
    if (self)
        self->animating_ = false;
}

void StatusMenu::toggle() {
    if (closedAt_ && dependencies_.clock.monotonic() - *closedAt_ < reopenDelay)
        return;
    if (isOpen())
        close();
    else
        show();
}

bool StatusMenu::isOpen() const {
    return panel_ && panel_->isVisible();
}

QWidget* StatusMenu::panel() const {
    return panel_.get();
}

MenuContent* StatusMenu::content() const {
    return panel_ ? panel_->content() : nullptr;
}

StatusMenuPanel& StatusMenu::buildPanel() {
    if (!panel_) {
        panel_ = std::make_unique<StatusMenuPanel>(*this, model_, actions_);
        // Later: the panel is never resized from inside a layout pass.
        connect(panel_->content(), &MenuContent::sizeMayHaveChanged, this, &StatusMenu::relayout,
                Qt::QueuedConnection);
        connect(panel_->content(), &MenuContent::pageChanged, this, &StatusMenu::relayoutSoon);
    }
    return *panel_;
}

void StatusMenu::show() {
    StatusMenuPanel& panel = buildPanel();
    if (!panel.isVisible()) {
        const auto front = dependencies_.workspace.frontmostApplication();
        const bool isOwn = front && front->processIdentifier == QCoreApplication::applicationPid();
        cameFrom_ = isOwn ? std::nullopt : front;
        if (dependencies_.preparePanel)
            dependencies_.preparePanel(panel);
    }
    panel.content()->willShow();
    relayout();
    panel.show();
    panel.raise();
    panel.activateWindow();
    panel.setFocus(); // no row is chosen yet; Tab goes to the first
    dependencies_.statusItem.setHighlighted(true);
    installMonitors();
    relayoutSoon();
}

void StatusMenu::close() {
    if (!isOpen())
        return;
    closedAt_ = dependencies_.clock.monotonic();
    const bool hadInput = panel_->isActiveWindow();
    panel_->hide();
    dependencies_.statusItem.setHighlighted(false);
    removeMonitors();
    if (hadInput)
        giveInputBack();
}

void StatusMenu::giveInputBack() {
    // Another window of ours that is open, the welcome window, gets it from the window manager.
    if (const auto program = std::exchange(cameFrom_, std::nullopt))
        dependencies_.workspace.activate(*program);
}

void StatusMenu::installMonitors() {
    removeMonitors();
    globalMonitor_ = dependencies_.mouseMonitor.addGlobalMonitor([this](QPoint position) {
        // The item itself belongs to another program here, and its own action follows.
        const QRectF item = downward(anchor());
        if (!item.contains(position))
            close();
        else if (!itemFrame())
            closeUnlessItemPressed();
    });
    QCoreApplication::instance()->installEventFilter(this);
    localMonitor_ = true;
    keyMonitor_ = dependencies_.keyMonitor.addLocalMonitor([this](const KeyPress& press) {
        // While a shortcut is recorded, Escape belongs to the recorder.
        if (press.keyCode != KeyCode::escape || model_.recordingHotkey())
            return KeyMonitor::Handling::passOn;
        close();
        return KeyMonitor::Handling::swallow;
    });
}

QCoro::Task<void> StatusMenu::closeUnlessItemPressed() {
    const QPointer<StatusMenu> self(this);
    const int presses = itemPresses_;
    co_await dependencies_.clock.sleepFor(itemActionDelay);
    if (self && self->itemPresses_ == presses)
        self->close();
}

void StatusMenu::removeMonitors() {
    if (const auto token = std::exchange(globalMonitor_, std::nullopt))
        dependencies_.mouseMonitor.removeMonitor(*token);
    if (std::exchange(localMonitor_, false) && QCoreApplication::instance() != nullptr)
        QCoreApplication::instance()->removeEventFilter(this);
    if (const auto token = std::exchange(keyMonitor_, std::nullopt))
        dependencies_.keyMonitor.removeMonitor(*token);
}

bool StatusMenu::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::MouseButtonPress && watched->isWidgetType()) {
        const auto* press = static_cast<QMouseEvent*>(event);
        if (press->button() == Qt::LeftButton || press->button() == Qt::RightButton)
            closeIfClick(static_cast<QWidget*>(watched)->window(), press->globalPosition().toPoint());
    }
    return QObject::eventFilter(watched, event);
}

void StatusMenu::closeIfClick(const QWidget* window, QPoint position) {
    if (!isOpen() || window == panel_.get())
        return;
    // An item that is embedded in the desktop's panel is a window of ours; its own action follows.
    const auto item = dependencies_.statusItem.frame();
    if (item && item->contains(position))
        return;
    close();
}

void StatusMenu::relayout() {
    if (!panel_ || placing_)
        return;
    panel_->layout()->activate();
    const QSize size = panel_->layout()->sizeHint();
    if (size.width() < smallestContent.width() || size.height() < smallestContent.height())
        return;
    const PanelRect target = frameUnderStatusItem(size);
    if (sameFrame(upward(panel_->geometry()), target))
        return;
    placing_ = true;
    panel_->setGeometry(downward(target).toRect());
    placing_ = false;
}

void StatusMenu::relayoutSoon() {
    relayout();
    QTimer::singleShot(0, this, &StatusMenu::relayout);
    relayoutLater();
}

QCoro::Task<void> StatusMenu::relayoutLater() {
    const QPointer<StatusMenu> self(this);
    co_await dependencies_.clock.sleepFor(settleDelay);
    if (self)
        self->relayout();
}

PanelRect StatusMenu::frameUnderStatusItem(QSize size) const {
    const PanelRect button = anchor();
    const QScreen* screen = screenOf(button);
    const PanelRect visible = screen != nullptr ? upward(screen->availableGeometry())
                                                : PanelRect{0, 0, static_cast<double>(size.width()),
                                                            static_cast<double>(size.height())};
    return MenuPanelPlacement::frameAtAnyEdge(size.width(), size.height(), button, visible, margin);
}

const QScreen* StatusMenu::screenOf(const PanelRect& rect) const {
    const QRectF area = downward(rect);
    const auto screens = QGuiApplication::screens();
    const auto found = std::ranges::find_if(
        screens, [&](const QScreen* each) { return QRectF(each->geometry()).contains(area.center()); });
    if (found != screens.end())
        return *found;
    return panel_ && panel_->isVisible() ? panel_->screen() : QGuiApplication::primaryScreen();
}

std::optional<QRect> StatusMenu::itemFrame() const {
    const auto frame = dependencies_.statusItem.frame();
    return frame && frame->width() > 1 && frame->height() > 1 ? frame : std::nullopt;
}

PanelRect StatusMenu::anchor() const {
    if (const auto frame = itemFrame())
        return upward(*frame);
    if (clickedAt_)
        return clickedButtonFrame(*clickedAt_);
    return fallbackButtonFrame();
}

PanelRect StatusMenu::clickedButtonFrame(QPoint point) const {
    QRectF button(point.x() - buttonSide / 2, point.y() - buttonSide / 2, buttonSide, buttonSide);
    const QScreen* screen = screenOf(upward(button));
    if (screen != nullptr) {
        // How thick the bar is, the visible area tells: the panel then stands beside the bar, not on it.
        const QRectF full = screen->geometry();
        const QRectF visible = screen->availableGeometry();
        if (point.y() < visible.top())
            button = QRectF(button.left(), full.top(), buttonSide, visible.top() - full.top());
        else if (point.y() >= visible.bottom())
            button = QRectF(button.left(), visible.bottom(), buttonSide, full.bottom() - visible.bottom());
        else if (point.x() < visible.left())
            button = QRectF(full.left(), button.top(), visible.left() - full.left(), buttonSide);
        else if (point.x() >= visible.right())
            button = QRectF(visible.right(), button.top(), full.right() - visible.right(), buttonSide);
    }
    return upward(button);
}

PanelRect StatusMenu::fallbackButtonFrame() const {
    const QScreen* screen =
        panel_ && panel_->isVisible() ? panel_->screen() : QGuiApplication::primaryScreen();
    const PanelRect area =
        screen != nullptr ? upward(screen->availableGeometry())
                          : (panel_ ? upward(panel_->geometry()) : PanelRect{0, 0, buttonSide, buttonSide});
    return {area.maxX() - fallbackInset, area.maxY(), buttonSide, buttonSide};
}

} // namespace vellumline
