#include "VellumlineCore/Text.h"

#include <QTextBoundaryFinder>

namespace vellumline {

namespace {

qsizetype countUpTo(const QString& text, qsizetype limit) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (count <= limit && finder.toNextBoundary() != -1)
        ++count;
    return count;
}

} // namespace

qsizetype characterCount(const QString& text) {
    return countUpTo(text, text.size());
}

bool hasMoreCharactersThan(const QString& text, qsizetype limit) {
    return countUpTo(text, limit) > limit;
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
