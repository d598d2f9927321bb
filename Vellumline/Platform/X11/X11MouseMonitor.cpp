#include "Vellumline/Platform/X11/X11MouseMonitor.h"

#include <QApplication>
#include <QCursor>
#include <xcb/xinput.h>

namespace vellumline {

namespace {

constexpr std::uint32_t leftButton = 1;
constexpr std::uint32_t rightButton = 3;

} // namespace

X11MouseMonitor::~X11MouseMonitor() = default;

std::optional<MouseMonitor::Token> X11MouseMonitor::addGlobalMonitor(Handler handler) {
    if (!connection_ && !listen())
        return std::nullopt;
    monitors_.append({nextToken_, std::move(handler)});
    return nextToken_++;
}

void X11MouseMonitor::removeMonitor(Token token) {
    monitors_.removeIf([token](const auto& each) { return each.first == token; });
    // Not from inside of its own event: the handler that closes the panel is called by the connection.
    if (monitors_.isEmpty() && connection_) {
        connection_->removeEventHandler(handlerToken_);
        connection_.release()->deleteLater();
    }
}

bool X11MouseMonitor::listen() {
    auto connection = X11Connection::open();
    if (!connection)
        return false;
    const auto* extension = xcb_get_extension_data(connection->raw(), &xcb_input_id);
    if (extension == nullptr || extension->present == 0)
        return false;
    const XcbReply<xcb_input_xi_query_version_reply_t> version(xcb_input_xi_query_version_reply(
        connection->raw(), xcb_input_xi_query_version(connection->raw(), 2, 2), nullptr));
    if (!version || version->major_version < 2)
        return false;
    extension_ = extension->major_opcode;

    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection = {};
    selection.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    selection.head.mask_len = 1;
    selection.mask = XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS;
    // Waited for: the next press is seen, however soon it comes.
    const XcbReply<xcb_generic_error_t> refusal(xcb_request_check(
        connection->raw(),
        xcb_input_xi_select_events_checked(connection->raw(), connection->rootWindow(), 1, &selection.head)));
    if (refusal)
        return false;
    handlerToken_ = connection->addEventHandler([this](const xcb_generic_event_t& event) { handle(event); });
    connection_ = std::move(connection);
    return true;
}

void X11MouseMonitor::handle(const xcb_generic_event_t& event) {
    if (eventType(event) != XCB_GE_GENERIC)
        return;
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
    if (generic.extension != extension_ || generic.event_type != XCB_INPUT_RAW_BUTTON_PRESS)
        return;
    const auto& press = reinterpret_cast<const xcb_input_raw_button_press_event_t&>(event);
    if (press.detail != leftButton && press.detail != rightButton)
        return;
    // A raw event has no position; the pointer is still where it was pressed.
    const QPoint position = QCursor::pos();
    if (QApplication::topLevelAt(position) != nullptr)
        return;                      // a press in a window of ours
    const auto monitors = monitors_; // a handler may remove itself
    for (const auto& [token, handler] : monitors)
        handler(position);
}

} // namespace vellumline
