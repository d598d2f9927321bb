#pragma once

#include "Vellumline/APIError.h"
#include "Vellumline/AuthConfig.h"
#include "Vellumline/Platform/HTTPTransport.h"
#include "VellumlineCore/AuthSession.h"

#include <QCoroTask>

namespace vellumline {

/// Finishes a browser sign-in. Main thread only.
class AuthClient {
  public:
    AuthClient(HTTPTransport& transport, AuthConfig config);
    /// Redeems the one-time handoff code with the kept verifier. Does not store the session.
    QCoro::Task<APIResult<AuthSession>> redeem(QString code, QString verifier);

  private:
    HTTPTransport& transport_;
    AuthConfig config_;
};

} // namespace vellumline
