#include "VellumlineHardening/CoreDumps.h"
#include "VellumlineHardening/FileAccess.h"
#include "VellumlineService/AccountCommand.h"
#include "VellumlineService/Correction/Engines.h"
#include "VellumlineService/Correction/PersonalDictionary.h"
#include "VellumlineService/Service/Configuration.h"
#include "VellumlineService/Service/CorrectionService.h"
#include "VellumlineService/Service/HttpServer.h"
#include "VellumlineService/Service/InheritedSocket.h"
#include "VellumlineService/Service/ServiceLog.h"
#include "VellumlineService/Service/ServiceMetrics.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
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

/// The options of every setting, in the order of the table.
void addSettings(QCommandLineParser& parser) {
    parser.addOption({QStringLiteral("config"), QStringLiteral("A file with settings, as \"port = 8642\"."),
                      QStringLiteral("file")});
    for (const auto& setting : Configuration::settings()) {
        QString description = setting.description;
        if (!setting.standard.isEmpty()) {
            description += QStringLiteral(" (%1)").arg(setting.standard);
        }
        if (setting.count == Configuration::Setting::Count::several) {
            description += QStringLiteral(" May be repeated.");
        }
        if (setting.count == Configuration::Setting::Count::flag) {
            parser.addOption({QString::fromLatin1(setting.name), description});
            continue;
        }
        parser.addOption(
            {QString::fromLatin1(setting.name), description, QString::fromLatin1(setting.value)});
    }
}

Configuration::Given givenSettings(const QCommandLineParser& parser) {
    Configuration::Given given;
    QStringList names = {QStringLiteral("config")};
    for (const auto& setting : Configuration::settings()) {
        names.append(QString::fromLatin1(setting.name));
    }
    const QStringList present = parser.optionNames();
    for (const QString& name : names) {
        if (present.contains(name)) {
            const QStringList values = parser.values(name);
            given.insert(name, values.isEmpty() ? QStringList{QStringLiteral("on")} : values);
        }
    }
    return given;
}

/// On the socket that the process was started with, otherwise on one of its own; a sentence when neither
/// works.
std::optional<QString> startListening(HttpServer& server, const Configuration& configuration) {
    const InheritedSocket inherited = InheritedSocket::take();
    if (inherited.count > 1) {
        return QStringLiteral("it was started with %1 sockets, and can listen on one.").arg(inherited.count);
    }
    if (inherited.count == 1) {
        // Which requests are answered depends on the address.
        if (!server.setSocketDescriptor(inherited.descriptor) ||
            server.serverAddress() != configuration.listen) {
            return QStringLiteral("the socket that it was started with does not listen on %1; see --listen.")
                .arg(configuration.listen.toString());
        }
        return {};
    }
    if (!server.listen(configuration.listen, configuration.port)) {
        return QStringLiteral("cannot listen on %1 port %2: %3")
            .arg(configuration.listen.toString())
            .arg(configuration.port)
            .arg(server.errorString());
    }
    return {};
}

