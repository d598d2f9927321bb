#include "Vellumline/Platform/X11/X11Pasteboard.h"

#include <QCoroTimer>
#include <QMetaObject>
#include <algorithm>
#include <utility>
#include <xcb/xfixes.h>

namespace vellumline {

using clipboardFormats::ServedTarget;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;
using Status = X11SelectionReader::Status;
using Completeness = PasteboardContents::Completeness;

namespace {

/// An owner that gives the selection up to take it again at once (LibreOffice does for every copy) is between
/// the two for a few milliseconds; longer than this it is gone.
constexpr milliseconds betweenOwners{50};
/// How long a clear is held back for the write that usually follows it at once. A clipboard manager that sees
/// an empty clipboard in between fills it from its history (Klipper 5.27, "prevent empty clipboard"), a
/// little later than our write, and so takes the clipboard away from what was just written: seen.
constexpr milliseconds clearDelay{20};
/// Programs ask for several types in a row when they paste (Chromium does): what is asked for last may be
/// what they insert. A target has read when it has asked for nothing more for so long.
constexpr milliseconds pasteQuiet{100};
constexpr qsizetype targetsBytes = clipboardFormats::maximumTargets * 4;

bool isPasteboardText(const QList<PasteboardItem>& items) {
    // A correction is what this program writes with the port's own text type and marks as transient. Restored
    // contents carry the marker as well, but the owner's targets ("UTF8_STRING", not the port's type): nobody
    // is about to paste those, so nothing waits for a reader of them.
    return std::ranges::any_of(items, [](const PasteboardItem& item) {
        return item.hasType(PasteboardType::string) && item.hasType(PasteboardType::transientMarker);
    });
}

} // namespace

std::unique_ptr<X11Pasteboard> X11Pasteboard::open(const QByteArray& display) {
    return open(display, Limits());
}

std::unique_ptr<X11Pasteboard> X11Pasteboard::open(const QByteArray& display, Limits limits) {
    auto connection = X11Connection::open(display);
    if (!connection)
        return nullptr;
    const auto* fixes = xcb_get_extension_data(connection->raw(), &xcb_xfixes_id);
    if (fixes == nullptr || fixes->present == 0)
        return nullptr;
    const auto firstEvent = fixes->first_event;
    std::unique_ptr<X11Pasteboard> pasteboard(new X11Pasteboard(std::move(connection), limits));
    if (!pasteboard->start(display, firstEvent))
        return nullptr;
    return pasteboard;
}

X11Pasteboard::X11Pasteboard(std::unique_ptr<X11Connection> connection, Limits limits)
    : connection_(std::move(connection)), limits_(limits) {
    connection_->prefetchAtoms({"CLIPBOARD", "TARGETS", "INCR", "UTF8_STRING", "_NET_ACTIVE_WINDOW",
                                "CLIPBOARD_MANAGER", "SAVE_TARGETS", "VELLUMLINE_SELECTION"});
    clipboard_ = connection_->atom("CLIPBOARD");
    targets_ = connection_->atom("TARGETS");
    reader_ = std::make_unique<X11SelectionReader>(*connection_, limits_.noProgress);
    clearTimer_.setSingleShot(true);
    connect(&clearTimer_, &QTimer::timeout, this, [this] { finishClear(); });
}

bool X11Pasteboard::start(const QByteArray& display, std::uint8_t fixesFirstEvent) {
    fixesFirstEvent_ = fixesFirstEvent;
    auto* raw = connection_->raw();
    const XcbReply<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(raw, xcb_xfixes_query_version(raw, 1, 0), nullptr));
    if (!version)
        return false;
    connection_->addEventHandler([this](const xcb_generic_event_t& event) { handle(event); });
    connect(connection_.get(), &X11Connection::connectionLost, this, &X11Pasteboard::lose);
    xcb_xfixes_select_selection_input(raw, connection_->rootWindow(), clipboard_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    // Asked after the events were: no change falls between the two.
    const XcbReply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(raw, xcb_get_selection_owner(raw, clipboard_), nullptr));
    if (!owner)
        return false;
    owner_ = owner->owner;

