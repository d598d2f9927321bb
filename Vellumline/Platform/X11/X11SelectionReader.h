#pragma once

#include "Vellumline/Platform/X11/X11Connection.h"
#include "Vellumline/Platform/X11/X11Wait.h"

#include <QByteArray>
#include <QCoroTask>
#include <chrono>
#include <deque>

namespace vellumline {

/// Reads what another client offers in a selection, one transfer at a time: owners of GTK 3 lose track of two
/// incremental transfers to one program. Nothing here blocks on another client. Main thread only.
class X11SelectionReader {
  public:
    using Deadline = std::chrono::steady_clock::time_point;

    enum class Status {
        converted,
        refused,      ///< the owner does not give this target
        hung,         ///< no progress for noProgress
        outOfTime,    ///< still in progress at the deadline
        tooLarge,     ///< more than the bytes allowed
        ownerChanged, ///< interrupted by interrupt(): the selection has another owner, or none
        lost          ///< the X server is gone, or the reader is being closed
    };
    struct Converted {
        Status status = Status::lost;
        QByteArray data;
        xcb_atom_t type = XCB_ATOM_NONE;
        int format = 8;
    };

    X11SelectionReader(X11Connection& connection, std::chrono::milliseconds noProgress);
    ~X11SelectionReader();
    X11SelectionReader(const X11SelectionReader&) = delete;
    X11SelectionReader& operator=(const X11SelectionReader&) = delete;

    /// One transfer; the caller sees to it that no other one runs.
    QCoro::Task<Converted> convert(xcb_atom_t selection, xcb_atom_t target, qsizetype maximumBytes,
                                   Deadline deadline);
    /// Ends the running transfer: its selection changed hands.
    void interrupt();
    /// Ends the running transfer and refuses every later one.
    void close();

  private:
    enum class Event { answered, refusal, newValue, timedOut, interrupted, closed };

    void createWindow();
    void abandonTransfer();
    void handle(const xcb_generic_event_t& event);
    QCoro::Task<Event> next(Deadline deadline);
    QCoro::Task<Converted> readProperty(qsizetype maximumBytes, Deadline deadline);
    QCoro::Task<Converted> readIncrementally(qsizetype announced, qsizetype maximumBytes, Deadline deadline);
    XcbReply<xcb_get_property_reply_t> property(qsizetype offset, qsizetype length);
    static Status statusOf(Event event, Deadline deadline);

    X11Connection& connection_;
    std::chrono::milliseconds noProgress_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    xcb_atom_t property_;
    xcb_atom_t incremental_;
    xcb_atom_t selection_ = XCB_ATOM_NONE;
    xcb_atom_t target_ = XCB_ATOM_NONE;
    X11Connection::Token token_;
    std::deque<Event> events_;
    X11Wait wait_;
    bool running_ = false;
    bool closed_ = false;
};

} // namespace vellumline
