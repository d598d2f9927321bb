#include "Vellumline/Style.h"

#include <QAccessibleWidget>
#include <QApplication>
#include <QEvent>
#include <QFontDatabase>
#include <QHash>
#include <QIconEngine>
#include <QKeyEvent>
#include <QPainter>
#include <QPlainTextEdit>
#include <QResizeEvent>
#include <QSvgRenderer>
#include <QVBoxLayout>
#include <algorithm>
#include <limits>
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

constexpr double titleScale = 1.4;
constexpr double headlineScale = 1.18;
constexpr double captionScale = 0.94;
constexpr double usualTextHeight = 13; // pixels; up to here the described lengths hold as they are
constexpr double cornerRadius = 6;
constexpr double focusWidth = 2;
constexpr int buttonPadding = 12;
constexpr int buttonInset = 5;
constexpr int iconSide = 16;
constexpr int iconPadding = 5;

QColor mixed(const QColor& below, const QColor& above, double share) {
    const auto channel = [share](int from, int to) { return qRound(from + (to - from) * share); };
    return {channel(below.red(), above.red()), channel(below.green(), above.green()),
            channel(below.blue(), above.blue())};
}

/// The window's colour with some of the text's: the fill and the edge of controls.
QColor shade(const QPalette& palette, double share) {
    return mixed(palette.color(QPalette::Window), palette.color(QPalette::WindowText), share);
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

std::shared_ptr<QSvgRenderer> drawing(const QString& name) {
    static QHash<QString, std::shared_ptr<QSvgRenderer>> known;
    auto& renderer = known[name];
    if (!renderer) {
        registerDrawings();
        renderer = std::make_shared<QSvgRenderer>(QStringLiteral(":/vellumline/%1.svg").arg(name));
        renderer->setAspectRatioMode(Qt::KeepAspectRatio);
    }
    return renderer;
}

QPixmap tinted(const QString& name, const QSize& pixels, const QColor& color) {
    QPixmap shape(pixels);
    shape.fill(Qt::transparent);
    QPainter painter(&shape);
    drawing(name)->render(&painter);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(shape.rect(), color);
    return shape;
}

void paintDrawing(QPainter& painter, const QString& name, const QRect& rect, const QColor& color) {
    const double ratio = painter.device()->devicePixelRatioF();
    painter.drawPixmap(rect, tinted(name, rect.size() * ratio, color));
}

void paintFocus(QPainter& painter, const QRectF& rect, double radius, const QPalette& palette) {
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(palette.color(QPalette::Highlight), focusWidth));
    painter.drawRoundedRect(rect.adjusted(1, 1, -1, -1), radius, radius);
}

const char* const focusProperty = "focusIsVisible";

/// The focus is drawn when the keyboard brought it, not when a click did or the window opened.
void noteFocus(QWidget* widget, const QFocusEvent* event) {
    switch (event->reason()) {
    case Qt::MouseFocusReason:
        widget->setProperty(focusProperty, false);
        break;
    case Qt::TabFocusReason:
    case Qt::BacktabFocusReason:
    case Qt::ShortcutFocusReason:
    case Qt::OtherFocusReason:
        widget->setProperty(focusProperty, true);
        break;
    default: // the window came or went: as it was
        break;
    }
}

/// Return presses a button that has the focus, as the space bar does; outside of dialogs the toolkit leaves
/// it at the space bar.
bool clickOnReturn(QAbstractButton* button, const QKeyEvent* event) {
    if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter)
        return false;
    if (!event->isAutoRepeat())
        button->click();
    return true;
}

bool showsFocus(const QWidget* widget) {
    return widget->hasFocus() && widget->property(focusProperty).toBool();
}

/// Draws a template image: only its shape counts, the colour is given.
class TemplateIconEngine final : public QIconEngine {
  public:
    TemplateIconEngine(QString name, QColor color) : name_(std::move(name)), color_(color) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        paintDrawing(*painter, name_, rect, color_);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        return tinted(name_, size, color_);
    }
    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        return {{16, 16}, {18, 18}, {22, 22}, {24, 24}, {32, 32}, {48, 48}, {64, 64}};
    }
    QIconEngine* clone() const override { return new TemplateIconEngine(name_, color_); }

  private:
    QString name_;
    QColor color_;
};