    X11SelectionServer::Observers observers;
    observers.dataRequested = [this](std::uint64_t generation, std::uint32_t client) {
        QMetaObject::invokeMethod(
            this,
            [this, generation, client] {
                if (generation < readersGeneration_)
                    return;
                if (generation > readersGeneration_) {
                    readersGeneration_ = generation;
                    readers_.clear();
                }
                readers_.insert(client, SteadyClock::now());
                writeProgress_.wake();
            },
            Qt::QueuedConnection);
    };
    server_ = X11SelectionServer::start(display, limits_.serving, std::move(observers));
    return server_ != nullptr;
}

X11Pasteboard::~X11Pasteboard() {
    if (clearing_ && !isLost()) {
        // With the answer awaited: the X server drops what it has not yet read of a client that closes its
        // socket.
        auto* raw = connection_->raw();
        const auto cookie =
            xcb_set_selection_owner_checked(raw, XCB_WINDOW_NONE, clipboard_, XCB_CURRENT_TIME);
        const XcbReply<xcb_generic_error_t> error(xcb_request_check(raw, cookie));
    }
    lose();
    server_.reset(); // joins the thread: nothing is posted from here on, and what was posted is dropped
}

void X11Pasteboard::lose() {
    closing_ = true;
    owner_ = XCB_WINDOW_NONE;
    reader_->close();
    nextChange_.wake();
    ownerChange_.wake();
    writeProgress_.wake();
}

bool X11Pasteboard::ownsClipboard() const {
    return !closing_ && !clearing_ && server_ && owner_ == server_->window();
}

QString X11Pasteboard::nameOf(xcb_atom_t atom) const {
    return QString::fromUtf8(connection_->atomName(atom));
}

void X11Pasteboard::handle(const xcb_generic_event_t& event) {
    if (eventType(event) == XCB_DESTROY_NOTIFY) {
        const auto window = reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window;
        if (pasted_ && pasted_->targetWindow == window) {
            pasted_->targetGone = true;
            writeProgress_.wake();
        }
        return;
    }
    if (eventType(event) != fixesFirstEvent_ + XCB_XFIXES_SELECTION_NOTIFY)
        return;
    const auto& change = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
    if (change.selection != clipboard_)
        return;
    const bool taken = change.subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER;
    owner_ = taken ? change.owner : static_cast<xcb_window_t>(XCB_WINDOW_NONE);
    ownedSince_ = change.selection_timestamp;
    ++ownerEvents_;
    const bool isEndOfClear = releasing_ && owner_ == XCB_WINDOW_NONE;
    if (!isEndOfClear) // that one was counted when the clear was asked for
        countChange();
    clearing_ = false;
    clearTimer_.stop();
    reader_->interrupt();
    ownerChange_.wake();
    writeProgress_.wake();
}

void X11Pasteboard::countChange() {
    ++changeCount_;
    // Later: whoever waits goes on to read, and every handler is to have seen this event before the next one.
    QMetaObject::invokeMethod(
        this, [this] { nextChange_.wake(); }, Qt::QueuedConnection);
}

QCoro::Task<void> X11Pasteboard::nextChange(milliseconds limit) {
    auto awaitedTurn = changeTurn_.mine();
    const auto turn = co_await awaitedTurn;
    if (isLost()) { // there is no change any more, and a caller that asks again must not do so at once
        co_await QCoro::sleepFor(limit);
        co_return;
    }
    const auto count = changeCount_;
    const auto end = SteadyClock::now() + limit;
    while (!isLost() && changeCount_ == count) {
        const auto left = std::chrono::ceil<milliseconds>(end - SteadyClock::now());
        if (left.count() <= 0)
            break;
        auto waiting = nextChange_.until(left);
        co_await waiting;
    }
}

