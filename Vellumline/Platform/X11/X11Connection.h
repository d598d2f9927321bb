#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <cstdlib>
#include <functional>
#include <memory>
#include <xcb/xcb.h>

class QSocketNotifier;

namespace vellumline {

/// A connection to the X server of our own, pumped by the main loop. An adapter that must not be disturbed by
/// others' round trips opens one for itself. Main thread only.
class X11Connection : public QObject {
    Q_OBJECT
  public:
    /// Null when the display (DISPLAY when empty) cannot be opened.
    static std::unique_ptr<X11Connection> open(const QByteArray& display = {});
    ~X11Connection() override;

    xcb_connection_t* raw() const { return connection_; }
    const xcb_screen_t* screen() const { return screen_; }
    xcb_window_t rootWindow() const { return screen_->root; }

    /// Interned atom, remembered; the first use of a name costs one round trip.
    xcb_atom_t atom(const QByteArray& name);
    /// Name of an atom, remembered; empty when the server does not know it.
    QByteArray atomName(xcb_atom_t atom);
    /// Makes the names or the atoms known for the calls above, all of them at the cost of one round trip.
    void prefetchAtoms(const QList<QByteArray>& names);
    void prefetchAtomNames(const QList<xcb_atom_t>& atoms);

    using EventHandler = std::function<void(const xcb_generic_event_t& event)>;
    using Token = quint64;
    /// Every event of the connection goes to every handler, in the order of installation.
    Token addEventHandler(EventHandler handler);
    void removeEventHandler(Token token);

    void flush();
    /// Hands out the events already read. Runs by itself before the main loop sleeps, since reading a reply
    /// may have taken events off the socket without anybody seeing the socket become readable.
    void drain();
    bool isBroken() const;

  Q_SIGNALS:
    /// The X server went away. Nothing more will come of this connection.
    void connectionLost();

  private:
    X11Connection(xcb_connection_t* connection, const xcb_screen_t* screen);

    xcb_connection_t* connection_;
    const xcb_screen_t* screen_;
    QSocketNotifier* notifier_ = nullptr;
    QHash<QByteArray, xcb_atom_t> atoms_;
    QHash<xcb_atom_t, QByteArray> atomNames_;
    QList<std::pair<Token, EventHandler>> handlers_;
    Token nextToken_ = 1;
    bool lostReported_ = false;
};

/// Frees what XCB allocated with malloc.
struct XcbFree {
    void operator()(void* memory) const { std::free(memory); }
};
template<class T> using XcbReply = std::unique_ptr<T, XcbFree>;

/// The type of an event, without the bit that says that another client sent it.
inline std::uint8_t eventType(const xcb_generic_event_t& event) {
    return event.response_type & 0x7F;
}

} // namespace vellumline