/// A button that a screen reader calls a link.
class AccessibleLink final : public QAccessibleWidget {
  public:
    explicit AccessibleLink(Button* button) : QAccessibleWidget(button, QAccessible::Link, button->text()) {}

    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? link()->text() : QAccessibleWidget::text(kind);
    }
    QStringList actionNames() const override {
        return QStringList{pressAction()} + QAccessibleWidget::actionNames();
    }
    void doAction(const QString& name) override {
        if (name == pressAction())
            link()->click();
        else
            QAccessibleWidget::doAction(name);
    }

  private:
    Button* link() const { return static_cast<Button*>(widget()); }
};

QAccessibleInterface* accessibleLink(const QString& /*className*/, QObject* object) {
    auto* button = qobject_cast<Button*>(object);
    return button != nullptr && button->kind() == Button::Kind::link ? new AccessibleLink(button) : nullptr;
}

class Divider final : public QWidget {
  public:
    explicit Divider(QWidget* parent) : QWidget(parent) { setFixedHeight(1); }

  protected:
    void paintEvent(QPaintEvent* /*event*/) override {
        QPainter painter(this);
        painter.fillRect(rect(), shade(palette(), 0.15));
    }
};

QFont resized(QFont font, double scale) {
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * scale);
    else
        font.setPixelSize(qRound(font.pixelSize() * scale));
    return font;
}

} // namespace

QPalette palette(ColorScheme scheme, Contrast contrast) {
    const bool dark = scheme == ColorScheme::dark;
    const bool high = contrast == Contrast::high;
    const QColor window = high ? QColor(dark ? Qt::black : Qt::white)
                               : (dark ? QColor(0x20, 0x24, 0x22) : QColor(0xfb, 0xfa, 0xf6));
    const QColor text = high ? QColor(dark ? Qt::white : Qt::black)
                             : (dark ? QColor(0xec, 0xee, 0xe9) : QColor(0x1f, 0x25, 0x22));
    const QColor accent = dark ? QColor(0x86, 0xcf, 0xb4) : QColor(0x2c, 0x67, 0x55);
    QPalette made;
    made.setColor(QPalette::Window, window);
    made.setColor(QPalette::WindowText, text);
    made.setColor(QPalette::Base, dark ? mixed(window, Qt::black, 0.25) : QColor(Qt::white));
    made.setColor(QPalette::AlternateBase, mixed(window, text, 0.05));
    made.setColor(QPalette::Text, text);
    made.setColor(QPalette::PlaceholderText, mixed(window, text, 0.6));
    made.setColor(QPalette::Button, mixed(window, text, 0.07));
    made.setColor(QPalette::ButtonText, text);
    made.setColor(QPalette::BrightText, dark ? Qt::black : Qt::white);
    made.setColor(QPalette::Highlight, accent);
    made.setColor(QPalette::HighlightedText, dark ? QColor(0x10, 0x1c, 0x18) : QColor(Qt::white));
    made.setColor(QPalette::Link, accent);
    made.setColor(QPalette::LinkVisited, accent);
    made.setColor(QPalette::ToolTipBase, mixed(window, text, dark ? 0.12 : 0.04));
    made.setColor(QPalette::ToolTipText, text);
    made.setColor(QPalette::Light, mixed(window, Qt::white, dark ? 0.12 : 0.6));
    made.setColor(QPalette::Midlight, mixed(window, text, 0.1));
    made.setColor(QPalette::Mid, mixed(window, text, 0.25));
    made.setColor(QPalette::Dark, mixed(window, text, 0.35));
    made.setColor(QPalette::Shadow, mixed(window, Qt::black, 0.6));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        made.setColor(QPalette::Disabled, role, mixed(window, text, 0.45));
    return made;
}

int scaled(int length) {
    const double height = QFontInfo(QApplication::font()).pixelSize();
    return qRound(length * std::max(1.0, height / usualTextHeight));
}

QColor color(const QPalette& palette, Tone tone) {
    switch (tone) {
    case Tone::primary:
        break;
    case Tone::secondary:
        // 0.66 keeps a contrast of 4.5 to 1 (WCAG 2.1, 1.4.3) between dark text and a white window.
        return shade(palette, 0.66);
    case Tone::good:
        return isDark(palette) ? QColor(0x74, 0xd0, 0x93) : QColor(0x2a, 0x86, 0x4a);
    case Tone::warning:
        return isDark(palette) ? QColor(0xf0, 0xb4, 0x5c) : QColor(0xb8, 0x6a, 0x0c);
    }
    return palette.color(QPalette::WindowText);
}

