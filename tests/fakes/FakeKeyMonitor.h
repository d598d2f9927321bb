#pragma once

#include "Vellumline/Platform/KeyMonitor.h"
#include "tests/fakes/CallLog.h"

#include <QList>
#include <utility>

namespace vellumline {

/// Key presses that the test makes; "addLocalMonitor" and "removeMonitor" in the call log.
class FakeKeyMonitor final : public KeyMonitor {
  public:
    explicit FakeKeyMonitor(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    std::optional<Token> addLocalMonitor(Handler handler) override {
        log_.add(QStringLiteral("addLocalMonitor"));
        if (refuses)
            return std::nullopt;
        monitors_.append({nextToken_, std::move(handler)});
        return nextToken_++;
    }
    void removeMonitor(Token token) override {
        log_.add(QStringLiteral("removeMonitor"));
        monitors_.removeIf([token](const auto& each) { return each.first == token; });
    }

    /// A key press reaches the program; swallow when a monitor swallowed it, passOn when the focused control
    /// would see it.
    Handling press(const KeyPress& key) {
        const auto monitors = monitors_; // a handler may remove itself
        for (const auto& [token, handler] : monitors) {
            if (handler(key) == Handling::swallow)
                return Handling::swallow;
        }
        return Handling::passOn;
    }

    qsizetype monitorCount() const { return monitors_.size(); }
    const QStringList& calls() const { return log_.calls(); }

    bool refuses = false; ///< addLocalMonitor answers nothing

  private:
    CallLog log_;
    QList<std::pair<Token, Handler>> monitors_;
    Token nextToken_ = 1;
};

} // namespace vellumline
