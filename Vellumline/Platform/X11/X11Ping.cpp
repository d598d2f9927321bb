#include "Vellumline/Platform/X11/X11Ping.h"

#include "Vellumline/AsyncResult.h"
#include "Vellumline/Platform/X11/X11Connection.h"

#include <QTimer>
#include <algorithm>
#include <array>
#include <span>

namespace vellumline {

namespace {

struct DeleteLater {
    void operator()(QObject* object) const { object->deleteLater(); }
};

bool takesPart(X11Connection& connection, xcb_window_t window) {
    constexpr std::uint32_t mostProtocols = 64;
    const auto cookie = xcb_get_property(connection.raw(), 0, window, connection.atom("WM_PROTOCOLS"),
                                         XCB_ATOM_ATOM, 0, mostProtocols);
    xcb_generic_error_t* error = nullptr;
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection.raw(), cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error);
    if (!reply || reply->type != XCB_ATOM_ATOM || reply->format != 32)
        return false;
    const std::span protocols(static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get())),
                              reply->value_len);
    return std::ranges::find(protocols, connection.atom("_NET_WM_PING")) != protocols.end();
}

void select(X11Connection& connection, xcb_window_t window, std::uint32_t events) {
    xcb_change_window_attributes(connection.raw(), window, XCB_CW_EVENT_MASK, &events);
}

} // namespace

QCoro::Task<bool> X11Ping::answered(xcb_window_t window, std::chrono::milliseconds limit) {
    // Deleted later, as the answer arrives in the middle of its work.
    const std::unique_ptr<X11Connection, DeleteLater> connection(X11Connection::open().release());
    if (!connection || !takesPart(*connection, window))
        co_return false;
    const xcb_atom_t protocols = connection->atom("WM_PROTOCOLS");
    const xcb_atom_t ping = connection->atom("_NET_WM_PING");
    const xcb_window_t root = connection->rootWindow();
    // The program gives it back. Window managers, who know theirs by a time, use no such number.
    const std::uint32_t number = xcb_generate_id(connection->raw());
    AsyncResult<bool> answer;
    connection->addEventHandler([=](const xcb_generic_event_t& event) mutable {
        if (event.response_type == 0) { // an error: the window has gone before it was asked
            answer.set(false);
        } else if (eventType(event) == XCB_DESTROY_NOTIFY) {
            if (reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window == window)
                answer.set(false);
        } else if (eventType(event) == XCB_CLIENT_MESSAGE) {
            const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(event);
            if (message.type == protocols && message.data.data32[0] == ping &&
                message.data.data32[1] == number)
                answer.set(true);
        }
    });
    QObject::connect(connection.get(), &X11Connection::connectionLost, connection.get(),
                     [answer]() mutable { answer.set(false); });
    QTimer::singleShot(limit, connection.get(), [answer]() mutable { answer.set(false); });
    select(*connection, root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY); // where the answer is sent to
    select(*connection, window, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    xcb_client_message_event_t question = {};
    question.response_type = XCB_CLIENT_MESSAGE;
    question.format = 32;
    question.window = window;
    question.type = protocols;
    question.data.data32[0] = ping;
    question.data.data32[1] = number;
    question.data.data32[2] = window;
    xcb_send_event(connection->raw(), 0, window, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char*>(&question));
    connection->flush();
    const bool hasAnswered = co_await answer;
    co_return hasAnswered;
}

} // namespace vellumline
