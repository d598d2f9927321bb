#pragma once

#include <QColor>
#include <QIcon>
#include <QPainterPath>
#include <QRectF>
#include <QWidget>

namespace vellumline {

/// The program's mark: a V over a line that starts as the squiggle under a mistake and ends straight. A
/// template image: only its shape counts, the place where it is shown gives the colour.
namespace VellumlineMarkImage {

/// The side of the image at its natural size, in device-independent pixels.
inline constexpr int side = 18;

/// The outline in a rectangle whose y grows downward: two closed subpaths of 26 cubic curves and 6 straight
/// lines in all, every point a fraction of the rectangle. To be filled with the winding rule.
QPainterPath outline(const QRectF& rect);

/// The image in one colour, drawn anew for every size and scale that is asked for.
QIcon image(const QColor& color);

} // namespace VellumlineMarkImage

/// Shows the mark in the text colour, as large as the widget allows and never distorted.
class VellumlineMark : public QWidget {
    Q_OBJECT
  public:
    explicit VellumlineMark(QWidget* parent = nullptr);

    QSize sizeHint() const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace vellumline
