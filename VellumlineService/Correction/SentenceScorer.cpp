#include "VellumlineService/Correction/SentenceScorer.h"

#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/ModelText.h"

#include <algorithm>

namespace vellumline {

namespace {

using namespace modelformat;

// A word outside the n-grams is one of about this many that share the probability of an unknown word.
const double shareOfUnknown = -std::log(30'000.0);

} // namespace

SentenceScorer::SentenceScorer(const LanguageModel& model, const Line& line) : model_(model) {
    firstOf_.assign(static_cast<size_t>(line.wordCount()), -1);
    endOf_.assign(static_cast<size_t>(line.wordCount()), -1);
    for (const ModelToken& token : modelTokens(line)) {
        LanguageModel::Word word = unknownWord;
        switch (token.kind) {
        case ModelToken::Kind::word:
            word = model.gramWord(token.text);
            break;
        case ModelToken::Kind::capitalWord:
            word = model.gramWord(token.text);
            word = word == unknownWord ? nameWord : word;
            break;
        case ModelToken::Kind::number:
            word = numberWord;
            break;
        case ModelToken::Kind::kept:
            word = nameWord;
            break;
        case ModelToken::Kind::sentenceStart:
            word = sentenceStart;
            break;
        }
        if (token.word >= 0) {
            const auto index = static_cast<size_t>(token.word);
            firstOf_[index] = firstOf_[index] < 0 ? static_cast<int>(words_.size()) : firstOf_[index];
            endOf_[index] = static_cast<int>(words_.size()) + 1;
        }
        words_.push_back(word);
    }
}

double SentenceScorer::score(size_t begin, size_t end, const std::vector<LanguageModel::Word>& middle) const {
    constexpr size_t before = longestGram - 1;
    constexpr size_t after = longestGram - 1;
    std::vector<LanguageModel::Word> window;
    window.reserve(middle.size() + before + after);
    size_t from = begin;
    while (from > 0 && begin - from < before) {
        --from;
        // Nothing before the start of a sentence counts.
        if (words_[from] == sentenceStart) {
            break;
        }
    }
    window.insert(window.end(), words_.begin() + static_cast<qsizetype>(from),
                  words_.begin() + static_cast<qsizetype>(begin));
    const size_t context = window.size();
    window.insert(window.end(), middle.begin(), middle.end());
    for (size_t at = end; at < words_.size() && at < end + after && words_[at] != sentenceStart; ++at) {
        window.push_back(words_[at]);
    }
    double sum = 0;
    for (size_t at = context; at < window.size(); ++at) {
        const size_t longest = std::min(at, before);
        sum += model_.logProbability(std::span(window).subspan(at - longest, longest), window[at]);
        sum += window[at] == unknownWord ? shareOfUnknown : 0;
    }
    return sum;
}

bool SentenceScorer::range(int first, int count, size_t* begin, size_t* end) const {
    const auto last = static_cast<size_t>(first + count - 1);
    if (first < 0 || count < 1 || last >= firstOf_.size() || firstOf_[static_cast<size_t>(first)] < 0 ||
        endOf_[last] < 0) {
        return false;
    }
    *begin = static_cast<size_t>(firstOf_[static_cast<size_t>(first)]);
    *end = static_cast<size_t>(endOf_[last]);
    return true;
}

double SentenceScorer::score(int first, int count, const QStringList& words) const {
    size_t begin = 0;
    size_t end = 0;
    if (!range(first, count, &begin, &end)) {
        return 0;
    }
    std::vector<LanguageModel::Word> middle;
    for (const QString& word : words) {
        for (const QByteArray& piece : modelPieces(word)) {
            middle.push_back(model_.gramWord(piece));
        }
    }
    return score(begin, end, middle);
}

double SentenceScorer::gain(int first, int count, const QStringList& words) const {
    size_t begin = 0;
    size_t end = 0;
    if (!range(first, count, &begin, &end)) {
        return 0;
    }
    return score(first, count, words) - score(begin, end,
                                              {words_.begin() + static_cast<qsizetype>(begin),
                                               words_.begin() + static_cast<qsizetype>(end)});
}

} // namespace vellumline
