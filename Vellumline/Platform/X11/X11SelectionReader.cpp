#include "Vellumline/Platform/X11/X11SelectionReader.h"

#include "Vellumline/Platform/X11/X11ClipboardFormats.h"

#include <algorithm>
#include <cstdint>

namespace vellumline {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

namespace {

/// How much of a property one round trip asks for. The X server answers nobody else and we handle no event
/// meanwhile, so a large property is read in pieces with a look at the main loop in between.
constexpr qsizetype pieceBytes = 4 << 20;

QByteArray bytesOf(const xcb_get_property_reply_t& reply) {
    return {static_cast<const char*>(xcb_get_property_value(&reply)), xcb_get_property_value_length(&reply)};
}

} // namespace

X11SelectionReader::X11SelectionReader(X11Connection& connection, milliseconds noProgress)
    : connection_(connection), noProgress_(noProgress), property_(connection.atom("VELLUMLINE_SELECTION")),
      incremental_(connection.atom("INCR")) {
    token_ = connection_.addEventHandler([this](const xcb_generic_event_t& event) { handle(event); });
    createWindow();
}

X11SelectionReader::~X11SelectionReader() {
    close();
    connection_.removeEventHandler(token_);
    xcb_destroy_window(connection_.raw(), window_);
    connection_.flush();
}

void X11SelectionReader::createWindow() {
    window_ = xcb_generate_id(connection_.raw());
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection_.raw(), XCB_COPY_FROM_PARENT, window_, connection_.rootWindow(), -10, -10, 1,
                      1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
}

void X11SelectionReader::abandonTransfer() {
    // A window of its own for whatever comes next: what the owner still sends goes to the old one and is not
    // taken for the next answer, and an owner in the middle of an incremental transfer sees its requestor die
    // and lets go, instead of keeping the data for somebody who does not come back.
    xcb_destroy_window(connection_.raw(), window_);
    createWindow();
    connection_.flush();
}

void X11SelectionReader::handle(const xcb_generic_event_t& event) {
    if (!running_)
        return;
    if (eventType(event) == XCB_SELECTION_NOTIFY) {
        const auto& notify = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
        if (notify.requestor != window_ || notify.selection != selection_ || notify.target != target_)
            return;
        events_.push_back(notify.property == XCB_ATOM_NONE ? Event::refusal : Event::answered);
    } else if (eventType(event) == XCB_PROPERTY_NOTIFY) {
        const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (change.window != window_ || change.atom != property_ || change.state != XCB_PROPERTY_NEW_VALUE)
            return;
        events_.push_back(Event::newValue);
    } else {
        return;
    }
    wait_.wake();
}

void X11SelectionReader::interrupt() {
    if (!running_)
        return;
    events_.push_back(Event::interrupted);
    wait_.wake();
}

void X11SelectionReader::close() {
    closed_ = true;
    wait_.wake();
}

QCoro::Task<X11SelectionReader::Event> X11SelectionReader::next(Deadline deadline) {
    const auto limit = std::min(deadline, SteadyClock::now() + noProgress_);
    while (events_.empty() && !closed_) {
        const auto left = std::chrono::ceil<milliseconds>(limit - SteadyClock::now());
        if (left.count() <= 0)
            co_return Event::timedOut;
        auto waiting = wait_.until(left);
        co_await waiting;
    }
    if (closed_)
        co_return Event::closed;
    const auto event = events_.front();
    events_.pop_front();
    co_return event;
}

X11SelectionReader::Status X11SelectionReader::statusOf(Event event, Deadline deadline) {
    switch (event) {
    case Event::refusal:
        return Status::refused;
    case Event::timedOut:
        return SteadyClock::now() >= deadline ? Status::outOfTime : Status::hung;
    case Event::interrupted:
        return Status::ownerChanged;
    default:
        return Status::lost;
    }
}

QCoro::Task<X11SelectionReader::Converted> X11SelectionReader::convert(xcb_atom_t selection,
                                                                       xcb_atom_t target,
                                                                       qsizetype maximumBytes,
                                                                       Deadline deadline) {
    Converted result;
    if (closed_ || connection_.isBroken())
        co_return result;
    events_.clear();
    selection_ = selection;
    target_ = target;
    running_ = true;
    xcb_delete_property(connection_.raw(), window_, property_);
    xcb_convert_selection(connection_.raw(), window_, selection, target, property_, XCB_CURRENT_TIME);
    connection_.flush();

    Event event = Event::newValue;
    while (event == Event::newValue) // the property changes before the owner says that it has answered
        event = co_await next(deadline);
    if (event == Event::answered)
        result = co_await readProperty(maximumBytes, deadline);
    else
        result.status = statusOf(event, deadline);
    running_ = false;
    const bool unfinished =
        result.status != Status::converted && result.status != Status::refused && !closed_;
    if (unfinished)
        abandonTransfer();
    co_return result;
}

XcbReply<xcb_get_property_reply_t> X11SelectionReader::property(qsizetype offset, qsizetype length) {
    // Deletes the property when the end of it was read; an owner that sends incrementally goes on with that.
    const auto cookie =
        xcb_get_property(connection_.raw(), 1, window_, property_, XCB_GET_PROPERTY_TYPE_ANY,
                         static_cast<std::uint32_t>(offset / 4), static_cast<std::uint32_t>(length / 4));
    return XcbReply<xcb_get_property_reply_t>(xcb_get_property_reply(connection_.raw(), cookie, nullptr));
}

QCoro::Task<X11SelectionReader::Converted> X11SelectionReader::readProperty(qsizetype maximumBytes,
                                                                            Deadline deadline) {
    Converted result;
    auto reply = property(0, pieceBytes);
    if (!reply)
        co_return result;
    if (reply->type == XCB_ATOM_NONE) { // it says that it answered and did not
        result.status = Status::refused;
        co_return result;
    }
    if (reply->type == incremental_) {
        const auto announced = clipboardFormats::decodeIncrementalSize(bytesOf(*reply), reply->format);
        if (announced > maximumBytes) {
            result.status = Status::tooLarge;
            co_return result;
        }
        reply.reset();
        result = co_await readIncrementally(announced, maximumBytes, deadline);
        co_return result;
    }
    result.type = reply->type;
    result.format = reply->format;
    result.data = bytesOf(*reply);
    qsizetype left = reply->bytes_after;
    if (result.data.size() + left > maximumBytes) {
        result.status = Status::tooLarge;
        result.data.clear();
        co_return result;
    }
    result.data.reserve(result.data.size() + left);
    while (left > 0) {
        auto breath = wait_.until(milliseconds(0));
        co_await breath;
        if (closed_)
            co_return Converted{};
        reply = property(result.data.size(), pieceBytes);
        if (!reply || reply->value_len == 0 || reply->type != result.type || reply->format != result.format) {
            // Somebody else wrote into our property: nothing of it can be trusted.
            co_return Converted{reply ? Status::refused : Status::lost, {}, XCB_ATOM_NONE, 8};
        }
        result.data.append(static_cast<const char*>(xcb_get_property_value(reply.get())),
                           xcb_get_property_value_length(reply.get()));
        left = reply->bytes_after;
        if (result.data.size() + left > maximumBytes)
            co_return Converted{Status::tooLarge, {}, XCB_ATOM_NONE, 8};
    }
    result.status = Status::converted;
    co_return result;
}

QCoro::Task<X11SelectionReader::Converted>
X11SelectionReader::readIncrementally(qsizetype announced, qsizetype maximumBytes, Deadline deadline) {
    Converted result;
    QByteArray data;
    data.reserve(announced);
    bool first = true;
    for (;;) {
        const auto event = co_await next(deadline);
        if (event == Event::answered)
            continue;
        if (event != Event::newValue) {
            result.status = statusOf(event, deadline);
            co_return result;
        }
        bool ended = false;
        qsizetype offset = 0;
        for (qsizetype left = 1; left > 0;) {
            const auto reply = property(offset, pieceBytes);
            if (!reply)
                co_return result;
            const qsizetype size = xcb_get_property_value_length(reply.get());
            left = reply->bytes_after;
            if (reply->type == XCB_ATOM_NONE)
                break; // an event of a piece that was read already
            if (first) {
                result.type = reply->type;
                result.format = reply->format;
            }
            if (size == 0) {
                ended = true;
                break;
            }
            first = false;
            if (data.size() + size + left > maximumBytes) {
                result.status = Status::tooLarge;
                co_return result;
            }
            data.append(static_cast<const char*>(xcb_get_property_value(reply.get())), size);
            offset += size;
        }
        if (ended)
            break;
        if (SteadyClock::now() >= deadline) {
            result.status = Status::outOfTime;
            co_return result;
        }
    }
    result.data = std::move(data);
    result.status = Status::converted;
    co_return result;
}

} // namespace vellumline
