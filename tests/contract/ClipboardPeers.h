#pragma once

// Other programs at the clipboard: plain X clients that do exactly what a test tells them, on threads and
// connections of their own.

#include "Vellumline/Platform/X11/X11ClipboardFormats.h"
#include "Vellumline/Platform/X11/X11Connection.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QStringList>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <poll.h>
#include <thread>
#include <vector>
#include <xcb/xcb.h>

namespace vellumline::test {

/// A synchronous X client with one window.
class PlainClient {
  public:
    /// The display of DISPLAY when empty.
    explicit PlainClient(const QByteArray& display = {})
        : connection_(xcb_connect(display.isEmpty() ? nullptr : display.constData(), nullptr)) {
        window_ = createWindow();
        xcb_flush(connection_);
    }
    ~PlainClient() { xcb_disconnect(connection_); }
    PlainClient(const PlainClient&) = delete;
    PlainClient& operator=(const PlainClient&) = delete;

    xcb_connection_t* raw() const { return connection_; }
    xcb_window_t window() const { return window_; }
    xcb_window_t root() const { return xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root; }

    xcb_window_t createWindow() {
        const auto window = xcb_generate_id(connection_);
        const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, root(), 0, 0, 10, 10, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
        return window;
    }
    void sync() {
        const XcbReply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }
    xcb_atom_t atom(const QByteArray& name) {
        if (atoms_.contains(name))
            return atoms_.value(name);
        const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.constData()),
            nullptr));
        const xcb_atom_t atom = reply ? reply->atom : 0;
        atoms_.insert(name, atom);
        return atom;
    }
    QByteArray atomName(xcb_atom_t atom) {
        const XcbReply<xcb_get_atom_name_reply_t> reply(
            xcb_get_atom_name_reply(connection_, xcb_get_atom_name(connection_, atom), nullptr));
        return reply ? QByteArray(xcb_get_atom_name_name(reply.get()),
                                  xcb_get_atom_name_name_length(reply.get()))
                     : QByteArray();
    }
    xcb_window_t clipboardOwner() {
        const XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
            connection_, xcb_get_selection_owner(connection_, atom("CLIPBOARD")), nullptr));
        return reply ? reply->owner : 0;
    }
    /// Nothing when none came in time.
    XcbReply<xcb_generic_event_t> nextEvent(std::chrono::milliseconds timeout) {
        xcb_flush(connection_);
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            if (auto* event = xcb_poll_for_event(connection_))
                return XcbReply<xcb_generic_event_t>(event);
            const auto left = timeout.count() - timer.elapsed();
            if (left <= 0 || xcb_connection_has_error(connection_) != 0)
                return nullptr;
            pollfd wanted{xcb_get_file_descriptor(connection_), POLLIN, 0};
            poll(&wanted, 1, static_cast<int>(left));
        }
    }
    /// Makes a window the active one, as a window manager would say it.
    void setActiveWindow(xcb_window_t window) {
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, root(), atom("_NET_ACTIVE_WINDOW"),
                            XCB_ATOM_WINDOW, 32, 1, &window);
        sync();
    }

  private:
    xcb_connection_t* connection_;
    xcb_window_t window_;
    QHash<QByteArray, xcb_atom_t> atoms_;
};

/// What a program that pastes gets.
struct Pasted {
    QByteArray data;
    QByteArray type;
    int format = 0;
    bool incremental = false;
    int pieces = 0;
};

/// Asks for selections and waits for the answer. Several can be used at once, each from one thread.
class Requestor : public PlainClient {
  public:
    using PlainClient::PlainClient;

    void ask(const QByteArray& target, xcb_timestamp_t time = XCB_CURRENT_TIME,
             const QByteArray& property = "REQUESTOR") {
        xcb_convert_selection(raw(), window(), atom("CLIPBOARD"), atom(target), atom(property), time);
        xcb_flush(raw());
    }
    /// The property of the answer; 0 when it was a refusal; nothing when none came.
    std::optional<xcb_atom_t> answer(std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        while (const auto event = nextEvent(timeout)) {
            if (eventType(*event) == XCB_SELECTION_NOTIFY)
                return reinterpret_cast<const xcb_selection_notify_event_t&>(*event).property;
        }
        return std::nullopt;
    }
    Pasted takeProperty(xcb_atom_t property) {
        Pasted pasted;
        const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            raw(), xcb_get_property(raw(), 1, window(), property, XCB_GET_PROPERTY_TYPE_ANY, 0, 0x1FFFFFFF),
            nullptr));
        if (!reply)
            return pasted;
        pasted.data = QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                 xcb_get_property_value_length(reply.get()));
        pasted.type = atomName(reply->type);
        pasted.format = reply->format;
        return pasted;
    }
    /// `pauseAfter`: deletes so many pieces and then nothing more (a requestor that stalls).
    std::optional<Pasted> request(const QByteArray& target,
                                  std::chrono::milliseconds timeout = std::chrono::seconds(5),
                                  int pauseAfter = -1, const QByteArray& property = "REQUESTOR") {
        ask(target, XCB_CURRENT_TIME, property);
        const auto where = answer(timeout);
        if (!where || *where == XCB_ATOM_NONE)
            return std::nullopt;
        auto pasted = takeProperty(*where);
        if (pasted.type != "INCR")
            return pasted;
        pasted = {};
        pasted.incremental = true;
        while (pasted.pieces != pauseAfter) {
            const auto event = nextEvent(timeout);
            if (!event)
                return std::nullopt;
            if (eventType(*event) != XCB_PROPERTY_NOTIFY)
                continue;
            const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
            if (change.atom != *where || change.state != XCB_PROPERTY_NEW_VALUE)
                continue;
            const auto piece = takeProperty(*where);
            if (piece.data.isEmpty())
                return pasted;
            ++pasted.pieces;
            pasted.type = piece.type;
            pasted.format = piece.format;
            pasted.data += piece.data;
        }
        return std::nullopt;
    }
    QStringList targets() {
        QStringList names;
        if (const auto list = request("TARGETS")) {
            for (const auto atom : clipboardFormats::decodeAtoms(list->data, list->format))
                names.append(QString::fromUtf8(atomName(atom)));
        }
        return names;
    }
};

