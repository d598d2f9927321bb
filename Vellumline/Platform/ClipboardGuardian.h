#pragma once

#include "Vellumline/Platform/Pasteboard.h"

#include <QCoroTask>
#include <QList>

namespace vellumline {

/// Gives the user's pasteboard back when this program dies and cannot. Main thread only.
class ClipboardGuardian {
  public:
    virtual ~ClipboardGuardian() = default;

    /// Keeps these items from now on, and gives them back at this program's death whatever is on the
    /// pasteboard then. Suspends until they are safe, or for a bound of the adapter's: a correction goes on
    /// without a guardian rather than not at all.
    virtual QCoro::Task<void> hold(QList<PasteboardItem> items) = 0;
    /// The pasteboard is borrowed again; the items are the ones that are held.
    virtual void borrow() = 0;
    /// The user has their pasteboard again. At this program's death the held items are given back only if
    /// nobody else has taken it.
    virtual void settle() = 0;
    /// What is held is out of date: the user has copied something else.
    virtual void forget() = 0;
};

} // namespace vellumline
