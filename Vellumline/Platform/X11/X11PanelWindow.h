#pragma once

class QWidget;

namespace vellumline {

namespace X11PanelWindow {

/// Keeps a window that has not been shown yet out of task bars and window switchers (EWMH, _NET_WM_STATE).
/// Makes its native window. Does nothing
/// where the toolkit does not draw through X11. Main thread only.
void prepare(QWidget& window);

} // namespace X11PanelWindow

} // namespace vellumline
