#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

class QLabel;
class QPushButton;
class QToolButton;
class QWidget;

namespace vellumline::Style {

// The text styles of every view, as point sizes relative to the desktop's own font, and the few colours that
// are not the palette's. All colours come from the palette, so that light, dark and high-contrast themes
// hold.
QLabel* title(const QString& text, QWidget* parent);
QLabel* headline(const QString& text, QWidget* parent);
QLabel* callout(const QString& text, QWidget* parent);
QLabel* caption(QWidget* parent);
/// The weaker text colour of captions that only inform.
void setSecondary(QLabel* label, bool secondary);
void setMedium(QLabel* label);

/// The one button of a view that moves the user on.
QPushButton* prominentButton(const QString& text, QWidget* parent);
QPushButton* button(const QString& text, QWidget* parent);
QToolButton* iconButton(const QString& name, const QString& toolTip, QWidget* parent);

/// One of the program's drawings, filled with one colour, crisp at every size and scale.
QIcon icon(const QString& name, const QColor& color);
/// The green of the program's mark where it is not tinted by the desktop.
QColor brandColor();
QWidget* divider(QWidget* parent);

} // namespace vellumline::Style
