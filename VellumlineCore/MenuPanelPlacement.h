#pragma once

namespace vellumline {

/// A rectangle in screen coordinates whose y grows upward (origin at the bottom left of the primary screen),
/// in points.
struct PanelRect {
    double x = 0; ///< left edge
    double y = 0; ///< bottom edge
    double width = 0;
    double height = 0;

    double midX() const { return x + width * 0.5; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }

    /// Exact, without tolerance.
    bool operator==(const PanelRect&) const = default;
};

/// Where the menu panel goes under the status item.
namespace MenuPanelPlacement {

/// How far the panel's top may stand from the button's bottom and still count as attached, in points.
inline constexpr double attachSlack = 24.0;

/// The panel's frame: centred under the button, kept `margin` inside the visible area horizontally; never
/// resized.
PanelRect frame(double panelWidth, double panelHeight, const PanelRect& button, const PanelRect& visible,
                double margin);
/// The same for a bar at any edge of the screen. Under a bar at the top this is frame(); above a bar at the
/// bottom and beside one at the left or right the panel touches the button's near side. A bar inside the
/// visible area, which hides itself, counts as one at the top, and where the panel would leave the visible
/// area at the bottom it stands above the button. Wholly inside the visible area when it fits there.
PanelRect frameAtAnyEdge(double panelWidth, double panelHeight, const PanelRect& button,
                         const PanelRect& visible, double margin);
/// Whether the panel hangs from the button.
bool isAttached(const PanelRect& panel, const PanelRect& button);

} // namespace MenuPanelPlacement

} // namespace vellumline
