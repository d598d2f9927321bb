#pragma once

#include <coroutine>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace vellumline {

/// A value that comes later, awaited by any number of tasks; copies share it. A QCoro::Task gives its result
/// to the first awaiting task only (it moves it out), so what several tasks wait for is one of these. One
/// thread. The awaited object must live until the await is over: await a local, never a temporary.
template<class T> class AsyncResult {
  public:
    bool isSet() const { return state_->value.has_value(); }

    /// Resumes the waiting tasks before it returns, in the order in which they came. Later calls are ignored.
    void set(T value) {
        if (state_->value)
            return;
        state_->value = std::move(value);
        // The object may go away with the first task that is resumed.
        const std::shared_ptr<State> state = state_;
        const std::vector<std::coroutine_handle<>> waiters = std::exchange(state->waiters, {});
        for (const std::coroutine_handle<> waiter : waiters)
            waiter.resume();
    }

    auto operator co_await() const noexcept { return Awaiter{state_.get()}; }

  private:
    struct State {
        std::optional<T> value;
        std::vector<std::coroutine_handle<>> waiters;
    };
    struct Awaiter {
        State* state;
        // NOLINTBEGIN(readability-identifier-naming): the names that the language looks for
        bool await_ready() const noexcept { return state->value.has_value(); }
        void await_suspend(std::coroutine_handle<> waiter) { state->waiters.push_back(waiter); }
        T await_resume() const { return *state->value; }
        // NOLINTEND(readability-identifier-naming)
    };

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace vellumline
