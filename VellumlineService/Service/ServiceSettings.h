#pragma once

#include "VellumlineService/Service/Passwords.h"
#include "VellumlineService/Service/Storage.h"

#include <QStringList>
#include <QUrl>

namespace vellumline {

/// Who may have an account.
enum class Accounts {
    local,    ///< Whoever reaches the service is its one user.
    password, ///< Each has an e-mail address and a password.
};
enum class Registration { closed, invitation, open };

/// What the pages and endpoints go by.
struct ServiceSettings {
    /// Host names (without port) that a request may name. Empty: any. Against DNS rebinding, where a web
    /// page's own name points at this machine.
    QStringList hosts = {QStringLiteral("127.0.0.1"), QStringLiteral("localhost"), QStringLiteral("[::1]")};
    /// Where browsers reach the service; empty when that is where it listens.
    QUrl publicUrl;
    /// Proxies whose X-Forwarded-For is believed.
    QStringList trustedProxies;
    Accounts accounts = Accounts::local;
    Registration registration = Registration::invitation;
    /// The plan and limits of an account that somebody registers.
    Account newAccount = [] {
        Account fresh;
        fresh.plan = QStringLiteral("free");
        return fresh;
    }();
    /// Links to buy a plan, for those who sell any. What the database says goes before.
    QString monthlyCheckoutUrl;
    QString yearlyCheckoutUrl;
    Passwords::Cost passwordCost = Passwords::Cost::interactive;
    /// Seconds for which an access token is good.
    qint64 accessSeconds = 600;
    /// Seconds for which a key signs.
    qint64 keySeconds = qint64{30} * 86400;
};

/// free, monthly, yearly and paid.
const QStringList& planNames();
/// Whether a link may stand on a page: HTTPS, or HTTP on a loopback address.
bool isCheckoutUrl(const QString& text);
/// The link to buy a plan: what the administrator put into the database, else the setting; empty when none,
/// nothing when the database fails.
std::optional<QString> checkoutUrl(Storage& storage, const ServiceSettings& settings, const QString& plan);

} // namespace vellumline
