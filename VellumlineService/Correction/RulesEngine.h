#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"

#include <QSet>
#include <QStringList>
#include <memory>
#include <vector>

namespace vellumline {

class Inflections;
class LanguageGuess;
class Line;
class PersonalDictionary;
class Tagger;
struct RuleTools;

/// One change and the rule that made it.
struct CorrectionChange {
    QString rule;
    QString before;
    QString after;
    QString why;
};

struct RulesEngineSettings {
    QStringList disabledRules = {}; ///< Names of rules that do nothing.
    /// The code of the language of all texts; without it each text's language is found out.
    QString language = {};
    /// The path of the writer's own list of words; empty for none.
    QString personalDictionary = {};
};

/// Spelling, real-word confusions and a list of small grammar rules. Precise rather than thorough: what a
/// rule is not sure of stays, and so does a text in a language without a LanguagePack.
class RulesEngine : public CorrectionEngine {
  public:
    explicit RulesEngine(const QStringList& disabledRules = {});
    explicit RulesEngine(const RulesEngineSettings& settings);
    ~RulesEngine() override;

    CorrectionResult correct(QString text) override;
    /// The same, and `changes` gets what was changed, in the order of the lines and then of the rules.
    CorrectionResult correct(const QString& text, std::vector<CorrectionChange>& changes) const;

    static QStringList ruleNames();
    /// Which of the names are no rule's.
    static QStringList unknownRules(const QStringList& names);
    /// Why it cannot work; empty when it can.
    QString problem() const;

  private:
    struct Language;

    const Language* languageOf(const QString& text) const;
    /// A language is loaded when its first text comes, English at the start.
    const Language* language(const QString& code) const;
    void correct(Line& line, const Language& language, const RuleTools& tools,
                 std::vector<CorrectionChange>& changes) const;

    std::vector<std::unique_ptr<Language>> languages_;
    std::unique_ptr<LanguageGuess> guess_;
    std::unique_ptr<PersonalDictionary> personal_;
    std::unique_ptr<Inflections> inflections_;
    std::unique_ptr<Tagger> tagger_;
    QString fixedLanguage_;
    QSet<QString> disabledRules_;
};

} // namespace vellumline
