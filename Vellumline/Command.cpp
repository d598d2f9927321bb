#include "Vellumline/Command.h"

#include <QRegularExpression>
#include <algorithm>
#include <array>
#include <utility>

namespace vellumline {

namespace {

constexpr std::array<std::pair<Command, const char*>, 8> names{{{Command::rewrite, "rewrite"},
                                                                {Command::openMenu, "open-menu"},
                                                                {Command::settings, "settings"},
                                                                {Command::signIn, "sign-in"},
                                                                {Command::signOut, "sign-out"},
                                                                {Command::status, "status"},
                                                                {Command::quit, "quit"},
                                                                {Command::doctor, "doctor"}}};

} // namespace

QString nameOf(Command command) {
    const auto* found =
        std::ranges::find_if(names, [command](const auto& entry) { return entry.first == command; });
    return QString::fromLatin1(found->second);
}

std::optional<Command> commandNamed(const QString& name) {
    const auto* found = std::ranges::find_if(
        names, [&name](const auto& entry) { return name == QLatin1String(entry.second); });
    return found == names.end() ? std::nullopt : std::optional(found->first);
}

bool startsProgram(Command command) {
    switch (command) {
    case Command::rewrite:
    case Command::openMenu:
    case Command::settings:
    case Command::signIn:
        return true;
    case Command::signOut:
    case Command::status:
    case Command::quit:
    case Command::doctor:
        break;
    }
    return false;
}

bool isAction(Command command) {
    return command != Command::status && command != Command::doctor;
}

Request Request::of(const QStringList& arguments) {
    if (arguments.isEmpty())
        return {};
    if (const auto command = commandNamed(arguments.first())) {
        if (arguments.size() > 1)
            return {{}, {}, QStringLiteral("\"%1\" takes nothing else").arg(arguments.first())};
        return {command, {}, {}};
    }
    // Whatever else a browser hands over is a link, and judged as one; a lone word can only be a command
    // with a slip in it.
    static const QRegularExpression word(QStringLiteral("^[a-z][a-z-]*$"));
    if (word.match(arguments.first()).hasMatch())
        return {{}, {}, QStringLiteral("\"%1\" is not a command; see --help").arg(arguments.first())};
    return {{}, arguments, {}};
}

} // namespace vellumline