qint64 X11Pasteboard::changeCount() const {
    connection_->drain(); // what has arrived counts, also when the main loop has not got to it yet
    return changeCount_;
}

bool X11Pasteboard::isFrom(quint64 window) const {
    // All windows of a client share the upper part of their ids, and programs own a selection with a helper
    // window of the same connection.
    return server_ && owner_ != XCB_WINDOW_NONE && window != XCB_WINDOW_NONE && !ownsClipboard() &&
           server_->clientBase(owner_) == server_->clientBase(static_cast<xcb_window_t>(window));
}

// Reading.

QCoro::Task<std::optional<QStringList>> X11Pasteboard::offeredTargets() {
    std::optional<QStringList> names;
    if (offered_ && offered_->changeCount == changeCount_) {
        names = offered_->names;
        co_return names;
    }
    const auto count = changeCount_;
    const auto deadline = SteadyClock::now() + limits_.longestSnapshot;
    const auto answer = co_await reader_->convert(clipboard_, targets_, targetsBytes, deadline);
    if (answer.status == Status::converted) {
        const auto atoms = clipboardFormats::decodeAtoms(answer.data, answer.format);
        connection_->prefetchAtomNames(atoms);
        names.emplace();
        for (const auto atom : atoms) {
            const auto name = nameOf(atom);
            if (!name.isEmpty() && !clipboardFormats::isProcessLocal(name))
                names->append(name);
        }
    } else if (answer.status == Status::refused) {
        // An owner older than TARGETS: it has text or nothing.
        names = QStringList{QStringLiteral("UTF8_STRING"), QStringLiteral("STRING")};
    }
    // A hung owner is remembered as well: a second question would cost another noProgress. It is asked again
    // for the next snapshot, or when the clipboard changes.
    if (answer.status != Status::ownerChanged && answer.status != Status::lost)
        offered_ = OfferedTargets{count, names};
    co_return names;
}

QCoro::Task<X11Pasteboard::Reading> X11Pasteboard::readEverything() {
    Reading reading;
    const auto count = changeCount_;
    const auto begun = SteadyClock::now();
    const auto deadline = begun + limits_.longestSnapshot;
    offered_.reset();
    const auto names = co_await offeredTargets();
    if (isLost() || changeCount_ != count) {
        reading.contents.completeness = Completeness::unreadable;
        reading.ownerChanged = changeCount_ != count;
        co_return reading;
    }
    if (!names) {
        reading.contents.completeness = Completeness::unreadable;
        co_return reading;
    }
    const auto order = clipboardFormats::readingOrder(*names);
    QList<std::optional<PasteboardRepresentation>> read(names->size());
    qsizetype bytesLeft = limits_.snapshotBytes;
    bool everything = true;
    QList<QByteArray> targetNames;
    for (const auto& name : *names)
        targetNames.append(name.toUtf8());
    connection_->prefetchAtoms(targetNames);
    for (qsizetype i = 0; i < order.indices.size(); ++i) {
        if (i >= order.essential && SteadyClock::now() - begun >= limits_.snapshotTime) {
            everything = false;
            break;
        }
        const auto index = order.indices.at(i);
        const auto target = connection_->atom(targetNames.at(index));
        auto answer = co_await reader_->convert(clipboard_, target, bytesLeft, deadline);
        if (answer.status == Status::converted) {
            bytesLeft -= answer.data.size();
            PasteboardRepresentation representation;
            representation.type = names->at(index);
            representation.data = std::move(answer.data);
            representation.encoding = answer.type == target ? QString() : nameOf(answer.type);
            representation.format = answer.format;
            read[index] = std::move(representation);
            continue;
        }
        everything = false;
        if (answer.status == Status::ownerChanged)
            reading.ownerChanged = true;
        if (answer.status != Status::refused && answer.status != Status::tooLarge)
            break;
    }
    PasteboardItem item;
    for (auto& each : read) {
        if (each)
            item.representations.append(std::move(*each));
    }
    if (everything)
        reading.contents.completeness = Completeness::complete;
    else if (item.representations.isEmpty())
        reading.contents.completeness = Completeness::unreadable;
    else
        reading.contents.completeness = Completeness::partial;
    if (!item.representations.isEmpty())
        reading.contents.items.append(std::move(item));
    co_return reading;
}

