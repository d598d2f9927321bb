#include "Vellumline/Platform/X11/X11Workspace.h"

#include "Vellumline/Platform/X11/X11Ping.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QProcess>
#include <QStandardPaths>
#include <QSysInfo>
#include <QVariantMap>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>
#include <xcb/res.h>

namespace vellumline {

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");

bool startDetached(const QString& program, const QStringList& arguments) {
    return QProcess::startDetached(program, arguments);
}

bool processExists(qint64 processIdentifier) {
    // EPERM: it is there and belongs to somebody else.
    return processIdentifier > 0 && (kill(static_cast<pid_t>(processIdentifier), 0) == 0 || errno == EPERM);
}

std::uint32_t firstCardinal(const QByteArray& bytes) {
    std::uint32_t value = 0;
    if (bytes.size() >= static_cast<qsizetype>(sizeof value))
        std::memcpy(&value, bytes.constData(), sizeof value);
    return value;
}

} // namespace

X11Workspace::X11Workspace(X11Connection& connection, Launcher launcher)
    : connection_(connection), launcher_(launcher ? std::move(launcher) : Launcher(startDetached)) {
    const auto* extension = xcb_get_extension_data(connection_.raw(), &xcb_res_id);
    if (extension == nullptr || extension->present == 0)
        return;
    // Client ids came with version 1.2 of the extension.
    const XcbReply<xcb_res_query_version_reply_t> version(xcb_res_query_version_reply(
        connection_.raw(), xcb_res_query_version(connection_.raw(), 1, 2), nullptr));
    hasClientIds_ = version && (version->server_major > 1 || version->server_minor >= 2);
}

QByteArray X11Workspace::property(xcb_window_t window, const QByteArray& name, xcb_atom_t type) const {
    constexpr std::uint32_t mostUnits = 1024; // of four bytes; no property asked for here is longer
    xcb_generic_error_t* error = nullptr;
    const auto cookie =
        xcb_get_property(connection_.raw(), 0, window, connection_.atom(name), type, 0, mostUnits);
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_.raw(), cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error); // the window may be gone by now
    if (!reply || reply->type != type)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            xcb_get_property_value_length(reply.get())};
}

