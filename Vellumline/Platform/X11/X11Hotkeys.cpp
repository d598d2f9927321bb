#include "Vellumline/Platform/X11/X11Hotkeys.h"

#include "Vellumline/Platform/X11/VirtualKeyCodes.h"
#include <algorithm>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace vellumline {

namespace {

constexpr std::uint16_t realModifiers = 0xff; ///< ShiftMask … Mod5Mask, without buttons and groups
// Carbon flags; others are ignored.
constexpr std::uint32_t commandKey = 0x100, shiftKey = 0x200, optionKey = 0x800, controlKey = 0x1000;
constexpr std::uint32_t anyModifierKey = commandKey | shiftKey | optionKey | controlKey;
constexpr std::uint16_t helpKeyCode = 114; ///< Insert stands there

bool isLatinLetter(std::uint32_t keysym) {
    return (keysym >= XKB_KEY_a && keysym <= XKB_KEY_z) || (keysym >= XKB_KEY_A && keysym <= XKB_KEY_Z);
}

std::uint16_t firstOf(std::uint16_t mask, std::uint16_t otherwise) {
    return mask == 0 ? otherwise : static_cast<std::uint16_t>(mask & -mask);
}

} // namespace

X11Hotkeys::X11Hotkeys(X11Connection& connection)
    : connection_(connection), keyboard_(X11Keyboard::of(connection)),
      events_(connection.addEventHandler([this](const xcb_generic_event_t& event) { handleEvent(event); })) {
    readModifiers();
}

X11Hotkeys::~X11Hotkeys() {
    connection_.removeEventHandler(events_);
    for (const auto& grab : std::as_const(grabs_))
        give(grab);
    connection_.flush();
}

bool X11Hotkeys::installHandler(std::function<void()> handler) {
    if (connection_.isBroken())
        return false;
    handler_ = std::move(handler);
    return true;
}

bool X11Hotkeys::readModifiers() {
    const Modifiers found{firstOf(keyboard_.modifierMask({XKB_KEY_Alt_L, XKB_KEY_Alt_R}), XCB_MOD_MASK_1),
                          firstOf(keyboard_.modifierMask({XKB_KEY_Super_L, XKB_KEY_Super_R}), XCB_MOD_MASK_4),
                          keyboard_.modifierMask({XKB_KEY_Num_Lock}),
                          keyboard_.modifierMask({XKB_KEY_Scroll_Lock})};
    if (found == modifiers_)
        return false;
    modifiers_ = found;
    return true;
}

std::uint16_t X11Hotkeys::modifiersFor(std::uint32_t carbonFlags) const {
    std::uint16_t mask = 0;
    if ((carbonFlags & controlKey) != 0)
        mask |= XCB_MOD_MASK_CONTROL;
    if ((carbonFlags & shiftKey) != 0)
        mask |= XCB_MOD_MASK_SHIFT;
    if ((carbonFlags & optionKey) != 0)
        mask |= modifiers_.alt;
    if ((carbonFlags & commandKey) != 0)
        mask |= modifiers_.super;
    return mask;
}

bool X11Hotkeys::isEditingShortcut(std::uint16_t keyCode, std::uint32_t carbonFlags) {
    const std::uint32_t modifiers = carbonFlags & anyModifierKey;
    const std::uint8_t key = VirtualKeyCodes::xKeyCode(keyCode);
    if (modifiers == controlKey && keyCode == helpKeyCode)
        return true;
    for (std::uint8_t group = 0; group < keyboard_.groupCount(); ++group) {
        const auto keysym = keyboard_.keysym(key, group);
        if (modifiers == controlKey && isLatinLetter(keysym))
            return true;
        if (modifiers == (controlKey | shiftKey) && keysym == XKB_KEY_z)
            return true;
    }
    // A layout without Latin letters borrows them from the standard keyboard.
    static constexpr std::uint16_t letters[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  11, 12, 13,
                                                14, 15, 16, 17, 31, 32, 34, 35, 37, 38, 40, 45, 46};
    return modifiers == controlKey && std::ranges::find(letters, keyCode) != std::end(letters);
}

