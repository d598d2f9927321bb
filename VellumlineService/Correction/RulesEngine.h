#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"

#include <QSet>
#include <QStringList>
#include <memory>
#include <vector>

namespace vellumline {

class Inflections;
class Line;
class Speller;
class Tagger;

/// One change and the rule that made it.
struct CorrectionChange {
    QString rule;
    QString before;
    QString after;
    QString why;
};

/// Spelling, real-word confusions and a list of small grammar rules. Precise rather than thorough: what a
/// rule is not sure of stays.
class RulesEngine : public CorrectionEngine {
  public:
    /// Uses the Hunspell dictionaries en_US and, where it is installed, en_GB of the system. Rules named in
    /// `disabledRules` do nothing.
    explicit RulesEngine(const QStringList& disabledRules = {});
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
    void correct(Line& line, std::vector<CorrectionChange>& changes) const;

    std::unique_ptr<Speller> speller_;
    std::unique_ptr<Inflections> inflections_;
    std::unique_ptr<Tagger> tagger_;
    QSet<QString> disabledRules_;
};

} // namespace vellumline