xcb_window_t X11Workspace::activeWindow() const {
    const QByteArray active =
        property(connection_.rootWindow(), QByteArrayLiteral("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW);
    if (active.isEmpty())
        return focusedTopLevel();
    // A property that says None is an answer: the desktop itself has the input. Openbox 3.6 goes on naming
    // the last window after it was destroyed, and its number may by now belong to another program.
    const xcb_window_t window = firstCardinal(active);
    return window != XCB_WINDOW_NONE && exists(window) ? window : xcb_window_t{XCB_WINDOW_NONE};
}

bool X11Workspace::exists(xcb_window_t window) const {
    xcb_generic_error_t* error = nullptr;
    const auto cookie = xcb_get_window_attributes(connection_.raw(), window);
    const XcbReply<xcb_get_window_attributes_reply_t> reply(
        xcb_get_window_attributes_reply(connection_.raw(), cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error);
    return reply != nullptr;
}

xcb_window_t X11Workspace::focusedTopLevel() const {
    const XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(connection_.raw(), xcb_get_input_focus(connection_.raw()), nullptr));
    if (!focus || focus->focus <= XCB_INPUT_FOCUS_POINTER_ROOT || focus->focus == connection_.rootWindow())
        return XCB_WINDOW_NONE;
    // Without a window manager the top level is the child of the root window.
    xcb_window_t window = focus->focus;
    for (;;) {
        const XcbReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(connection_.raw(), xcb_query_tree(connection_.raw(), window), nullptr));
        if (!tree)
            return XCB_WINDOW_NONE;
        if (tree->parent == tree->root || tree->parent == XCB_WINDOW_NONE)
            return window;
        window = tree->parent;
    }
}

X11Workspace::WindowClass X11Workspace::activeWindowClass() const {
    const xcb_window_t window = activeWindow();
    if (window == XCB_WINDOW_NONE)
        return {};
    // ICCCM section 4.1.2.5: two strings in Latin-1, each ended by a zero byte.
    const auto parts = property(window, QByteArrayLiteral("WM_CLASS"), XCB_ATOM_STRING).split('\0');
    WindowClass result;
    if (!parts.isEmpty())
        result.instance = QString::fromLatin1(parts.at(0));
    if (parts.size() > 1)
        result.name = QString::fromLatin1(parts.at(1));
    return result;
}

bool X11Workspace::isOfThisMachine(xcb_window_t window) const {
    const QByteArray machine =
        property(window, QByteArrayLiteral("WM_CLIENT_MACHINE"), XCB_ATOM_STRING).split('\0').value(0);
    // Some programs say the short name, some the full one.
    const QString here = QSysInfo::machineHostName().section(QLatin1Char('.'), 0, 0);
    return machine.isEmpty() || QString::fromLocal8Bit(machine).section(QLatin1Char('.'), 0, 0) == here;
}

qint64 X11Workspace::clientProcess(xcb_window_t window) const {
    if (!hasClientIds_)
        return 0;
    xcb_res_client_id_spec_t wanted;
    wanted.client = window;
    wanted.mask = XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID;
    xcb_generic_error_t* error = nullptr;
    const auto cookie = xcb_res_query_client_ids(connection_.raw(), 1, &wanted);
    const XcbReply<xcb_res_query_client_ids_reply_t> reply(
        xcb_res_query_client_ids_reply(connection_.raw(), cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error);
    if (!reply)
        return 0;
    for (auto each = xcb_res_query_client_ids_ids_iterator(reply.get()); each.rem > 0;
         xcb_res_client_id_value_next(&each)) {
        if ((each.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0 && each.data->length >= 4)
            return *xcb_res_client_id_value_value(each.data);
    }
    return 0;
}

qint64 X11Workspace::processOf(xcb_window_t window) const {
    // The window's own word first: it names the program, where the connection may be a helper's. It means
    // nothing here when it was said on another machine (ssh -X).
    const qint64 declared =
        firstCardinal(property(window, QByteArrayLiteral("_NET_WM_PID"), XCB_ATOM_CARDINAL));
    if (processExists(declared) && isOfThisMachine(window))
        return declared;
    const qint64 connected = clientProcess(window);
    return processExists(connected) ? connected : 0;
}

std::optional<Workspace::Application> X11Workspace::frontmostApplication() const {
    const xcb_window_t window = activeWindow();
    const qint64 process = window != XCB_WINDOW_NONE ? processOf(window) : 0;
    return process != 0 ? std::optional(Application{process, window}) : std::nullopt;
}

QCoro::Task<bool> X11Workspace::hasTakenInput(Application application, std::chrono::milliseconds limit) {
    return X11Ping::answered(static_cast<xcb_window_t>(application.window), limit);
}

void X11Workspace::activate(const Application& application) {
    // From bottom to top, so that the last one found is the one in front.
    const QByteArray stacking =
        property(connection_.rootWindow(), QByteArrayLiteral("_NET_CLIENT_LIST_STACKING"), XCB_ATOM_WINDOW);
    constexpr qsizetype each = sizeof(xcb_window_t);
    xcb_window_t topmost = XCB_WINDOW_NONE;
    for (qsizetype at = stacking.size() - each; at >= 0 && topmost == XCB_WINDOW_NONE; at -= each) {
        const xcb_window_t window = firstCardinal(stacking.mid(at, each));
        if (processOf(window) == application.processIdentifier)
            topmost = window;
    }
    if (topmost == XCB_WINDOW_NONE)
        return;
    // EWMH, _NET_ACTIVE_WINDOW: source 2 is a wish of the user, which no focus stealing prevention refuses.
    xcb_client_message_event_t message = {};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = topmost;
    message.type = connection_.atom(QByteArrayLiteral("_NET_ACTIVE_WINDOW"));
    message.data.data32[0] = 2;
    message.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(connection_.raw(), 0, connection_.rootWindow(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    connection_.flush();
}

void X11Workspace::openURL(const QUrl& url) {
    if (!url.isValid() || url.scheme().isEmpty()) // would read as a file or an option to what opens it
        return;
    if (url.scheme() == QLatin1String("x-apple.systempreferences")) {
        openAccessibilitySettings();
        return;
    }
    // Only a portal that already runs is asked: starting one takes seconds, and outside a sandbox xdg-open
    // does the same work.
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openWithDesktop(url);
        return;
    }
    auto question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    question << portalService;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(question, 1000), &context_);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &context_, [this, url, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<bool> runs = *watcher;
        if (!runs.isValid() || !runs.value()) {
            openWithDesktop(url);
            return;
        }
        auto request = QDBusMessage::createMethodCall(
            portalService, QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.freedesktop.portal.OpenURI"), QStringLiteral("OpenURI"));
        request << QString() << url.toString(QUrl::FullyEncoded) << QVariantMap();
        auto* opening =
            new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(request, 5000), &context_);
        QObject::connect(opening, &QDBusPendingCallWatcher::finished, &context_, [this, url, opening] {
            opening->deleteLater();
            // The portal answers with a request handle once it has taken the link. A refusal (no such
            // interface, no backend) leaves it to us; one that is merely late may still open it.
            if (opening->isError() && opening->error().type() != QDBusError::NoReply)
                openWithDesktop(url);
        });
    });
}

void X11Workspace::openWithDesktop(const QUrl& url) {
    launcher_(QStringLiteral("xdg-open"), {url.toString(QUrl::FullyEncoded)});
}

void X11Workspace::openAccessibilitySettings() {
    struct Page {
        const char* desktop;
        const char* program;
        const char* argument;
    };
    static constexpr Page pages[] = {
        {"GNOME", "gnome-control-center", "universal-access"},
        {"Unity", "gnome-control-center", "universal-access"},
        {"KDE", "systemsettings", "kcm_access"},
        {"KDE", "systemsettings5", "kcm_access"},
        {"XFCE", "xfce4-accessibility-settings", nullptr},
        {"MATE", "mate-at-properties", nullptr},
        {"X-Cinnamon", "cinnamon-settings", "accessibility"},
    };
    const auto desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'));
    for (const auto& page : pages) {
        if (!desktops.contains(QLatin1String(page.desktop), Qt::CaseInsensitive))
            continue;
        const QString program = QStandardPaths::findExecutable(QLatin1String(page.program));
        if (program.isEmpty())
            continue;
        launcher_(program,
                  page.argument == nullptr ? QStringList() : QStringList{QLatin1String(page.argument)});
        return;
    }
}

void X11Workspace::beep() {
    // 0 %: the loudness the user has set. The server passes it on to whatever plays the desktop's sound.
    xcb_bell(connection_.raw(), 0);
    connection_.flush();
}

} // namespace vellumline
