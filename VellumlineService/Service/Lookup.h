#pragma once

#include <optional>
#include <utility>

namespace vellumline {

/// What the database says about one thing: it is there, it is not, or the database failed. Only the second
/// may be told to somebody as "no such account" or "not signed in": a program that hears that twice gives its
/// session up, for good.
template<class T> class Lookup {
  public:
    Lookup(T found) : found_(std::move(found)) {}
    static Lookup none() { return Lookup(State::none); }
    static Lookup failure() { return Lookup(State::failed); }

    bool failed() const { return state_ == State::failed; }
    /// Whether it is there.
    explicit operator bool() const { return found_.has_value(); }
    const T& operator*() const { return *found_; }
    T& operator*() { return *found_; }
    const T* operator->() const { return &*found_; }

  private:
    enum class State { found, none, failed };
    explicit Lookup(State state) : state_(state) {}

    State state_ = State::found;
    std::optional<T> found_;
};

} // namespace vellumline
