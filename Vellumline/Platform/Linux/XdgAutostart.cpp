#include "Vellumline/Platform/Linux/XdgAutostart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>
#include <QStandardPaths>
#include <algorithm>
#include <utility>

namespace vellumline {

namespace {

/// The unescaped values of the group [Desktop Entry]; nothing when the file cannot be read.
std::optional<QHash<QString, QString>> readEntry(const QString& path) {
    QFile file(path);
    constexpr qint64 mostBytes = 1 << 20; // an entry is a few hundred
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QHash<QString, QString> values;
    bool isInGroup = false;
    const auto lines = QString::fromUtf8(file.read(mostBytes)).split(QLatin1Char('\n'));
    for (const auto& each : lines) {
        const QString line = each.trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            isInGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const auto equals = line.indexOf(QLatin1Char('='));
        if (isInGroup && equals > 0 && !line.startsWith(QLatin1Char('#')))
            values.insert(line.left(equals).trimmed(), line.mid(equals + 1).trimmed());
    }
    return values;
}

/// Escapes of a value of type string.
QString escaped(QString value) {
    value.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    value.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    value.replace(QLatin1Char('\r'), QLatin1String("\\r"));
    value.replace(QLatin1Char('\t'), QLatin1String("\\t"));
    return value;
}

QString unescaped(const QString& value) {
    QString result;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value.at(i) != QLatin1Char('\\') || i + 1 == value.size()) {
            result.append(value.at(i));
            continue;
        }
        ++i;
        switch (value.at(i).unicode()) {
        case 's':
            result.append(QLatin1Char(' '));
            break;
        case 'n':
            result.append(QLatin1Char('\n'));
            break;
        case 'r':
            result.append(QLatin1Char('\r'));
            break;
        case 't':
            result.append(QLatin1Char('\t'));
            break;
        default:
            result.append(value.at(i));
        }
    }
    return result;
}

/// The program of an Exec value, without its quotes.
QString programOf(const QString& exec) {
    const QString line = unescaped(exec);
    QString program;
    if (!line.startsWith(QLatin1Char('"'))) {
        program = line.section(QLatin1Char(' '), 0, 0);
    } else {
        for (qsizetype i = 1; i < line.size() && line.at(i) != QLatin1Char('"'); ++i) {
            if (line.at(i) == QLatin1Char('\\') && i + 1 < line.size())
                ++i;
            program.append(line.at(i));
        }
    }
    return program.replace(QLatin1String("%%"), QLatin1String("%"));
}

bool canRun(const QString& program) {
    if (QDir::isAbsolutePath(program)) {
        const QFileInfo file(program);
        return file.isFile() && file.isExecutable();
    }
    return !program.isEmpty() && !QStandardPaths::findExecutable(program).isEmpty();
}

} // namespace

XdgAutostart::XdgAutostart(Entry entry, const QString& configHome,
                           const std::optional<QStringList>& configDirectories)
    : entry_(std::move(entry)) {
    const QString home = configHome.isEmpty()
                             ? QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                             : configHome;
    userFolder_ = home + QLatin1String("/autostart");
    QStringList folders =
        configDirectories.value_or(QStandardPaths::standardLocations(QStandardPaths::GenericConfigLocation));
    folders.removeAll(home);
    for (const auto& folder : std::as_const(folders))
        systemFolders_.append(folder + QLatin1String("/autostart"));
}

QString XdgAutostart::path() const {
    return userFolder_ + QLatin1Char('/') + entry_.identifier + QLatin1String(".desktop");
}

QString XdgAutostart::execValue(const QStringList& commandLine) {
    // The reserved characters of an Exec key (Desktop Entry Specification); a program by a path without
    // them needs no quotes, and some desktops show the value as it stands.
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    QStringList words;
    for (QString word : commandLine) {
        word.replace(QLatin1Char('%'), QLatin1String("%%"));
        const bool needsQuotes = word.isEmpty() || std::ranges::any_of(word, [](QChar character) {
                                     return reserved.contains(character);
                                 });
        if (needsQuotes) {
            QString quoted;
            for (const QChar character : std::as_const(word)) {
                if (QStringLiteral("\"`$\\").contains(character))
                    quoted.append(QLatin1Char('\\'));
                quoted.append(character);
            }
            word = QLatin1Char('"') + quoted + QLatin1Char('"');
        }
        words.append(word);
    }
    return escaped(words.join(QLatin1Char(' ')));
}

bool XdgAutostart::isInstalledForEverybody() const {
    return std::ranges::any_of(systemFolders_, [this](const QString& folder) {
        return QFileInfo::exists(folder + QLatin1Char('/') + entry_.identifier + QLatin1String(".desktop"));
    });
}

LoginService::Status XdgAutostart::status() const {
    // The user's own entry hides one of the same name that the system has.
    QStringList folders{userFolder_};
    folders += systemFolders_;
    for (const auto& folder : std::as_const(folders)) {
        const auto values =
            readEntry(folder + QLatin1Char('/') + entry_.identifier + QLatin1String(".desktop"));
        if (!values)
            continue;
        if (values->value(QStringLiteral("Hidden")) == QLatin1String("true"))
            return Status::notRegistered;
        // GNOME's and other desktops' start-up settings switch an entry off with this key.
        if (values->value(QStringLiteral("X-GNOME-Autostart-enabled")) == QLatin1String("false"))
            return Status::notRegistered;
        return canRun(programOf(values->value(QStringLiteral("Exec")))) ? Status::enabled : Status::notFound;
    }
    return Status::notRegistered;
}

bool XdgAutostart::write(const QByteArray& contents) const {
    if (!QDir().mkpath(userFolder_))
        return false;
    QSaveFile file(path()); // beside the old one, then renamed over it: a reader sees one or the other
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size() && file.commit();
}

bool XdgAutostart::registerService() {
    if (entry_.commandLine.isEmpty() || !canRun(entry_.commandLine.first()))
        return false;
    // TryExec: once the program has been removed, sessions pass over what its users leave behind.
    return write("[Desktop Entry]\n"
                 "Type=Application\n"
                 "Version=1.0\n"
                 "Name=" +
                 escaped(entry_.name).toUtf8() + "\nExec=" + execValue(entry_.commandLine).toUtf8() +
                 "\nTryExec=" + escaped(entry_.commandLine.first()).toUtf8() +
                 "\nIcon=" + entry_.identifier.toUtf8() +
                 "\nTerminal=false\n"
                 "NoDisplay=true\n"
                 "X-GNOME-Autostart-enabled=true\n");
}

bool XdgAutostart::unregisterService() {
    if (isInstalledForEverybody())
        return write("[Desktop Entry]\nType=Application\nName=" + escaped(entry_.name).toUtf8() +
                     "\nHidden=true\n");
    const QFileInfo file(path());
    if (!file.exists() && !file.isSymLink())
        return true;
    return QFile::remove(path());
}

} // namespace vellumline
