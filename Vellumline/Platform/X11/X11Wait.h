#pragma once

#include <QTimer>
#include <algorithm>
#include <chrono>
#include <coroutine>
#include <deque>
#include <utility>

namespace vellumline {

// The names of an awaiter's members are the language's.
// NOLINTBEGIN(readability-identifier-naming)

/// Where one coroutine suspends until somebody wakes it or a time is over, like a condition variable of the
/// main loop: wake() is not remembered, so the coroutine looks at what it waits for first. Main thread only.
class X11Wait {
  public:
    X11Wait() {
        timer_.setSingleShot(true);
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { wake(); });
    }

    class Awaiter {
      public:
        Awaiter(X11Wait& wait, std::chrono::milliseconds limit) : wait_(wait), limit_(limit) {}
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> waiting) {
            wait_.waiting_ = waiting;
            wait_.timer_.start(std::max(limit_, std::chrono::milliseconds(0)));
        }
        void await_resume() const noexcept {}

      private:
        X11Wait& wait_;
        std::chrono::milliseconds limit_;
    };

    Awaiter until(std::chrono::milliseconds limit) { return {*this, limit}; }

    void wake() {
        timer_.stop();
        if (const auto waiting = std::exchange(waiting_, {}))
            waiting.resume();
    }

  private:
    QTimer timer_;
    std::coroutine_handle<> waiting_;
};

/// Lets coroutines through one at a time, in the order in which they came. Main thread only.
class X11Turn {
  public:
    /// Holding it is having the turn.
    class Holder {
      public:
        explicit Holder(X11Turn& turn) : turn_(&turn) {}
        Holder(Holder&& other) noexcept : turn_(std::exchange(other.turn_, nullptr)) {}
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;
        Holder& operator=(Holder&&) = delete;
        ~Holder() {
            if (turn_ != nullptr)
                turn_->passOn();
        }

      private:
        X11Turn* turn_;
    };

    class Awaiter {
      public:
        explicit Awaiter(X11Turn& turn) : turn_(turn) {}
        bool await_ready() noexcept { return !std::exchange(turn_.taken_, true); }
        void await_suspend(std::coroutine_handle<> waiting) { turn_.waiting_.push_back(waiting); }
        Holder await_resume() noexcept { return Holder(turn_); }

      private:
        X11Turn& turn_;
    };

    Awaiter mine() { return Awaiter(*this); }

  private:
    void passOn() {
        if (waiting_.empty()) {
            taken_ = false;
            return;
        }
        const auto next = waiting_.front();
        waiting_.pop_front();
        next.resume();
    }

    bool taken_ = false;
    std::deque<std::coroutine_handle<>> waiting_;
};

// NOLINTEND(readability-identifier-naming)

} // namespace vellumline