bool X11Hotkeys::take(Grab& grab) {
    grab.xKey = VirtualKeyCodes::xKeyCode(grab.keyCode);
    grab.modifiers = modifiersFor(grab.carbonFlags);
    grab.grabbed.clear();
    if (grab.xKey == 0)
        return false;
    // A passive grab matches the modifiers exactly, and a lock that is on is one of them.
    std::vector<std::uint16_t> locks{XCB_MOD_MASK_LOCK};
    for (const std::uint16_t lock : {modifiers_.numLock, modifiers_.scrollLock}) {
        if (lock != 0 && (lock & grab.modifiers) == 0 && std::ranges::find(locks, lock) == locks.end())
            locks.push_back(lock);
    }
    std::vector<xcb_void_cookie_t> cookies;
    for (std::size_t choice = 0; choice < std::size_t{1} << locks.size(); ++choice) {
        std::uint16_t mask = grab.modifiers;
        for (std::size_t i = 0; i < locks.size(); ++i) {
            if ((choice >> i & 1) != 0)
                mask |= locks[i];
        }
        grab.grabbed.push_back(mask);
        cookies.push_back(xcb_grab_key_checked(connection_.raw(), 0, connection_.rootWindow(), mask,
                                               grab.xKey, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    }
    bool refused = connection_.isBroken();
    std::vector<std::uint16_t> got;
    for (std::size_t i = 0; i < cookies.size(); ++i) {
        const XcbReply<xcb_generic_error_t> error(xcb_request_check(connection_.raw(), cookies[i]));
        if (error)
            refused = true;
        else
            got.push_back(grab.grabbed[i]);
    }
    grab.grabbed = std::move(got);
    if (refused) {
        give(grab);
        grab.grabbed.clear();
        connection_.flush();
    }
    return !refused;
}

void X11Hotkeys::give(const Grab& grab) {
    for (const std::uint16_t mask : grab.grabbed)
        xcb_ungrab_key(connection_.raw(), grab.xKey, connection_.rootWindow(), mask);
}

std::optional<Hotkeys::Handle> X11Hotkeys::registerHotKey(std::uint16_t keyCode, std::uint32_t carbonFlags,
                                                          Identity) {
    Grab grab;
    grab.keyCode = keyCode;
    grab.carbonFlags = carbonFlags;
    // The protocol lets a client grab the same combination twice and drop both at once; here it is taken.
    const bool isOurs = std::ranges::any_of(grabs_, [this, &grab](const Grab& each) {
        return each.keyCode == grab.keyCode && each.modifiers == modifiersFor(grab.carbonFlags);
    });
    if (isOurs || isEditingShortcut(keyCode, carbonFlags) || !take(grab))
        return std::nullopt;
    grabs_.insert(nextHandle_, grab);
    return nextHandle_++;
}

void X11Hotkeys::unregisterHotKey(Handle handle) {
    const auto found = grabs_.constFind(handle);
    if (found == grabs_.cend())
        return;
    give(*found);
    grabs_.erase(found);
    connection_.flush();
}

void X11Hotkeys::handleEvent(const xcb_generic_event_t& event) {
    const std::uint8_t type = event.response_type & 0x7f;
    if (keyboard_.isMapChange(event)) {
        // Comes also whenever another keyboard device is used; only moved modifiers concern the grabs.
        if (!readModifiers())
            return;
        for (auto& grab : grabs_) {
            give(grab);
            take(grab);
        }
        connection_.flush();
        return;
    }
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
        return;
    const auto& key = reinterpret_cast<const xcb_key_press_event_t&>(event);
    if (type == XCB_KEY_RELEASE) {
        for (auto& grab : grabs_) {
            if (grab.xKey == key.detail)
                grab.isDown = false;
        }
        return;
    }
    const std::uint16_t ignored = XCB_MOD_MASK_LOCK | modifiers_.numLock | modifiers_.scrollLock;
    for (auto& grab : grabs_) {
        const auto relevant = static_cast<std::uint16_t>(
            realModifiers & ~(ignored & static_cast<std::uint16_t>(~grab.modifiers)));
        if (grab.xKey != key.detail || (key.state & relevant) != grab.modifiers)
            continue;
        // Let the key go for the user: that ends the grab, so that the program in front has the keyboard back
        // before it is asked what it has selected, and the key does not auto-repeat. Nobody misses the
        // release, since nobody but us saw the press.
        keyboard_.fakeKey(key.detail, false);
        connection_.flush();
        if (grab.isDown) // auto-repeat, where the key could not be let go
            return;
        grab.isDown = true;
        if (const auto handler = handler_) // a copy: the handler may register another key or install another
            handler();
        return;
    }
}

} // namespace vellumline
