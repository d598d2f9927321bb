#pragma once

#include "Vellumline/ClipboardSnapshot.h"
#include "Vellumline/LateCopy.h"
#include "Vellumline/Platform/Accessibility.h"
#include "Vellumline/Platform/ClipboardGuardian.h"
#include "Vellumline/Platform/Clock.h"
#include "Vellumline/Platform/KeyEvents.h"
#include "Vellumline/Platform/Pasteboard.h"
#include "Vellumline/Platform/Workspace.h"
#include "Vellumline/RewriteClient.h"
#include "Vellumline/RewriteOutcome.h"
#include "Vellumline/SelectionProbe.h"
#include "Vellumline/TokenStore.h"
#include "VellumlineCore/SelectionStyle.h"
#include "VellumlineCore/UserDefaults.h"

#include <QCoroTask>
#include <chrono>
#include <optional>

namespace vellumline {

/// What copying the selection put on the pasteboard.
struct CapturedSelection {
    QString text;
    std::optional<Font> font;
    bool operator==(const CapturedSelection&) const = default;
};

/// One correction of the text that is selected in the front application: probe, snapshot, copy, restore,
/// send, paste, wait, restore. Keeps no state between runs but the watch for a copy that comes too late. Main
/// thread only; every wait is a suspension.
class SelectionSwapper final : public SelectionRewriter {
  public:
    SelectionSwapper(TokenStore& store, Accessibility& accessibility, SelectionProbe& probe,
                     Pasteboard& pasteboard, ClipboardGuardian& guardian, KeyEvents& keyEvents,
                     RewriteClient& client, Workspace& workspace, const UserDefaults& defaults, Clock& clock);

    static constexpr int maximumCharacters = 4000; ///< extended grapheme clusters of the untrimmed text
    static constexpr std::chrono::milliseconds copyDeadline{800};
    static constexpr std::chrono::milliseconds pollInterval{10};
    static constexpr std::chrono::milliseconds settleTime{40};

    QCoro::Task<RewriteOutcome> rewrite() override;
    void openAccessibilitySettings() override;

    /// From now on nothing more is copied or pasted: a run that waits for its answer ends as failed.
    void stop() {
        stopped_ = true;
        lateCopy_.cancel();
    }
    /// Whether a run has the user's clipboard at this moment.
    bool holdsClipboard() const { return borrowed_ > 0 || lateCopy_.isGivingBack(); }

    /// Copies the selection of that program and gives the pasteboard back at once. Nothing when nothing was
    /// copied in time; what is copied later is undone.
    QCoro::Task<std::optional<CapturedSelection>>
    copySelection(ClipboardSnapshot snapshot, std::optional<Workspace::Application> program);
    /// True when the pasteboard has changed since `start` and been quiet for the settle time, or at the
    /// deadline.
    QCoro::Task<bool> waitForChange(qint64 start);
    /// How long the correction stays on the pasteboard: "vellumline.pasteDelayMs", clamped to 100–3000 ms,
    /// else 600 ms.
    std::chrono::milliseconds pasteDelay() const;

  private:
    QCoro::Task<RewriteOutcome> correct(QString text, std::optional<Font> font, ClipboardSnapshot snapshot,
                                        ProbeTarget target);
    QCoro::Task<RewriteOutcome> paste(QString text, std::optional<Font> font, ClipboardSnapshot snapshot,
                                      ProbeTarget target);
    /// Gives the pasteboard back unless the user has copied something else meanwhile.
    QCoro::Task<void> giveBack(ClipboardSnapshot snapshot, qint64 ours, QString correction);

    TokenStore& store_;
    Accessibility& accessibility_;
    SelectionProbe& probe_;
    Pasteboard& pasteboard_;
    ClipboardGuardian& guardian_;
    KeyEvents& keyEvents_;
    RewriteClient& client_;
    Workspace& workspace_;
    const UserDefaults& defaults_;
    Clock& clock_;
    LateCopy lateCopy_{pasteboard_, workspace_};
    int borrowed_ = 0;
    bool stopped_ = false;
};

} // namespace vellumline
