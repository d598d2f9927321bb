#pragma once

#include "Vellumline/Platform/X11/X11ClipboardFormats.h"

#include <QByteArray>
#include <QList>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <xcb/xcb.h>

namespace vellumline {

/// Owns the CLIPBOARD selection and answers those who ask for it, on a thread and a connection of its own.
///
/// The thread is there because the main thread is not always free to answer: a toolkit's paste into one of
/// our own windows asks the selection owner, which is us, and blocks until the answer comes (Qt 6.4 waits up
/// to five seconds in QXcbClipboard). Started and used from the main thread; observers run on the server's
/// thread.
class X11SelectionServer {
  public:
    struct Limits {
        std::chrono::milliseconds requestorStall{5000};  ///< an INCR transfer without progress is dropped
        std::chrono::milliseconds requestorTotal{60000}; ///< and any INCR transfer is after so long
    };
    /// Called on the server's thread; they must only post what they are told.
    struct Observers {
        /// A data request (no TARGETS, TIMESTAMP or the like) of a client for the contents of a generation;
        /// not every one of many in a row.
        std::function<void(std::uint64_t generation, std::uint32_t clientBase)> dataRequested;
    };
    /// Whether the selection is ours now, and since which server time.
    struct Taken {
        bool success = false;
        xcb_timestamp_t time = 0;
    };

    /// Null when the display cannot be opened.
    static std::unique_ptr<X11SelectionServer> start(const QByteArray& display, Limits limits,
                                                     Observers observers);
    ~X11SelectionServer();
    X11SelectionServer(const X11SelectionServer&) = delete;
    X11SelectionServer& operator=(const X11SelectionServer&) = delete;

    /// The window that owns the selection while we do.
    xcb_window_t window() const;
    /// The part of a window's id that all windows of its client share.
    std::uint32_t clientBase(xcb_window_t window) const;

    /// Takes the selection and offers these targets; `done` runs on the server's thread.
    void take(QList<clipboardFormats::ServedTarget> targets, std::uint64_t generation,
              std::function<void(Taken)> done);
    /// Leaves the selection without an owner, whoever had it.
    void release(std::function<void(Taken)> done);

  private:
    class Worker;
    explicit X11SelectionServer(std::unique_ptr<Worker> worker);
    std::unique_ptr<Worker> worker_;
};

} // namespace vellumline
