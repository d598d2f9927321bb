#pragma once

#include "Vellumline/Platform/Hotkeys.h"
#include "VellumlineCore/HotkeyBinding.h"

#include <functional>
#include <optional>
#include <string_view>

namespace vellumline {

/// The first four bytes of a text's UTF-8 form as one number, the first byte the most significant.
constexpr std::uint32_t fourCC(std::string_view text) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < text.size() && i < 4; ++i)
        value = value * 256 + static_cast<unsigned char>(text[i]);
    return value;
}

/// Keeps the one global shortcut registered and calls `onPress` each time it is pressed. Main thread only.
class HotkeyMonitor {
  public:
    explicit HotkeyMonitor(Hotkeys& hotkeys);
    ~HotkeyMonitor();
    HotkeyMonitor(const HotkeyMonitor&) = delete;
    HotkeyMonitor& operator=(const HotkeyMonitor&) = delete;

    static constexpr Hotkeys::Identity identity{fourCC("VLMN"), 1};

    std::function<void()> onPress;

    /// Makes `binding` the one active shortcut; true on success. The old one is given up before the new one
    /// is tried.
    bool registerBinding(const HotkeyBinding& binding);
    bool isRegistered() const { return hotKey_.has_value(); }

  private:
    Hotkeys& hotkeys_;
    std::optional<Hotkeys::Handle> hotKey_;
    bool handlerInstalled_ = false;
};

} // namespace vellumline