QCoro::Task<PasteboardContents> X11Pasteboard::contents() {
    auto awaitedTurn = readTurn_.mine();
    const auto turn = co_await awaitedTurn;
    connection_->drain();
    PasteboardContents result;
    constexpr int attempts = 2; // a clipboard that changes while it is read is read once more
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (attempt > 0 && owner_ == XCB_WINDOW_NONE) {
            auto waiting = ownerChange_.until(betweenOwners);
            co_await waiting;
        }
        if (isLost()) {
            result.completeness = Completeness::unreadable;
            co_return result;
        }
        if (clearing_) {
            result = {};
            co_return result;
        }
        if (ownsClipboard()) {
            result.items = ownItems_;
            result.completeness = Completeness::complete;
            co_return result;
        }
        if (owner_ == XCB_WINDOW_NONE) {
            // Nobody is there. Of an owner that died while it was read, what it gave is all that there will
            // be; when it gave nothing the clipboard is empty.
            if (result.items.isEmpty())
                result.completeness = Completeness::complete;
            co_return result;
        }
        auto reading = co_await readEverything();
        result = std::move(reading.contents);
        if (!reading.ownerChanged)
            break;
    }
    co_return result;
}

std::optional<X11Pasteboard::Found> X11Pasteboard::findOwn(const QString& type) const {
    QStringList candidates{type};
    candidates += clipboardFormats::targetsForType(type);
    for (const auto& candidate : std::as_const(candidates)) {
        for (const auto& item : ownItems_) {
            for (const auto& each : item.representations) {
                if (each.type == candidate)
                    return Found{each.data, candidate, each.encoding};
            }
        }
    }
    return std::nullopt;
}

QCoro::Task<std::optional<X11Pasteboard::Found>> X11Pasteboard::find(QString type, qsizetype maximumBytes) {
    auto awaitedTurn = readTurn_.mine();
    const auto turn = co_await awaitedTurn;
    connection_->drain();
    std::optional<Found> found;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (isLost() || clearing_)
            co_return found;
        if (owner_ == XCB_WINDOW_NONE && attempt > 0) {
            auto waiting = ownerChange_.until(betweenOwners);
            co_await waiting;
        }
        if (ownsClipboard()) {
            found = findOwn(type);
            co_return found;
        }
        if (isLost() || owner_ == XCB_WINDOW_NONE)
            co_return found;
        const auto count = changeCount_;
        const auto names = co_await offeredTargets();
        if (!names && changeCount_ == count)
            co_return found;
        const auto candidates = names ? clipboardFormats::targetsForType(type) : QStringList();
        const auto deadline = SteadyClock::now() + limits_.longestSnapshot;
        for (const auto& candidate : candidates) {
            if (isLost() || changeCount_ != count)
                break;
            if (!names->contains(candidate))
                continue;
            const auto target = connection_->atom(candidate.toUtf8());
            auto answer = co_await reader_->convert(clipboard_, target, maximumBytes, deadline);
            if (answer.status == Status::converted) {
                const auto encoding = answer.type == target ? QString() : nameOf(answer.type);
                found.emplace(Found{std::move(answer.data), candidate, encoding});
                co_return found;
            }
            if (answer.status == Status::hung || answer.status == Status::outOfTime)
                co_return found;
        }
        if (changeCount_ == count)
            co_return found;
    }
    co_return found;
}

