#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace vellumline {

/// The system's hot-key service: exclusive, system-wide shortcuts. Main thread only.
class Hotkeys {
  public:
    virtual ~Hotkeys() = default;

    /// Names one registration to the platform: a four-character signature and a number.
    struct Identity {
        std::uint32_t signature = 0;
        std::uint32_t id = 0;
        bool operator==(const Identity&) const = default;
    };
    using Handle = std::uint64_t;

    /// Installs the one handler that every press of a registered hot key calls, on the main thread. A second
    /// installation replaces the first. False when the service is not there.
    virtual bool installHandler(std::function<void()> handler) = 0;
    /// Registers a key with exactly these modifiers (Carbon flags), exclusively: nothing when another
    /// program, or the platform's own editing commands, hold the combination.
    virtual std::optional<Handle> registerHotKey(std::uint16_t keyCode, std::uint32_t carbonFlags,
                                                 Identity identity) = 0;
    virtual void unregisterHotKey(Handle handle) = 0;
};

} // namespace vellumline
