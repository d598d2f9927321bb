#include "VellumlineCore/Text.h"

#include <QTextBoundaryFinder>

namespace vellumline {

namespace {

/// Scripts in which Qt 6.4 takes its boundaries for cursor positions from its own tables rather than from the
/// standard.
bool hasBoundariesOfItsOwn(QChar::Script script) {
    switch (script) {
    case QChar::Script_Devanagari:
    case QChar::Script_Bengali:
    case QChar::Script_Gurmukhi:
    case QChar::Script_Gujarati:
    case QChar::Script_Oriya:
    case QChar::Script_Tamil:
    case QChar::Script_Telugu:
    case QChar::Script_Kannada:
    case QChar::Script_Malayalam:
    case QChar::Script_Sinhala:
    case QChar::Script_Thai:
    case QChar::Script_Tibetan:
    case QChar::Script_Myanmar:
    case QChar::Script_Khmer:
        return true;
    default:
        return false;
    }
}

/// A text with as many characters in which no letter has such a script: there spaces, line ends and emoji
/// beside the letters would be counted by their UTF-16 units, a family of emoji as eleven.
QString withPlainLetters(QString text) {
    constexpr char16_t thaiSaraAm = 0x0E33; // a letter that belongs to the character before it (SpacingMark)
    constexpr char16_t laterMark = 0x0301;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar unit = text.at(i);
        if (hasBoundariesOfItsOwn(unit.script()))
            text[i] = unit.isMark() || unit == thaiSaraAm ? QChar(laterMark) : QChar(u'a');
    }
    return text;
}

qsizetype countUpTo(const QString& text, qsizetype limit) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, withPlainLetters(text));
    qsizetype count = 0;
    while (count <= limit && finder.toNextBoundary() != -1)
        ++count;
    return count;
}

} // namespace

bool hasMoreCharactersThan(const QString& text, qsizetype limit) {
    // A character has at least one UTF-16 unit, and rarely as many as these.
    constexpr qsizetype unitsOfAnyCharacter = 64;
    const qsizetype enough = (limit + 1) * unitsOfAnyCharacter;
    if (text.size() <= limit)
        return false;
    return (text.size() > enough && countUpTo(text.first(enough), limit) > limit) ||
           countUpTo(text, limit) > limit;
}

bool isWhitespace(char32_t scalar) {
    return QChar::isSpace(scalar);
}

QString trimmedWhitespace(const QString& text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    // All white space lies in the basic plane: one UTF-16 unit each.
    while (begin < end && isWhitespace(text.at(begin).unicode()))
        ++begin;
    while (end > begin && isWhitespace(text.at(end - 1).unicode()))
        --end;
    return text.sliced(begin, end - begin);
}

} // namespace vellumline
