#include "VellumlineService/Correction/RulesEngine.h"

#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/Speller.h"

namespace vellumline {

RulesEngine::RulesEngine(const QStringList& disabledRules)
    : speller_(std::make_unique<Speller>()), inflections_(std::make_unique<Inflections>()),
      tagger_(std::make_unique<Tagger>(*inflections_)),
      disabledRules_(disabledRules.cbegin(), disabledRules.cend()) {
    if (!speller_->available()) {
        qWarning("The correction engine cannot work: %s", qPrintable(speller_->problem()));
    }
}

RulesEngine::~RulesEngine() = default;

QString RulesEngine::problem() const {
    return speller_->problem();
}

QStringList RulesEngine::ruleNames() {
    QStringList names;
    for (const Rule& rule : correctionRules()) {
        names.append(QString::fromLatin1(rule.name));
    }
    return names;
}

QStringList RulesEngine::unknownRules(const QStringList& names) {
    const QStringList known = ruleNames();
    QStringList unknown;
    for (const QString& name : names) {
        if (!known.contains(name)) {
            unknown.append(name);
        }
    }
    return unknown;
}

void RulesEngine::correct(Line& line, std::vector<CorrectionChange>& changes) const {
    const RuleTools tools{*speller_, *inflections_};
    for (const Rule& rule : correctionRules()) {
        const QString name = QString::fromLatin1(rule.name);
        if (disabledRules_.contains(name)) {
            continue;
        }
        rule.apply(line, tools);
        for (const Line::Edit& edit : line.takeEdits()) {
            changes.push_back({name, edit.before, edit.after, QString::fromLatin1(rule.why)});
        }
    }
}

CorrectionResult RulesEngine::correct(QString text) {
    std::vector<CorrectionChange> changes;
    return correct(text, changes);
}

CorrectionResult RulesEngine::correct(const QString& text, std::vector<CorrectionChange>& changes) const {
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
            Line line(original, startsSentence, *tagger_);
            correct(line, changes);
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
