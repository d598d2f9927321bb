#include "VellumlineService/Correction/Tagger.h"

#include "VellumlineService/Correction/EmbeddedData.h"
#include "VellumlineService/Correction/Inflections.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <unordered_map>

namespace vellumline {

namespace {

constexpr size_t mostTags = 64;

Tag tagByName(const std::string& name) {
    static const std::unordered_map<std::string, Tag> tags = {
        {"JJ", Tag::adjective},
        {"JJR", Tag::comparativeAdjective},
        {"JJS", Tag::superlativeAdjective},
        {"RB", Tag::adverb},
        {"RBR", Tag::comparativeAdverb},
        {"RBS", Tag::superlativeAdverb},
        {"NN", Tag::noun},
        {"NNS", Tag::pluralNoun},
        {"NNP", Tag::name},
        {"NNPS", Tag::pluralName},
        {"VB", Tag::baseVerb},
        {"VBD", Tag::pastVerb},
        {"VBG", Tag::gerund},
        {"VBN", Tag::participle},
        {"VBP", Tag::presentVerb},
        {"VBZ", Tag::thirdPersonVerb},
        {"MD", Tag::modal},
        {"PRP", Tag::pronoun},
        {"PRP$", Tag::possessivePronoun},
        {"DT", Tag::determiner},
        {"PDT", Tag::predeterminer},
        {"IN", Tag::preposition},
        {"TO", Tag::to},
        {"CC", Tag::conjunction},
        {"CD", Tag::number},
        {"POS", Tag::possessive},
        {"WDT", Tag::whDeterminer},
        {"WP", Tag::whPronoun},
        {"WP$", Tag::whPossessive},
        {"WRB", Tag::whAdverb},
        {"EX", Tag::existential},
        {"RP", Tag::particle},
        {"FW", Tag::foreign},
        {"UH", Tag::interjection},
    };
    const auto found = tags.find(name);
    return found == tags.end() ? Tag::other : found->second;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}

char shapeOf(const std::string& word) {
    if (std::any_of(word.begin(), word.end(), isDigit)) {
        return 'd';
    }
    const bool upper = std::any_of(word.begin(), word.end(), isUpper);
    if (word.size() > 1 && upper && std::none_of(word.begin(), word.end(), isLower)) {
        return 'U';
    }
    if (isUpper(word.front())) {
        return 'C';
    }
    return isLower(word.front()) || (word.front() & 0x80) != 0 ? 'w' : 'p';
}

std::string lowered(std::string word) {
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char c) { return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; });
    return word;
}

std::string_view ending(std::string_view word, size_t size) {
    return word.substr(word.size() - std::min(size, word.size()));
}

quint32 hashOf(std::initializer_list<std::string_view> pieces) {
    quint32 value = 2166136261U;
    for (const std::string_view piece : pieces) {
        for (const char c : piece) {
            value = (value ^ static_cast<unsigned char>(c)) * 16777619U;
        }
    }
    return value == 0 ? 1 : value;
}

} // namespace

Tagger::Tagger(const Inflections& inflections) : inflections_(inflections) {
    const std::string_view data = taggerData();
    quint32 header[3];
    std::memcpy(header, data.data() + 8, sizeof header);
    const char* at = data.data() + 8 + sizeof header;
    for (quint32 i = 0; i < header[0] && i < mostTags; ++i, at += 8) {
        names_.emplace_back(at, strnlen(at, 8));
        tags_.push_back(tagByName(names_.back()));
    }
    mask_ = header[1] - 1;
    slots_ = reinterpret_cast<const Slot*>(at);
    weights_ = reinterpret_cast<const quint16*>(slots_ + header[1]);
}

std::vector<Tag> Tagger::tag(const std::vector<std::string>& words) const {
    const std::string none = "-";
    std::vector<std::string> lows;
    std::vector<std::string> kinds;
    std::string shapes;
    lows.reserve(words.size());
    kinds.reserve(words.size());
    for (const std::string& word : words) {
        lows.push_back(lowered(word));
        kinds.push_back(inflections_.formClass(lows.back()));
        shapes += shapeOf(word);
    }
    std::vector<Tag> found;
    found.reserve(words.size());
    std::string_view one = none;
    std::string_view two = none;
    const auto at = [&](const std::vector<std::string>& values, size_t i) -> const std::string& {
        return i < values.size() ? values[i] : none;
    };
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& low = lows[i];
        const std::string& kind = kinds[i];
        const std::string& before = i > 0 ? lows[i - 1] : none;
        const std::string& next = at(lows, i + 1);
        const std::string& nextKind = at(kinds, i + 1);
        const std::string_view shape(&shapes[i], 1);
        const std::array<quint32, 20> features = {
            hashOf({"a", low}),
            hashOf({"b", ending(low, 3)}),
            hashOf({"c", ending(low, 2)}),
            hashOf({"d", kind, shape, i == 0 ? "1" : "0"}),
            hashOf({"e", one}),
            hashOf({"f", one, " ", two}),
            hashOf({"g", one, " ", low}),
            hashOf({"h", before}),
            hashOf({"i", next}),
            hashOf({"j", next, " ", low}),
            hashOf({"k", nextKind, " ", kind}),
            hashOf({"l", one, " ", kind}),
            hashOf({"m", ending(next, 3), " ", nextKind}),
            hashOf({"n", i > 1 ? lows[i - 2] : none}),
            hashOf({"o", at(lows, i + 2)}),
            hashOf({"p", one, " ", nextKind}),
            hashOf({"q", one, " ", kind, " ", next}),
            hashOf({"r", std::string_view(low).substr(0, 3)}),
            hashOf({"s", before, " ", kind}),
            hashOf({"t", one, " ", ending(low, 3), " ", shape}),
        };
        std::array<int, mostTags> scores{};
        for (const quint32 feature : features) {
            for (quint32 slot = feature & mask_; slots_[slot].hash != 0; slot = (slot + 1) & mask_) {
                if (slots_[slot].hash != feature) {
                    continue;
                }
                const quint16* weight = weights_ + (slots_[slot].weights & 0xFFFFFFU);
                const quint16* end = weight + (slots_[slot].weights >> 24U);
                for (; weight != end; ++weight) {
                    scores[*weight & 63U] += (*weight >> 6U) - 512;
                }
                break;
            }
        }
        const auto best = static_cast<size_t>(
            std::max_element(scores.begin(), scores.begin() + static_cast<ptrdiff_t>(tags_.size())) -
            scores.begin());
        found.push_back(tags_[best]);
        two = one;
        one = names_[best];
    }
    return found;
}

} // namespace vellumline
