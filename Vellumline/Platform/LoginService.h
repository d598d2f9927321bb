#pragma once

namespace vellumline {

/// Opening the program at login. Main thread only.
class LoginService {
  public:
    virtual ~LoginService() = default;

    enum class Status { notRegistered = 0, enabled = 1, requiresApproval = 2, notFound = 3 };

    virtual Status status() const = 0;
    /// False when the system reports an error.
    virtual bool registerService() = 0;
    virtual bool unregisterService() = 0;
};

} // namespace vellumline
