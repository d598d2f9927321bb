#pragma once

#include "Vellumline/AsyncResult.h"
#include "Vellumline/Platform/Clock.h"
#include "Vellumline/Platform/Pasteboard.h"
#include "tests/fakes/CallLog.h"

#include <QList>
#include <chrono>
#include <functional>
#include <memory>

namespace vellumline {

/// A pasteboard in memory, with the other programs of the desktop as a script. In the call log: "contents",
/// "data(public.rtf)", "string", "clearContents", "write(public.rtf, public.utf8-plain-text | image/png)" (a
/// bar stands between items) and, when logsChangeCount is set, "changeCount".
class FakePasteboard final : public Pasteboard {
  public:
    explicit FakePasteboard(Clock& clock, QStringList* sharedLog = nullptr);

    qint64 changeCount() const override;
    bool isFrom(quint64 window) const override {
        return !state_->ours && window != 0 && window == copiesFrom;
    }
    QCoro::Task<void> nextChange(std::chrono::milliseconds limit) override;
    QCoro::Task<PasteboardContents> contents() override;
    QCoro::Task<std::optional<QByteArray>> data(QString type) override;
    QCoro::Task<std::optional<QString>> string() override;
    QCoro::Task<void> clearContents() override;
    QCoro::Task<bool> write(QList<PasteboardItem> items) override;

    /// An item with the plain string, and RTF before it when there is any.
    static PasteboardItem textItem(const QString& text, const QByteArray& rtf = {});

    // What other programs do.

    /// Another program copies, now.
    void copyElsewhere(const QList<PasteboardItem>& items);
    void copyElsewhere(const QString& text);
    /// Another program gives the pasteboard up (or dies): it is empty and the count has changed.
    void clearElsewhere();
    /// One step of a copy: so long after the step before (the first: after the call).
    struct Step {
        std::chrono::milliseconds after{0};
        QList<PasteboardItem> items;
    };
    /// Another program copies later, in one or several steps, on the clock.
    void copyElsewhereAfter(std::chrono::milliseconds delay, const QList<PasteboardItem>& items);
    void copyElsewhereInSteps(QList<Step> steps);

    // How the pasteboard behaves.

    std::chrono::milliseconds readDelay{0};  ///< every read suspends so long on the clock
    std::chrono::milliseconds writeDelay{0}; ///< every write and clear suspends so long on the clock
    /// The owner hangs: contents() is unreadable after the read delay, data() and string() have nothing. Ends
    /// for contents that this program wrote.
    bool ownerHangs = false;
    /// What contents() says of readable contents.
    PasteboardContents::Completeness completeness = PasteboardContents::Completeness::complete;
    quint64 copiesFrom = 0;       ///< the window of the program that copies elsewhere
    bool refusesWrites = false;   ///< write() answers false and changes nothing
    bool logsChangeCount = false; ///< a polling caller floods the log
    /// Runs at the end of every write and clear of this program: another program that takes the pasteboard
    /// at once, for instance.
    std::function<void()> afterWrite;

    // What there is to see.

    const QList<PasteboardItem>& items() const { return state_->items; }
    /// The last writer is this program.
    bool isOurs() const { return state_->ours; }
    /// Every accepted write, in order; a clear is an empty list.
    const QList<QList<PasteboardItem>>& writes() const { return writes_; }
    /// Reads and writes that have begun and not ended.
    int pending() const { return state_->pending; }
    int changeCountReads() const { return changeCountReads_; }
    const QStringList& calls() const { return log_.calls(); }
    void clearCalls() {
        log_.clear();
        writes_.clear();
    }

  private:
    // Outlives the fake while a scripted copy or a suspended call still waits on the clock.
    struct State {
        QList<PasteboardItem> items;
        qint64 changeCount = 1;
        bool ours = false;
        int pending = 0;
        QList<AsyncResult<bool>> waiting; ///< for the next change
        void replace(const QList<PasteboardItem>& newItems, bool byThisProgram);
    };
    class Pending;

    static QCoro::Task<void> endLater(Clock& clock, std::chrono::milliseconds limit, AsyncResult<bool> end);
    static QCoro::Task<void> copyLater(Clock& clock, std::weak_ptr<State> state, QList<Step> steps);
    bool isUnreadable() const { return ownerHangs && !state_->ours; }

    Clock& clock_;
    mutable CallLog log_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
    QList<QList<PasteboardItem>> writes_;
    mutable int changeCountReads_ = 0;
};

} // namespace vellumline
