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

/// The toolkit's own connection, so that what follows comes behind its request that makes the window; null
/// without one.
xcb_connection_t* toolkitConnection() {
    const auto* application = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return application != nullptr ? application->connection() : nullptr;
}

/// Asked for once: a window is prepared each time that it is shown.
struct Atoms {
    explicit Atoms(xcb_connection_t* connection)
        : desktop(atomNamed(connection, "_NET_WM_DESKTOP")), state(atomNamed(connection, "_NET_WM_STATE")),
          skipTaskbar(atomNamed(connection, "_NET_WM_STATE_SKIP_TASKBAR")),
          skipPager(atomNamed(connection, "_NET_WM_STATE_SKIP_PAGER")) {}
    xcb_atom_t desktop, state, skipTaskbar, skipPager;
};

const Atoms& atoms(xcb_connection_t* connection) {
    static const Atoms known(connection);
    return known;
}

} // namespace

void joinAllDesktops(QWidget& window) {
    const auto id = static_cast<xcb_window_t>(window.winId());
    xcb_connection_t* connection = toolkitConnection();
    if (connection == nullptr)
        return;
    constexpr std::uint32_t all = 0xFFFFFFFF;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, atoms(connection).desktop, XCB_ATOM_CARDINAL,
                        32, 1, &all);
    xcb_flush(connection);
}

void prepare(QWidget& window) {
    joinAllDesktops(window);
    const auto id = static_cast<xcb_window_t>(window.winId());
    xcb_connection_t* connection = toolkitConnection();
    if (connection == nullptr)
        return;
    // Until the window is mapped the property is its owner's to write, and the toolkit adds its states to
    // what is there. Not every window manager takes it away with the window, so that it is written anew.
    const std::array states = {atoms(connection).skipTaskbar, atoms(connection).skipPager};
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, atoms(connection).state, XCB_ATOM_ATOM, 32,
                        states.size(), states.data());
    xcb_flush(connection);
}

} // namespace vellumline::X11PanelWindow
