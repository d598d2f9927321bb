#include "Vellumline/Platform/X11/X11Connection.h"

#include <QAbstractEventDispatcher>
#include <QSocketNotifier>
#include <algorithm>
#include <utility>

namespace vellumline {

std::unique_ptr<X11Connection> X11Connection::open(const QByteArray& display) {
    int screenNumber = 0;
    xcb_connection_t* connection =
        xcb_connect(display.isEmpty() ? nullptr : display.constData(), &screenNumber);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return nullptr;
    }
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem > 1; ++i)
        xcb_screen_next(&screens);
    return std::unique_ptr<X11Connection>(new X11Connection(connection, screens.data));
}

X11Connection::X11Connection(xcb_connection_t* connection, const xcb_screen_t* screen)
    : connection_(connection), screen_(screen) {
    notifier_ = new QSocketNotifier(xcb_get_file_descriptor(connection), QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &X11Connection::drain);
    if (auto* dispatcher = QAbstractEventDispatcher::instance())
        connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &X11Connection::drain);
}

X11Connection::~X11Connection() {
    delete notifier_; // before the descriptor is closed
    xcb_disconnect(connection_);
}

xcb_atom_t X11Connection::atom(const QByteArray& name) {
    if (const auto known = atoms_.constFind(name); known != atoms_.cend())
        return *known;
    const auto cookie =
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.constData());
    const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
    if (!reply)
        return XCB_ATOM_NONE;
    atoms_.insert(name, reply->atom);
    atomNames_.insert(reply->atom, name);
    return reply->atom;
}

QByteArray X11Connection::atomName(xcb_atom_t atom) {
    if (const auto known = atomNames_.constFind(atom); known != atomNames_.cend())
        return *known;
    xcb_generic_error_t* error = nullptr;
    const auto cookie = xcb_get_atom_name(connection_, atom);
    const XcbReply<xcb_get_atom_name_reply_t> reply(xcb_get_atom_name_reply(connection_, cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error);
    if (!reply)
        return {};
    QByteArray name(xcb_get_atom_name_name(reply.get()), xcb_get_atom_name_name_length(reply.get()));
    atoms_.insert(name, atom);
    atomNames_.insert(atom, name);
    return name;
}

void X11Connection::prefetchAtoms(const QList<QByteArray>& names) {
    QList<std::pair<QByteArray, xcb_intern_atom_cookie_t>> asked;
    for (const auto& name : names) {
        if (!atoms_.contains(name)) {
            asked.append({name, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()),
                                                name.constData())});
        }
    }
    for (const auto& [name, cookie] : std::as_const(asked)) {
        const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
        if (!reply)
            continue;
        atoms_.insert(name, reply->atom);
        atomNames_.insert(reply->atom, name);
    }
}

void X11Connection::prefetchAtomNames(const QList<xcb_atom_t>& atoms) {
    QList<std::pair<xcb_atom_t, xcb_get_atom_name_cookie_t>> asked;
    for (const auto atom : atoms) {
        if (!atomNames_.contains(atom))
            asked.append({atom, xcb_get_atom_name(connection_, atom)});
    }
    for (const auto& [atom, cookie] : std::as_const(asked)) {
        xcb_generic_error_t* error = nullptr;
        const XcbReply<xcb_get_atom_name_reply_t> reply(xcb_get_atom_name_reply(connection_, cookie, &error));
        const XcbReply<xcb_generic_error_t> errorOwner(error);
        if (!reply)
            continue;
        QByteArray name(xcb_get_atom_name_name(reply.get()), xcb_get_atom_name_name_length(reply.get()));
        atoms_.insert(name, atom);
        atomNames_.insert(atom, name);
    }
}

X11Connection::Token X11Connection::addEventHandler(EventHandler handler) {
    handlers_.append({nextToken_, std::move(handler)});
    return nextToken_++;
}

void X11Connection::removeEventHandler(Token token) {
    handlers_.removeIf([token](const auto& each) { return each.first == token; });
}

void X11Connection::flush() {
    xcb_flush(connection_);
}

void X11Connection::drain() {
    while (auto* event = xcb_poll_for_event(connection_)) {
        const XcbReply<xcb_generic_event_t> owned(event);
        const auto handlers = handlers_; // a handler may remove itself, or another
        for (const auto& [token, handler] : handlers) {
            const bool stillThere = std::ranges::any_of(
                handlers_, [token = token](const auto& each) { return each.first == token; });
            if (stillThere)
                handler(*event);
        }
    }
    if (isBroken() && !lostReported_) {
        lostReported_ = true;
        notifier_->setEnabled(false);
        Q_EMIT connectionLost();
    }
}

bool X11Connection::isBroken() const {
    return xcb_connection_has_error(connection_) != 0;
}

} // namespace vellumline
