#pragma once

#include "Vellumline/Platform/KeyEvents.h"
#include "tests/fakes/CallLog.h"

#include <QList>
#include <functional>
#include <utility>

namespace vellumline {

/// Records the posted key strokes; "postCommand(8)" in the call log.
class FakeKeyEvents final : public KeyEvents {
  public:
    explicit FakeKeyEvents(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    void postCommand(std::uint16_t keyCode) override {
        log_.add(QStringLiteral("postCommand(%1)").arg(keyCode));
        posted_.append(keyCode);
        if (const auto answer = answer_) // a copy: the answer may set another one
            answer(keyCode);
    }

    /// What the program in front does about a key stroke: a target that copies puts its text on a fake
    /// pasteboard here. Runs inside postCommand, after it was recorded.
    void setAnswer(std::function<void(std::uint16_t keyCode)> answer) { answer_ = std::move(answer); }

    const QList<std::uint16_t>& posted() const { return posted_; }
    const QStringList& calls() const { return log_.calls(); }
    void clearCalls() {
        log_.clear();
        posted_.clear();
    }

  private:
    CallLog log_;
    QList<std::uint16_t> posted_;
    std::function<void(std::uint16_t)> answer_;
};

} // namespace vellumline
