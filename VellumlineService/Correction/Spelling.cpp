#include "VellumlineService/Correction/Spelling.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/SentenceScorer.h"

#include <algorithm>
#include <optional>

namespace vellumline {

namespace {

// A slip is as unlikely as a factor of e^6 in the probability of the words.
constexpr double slipWeight = 6.0;
// How much likelier the line must become, slip and all, than it is with a word that the model does not know.
// Most words that no dictionary has are slips; a word with a common ending or at the start of a sentence may
// be a name or a rare one.
constexpr double leastGain = -12;
constexpr double leastGainOfDerived = -3;
constexpr double leastGainOfCapital = 0;
// A word of the other side of the Atlantic than the rest of the line.
constexpr double otherVariant = 12.0;

bool isProtected(const Token& token) {
    if (token.quotedAlone || token.hyphenated ||
        !std::all_of(token.lower.cbegin(), token.lower.cend(), [](QChar c) { return c.unicode() < 128; })) {
        return true;
    }
    const auto capitals =
        std::count_if(token.text.cbegin(), token.text.cend(), [](QChar c) { return c.isUpper(); });
    return capitals > 1 || (capitals == 1 && !token.startsSentence);
}

/// Above 0: the line has words that only British lists have; below: only American ones.
int variant(const Line& line, const LanguageModel& model) {
    int british = 0;
    for (int i = 0; i < line.wordCount(); ++i) {
        const int index = model.find(line.lower(i).toUtf8());
        const int flags =
            index < 0 ? 0 : model.flags(index) & (LanguageModel::americanWord | LanguageModel::britishWord);
        british += flags == LanguageModel::britishWord ? 1 : flags == LanguageModel::americanWord ? -1 : 0;
    }
    return british;
}

double variantCost(const Candidate& candidate, int british) {
    const int flags = candidate.flags & (LanguageModel::americanWord | LanguageModel::britishWord);
    const bool other = british > 0 ? flags == LanguageModel::americanWord
                                   : british < 0 && flags == LanguageModel::britishWord;
    return other ? otherVariant : 0;
}

/// "goin'", "payin'": speech written down.
bool isClipped(const Line& line, int i) {
    return line.lower(i).endsWith(QStringLiteral("in")) &&
           (line.punctuationAfter(i) == u'\'' || line.punctuationAfter(i) == QChar(0x2019));
}

} // namespace

void applySpelling(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    // Contractions and possessives: "'s" and the like do not make a word unknown.
    const auto known = [&](const QString& word) {
        if (speller.isKnown(word)) {
            return true;
        }
        const qsizetype apostrophe = word.indexOf(u'\'');
        return apostrophe > 0 && speller.isKnown(word.left(apostrophe));
    };
    int unknown = 0;
    std::vector<bool> wrong(static_cast<size_t>(line.wordCount()), false);
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (!known(token.lower) && !known(QString(token.text).replace(QChar(0x2019), u'\''))) {
            ++unknown;
            wrong[static_cast<size_t>(i)] = !isProtected(token) && token.lower.size() > 2;
        }
    }
    // A line of mostly unknown words is another language or no prose at all.
    if (unknown == 0 || line.looksLikeCode() || (unknown >= 3 && unknown * 5 > line.wordCount() * 2)) {
        return;
    }
    const int british = variant(line, speller.model());
    std::optional<SentenceScorer> scorer;
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        const bool capital = token.text.front().isUpper();
        // A capital and an unknown neighbour: a name or a phrase of another language.
        const bool foreign =
            capital && i + 1 < line.wordCount() && line.isNextTo(i + 1) && wrong[static_cast<size_t>(i) + 1];
        if (!wrong[static_cast<size_t>(i)] || token.lower.contains(u'\'') || isClipped(line, i) || foreign) {
            continue;
        }
        if (!scorer) {
            scorer.emplace(speller.model(), line);
        }
        const QString base = speller.derivedFrom(token.lower);
        double best = !base.isEmpty() ? leastGainOfDerived : capital ? leastGainOfCapital : leastGain;
        QString better;
        const auto candidates = speller.candidates(token.lower);
        for (const Candidate& candidate : *candidates) {
            // "brevities" for "brevity" was no slip of spelling.
            if (candidate.text == base) {
                continue;
            }
            const double gain = scorer->gain(i, 1, candidate.text.split(u' ')) - slipWeight * candidate.cost -
                                variantCost(candidate, british);
            if (gain > best) {
                best = gain;
                better = candidate.text;
                if ((candidate.flags & LanguageModel::capitalWord) != 0) {
                    better.front() = better.front().toUpper();
                }
            }
        }
        if (!better.isEmpty()) {
            line.replace(i, better);
            scorer.reset();
        }
    }
}

} // namespace vellumline
