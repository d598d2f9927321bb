#pragma once

#include "VellumlineCore/RewriteReply.h"

#include <QCoroTask>
#include <QUrl>
#include <optional>

namespace vellumline {

/// The result of one correction run.
struct RewriteOutcome {
    enum class Kind {
        problem,   ///< nothing was pasted; `why` says why
        freeLimit, ///< the account has used its free rewrites
        rewrote,   ///< the correction was pasted
        signedOut  ///< there is no usable session
    };
    Kind kind = Kind::signedOut;
    RewriteProblem why;             ///< problem only
    std::optional<QUrl> monthlyURL; ///< freeLimit only
    std::optional<QUrl> yearlyURL;  ///< freeLimit only

    static RewriteOutcome problem(RewriteProblem why) { return {Kind::problem, why, {}, {}}; }
    static RewriteOutcome problem(RewriteProblem::Kind why) { return problem(RewriteProblem::of(why)); }
    static RewriteOutcome freeLimit(std::optional<QUrl> monthly, std::optional<QUrl> yearly) {
        return {Kind::freeLimit, {}, std::move(monthly), std::move(yearly)};
    }
    static RewriteOutcome rewrote() { return {Kind::rewrote, {}, {}, {}}; }
    static RewriteOutcome signedOut() { return {Kind::signedOut, {}, {}, {}}; }

    bool operator==(const RewriteOutcome&) const = default;
};

/// One correction of the current selection, from the application model's side. Main thread only.
class SelectionRewriter {
  public:
    virtual ~SelectionRewriter() = default;
    /// Never fails: every failure is an outcome. One run at a time is the caller's business.
    virtual QCoro::Task<RewriteOutcome> rewrite() = 0;
    /// Opens the system's settings page for accessibility access.
    virtual void openAccessibilitySettings() = 0;
};

} // namespace vellumline
