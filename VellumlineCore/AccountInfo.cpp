#include "VellumlineCore/AccountInfo.h"

#include "VellumlineCore/Json.h"

#include <algorithm>
#include <cstdlib>

namespace vellumline {

namespace {

std::optional<Plan> planNamed(const QString& name) {
    if (name == QStringLiteral("free"))
        return Plan::free;
    if (name == QStringLiteral("monthly"))
        return Plan::monthly;
    if (name == QStringLiteral("yearly"))
        return Plan::yearly;
    if (name == QStringLiteral("paid"))
        return Plan::paid;
    return std::nullopt;
}

/// Not clamped. The service's numbers are small: an overflow is a fault of the program, and ends it.
qint64 difference(const AccountInfo& info) {
    qint64 left = 0;
    if (__builtin_sub_overflow(info.freeRewrites, info.rewritesUsed, &left))
        std::abort();
    return left;
}

} // namespace

std::optional<AccountInfo> AccountInfo::fromJson(const QByteArray& data) {
    JsonReader body(data);
    const QString planName = body.string(QStringLiteral("plan"));
    AccountInfo info;
    info.rewritesUsed = body.integer(QStringLiteral("rewritesUsed"));
    info.freeRewrites = body.integer(QStringLiteral("freeRewrites"));
    info.renewalCanceled = body.optionalBoolean(QStringLiteral("renewalCanceled")).value_or(false);
    info.pastDue = body.optionalBoolean(QStringLiteral("pastDue")).value_or(false);
    info.closed = body.optionalBoolean(QStringLiteral("closed")).value_or(false);
    const auto plan = planNamed(planName);
    if (body.failed() || !plan)
        return std::nullopt;
    info.plan = *plan;
    return info;
}

qint64 AccountInfo::freeLeft() const {
    return std::max<qint64>(0, difference(*this));
}

bool AccountInfo::freeUsedUp() const {
    return plan == Plan::free && difference(*this) < 1;
}

bool AccountInfo::offersPlans() const {
    return plan == Plan::free && difference(*this) <= warnWhenLeft;
}

std::optional<QString> AccountInfo::notice() const {
    if (closed)
        return QStringLiteral("This account is closed. Reopen it on the account page.");
    if (plan != Plan::free) {
        if (pastDue)
            return QStringLiteral("Payment failed. Update your card on the account page.");
        return std::nullopt;
    }
    const qint64 left = difference(*this);
    if (left < 1)
        return QStringLiteral("Free rewrites used up.");
    if (left > warnWhenLeft)
        return std::nullopt;
    if (left == 1)
        return QStringLiteral("1 free rewrite left.");
    return QStringLiteral("%1 free rewrites left.").arg(left);
}

QString AccountInfo::menuLabel() const {
    const QString canceled = renewalCanceled ? QStringLiteral(" · renewal canceled") : QString();
    switch (plan) {
    case Plan::monthly:
        return QStringLiteral("Monthly plan") + canceled;
    case Plan::yearly:
        return QStringLiteral("Yearly plan") + canceled;
    case Plan::paid:
        return QStringLiteral("Paid plan") + canceled;
    case Plan::free:
        break;
    }
    return QStringLiteral("Free · %1 of %2 used").arg(rewritesUsed).arg(freeRewrites);
}

QString AccountState::label() const {
    switch (kind) {
    case Kind::signedIn:
        return QStringLiteral("Signed in as ") + text + QLatin1Char('.');
    case Kind::failed:
        return text;
    case Kind::signedOut:
        return QStringLiteral("Not signed in.");
    case Kind::signingIn:
        break;
    }
    return QStringLiteral("Finish signing in in your browser.");
}

} // namespace vellumline
