#pragma once

#include "VellumlineService/Correction/Engines.h"
#include "VellumlineService/Service/Database.h"
#include "VellumlineService/Service/ServiceLog.h"
#include "VellumlineService/Service/ServiceSettings.h"

#include <QHash>
#include <QHostAddress>
#include <QProcessEnvironment>
#include <QStringList>
#include <QUrl>

namespace vellumline {

/// Everything that whoever runs the service decides, read and checked. A setting has one name everywhere:
/// "--engine-seconds 5", VELLUMLINE_SERVICE_ENGINE_SECONDS=5, and "engine-seconds = 5" in the file. The
/// command line goes before the environment, which goes before the file.
class Configuration {
  public:
    struct Setting {
        const char* name;
        const char* value; ///< What stands for the value in a help text.
        QString standard;
        QString description;
        /// A flag is "on" or "off", and on the command line it stands alone.
        enum class Count { one, several, flag } count = Count::one;
    };
    static const QList<Setting>& settings();

    /// Values of the command line by setting; several for one that may be repeated.
    using Given = QHash<QString, QStringList>;
    /// Nothing, and a sentence in `problem`, when a value is wrong or a name unknown.
    static std::optional<Configuration> read(const Given& commandLine, const QProcessEnvironment& environment,
                                             QString& problem);
    /// Every setting with its value and where that came from, one a line; a database's password is left out.
    QString shown() const;

    QHostAddress listen;
    quint16 port = 0;
    DatabaseAddress database;
    EngineSettings engine;
    int engineSeconds = 0;
    ServiceSettings service;
    ServiceLog::Format log = ServiceLog::Format::problems;
    bool metrics = true;
    int connections = 0;
    qsizetype bodyBytes = 0;
    int waitingCorrections = 0;
    int parallelCorrections = 0;

  private:
    struct Source {
        QStringList values;
        QString from;
    };
    QString one(const char* name) const;
    /// The name of the setting that is wrong and what it needs; nothing when all are right.
    std::optional<std::pair<const char*, QString>> readEngine(const QProcessEnvironment& environment);

    QHash<QString, Source> sources_;
};

} // namespace vellumline
