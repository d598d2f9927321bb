#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace vellumline {

/// What the program can be told on its command line, and a running one over the session bus.
enum class Command { rewrite, openMenu, settings, signIn, signOut, status, quit, doctor };

/// As it is written on the command line; also the name of its action on the session bus.
QString nameOf(Command command);
std::optional<Command> commandNamed(const QString& name);

/// Whether the program is started for it when it does not run yet.
bool startsProgram(Command command);
/// Whether it is an action of org.freedesktop.Application: done, not answered.
bool isAction(Command command);

/// The arguments that are not options: one command, or links of the program's scheme.
struct Request {
    std::optional<Command> command;
    QStringList links;            ///< as they arrived
    std::optional<QString> wrong; ///< why the arguments cannot be meant; then nothing is done

    static Request of(const QStringList& arguments);
};

/// Exit statuses of a command (sysexits.h where it has one).
namespace exitStatus {
constexpr int done = 0;
constexpr int failed = 1;       ///< the running program did not answer; the doctor found something
constexpr int usage = 64;       ///< EX_USAGE
constexpr int unavailable = 69; ///< EX_UNAVAILABLE: no running program, or no display
} // namespace exitStatus

} // namespace vellumline
