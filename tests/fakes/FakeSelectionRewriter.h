#pragma once

#include "Vellumline/AsyncResult.h"
#include "Vellumline/RewriteOutcome.h"

#include <QCoroTask>
#include <QList>

namespace vellumline {

/// Corrections that end when and how the test says.
class FakeSelectionRewriter final : public SelectionRewriter {
  public:
    QCoro::Task<RewriteOutcome> rewrite() override {
        AsyncResult<RewriteOutcome> result;
        results_.append(result);
        co_return co_await result;
    }
    void openAccessibilitySettings() override { ++settingsOpened; }

    /// Ends the run that is under way; what waits for it runs before this returns.
    void finish(RewriteOutcome outcome) { results_.last().set(std::move(outcome)); }

    /// Ends what is still under way.
    void finishAll() {
        for (auto& each : results_)
            each.set(RewriteOutcome::problem(RewriteProblem::Kind::failed));
    }

    qsizetype runs() const { return results_.size(); }
    int settingsOpened = 0;

  private:
    QList<AsyncResult<RewriteOutcome>> results_;
};

} // namespace vellumline
