#pragma once

#include "Vellumline/API.h"
#include "Vellumline/AuthConfig.h"
#include "VellumlineCore/RewriteReply.h"

#include <QCoroTask>
#include <QString>

namespace vellumline {

/// The one call of the correction endpoint. Main thread only.
class RewriteClient {
  public:
    RewriteClient(API& api, AuthConfig config);
    /// Sends the text as it is; every status becomes a reply, transport and session failures an APIError.
    QCoro::Task<APIResult<RewriteReply>> rewrite(QString text);

  private:
    API& api_;
    AuthConfig config_;
};

} // namespace vellumline
