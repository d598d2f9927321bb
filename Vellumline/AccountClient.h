#pragma once

#include "Vellumline/API.h"
#include "Vellumline/AuthConfig.h"
#include "VellumlineCore/AccountInfo.h"

#include <QCoroTask>

namespace vellumline {

/// Loads the signed-in account's plan and usage. Main thread only.
class AccountClient {
  public:
    AccountClient(API& api, AuthConfig config);
    QCoro::Task<APIResult<AccountInfo>> load();

  private:
    API& api_;
    AuthConfig config_;
};

} // namespace vellumline
