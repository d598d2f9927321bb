#include "VellumlineService/Correction/Engines.h"
#include "VellumlineService/Service/CorrectionService.h"
#include "VellumlineService/Service/HttpServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QSocketNotifier>
#include <QUrl>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace vellumline;

int signalPipe[2] = {-1, -1};

// Only async-signal-safe calls may be made here (signal-safety(7)).
void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
}

void say(FILE* stream, const QString& line) {
    std::fprintf(stream, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stream);
}

int refuse(const QString& line) {
    say(stderr, QStringLiteral("vellumline-service: ") + line);
    return 2;
}

std::optional<qint64> number(const QString& text) {
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok && value >= 0 ? std::optional(value) : std::nullopt;
}

QString yesNo(bool value) {
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

const QStringList& linkSettings() {
    static const QStringList names = {QStringLiteral("monthlyCheckoutUrl"),
                                      QStringLiteral("yearlyCheckoutUrl")};
    return names;
}

int runAccount(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "vellumline-service account show\nvellumline-service account set OPTIONS\n\n"
        "Shows or changes the local account; a running service sees a change with the next request."));
    const QCommandLineOption help = parser.addHelpOption();
    Q_UNUSED(help);
    const auto option = [&](const char* name, const char* description, const char* value = nullptr) {
        QCommandLineOption made(QString::fromLatin1(name), QString::fromLatin1(description),
                                value ? QString::fromLatin1(value) : QString());
        parser.addOption(made);
        return QString::fromLatin1(name);
    };
    const QString database = option("database", "sqlite:PATH or postgresql://USER@HOST/NAME.", "address");
    const QString plan = option("plan", "free, monthly, yearly or paid.", "plan");
    const QString used = option("used", "Rewrites used so far.", "number");
    const QString freeRewrites = option("free-rewrites", "Rewrites that the free plan allows.", "number");
    const QString monthUsed = option("month-used", "Rewrites used this month.", "number");
    const QString monthlyLimit = option("monthly-limit", "Rewrites a month; 0: no limit.", "number");
    const QString minuteLimit = option("minute-limit", "Rewrites a minute; 0: no limit.", "number");
    const QString email = option("email", "The address shown to the user; empty: none.", "address");
    const QString closed = option("closed", "Close the account.");
    const QString open = option("open", "Reopen the account.");
    const QString pastDue = option("past-due", "The last payment failed.");
    const QString paidUp = option("paid-up", "Nothing is owed.");
    const QString canceled = option("renewal-canceled", "The plan will not renew.");
    const QString renewing = option("renewing", "The plan renews.");
    const QString monthlyLink =
        option("monthly-checkout", "Link offered with a free limit; empty: none.", "url");
    const QString yearlyLink =
        option("yearly-checkout", "Link offered with a free limit; empty: none.", "url");
    parser.addPositionalArgument(QStringLiteral("action"), QStringLiteral("show or set"));
    parser.process(arguments);

    const QStringList actions = parser.positionalArguments();
    if (actions.size() != 1 ||
        (actions.first() != QStringLiteral("show") && actions.first() != QStringLiteral("set"))) {
        return refuse(QStringLiteral("say \"account show\" or \"account set\"; see account --help."));
    }
    const QString planText = parser.value(plan);
    if (parser.isSet(plan) && !QStringList{QStringLiteral("free"), QStringLiteral("monthly"),
                                           QStringLiteral("yearly"), QStringLiteral("paid")}
                                   .contains(planText)) {
        return refuse(QStringLiteral("--plan is free, monthly, yearly or paid."));
    }
    for (const QString& name : {used, freeRewrites, monthUsed, monthlyLimit, minuteLimit}) {
        if (parser.isSet(name) && !number(parser.value(name))) {
            return refuse(QStringLiteral("--%1 needs a number, 0 or more.").arg(name));
        }
    }
    QString unread;
    const auto place = DatabaseAddress::from(
        parser.isSet(database) ? parser.value(database) : Storage::defaultPath(), unread);
    if (!place) {
        return refuse(unread);
    }
    Storage storage(*place);
    if (const auto problem = storage.open()) {
        return refuse(*problem);
    }
    if (actions.first() == QStringLiteral("set")) {
        const bool done = storage.changeLocalAccount([&](Account& account) {
            if (parser.isSet(plan)) {
                account.plan = planText;
            }
            account.rewritesUsed = parser.isSet(used) ? *number(parser.value(used)) : account.rewritesUsed;
            account.freeRewrites =
                parser.isSet(freeRewrites) ? *number(parser.value(freeRewrites)) : account.freeRewrites;
            account.monthlyLimit =
                parser.isSet(monthlyLimit) ? *number(parser.value(monthlyLimit)) : account.monthlyLimit;
            account.minuteLimit =
                parser.isSet(minuteLimit) ? *number(parser.value(minuteLimit)) : account.minuteLimit;
            if (parser.isSet(minuteLimit)) {
                // A new limit starts with a new minute, or it would hold for rewrites from before it.
                account.minuteStarted = 0;
                account.minuteUsed = 0;
            }
            if (parser.isSet(monthUsed)) {
                account.monthUsed = *number(parser.value(monthUsed));
                account.month = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM"));
            }
            if (parser.isSet(email)) {
                account.email = parser.value(email).trimmed();
            }
            account.closed = parser.isSet(closed) || (account.closed && !parser.isSet(open));
            account.pastDue = parser.isSet(pastDue) || (account.pastDue && !parser.isSet(paidUp));
            account.renewalCanceled =
                parser.isSet(canceled) || (account.renewalCanceled && !parser.isSet(renewing));
        });
        const bool links =
            (!parser.isSet(monthlyLink) ||
             storage.setSetting(linkSettings().at(0), parser.value(monthlyLink))) &&
            (!parser.isSet(yearlyLink) || storage.setSetting(linkSettings().at(1), parser.value(yearlyLink)));
        if (!done || !links) {
            return refuse(QStringLiteral("the change could not be written."));
        }
    }
    const auto account = storage.localAccount();
    if (!account) {
        return refuse(QStringLiteral("the account could not be read."));
    }
    say(stdout,
        QStringLiteral("account %1\nemail %2\nplan %3\nused %4\nfree-rewrites %5\nmonth %6\nmonth-used %7\n"
                       "monthly-limit %8\nminute-limit %9")
            .arg(account->id)
            .arg(account->email.isEmpty() ? QStringLiteral("-") : account->email, account->plan)
            .arg(account->rewritesUsed)
            .arg(account->freeRewrites)
            .arg(account->month.isEmpty() ? QStringLiteral("-") : account->month)
            .arg(account->monthUsed)
            .arg(account->monthlyLimit)
            .arg(account->minuteLimit));
    say(stdout, QStringLiteral("closed %1\npast-due %2\nrenewal-canceled %3")
                    .arg(yesNo(account->closed), yesNo(account->pastDue), yesNo(account->renewalCanceled)));
    for (const QString& name : linkSettings()) {
        say(stdout, name + QStringLiteral(" ") + storage.setting(name).value_or(QStringLiteral("-")));
    }
    return 0;
}

