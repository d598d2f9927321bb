#include "VellumlineService/Correction/Candidates.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/SlipCost.h"

#include <algorithm>

namespace vellumline {

namespace {

constexpr size_t mostCandidates = 24;
// A word that no list has must stand this often in the texts.
constexpr int leastUnlisted = 12;
constexpr int leastName = 60;
constexpr double missingSpace = 0.75;
constexpr int leastOfSplit = 150;

// What two slips can change: a letter for another one changes two letters and four pairs.
constexpr int mostLetters = 4;
constexpr int mostNeighbours = 9;

// How much more than the cheapest one a candidate may cost: the words around outweigh no more.
constexpr double mostAboveBest = 1.2;

/// std::popcount without the processor's instruction, which not every machine has, is a call: an eighth of
/// the time.
int bitCount(quint64 bits) {
    bits -= (bits >> 1) & 0x5555555555555555ULL;
    bits = (bits & 0x3333333333333333ULL) + ((bits >> 2) & 0x3333333333333333ULL);
    bits = (bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0fULL;
    return static_cast<int>((bits * 0x0101010101010101ULL) >> 56);
}

} // namespace

CandidateFinder::Shape CandidateFinder::shapeOf(QByteArrayView word) {
    Shape shape;
    char before = 0;
    for (const char c : word) {
        shape.letters |= c >= 'a' && c <= 'z' ? quint32{1} << (c - 'a') : 0U;
        const auto pair = static_cast<quint64>(static_cast<uchar>(before)) * 31 + static_cast<uchar>(c);
        shape.neighbours |= quint64{1} << ((pair * 0x9e3779b97f4a7c15ULL) >> 58);
        before = c;
    }
    return shape;
}

CandidateFinder::CandidateFinder(const LanguageModel& model) : model_(model) {
    for (int i = 0; i < model.wordCount(); ++i) {
        const QByteArrayView word = model.text(i);
        const quint8 flags = model.flags(i);
        const bool listed = (flags & (LanguageModel::americanWord | LanguageModel::britishWord)) != 0;
        const bool name = (flags & LanguageModel::capitalWord) != 0;
        const bool plain =
            std::all_of(word.begin(), word.end(), [](char c) { return (c >= 'a' && c <= 'z') || c == '\''; });
        if (!plain || word.size() < 2 || word.size() > longest ||
            (!listed && (name || model.frequency(i) < leastUnlisted)) ||
            (name && model.frequency(i) < leastName)) {
            continue;
        }
        shapes_[word.size()].push_back(shapeOf(word));
        words_[word.size()].push_back(i);
    }
}

std::vector<Candidate> CandidateFinder::find(const QByteArray& typed, double limit) const {
    const int length = static_cast<int>(typed.size());
    if (length < 2 || length > longest) {
        return {};
    }
    const Shape shape = shapeOf(typed);
    std::vector<std::pair<double, int>> near;
    const int reach = length >= 6 ? 3 : 2;
    // Words of the same length first: a near one is soon found, and lowers the limit for the others.
    std::vector<int> sizes = {length};
    for (int step = 1; step <= reach; ++step) {
        sizes.insert(sizes.end(), {length - step, length + step});
    }
    for (const int size : sizes) {
        if (size < 2 || size > longest) {
            continue;
        }
        const std::vector<Shape>& shapes = shapes_[size];
        for (size_t i = 0; i < shapes.size(); ++i) {
            if (bitCount(shapes[i].letters ^ shape.letters) > mostLetters ||
                bitCount(shapes[i].neighbours ^ shape.neighbours) > mostNeighbours) {
                continue;
            }
            const int word = words_[size][i];
            const double cost = slipCost(typed, model_.text(word), limit);
            if (cost <= limit) {
                near.emplace_back(cost, word);
                limit = std::min(limit, cost + mostAboveBest);
            }
        }
    }
    std::erase_if(near, [&](const auto& one) { return one.first > limit; });
    // Frequent words first among the equally near: the rest is left out.
    const auto rank = [&](const std::pair<double, int>& one) {
        return one.first * 6 - std::log1p(model_.frequency(one.second));
    };
    std::sort(near.begin(), near.end(), [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    near.resize(std::min(near.size(), mostCandidates));
    std::vector<Candidate> found;
    found.reserve(near.size());
    for (const auto& [cost, word] : near) {
        found.push_back({QString::fromUtf8(model_.text(word)), cost, model_.flags(word)});
    }
    addSplits(typed, &found);
    return found;
}

void CandidateFinder::addSplits(const QByteArray& typed, std::vector<Candidate>* found) const {
    const auto frequent = [&](QByteArrayView part) {
        const int index = model_.find(part);
        const bool single = part == "a" || part == "i";
        return index >= 0 && model_.frequency(index) >= leastOfSplit && (part.size() > 1 || single) &&
               (single || (model_.flags(index) & LanguageModel::usualWord) != 0);
    };
    for (qsizetype at = 1; at < typed.size(); ++at) {
        const QByteArray left = typed.left(at);
        const QByteArray right = typed.mid(at);
        if (frequent(left) && frequent(right)) {
            found->push_back({QString::fromLatin1(left + ' ' + right), missingSpace,
                              LanguageModel::americanWord | LanguageModel::britishWord});
        }
    }
}

} // namespace vellumline
