#pragma once

#include <QPoint>
#include <cstdint>
#include <functional>
#include <optional>

namespace vellumline {

/// Sees presses of the left and the right mouse button that go to other programs. Main thread only.
class MouseMonitor {
  public:
    virtual ~MouseMonitor() = default;

    using Token = std::uint64_t;
    /// `position` is that of Qt's screens: device-independent pixels, y downward.
    using Handler = std::function<void(QPoint position)>;

    /// Nothing when the monitor cannot be installed.
    virtual std::optional<Token> addGlobalMonitor(Handler handler) = 0;
    virtual void removeMonitor(Token token) = 0;
};

} // namespace vellumline
