#pragma once

#include <QColor>
#include <optional>

namespace vellumline {

class X11Connection;

namespace X11PanelColor {

/// The ground of the desktop's panels as it is on the screen: the commonest colour along the middle of each
/// window of the type _NET_WM_WINDOW_TYPE_DOCK (EWMH). Nothing when there is no such window or when dark and
/// light ones stand side by side. A few round trips to the X server, none to another program. Main thread.
std::optional<QColor> read(X11Connection& connection);

} // namespace X11PanelColor

} // namespace vellumline