/// One target of a scripted owner.
struct ScriptedTarget {
    enum class Behaviour {
        answers,
        refuses,
        hangs,
        diesMidway,    ///< disconnects after the first piece of an incremental transfer
        stallsMidway,  ///< sends one piece of an incremental transfer and no more
        changesMidway, ///< takes the selection anew after the first piece, with the owner's second script
        announcesOnly  ///< says INCR with its size and sends what `data` holds for ever
    };
    QByteArray name;
    QByteArray data;
    QByteArray type = {}; ///< empty: the name
    int format = 8;
    bool incremental = false;
    Behaviour behaviour = Behaviour::answers;
    std::uint32_t announced = 0; ///< of INCR; 0: the size of the data
};

struct OwnerScript {
    QList<ScriptedTarget> targets;
    bool hangs = false;          ///< answers nothing at all
    bool refusesTargets = false; ///< an owner that does not know TARGETS
    qsizetype piece = 65536;
};

/// Owns CLIPBOARD, on a thread of its own, from its construction until it is destroyed or told to let go.
class ScriptedOwner {
  public:
    explicit ScriptedOwner(OwnerScript script, OwnerScript second = {}, const QByteArray& display = {})
        : script_(std::move(script)), second_(std::move(second)), display_(display) {
        std::promise<void> ready;
        auto owned = ready.get_future();
        thread_ = std::thread([this, &ready] { run(ready); });
        owned.wait();
    }
    ~ScriptedOwner() { stop(); }
    ScriptedOwner(const ScriptedOwner&) = delete;
    ScriptedOwner& operator=(const ScriptedOwner&) = delete;

    void stop() {
        stopping_ = true;
        if (thread_.joinable())
            thread_.join();
    }
    /// The targets asked for, in order.
    QStringList requests() const {
        const std::lock_guard lock(mutex_);
        return requests_;
    }
    /// The most transfers that were in progress at one time.
    int mostAtOnce() const { return mostAtOnce_; }

