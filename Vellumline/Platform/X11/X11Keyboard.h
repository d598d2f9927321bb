#pragma once

#include "Vellumline/Platform/X11/X11Connection.h"

#include <QObject>
#include <QString>
#include <array>
#include <bitset>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

namespace vellumline {

/// A set of X key codes.
using X11KeySet = std::bitset<256>;

/// What the X server knows of the keyboard, for the adapters that share one connection: the map, the state,
/// which keys are down where, and synthetic key events. Main thread only; every question is one round trip
/// to the X server unless it says otherwise.
class X11Keyboard final : public QObject {
  public:
    /// The one keyboard of a connection; lives as long as the connection.
    static X11Keyboard& of(X11Connection& connection);

    /// False when the server has no XTEST: nothing can be posted.
    bool canPost() const { return hasTest_; }
    /// False when the server has no XKB of its own; then `state` is empty and there is one group.
    bool hasXkb() const { return hasXkb_; }

    struct State {
        std::uint8_t lockedModifiers = 0;
        std::uint8_t latchedModifiers = 0;
        std::int16_t latchedGroup = 0;
        std::uint8_t group = 0; ///< the group in effect, counted from 0
    };
    State state();
    /// Ends every latch and unlocks these modifiers.
    void clearLatchesAndLocks(std::uint8_t modifiers);
    void lock(std::uint8_t modifiers);

    /// Reads the map again at its next use.
    void forgetMap() { mapIsCurrent_ = false; }
    /// The symbol of a key without modifiers in a group; 0 when it has none. Remembered between changes of
    /// the map.
    std::uint32_t keysym(std::uint8_t keyCode, std::uint8_t group);
    /// The key that gives that symbol without modifiers in that group; `preferred` when it is one of them.
    std::optional<std::uint8_t> keyFor(std::uint32_t keysym, std::uint8_t group, std::uint8_t preferred = 0);
    /// How many groups the map has, 1 to 4.
    std::uint8_t groupCount();

    /// The real modifiers (ShiftMask … Mod5Mask) that the keys with one of these symbols set.
    std::uint16_t modifierMask(std::initializer_list<std::uint32_t> keysyms);

    /// The keys that programs see as down (the master keyboard).
    X11KeySet keysDown();
    struct DeviceKeys {
        X11KeySet physical;  ///< down on a real keyboard
        X11KeySet synthetic; ///< down on the server's XTEST keyboard
    };
    /// The keys that are down, by who holds them. Three round trips.
    DeviceKeys deviceKeys();

    /// Posts a key event on the XTEST keyboard. No round trip.
    void fakeKey(std::uint8_t keyCode, bool press);
    /// Starts or stops reports of every key release (XI_RawKeyRelease) to the connection's event handlers.
    void watchReleases(bool on);
    /// The key code when the event is such a report.
    std::optional<std::uint8_t> releasedKey(const xcb_generic_event_t& event) const;

    /// True when the event says that the map changed. The map is then read again at its next use.
    bool isMapChange(const xcb_generic_event_t& event) const;

  private:
    explicit X11Keyboard(X11Connection& connection);
    void readMap();

    X11Connection& connection_;
    bool hasTest_ = false;
    bool hasXkb_ = false;
    bool hasDevices_ = false;
    std::uint8_t xkbFirstEvent_ = 0;
    std::uint8_t devicesOpcode_ = 0;

    static constexpr std::size_t mostGroups = 4;
    bool mapIsCurrent_ = false;
    struct Key {
        std::array<std::uint32_t, mostGroups> keysyms{};
    };
    std::array<Key, 256> map_{};
    std::uint8_t groups_ = 1;
};

} // namespace vellumline
