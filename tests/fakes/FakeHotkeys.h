#pragma once

#include "Vellumline/Platform/Hotkeys.h"
#include "tests/fakes/CallLog.h"

#include <QHash>
#include <QSet>
#include <utility>

namespace vellumline {

/// A hot-key service in memory. In the call log: "installHandler", "registerHotKey(15, 0x1800)",
/// "unregisterHotKey(15, 0x1800)".
class FakeHotkeys final : public Hotkeys {
  public:
    using Combination = std::pair<std::uint16_t, std::uint32_t>; ///< key code, Carbon flags

    explicit FakeHotkeys(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    bool installHandler(std::function<void()> handler) override {
        log_.add(QStringLiteral("installHandler"));
        if (refusesHandler)
            return false;
        handler_ = std::move(handler);
        ++installations_;
        return true;
    }

    std::optional<Handle> registerHotKey(std::uint16_t keyCode, std::uint32_t carbonFlags,
                                         Identity identity) override {
        log_.add(QStringLiteral("registerHotKey(%1)").arg(describe({keyCode, carbonFlags})));
        lastIdentity_ = identity;
        const Combination combination{keyCode, carbonFlags};
        if (refusesEverything || isTaken(combination))
            return std::nullopt;
        registered_.insert(nextHandle_, combination);
        return nextHandle_++;
    }

    void unregisterHotKey(Handle handle) override {
        const auto found = registered_.constFind(handle);
        log_.add(QStringLiteral("unregisterHotKey(%1)")
                     .arg(found == registered_.cend() ? QStringLiteral("unknown") : describe(*found)));
        registered_.remove(handle);
    }

    /// The user presses a combination: the handler runs when it is registered. True when it ran.
    bool press(std::uint16_t keyCode, std::uint32_t carbonFlags) {
        if (!handler_ || !isRegistered(keyCode, carbonFlags))
            return false;
        const auto handler = handler_; // a copy: the handler may install another one
        handler();
        return true;
    }
    /// The user presses every registered combination once.
    void press() {
        const auto registered = registered_.values();
        for (const auto& [keyCode, carbonFlags] : registered)
            press(keyCode, carbonFlags);
    }

    /// Another program takes the combination, or gives it up.
    void takeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) {
        elsewhere_.insert({keyCode, carbonFlags});
    }
    void freeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) {
        elsewhere_.remove({keyCode, carbonFlags});
    }

    bool isRegistered(std::uint16_t keyCode, std::uint32_t carbonFlags) const {
        const Combination wanted{keyCode, carbonFlags};
        for (const auto& each : registered_) {
            if (each == wanted)
                return true;
        }
        return false;
    }
    qsizetype registrationCount() const { return registered_.size(); }
    int handlerInstallations() const { return installations_; }
    Identity lastIdentity() const { return lastIdentity_; }
    const QStringList& calls() const { return log_.calls(); }

    bool refusesHandler = false;    ///< installHandler answers false
    bool refusesEverything = false; ///< registerHotKey answers nothing

  private:
    static QString describe(Combination combination) {
        return QStringLiteral("%1, 0x%2").arg(combination.first).arg(combination.second, 0, 16);
    }
    bool isTaken(Combination combination) const {
        return elsewhere_.contains(combination) || isRegistered(combination.first, combination.second);
    }

    CallLog log_;
    std::function<void()> handler_;
    int installations_ = 0;
    QHash<Handle, Combination> registered_;
    QSet<Combination> elsewhere_;
    Handle nextHandle_ = 1;
    Identity lastIdentity_;
};

} // namespace vellumline
