#include "VellumlineService/Correction/Spelling.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/SentenceScorer.h"
#include "VellumlineService/Correction/SlipCost.h"

#include <QSet>
#include <algorithm>
#include <limits>
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
// As likely as a word that fits hardly, and another one as likely: neither was meant, as a rule. A slip of
// one letter is worth the risk.
constexpr double leastGainOfUndecided = 2;
constexpr double leadOfDecided = 0.3;
constexpr double leastCostOfUndecided = 0.8;
// Nobody is likely to have meant a word that edited text hardly ever has.
constexpr int rareWord = 15;
constexpr double leastGainOfRare = -5.5;
// Writers who miss a letter rarely mistake one of several for one.
constexpr double otherNumber = 5.0;
// A word of the other side of the Atlantic than the rest of the line.
constexpr double otherVariant = 12.0;
// Two strangers side by side are a name or a phrase of another language as often as two slips.
constexpr double mostCostBesideStranger = 1.7;
// A lower-case word that is far from a name was not meant to be one ("haldi" is not Haiti).
constexpr double mostCostOfName = 1.2;
// At the start of a sentence a long common word, nearly right, is that word and not a name.
constexpr double leastGainOfLongCapital = -6;
constexpr double mostCostOfLongCapital = 0.9;
constexpr qsizetype longCapital = 7;

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

// A word that the writer uses is about as likely as a word that fits well.
constexpr double gainOfOwnWord = 6;
constexpr double mostCostOfOwnWord = 1.2;
// Each is compared with each misspelt word.
constexpr qsizetype mostOwnWords = 10'000;

/// The word of the writer's own list that a misspelt one was most likely meant to be, with its gain.
std::pair<QString, double> nearestOwnWord(const QString& lower, const PersonalDictionary::Words& own) {
    std::pair<QString, double> nearest;
    double least = mostCostOfOwnWord;
    if (lower.size() < 4 || own.size() > mostOwnWords) {
        return {{}, -std::numeric_limits<double>::infinity()};
    }
    for (auto word = own.begin(); word != own.end(); ++word) {
        const double cost = slipCost(lower.toLatin1(), word.key().toLatin1(), least);
        if (cost < least || (cost == least && word.value() < nearest.first)) {
            least = cost;
            nearest = {word.value(), gainOfOwnWord - slipWeight * cost};
        }
    }
    return nearest.first.isEmpty() ? std::pair(QString(), -std::numeric_limits<double>::infinity()) : nearest;
}

bool isRare(const LanguageModel& model, const QString& word) {
    const int index = model.find(word.toLower().toUtf8());
    return index >= 0 && model.frequency(index) < rareWord;
}

/// Whether one of both words ends like a plural and the other one does not.
bool differInNumber(const QString& typed, const QString& meant) {
    const auto plural = [](const QString& word) {
        return word.endsWith(u's') && !word.endsWith(QStringLiteral("ss"));
    };
    return plural(typed) != plural(meant);
}

/// "goin'", "payin'": speech written down.
bool isClipped(const Line& line, int i) {
    return line.lower(i).endsWith(QStringLiteral("in")) &&
           (line.punctuationAfter(i) == u'\'' || line.punctuationAfter(i) == QChar(0x2019));
}

/// Written as people write in a chat: no slip, though no dictionary has it.
bool isChat(const QString& lower) {
    static const QSet<QString> abbreviations = [] {
        const QString list = QStringLiteral(
            "omg lol lmao rofl imo imho idk afaik iirc irl ily ttyl asap diy faq eta wip aka fomo yolo thx "
            "tbc "
            "tbd tbh btw fyi brb ppl pls plz msg smh ftw tldr ngl nvm hmu gtg pdf html xml css json url");
        const QStringList words = list.split(u' ');
        return QSet<QString>(words.cbegin(), words.cend());
    }();
    // "sooooo", "hmmmm"
    for (qsizetype i = 3; i < lower.size(); ++i) {
        if (lower.at(i) == lower.at(i - 1) && lower.at(i) == lower.at(i - 2) &&
            lower.at(i) == lower.at(i - 3)) {
            return true;
        }
    }
    return abbreviations.contains(lower);
}

/// Two strangers or more between quotes: a phrase of another language.
bool isQuotedPhrase(const Line& line, int i, const std::vector<bool>& wrong) {
    int first = i;
    while (first > 0 && line.isNextTo(first) && wrong[static_cast<size_t>(first) - 1]) {
        --first;
    }
    int last = i;
    while (last + 1 < line.wordCount() && line.isNextTo(last + 1) && wrong[static_cast<size_t>(last) + 1]) {
        ++last;
    }
    const QString before = line.gapBefore(first);
    const QChar after = line.punctuationAfter(last);
    return last > first && !before.isEmpty() &&
           QStringView(u"\"'\u201C\u2018\u00AB").contains(before.back()) && !after.isNull() &&
           QStringView(u"\"'\u201D\u2019\u00BB,.").contains(after);
}

} // namespace