QCoro::Task<std::optional<QByteArray>> X11Pasteboard::data(QString type) {
    auto found = co_await find(type, limits_.snapshotBytes);
    std::optional<QByteArray> bytes;
    if (found)
        bytes = clipboardFormats::normalized(found->data, type, found->target, found->encoding);
    co_return bytes;
}

QCoro::Task<std::optional<QString>> X11Pasteboard::string() {
    const auto found = co_await find(PasteboardType::string, limits_.snapshotBytes);
    std::optional<QString> text;
    if (found)
        text = clipboardFormats::decodeText(found->data, found->target, found->encoding);
    co_return text;
}

// Writing.

QCoro::Task<bool> X11Pasteboard::takeOrRelease(QList<ServedTarget> targets) {
    struct Outcome {
        bool ended = false;
        X11SelectionServer::Taken taken;
    };
    auto outcome = std::make_shared<Outcome>();
    const auto done = [this, outcome](X11SelectionServer::Taken taken) {
        QMetaObject::invokeMethod(
            this,
            [this, outcome, taken] {
                *outcome = {true, taken};
                writeProgress_.wake();
            },
            Qt::QueuedConnection);
    };
    const auto count = ownerEvents_;
    if (targets.isEmpty())
        server_->release(done);
    else
        server_->take(std::move(targets), ++generation_, done);
    while (!outcome->ended && !isLost()) {
        auto waiting = writeProgress_.until(limits_.noProgress);
        co_await waiting;
    }
    if (!outcome->ended || !outcome->taken.success)
        co_return false;
    // The event of the change comes on another connection than the answer: until it is here, changeCount()
    // and ownsClipboard() would speak of the time before.
    const auto deadline = SteadyClock::now() + limits_.noProgress;
    while (!isLost() && SteadyClock::now() < deadline &&
           (ownerEvents_ == count || static_cast<std::int32_t>(ownedSince_ - outcome->taken.time) < 0)) {
        auto waiting = writeProgress_.until(std::chrono::ceil<milliseconds>(deadline - SteadyClock::now()));
        co_await waiting;
    }
    co_return !isLost();
}

QCoro::Task<void> X11Pasteboard::clearContents() {
    auto awaitedTurn = writeTurn_.mine();
    const auto turn = co_await awaitedTurn;
    connection_->drain();
    co_await waitForPaste();
    if (isLost())
        co_return;
    ownItems_.clear();
    pasted_.reset();
    // Empty for this program from here on, for the others in a moment.
    countChange();
    clearing_ = true;
    clearTimer_.start(clearDelay);
}

QCoro::Task<void> X11Pasteboard::finishClear() {
    auto awaitedTurn = writeTurn_.mine();
    const auto turn = co_await awaitedTurn;
    if (isLost() || !clearing_)
        co_return;
    releasing_ = true;
    co_await takeOrRelease(QList<ServedTarget>());
    releasing_ = false;
    clearing_ = false;
}

QCoro::Task<bool> X11Pasteboard::write(QList<PasteboardItem> items) {
    auto awaitedTurn = writeTurn_.mine();
    const auto turn = co_await awaitedTurn;
    connection_->drain();
    co_await waitForPaste();
    if (isLost())
        co_return false;
    pasted_.reset();
    clearing_ = false;
    clearTimer_.stop();
    const auto targets = clipboardFormats::servedTargets(items);
    std::optional<PastedText> pasted;
    if (isPasteboardText(items)) {
        pasted = PastedText{}; // clang 14 finds no emplace() for a nested class with member initialisers
        pasted->targetWindow = pasteTargetNow();
    }
    ownItems_ = items;
    const bool taken = co_await takeOrRelease(targets);
    if (!taken)
        co_return false;
    if (pasted) {
        pasted_ = pasted;
        watchForDestruction(pasted_->targetWindow);
    }
    co_return true;
}

