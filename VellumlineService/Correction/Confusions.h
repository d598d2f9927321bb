#pragma once

#include <QHash>
#include <QString>
#include <vector>

namespace vellumline {

class Line;
struct RuleTools;

/// A word that may have been meant by another one.
struct Confusion {
    QString meant;
    /// How much likelier (natural logarithm) it must make the line before it is put there.
    double margin = 0;
};

/// By the word that is written, in small letters. Pairs and margins are made by scripts/tune-confusions.sh.
const QHash<QString, std::vector<Confusion>>& confusions();

/// Words that are spelt right and were meant to be others: "there" for "their", "form" for "from". The
/// language model decides.
void applyRealWordConfusions(Line& line, const RuleTools& tools);

} // namespace vellumline
