#include "VellumlineService/Correction/RulesEngine.h"

#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/Speller.h"

namespace vellumline {

RulesEngine::RulesEngine() : speller_(std::make_unique<Speller>()) {}

RulesEngine::~RulesEngine() = default;

CorrectionResult RulesEngine::correct(QString text) {
    if (!speller_->available()) {
        return {CorrectionResult::Status::unavailable, {}};
    }
    QString corrected;
    corrected.reserve(text.size() + 16);
    bool startsSentence = true;
    qsizetype at = 0;
    while (at < text.size()) {
        // Line breaks of every kind are copied as they are.
        qsizetype end = at;
        while (end < text.size() && text.at(end) != u'\n' && text.at(end) != u'\r' &&
               text.at(end) != QChar(0x2028) && text.at(end) != QChar(0x2029)) {
            ++end;
        }
        if (end > at) {
            const QString original = text.mid(at, end - at);
            Line line(original, startsSentence);
            for (const Rule& rule : correctionRules()) {
                rule.apply(line, *speller_);
            }
            corrected += line.text();
            startsSentence = line.wordCount() == 0 ? startsSentence : line.endsSentence();
        } else if (text.at(end) != u'\n' || at == 0 || text.at(at - 1) != u'\r') {
            // An empty line begins a paragraph; the second half of a CR LF is no line of its own.
            startsSentence = true;
        }
        if (end < text.size()) {
            corrected += text.at(end);
            ++end;
        }
        at = end;
    }
    return {CorrectionResult::Status::corrected, corrected};
}

} // namespace vellumline
