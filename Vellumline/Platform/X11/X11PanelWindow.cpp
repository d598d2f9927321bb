#include "Vellumline/Platform/X11/X11PanelWindow.h"

#include <QGuiApplication>
#include <QWidget>
#include <array>
#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>

namespace vellumline::X11PanelWindow {

namespace {

xcb_atom_t atomNamed(xcb_connection_t* connection, const char* name) {
    const auto cookie = xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    const xcb_atom_t atom = reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(reply);
    return atom;
}

} // namespace

void prepare(QWidget& window) {
    const auto id = static_cast<xcb_window_t>(window.winId());
    const auto* application = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (application == nullptr)
        return;
    // On the toolkit's own connection, behind its request that makes the window. Until the window is mapped
    // the property is its owner's to write, and the toolkit adds its states to what is there.
    xcb_connection_t* connection = application->connection();
    const std::array states = {atomNamed(connection, "_NET_WM_STATE_SKIP_TASKBAR"),
                               atomNamed(connection, "_NET_WM_STATE_SKIP_PAGER")};
    xcb_change_property(connection, XCB_PROP_MODE_APPEND, id, atomNamed(connection, "_NET_WM_STATE"),
                        XCB_ATOM_ATOM, 32, states.size(), states.data());
    xcb_flush(connection);
}

} // namespace vellumline::X11PanelWindow
