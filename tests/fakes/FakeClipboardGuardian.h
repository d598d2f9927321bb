#pragma once

#include "Vellumline/Platform/ClipboardGuardian.h"
#include "tests/fakes/CallLog.h"

namespace vellumline {

/// A guardian in memory. In the call log: "hold", "borrow", "settle", "forget".
class FakeClipboardGuardian final : public ClipboardGuardian {
  public:
    enum class State { nothing, borrowed, settled };

    QCoro::Task<void> hold(QList<PasteboardItem> items) override {
        log_.add(QStringLiteral("hold"));
        held = std::move(items);
        state = State::borrowed;
        co_return;
    }
    void borrow() override {
        log_.add(QStringLiteral("borrow"));
        state = State::borrowed;
    }
    void settle() override {
        log_.add(QStringLiteral("settle"));
        state = State::settled;
    }
    void forget() override {
        log_.add(QStringLiteral("forget"));
        held.clear();
        state = State::nothing;
    }

    const QStringList& calls() const { return log_.calls(); }
    void clearCalls() { log_.clear(); }

    QList<PasteboardItem> held;
    State state = State::nothing;

  private:
    CallLog log_;
};

} // namespace vellumline
