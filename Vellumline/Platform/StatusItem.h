#pragma once

#include <QColor>
#include <QIcon>
#include <QPoint>
#include <QRect>
#include <QString>
#include <functional>
#include <optional>

namespace vellumline {

/// The program's item in the panel of the desktop. Main thread only. Positions are those of Qt's screens:
/// device-independent pixels, y downward.
class StatusItem {
  public:
    virtual ~StatusItem() = default;

    /// A template image: draws its shape in the colour that fits the panel.
    using Image = std::function<QIcon(const QColor& color)>;

    /// Makes the item appear, now or when a program that shows such items comes up.
    virtual void show() = 0;
    virtual void setImage(const Image& image) = 0;
    /// What a screen reader says and a pointer that rests on the item shows.
    virtual void setAccessibilityLabel(const QString& label) = 0;
    /// The look of a pressed button.
    virtual void setHighlighted(bool highlighted) = 0;
    /// Where the item is; nothing when the desktop does not tell.
    virtual std::optional<QRect> frame() const = 0;

    /// The user pressed the item, at that point if the desktop tells.
    std::function<void(std::optional<QPoint> point)> onAction;
};

} // namespace vellumline
