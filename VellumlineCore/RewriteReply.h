#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <optional>

namespace vellumline {

/// The correction service's answer, decoded.
struct RewriteReply {
    enum class Kind {
        corrected,
        freeLimit,
        unauthorized,
        accountClosed,
        monthlyLimit,
        rateLimited,
        tooLong,
        nothingToCorrect,
        modelUnavailable,
        timedOut,
        failed
    };
    Kind kind = Kind::failed;
    QString text;                   ///< corrected: the text exactly as the service sent it.
    std::optional<QUrl> monthlyURL; ///< freeLimit: checkout link of the monthly plan.
    std::optional<QUrl> yearlyURL;  ///< freeLimit: checkout link of the yearly plan.

    static RewriteReply corrected(QString text) { return {Kind::corrected, std::move(text), {}, {}}; }
    static RewriteReply freeLimit(std::optional<QUrl> monthly, std::optional<QUrl> yearly) {
        return {Kind::freeLimit, {}, std::move(monthly), std::move(yearly)};
    }
    static RewriteReply of(Kind kind) { return {kind, {}, {}, {}}; }

    /// Maps an HTTP status and body to a reply. Never fails: what cannot be read is `failed`.
    static RewriteReply from(int status, const QByteArray& body);
    /// A link that may be opened: parses as a URL, has exactly the scheme "https" or "http" as it was sent,
    /// and a host.
    static std::optional<QUrl> webURL(const std::optional<QString>& string);

    bool operator==(const RewriteReply&) const = default;
};

/// Why nothing was pasted; each with the one sentence the user is shown.
struct RewriteProblem {
    enum class Kind {
        tooLong,
        noSelection,
        readOnly,
        secureField,
        accessibilityNeeded,
        offline,
        timedOut,
        modelUnavailable,
        rateLimited,
        monthlyLimit,
        freeLimit,
        accountClosed,
        failed
    };
    Kind kind = Kind::failed;
    int limit = 0; ///< tooLong: the largest number of characters; else 0.

    static RewriteProblem tooLong(int limit) { return {Kind::tooLong, limit}; }
    static RewriteProblem of(Kind kind) { return {kind, 0}; }

    /// The user-facing sentence; `hotkey` is the label of the current shortcut.
    QString message(const QString& hotkey) const;

    bool operator==(const RewriteProblem&) const = default;
};

} // namespace vellumline
