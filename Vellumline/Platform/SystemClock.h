#pragma once

#include "Vellumline/Platform/Clock.h"

namespace vellumline {

/// The machine's clocks, with timers of millisecond precision.
class SystemClock : public Clock {
  public:
    double now() const override;
    std::chrono::nanoseconds monotonic() const override;
    /// Ends on a later turn of the main loop, also for a duration of zero or less.
    QCoro::Task<void> sleepFor(std::chrono::milliseconds duration) override;
};

} // namespace vellumline
