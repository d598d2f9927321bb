#pragma once

#include "VellumlineCore/HotkeyBinding.h"

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

namespace vellumline {

/// A key press as this program's own windows received it.
struct KeyPress {
    std::uint16_t keyCode = 0; ///< Virtual key code of the physical key.
    HotkeyModifiers modifiers;
    QString characters; ///< What the key produces without modifiers; empty when nothing.
    bool operator==(const KeyPress&) const = default;
};

/// Sees the key presses that reach this program before its windows do. Main thread only.
class KeyMonitor {
  public:
    virtual ~KeyMonitor() = default;

    using Token = std::uint64_t;
    enum class Handling { passOn, swallow };
    using Handler = std::function<Handling(const KeyPress&)>;

    /// Nothing when the monitor cannot be installed.
    virtual std::optional<Token> addLocalMonitor(Handler handler) = 0;
    virtual void removeMonitor(Token token) = 0;
};

} // namespace vellumline
