#include "Vellumline/Platform/X11/X11Keyboard.h"

#include "Vellumline/Platform/X11/XcbXkb.h"

#include <cstring>
#include <vector>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace vellumline {

namespace {

constexpr std::uint16_t coreKeyboard = XCB_XKB_ID_USE_CORE_KBD;

X11KeySet keySet(const std::uint8_t* bytes) {
    X11KeySet result;
    for (std::size_t key = 0; key < result.size(); ++key)
        result[key] = ((bytes[key / 8] >> (key % 8)) & 1) != 0;
    return result;
}

/// The keys that an answer to QueryDeviceState says are down.
X11KeySet keysIn(const xcb_input_query_device_state_reply_t& reply) {
    // A list of classes, each {class, length in bytes, …}; the key class is {0, length, count, pad, 32
    // bytes}. Walked by hand: the library's iterator counts the padding of the valuator class wrongly.
    const auto* at = reinterpret_cast<const std::uint8_t*>(&reply + 1);
    const auto* end = at + std::size_t{reply.length} * 4;
    constexpr std::ptrdiff_t keyClassSize = 36;
    for (int left = reply.num_classes; left > 0 && end - at >= 2 && at[1] >= 2; --left) {
        if (at[0] == XCB_INPUT_INPUT_CLASS_KEY && end - at >= keyClassSize)
            return keySet(at + 4);
        if (end - at < at[1])
            break;
        at += at[1];
    }
    return {};
}

} // namespace

X11Keyboard& X11Keyboard::of(X11Connection& connection) {
    static const QString name = QStringLiteral("X11Keyboard");
    for (auto* child : connection.children()) {
        if (child->objectName() == name)
            return *static_cast<X11Keyboard*>(child);
    }
    auto* keyboard = new X11Keyboard(connection);
    keyboard->setObjectName(name);
    return *keyboard;
}

X11Keyboard::X11Keyboard(X11Connection& connection) : QObject(&connection), connection_(connection) {
    auto* raw = connection_.raw();
    const auto* test = xcb_get_extension_data(raw, &xcb_test_id);
    hasTest_ = test != nullptr && test->present != 0;

    const auto* xkb = xcb_get_extension_data(raw, &xcb_xkb_id);
    if (xkb != nullptr && xkb->present != 0) {
        xkbFirstEvent_ = xkb->first_event;
        const XcbReply<xcb_xkb_use_extension_reply_t> use(
            xcb_xkb_use_extension_reply(raw, xcb_xkb_use_extension(raw, 1, 0), nullptr));
        hasXkb_ = use && use->supported != 0;
    }
    if (hasXkb_) {
        constexpr std::uint16_t events =
            XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
        constexpr std::uint16_t everyPart = 0xff;
        xcb_xkb_select_events(raw, coreKeyboard, events, 0, events, everyPart, everyPart, nullptr);
        // Releases of an auto-repeating key are not reported, so a release is the user's own.
        constexpr std::uint32_t repeat = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
        xcb_discard_reply(raw, xcb_xkb_per_client_flags(raw, coreKeyboard, repeat, repeat, 0, 0, 0).sequence);
    }

    const auto* devices = xcb_get_extension_data(raw, &xcb_input_id);
    if (devices != nullptr && devices->present != 0) {
        devicesOpcode_ = devices->major_opcode;
        const XcbReply<xcb_input_xi_query_version_reply_t> version(
            xcb_input_xi_query_version_reply(raw, xcb_input_xi_query_version(raw, 2, 2), nullptr));
        // Since 2.1 raw events come also while another client has grabbed the keyboard.
        hasDevices_ = version && (version->major_version > 2 || version->minor_version >= 1);
    }
    connection_.addEventHandler([this](const xcb_generic_event_t& event) {
        if (isMapChange(event))
            mapIsCurrent_ = false;
    });
}

bool X11Keyboard::isMapChange(const xcb_generic_event_t& event) const {
    const std::uint8_t type = event.response_type & 0x7f;
    if (type == XCB_MAPPING_NOTIFY)
        return true;
    if (!hasXkb_ || type != xkbFirstEvent_)
        return false;
    // Every XKB event has the same number; its kind stands where other events keep their detail.
    return event.pad0 == XCB_XKB_NEW_KEYBOARD_NOTIFY || event.pad0 == XCB_XKB_MAP_NOTIFY;
}

X11Keyboard::State X11Keyboard::state() {
    if (!hasXkb_)
        return {};
    const XcbReply<xcb_xkb_get_state_reply_t> reply(xcb_xkb_get_state_reply(
        connection_.raw(), xcb_xkb_get_state(connection_.raw(), coreKeyboard), nullptr));
    if (!reply)
        return {};
    return {reply->lockedMods, reply->latchedMods, reply->latchedGroup, reply->group};
}

