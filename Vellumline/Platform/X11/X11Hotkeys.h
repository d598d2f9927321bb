#pragma once

#include "Vellumline/Platform/Hotkeys.h"
#include "Vellumline/Platform/X11/X11Connection.h"
#include "Vellumline/Platform/X11/X11Keyboard.h"

#include <QHash>
#include <vector>

namespace vellumline {

/// Hot keys as passive grabs of the root window: exclusive by the X protocol, gone with the connection. The
/// key is the physical place; control is Control, option is Alt, shift is Shift, command is Super. Main
/// thread only.
class X11Hotkeys final : public Hotkeys {
  public:
    /// The connection must outlive it.
    explicit X11Hotkeys(X11Connection& connection);
    ~X11Hotkeys() override;
    X11Hotkeys(const X11Hotkeys&) = delete;
    X11Hotkeys& operator=(const X11Hotkeys&) = delete;

    bool installHandler(std::function<void()> handler) override;
    /// Refuses also the editing shortcuts of the desktop: Control with a letter, Control-Shift-Z,
    /// Control-Insert. The X server would grant them and every program would lose its copy and paste, this
    /// one included.
    std::optional<Handle> registerHotKey(std::uint16_t keyCode, std::uint32_t carbonFlags,
                                         Identity identity) override;
    void unregisterHotKey(Handle handle) override;

  private:
    struct Grab {
        std::uint16_t keyCode = 0; ///< as registered
        std::uint32_t carbonFlags = 0;
        std::uint8_t xKey = 0;
        std::uint16_t modifiers = 0;
        std::vector<std::uint16_t> grabbed; ///< every modifier word the grab was made with
        bool isDown = false;                ///< pressed and not yet released
    };

    void handleEvent(const xcb_generic_event_t& event);
    bool isEditingShortcut(std::uint16_t keyCode, std::uint32_t carbonFlags);
    bool take(Grab& grab);
    void give(const Grab& grab);
    /// Reads which real modifier is which; true when something differs from before.
    bool readModifiers();
    std::uint16_t modifiersFor(std::uint32_t carbonFlags) const;

    X11Connection& connection_;
    X11Keyboard& keyboard_;
    X11Connection::Token events_;
    std::function<void()> handler_;
    QHash<Handle, Grab> grabs_;
    Handle nextHandle_ = 1;

    struct Modifiers {
        std::uint16_t alt = 0;
        std::uint16_t super = 0;
        std::uint16_t numLock = 0;
        std::uint16_t scrollLock = 0;
        bool operator==(const Modifiers&) const = default;
    };
    Modifiers modifiers_;
};

} // namespace vellumline
