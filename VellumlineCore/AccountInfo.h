#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace vellumline {

enum class Plan { free, monthly, yearly, paid };

/// What the service says about the signed-in account.
struct AccountInfo {
    Plan plan = Plan::free;
    qint64 rewritesUsed = 0;
    qint64 freeRewrites = 0;
    bool renewalCanceled = false;
    bool pastDue = false;
    bool closed = false;

    /// A free account is warned when this many rewrites or fewer are left.
    static constexpr qint64 warnWhenLeft = 5;

    /// Decodes the body of an account reply; nothing when it is unusable or names an unknown plan.
    static std::optional<AccountInfo> fromJson(const QByteArray& data);

    /// Free rewrites left, never below 0.
    qint64 freeLeft() const;
    /// True only on the free plan with less than one rewrite left.
    bool freeUsedUp() const;
    /// A free account that has warnWhenLeft rewrites or fewer left, or none: the paid plans are offered.
    bool offersPlans() const;
    /// The warning shown under the plan line, if any.
    std::optional<QString> notice() const;
    /// The plan line of the menu.
    QString menuLabel() const;

    bool operator==(const AccountInfo&) const = default;
};

/// The sign-in state shown at the top of the menu.
struct AccountState {
    enum class Kind { signedIn, failed, signedOut, signingIn };
    Kind kind = Kind::signedOut;
    QString text; ///< signedIn: the display name; failed: the message; else empty.

    static AccountState signedIn(QString name) { return {Kind::signedIn, std::move(name)}; }
    static AccountState failed(QString message) { return {Kind::failed, std::move(message)}; }
    static AccountState signedOut() { return {Kind::signedOut, {}}; }
    static AccountState signingIn() { return {Kind::signingIn, {}}; }

    QString label() const;
    bool isSignedIn() const { return kind == Kind::signedIn; }

    bool operator==(const AccountState&) const = default;
};

} // namespace vellumline
