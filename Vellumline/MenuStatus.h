#pragma once

#include "VellumlineCore/RewriteReply.h"

#include <QString>
#include <optional>

namespace vellumline {

/// The one-line status that the menu shows.
struct MenuStatus {
    enum class Kind { problem, message, ready, rewrote };
    Kind kind = Kind::ready;
    RewriteProblem why; ///< problem only
    QString text;       ///< message only

    static MenuStatus problem(RewriteProblem why) { return {Kind::problem, why, {}}; }
    static MenuStatus problem(RewriteProblem::Kind why) { return problem(RewriteProblem::of(why)); }
    static MenuStatus message(QString text) { return {Kind::message, {}, std::move(text)}; }
    static MenuStatus ready() { return {Kind::ready, {}, {}}; }
    static MenuStatus rewrote() { return {Kind::rewrote, {}, {}}; }

    /// What the menu shows; nothing when ready. `hotkey` is the label of the current shortcut.
    std::optional<QString> statusText(const QString& hotkey) const;

    bool operator==(const MenuStatus&) const = default;
};

} // namespace vellumline
