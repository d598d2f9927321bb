#include "Vellumline/Platform/X11/X11SelectionServer.h"

#include "Vellumline/Platform/X11/X11Connection.h"

#include <QHash>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <poll.h>
#include <set>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vellumline {

using clipboardFormats::ServedTarget;
using SteadyClock = std::chrono::steady_clock;

namespace {

/// A property up to this size is sent in one piece, a larger one in pieces of it (INCR). Large enough that a
/// hundred megabytes need a hundred rounds, small enough that no other client of the X server waits long.
constexpr qsizetype largestPiece = 1 << 20;
constexpr std::size_t mostTransfers = 64;
/// A client that asks all the time does not flood the main loop with reports.
constexpr std::chrono::milliseconds reportInterval{20};

} // namespace

class X11SelectionServer::Worker {
  public:
    Worker(xcb_connection_t* connection, xcb_window_t root, Limits limits, Observers observers)
        : connection_(connection), limits_(limits), observers_(std::move(observers)),
          wakeup_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        resourceMask_ = xcb_get_setup(connection_)->resource_id_mask;
        const auto requestBytes =
            static_cast<qsizetype>(xcb_get_maximum_request_length(connection_)) * 4 - 64;
        piece_ = std::min(largestPiece, requestBytes) & ~qsizetype(3);
        window_ = xcb_generate_id(connection_);
        const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, root, -10, -10, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
        clipboard_ = intern("CLIPBOARD");
        targets_ = intern("TARGETS");
        multiple_ = intern("MULTIPLE");
        timestamp_ = intern("TIMESTAMP");
        incremental_ = intern("INCR");
        atomPair_ = intern("ATOM_PAIR");
        timeProperty_ = intern("VELLUMLINE_TIME");
        xcb_flush(connection_);
        thread_ = std::thread([this] { run(); });
    }

    ~Worker() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake();
        thread_.join();
        close(wakeup_);
        xcb_disconnect(connection_);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void post(std::function<void()> command) {
        {
            const std::lock_guard lock(mutex_);
            commands_.push_back(std::move(command));
        }
        wake();
    }

    xcb_window_t window() const { return window_; }
    std::uint32_t clientBase(xcb_window_t window) const { return window & ~resourceMask_; }

    void take(const QList<ServedTarget>& targets, std::uint64_t generation,
              const std::function<void(Taken)>& done) {
        std::vector<Offered> offered;
        offered.reserve(static_cast<std::size_t>(targets.size()));
        for (const auto& each : targets) {
            const auto atom = intern(each.target.toUtf8());
            const auto type = each.encoding.isEmpty() ? atom : intern(each.encoding.toUtf8());
            const int format = each.format == 16 || each.format == 32 ? each.format : 8;
            offered.push_back({atom, type, static_cast<std::uint8_t>(format), each.data});
        }
        Taken taken;
        // Only an owner that gives a time in the future can refuse us once; a second try with the time of
        // then meets no such owner unless it is at it again.
        for (int attempt = 0; attempt < 2 && !taken.success; ++attempt) {
            const auto time = serverTime();
            if (!time)
                break;
            xcb_set_selection_owner(connection_, window_, clipboard_, *time);
            taken = {isOwner(), *time};
        }
        if (taken.success) {
            offered_ = std::move(offered);
            generation_ = generation;
            time_ = taken.time;
            clientsServed_.clear();
        }
        done(taken);
    }

    void release(const std::function<void(Taken)>& done) {
        Taken taken;
        if (const auto time = serverTime()) {
            xcb_set_selection_owner(connection_, XCB_WINDOW_NONE, clipboard_, *time);
            const XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
                connection_, xcb_get_selection_owner(connection_, clipboard_), nullptr));
            taken = {reply && reply->owner == XCB_WINDOW_NONE, *time};
        }
        offered_.clear();
        done(taken);
    }

  private:
    struct Offered {
        xcb_atom_t target;
        xcb_atom_t type;
        std::uint8_t format;
        QByteArray data;
    };
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property;
        xcb_atom_t type;
        std::uint8_t format;
        QByteArray data; ///< shared: a transfer goes on when the contents are replaced
        std::uint64_t generation;
        qsizetype sent;
        SteadyClock::time_point lastProgress;
        SteadyClock::time_point begun;
    };

    void wake() const {
        const std::uint64_t one = 1;
        while (write(wakeup_, &one, sizeof one) < 0 && errno == EINTR) {
        }
    }

    xcb_atom_t intern(const QByteArray& name) {
        if (const auto known = atoms_.constFind(name); known != atoms_.cend())
            return *known;
        const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.constData()),
            nullptr));
        if (!reply)
            return XCB_ATOM_NONE;
        atoms_.insert(name, reply->atom);
        return reply->atom;
    }

    bool isOwner() {
        const XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
            connection_, xcb_get_selection_owner(connection_, clipboard_), nullptr));
        return reply && reply->owner == window_;
    }

    /// The server's time, by a change of nothing on our own window: a selection taken with an older time than
    /// its owner's is refused without an error (ICCCM section 2.1), which a remembered time would run into.
    std::optional<xcb_timestamp_t> serverTime() {
        xcb_change_property(connection_, XCB_PROP_MODE_APPEND, window_, timeProperty_, XCB_ATOM_INTEGER, 32,
                            0, nullptr);
        xcb_flush(connection_);
        while (auto* raw = xcb_wait_for_event(connection_)) {
            const XcbReply<xcb_generic_event_t> event(raw);
            if (eventType(*event) == XCB_PROPERTY_NOTIFY) {
                const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
                if (change.window == window_ && change.atom == timeProperty_)
                    return change.time;
            }
            handle(*event);
        }
        return std::nullopt; // the X server went away
    }

    void run() {
        for (;;) {
            std::vector<std::function<void()>> commands;
            {
                const std::lock_guard lock(mutex_);
                commands.swap(commands_);
                if (stopping_ && commands.empty())
                    return;
            }
            for (const auto& command : commands)
                command();
            drain();
            dropOverdueTransfers();
            xcb_flush(connection_);
            drain(); // flushing may have read events
            std::array<pollfd, 2> wanted{
                {{wakeup_, POLLIN, 0}, {xcb_get_file_descriptor(connection_), POLLIN, 0}}};
            // Without a connection only commands matter: they fail, and stopping ends the thread.
            const nfds_t count = xcb_connection_has_error(connection_) != 0 ? 1 : 2;
            poll(wanted.data(), count, millisecondsToNextDeadline());
            if ((wanted[0].revents & POLLIN) != 0) {
                std::uint64_t ignored = 0;
                while (read(wakeup_, &ignored, sizeof ignored) < 0 && errno == EINTR) {
                }
            }
        }
    }

    void drain() {
        while (auto* raw = xcb_poll_for_event(connection_)) {
            const XcbReply<xcb_generic_event_t> event(raw);
            handle(*event);
        }
        xcb_flush(connection_);
    }

    void handle(const xcb_generic_event_t& event) {
        switch (eventType(event)) {
        case 0: { // an error: the requestor's window has gone
            const auto& error = reinterpret_cast<const xcb_value_error_t&>(event);
            if (error.error_code == XCB_WINDOW)
                dropTransfers(error.bad_value);
            break;
        }
        case XCB_SELECTION_REQUEST:
            answer(reinterpret_cast<const xcb_selection_request_event_t&>(event));
            break;
        case XCB_SELECTION_CLEAR:
            // The event may be older than our last taking: what counts is who owns it now.
            if (!isOwner())
                offered_.clear();
            break;
        case XCB_PROPERTY_NOTIFY: {
            const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
            if (change.state == XCB_PROPERTY_DELETE && change.window != window_)
                sendNextPiece(change.window, change.atom);
            break;
        }
        case XCB_DESTROY_NOTIFY:
            dropTransfers(reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window);
            break;
        default:
            break;
        }
    }

    void answer(const xcb_selection_request_event_t& request) {
        // ICCCM section 2.2: a requestor of old gives no property, it means the target's name.
        const auto property = request.property == XCB_ATOM_NONE ? request.target : request.property;
        bool answered = false;
        // The time of the request is not compared with ours: a program that pastes with the time of a key
        // event from before our taking gets the contents that are there now, as it would from most owners.
        if (request.selection == clipboard_ && request.owner == window_ && !offered_.empty()) {
            answered = request.target == multiple_
                           ? answerMultiple(request.requestor, property)
                           : answerTarget(request.requestor, request.target, property);
        }
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request.time;
        notify.requestor = request.requestor;
        notify.selection = request.selection;
        notify.target = request.target;
        notify.property = answered ? property : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
        std::array<char, 32> wire{}; // events are 32 bytes on the wire, the struct is shorter
        std::memcpy(wire.data(), &notify, sizeof notify);
        xcb_send_event(connection_, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, wire.data());
        xcb_flush(connection_);
    }

    bool answerMultiple(xcb_window_t requestor, xcb_atom_t property) {
        const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            connection_,
            xcb_get_property(connection_, 0, requestor, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                             clipboardFormats::maximumTargets * 2),
            nullptr));
        if (!reply)
            return false;
        const QByteArray bytes(static_cast<const char*>(xcb_get_property_value(reply.get())),
                               xcb_get_property_value_length(reply.get()));
        auto pairs = clipboardFormats::decodeAtomPairs(bytes, reply->format);
        if (pairs.isEmpty())
            return false;
        std::vector<std::uint32_t> answers;
        for (auto& [target, where] : pairs) {
            const bool possible = where != XCB_ATOM_NONE && target != multiple_;
            if (!possible || !answerTarget(requestor, target, where))
                where = XCB_ATOM_NONE;
            answers.push_back(target);
            answers.push_back(where);
        }
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, requestor, property, atomPair_, 32,
                            static_cast<std::uint32_t>(answers.size()), answers.data());
        return true;
    }

    bool answerTarget(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property) {
        if (target == targets_) {
            std::vector<xcb_atom_t> list{targets_, timestamp_, multiple_};
            for (const auto& each : offered_)
                list.push_back(each.target);
            xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_ATOM, 32,
                                static_cast<std::uint32_t>(list.size()), list.data());
            return true;
        }
        if (target == timestamp_) {
            xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_INTEGER, 32,
                                1, &time_);
            return true;
        }
        const auto found = std::ranges::find(offered_, target, &Offered::target);
        if (found == offered_.end())
            return false;
        if (found->data.size() > piece_)
            return beginTransfer(requestor, property, *found);
        const auto units = found->data.size() / (found->format / 8);
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, requestor, property, found->type,
                            found->format, static_cast<std::uint32_t>(units), found->data.constData());
        reportDataRequest(requestor, generation_);
        return true;
    }

    bool beginTransfer(xcb_window_t requestor, xcb_atom_t property, const Offered& offered) {
        if (transfers_.size() >= mostTransfers)
            return false;
        std::erase_if(transfers_, [&](const Transfer& each) {
            return each.requestor == requestor && each.property == property; // asked anew
        });
        const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, requestor, XCB_CW_EVENT_MASK, &mask);
        const auto size =
            static_cast<std::uint32_t>(std::min<qsizetype>(offered.data.size(), 0x7FFFFFFF)); // a lower bound
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, requestor, property, incremental_, 32, 1,
                            &size);
        const auto now = SteadyClock::now();
        transfers_.push_back(
            {requestor, property, offered.type, offered.format, offered.data, generation_, 0, now, now});
        return true;
    }

    void sendNextPiece(xcb_window_t requestor, xcb_atom_t property) {
        const auto found = std::ranges::find_if(transfers_, [&](const Transfer& each) {
            return each.requestor == requestor && each.property == property;
        });
        if (found == transfers_.end())
            return;
        const auto size = std::min(piece_, found->data.size() - found->sent);
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, requestor, property, found->type,
                            found->format, static_cast<std::uint32_t>(size / (found->format / 8)),
                            found->data.constData() + found->sent);
        xcb_flush(connection_);
        found->sent += size;
        found->lastProgress = SteadyClock::now();
        if (size > 0)
            return; // the piece of nothing that ends a transfer is still to come
        reportDataRequest(requestor, found->generation);
        transfers_.erase(found);
        stopListening(requestor);
    }

    void stopListening(xcb_window_t requestor) {
        if (std::ranges::find(transfers_, requestor, &Transfer::requestor) != transfers_.end())
            return;
        const std::uint32_t nothing = XCB_EVENT_MASK_NO_EVENT;
        xcb_change_window_attributes(connection_, requestor, XCB_CW_EVENT_MASK, &nothing);
    }

    void dropTransfers(xcb_window_t requestor) {
        std::erase_if(transfers_, [&](const Transfer& each) { return each.requestor == requestor; });
    }

    bool isOverdue(const Transfer& transfer, SteadyClock::time_point now) const {
        return now - transfer.lastProgress >= limits_.requestorStall ||
               now - transfer.begun >= limits_.requestorTotal;
    }

    void dropOverdueTransfers() {
        const auto now = SteadyClock::now();
        std::set<xcb_window_t> dropped;
        std::erase_if(transfers_, [&](const Transfer& each) {
            if (!isOverdue(each, now))
                return false;
            dropped.insert(each.requestor);
            return true;
        });
        for (const auto requestor : dropped)
            stopListening(requestor);
    }

    int millisecondsToNextDeadline() const {
        if (transfers_.empty())
            return -1; // an idle program is never woken
        auto soonest = SteadyClock::time_point::max();
        for (const auto& each : transfers_) {
            soonest = std::min(
                {soonest, each.lastProgress + limits_.requestorStall, each.begun + limits_.requestorTotal});
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(soonest - SteadyClock::now()).count();
        return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60000));
    }

    void reportDataRequest(xcb_window_t requestor, std::uint64_t generation) {
        if (generation != generation_)
            return; // the end of a transfer of contents that are no longer there
        const auto base = clientBase(requestor);
        const auto now = SteadyClock::now();
        const auto [served, first] = clientsServed_.try_emplace(base, now);
        if (!first && now - served->second < reportInterval)
            return;
        served->second = now;
        if (observers_.dataRequested)
            observers_.dataRequested(generation_, base);
    }

    xcb_connection_t* connection_;
    Limits limits_;
    Observers observers_;
    int wakeup_;
    std::uint32_t resourceMask_ = 0;
    qsizetype piece_ = 0;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    xcb_atom_t clipboard_, targets_, multiple_, timestamp_, incremental_, atomPair_, timeProperty_;
    QHash<QByteArray, xcb_atom_t> atoms_;

    // The server's thread only.
    std::vector<Offered> offered_;
    std::uint64_t generation_ = 0;
    xcb_timestamp_t time_ = 0;
    std::map<std::uint32_t, SteadyClock::time_point> clientsServed_; ///< and when it was last reported
    std::vector<Transfer> transfers_;

    std::mutex mutex_;
    std::vector<std::function<void()>> commands_;
    bool stopping_ = false;

    std::thread thread_; // last: it uses all of the above
};

