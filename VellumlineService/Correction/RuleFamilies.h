#pragma once

#include "VellumlineService/Correction/Rules.h"

// The rules that stand in files of their own, family by family.
namespace vellumline {

// RulesAgreement.cpp
void agreeWithSubject(Line& line, const RuleTools& tools);
void agreeInRelativeClause(Line& line, const RuleTools& tools);
void agreeAfterThere(Line& line, const RuleTools& tools);

// RulesNouns.cpp
void pluralAfterMany(Line& line, const RuleTools& tools);
void pluralAfterFigure(Line& line, const RuleTools& tools);
void oneOfMany(Line& line, const RuleTools& tools);
void demonstrativeNumber(Line& line, const RuleTools& tools);
void singularAfterEach(Line& line, const RuleTools& tools);
void muchAndMany(Line& line, const RuleTools& tools);
void uncountedPlural(Line& line, const RuleTools& tools);
void articleOfUncounted(Line& line, const RuleTools& tools);

// RulesVerbs.cpp
void participleAfterHave(Line& line, const RuleTools& tools);
void participleAfterBe(Line& line, const RuleTools& tools);
void participleAfterBeFrames(Line& line, const RuleTools& tools);
void baseAfterDo(Line& line, const RuleTools& tools);
void baseAfterModal(Line& line, const RuleTools& tools);
void baseAfterTo(Line& line, const RuleTools& tools);
void gerundAfterPreposition(Line& line, const RuleTools& tools);
void gerundAfterVerb(Line& line, const RuleTools& tools);
void toAfterWant(Line& line, const RuleTools& tools);
void bareAfterLet(Line& line, const RuleTools& tools);
void noBeBesideVerb(Line& line, const RuleTools& tools);
void gerundAfterBe(Line& line, const RuleTools& tools);
void pastTime(Line& line, const RuleTools& tools);
void finiteBe(Line& line, const RuleTools& tools);
void adverbAfterVerb(Line& line, const RuleTools& tools);
void overRegularForm(Line& line, const RuleTools& tools);

// RulesFrames.cpp
void fixedPhrase(Line& line, const RuleTools& tools);
void prepositionOfVerb(Line& line, const RuleTools& tools);
void prepositionOfAdjective(Line& line, const RuleTools& tools);
void missingPreposition(Line& line, const RuleTools& tools);
void tellAndSay(Line& line, const RuleTools& tools);
void prepositionOfTime(Line& line, const RuleTools& tools);
void noOfBeforeBareNoun(Line& line, const RuleTools& tools);
void twoDeterminers(Line& line, const RuleTools& tools);
void othersBeforeNoun(Line& line, const RuleTools& tools);
void missingArticle(Line& line, const RuleTools& tools);
void doubleComparative(Line& line, const RuleTools& tools);
void pronounCase(Line& line, const RuleTools& tools);

// RulesConfusions.cpp
void confusionFrames(Line& line, const RuleTools& tools);

// RulesByModel.cpp
void articleByModel(Line& line, const RuleTools& tools);
void pluralByModel(Line& line, const RuleTools& tools);
void formAfterBe(Line& line, const RuleTools& tools);
void comparativeByModel(Line& line, const RuleTools& tools);
void possessor(Line& line, const RuleTools& tools);
void doubledByModel(Line& line, const RuleTools& tools);
void muchByModel(Line& line, const RuleTools& tools);

// RulesPunctuation.cpp
void spaceBeforeSign(Line& line, const RuleTools& tools);
void introductoryComma(Line& line, const RuleTools& tools);
void commaAfterPhrase(Line& line, const RuleTools& tools);
void commaBeforeBut(Line& line, const RuleTools& tools);
void commaAfterIfClause(Line& line, const RuleTools& tools);
void questionMark(Line& line, const RuleTools& tools);

} // namespace vellumline
