#pragma once

#include <QString>
#include <optional>

namespace vellumline {

/// A link of this program's own URL scheme, as the browser hands it over.
struct AppLink {
    enum class Kind { handoff, startSignIn };
    Kind kind = Kind::startSignIn;
    QString code; ///< The one-time handoff code; empty for startSignIn.

    static AppLink handoff(QString code) { return {Kind::handoff, std::move(code)}; }
    static AppLink startSignIn() { return {Kind::startSignIn, {}}; }

    /// Parses the link's text exactly as it arrived (scheme and host are compared case-sensitively, which
    /// QUrl, that lower-cases both, cannot do). Nothing when the text is not a link of this program.
    static std::optional<AppLink> parse(const QString& url);

    bool operator==(const AppLink&) const = default;
};

} // namespace vellumline