Label::Label(const QString& text, double scale, QFont::Weight weight, QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    QFont font = resized(this->font(), scale);
    font.setWeight(weight);
    setFont(font);
    align();
    setText(text);
}

void Label::align() {
    // At the side where the layout begins, whichever direction the text itself has.
    setAlignment(Qt::AlignAbsolute | Qt::AlignVCenter |
                 (layoutDirection() == Qt::RightToLeft ? Qt::AlignRight : Qt::AlignLeft));
}

void Label::setText(const QString& text) {
    fullText_ = shown_ = text;
    setAccessibleName(text);
    QLabel::setText(text);
    elide();
}

void Label::setTone(Tone tone) {
    tone_ = tone;
    recolor();
}

void Label::elide() {
    if (text() != shown_) { // set through the base class
        fullText_ = text();
        setAccessibleName(fullText_);
    }
    QString shown = fullText_;
    if (laidOut_) {
        QStringList words = fullText_.split(QLatin1Char(' '));
        for (QString& word : words)
            word = fontMetrics().elidedText(word, Qt::ElideMiddle, std::max(1, contentsRect().width()));
        shown = words.join(QLatin1Char(' '));
    }
    setToolTip(shown == fullText_ ? QString() : fullText_);
    shown_ = shown;
    if (shown != text())
        QLabel::setText(shown);
}

void Label::resizeEvent(QResizeEvent* event) {
    QLabel::resizeEvent(event);
    laidOut_ = true;
    elide();
}

QSize Label::minimumSizeHint() const {
    const QSize hint = QLabel::minimumSizeHint();
    return wordWrap() ? QSize(1, hint.height()) : hint;
}

void Label::recolor() {
    if (recoloring_)
        return;
    recoloring_ = true;
    const QPalette base = QApplication::palette(this);
    QPalette own;
    own.setColor(QPalette::WindowText, color(base, tone_));
    setPalette(own); // the other roles go on following the window
    recoloring_ = false;
}

void Label::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    const bool newColors =
        event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange;
    if (newColors && tone_ != Tone::primary)
        recolor();
    if (event->type() == QEvent::LayoutDirectionChange)
        align();
}

Label* title(const QString& text, QWidget* parent) {
    return new Label(text, titleScale, QFont::DemiBold, parent);
}

Label* headline(const QString& text, QWidget* parent) {
    return new Label(text, headlineScale, QFont::DemiBold, parent);
}

Label* callout(const QString& text, QWidget* parent) {
    return new Label(text, 1.0, QFont::Normal, parent);
}

Label* caption(QWidget* parent) {
    auto* made = new Label({}, captionScale, QFont::Normal, parent);
    made->setTone(Tone::secondary);
    return made;
}

Label* monospaced(QWidget* parent) {
    auto* made = new Label({}, 1.0, QFont::Normal, parent);
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (made->font().pointSizeF() > 0)
        font.setPointSizeF(made->font().pointSizeF());
    made->setFont(font);
    made->setWordWrap(false);
    return made;
}

void setMedium(Label* label) {
    QFont font = label->font();
    font.setWeight(QFont::Medium);
    label->setFont(font);
    label->setTone(Tone::primary);
}

Button::Button(const QString& text, Kind kind, QWidget* parent) : QPushButton(text, parent), kind_(kind) {
    setAutoDefault(false);
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
    if (kind == Kind::caption || kind == Kind::link)
        setFont(resized(font(), captionScale));
    if (kind == Kind::prominent) {
        QFont heavier = font();
        heavier.setWeight(QFont::Medium);
        setFont(heavier);
    }
    if (kind == Kind::link) {
        setCursor(Qt::PointingHandCursor);
        static const bool installed = [] {
            QAccessible::installFactory(accessibleLink);
            return true;
        }();
        Q_UNUSED(installed)
    }
}

