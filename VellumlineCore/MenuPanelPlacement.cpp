#include "VellumlineCore/MenuPanelPlacement.h"

#include <algorithm>
#include <cmath>

namespace vellumline::MenuPanelPlacement {

PanelRect frame(double panelWidth, double panelHeight, const PanelRect& button, const PanelRect& visible,
                double margin) {
    double x = button.x + button.width * 0.5 - panelWidth * 0.5;
    if (visible.x + visible.width - margin < x + panelWidth)
        x = visible.x + visible.width - panelWidth - margin;
    // Last, so that a panel wider than the visible area stands flush with its left side.
    if (x < visible.x + margin)
        x = visible.x + margin;
    return {x, button.y - panelHeight, panelWidth, panelHeight};
}

namespace {

/// `low` to `low + length` moved inside of the span, which it may fill; its beginning wins.
double movedInside(double low, double length, double spanLow, double spanHigh) {
    return std::max(spanLow, std::min(low, spanHigh - length));
}

} // namespace

PanelRect frameAtAnyEdge(double panelWidth, double panelHeight, const PanelRect& button,
                         const PanelRect& visible, double margin) {
    PanelRect panel = frame(panelWidth, panelHeight, button, visible, margin);
    const double middle = button.y + button.height * 0.5;
    if (middle < visible.y) {
        panel.y = button.maxY();
    } else if (middle <= visible.maxY() && (button.midX() < visible.x || button.midX() > visible.maxX())) {
        panel.x = button.midX() < visible.x ? button.maxX() : button.x - panelWidth;
        panel.y =
            movedInside(middle - panelHeight * 0.5, panelHeight, visible.y + margin, visible.maxY() - margin);
    } else if (panel.y < visible.y && button.maxY() + panelHeight <= visible.maxY()) {
        panel.y = button.maxY();
    } else if (panel.y < visible.y && panelHeight <= visible.height) {
        panel.y = visible.y;
    }
    return panel;
}

bool isAttached(const PanelRect& panel, const PanelRect& button) {
    // Each comparison is written so that a NaN makes the answer false.
    if (!(panel.width > 1) || !(panel.height > 1) || !(button.width > 1) || !(button.height > 1))
        return false;
    if (!(std::abs(panel.y + panel.height - button.y) < attachSlack))
        return false;
    return panel.x < button.x + button.width && button.x < panel.x + panel.width;
}

} // namespace vellumline::MenuPanelPlacement
