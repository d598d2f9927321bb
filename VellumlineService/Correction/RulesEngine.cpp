#include "VellumlineService/Correction/RulesEngine.h"

#include "VellumlineService/Correction/LanguageGuess.h"
#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/LanguagePack.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/PersonalDictionary.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/Speller.h"

#include <mutex>

namespace vellumline {

struct RulesEngine::Language {
    const LanguagePack& pack;
    std::once_flag loaded;
    std::unique_ptr<Speller> speller;

    explicit Language(const LanguagePack& of) : pack(of) {}
};

namespace {

void keepForeignQuotes(Line& line, const LanguageGuess& guess, const QString& language) {
    std::vector<bool> foreign(static_cast<size_t>(line.wordCount()), false);
    for (const auto& [begin, end] : line.quotes()) {
        QStringList words;
        for (int i = begin; i < end; ++i) {
            words.append(line.lower(i));
        }
        if (words.size() > 1 && guess.isForeign(words.join(u' '), language)) {
            std::fill(foreign.begin() + begin, foreign.begin() + end, true);
        }
    }
    line.keep([&](int i) { return foreign[static_cast<size_t>(i)]; });
}

} // namespace

RulesEngine::RulesEngine(const QStringList& disabledRules)
    : RulesEngine(RulesEngineSettings{disabledRules, {}, {}}) {}

RulesEngine::RulesEngine(const RulesEngineSettings& settings)
    : personal_(std::make_unique<PersonalDictionary>(settings.personalDictionary)),
      inflections_(std::make_unique<Inflections>()), tagger_(std::make_unique<Tagger>(*inflections_)),
      fixedLanguage_(settings.language),
      disabledRules_(settings.disabledRules.cbegin(), settings.disabledRules.cend()) {
    for (const LanguagePack& pack : languagePacks()) {
        languages_.push_back(std::make_unique<Language>(pack));
    }
    const Speller& english = *language(languages_.front()->pack.code)->speller;
    if (!english.available()) {
        qWarning("The correction engine cannot work: %s", qPrintable(english.problem()));
        return;
    }
    guess_ = std::make_unique<LanguageGuess>([&model = english.model()](const QString& word) {
        const int index = model.find(word.toUtf8());
        return index >= 0 && (model.flags(index) & LanguageModel::usualWord) != 0;
    });
}

RulesEngine::~RulesEngine() = default;

QString RulesEngine::problem() const {
    return languages_.front()->speller->problem();
}

const RulesEngine::Language* RulesEngine::language(const QString& code) const {
    for (const auto& one : languages_) {
        if (one->pack.code == code) {
            std::call_once(one->loaded, [&] { one->speller = std::make_unique<Speller>(one->pack); });
            return one.get();
        }
    }
    return nullptr;
}

const RulesEngine::Language* RulesEngine::languageOf(const QString& text) const {
    const Language* found = language(fixedLanguage_.isEmpty() ? guess_->of(text) : fixedLanguage_);
    return found && found->speller->available() ? found : nullptr;
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

void RulesEngine::correct(Line& line, const Language& language, const RuleTools& tools,
                          std::vector<CorrectionChange>& changes) const {
    for (const Rule& rule : language.pack.rules()) {
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
    if (!guess_) {
        return {CorrectionResult::Status::unavailable, {}};
    }
    const Language* const language = languageOf(text);
    if (!language) {
        return {CorrectionResult::Status::corrected, text};
    }
    personal_->refresh();
    const auto personal = personal_->words();
    const RuleTools tools{*language->speller, *inflections_, *personal};
    const QString& code = language->pack.code;
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
            if (original.size() == text.size() || !guess_->isForeign(original, code)) {
                keepForeignQuotes(line, *guess_, code);
                if (!personal->isEmpty()) {
                    line.keep([&](int i) { return personal_->contains(line.word(i).text); });
                }
                correct(line, *language, tools, changes);
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
