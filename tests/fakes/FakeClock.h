#pragma once

#include "Vellumline/Platform/Clock.h"

#include <QList>
#include <coroutine>
#include <map>

namespace vellumline {

/// Time that stands still until a test advances it.
class FakeClock : public Clock {
  public:
    double now() const override { return now_; }
    std::chrono::nanoseconds monotonic() const override { return monotonic_; }
    /// Resumes inside the advance() that reaches its end; a duration of zero or less waits for advance(0ms).
    QCoro::Task<void> sleepFor(std::chrono::milliseconds duration) override;

    /// Moves both clocks forward, resuming sleeping tasks one after the other, each at its own moment: a task
    /// that sleeps again within the span is resumed again.
    void advance(std::chrono::milliseconds duration);
    /// Moves to the end of the earliest sleep; false when nobody sleeps.
    bool advanceToNextSleep();
    /// Sets the wall clock alone; it may jump either way.
    void setNow(double secondsSince1970) { now_ = secondsSince1970; }

    int pendingSleeps() const { return static_cast<int>(sleepers_.size()); }
    /// Every duration ever slept for, in order.
    QList<std::chrono::milliseconds> sleeps() const { return sleeps_; }
    void clearCalls() { sleeps_.clear(); }

  private:
    struct Sleep;
    void moveTo(std::chrono::nanoseconds moment);

    double now_ = 1'700'000'000.0;
    std::chrono::nanoseconds monotonic_{1'000'000'000};
    // Equal moments keep the order in which the sleeps began.
    std::multimap<std::chrono::nanoseconds, std::coroutine_handle<>> sleepers_;
    QList<std::chrono::milliseconds> sleeps_;
};

} // namespace vellumline