void X11Keyboard::clearLatchesAndLocks(std::uint8_t modifiers) {
    if (hasXkb_) {
        constexpr std::uint8_t everyLatch = 0xff;
        xcb_xkb_latch_lock_state(connection_.raw(), coreKeyboard, modifiers, 0, 0, 0, everyLatch, 1, 0);
    }
}

void X11Keyboard::lock(std::uint8_t modifiers) {
    if (hasXkb_)
        xcb_xkb_latch_lock_state(connection_.raw(), coreKeyboard, modifiers, modifiers, 0, 0, 0, 0, 0);
}

void X11Keyboard::readMap() {
    if (mapIsCurrent_)
        return;
    mapIsCurrent_ = true; // before the question: a change that comes with the answer counts again
    map_ = {};
    groups_ = 1;
    auto* raw = connection_.raw();
    if (!hasXkb_) {
        const auto* setup = xcb_get_setup(raw);
        const int count = setup->max_keycode - setup->min_keycode + 1;
        const XcbReply<xcb_get_keyboard_mapping_reply_t> reply(xcb_get_keyboard_mapping_reply(
            raw, xcb_get_keyboard_mapping(raw, setup->min_keycode, static_cast<std::uint8_t>(count)),
            nullptr));
        if (!reply || reply->keysyms_per_keycode == 0)
            return;
        const auto* keysyms = xcb_get_keyboard_mapping_keysyms(reply.get());
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
            map_[setup->min_keycode + i].keysyms.fill(keysyms[i * reply->keysyms_per_keycode]);
        return;
    }
    const XcbReply<xcb_xkb_get_map_reply_t> reply(
        xcb_xkb_get_map_reply(raw,
                              xcb_xkb_get_map(raw, coreKeyboard, XCB_XKB_MAP_PART_KEY_SYMS, 0, 0, 0, 0, 0, 0,
                                              0, 0, 0, 0, 0, 0, 0, 0, 0, 0),
                              nullptr));
    if (!reply)
        return;
    xcb_xkb_get_map_map_t map;
    xcb_xkb_get_map_map_unpack(xcb_xkb_get_map_map(reply.get()), reply->nTypes, reply->nKeySyms,
                               reply->nKeyActions, reply->totalActions, reply->totalKeyBehaviors,
                               reply->virtualMods, reply->totalKeyExplicit, reply->totalModMapKeys,
                               reply->totalVModMapKeys, reply->present, &map);
    std::size_t keyCode = reply->firstKeySym;
    for (auto key = xcb_xkb_get_map_map_syms_rtrn_iterator(reply.get(), &map);
         key.rem > 0 && keyCode < map_.size(); xcb_xkb_key_sym_map_next(&key), ++keyCode) {
        const std::size_t groups = key.data->groupInfo & 0x0f;
        const int count = xcb_xkb_key_sym_map_syms_length(key.data);
        if (groups == 0 || count == 0)
            continue;
        groups_ = std::max(groups_, static_cast<std::uint8_t>(std::min(groups, mostGroups)));
        const auto* keysyms = xcb_xkb_key_sym_map_syms(key.data);
        for (std::size_t group = 0; group < mostGroups; ++group) {
            // What a key does in a group that it does not have: wrap, clamp or redirect (XKB protocol,
            // section 7.2.2).
            std::size_t effective = group;
            if (group >= groups) {
                const std::uint8_t rule = key.data->groupInfo & 0xc0;
                if (rule == XCB_XKB_GROUPS_WRAP_CLAMP_INTO_RANGE)
                    effective = groups - 1;
                else if (rule == XCB_XKB_GROUPS_WRAP_REDIRECT_INTO_RANGE)
                    effective = std::min<std::size_t>((key.data->groupInfo >> 4) & 0x03, groups - 1);
                else
                    effective = group % groups;
            }
            const std::size_t index = effective * key.data->width;
            if (index < static_cast<std::size_t>(count))
                map_[keyCode].keysyms[group] = keysyms[index];
        }
    }
}

std::uint32_t X11Keyboard::keysym(std::uint8_t keyCode, std::uint8_t group) {
    readMap();
    return map_[keyCode].keysyms[std::min<std::size_t>(group, mostGroups - 1)];
}

std::optional<std::uint8_t> X11Keyboard::keyFor(std::uint32_t wanted, std::uint8_t group,
                                                std::uint8_t preferred) {
    if (preferred != 0 && keysym(preferred, group) == wanted)
        return preferred;
    for (unsigned keyCode = 8; keyCode < map_.size(); ++keyCode) {
        if (keysym(static_cast<std::uint8_t>(keyCode), group) == wanted)
            return static_cast<std::uint8_t>(keyCode);
    }
    return std::nullopt;
}