xcb_window_t X11Pasteboard::pasteTargetNow() {
    auto* raw = connection_->raw();
    const auto activeCookie = xcb_get_property(
        raw, 0, connection_->rootWindow(), connection_->atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1);
    const auto focusCookie = xcb_get_input_focus(raw);
    const XcbReply<xcb_get_property_reply_t> active(xcb_get_property_reply(raw, activeCookie, nullptr));
    const XcbReply<xcb_get_input_focus_reply_t> focus(xcb_get_input_focus_reply(raw, focusCookie, nullptr));
    if (active && active->format == 32 && xcb_get_property_value_length(active.get()) >= 4) {
        const auto window = *static_cast<const xcb_window_t*>(xcb_get_property_value(active.get()));
        return window;
    }
    // Without a window manager that names the active window, the one with the keyboard is it.
    if (focus && focus->focus != XCB_INPUT_FOCUS_POINTER_ROOT && focus->focus != connection_->rootWindow())
        return focus->focus;
    return XCB_WINDOW_NONE;
}

void X11Pasteboard::watchForDestruction(xcb_window_t window) {
    if (window == XCB_WINDOW_NONE)
        return;
    auto* raw = connection_->raw();
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    const auto cookie = xcb_change_window_attributes_checked(raw, window, XCB_CW_EVENT_MASK, &mask);
    const XcbReply<xcb_generic_error_t> error(xcb_request_check(raw, cookie));
    if (error)
        pasted_->targetGone = true;
}

QCoro::Task<void> X11Pasteboard::waitForPaste() {
    if (isLost() || !pasted_ || pasted_->targetWindow == XCB_WINDOW_NONE)
        co_return;
    const auto deadline = SteadyClock::now() + limits_.pasteRead;
    const auto target = server_->clientBase(pasted_->targetWindow);
    // A clipboard manager reads whatever appears within milliseconds, so the first reader says nothing; what
    // counts is a request for data from the client that the target's window belongs to. All windows of a
    // client share the upper part of their ids, and programs ask with a helper window of the same connection.
    while (!isLost() && ownsClipboard() && !pasted_->targetGone) {
        auto end = deadline;
        if (readersGeneration_ == generation_ && readers_.contains(target))
            end = std::min(deadline, readers_.value(target) + pasteQuiet);
        const auto left = std::chrono::ceil<milliseconds>(end - SteadyClock::now());
        if (left.count() <= 0)
            break;
        auto waiting = writeProgress_.until(left);
        co_await waiting;
    }
    if (!isLost() && !pasted_->targetGone) {
        const std::uint32_t nothing = XCB_EVENT_MASK_NO_EVENT;
        xcb_change_window_attributes(connection_->raw(), pasted_->targetWindow, XCB_CW_EVENT_MASK, &nothing);
        connection_->flush();
    }
}

QCoro::Task<bool> X11Pasteboard::handToClipboardManager() {
    auto awaitedTurn = readTurn_.mine();
    const auto turn = co_await awaitedTurn;
    // A correction is nobody's to keep; without it there is nothing that the user copied.
    if (isLost() || !ownsClipboard() || isPasteboardText(ownItems_))
        co_return false;
    auto* raw = connection_->raw();
    const auto manager = connection_->atom("CLIPBOARD_MANAGER");
    const XcbReply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(raw, xcb_get_selection_owner(raw, manager), nullptr));
    if (!owner || owner->owner == XCB_WINDOW_NONE)
        co_return false;
    const auto deadline = SteadyClock::now() + limits_.handOver;
    // The manager may become the owner before it has told us so, which ends the transfer as interrupted.
    const auto answer = co_await reader_->convert(manager, connection_->atom("SAVE_TARGETS"), 0, deadline);
    const bool taken = answer.status == Status::converted || answer.status == Status::tooLarge ||
                       (answer.status == Status::ownerChanged && owner_ != XCB_WINDOW_NONE);
    co_return taken;
}

} // namespace vellumline
