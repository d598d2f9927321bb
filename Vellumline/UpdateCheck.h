#pragma once

#include "Vellumline/Platform/HTTPTransport.h"
#include "Vellumline/UpdateFeed.h"
#include "VellumlineCore/Appcast.h"

#include <QCoroTask>

namespace vellumline {

/// How one look at the feed ended.
struct UpdateResult {
    enum class Kind {
        newVersion, ///< and the feed is verified, as for the next one
        newest,
        offline,    ///< the network or the host cannot be reached
        timedOut,   ///< the host did not answer in time
        refused,    ///< the host answered with something else than the feed, or not in HTTP
        unverified, ///< the signature is missing, or not that of the feed with the build's key
        invalid     ///< signed, but not a feed that this version understands; or too large to be one
    };
    Kind kind = Kind::newest;
    AppcastItem item; ///< newVersion only
    int status = 0;   ///< refused only: the HTTP status; 0 when there is none
};

/// Fetches the feed and its signature, verifies before it reads, and compares with the current version.
class UpdateCheck {
  public:
    static constexpr std::chrono::seconds timeout{10}; ///< Of each of the two requests.

    static QCoro::Task<UpdateResult> run(HTTPTransport& transport, UpdateFeed feed, SoftwareVersion current);
};

} // namespace vellumline
