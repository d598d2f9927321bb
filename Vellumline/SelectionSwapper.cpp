#include "Vellumline/SelectionSwapper.h"

#include "Vellumline/StepTimes.h"
#include "VellumlineCore/HotkeyBinding.h"

#include <QScopeGuard>
#include <algorithm>

namespace vellumline {

SelectionSwapper::SelectionSwapper(TokenStore& store, Accessibility& accessibility, SelectionProbe& probe,
                                   Pasteboard& pasteboard, ClipboardGuardian& guardian, KeyEvents& keyEvents,
                                   RewriteClient& client, Workspace& workspace, const UserDefaults& defaults,
                                   Clock& clock)
    : store_(store), accessibility_(accessibility), probe_(probe), pasteboard_(pasteboard),
      guardian_(guardian), keyEvents_(keyEvents), client_(client), workspace_(workspace), defaults_(defaults),
      clock_(clock) {}

QCoro::Task<RewriteOutcome> SelectionSwapper::rewrite() {
    using Problem = RewriteProblem::Kind;

    markStep(clock_, "begun");
    const std::optional<AuthSession> session = co_await store_.session();
    if (!session)
        co_return RewriteOutcome::signedOut();

    if (!accessibility_.isProcessTrusted()) {
        accessibility_.requestTrust();
        co_return RewriteOutcome::problem(Problem::accessibilityNeeded);
    }

    const ProbeAnswer answer = co_await probe_.focused();
    markStep(clock_, "probed");
    switch (answer.kind) {
    case ProbeAnswer::Kind::secure:
        co_return RewriteOutcome::problem(Problem::secureField);
    case ProbeAnswer::Kind::readOnly:
        co_return RewriteOutcome::problem(Problem::readOnly);
    case ProbeAnswer::Kind::emptySelection:
        co_return RewriteOutcome::problem(Problem::noSelection);
    case ProbeAnswer::Kind::editable:
    case ProbeAnswer::Kind::unknown:
        break;
    }

    co_await lateCopy_.finish();
    const ClipboardSnapshot snapshot = co_await ClipboardSnapshot::capture(pasteboard_);
    markStep(clock_, "snapshot");
    // Copying would take the pasteboard from an owner that we could not read: what the user had would be
    // lost.
    if (snapshot.completeness() == ClipboardSnapshot::Completeness::unreadable)
        co_return RewriteOutcome::problem(Problem::failed);

    if (stopped_)
        co_return RewriteOutcome::problem(Problem::failed);

    co_await guardian_.hold(snapshot.items());
    markStep(clock_, "guarded");
    const std::optional<CapturedSelection> captured =
        co_await copySelection(snapshot, answer.target.application);
    guardian_.settle();

    QString text;
    std::optional<Font> font;
    if (answer.kind == ProbeAnswer::Kind::editable && answer.selectedText) {
        text = *answer.selectedText;
        if (captured && SelectionStyle::sameSelection(captured->text, text))
            font = captured->font;
    } else if (captured) {
        text = captured->text;
        font = captured->font;
    } else {
        co_return RewriteOutcome::problem(Problem::noSelection);
    }

    if (trimmedWhitespace(text).isEmpty())
        co_return RewriteOutcome::problem(Problem::noSelection);
    if (hasMoreCharactersThan(text, maximumCharacters))
        co_return RewriteOutcome::problem(RewriteProblem::tooLong(maximumCharacters));

    co_return co_await correct(text, font, snapshot, answer.target);
}

QCoro::Task<RewriteOutcome> SelectionSwapper::correct(QString text, std::optional<Font> font,
                                                      ClipboardSnapshot snapshot, ProbeTarget target) {
    using Problem = RewriteProblem::Kind;

    markStep(clock_, "asking");
    const APIResult<RewriteReply> reply = co_await client_.rewrite(text);
    markStep(clock_, "answered");
    if (!reply) {
        switch (reply.error()) {
        case APIError::signedOut:
            co_return RewriteOutcome::signedOut();
        case APIError::offline:
            co_return RewriteOutcome::problem(Problem::offline);
        case APIError::timedOut:
            co_return RewriteOutcome::problem(Problem::timedOut);
        case APIError::failed:
            break;
        }
        co_return RewriteOutcome::problem(Problem::failed);
    }

    switch (reply->kind) {
    case RewriteReply::Kind::corrected:
        co_return co_await paste(reply->text, font, snapshot, target);
    case RewriteReply::Kind::freeLimit:
        co_return RewriteOutcome::freeLimit(reply->monthlyURL, reply->yearlyURL);
    case RewriteReply::Kind::unauthorized:
        co_return RewriteOutcome::signedOut();
    case RewriteReply::Kind::accountClosed:
        co_return RewriteOutcome::problem(Problem::accountClosed);
    case RewriteReply::Kind::monthlyLimit:
        co_return RewriteOutcome::problem(Problem::monthlyLimit);
    case RewriteReply::Kind::rateLimited:
        co_return RewriteOutcome::problem(Problem::rateLimited);
    case RewriteReply::Kind::tooLong:
        co_return RewriteOutcome::problem(RewriteProblem::tooLong(maximumCharacters));
    case RewriteReply::Kind::nothingToCorrect:
        co_return RewriteOutcome::problem(Problem::noSelection);
    case RewriteReply::Kind::modelUnavailable:
        co_return RewriteOutcome::problem(Problem::modelUnavailable);
    case RewriteReply::Kind::timedOut:
        co_return RewriteOutcome::problem(Problem::timedOut);
    case RewriteReply::Kind::failed:
        break;
    }
    co_return RewriteOutcome::problem(Problem::failed);
}

QCoro::Task<RewriteOutcome> SelectionSwapper::paste(QString text, std::optional<Font> font,
                                                    ClipboardSnapshot snapshot, ProbeTarget target) {
    if (stopped_)
        co_return RewriteOutcome::problem(RewriteProblem::Kind::failed);
    co_await lateCopy_.finish();
    ++borrowed_;
    guardian_.borrow();
    const auto returned = qScopeGuard([this] { --borrowed_; });
    const bool written = co_await Clipboard::writePrivately(text, font, pasteboard_);
    // Without the correction on the pasteboard, the paste chord would paste something else over the
    // selection.
    if (!written) {
        co_await ClipboardSnapshot::restore(snapshot, pasteboard_);
        guardian_.settle();
        co_return RewriteOutcome::problem(RewriteProblem::Kind::failed);
    }
    const qint64 ours = pasteboard_.changeCount();
    markStep(clock_, "written");
    // The user may have turned elsewhere while the service thought, or copied something.
    const bool stillThere = co_await probe_.isStillThere(target);
    if (!stillThere || pasteboard_.changeCount() != ours) {
        co_await giveBack(snapshot, ours, text);
        co_return RewriteOutcome::problem(RewriteProblem::Kind::failed);
    }
    markStep(clock_, "same place");
    keyEvents_.postCommand(KeyCode::v);
    markStep(clock_, "paste posted");
    co_await clock_.sleepFor(pasteDelay());
    co_await giveBack(snapshot, ours, text);
    markStep(clock_, "given back");
    co_return RewriteOutcome::rewrote();
}

QCoro::Task<void> SelectionSwapper::giveBack(ClipboardSnapshot snapshot, qint64 ours, QString correction) {
    if (pasteboard_.changeCount() != ours) {
        // Somebody took the pasteboard. A clipboard manager holds the correction then; anything else is what
        // the user copied just now, and theirs to keep.
        const std::optional<QString> text = co_await pasteboard_.string();
        const bool isCorrection = text && SelectionStyle::sameSelection(*text, correction);
        if (!isCorrection) {
            guardian_.forget();
            co_return;
        }
    }
    co_await ClipboardSnapshot::restore(snapshot, pasteboard_);
    guardian_.settle();
}

QCoro::Task<std::optional<CapturedSelection>>
SelectionSwapper::copySelection(ClipboardSnapshot snapshot, std::optional<Workspace::Application> program) {
    ++borrowed_;
    const auto returned = qScopeGuard([this] { --borrowed_; });
    const qint64 start = pasteboard_.changeCount();
    keyEvents_.postCommand(KeyCode::c);
    markStep(clock_, "copy posted");
    const bool changed = co_await waitForChange(start);
    markStep(clock_, "settled");
    if (!changed) {
        if (program)
            lateCopy_.expect(snapshot, start, *program);
        co_return std::nullopt;
    }

    const std::optional<QString> text = co_await pasteboard_.string();
    std::optional<QByteArray> rtf;
    std::optional<QByteArray> html;
    std::optional<Font> font;
    if (text) {
        rtf = co_await pasteboard_.data(PasteboardType::rtf);
        if (!rtf || !SelectionStyle::fontInRtf(*rtf))
            html = co_await pasteboard_.data(PasteboardType::html);
        font = SelectionStyle::font(rtf, html);
    }
    markStep(clock_, "copy read");
    co_await ClipboardSnapshot::restore(snapshot, pasteboard_);
    if (!text)
        co_return std::nullopt;
    co_return CapturedSelection{*text, font};
}

QCoro::Task<bool> SelectionSwapper::waitForChange(qint64 start) {
    const auto deadline = clock_.monotonic() + copyDeadline;
    qint64 last = start;
    std::optional<std::chrono::nanoseconds> lastChange;
    while (clock_.monotonic() < deadline) {
        const qint64 count = pasteboard_.changeCount();
        if (count != last) {
            lastChange = clock_.monotonic();
            markStep(clock_, "changed");
        } else if (lastChange && clock_.monotonic() - *lastChange >= settleTime)
            co_return true;
        last = count;
        // A copy takes an editor 2 to 4 ms: the rest of the interval would be waited for nothing.
        co_await pasteboard_.nextChange(pollInterval);
    }
    co_return pasteboard_.changeCount() != start;
}

std::chrono::milliseconds SelectionSwapper::pasteDelay() const {
    const qint64 value = defaults_.integer(QStringLiteral("vellumline.pasteDelayMs"));
    if (value <= 0)
        return std::chrono::milliseconds(600);
    return std::chrono::milliseconds(std::clamp<qint64>(value, 100, 3000));
}

void SelectionSwapper::openAccessibilitySettings() {
    workspace_.openURL(QUrl(
        QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility")));
}

} // namespace vellumline
