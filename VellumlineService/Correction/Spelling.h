#pragma once

namespace vellumline {

class Line;
struct RuleTools;

/// Puts the likeliest word where a word stands that does not exist: the slip and the words around decide.
void applySpelling(Line& line, const RuleTools& tools);

/// The same for a language without a model: takes what Hunspell suggests when it is near and nothing else is
/// as near.
void applyDictionarySpelling(Line& line, const RuleTools& tools);

} // namespace vellumline
