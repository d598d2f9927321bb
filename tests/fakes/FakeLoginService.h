#pragma once

#include "Vellumline/Platform/LoginService.h"
#include "tests/fakes/CallLog.h"

namespace vellumline {

/// A login service in memory. In the call log: "registerService", "unregisterService".
class FakeLoginService final : public LoginService {
  public:
    explicit FakeLoginService(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    Status status() const override { return current; }
    bool registerService() override {
        log_.add(QStringLiteral("registerService"));
        if (refuses)
            return false;
        current = requiresApproval ? Status::requiresApproval : Status::enabled;
        return true;
    }
    bool unregisterService() override {
        log_.add(QStringLiteral("unregisterService"));
        if (refuses)
            return false;
        current = Status::notRegistered;
        return true;
    }

    Status current = Status::notRegistered;
    bool refuses = false;          ///< both operations report an error and change nothing
    bool requiresApproval = false; ///< registering succeeds but the user has yet to approve

    const QStringList& calls() const { return log_.calls(); }

  private:
    CallLog log_;
};

} // namespace vellumline
