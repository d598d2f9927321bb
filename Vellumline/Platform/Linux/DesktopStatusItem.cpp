#include "Vellumline/Platform/Linux/DesktopStatusItem.h"

#include <QCursor>
#include <QIconEngine>
#include <QPainter>
#include <QSystemTrayIcon>
#include <QTimer>
#include <array>
#include <chrono>
#include <utility>

namespace vellumline {

using namespace std::chrono_literals;

namespace {

const QColor colorOnDark(0xee, 0xee, 0xee);
const QColor colorOnLight(0x33, 0x33, 0x33);
/// Where the panel's ground is not known: stands out at least 4.5 to 1 from both black and white (WCAG 2.1,
/// 1.4.3).
const QColor colorOnAnything(0x76, 0x76, 0x76);
constexpr int middleLightness = 128;
/// A panel takes items before it has drawn itself, and at log-in others still come after it.
constexpr std::array<std::chrono::milliseconds, 3> untilPanelsAreDrawn = {1s, 4s, 15s};

/// A template image on the ground of a pressed button.
class HighlightedIconEngine final : public QIconEngine {
  public:
    HighlightedIconEngine(QIcon icon, QColor color) : icon_(std::move(icon)), color_(color) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        constexpr double radiusShare = 0.2;
        constexpr double insetShare = 0.12;
        constexpr int groundAlpha = 60;
        QColor ground = color_;
        ground.setAlpha(groundAlpha);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(Qt::NoPen);
        painter->setBrush(ground);
        painter->drawRoundedRect(rect, rect.width() * radiusShare, rect.height() * radiusShare);
        const int inset = qRound(rect.width() * insetShare);
        icon_.paint(painter, rect.adjusted(inset, inset, -inset, -inset));
        painter->restore();
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap drawn(size);
        drawn.fill(Qt::transparent);
        QPainter painter(&drawn);
        paint(&painter, drawn.rect(), mode, state);
        return drawn;
    }
    QIconEngine* clone() const override { return new HighlightedIconEngine(icon_, color_); }

  private:
    QIcon icon_;
    QColor color_;
};

} // namespace

DesktopStatusItem::DesktopStatusItem(PanelColor panelColor, QDBusConnection bus, QObject* parent)
    : QObject(parent), panelColor_(std::move(panelColor)), color_(colorOnAnything),
      notifier_(std::move(bus)) {
    connect(&notifier_, &StatusNotifierItem::shownChanged, this, &DesktopStatusItem::hostChanged);
    connect(&notifier_, &StatusNotifierItem::activated, this, &DesktopStatusItem::pressed);
}

DesktopStatusItem::~DesktopStatusItem() = default;

void DesktopStatusItem::show() {
    notifier_.start();
}

void DesktopStatusItem::hostChanged() {
    chooseColor();
    for (const auto delay : untilPanelsAreDrawn)
        QTimer::singleShot(delay, this, &DesktopStatusItem::lookAgain);
    if (notifier_.isShown()) {
        embedded_.reset();
        apply();
        return;
    }
    // Made only while no watcher is on the bus: the toolkit then embeds, now and for good.
    embedded_ = std::make_unique<QSystemTrayIcon>();
    connect(embedded_.get(), &QSystemTrayIcon::activated, this, &DesktopStatusItem::pressed);
    apply();
    embedded_->show();
}

void DesktopStatusItem::lookAgain() {
    const QColor before = color_;
    chooseColor();
    if (color_ != before)
        apply();
}

void DesktopStatusItem::chooseColor() {
    const std::optional<QColor> panel = panelColor_ ? panelColor_() : std::nullopt;
    if (panel)
        color_ = panel->lightness() < middleLightness ? colorOnDark : colorOnLight;
    else
        color_ = colorOnAnything;
}

void DesktopStatusItem::pressed() {
    // The pointer is on the item; what hosts send as its place is not always a place on the screen.
    if (onAction)
        onAction(QCursor::pos());
}

void DesktopStatusItem::setImage(const Image& image) {
    image_ = image;
    apply();
}

void DesktopStatusItem::setAccessibilityLabel(const QString& label) {
    label_ = label;
    notifier_.setLabel(label);
    if (embedded_)
        embedded_->setToolTip(label);
}

void DesktopStatusItem::setHighlighted(bool highlighted) {
    if (std::exchange(highlighted_, highlighted) == highlighted)
        return;
    // Panels come later than the program and change with the desktop's theme; now there is time to look.
    chooseColor();
    apply();
}

void DesktopStatusItem::apply() {
    if (!image_)
        return;
    QIcon icon = image_(color_);
    if (highlighted_)
        icon = QIcon(new HighlightedIconEngine(std::move(icon), color_));
    notifier_.setIcon(icon);
    if (embedded_) {
        embedded_->setIcon(icon);
        embedded_->setToolTip(label_);
    }
}

std::optional<QRect> DesktopStatusItem::frame() const {
    if (!embedded_)
        return std::nullopt;
    const QRect geometry = embedded_->geometry();
    return geometry.width() > 1 && geometry.height() > 1 ? std::optional(geometry) : std::nullopt;
}

} // namespace vellumline