void applySpelling(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    // Contractions and possessives: "'s" and the like do not make a word unknown.
    const auto known = [&](const QString& word) {
        // The dictionaries lack forms of verbs that are mostly nouns ("disking").
        if (speller.isKnown(word) || tools.inflections.knows(word)) {
            return true;
        }
        // Plurals of those who do something are made at will; "olders" is none.
        const QString one = word.chopped(1);
        if (word.size() > 6 && word.endsWith(QStringLiteral("ers")) && speller.isKnown(one) &&
            !tools.inflections.is(one, Form::comparative)) {
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
    if (unknown == 0 || line.looksLikeCode() || (unknown >= 3 && unknown * 5 > line.wordCount() * 3)) {
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
        if (!wrong[static_cast<size_t>(i)] || token.lower.contains(u'\'') || isClipped(line, i) || foreign ||
            isChat(token.lower) || isQuotedPhrase(line, i, wrong)) {
            continue;
        }
        if (!scorer) {
            scorer.emplace(speller.model(), line);
        }
        const QString base = speller.derivedFrom(token.lower);
        const double least = !base.isEmpty() ? leastGainOfDerived : capital ? leastGainOfCapital : leastGain;
        double best = least;
        double highest = -std::numeric_limits<double>::infinity();
        double second = highest;
        double costOfBest = 0;
        QString better;
        const auto isStranger = [&](int at) {
            return at >= 0 && at < line.wordCount() && wrong[static_cast<size_t>(at)];
        };
        const bool besideStranger =
            (line.isNextTo(i) && isStranger(i - 1)) || (line.isNextTo(i + 1) && isStranger(i + 1));
        const auto candidates = speller.candidates(token.lower);
        for (const Candidate& candidate : *candidates) {
            // "brevities" for "brevity" was no slip of spelling.
            if (candidate.text == base) {
                continue;
            }
            const bool name = (candidate.flags & LanguageModel::capitalWord) != 0;
            if ((besideStranger && candidate.cost > mostCostBesideStranger) ||
                (name && !capital && candidate.cost > mostCostOfName)) {
                continue;
            }
            const double gain = scorer->gain(i, 1, candidate.text.split(u' ')) - slipWeight * candidate.cost -
                                variantCost(candidate, british) -
                                (differInNumber(token.lower, candidate.text) ? otherNumber : 0);
            second = std::max(second, std::min(gain, highest));
            highest = std::max(highest, gain);
            const bool clear = capital && !name && candidate.text.size() >= longCapital &&
                               candidate.cost <= mostCostOfLongCapital &&
                               (candidate.flags & LanguageModel::usualWord) != 0;
            if (gain > best || (clear && better.isEmpty() && gain > leastGainOfLongCapital)) {
                best = gain;
                costOfBest = candidate.cost;
                better = candidate.text;
                if ((candidate.flags & LanguageModel::capitalWord) != 0) {
                    better.front() = better.front().toUpper();
                }
            }
        }
        if ((best < leastGainOfUndecided && costOfBest >= leastCostOfUndecided &&
             best - second < leadOfDecided) ||
            (best < leastGainOfRare && isRare(speller.model(), better))) {
            better.clear();
        }
        if (const auto [own, gain] = nearestOwnWord(token.lower, tools.personal); gain > best) {
            better = own;
        }
        if (!better.isEmpty()) {
            line.replace(i, better);
            scorer.reset();
        }
    }
}

void applyDictionarySpelling(Line& line, const RuleTools& tools) {
    constexpr qsizetype shortestWord = 4;
    constexpr double mostCost = 1.0;
    // A word with a capital may be a name.
    constexpr double mostCostOfCapital = 0.85;
    constexpr double leastLead = 0.25;
    // Hunspell takes up to a third of a second for each.
    constexpr size_t mostWords = 10;
    const Speller& speller = tools.speller;
    std::vector<int> wrong;
    int unknown = 0;
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        const QString written = QString(token.text).replace(QChar(0x2019), u'\'');
        if (speller.isKnown(written) || (token.startsSentence && speller.isKnown(token.lower))) {
            continue;
        }
        ++unknown;
        const auto capitals =
            std::count_if(written.cbegin(), written.cend(), [](QChar c) { return c.isUpper(); });
        const bool ours = written.front().isUpper() ? capitals == 1 : capitals == 0;
        if (ours && written.size() >= shortestWord && !token.quotedAlone && !token.hyphenated &&
            !written.contains(u'\'')) {
            wrong.push_back(i);
        }
    }
    if (line.looksLikeCode() || (unknown >= 3 && unknown * 5 > line.wordCount() * 3)) {
        return;
    }
    wrong.resize(std::min(wrong.size(), mostWords));
    for (const int i : wrong) {
        const Token& token = line.word(i);
        const bool capital = token.text.front().isUpper();
        if (const QString own = nearestOwnWord(token.lower, tools.personal).first; !own.isEmpty()) {
            line.replace(i, own);
            continue;
        }
        const auto found = speller.candidates(token.text);
        const bool clear = !found->empty() &&
                           found->front().cost <= (capital ? mostCostOfCapital : mostCost) &&
                           (found->size() < 2 || found->at(1).cost - found->front().cost >= leastLead);
        // A name in a sentence does not become a common word.
        if (clear && (!capital || token.startsSentence || found->front().text.front().isUpper())) {
            QString better = found->front().text;
            if (capital) {
                better.front() = better.front().toUpper();
            }
            line.replaceExactly(i, better);
        }
    }
}

} // namespace vellumline
