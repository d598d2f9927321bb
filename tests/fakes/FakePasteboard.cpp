#include "tests/fakes/FakePasteboard.h"

#include <QStringList>
#include <utility>

namespace vellumline {

class FakePasteboard::Pending {
  public:
    explicit Pending(std::shared_ptr<State> state) : state_(std::move(state)) { ++state_->pending; }
    ~Pending() { --state_->pending; }
    Pending(const Pending&) = delete;
    Pending& operator=(const Pending&) = delete;

  private:
    std::shared_ptr<State> state_;
};

FakePasteboard::FakePasteboard(Clock& clock, QStringList* sharedLog) : clock_(clock), log_(sharedLog) {}

void FakePasteboard::State::replace(const QList<PasteboardItem>& newItems, bool byThisProgram) {
    items = newItems;
    ours = byThisProgram;
    ++changeCount;
    for (AsyncResult<bool> each : std::exchange(waiting, {}))
        each.set(true);
}

qint64 FakePasteboard::changeCount() const {
    ++changeCountReads_;
    if (logsChangeCount)
        log_.add(QStringLiteral("changeCount"));
    return state_->changeCount;
}

QCoro::Task<void> FakePasteboard::nextChange(std::chrono::milliseconds limit) {
    const AsyncResult<bool> end;
    state_->waiting.append(end);
    endLater(clock_, limit, end);
    co_await end;
}

QCoro::Task<void> FakePasteboard::endLater(Clock& clock, std::chrono::milliseconds limit,
                                           AsyncResult<bool> end) {
    co_await clock.sleepFor(limit);
    end.set(false);
}

QCoro::Task<PasteboardContents> FakePasteboard::contents() {
    log_.add(QStringLiteral("contents"));
    const Pending pending(state_);
    if (readDelay.count() > 0)
        co_await clock_.sleepFor(readDelay);
    PasteboardContents result;
    if (isUnreadable()) {
        result.completeness = PasteboardContents::Completeness::unreadable;
        co_return result;
    }
    result.items = state_->items;
    result.completeness = completeness;
    co_return result;
}

QCoro::Task<std::optional<QByteArray>> FakePasteboard::data(QString type) {
    log_.add(QStringLiteral("data(%1)").arg(type));
    const Pending pending(state_);
    if (readDelay.count() > 0)
        co_await clock_.sleepFor(readDelay);
    std::optional<QByteArray> found;
    if (isUnreadable())
        co_return found;
    for (const auto& item : std::as_const(state_->items)) {
        found = item.data(type);
        if (found)
            break;
    }
    co_return found;
}

QCoro::Task<std::optional<QString>> FakePasteboard::string() {
    log_.add(QStringLiteral("string"));
    const Pending pending(state_);
    if (readDelay.count() > 0)
        co_await clock_.sleepFor(readDelay);
    std::optional<QString> found;
    if (isUnreadable())
        co_return found;
    for (const auto& item : std::as_const(state_->items)) {
        if (const auto bytes = item.data(PasteboardType::string)) {
            found = QString::fromUtf8(*bytes);
            break;
        }
    }
    co_return found;
}

QCoro::Task<void> FakePasteboard::clearContents() {
    log_.add(QStringLiteral("clearContents"));
    const Pending pending(state_);
    if (writeDelay.count() > 0)
        co_await clock_.sleepFor(writeDelay);
    state_->replace({}, true);
    writes_.append(QList<PasteboardItem>());
    if (const auto then = afterWrite)
        then();
}

QCoro::Task<bool> FakePasteboard::write(QList<PasteboardItem> items) {
    QStringList described;
    for (const auto& item : std::as_const(items)) {
        QStringList types;
        for (const auto& each : item.representations)
            types.append(each.type);
        described.append(types.join(QStringLiteral(", ")));
    }
    log_.add(QStringLiteral("write(%1)").arg(described.join(QStringLiteral(" | "))));
    const Pending pending(state_);
    if (writeDelay.count() > 0)
        co_await clock_.sleepFor(writeDelay);
    if (refusesWrites)
        co_return false;
    state_->replace(items, true);
    writes_.append(items);
    if (const auto then = afterWrite)
        then();
    co_return true;
}

PasteboardItem FakePasteboard::textItem(const QString& text, const QByteArray& rtf) {
    PasteboardItem item;
    if (!rtf.isEmpty())
        item.set(PasteboardType::rtf, rtf);
    item.set(PasteboardType::string, text.toUtf8());
    return item;
}

void FakePasteboard::copyElsewhere(const QList<PasteboardItem>& items) {
    state_->replace(items, false);
}

void FakePasteboard::copyElsewhere(const QString& text) {
    copyElsewhere(QList<PasteboardItem>{textItem(text)});
}

void FakePasteboard::clearElsewhere() {
    state_->replace({}, false);
}

void FakePasteboard::copyElsewhereAfter(std::chrono::milliseconds delay, const QList<PasteboardItem>& items) {
    copyElsewhereInSteps({{delay, items}});
}

void FakePasteboard::copyElsewhereInSteps(QList<Step> steps) {
    copyLater(clock_, state_, std::move(steps));
}

QCoro::Task<void> FakePasteboard::copyLater(Clock& clock, std::weak_ptr<State> state, QList<Step> steps) {
    for (const auto& step : std::as_const(steps)) {
        co_await clock.sleepFor(step.after);
        if (const auto there = state.lock())
            there->replace(step.items, false);
    }
}

} // namespace vellumline
