#include "Vellumline/StatusMenu.h"

#include "Vellumline/Style.h"

#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QPainter>
#include <QPointer>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QVBoxLayout>
#include <algorithm>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr auto reopenDelay = 250ms; // a click that just closed the panel must not open it again
constexpr double margin = 4;
constexpr double fallbackSize = 24;
constexpr double fallbackInset = 28;

/// Screen coordinates whose y grows upward, with the origin at the bottom left of the primary screen.
PanelRect upward(const QRect& rect) {
    const double primaryHeight = QGuiApplication::primaryScreen()->geometry().height();
    return {static_cast<double>(rect.x()), primaryHeight - rect.y() - rect.height(),
            static_cast<double>(rect.width()), static_cast<double>(rect.height())};
}

QPoint topLeft(const PanelRect& rect) {
    const double primaryHeight = QGuiApplication::primaryScreen()->geometry().height();
    return {qRound(rect.x), qRound(primaryHeight - rect.maxY())};
}

} // namespace

/// The floating panel itself: frameless, above others, closing on Escape and when the user turns elsewhere.
class MenuPanel : public QWidget {
  public:
    MenuPanel(StatusMenu& menu, AppModel& model, MenuContent::Actions actions)
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), menu_(menu),
          model_(model) {
        setWindowTitle(QStringLiteral("Vellumline"));
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(1, 1, 1, 1);
        layout->setSizeConstraint(QLayout::SetFixedSize);
        content_ = new MenuContent(model, std::move(actions), this);
        layout->addWidget(content_);
    }

    MenuContent* content() const { return content_; }

  protected:
    void paintEvent(QPaintEvent* /*event*/) override {
        QPainter painter(this);
        QColor border = palette().color(QPalette::WindowText);
        border.setAlpha(70);
        painter.setPen(border);
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }
    void keyPressEvent(QKeyEvent* event) override {
        // While a shortcut is recorded, Escape belongs to the recorder.
        if (event->key() == Qt::Key_Escape && !model_.recordingHotkey())
            menu_.close();
        else
            QWidget::keyPressEvent(event);
    }
    void changeEvent(QEvent* event) override {
        QWidget::changeEvent(event);
        if (event->type() == QEvent::ActivationChange && !isActiveWindow() && isVisible())
            menu_.close();
    }

  private:
    StatusMenu& menu_;
    AppModel& model_;
    MenuContent* content_;
};

StatusMenu::StatusMenu(AppModel& model, MenuContent::Actions actions, HostGate whenHostIsReady, Clock& clock)
    : model_(model), actions_(std::move(actions)), whenHostIsReady_(std::move(whenHostIsReady)),
      clock_(clock) {}

StatusMenu::~StatusMenu() = default;

void StatusMenu::start() {
    if (started_)
        return;
    started_ = true;
    connect(&model_, &AppModel::busyChanged, this, &StatusMenu::updateIcon);
    whenHostIsReady_([self = QPointer<StatusMenu>(this)] {
        if (self)
            self->showItem();
    });
}

void StatusMenu::showItem() {
    item_ = std::make_unique<QSystemTrayIcon>();
    connect(item_.get(), &QSystemTrayIcon::activated, this, [this] {
        clickedAt_ = QCursor::pos();
        toggle();
    });
    updateIcon();
    item_->show();
}

void StatusMenu::updateIcon() {
    if (!item_)
        return;
    const QColor color = QApplication::palette().color(QPalette::WindowText);
    item_->setIcon(Style::icon(model_.busy() ? QStringLiteral("busy") : QStringLiteral("mark"), color));
    item_->setToolTip(model_.busy() ? QStringLiteral("Vellumline, correcting")
                                    : QStringLiteral("Vellumline"));
}

void StatusMenu::toggle() {
    if (closedAt_ && clock_.monotonic() - *closedAt_ < reopenDelay)
        return;
    if (isOpen())
        close();
    else
        show();
}

bool StatusMenu::isOpen() const {
    return panel_ && panel_->isVisible();
}

void StatusMenu::show() {
    if (!panel_) {
        panel_ = std::make_unique<MenuPanel>(*this, model_, actions_);
        // Later: the content must not be measured from inside its own change.
        connect(panel_->content(), &MenuContent::sizeMayHaveChanged, this, &StatusMenu::relayout,
                Qt::QueuedConnection);
    }
    panel_->content()->willShow();
    relayout();
    panel_->show();
    panel_->raise();
    panel_->activateWindow();
}

void StatusMenu::close() {
    if (!isOpen())
        return;
    closedAt_ = clock_.monotonic();
    panel_->hide();
}

PanelRect StatusMenu::anchor() const {
    if (item_) {
        const QRect geometry = item_->geometry();
        if (geometry.width() > 1 && geometry.height() > 1)
            return upward(geometry);
    }
    if (clickedAt_)
        return upward(QRect(clickedAt_->x() - 1, clickedAt_->y() - 1, 2, 2));
    const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
    const PanelRect area = upward(visible);
    return {area.maxX() - fallbackInset, area.maxY(), fallbackSize, fallbackSize};
}

void StatusMenu::relayout() {
    if (!panel_)
        return;
    panel_->layout()->activate();
    const QSize size = panel_->sizeHint();
    const PanelRect button = anchor();
    const QScreen* screen =
        QGuiApplication::screenAt(topLeft({button.midX(), button.y + button.height / 2, 0, 0}));
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    const PanelRect visible = upward(screen->availableGeometry());
    PanelRect frame = MenuPanelPlacement::frame(size.width(), size.height(), button, visible, margin);
    // The rule knows a bar at the top of the screen; under a bar at the bottom the panel would leave the
    // screen.
    if (frame.y < visible.y)
        frame.y = std::min(button.maxY(), visible.maxY() - frame.height);
    panel_->move(topLeft(frame));
}

} // namespace vellumline
