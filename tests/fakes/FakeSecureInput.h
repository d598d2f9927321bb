#pragma once

#include "Vellumline/Platform/KeyEvents.h"
#include "tests/fakes/CallLog.h"

namespace vellumline {

/// Answers what the test says; "isSecureEventInputEnabled" in the call log.
class FakeSecureInput final : public SecureInput {
  public:
    explicit FakeSecureInput(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    bool isSecureEventInputEnabled() const override {
        log_.add(QStringLiteral("isSecureEventInputEnabled"));
        return enabled;
    }

    bool enabled = false;

    const QStringList& calls() const { return log_.calls(); }
    void clearCalls() { log_.clear(); }

  private:
    mutable CallLog log_;
};

} // namespace vellumline
