#pragma once

#include <QCoroTask>
#include <chrono>

namespace vellumline {

/// Time, so that tests can advance it. Main thread only.
class Clock {
  public:
    virtual ~Clock() = default;

    /// Wall clock: seconds since 1970-01-01 UTC. May jump either way.
    virtual double now() const = 0;
    /// Time since an arbitrary start; never goes back, unaffected by changes of the wall clock.
    virtual std::chrono::nanoseconds monotonic() const = 0;
    /// Suspends the calling task for at least that long.
    virtual QCoro::Task<void> sleepFor(std::chrono::milliseconds duration) = 0;
};

} // namespace vellumline
