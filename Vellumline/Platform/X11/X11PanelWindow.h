#pragma once

class QWidget;

namespace vellumline {

namespace X11PanelWindow {

// Both are for a window that is not on the screen now: a window manager takes the properties away when it
// hides one. They make its native window, and do nothing where the toolkit does not draw through X11. Main
// thread only.

/// Shows the window on every virtual desktop (EWMH, _NET_WM_DESKTOP).
void joinAllDesktops(QWidget& window);
/// That, and keeps it out of task bars and window switchers (EWMH, _NET_WM_STATE).
void prepare(QWidget& window);

} // namespace X11PanelWindow

} // namespace vellumline
