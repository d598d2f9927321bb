#pragma once

#include "Vellumline/Platform/Keychain.h"
#include "VellumlineCore/AuthSession.h"

#include <QCoroTask>
#include <QString>
#include <memory>
#include <optional>

namespace vellumline {

/// Keeps the one signed-in session in the system's secret store and caches it after the first read. Main
/// thread only; every load, write and erase is serialised, and none is held across a network call. Failures
/// are silent: a store that cannot be read behaves as signed out. What a locked or silent secret store could
/// not take is offered to it again at later calls of session(), so that a session survives, and a signed-out
/// one does not come back, once the user has unlocked it. The keychain must outlive every call.
class TokenStore {
  public:
    /// `legacyFile`: where earlier versions kept the session as JSON; migrated on the first read.
    TokenStore(Keychain& keychain, QString legacyFile);
    ~TokenStore();

    /// The stored session. The first call reads the secret store; later ones answer from the cache without
    /// suspending, except that a store that was locked or did not answer is asked again. Meanwhile a legacy
    /// file's session is answered, and the file left where it is.
    QCoro::Task<std::optional<AuthSession>> session();
    /// Stores a session, or erases it. The cache holds the new value before the first suspension.
    QCoro::Task<void> setSession(std::optional<AuthSession> session);
    /// True while a write or an erase is under way; the program waits for it, bounded, before it ends.
    bool isWriting() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace vellumline