QSize Button::sizeHint() const {
    const int width = fontMetrics().horizontalAdvance(text()) + 1; // bearings
    if (kind_ == Kind::link)
        return {width, fontMetrics().height() + 2 * qRound(focusWidth)};
    return {width + 2 * scaled(buttonPadding), fontMetrics().height() + 2 * scaled(buttonInset) + 2};
}

void Button::keyPressEvent(QKeyEvent* event) {
    if (!clickOnReturn(this, event))
        QPushButton::keyPressEvent(event);
}

void Button::focusInEvent(QFocusEvent* event) {
    noteFocus(this, event);
    QPushButton::focusInEvent(event);
}

void Button::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const QColor accent = palette().color(QPalette::Highlight);
    QColor ink = palette().color(QPalette::WindowText);
    if (kind_ == Kind::link) {
        ink = palette().color(QPalette::Link);
        QFont underlined = font();
        underlined.setUnderline(underMouse() || showsFocus(this));
        painter.setFont(underlined);
    } else if (kind_ == Kind::prominent) {
        ink = palette().color(QPalette::HighlightedText);
        const QColor fill =
            mixed(accent, palette().color(QPalette::WindowText), isDown() ? 0.25 : (underMouse() ? 0.12 : 0));
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(area, cornerRadius, cornerRadius);
    } else {
        painter.setPen(shade(palette(), 0.22));
        painter.setBrush(shade(palette(), isDown() ? 0.18 : (underMouse() ? 0.11 : 0.05)));
        painter.drawRoundedRect(area, cornerRadius, cornerRadius);
    }
    if (showsFocus(this) && kind_ != Kind::link) { // a link is underlined
        if (kind_ == Kind::prominent) {
            // Inside the fill, where the accent itself would not be seen.
            painter.setBrush(Qt::NoBrush);
            painter.setPen(QPen(ink, 1.5));
            painter.drawRoundedRect(area.adjusted(2.5, 2.5, -2.5, -2.5), cornerRadius - 2, cornerRadius - 2);
        } else {
            paintFocus(painter, area, cornerRadius, palette());
        }
    }
    painter.setPen(ink);
    // The text's own direction, so that the dots at its end stay there in a mirrored layout.
    painter.setLayoutDirection(text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    painter.drawText(rect(), Qt::AlignCenter, text());
}

Button* prominentButton(const QString& text, QWidget* parent) {
    return new Button(text, Button::Kind::prominent, parent);
}

Button* button(const QString& text, QWidget* parent) {
    return new Button(text, Button::Kind::plain, parent);
}

Button* captionButton(const QString& text, QWidget* parent) {
    return new Button(text, Button::Kind::caption, parent);
}

Button* linkButton(const QString& text, QWidget* parent) {
    return new Button(text, Button::Kind::link, parent);
}

IconButton::IconButton(QString name, const QString& toolTip, QWidget* parent)
    : QToolButton(parent), name_(std::move(name)) {
    setToolTip(toolTip);
    setAccessibleName(toolTip);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
}

QSize IconButton::sizeHint() const {
    const int side = scaled(iconSide) + 2 * iconPadding;
    return {side, side};
}

void IconButton::keyPressEvent(QKeyEvent* event) {
    if (!clickOnReturn(this, event))
        QToolButton::keyPressEvent(event);
}

void IconButton::focusInEvent(QFocusEvent* event) {
    noteFocus(this, event);
    QToolButton::focusInEvent(event);
}

void IconButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (underMouse() || isDown()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(shade(palette(), isDown() ? 0.18 : 0.09));
        painter.drawRoundedRect(area, cornerRadius, cornerRadius);
    }
    if (showsFocus(this))
        paintFocus(painter, area, cornerRadius, palette());
    const int side = scaled(iconSide);
    const QRect place((width() - side) / 2, (height() - side) / 2, side, side);
    paintDrawing(painter, name_, place,
                 color(palette(), underMouse() || showsFocus(this) ? Tone::primary : Tone::secondary));
}

namespace {

QSize switchSize() {
    return {scaled(34), scaled(20)};
}

} // namespace

Toggle::Toggle(const QString& text, QWidget* parent) : QCheckBox(text, parent) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
}

QSize Toggle::sizeHint() const {
    const QSize knob = switchSize();
    return {fontMetrics().horizontalAdvance(text()) + buttonPadding + knob.width() + 1,
            std::max(fontMetrics().height(), knob.height()) + 2 * qRound(focusWidth)};
}

