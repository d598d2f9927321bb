#pragma once

#include <QString>

namespace vellumline {

/// Whether the text has more than `limit` characters as the user sees them: extended grapheme clusters
/// (Unicode UAX #29), never UTF-16 units. Looks at no more of a long text than that takes.
bool hasMoreCharactersThan(const QString& text, qsizetype limit);
/// The text without Unicode white space and line separators at both ends.
QString trimmedWhitespace(const QString& text);
/// White space or a line separator: the Unicode property White_Space.
bool isWhitespace(char32_t scalar);

} // namespace vellumline
