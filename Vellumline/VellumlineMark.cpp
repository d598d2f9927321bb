#include "Vellumline/VellumlineMark.h"

#include <QIconEngine>
#include <QPainter>
#include <array>

namespace vellumline {

namespace {

struct Step {
    enum class Kind { move, line, curve, close };
    Kind kind;
    std::array<double, 6> points; ///< fractions of the rectangle; x before y
};

constexpr Step move(double x, double y) {
    return {Step::Kind::move, {x, y}};
}
constexpr Step line(double x, double y) {
    return {Step::Kind::line, {x, y}};
}
constexpr Step curve(double x1, double y1, double x2, double y2, double x, double y) {
    return {Step::Kind::curve, {x1, y1, x2, y2, x, y}};
}
constexpr Step close() {
    return {Step::Kind::close, {}};
}

// The drawing itself. The line's edges lie on sixteenths, so that it is sharp at 16, 32 and 64 pixels.
constexpr std::array steps{
    move(0.2114, 0.3220),
    line(0.4391, 0.6388),
    curve(0.4460, 0.6484, 0.4552, 0.6563, 0.4658, 0.6617),
    curve(0.4764, 0.6672, 0.4881, 0.6700, 0.5000, 0.6700),
    curve(0.5119, 0.6700, 0.5236, 0.6672, 0.5342, 0.6617),
    curve(0.5448, 0.6563, 0.5540, 0.6484, 0.5609, 0.6388),
    line(0.7886, 0.3220),
    curve(0.8473, 0.2403, 0.8772, 0.2124, 0.9124, 0.1634),
    curve(0.9392, 0.1262, 0.9307, 0.0744, 0.8934, 0.0476),
    curve(0.8562, 0.0208, 0.8044, 0.0293, 0.7776, 0.0666),
    curve(0.7189, 0.1482, 0.7020, 0.1854, 0.6668, 0.2344),
    line(0.5350, 0.4178),
    curve(0.5175, 0.4421, 0.5090, 0.4545, 0.5000, 0.4545),
    curve(0.4910, 0.4545, 0.4825, 0.4421, 0.4650, 0.4178),
    line(0.3332, 0.2344),
    curve(0.2745, 0.1528, 0.2576, 0.1156, 0.2224, 0.0666),
    curve(0.1956, 0.0293, 0.1438, 0.0208, 0.1066, 0.0476),
    curve(0.0693, 0.0744, 0.0608, 0.1262, 0.0876, 0.1634),
    curve(0.1463, 0.2451, 0.1762, 0.2730, 0.2114, 0.3220),
    close(),
    move(0.8750, 0.8125),
    curve(0.9095, 0.8125, 0.9375, 0.8405, 0.9375, 0.8750),
    curve(0.9375, 0.9095, 0.9095, 0.9375, 0.8750, 0.9375),
    line(0.6000, 0.9375),
    curve(0.5559, 0.9375, 0.5391, 0.9135, 0.4950, 0.9135),
    curve(0.4425, 0.9135, 0.4225, 0.9935, 0.3700, 0.9935),
    curve(0.3133, 0.9935, 0.2917, 0.8815, 0.2350, 0.8815),
    curve(0.1888, 0.8815, 0.1712, 0.9495, 0.1250, 0.9495),
    curve(0.0905, 0.9495, 0.0625, 0.9215, 0.0625, 0.8870),
    curve(0.0625, 0.8525, 0.0905, 0.8245, 0.1250, 0.8245),
    curve(0.1712, 0.8245, 0.1888, 0.7565, 0.2350, 0.7565),
    curve(0.2917, 0.7565, 0.3133, 0.8685, 0.3700, 0.8685),
    curve(0.4225, 0.8685, 0.4425, 0.7885, 0.4950, 0.7885),
    curve(0.5391, 0.7885, 0.5559, 0.8125, 0.6000, 0.8125),
    line(0.8750, 0.8125),
    close(),
};

class MarkIconEngine final : public QIconEngine {
  public:
    explicit MarkIconEngine(QColor color) : color_(color) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->fillPath(VellumlineMarkImage::outline(rect), color_);
        painter->restore();
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap drawn(size);
        drawn.fill(Qt::transparent);
        QPainter painter(&drawn);
        paint(&painter, drawn.rect(), mode, state);
        return drawn;
    }
    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        return {{16, 16}, {18, 18}, {22, 22}, {24, 24}, {32, 32}, {48, 48}, {64, 64}};
    }
    QIconEngine* clone() const override { return new MarkIconEngine(color_); }

  private:
    QColor color_;
};

} // namespace

namespace VellumlineMarkImage {

QPainterPath outline(const QRectF& rect) {
    const auto point = [&rect](const Step& step, std::size_t index) {
        return QPointF(rect.x() + step.points.at(index) * rect.width(),
                       rect.y() + step.points.at(index + 1) * rect.height());
    };
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    for (const Step& step : steps) {
        switch (step.kind) {
        case Step::Kind::move:
            path.moveTo(point(step, 0));
            break;
        case Step::Kind::line:
            path.lineTo(point(step, 0));
            break;
        case Step::Kind::curve:
            path.cubicTo(point(step, 0), point(step, 2), point(step, 4));
            break;
        case Step::Kind::close:
            path.closeSubpath();
            break;
        }
    }
    return path;
}

QIcon image(const QColor& color) {
    return QIcon(new MarkIconEngine(color));
}

} // namespace VellumlineMarkImage

VellumlineMark::VellumlineMark(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Vellumline"));
}

QSize VellumlineMark::sizeHint() const {
    return {VellumlineMarkImage::side, VellumlineMarkImage::side};
}

void VellumlineMark::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = qMin(width(), height());
    const QRectF square((width() - side) / 2, (height() - side) / 2, side, side);
    painter.fillPath(VellumlineMarkImage::outline(square), palette().color(QPalette::WindowText));
}

} // namespace vellumline
