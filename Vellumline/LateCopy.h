#pragma once

#include "Vellumline/AsyncResult.h"
#include "Vellumline/ClipboardSnapshot.h"
#include "Vellumline/Platform/Workspace.h"

#include <memory>

namespace vellumline {

/// A program that was told to copy and did not in time finds that order when it goes on, and takes the
/// pasteboard with its selection. This waits for that copy and gives the user's contents back. What the user
/// copies in that program afterwards stays theirs: it comes after the program has worked off the order. Main
/// thread only.
class LateCopy final {
  public:
    LateCopy(Pasteboard& pasteboard, Workspace& workspace) : pasteboard_(pasteboard), workspace_(workspace) {}
    ~LateCopy() { cancel(); }
    LateCopy(const LateCopy&) = delete;
    LateCopy& operator=(const LateCopy&) = delete;

    /// How long a program may hang.
    static constexpr std::chrono::milliseconds longestHang{60'000};
    /// Some programs say that they have taken their input before they have worked it off.
    static constexpr std::chrono::milliseconds workingOff{500};
    static constexpr std::chrono::milliseconds settleTime{40};

    /// From now on what that program copies is undone; `start` is the change count from before it was told to
    /// copy.
    void expect(ClipboardSnapshot snapshot, qint64 start, Workspace::Application program);
    /// Nothing more is undone, but for what is being given back already.
    void cancel();
    /// Cancels, and ends when nothing is being given back.
    QCoro::Task<void> finish();
    bool isGivingBack() const { return watch_ && watch_->givingBack; }

  private:
    struct Watch {
        bool cancelled = false;
        bool givingBack = false;
        AsyncResult<bool> ended;
    };
    QCoro::Task<void> undo(std::shared_ptr<Watch> watch, ClipboardSnapshot snapshot, qint64 start,
                           Workspace::Application program);

    Pasteboard& pasteboard_;
    Workspace& workspace_;
    std::shared_ptr<Watch> watch_;
};

} // namespace vellumline
