#pragma once

#include "Vellumline/Platform/StatusItem.h"

namespace vellumline {

/// A status item in memory, which the test presses.
class FakeStatusItem final : public StatusItem {
  public:
    void show() override { ++shows; }
    void setImage(const Image& image) override {
        this->image = image(Qt::black).pixmap(64, 64).toImage();
        ++images;
    }
    void setAccessibilityLabel(const QString& label) override { this->label = label; }
    void setHighlighted(bool highlighted) override { this->highlighted = highlighted; }
    std::optional<QRect> frame() const override { return place; }

    void press(std::optional<QPoint> point = std::nullopt) const { onAction(point); }

    std::optional<QRect> place; ///< answered by frame()
    QImage image;
    QString label;
    bool highlighted = false;
    int shows = 0;
    int images = 0; ///< how often an image was set
};

} // namespace vellumline
