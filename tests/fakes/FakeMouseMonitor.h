#pragma once

#include "Vellumline/Platform/MouseMonitor.h"

#include <map>

namespace vellumline {

/// Presses in other programs that the test makes.
class FakeMouseMonitor final : public MouseMonitor {
  public:
    std::optional<Token> addGlobalMonitor(Handler handler) override {
        if (refuses)
            return std::nullopt;
        monitors_.emplace(nextToken_, std::move(handler));
        return nextToken_++;
    }
    void removeMonitor(Token token) override { monitors_.erase(token); }

    void press(QPoint position) {
        const auto monitors = monitors_; // a handler may remove itself
        for (const auto& [token, handler] : monitors)
            handler(position);
    }

    std::size_t monitorCount() const { return monitors_.size(); }

    bool refuses = false; ///< addGlobalMonitor answers nothing

  private:
    std::map<Token, Handler> monitors_;
    Token nextToken_ = 1;
};

} // namespace vellumline
