#include "Vellumline/LateCopy.h"

namespace vellumline {

void LateCopy::expect(ClipboardSnapshot snapshot, qint64 start, Workspace::Application program) {
    cancel();
    watch_ = std::make_shared<Watch>();
    undo(watch_, std::move(snapshot), start, program);
}

void LateCopy::cancel() {
    if (watch_)
        watch_->cancelled = true;
}

QCoro::Task<void> LateCopy::finish() {
    cancel();
    if (isGivingBack()) {
        const AsyncResult<bool> ended = watch_->ended;
        co_await ended;
    }
}

QCoro::Task<void> LateCopy::undo(std::shared_ptr<Watch> watch, ClipboardSnapshot snapshot, qint64 start,
                                 Workspace::Application program) {
    // This object may be gone after each of these waits; then the watch is cancelled.
    const bool hasTaken = co_await workspace_.hasTakenInput(program, longestHang);
    if (watch->cancelled || !hasTaken)
        co_return;
    if (pasteboard_.changeCount() == start) {
        co_await pasteboard_.nextChange(workingOff);
        if (watch->cancelled)
            co_return;
    }
    // Some copy in several steps.
    for (qint64 last = start; last != pasteboard_.changeCount();) {
        last = pasteboard_.changeCount();
        co_await pasteboard_.nextChange(settleTime);
        if (watch->cancelled)
            co_return;
    }
    // Nothing was copied, or by the user and elsewhere.
    if (pasteboard_.changeCount() == start || !pasteboard_.isFrom(program.window))
        co_return;
    watch->givingBack = true;
    co_await ClipboardSnapshot::restore(snapshot, pasteboard_);
    watch->givingBack = false;
    watch->ended.set(true);
}

} // namespace vellumline