std::unique_ptr<X11SelectionServer> X11SelectionServer::start(const QByteArray& display, Limits limits,
                                                              Observers observers) {
    int screenNumber = 0;
    auto* connection = xcb_connect(display.isEmpty() ? nullptr : display.constData(), &screenNumber);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return nullptr;
    }
    const auto root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    auto worker = std::make_unique<Worker>(connection, root, limits, std::move(observers));
    return std::unique_ptr<X11SelectionServer>(new X11SelectionServer(std::move(worker)));
}

X11SelectionServer::X11SelectionServer(std::unique_ptr<Worker> worker) : worker_(std::move(worker)) {}

X11SelectionServer::~X11SelectionServer() = default;

xcb_window_t X11SelectionServer::window() const {
    return worker_->window();
}

std::uint32_t X11SelectionServer::clientBase(xcb_window_t window) const {
    return worker_->clientBase(window);
}

void X11SelectionServer::take(QList<ServedTarget> targets, std::uint64_t generation,
                              std::function<void(Taken)> done) {
    worker_->post([worker = worker_.get(), targets = std::move(targets), generation, done = std::move(done)] {
        worker->take(targets, generation, done);
    });
}

void X11SelectionServer::release(std::function<void(Taken)> done) {
    worker_->post([worker = worker_.get(), done = std::move(done)] { worker->release(done); });
}

} // namespace vellumline
