#include "Vellumline/Platform/Linux/LinuxDesktopSurvey.h"

#include "Vellumline/Platform/Linux/DBusApplication.h"

#include <QCoroDBusPendingCall>
#include <QCoroSignal>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <array>
#include <utility>

namespace vellumline {

namespace {

constexpr int busTimeoutMs = 2000;
constexpr std::chrono::seconds longestQuestion{5};
constexpr std::uint32_t longestName = 64;
const QString linkType = QStringLiteral("x-scheme-handler/vellumline");

QDBusMessage busCall(const QString& method) {
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), method);
}

/// What a program says on its standard output; empty when it fails or is silent for too long.
QCoro::Task<QString> outputOf(QString program, QStringList arguments) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (process.state() == QProcess::NotRunning)
        co_return QString();
    const auto ended = co_await qCoro(&process, &QProcess::finished, longestQuestion);
    if (!ended) {
        process.kill();
        co_return QString();
    }
    co_return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

/// The Exec line of the main group of a desktop entry.
QString execOf(const QString& path) {
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return {};
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('[')))
            inMainGroup = line == QStringLiteral("[Desktop Entry]");
        else if (inMainGroup && line.startsWith(QStringLiteral("Exec=")))
            return line.mid(5); // NOLINT(readability-magic-numbers): the length of "Exec="
    }
    return {};
}

} // namespace

LinuxDesktopSurvey::LinuxDesktopSurvey(X11Connection* connection, QDBusConnection bus)
    : connection_(connection), bus_(std::move(bus)) {}

QString LinuxDesktopSurvey::windowManager() {
    const auto textProperty = [this](xcb_window_t window, const QByteArray& name) {
        const auto cookie = xcb_get_property(connection_->raw(), 0, window, connection_->atom(name),
                                             XCB_GET_PROPERTY_TYPE_ANY, 0, longestName);
        const XcbReply<xcb_get_property_reply_t> reply(
            xcb_get_property_reply(connection_->raw(), cookie, nullptr));
        return reply ? QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                  xcb_get_property_value_length(reply.get()))
                     : QByteArray();
    };
    const QByteArray window = textProperty(connection_->rootWindow(), "_NET_SUPPORTING_WM_CHECK");
    if (window.size() != sizeof(xcb_window_t))
        return {};
    xcb_window_t managers = XCB_WINDOW_NONE;
    std::memcpy(&managers, window.constData(), sizeof managers);
    return QString::fromUtf8(textProperty(managers, "_NET_WM_NAME"));
}

DisplayFacts LinuxDesktopSurvey::display() {
    DisplayFacts facts;
    facts.sessionType = qEnvironmentVariable("XDG_SESSION_TYPE");
    facts.desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
    facts.display = qEnvironmentVariable("DISPLAY");
    facts.waylandDisplay = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (connection_ == nullptr)
        return facts;
    facts.connected = true;
    facts.windowManager = windowManager();
    for (const char* name : {"XTEST", "XFIXES", "XInputExtension", "XKEYBOARD"}) {
        const QByteArray extension(name);
        const auto cookie = xcb_query_extension(
            connection_->raw(), static_cast<std::uint16_t>(extension.size()), extension.constData());
        const XcbReply<xcb_query_extension_reply_t> reply(
            xcb_query_extension_reply(connection_->raw(), cookie, nullptr));
        if (!reply || reply->present == 0)
            facts.missing.append(QString::fromLatin1(extension));
    }
    return facts;
}

QCoro::Task<TrayFacts> LinuxDesktopSurvey::tray() {
    TrayFacts facts;
    if (connection_ != nullptr) {
        const auto cookie =
            xcb_get_selection_owner(connection_->raw(), connection_->atom("_NET_SYSTEM_TRAY_S0"));
        const XcbReply<xcb_get_selection_owner_reply_t> reply(
            xcb_get_selection_owner_reply(connection_->raw(), cookie, nullptr));
        facts.embedding = reply && reply->owner != XCB_WINDOW_NONE;
    }
    const QString watcher = QStringLiteral("org.kde.StatusNotifierWatcher");
    QDBusMessage question = QDBusMessage::createMethodCall(watcher, QStringLiteral("/StatusNotifierWatcher"),
                                                           QStringLiteral("org.freedesktop.DBus.Properties"),
                                                           QStringLiteral("Get"));
    question << watcher << QStringLiteral("IsStatusNotifierHostRegistered");
    question.setAutoStartService(false);
    const QDBusPendingCall pending = bus_.asyncCall(question, busTimeoutMs);
    const QDBusMessage answer = co_await pending;
    if (answer.type() == QDBusMessage::ReplyMessage && !answer.arguments().isEmpty())
        facts.host = answer.arguments().constFirst().value<QDBusVariant>().variant().toBool();
    co_return facts;
}

QCoro::Task<LinkFacts> LinuxDesktopSurvey::links() {
    LinkFacts facts;
    const QStringList arguments = {QStringLiteral("query"), QStringLiteral("default"), linkType};
    facts.entry = co_await outputOf(QStringLiteral("xdg-mime"), arguments);
    const QString path = facts.entry.isEmpty()
                             ? QString()
                             : QStandardPaths::locate(QStandardPaths::ApplicationsLocation, facts.entry);
    facts.program = programOf(execOf(path));
    facts.works = QFileInfo(facts.program).isAbsolute()
                      ? QFileInfo(facts.program).isExecutable()
                      : !QStandardPaths::findExecutable(facts.program).isEmpty();
    const QDBusPendingCall pending =
        bus_.asyncCall(busCall(QStringLiteral("ListActivatableNames")), busTimeoutMs);
    const QDBusMessage answer = co_await pending;
    if (answer.type() == QDBusMessage::ReplyMessage && !answer.arguments().isEmpty())
        facts.startedByBus =
            answer.arguments().constFirst().toStringList().contains(DBusApplication::serviceName);
    co_return facts;
}

QString LinuxDesktopSurvey::programOf(const QString& exec) {
    // Desktop Entry Specification, "The Exec key": quotes around the whole argument, four characters escaped
    // in them, and each backslash of the value doubled.
    QString value = exec;
    value.replace(QStringLiteral("\\\\"), QStringLiteral("\\"));
    QString program;
    const bool quoted = value.startsWith(QLatin1Char('"'));
    for (qsizetype i = quoted ? 1 : 0; i < value.size(); ++i) {
        const QChar character = value.at(i);
        if (quoted ? character == QLatin1Char('"') : character == QLatin1Char(' '))
            break;
        if (quoted && character == QLatin1Char('\\') && i + 1 < value.size())
            program += value.at(++i);
        else
            program += character;
    }
    return program.replace(QStringLiteral("%%"), QStringLiteral("%"));
}

} // namespace vellumline
