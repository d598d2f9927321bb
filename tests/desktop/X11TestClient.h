#pragma once

#include "Vellumline/Platform/X11/X11Connection.h"
#include "Vellumline/Platform/X11/XcbXkb.h"

#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <cstring>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace vellumline {

/// Another program: a plain X client with a connection of its own.
class X11TestClient {
  public:
    X11TestClient() : connection_(xcb_connect(nullptr, nullptr)) {
        screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        // As every toolkit does. Without it the server folds the group into the modifiers of each event.
        const XcbReply<xcb_xkb_use_extension_reply_t> reply(
            xcb_xkb_use_extension_reply(connection_, xcb_xkb_use_extension(connection_, 1, 0), nullptr));
    }
    virtual ~X11TestClient() { disconnect(); }
    X11TestClient(const X11TestClient&) = delete;
    X11TestClient& operator=(const X11TestClient&) = delete;

    xcb_connection_t* raw() const { return connection_; }
    xcb_window_t root() const { return screen_->root; }
    const xcb_screen_t* screen() const { return screen_; }

    /// Everything asked before is done, and every event of it has arrived.
    void sync() {
        const XcbReply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }
    xcb_atom_t atom(const char* name) {
        const auto cookie =
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
        const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
        return reply->atom;
    }
    /// The program ends.
    void disconnect() {
        if (connection_ != nullptr)
            xcb_disconnect(connection_);
        connection_ = nullptr;
    }

    QList<int> keysDown() {
        const XcbReply<xcb_query_keymap_reply_t> reply(
            xcb_query_keymap_reply(connection_, xcb_query_keymap(connection_), nullptr));
        QList<int> result;
        for (int key = 0; key < 256; ++key) {
            if ((reply->keys[key / 8] >> (key % 8) & 1) != 0)
                result.append(key);
        }
        return result;
    }

  private:
    xcb_connection_t* connection_;
    const xcb_screen_t* screen_ = nullptr;
};

/// The program in front: a focused window that writes down every key event it sees, as "press 54 state 4".
class X11KeyRecorder : public X11TestClient {
  public:
    X11KeyRecorder() : window_(xcb_generate_id(raw())) {
        const std::uint32_t values[] = {1, XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE |
                                               XCB_EVENT_MASK_FOCUS_CHANGE};
        xcb_create_window(raw(), XCB_COPY_FROM_PARENT, window_, root(), 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_map_window(raw(), window_);
        focus();
    }
    void focus() {
        xcb_set_input_focus(raw(), XCB_INPUT_FOCUS_PARENT, window_, XCB_CURRENT_TIME);
        sync();
        takeEvents();
    }
    xcb_window_t window() const { return window_; }

    bool isFocused() {
        const XcbReply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(raw(), xcb_get_input_focus(raw()), nullptr));
        return reply->focus == window_;
    }

    /// Key events since the last call. Focus changes stand among them as "focus in mode 0", when asked for.
    QStringList takeEvents(bool withFocus = false) {
        sync();
        QStringList result;
        while (auto* event = xcb_poll_for_event(raw())) {
            const XcbReply<xcb_generic_event_t> owned(event);
            const int type = event->response_type & 0x7f;
            if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
                const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
                result.append(
                    QStringLiteral("%1 %2 state %3")
                        .arg(type == XCB_KEY_PRESS ? QStringLiteral("press") : QStringLiteral("release"))
                        .arg(key->detail)
                        .arg(key->state & 0xff));
            } else if (withFocus && (type == XCB_FOCUS_IN || type == XCB_FOCUS_OUT)) {
                const auto* focus = reinterpret_cast<const xcb_focus_in_event_t*>(event);
                result.append(QStringLiteral("focus %1 mode %2")
                                  .arg(type == XCB_FOCUS_IN ? QStringLiteral("in") : QStringLiteral("out"))
                                  .arg(focus->mode));
            }
        }
        return result;
    }

  private:
    xcb_window_t window_;
};