int runService(QCoreApplication& application) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The Vellumline correction service.\n\n"
                       "vellumline-service [OPTIONS]         serve until SIGTERM or SIGINT\n"
                       "vellumline-service account --help    show or change the local account"));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption listen(QStringLiteral("listen"),
                                    QStringLiteral("Address to listen on (127.0.0.1)."),
                                    QStringLiteral("address"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Port (8642); 0: any free one."),
                                  QStringLiteral("port"), QStringLiteral("8642"));
    const QCommandLineOption database(QStringLiteral("database"),
                                      QStringLiteral("sqlite:PATH or postgresql://USER@HOST/NAME."),
                                      QStringLiteral("address"), Storage::defaultPath());
    const QCommandLineOption engineName(
        QStringLiteral("engine"),
        QStringLiteral("One of: %1.").arg(correctionEngineNames().join(QStringLiteral(", "))),
        QStringLiteral("name"), QStringLiteral("rules"));
    const QCommandLineOption host(
        QStringLiteral("host"),
        QStringLiteral("A further host name that requests may name; may be repeated."),
        QStringLiteral("name"));
    const QCommandLineOption freeRewrites(
        QStringLiteral("free-rewrites"),
        QStringLiteral("Put the local account on the free plan with that many rewrites, none used."),
        QStringLiteral("number"));
    const QCommandLineOption engineSeconds(QStringLiteral("engine-seconds"),
                                           QStringLiteral("Longest time for one correction (12)."),
                                           QStringLiteral("seconds"), QStringLiteral("12"));
    const QCommandLineOption disableRules(
        QStringLiteral("disable-rules"),
        QStringLiteral("Rules that shall do nothing; vellumline-correct --list-rules names all."),
        QStringLiteral("name,…"));
    parser.addOptions({listen, port, database, engineName, host, freeRewrites, engineSeconds, disableRules});
    parser.process(application);
    if (!parser.positionalArguments().isEmpty()) {
        return refuse(
            QStringLiteral("\"%1\" is not a command; see --help.").arg(parser.positionalArguments().first()));
    }
    const QHostAddress address(parser.value(listen));
    if (address.isNull()) {
        return refuse(QStringLiteral("--listen needs an IP address."));
    }
    const auto portNumber = number(parser.value(port));
    if (!portNumber || *portNumber > 65535) {
        return refuse(QStringLiteral("--port needs a number from 0 to 65535."));
    }
    const auto patience = number(parser.value(engineSeconds));
    if (!patience || *patience < 1 || *patience > 600) {
        return refuse(QStringLiteral("--engine-seconds needs a number from 1 to 600."));
    }
    const QStringList disabled = parser.value(disableRules).split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString& rule : disabled) {
        if (!correctionRuleNames().contains(rule)) {
            return refuse(
                QStringLiteral("\"%1\" is no rule; vellumline-correct --list-rules names all.").arg(rule));
        }
    }
    const auto engine = makeCorrectionEngine(parser.value(engineName), disabled);
    if (!engine) {
        return refuse(QStringLiteral("--engine is one of: %1.")
                          .arg(correctionEngineNames().join(QStringLiteral(", "))));
    }
    QString unread;
    const auto place = DatabaseAddress::from(parser.value(database), unread);
    if (!place) {
        return refuse(unread);
    }
    Storage storage(*place);
    if (const auto problem = storage.open()) {
        return refuse(*problem);
    }
    if (parser.isSet(freeRewrites)) {
        const auto allowance = number(parser.value(freeRewrites));
        if (!allowance) {
            return refuse(QStringLiteral("--free-rewrites needs a number, 0 or more."));
        }
        storage.changeLocalAccount([&](Account& account) {
            account.plan = QStringLiteral("free");
            account.freeRewrites = *allowance;
            account.rewritesUsed = 0;
        });
    }
    ServiceSettings settings;
    if (!address.isLoopback()) {
        settings.hosts.clear();
    }
    const QStringList hosts = parser.values(host);
    for (const QString& name : hosts) {
        settings.hosts.append(name.toLower());
    }
    CorrectionService service(settings, storage, *engine, [] { return QDateTime::currentMSecsSinceEpoch(); });
    HttpLimits limits;
    limits.answerMilliseconds = static_cast<int>(*patience * 1000);
    HttpServer server(
        limits, [&service](const HttpRequest& request) { return service.handle(request); },
        &CorrectionService::laneOf);
    server.setListenBacklogSize(128);
    if (!server.listen(address, static_cast<quint16>(*portNumber))) {
        return refuse(QStringLiteral("cannot listen on %1 port %2: %3")
                          .arg(address.toString())
                          .arg(*portNumber)
                          .arg(server.errorString()));
    }

    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return refuse(QStringLiteral("no pipe for signals."));
    }
    QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
    bool stopping = false;
    QObject::connect(&notifier, &QSocketNotifier::activated, &server, [&] {
        char byte = 0;
        while (::read(signalPipe[0], &byte, 1) == 1) {
        }
        if (!stopping) {
            stopping = true;
            server.stop();
        }
    });
    QObject::connect(&server, &HttpServer::drained, &application, [] { QCoreApplication::exit(0); });
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    std::signal(SIGPIPE, SIG_IGN);

    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(address.toString());
    url.setPort(server.serverPort());
    say(stdout, QStringLiteral("vellumline-service ready on %1").arg(url.toString()));
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vellumline-service"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELLUMLINE_VERSION));
    QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() > 1 && arguments.at(1) == QStringLiteral("account")) {
        arguments.removeAt(1);
        return runAccount(arguments);
    }
    return runService(application);
}
