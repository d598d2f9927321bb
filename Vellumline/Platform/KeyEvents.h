#pragma once

#include <cstdint>

namespace vellumline {

/// Posts key strokes as if the user had typed them. Main thread only.
class KeyEvents {
  public:
    virtual ~KeyEvents() = default;

    /// Posts Command (the platform's editing modifier: Control on Linux) plus the key of that virtual key
    /// code, down then up, with exactly that modifier whatever the user still holds, and leaves no key
    /// pressed or released wrongly. What cannot be posted is skipped silently.
    virtual void postCommand(std::uint16_t keyCode) = 0;
};

/// Whether some program has asked for secure keyboard input (on X11: holds a keyboard grab of its own). Main
/// thread only.
class SecureInput {
  public:
    virtual ~SecureInput() = default;
    virtual bool isSecureEventInputEnabled() const = 0;
};

} // namespace vellumline