/// The user's fingers: keys of the real keyboard device (the slave that is not the XTEST one), so that the
/// server keeps apart what the user holds and what programs make up.
class X11PhysicalKeyboard : public X11TestClient {
  public:
    X11PhysicalKeyboard() {
        const auto* extension = xcb_get_extension_data(raw(), &xcb_input_id);
        firstEvent_ = extension->first_event;
        const XcbReply<xcb_input_xi_query_version_reply_t> version(
            xcb_input_xi_query_version_reply(raw(), xcb_input_xi_query_version(raw(), 2, 2), nullptr));
        const XcbReply<xcb_input_xi_query_device_reply_t> devices(xcb_input_xi_query_device_reply(
            raw(), xcb_input_xi_query_device(raw(), XCB_INPUT_DEVICE_ALL), nullptr));
        for (auto device = xcb_input_xi_query_device_infos_iterator(devices.get()); device.rem > 0;
             xcb_input_xi_device_info_next(&device)) {
            const QByteArray name(xcb_input_xi_device_info_name(device.data), device.data->name_len);
            if (device.data->type != XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD)
                continue;
            if (name.contains("XTEST"))
                synthetic_ = static_cast<std::uint8_t>(device.data->deviceid);
            else
                device_ = static_cast<std::uint8_t>(device.data->deviceid);
        }
    }

    bool isThere() const { return device_ != 0; }
    void press(std::uint8_t key) { post(key, 1); }
    void release(std::uint8_t key) { post(key, 2); }
    void press(const QList<std::uint8_t>& keys) {
        for (const auto key : keys)
            press(key);
    }
    /// In the opposite order, as fingers do.
    void release(const QList<std::uint8_t>& keys) {
        for (auto key = keys.crbegin(); key != keys.crend(); ++key)
            release(*key);
    }
    QList<int> held() { return down(device_); }
    /// What the XTEST keyboard holds: nothing may stay there.
    QList<int> syntheticHeld() { return down(synthetic_); }

    void lockModifiers(std::uint8_t modifiers, bool on) {
        xcb_xkb_latch_lock_state(raw(), XCB_XKB_ID_USE_CORE_KBD, modifiers, on ? modifiers : 0, 0, 0, 0, 0,
                                 0);
        sync();
    }
    void lockGroup(std::uint8_t group) {
        xcb_xkb_latch_lock_state(raw(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, group, 0, 0, 0);
        sync();
    }
    std::uint8_t lockedModifiers() { return state()->lockedMods; }
    std::uint8_t group() { return state()->group; }

  private:
    XcbReply<xcb_xkb_get_state_reply_t> state() {
        return XcbReply<xcb_xkb_get_state_reply_t>(
            xcb_xkb_get_state_reply(raw(), xcb_xkb_get_state(raw(), XCB_XKB_ID_USE_CORE_KBD), nullptr));
    }
    void post(std::uint8_t key, std::uint8_t kind) {
        // A device event of the first input extension: its kind counts from the extension's first event.
        xcb_test_fake_input(raw(), static_cast<std::uint8_t>(firstEvent_ + kind), key, XCB_CURRENT_TIME,
                            root(), 0, 0, device_);
        sync();
    }
    QList<int> down(std::uint8_t device) {
        const XcbReply<xcb_input_query_device_state_reply_t> reply(
            xcb_input_query_device_state_reply(raw(), xcb_input_query_device_state(raw(), device), nullptr));
        // The key class comes first for a keyboard.
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(reply.get()) + 32 + 4;
        QList<int> result;
        for (int key = 0; key < 256; ++key) {
            if ((bytes[key / 8] >> (key % 8) & 1) != 0)
                result.append(key);
        }
        return result;
    }

    std::uint8_t firstEvent_ = 0;
    std::uint8_t device_ = 0;
    std::uint8_t synthetic_ = 0;
};

/// Sets the keyboard layout of the server, as setxkbmap's arguments say.
inline bool setKeyboardLayout(const QStringList& arguments) {
    return QProcess::execute(QStringLiteral("setxkbmap"),
                             QStringList{QStringLiteral("-option")} + arguments) == 0;
}

/// X key codes of the standard keyboard.
namespace XKey {
inline constexpr std::uint8_t control = 37, alt = 64, shift = 50, super = 133, capsLock = 66, r = 27, c = 54,
                              v = 55;
}

} // namespace vellumline