  private:
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property;
        xcb_atom_t type;
        ScriptedTarget target;
        qsizetype sent = 0;
        int pieces = 0;
    };

    void take(PlainClient& client) {
        xcb_change_property(client.raw(), XCB_PROP_MODE_APPEND, client.window(), client.atom("TIME"),
                            XCB_ATOM_INTEGER, 32, 0, nullptr);
        xcb_timestamp_t time = XCB_CURRENT_TIME;
        while (const auto event = client.nextEvent(std::chrono::seconds(2))) {
            if (eventType(*event) != XCB_PROPERTY_NOTIFY)
                continue;
            time = reinterpret_cast<const xcb_property_notify_event_t&>(*event).time;
            break;
        }
        xcb_set_selection_owner(client.raw(), client.window(), client.atom("CLIPBOARD"), time);
        client.sync();
    }

    void run(std::promise<void>& ready) {
        PlainClient client(display_);
        take(client);
        ready.set_value();
        std::vector<Transfer> transfers;
        while (!stopping_) {
            const auto event = client.nextEvent(std::chrono::milliseconds(5));
            if (!event)
                continue;
            if (eventType(*event) == XCB_PROPERTY_NOTIFY) {
                const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
                if (change.state != XCB_PROPERTY_DELETE)
                    continue;
                for (auto& each : transfers) {
                    if (each.requestor != change.window || each.property != change.atom)
                        continue;
                    if (!sendPiece(client, each))
                        return; // died
                }
                std::erase_if(transfers, [](const Transfer& each) { return each.pieces < 0; });
            } else if (eventType(*event) == XCB_DESTROY_NOTIFY) {
                const auto gone = reinterpret_cast<const xcb_destroy_notify_event_t&>(*event).window;
                std::erase_if(transfers, [&](const Transfer& each) { return each.requestor == gone; });
            } else if (eventType(*event) == XCB_SELECTION_REQUEST) {
                answer(client, reinterpret_cast<const xcb_selection_request_event_t&>(*event), transfers);
            }
            mostAtOnce_ = std::max(mostAtOnce_.load(), static_cast<int>(transfers.size()));
        }
    }

    bool sendPiece(PlainClient& client, Transfer& transfer) {
        using Behaviour = ScriptedTarget::Behaviour;
        if (transfer.pieces == 1) {
            switch (transfer.target.behaviour) {
            case Behaviour::diesMidway:
                return false;
            case Behaviour::stallsMidway:
                return true;
            case Behaviour::changesMidway:
                script_ = second_;
                take(client);
                return true;
            default:
                break;
            }
        }
        const bool endless = transfer.target.behaviour == Behaviour::announcesOnly;
        if (endless)
            transfer.sent = 0;
        const auto size = std::min(script_.piece, transfer.target.data.size() - transfer.sent);
        xcb_change_property(client.raw(), XCB_PROP_MODE_REPLACE, transfer.requestor, transfer.property,
                            transfer.type, static_cast<std::uint8_t>(transfer.target.format),
                            static_cast<std::uint32_t>(size / (transfer.target.format / 8)),
                            transfer.target.data.constData() + transfer.sent);
        xcb_flush(client.raw());
        transfer.sent += size;
        transfer.pieces = size == 0 ? -1 : transfer.pieces + 1;
        return true;
    }

    void answer(PlainClient& client, const xcb_selection_request_event_t& request,
                std::vector<Transfer>& transfers) {
        const auto name = client.atomName(request.target);
        {
            const std::lock_guard lock(mutex_);
            requests_.append(QString::fromUtf8(name));
        }
        if (script_.hangs)
            return;
        xcb_atom_t answered = XCB_ATOM_NONE;
        if (name == "TARGETS" && !script_.refusesTargets) {
            std::vector<xcb_atom_t> list{client.atom("TARGETS"), client.atom("MULTIPLE")};
            for (const auto& each : script_.targets)
                list.push_back(client.atom(each.name));
            xcb_change_property(client.raw(), XCB_PROP_MODE_REPLACE, request.requestor, request.property,
                                XCB_ATOM_ATOM, 32, static_cast<std::uint32_t>(list.size()), list.data());
            answered = request.property;
        }
        for (const auto& each : script_.targets) {
            if (each.name != name)
                continue;
            if (each.behaviour == ScriptedTarget::Behaviour::hangs)
                return;
            if (each.behaviour == ScriptedTarget::Behaviour::refuses)
                break;
            const auto type = client.atom(each.type.isEmpty() ? each.name : each.type);
            answered = request.property;
            if (each.incremental) {
                const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
                xcb_change_window_attributes(client.raw(), request.requestor, XCB_CW_EVENT_MASK, &mask);
                const auto size =
                    each.announced != 0 ? each.announced : static_cast<std::uint32_t>(each.data.size());
                xcb_change_property(client.raw(), XCB_PROP_MODE_REPLACE, request.requestor, request.property,
                                    client.atom("INCR"), 32, 1, &size);
                transfers.push_back({request.requestor, request.property, type, each});
                break;
            }
            // In pieces, so that a large property needs no large request.
            qsizetype sent = 0;
            do {
                const auto size = std::min<qsizetype>(1 << 20, each.data.size() - sent);
                xcb_change_property(
                    client.raw(), sent == 0 ? XCB_PROP_MODE_REPLACE : XCB_PROP_MODE_APPEND, request.requestor,
                    request.property, type, static_cast<std::uint8_t>(each.format),
                    static_cast<std::uint32_t>(size / (each.format / 8)), each.data.constData() + sent);
                sent += size;
            } while (sent < each.data.size());
            break;
        }
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request.time;
        notify.requestor = request.requestor;
        notify.selection = request.selection;
        notify.target = request.target;
        notify.property = answered;
        std::array<char, 32> wire{};
        std::memcpy(wire.data(), &notify, sizeof notify);
        xcb_send_event(client.raw(), 0, request.requestor, 0, wire.data());
        xcb_flush(client.raw());
    }

    OwnerScript script_;
    OwnerScript second_;
    QByteArray display_;
    mutable std::mutex mutex_;
    QStringList requests_;
    std::atomic<int> mostAtOnce_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

inline OwnerScript scriptFor(const QList<PasteboardItem>& items) {
    OwnerScript script;
    for (const auto& each : clipboardFormats::servedTargets(items)) {
        script.targets.append(
            {each.target.toUtf8(), each.data, each.encoding.toUtf8(), each.format, each.data.size() > 65536});
    }
    return script;
}

/// Bytes that show when one is missing or in the wrong place.
inline QByteArray patternOf(qsizetype size, int seed = 1) {
    QByteArray bytes(size, Qt::Uninitialized);
    auto state = static_cast<std::uint32_t>(seed) * 2654435761U + 1;
    for (auto& each : bytes) {
        state = state * 1664525U + 1013904223U;
        each = static_cast<char>(state >> 24);
    }
    return bytes;
}

} // namespace vellumline::test
