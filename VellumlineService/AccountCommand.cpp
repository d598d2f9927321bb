#include "VellumlineService/AccountCommand.h"

#include "VellumlineService/Service/Configuration.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <cstdio>

namespace vellumline {

namespace {

void say(const QString& line) {
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
}

int refuse(const QString& line) {
    std::fprintf(stderr, "vellumline-service: %s\n", line.toLocal8Bit().constData());
    return 2;
}

std::optional<qint64> number(const QString& text) {
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok && value >= 0 ? std::optional(value) : std::nullopt;
}

QString orDash(const QString& text) {
    return text.isEmpty() ? QStringLiteral("-") : text;
}

QString yesNo(bool value) {
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

qint64 now() {
    return QDateTime::currentSecsSinceEpoch();
}

/// The options of the command, each with what it means.
class AccountCommand {
  public:
    int run(const QStringList& arguments) {
        parser_.setApplicationDescription(QStringLiteral(
            "vellumline-service account list\n"
            "vellumline-service account show [--account WHO]\n"
            "vellumline-service account set [--account WHO] OPTIONS\n"
            "vellumline-service account create --email ADDRESS [--plan PLAN …]   prints a link to choose a "
            "password\n"
            "vellumline-service account invite [--email ADDRESS] [--days N]      prints a link to register "
            "with\n"
            "vellumline-service account reset-password --account WHO             prints a link to choose a "
            "password\n"
            "vellumline-service account end-sessions [--account WHO]\n\n"
            "Without --account, the local account. A running service sees a change with the next request."));
        parser_.addHelpOption();
        parser_.addPositionalArgument(QStringLiteral("action"), QStringLiteral("What to do; see above."));
        parser_.process(arguments);
        if (parser_.positionalArguments().size() != 1) {
            return refuse(QStringLiteral("say \"account list\", or another action; see account --help."));
        }
        if (const QString wrong = wrongOption(); !wrong.isEmpty()) {
            return refuse(wrong);
        }
        Configuration::Given given;
        for (const QString& name : {database_, config_}) {
            if (parser_.isSet(name)) {
                given.insert(name, parser_.values(name));
            }
        }
        QString problem;
        configuration_ = Configuration::read(given, QProcessEnvironment::systemEnvironment(), problem);
        if (!configuration_) {
            return refuse(problem);
        }
        Storage storage(configuration_->database);
        if (const auto unusable = storage.open()) {
            return refuse(*unusable);
        }
        return act(storage, parser_.positionalArguments().first());
    }

  private:
    QString option(const char* name, const char* description, const char* value = nullptr) {
        parser_.addOption(QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(description),
                                             value ? QString::fromLatin1(value) : QString()));
        return QString::fromLatin1(name);
    }

    QString wrongOption() const {
        if (parser_.isSet(plan_) && !planNames().contains(parser_.value(plan_))) {
            return QStringLiteral("--plan is free, monthly, yearly or paid.");
        }
        for (const QString& name : {used_, freeRewrites_, monthUsed_, monthlyLimit_, minuteLimit_, days_}) {
            if (parser_.isSet(name) && !number(parser_.value(name))) {
                return QStringLiteral("--%1 needs a number, 0 or more.").arg(name);
            }
        }
        for (const QString& name : {monthlyLink_, yearlyLink_}) {
            if (!parser_.value(name).isEmpty() && !isCheckoutUrl(parser_.value(name))) {
                return QStringLiteral("--%1 needs an https address.").arg(name);
            }
        }
        return {};
    }

    int act(Storage& storage, const QString& action) {
        if (action == QStringLiteral("list")) {
            const auto all = storage.accounts();
            if (!all) {
                return refuse(QStringLiteral("the accounts could not be read."));
            }
            for (const Account& account : *all) {
                say(QStringLiteral("%1\t%2\t%3\t%4 used%5")
                        .arg(account.id)
                        .arg(orDash(account.email), account.plan)
                        .arg(account.rewritesUsed)
                        .arg(account.closed ? QStringLiteral("\tclosed") : QString()));
            }
            return 0;
        }
        if (action == QStringLiteral("invite")) {
            return invite(storage);
        }
        if (action == QStringLiteral("create")) {
            return create(storage);
        }
        if (!QStringList{QStringLiteral("show"), QStringLiteral("set"), QStringLiteral("reset-password"),
                         QStringLiteral("end-sessions")}
                 .contains(action)) {
            return refuse(
                QStringLiteral("\"%1\" is nothing to do with an account; see account --help.").arg(action));
        }
        const auto account = chosen(storage);
        if (!account) {
            return refuse(account.failed()
                              ? QStringLiteral("the account could not be read.")
                              : QStringLiteral("there is no account \"%1\".").arg(parser_.value(account_)));
        }
        if (action == QStringLiteral("set")) {
            return set(storage, account->id) ? show(storage, account->id)
                                             : refuse(QStringLiteral("the change could not be written."));
        }
        if (action == QStringLiteral("reset-password")) {
            return offerPassword(storage, *account);
        }
        if (action == QStringLiteral("end-sessions")) {
            return storage.endSessions(account->id, QString(), now())
                       ? 0
                       : refuse(QStringLiteral("the change could not be written."));
        }
        return show(storage, account->id);
    }

    Lookup<Account> chosen(Storage& storage) {
        if (!parser_.isSet(account_)) {
            return storage.localAccount();
        }
        const QString who = parser_.value(account_);
        if (const auto id = number(who)) {
            return storage.account(*id);
        }
        const auto login = storage.login(Storage::normalEmail(who).value_or(QString()));
        if (!login) {
            return login.failed() ? Lookup<Account>::failure() : Lookup<Account>::none();
        }
        return storage.account(login->accountId);
    }

    void change(Account& account) const {
        const auto take = [&](const QString& name, qint64& value) {
            if (parser_.isSet(name)) {
                value = *number(parser_.value(name));
            }
        };
        take(used_, account.rewritesUsed);
        take(freeRewrites_, account.freeRewrites);
        take(monthlyLimit_, account.monthlyLimit);
        take(minuteLimit_, account.minuteLimit);
        if (parser_.isSet(plan_)) {
            account.plan = parser_.value(plan_);
        }
        if (parser_.isSet(minuteLimit_)) {
            // A new limit starts with a new minute, or it would hold for rewrites from before it.
            account.minuteStarted = 0;
            account.minuteUsed = 0;
        }
        if (parser_.isSet(monthUsed_)) {
            account.monthUsed = *number(parser_.value(monthUsed_));
            account.month = Storage::monthOf(now() * 1000);
        }
        account.closed = parser_.isSet(closed_) || (account.closed && !parser_.isSet(open_));
        account.pastDue = parser_.isSet(pastDue_) || (account.pastDue && !parser_.isSet(paidUp_));
        account.renewalCanceled =
            parser_.isSet(canceled_) || (account.renewalCanceled && !parser_.isSet(renewing_));
    }

    bool set(Storage& storage, qint64 id) {
        const auto login = storage.loginOfAccount(id);
        return !login.failed() &&
               storage.changeAccount(id,
                                     [&](Account& account) {
                                         change(account);
                                         // Somebody signs in with the address of the other accounts, so it
                                         // stays what it is.
                                         if (parser_.isSet(email_) && !login) {
                                             account.email = parser_.value(email_).trimmed();
                                         }
                                     }) &&
               (!parser_.isSet(monthlyLink_) ||
                storage.setSetting(QStringLiteral("monthlyCheckoutUrl"), parser_.value(monthlyLink_))) &&
               (!parser_.isSet(yearlyLink_) ||
                storage.setSetting(QStringLiteral("yearlyCheckoutUrl"), parser_.value(yearlyLink_)));
    }

    int show(Storage& storage, qint64 id) {
        const auto account = storage.account(id);
        const auto sessions = storage.sessions(id, now());
        const auto monthly = checkoutUrl(storage, configuration_->service, QStringLiteral("monthly"));
        const auto yearly = checkoutUrl(storage, configuration_->service, QStringLiteral("yearly"));
        if (!account || !sessions || !monthly || !yearly) {
            return refuse(QStringLiteral("the account could not be read."));
        }
        say(QStringLiteral(
                "account %1\nemail %2\nplan %3\nused %4\nfree-rewrites %5\nmonth %6\nmonth-used %7\n"
                "monthly-limit %8\nminute-limit %9")
                .arg(account->id)
                .arg(orDash(account->email), account->plan)
                .arg(account->rewritesUsed)
                .arg(account->freeRewrites)
                .arg(orDash(account->month))
                .arg(account->monthUsed)
                .arg(account->monthlyLimit)
                .arg(account->minuteLimit));
        say(QStringLiteral("closed %1\npast-due %2\nrenewal-canceled %3\nsessions %4")
                .arg(yesNo(account->closed), yesNo(account->pastDue), yesNo(account->renewalCanceled))
                .arg(sessions->size()));
        say(QStringLiteral("monthlyCheckoutUrl %1\nyearlyCheckoutUrl %2")
                .arg(orDash(*monthly), orDash(*yearly)));
        return 0;
    }

    QString linkTo(const QString& path) const {
        QUrl url = configuration_->service.publicUrl;
        if (url.isEmpty()) {
            url.setScheme(QStringLiteral("http"));
            url.setHost(configuration_->listen.toString());
            url.setPort(configuration_->port);
        }
        return url.toString() + path;
    }

    int invite(Storage& storage) {
        QString email;
        if (parser_.isSet(email_)) {
            const auto normal = Storage::normalEmail(parser_.value(email_));
            if (!normal) {
                return refuse(QStringLiteral("--email needs an e-mail address."));
            }
            email = *normal;
        }
        const QByteArray code = randomToken(24);
        const qint64 days = parser_.isSet(days_) ? *number(parser_.value(days_)) : 7;
        if (!storage.addOneTimeCode(Storage::Purpose::invitation, code, {0, email}, now() + days * 86400)) {
            return refuse(QStringLiteral("the invitation could not be written."));
        }
        say(linkTo(QStringLiteral("/register/?invitation=") + QString::fromLatin1(code)));
        return 0;
    }

    int offerPassword(Storage& storage, const Account& account) {
        const auto login = storage.loginOfAccount(account.id);
        if (!login) {
            return refuse(login.failed() ? QStringLiteral("the account could not be read.")
                                         : QStringLiteral("this account has no password."));
        }
        const QByteArray code = randomToken(24);
        if (!storage.addOneTimeCode(Storage::Purpose::passwordReset, code, {account.id, account.email},
                                    now() + 86400)) {
            return refuse(QStringLiteral("the link could not be written."));
        }
        say(linkTo(QStringLiteral("/reset/?code=") + QString::fromLatin1(code)));
        return 0;
    }

    int create(Storage& storage) {
        const auto email = Storage::normalEmail(parser_.value(email_));
        if (!email) {
            return refuse(QStringLiteral("create needs --email and an e-mail address."));
        }
        Account fresh = configuration_->service.newAccount;
        change(fresh);
        const auto made = storage.registerAccount(*email, QString(), fresh, std::nullopt, now());
        if (made.outcome == Storage::Registered::taken) {
            return refuse(QStringLiteral("there is an account of %1 already.").arg(*email));
        }
        const auto account =
            made.outcome == Storage::Registered::done ? storage.account(made.id) : Lookup<Account>::failure();
        return account ? offerPassword(storage, *account)
                       : refuse(QStringLiteral("the account could not be written."));
    }

    QCommandLineParser parser_;
    std::optional<Configuration> configuration_;
    const QString database_ = option("database", "As for the service.", "address");
    const QString config_ = option("config", "As for the service.", "file");
    const QString account_ = option("account", "An e-mail address or a number.", "who");
    const QString plan_ = option("plan", "free, monthly, yearly or paid.", "plan");
    const QString used_ = option("used", "Rewrites used so far.", "number");
    const QString freeRewrites_ = option("free-rewrites", "Rewrites that the free plan allows.", "number");
    const QString monthUsed_ = option("month-used", "Rewrites used this month.", "number");
    const QString monthlyLimit_ = option("monthly-limit", "Rewrites a month; 0: no limit.", "number");
    const QString minuteLimit_ = option("minute-limit", "Rewrites a minute; 0: no limit.", "number");
    const QString email_ =
        option("email", "With set: the address of the local account, shown to the user.", "address");
    const QString days_ = option("days", "How long an invitation is good (7).", "number");
    const QString closed_ = option("closed", "Close the account.");
    const QString open_ = option("open", "Reopen the account.");
    const QString pastDue_ = option("past-due", "The last payment failed.");
    const QString paidUp_ = option("paid-up", "Nothing is owed.");
    const QString canceled_ = option("renewal-canceled", "The plan will not renew.");
    const QString renewing_ = option("renewing", "The plan renews.");
    const QString monthlyLink_ =
        option("monthly-checkout", "Link offered with a free limit; empty: as in the settings.", "url");
    const QString yearlyLink_ =
        option("yearly-checkout", "Link offered with a free limit; empty: as in the settings.", "url");
};

} // namespace

int runAccountCommand(const QStringList& arguments) {
    return AccountCommand().run(arguments);
}

} // namespace vellumline
