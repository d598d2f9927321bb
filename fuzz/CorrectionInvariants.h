#pragma once

#include "VellumlineService/Correction/AnswerCheck.h"

#include <cstdlib>

namespace vellumline::fuzz {

inline QString lineBreaks(const QString& text) {
    QString found;
    for (const QChar c : text) {
        if (c == u'\n' || c == u'\r' || c == QChar(0x2028) || c == QChar(0x2029)) {
            found += c;
        }
    }
    return found;
}

/// What every accepted answer has to leave alone, whatever the text and the answer are.
inline void requireCorrection(const QString& text, const CheckedAnswer& checked) {
    if (checked.verdict != AnswerVerdict::accepted) {
        if (!checked.text.isEmpty()) {
            std::abort();
        }
        return;
    }
    const auto count = [](const QString& in, QChar c) { return in.count(c); };
    const QString start = text.left(text.indexOf(text.trimmed().left(1)));
    if (lineBreaks(checked.text) != lineBreaks(text) ||
        protectedTexts(checked.text) != protectedTexts(text) || checked.text.size() > text.size() * 3 ||
        !checked.text.startsWith(start) || count(checked.text, u'\t') != count(text, u'\t') ||
        count(checked.text, u'`') > count(text, u'`') || count(checked.text, u'<') > count(text, u'<') ||
        count(checked.text, QChar(0)) != count(text, QChar(0))) {
        std::abort();
    }
}

} // namespace vellumline::fuzz
