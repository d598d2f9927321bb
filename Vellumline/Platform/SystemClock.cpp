#include "Vellumline/Platform/SystemClock.h"

#include <QCoroTimer>
#include <QTimer>
#include <algorithm>

namespace vellumline {

double SystemClock::now() const {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

std::chrono::nanoseconds SystemClock::monotonic() const {
    return std::chrono::steady_clock::now().time_since_epoch();
}

QCoro::Task<void> SystemClock::sleepFor(std::chrono::milliseconds duration) {
    using std::chrono::steady_clock;
    const steady_clock::time_point end = steady_clock::now() + duration;
    std::chrono::milliseconds remaining = std::max(duration, std::chrono::milliseconds(0));
    // A timer counts in whole milliseconds and can fire within the last of them, a fraction early.
    do {
        QTimer timer;
        timer.setSingleShot(true);
        // A coarse timer may be 5 % off, which is 7 ms of the time that a paste is given.
        timer.setTimerType(Qt::PreciseTimer);
        timer.start(remaining);
        co_await timer;
        remaining = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    } while (remaining > std::chrono::milliseconds(0));
}

} // namespace vellumline
