#include "Vellumline/Style.h"

#include <QApplication>
#include <QFile>
#include <QFrame>
#include <QIconEngine>
#include <QLabel>
#include <QPainter>
#include <QPalette>
#include <QPushButton>
#include <QSvgRenderer>
#include <QToolButton>
#include <memory>

// The drawings lie in a static library, whose resources register themselves only when asked to.
// Q_INIT_RESOURCE must stand outside of every namespace.
static void registerDrawings() {
    static const bool once = [] {
        Q_INIT_RESOURCE(vellumline);
        return true;
    }();
    Q_UNUSED(once)
}

namespace vellumline::Style {

namespace {

constexpr double titleScale = 1.45;
constexpr double headlineScale = 1.15;
constexpr double captionScale = 0.92;
constexpr int secondaryAlpha = 165; // of 255: the text colour lets the background through

/// Draws a template image: only its shape counts, the colour is given.
class TemplateIconEngine final : public QIconEngine {
  public:
    TemplateIconEngine(const QString& name, const QColor& color) : name_(name), color_(color) {
        registerDrawings();
        renderer_ = std::make_shared<QSvgRenderer>(QStringLiteral(":/vellumline/%1.svg").arg(name));
    }

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override {
        painter->drawPixmap(rect, pixmap(rect.size() * painter->device()->devicePixelRatioF(), mode, state));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        QPixmap shape(size);
        shape.fill(Qt::transparent);
        QPainter painter(&shape);
        renderer_->setAspectRatioMode(Qt::KeepAspectRatio);
        renderer_->render(&painter);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(shape.rect(), color_);
        return shape;
    }
    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        return {{16, 16}, {18, 18}, {22, 22}, {24, 24}, {32, 32}, {48, 48}, {64, 64}};
    }
    QIconEngine* clone() const override { return new TemplateIconEngine(name_, color_); }

  private:
    QString name_;
    QColor color_;
    std::shared_ptr<QSvgRenderer> renderer_;
};

QLabel* label(const QString& text, double scale, int weight, QWidget* parent) {
    auto* made = new QLabel(text, parent);
    made->setTextFormat(Qt::PlainText);
    made->setWordWrap(true);
    QFont font = made->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setWeight(static_cast<QFont::Weight>(weight));
    made->setFont(font);
    return made;
}

} // namespace

QLabel* title(const QString& text, QWidget* parent) {
    return label(text, titleScale, QFont::DemiBold, parent);
}

QLabel* headline(const QString& text, QWidget* parent) {
    return label(text, headlineScale, QFont::DemiBold, parent);
}

QLabel* callout(const QString& text, QWidget* parent) {
    return label(text, 1.0, QFont::Normal, parent);
}

QLabel* caption(QWidget* parent) {
    QLabel* made = label({}, captionScale, QFont::Normal, parent);
    setSecondary(made, true);
    return made;
}

void setSecondary(QLabel* label, bool secondary) {
    QPalette palette = label->palette();
    QColor color = QApplication::palette().color(QPalette::WindowText);
    if (secondary)
        color.setAlpha(secondaryAlpha);
    palette.setColor(QPalette::WindowText, color);
    label->setPalette(palette);
}

void setMedium(QLabel* label) {
    QFont font = label->font();
    font.setWeight(QFont::Medium);
    label->setFont(font);
    setSecondary(label, false);
}

QPushButton* button(const QString& text, QWidget* parent) {
    auto* made = new QPushButton(text, parent);
    made->setAutoDefault(false);
    made->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    return made;
}

QPushButton* prominentButton(const QString& text, QWidget* parent) {
    QPushButton* made = button(text, parent);
    made->setStyleSheet(
        QStringLiteral("QPushButton { background: palette(highlight); color: palette(highlighted-text);"
                       " border: none; border-radius: 5px; padding: 5px 14px; }"
                       "QPushButton:focus { border: 2px solid palette(window-text); padding: 3px 12px; }"
                       "QPushButton:pressed { background: palette(dark); }"));
    return made;
}

QToolButton* iconButton(const QString& name, const QString& toolTip, QWidget* parent) {
    auto* made = new QToolButton(parent);
    QColor color = QApplication::palette().color(QPalette::WindowText);
    color.setAlpha(secondaryAlpha);
    made->setIcon(icon(name, color));
    made->setIconSize({16, 16});
    made->setAutoRaise(true);
    made->setToolTip(toolTip);
    made->setAccessibleName(toolTip);
    made->setFocusPolicy(Qt::StrongFocus);
    return made;
}

QIcon icon(const QString& name, const QColor& color) {
    return QIcon(new TemplateIconEngine(name, color));
}

QColor brandColor() {
    return {0x2f, 0x5d, 0x50};
}

QWidget* divider(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFixedHeight(1);
    QPalette palette = line->palette();
    QColor color = QApplication::palette().color(QPalette::WindowText);
    color.setAlpha(40);
    palette.setColor(QPalette::Window, color);
    line->setPalette(palette);
    line->setAutoFillBackground(true);
    return line;
}

} // namespace vellumline::Style
