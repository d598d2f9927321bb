#include "Vellumline/AppStatus.h"

namespace vellumline {

namespace {

QString nameOf(Plan plan) {
    switch (plan) {
    case Plan::free:
        return QStringLiteral("free");
    case Plan::monthly:
        return QStringLiteral("monthly");
    case Plan::yearly:
        return QStringLiteral("yearly");
    case Plan::paid:
        break;
    }
    return QStringLiteral("paid");
}

QString nameOf(AccountState::Kind kind) {
    switch (kind) {
    case AccountState::Kind::signedIn:
        return QStringLiteral("signed-in");
    case AccountState::Kind::signingIn:
        return QStringLiteral("signing-in");
    case AccountState::Kind::failed:
        return QStringLiteral("sign-in-failed");
    case AccountState::Kind::signedOut:
        break;
    }
    return QStringLiteral("signed-out");
}

} // namespace

QVariantMap describe(const AppModel& model, const HotkeyMonitor& hotkeyMonitor, const QString& version) {
    QVariantMap status{
        {QStringLiteral("version"), version},
        {QStringLiteral("accountState"), nameOf(model.account().kind)},
        {QStringLiteral("account"), model.account().label()},
        {QStringLiteral("shortcut"), model.hotkeyLabel()},
        {QStringLiteral("shortcutRegistered"), hotkeyMonitor.isRegistered()},
        {QStringLiteral("accessibility"), model.trusted()},
        {QStringLiteral("opensAtLogin"), model.launchAtLogin()},
        {QStringLiteral("busy"), model.busy()},
        {QStringLiteral("statusText"), model.statusText().value_or(model.readyHint())},
    };
    if (model.account().isSignedIn())
        status.insert(QStringLiteral("signedInAs"), model.account().text);
    if (const auto& info = model.accountInfo()) {
        status.insert(QStringLiteral("plan"), nameOf(info->plan));
        status.insert(QStringLiteral("planText"), info->menuLabel());
        status.insert(QStringLiteral("rewritesUsed"), info->rewritesUsed);
        if (info->plan == Plan::free)
            status.insert(QStringLiteral("freeRewrites"), info->freeRewrites);
        status.insert(QStringLiteral("accountClosed"), info->closed);
        status.insert(QStringLiteral("paymentDue"), info->pastDue);
        status.insert(QStringLiteral("renewalCanceled"), info->renewalCanceled);
    }
    return status;
}

QString textOf(const QVariantMap& status) {
    const auto text = [&status](const char* key) {
        return status.value(QString::fromLatin1(key)).toString();
    };
    const auto yes = [&status](const char* key) { return status.value(QString::fromLatin1(key)).toBool(); };
    const auto yesNo = [&yes](const char* key) {
        return yes(key) ? QStringLiteral("yes") : QStringLiteral("no");
    };
    QString lines;
    const auto line = [&lines](const char* name, const QString& value) {
        constexpr int column = 16;
        lines += QString::fromLatin1(name).leftJustified(column) + value + QLatin1Char('\n');
    };
    line("version", text("version"));
    line("account", text("account"));
    if (status.contains(QStringLiteral("planText")))
        line("plan", text("planText"));
    line("shortcut", text("shortcut") + (yes("shortcutRegistered") ? QStringLiteral(", registered")
                                                                   : QStringLiteral(", not registered")));
    line("accessibility", yesNo("accessibility"));
    line("opens at login", yesNo("opensAtLogin"));
    line("busy", yesNo("busy"));
    line("last status", text("statusText"));
    return lines;
}

} // namespace vellumline