bool Toggle::hitButton(const QPoint& position) const {
    return rect().contains(position);
}

void Toggle::focusInEvent(QFocusEvent* event) {
    noteFocus(this, event);
    QCheckBox::focusInEvent(event);
}

void Toggle::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QSize size = switchSize();
    const bool rightToLeft = layoutDirection() == Qt::RightToLeft;
    const int inset = qRound(focusWidth);
    const QRectF track(rightToLeft ? inset : width() - size.width() - inset, (height() - size.height()) / 2.0,
                       size.width(), size.height());
    const double radius = track.height() / 2;
    painter.setPen(Qt::NoPen);
    const QColor on = palette().color(QPalette::Highlight);
    const QColor off = shade(palette(), underMouse() ? 0.42 : 0.36);
    painter.setBrush(isChecked() ? on : off);
    painter.drawRoundedRect(track, radius, radius);
    const double knob = track.height() - 4;
    const bool atRight = isChecked() != rightToLeft;
    painter.setBrush(isChecked() ? palette().color(QPalette::HighlightedText)
                                 : palette().color(QPalette::Window));
    painter.drawEllipse(
        QRectF(atRight ? track.right() - knob - 2 : track.left() + 2, track.top() + 2, knob, knob));
    if (showsFocus(this))
        paintFocus(painter, track.adjusted(-2, -2, 2, 2), radius + 1, palette());
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect(), Qt::AlignLeading | Qt::AlignVCenter, text()); // mirrored with the layout
}

Symbol::Symbol(int side, QWidget* parent) : QWidget(parent), side_(scaled(side)) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void Symbol::setSymbol(const QString& name, Tone tone, const QString& description) {
    name_ = name;
    tone_ = tone;
    setAccessibleName(description);
    update();
}

void Symbol::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    paintDrawing(painter, name_, rect(), color(palette(), tone_));
}

UsageBar::UsageBar(QWidget* parent) : QProgressBar(parent) {
    setTextVisible(false);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(QStringLiteral("Free rewrites used"));
}

void UsageBar::setUsage(qint64 used, qint64 allowed, Tone tone) {
    constexpr qint64 most = std::numeric_limits<int>::max();
    tone_ = tone;
    setRange(0, static_cast<int>(std::clamp<qint64>(allowed, 1, most)));
    setValue(static_cast<int>(std::clamp<qint64>(used, 0, maximum())));
    update();
}

QSize UsageBar::sizeHint() const {
    return {scaled(60), scaled(5)};
}

void UsageBar::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const double radius = height() / 2.0;
    painter.setBrush(shade(palette(), 0.14));
    painter.drawRoundedRect(rect(), radius, radius);
    if (value() <= 0)
        return;
    const double filled = std::max<double>(height(), double(width()) * value() / maximum());
    const double left = layoutDirection() == Qt::RightToLeft ? width() - filled : 0;
    painter.setBrush(tone_ == Tone::warning ? color(palette(), tone_) : palette().color(QPalette::Highlight));
    painter.drawRoundedRect(QRectF(left, 0, filled, height()), radius, radius);
}

Field::Field(QWidget* parent) : QWidget(parent) {}

void Field::setEditor(QPlainTextEdit* editor) {
    constexpr int inset = 4;
    editor_ = editor;
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(inset, inset, inset, inset);
    layout->addWidget(editor);
    editor->setFrameShape(QFrame::NoFrame);
    editor->viewport()->setAutoFillBackground(false);
    editor->installEventFilter(this);
    setFocusProxy(editor);
}

bool Field::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut)
        update();
    return QWidget::eventFilter(watched, event);
}

void Field::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(shade(palette(), 0.25));
    painter.setBrush(palette().color(QPalette::Base));
    painter.drawRoundedRect(area, cornerRadius, cornerRadius);
    if (editor_ != nullptr && editor_->hasFocus())
        paintFocus(painter, area, cornerRadius, palette());
}

QIcon icon(const QString& name, const QColor& color) {
    return QIcon(new TemplateIconEngine(name, color));
}

QIcon applicationIcon() {
    registerDrawings();
    return QIcon(QStringLiteral(":/vellumline/application.svg"));
}

QWidget* divider(QWidget* parent) {
    return new Divider(parent);
}

} // namespace vellumline::Style
