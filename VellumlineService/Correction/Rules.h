#pragma once

#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Speller.h"

#include <vector>

namespace vellumline {

/// One named habit of correction.
struct Rule {
    const char* name;
    void (*apply)(Line& line, const Speller& speller);
};

/// All rules in the order in which they are applied.
const std::vector<Rule>& correctionRules();

} // namespace vellumline