int runService(QCoreApplication& application) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "The Vellumline correction service.\n\n"
        "vellumline-service [OPTIONS]         serve until SIGTERM or SIGINT\n"
        "vellumline-service account --help    show or change accounts\n\n"
        "Each setting may also stand in a file (--config), or in the environment: --engine-seconds is\n"
        "VELLUMLINE_SERVICE_ENGINE_SECONDS there."));
    parser.addHelpOption();
    parser.addVersionOption();
    addSettings(parser);
    const QCommandLineOption freeRewrites(
        QStringLiteral("free-rewrites"),
        QStringLiteral("Put the local account on the free plan with that many rewrites, none used."),
        QStringLiteral("number"));
    const QCommandLineOption checkConfig(
        QStringLiteral("check-config"),
        QStringLiteral("Show every setting and where it comes from, and end."));
    parser.addOptions({freeRewrites, checkConfig});
    parser.process(application);
    if (!parser.positionalArguments().isEmpty()) {
        return refuse(
            QStringLiteral("\"%1\" is not a command; see --help.").arg(parser.positionalArguments().first()));
    }
    QString problem;
    const auto configuration =
        Configuration::read(givenSettings(parser), QProcessEnvironment::systemEnvironment(), problem);
    if (!configuration) {
        return refuse(problem);
    }
    if (parser.isSet(checkConfig)) {
        std::fputs(configuration->shown().toLocal8Bit().constData(), stdout);
        return 0;
    }
    ServiceLog log(configuration->log);
    ServiceMetrics metrics;
    EngineSettings engineSettings = configuration->engine;
    // With accounts, the words of the one who runs the service are not those of its users.
    if (configuration->service.accounts == Accounts::local) {
        engineSettings.personalDictionary = PersonalDictionary::defaultPath();
    }
    engineSettings.external.report = [&log](const QString& event, const QString& reason) {
        log.problem(event, {{QStringLiteral("reason"), reason}});
    };
    Storage storage(configuration->database);
    if (const auto unusable = storage.open()) {
        return refuse(*unusable);
    }
    // Before any thread is started; a kernel that cannot do it keeps nobody from a correction. The file
    // itself may be elsewhere than its name, and has its companions there.
    const QString file = configuration->database.kind == DatabaseAddress::Kind::sqlite
                             ? QFileInfo(configuration->database.path).canonicalFilePath()
                             : QString();
    keepWritesTo(file.isEmpty() ? std::string() : QFileInfo(file).path().toStdString());
    const auto engine = makeCorrectionEngine(engineSettings);
    storage.reportFailuresTo([&](const QString& code) {
        metrics.databaseFailed();
        log.problem(QStringLiteral("database-refused"), {{QStringLiteral("code"), code}});
    });
    if (parser.isSet(freeRewrites)) {
        const auto allowance = number(parser.value(freeRewrites));
        if (!allowance) {
            return refuse(QStringLiteral("--free-rewrites needs a number, 0 or more."));
        }
        const bool done = storage.changeLocalAccount([&](Account& account) {
            account.plan = QStringLiteral("free");
            account.freeRewrites = *allowance;
            account.rewritesUsed = 0;
        });
        if (!done) {
            return refuse(QStringLiteral("the allowance of --free-rewrites could not be written."));
        }
    }
    CorrectionService service(configuration->service, storage, *engine,
                              [] { return QDateTime::currentMSecsSinceEpoch(); });
    HttpLimits limits;
    limits.answerMilliseconds = configuration->engineSeconds * 1000;
    // A proxy does not send again what it sent into a closing connection; without one there is nobody to wait
    // for.
    if (!configuration->service.trustedProxies.isEmpty()) {
        limits.partingMilliseconds = 500;
    }
    limits.connections = configuration->connections;
    limits.body = configuration->bodyBytes;
    limits.waitingCorrections = configuration->waitingCorrections;
    limits.parallelCorrections = configuration->parallelCorrections;
    HttpServer server(
        limits, [&service](const HttpRequest& request) { return service.handle(request); },
        &CorrectionService::laneOf);
    server.observe([&](const HttpServer::Answered& answered) {
        const QByteArray route = CorrectionService::routeOf(answered.path);
        metrics.answered(route, answered.status, answered.microseconds);
        log.event(QStringLiteral("request"),
                  {{QStringLiteral("method"), CorrectionService::methodOf(answered.method)},
                   {QStringLiteral("route"), QString::fromLatin1(route)},
                   {QStringLiteral("status"), answered.status},
                   {QStringLiteral("milliseconds"), static_cast<double>(answered.microseconds) / 1000}});
    });
    if (configuration->metrics) {
        service.showMetrics([&] {
            return metrics.text({server.openConnections(), server.waitingCorrections()}, VELLUMLINE_VERSION);
        });
    }
    server.setListenBacklogSize(128);
    if (const auto problem = startListening(server, *configuration)) {
        return refuse(*problem);
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
            log.event(QStringLiteral("stopping"),
                      {{QStringLiteral("connections"), server.openConnections()}});
            server.stop();
        }
    });
    QObject::connect(&server, &HttpServer::drained, &application, [] { QCoreApplication::exit(0); });
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    std::signal(SIGPIPE, SIG_IGN);

    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(configuration->listen.toString());
    url.setPort(server.serverPort());
    say(stdout, QStringLiteral("vellumline-service ready on %1").arg(url.toString()));
    log.event(QStringLiteral("started"),
              {{QStringLiteral("version"), QStringLiteral(VELLUMLINE_VERSION)},
               {QStringLiteral("database"), configuration->database.kind == DatabaseAddress::Kind::sqlite
                                                ? QStringLiteral("sqlite")
                                                : QStringLiteral("postgresql")}});
    const int status = QCoreApplication::exec();
    log.event(QStringLiteral("stopped"));
    return status;
}

} // namespace

int main(int argc, char** argv) {
    refuseCoreDumps();
    refuseToBeInspected();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vellumline-service"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELLUMLINE_VERSION));
    QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() > 1 && arguments.at(1) == QStringLiteral("account")) {
        arguments.removeAt(1);
        return runAccountCommand(arguments);
    }
    return runService(application);
}
