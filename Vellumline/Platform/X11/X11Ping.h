#pragma once

#include <QCoroTask>
#include <chrono>
#include <xcb/xcb.h>

namespace vellumline::X11Ping {

/// Asks the program of a top-level window whether it takes its events (EWMH 1.5, _NET_WM_PING). True once it
/// has answered, and with that taken what was sent to the window before. False when it does not take part in
/// that protocol, the window is gone, the X server goes away, or the time is over. Main thread only; costs
/// some round trips to the X server, on a connection of its own, which is closed afterwards.
QCoro::Task<bool> answered(xcb_window_t window, std::chrono::milliseconds limit);

} // namespace vellumline::X11Ping
