#pragma once

#include "VellumlineService/Correction/Inflections.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/PersonalDictionary.h"
#include "VellumlineService/Correction/Speller.h"

#include <vector>

namespace vellumline {

/// What a rule may ask.
struct RuleTools {
    const Speller& speller;
    const Inflections& inflections;
    const PersonalDictionary::Words& personal; ///< Words that the writer's own list has.
};

/// One named habit of correction. Names are kebab-case and stay: people switch rules off by them.
struct Rule {
    const char* name;
    const char* why; ///< One sentence for the writer of the text.
    void (*apply)(Line& line, const RuleTools& tools);
};

/// All rules in the order in which they are applied.
const std::vector<Rule>& correctionRules();

} // namespace vellumline
