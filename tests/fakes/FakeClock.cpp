#include "fakes/FakeClock.h"

#include <algorithm>

namespace vellumline {

struct FakeClock::Sleep {
    FakeClock* clock;
    std::chrono::nanoseconds end;
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> sleeper) const { clock->sleepers_.emplace(end, sleeper); }
    void await_resume() const noexcept {}
};

QCoro::Task<void> FakeClock::sleepFor(std::chrono::milliseconds duration) {
    sleeps_.append(duration);
    Sleep sleep{this, monotonic_ + std::max(duration, std::chrono::milliseconds(0))};
    co_await sleep;
}

void FakeClock::advance(std::chrono::milliseconds duration) {
    const std::chrono::nanoseconds end = monotonic_ + duration;
    while (!sleepers_.empty() && sleepers_.begin()->first <= end)
        advanceToNextSleep();
    moveTo(end);
}

bool FakeClock::advanceToNextSleep() {
    if (sleepers_.empty())
        return false;
    const auto first = sleepers_.begin();
    const std::coroutine_handle<> sleeper = first->second;
    moveTo(first->first);
    sleepers_.erase(first);
    sleeper.resume();
    return true;
}

void FakeClock::moveTo(std::chrono::nanoseconds moment) {
    if (moment <= monotonic_)
        return;
    now_ += std::chrono::duration<double>(moment - monotonic_).count();
    monotonic_ = moment;
}

} // namespace vellumline
