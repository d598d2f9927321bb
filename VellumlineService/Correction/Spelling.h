#pragma once

namespace vellumline {

class Line;
struct RuleTools;

/// Puts the likeliest word where a word stands that does not exist: the slip and the words around decide.
void applySpelling(Line& line, const RuleTools& tools);

} // namespace vellumline
