#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace vellumline {

/// A piece of a text that no correction may touch: an address, a name with @, a tag, a number, code, a
/// symbol.
struct ProtectedSpan {
    qsizetype start = 0;
    qsizetype length = 0;
};

QList<ProtectedSpan> protectedSpans(const QString& text);
/// What stands in them, in order.
QStringList protectedTexts(const QString& text);

/// What is wrong with an answer that an engine of somebody else gave.
enum class AnswerVerdict {
    accepted,
    tooLong,     ///< The text is longer than what can be compared.
    length,      ///< Much shorter or longer than the text.
    lines,       ///< Lines are missing or new.
    characters,  ///< Another script, or brackets, quotes, markup, control characters that the text does not
                 ///< have.
    untouchable, ///< A protected piece is gone, changed or new.
    comment,     ///< Something is said before or after the text.
    otherText,   ///< Too little of the text is in it.
};

/// For the log of whoever runs the service.
QString verdictText(AnswerVerdict verdict);

struct CheckedAnswer {
    AnswerVerdict verdict = AnswerVerdict::otherText;
    /// With `accepted`: the answer, with the line breaks, indentation and spacing of the text put back.
    QString text = {};
};

/// Longest text that can be compared with an answer, in UTF-16 units.
inline constexpr qsizetype comparableLength = 16'000;

/// Is `answer` a correction of `text`, and of nothing else? The text may say anything, also to whoever
/// corrects it, so what was done to it decides, not what was meant.
CheckedAnswer checkAnswer(const QString& text, const QString& answer);

} // namespace vellumline
