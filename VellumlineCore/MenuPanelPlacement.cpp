#include "VellumlineCore/MenuPanelPlacement.h"

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

bool isAttached(const PanelRect& panel, const PanelRect& button) {
    // Each comparison is written so that a NaN makes the answer false.
    if (!(panel.width > 1) || !(panel.height > 1) || !(button.width > 1) || !(button.height > 1))
        return false;
    if (!(std::abs(panel.y + panel.height - button.y) < attachSlack))
        return false;
    return panel.x < button.x + button.width && button.x < panel.x + panel.width;
}

} // namespace vellumline::MenuPanelPlacement
