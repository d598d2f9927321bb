#include "Vellumline/Platform/X11/X11KeyEvents.h"

#include "Vellumline/Platform/X11/VirtualKeyCodes.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

namespace vellumline {

namespace {

/// The letter that a shortcut on that place stands for; 0 when the place itself is meant.
std::uint32_t letterOf(std::uint16_t keyCode) {
    switch (keyCode) {
    case 0:
        return XKB_KEY_a;
    case 6:
        return XKB_KEY_z;
    case 7:
        return XKB_KEY_x;
    case 8:
        return XKB_KEY_c;
    case 9:
        return XKB_KEY_v;
    default:
        return 0;
    }
}

bool isHeldModifier(std::uint32_t keysym) {
    // Not the lock keys: pressing one again would toggle it.
    switch (keysym) {
    case XKB_KEY_Shift_L:
    case XKB_KEY_Shift_R:
    case XKB_KEY_Control_L:
    case XKB_KEY_Control_R:
    case XKB_KEY_Meta_L:
    case XKB_KEY_Meta_R:
    case XKB_KEY_Alt_L:
    case XKB_KEY_Alt_R:
    case XKB_KEY_Super_L:
    case XKB_KEY_Super_R:
    case XKB_KEY_Hyper_L:
    case XKB_KEY_Hyper_R:
    case XKB_KEY_ISO_Level3_Shift:
    case XKB_KEY_ISO_Level5_Shift:
    case XKB_KEY_Mode_switch:
        return true;
    default:
        return false;
    }
}

} // namespace

X11KeyEvents::X11KeyEvents(X11Connection& connection)
    : connection_(connection), keyboard_(X11Keyboard::of(connection)),
      events_(connection.addEventHandler([this](const xcb_generic_event_t& event) {
          const auto key = keyboard_.releasedKey(event);
          if (key && pressedAgain_.test(*key))
              letGoOfReleasedKeys();
      })) {}

X11KeyEvents::~X11KeyEvents() {
    connection_.removeEventHandler(events_);
    if (pressedAgain_.none())
        return;
    for (std::size_t key = 0; key < pressedAgain_.size(); ++key) {
        if (pressedAgain_.test(key))
            keyboard_.fakeKey(static_cast<std::uint8_t>(key), false);
    }
    keyboard_.watchReleases(false);
    connection_.flush();
}

std::uint8_t X11KeyEvents::keyThatTypes(std::uint16_t keyCode, std::uint8_t group) {
    const std::uint8_t place = VirtualKeyCodes::xKeyCode(keyCode);
    const std::uint32_t letter = letterOf(keyCode);
    if (letter == 0)
        return place;
    if (const auto key = keyboard_.keyFor(letter, group, place))
        return *key;
    // A layout without Latin letters: toolkits then look the shortcut up in the first other layout that has
    // them, by the place of the key.
    for (std::uint8_t other = 0; other < keyboard_.groupCount(); ++other) {
        if (const auto key = keyboard_.keyFor(letter, other, place))
            return *key;
    }
    return place;
}

void X11KeyEvents::postCommand(std::uint16_t keyCode) {
    if (!keyboard_.canPost() || connection_.isBroken())
        return;
    // Our own grab, active while the hot key is down, would swallow the stroke.
    xcb_ungrab_keyboard(connection_.raw(), XCB_CURRENT_TIME);

    // The notice of a new layout may still wait to be read, and hardly ever is the map unchanged: the server
    // announces one at every switch between a real keyboard and XTEST, our own strokes included.
    keyboard_.forgetMap();

    // Everything that is down goes up. Also what only the XTEST keyboard holds: the server drops a press of a
    // modifier that this keyboard has down already, and our Control would be missing.
    const X11KeySet held = keyboard_.keysDown();
    const X11KeySet synthetic = keyboard_.deviceKeys().synthetic;
    const X11KeySet release = held | synthetic;
    for (std::size_t key = 0; key < release.size(); ++key) {
        if (release.test(key))
            keyboard_.fakeKey(static_cast<std::uint8_t>(key), false);
    }
    pressedAgain_.reset();

    // Sticky keys and locks would stay in the state of the stroke. Num Lock may: it changes no letter, no
    // program minds it in a shortcut, and its light would flicker at every correction.
    const auto state = keyboard_.state();
    const auto numLock = static_cast<std::uint8_t>(
        state.lockedModifiers == 0 ? 0 : keyboard_.modifierMask({XKB_KEY_Num_Lock}));
    const auto locked = static_cast<std::uint8_t>(state.lockedModifiers & ~numLock);
    const bool changesState = locked != 0 || state.latchedModifiers != 0 || state.latchedGroup != 0;
    std::uint8_t group = state.group;
    if (changesState) {
        keyboard_.clearLatchesAndLocks(locked);
        group = keyboard_.state().group;
    }

    auto control = keyboard_.keyFor(XKB_KEY_Control_L, group, VirtualKeyCodes::xKeyCode(59));
    if (!control)
        control = keyboard_.keyFor(XKB_KEY_Control_R, group, VirtualKeyCodes::xKeyCode(62));
    const std::uint8_t key = keyThatTypes(keyCode, group);
    if (control && key != 0) {
        keyboard_.fakeKey(*control, true);
        keyboard_.fakeKey(key, true);
        keyboard_.fakeKey(key, false);
        keyboard_.fakeKey(*control, false);
    }

    if (locked != 0)
        keyboard_.lock(locked);
    pressAgain(held);
    connection_.flush();
}

void X11KeyEvents::pressAgain(X11KeySet held) {
    X11KeySet modifiers;
    for (std::size_t key = 0; key < held.size(); ++key) {
        if (held.test(key) && isHeldModifier(keyboard_.keysym(static_cast<std::uint8_t>(key), 0)))
            modifiers.set(key);
    }
    if (modifiers.none()) {
        keyboard_.watchReleases(false);
        return;
    }
    // Watched from before the question on: the user may let go between the answer and our press, and would
    // then leave the modifier stuck.
    keyboard_.watchReleases(true);
    modifiers &= keyboard_.deviceKeys().physical;
    for (std::size_t key = 0; key < modifiers.size(); ++key) {
        if (modifiers.test(key))
            keyboard_.fakeKey(static_cast<std::uint8_t>(key), true);
    }
    pressedAgain_ = modifiers;
    if (modifiers.none())
        keyboard_.watchReleases(false);
}

void X11KeyEvents::letGoOfReleasedKeys() {
    // The user's release has reached the programs already, but the XTEST keyboard still has the key down and
    // would drop anybody's next press of it.
    const X11KeySet released = pressedAgain_ & ~keyboard_.deviceKeys().physical;
    for (std::size_t key = 0; key < released.size(); ++key) {
        if (released.test(key))
            keyboard_.fakeKey(static_cast<std::uint8_t>(key), false);
    }
    // Pressed anew in the meantime: our release has taken that press away.
    const X11KeySet again = released & keyboard_.deviceKeys().physical;
    for (std::size_t key = 0; key < again.size(); ++key) {
        if (again.test(key))
            keyboard_.fakeKey(static_cast<std::uint8_t>(key), true);
    }
    pressedAgain_ &= ~(released & ~again);
    if (pressedAgain_.none())
        keyboard_.watchReleases(false);
    connection_.flush();
}

QString X11KeyEvents::characters(std::uint32_t xKeyCode) {
    if (xKeyCode < 8 || xKeyCode > 255)
        return {};
    keyboard_.forgetMap(); // as in postCommand; asked once for each key that the user records
    const auto keysym = keyboard_.keysym(static_cast<std::uint8_t>(xKeyCode), keyboard_.state().group);
    const char32_t character = xkb_keysym_to_utf32(keysym);
    return character < U' ' || character == 0x7f ? QString() : QString::fromUcs4(&character, 1);
}

X11SecureInput::X11SecureInput(X11Connection& connection)
    : connection_(connection), window_(xcb_generate_id(connection.raw())) {
    xcb_create_window(connection_.raw(), 0, window_, connection_.rootWindow(), 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
}

X11SecureInput::~X11SecureInput() {
    xcb_destroy_window(connection_.raw(), window_);
    connection_.flush();
}

bool X11SecureInput::isSecureEventInputEnabled() const {
    // A grab on a window that was never shown cannot succeed, so nothing is disturbed: no focus event, no
    // grab. But the server looks first whether another client holds the keyboard, and says so.
    const auto cookie = xcb_grab_keyboard(connection_.raw(), 0, window_, XCB_CURRENT_TIME,
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    const XcbReply<xcb_grab_keyboard_reply_t> reply(
        xcb_grab_keyboard_reply(connection_.raw(), cookie, nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

} // namespace vellumline