std::uint8_t X11Keyboard::groupCount() {
    readMap();
    return groups_;
}

std::uint16_t X11Keyboard::modifierMask(std::initializer_list<std::uint32_t> keysyms) {
    const XcbReply<xcb_get_modifier_mapping_reply_t> reply(xcb_get_modifier_mapping_reply(
        connection_.raw(), xcb_get_modifier_mapping(connection_.raw()), nullptr));
    if (!reply)
        return 0;
    const auto* keyCodes = xcb_get_modifier_mapping_keycodes(reply.get());
    constexpr int modifiers = 8;
    std::uint16_t mask = 0;
    for (int i = 0; i < modifiers * reply->keycodes_per_modifier; ++i) {
        for (const auto wanted : keysyms) {
            if (keyCodes[i] != 0 && keysym(keyCodes[i], 0) == wanted)
                mask |= static_cast<std::uint16_t>(1U << (i / reply->keycodes_per_modifier));
        }
    }
    return mask;
}

X11KeySet X11Keyboard::keysDown() {
    const XcbReply<xcb_query_keymap_reply_t> reply(
        xcb_query_keymap_reply(connection_.raw(), xcb_query_keymap(connection_.raw()), nullptr));
    return reply ? keySet(reply->keys) : X11KeySet();
}

X11Keyboard::DeviceKeys X11Keyboard::deviceKeys() {
    DeviceKeys result;
    if (!hasDevices_)
        return result;
    auto* raw = connection_.raw();
    const XcbReply<xcb_input_xi_query_device_reply_t> devices(
        xcb_input_xi_query_device_reply(raw, xcb_input_xi_query_device(raw, XCB_INPUT_DEVICE_ALL), nullptr));
    if (!devices)
        return result;
    struct Question {
        xcb_input_xi_get_property_cookie_t isSynthetic;
        xcb_input_query_device_state_cookie_t state;
    };
    // The server marks its own keyboard for XTEST with this property; the name is only a name.
    const xcb_atom_t mark = connection_.atom(QByteArrayLiteral("XTEST Device"));
    std::vector<Question> questions;
    for (auto device = xcb_input_xi_query_device_infos_iterator(devices.get()); device.rem > 0;
         xcb_input_xi_device_info_next(&device)) {
        if (device.data->type != XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD || device.data->enabled == 0)
            continue;
        const auto id = device.data->deviceid;
        questions.push_back({xcb_input_xi_get_property(raw, id, 0, mark, XCB_ATOM_ANY, 0, 1),
                             xcb_input_query_device_state(raw, static_cast<std::uint8_t>(id))});
    }
    for (const auto& question : questions) {
        // A device may be unplugged meanwhile: no answer, nothing held.
        xcb_generic_error_t* error = nullptr;
        const XcbReply<xcb_input_xi_get_property_reply_t> property(
            xcb_input_xi_get_property_reply(raw, question.isSynthetic, &error));
        const XcbReply<xcb_generic_error_t> propertyError(error);
        error = nullptr;
        const XcbReply<xcb_input_query_device_state_reply_t> state(
            xcb_input_query_device_state_reply(raw, question.state, &error));
        const XcbReply<xcb_generic_error_t> stateError(error);
        if (!state)
            continue;
        const bool isSynthetic = property && property->num_items > 0;
        (isSynthetic ? result.synthetic : result.physical) |= keysIn(*state);
    }
    return result;
}

void X11Keyboard::fakeKey(std::uint8_t keyCode, bool press) {
    if (!hasTest_)
        return;
    xcb_test_fake_input(connection_.raw(), press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keyCode, XCB_CURRENT_TIME,
                        connection_.rootWindow(), 0, 0, 0);
}

void X11Keyboard::watchReleases(bool on) {
    if (!hasDevices_)
        return;
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                on ? std::uint32_t{XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE} : 0};
    xcb_input_xi_select_events(connection_.raw(), connection_.rootWindow(), 1, &selection.head);
}

std::optional<std::uint8_t> X11Keyboard::releasedKey(const xcb_generic_event_t& event) const {
    if (!hasDevices_ || (event.response_type & 0x7f) != XCB_GE_GENERIC)
        return std::nullopt;
    const auto& raw = reinterpret_cast<const xcb_input_raw_key_release_event_t&>(event);
    if (raw.extension != devicesOpcode_ || raw.event_type != XCB_INPUT_RAW_KEY_RELEASE || raw.detail > 255)
        return std::nullopt;
    return static_cast<std::uint8_t>(raw.detail);
}

} // namespace vellumline
