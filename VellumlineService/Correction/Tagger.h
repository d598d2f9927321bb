#pragma once

#include <QtGlobal>
#include <string>
#include <string_view>
#include <vector>

namespace vellumline {

class Inflections;

/// What a word is in its sentence.
enum class Tag : quint8 {
    other, ///< Punctuation, figures' signs, and whatever stands in no row below.
    adjective,
    comparativeAdjective,
    superlativeAdjective,
    adverb,
    comparativeAdverb,
    superlativeAdverb,
    noun,
    pluralNoun,
    name,
    pluralName,
    baseVerb,
    pastVerb,
    gerund,
    participle,
    presentVerb, ///< Present tense, not third person singular.
    thirdPersonVerb,
    modal,
    pronoun,
    possessivePronoun,
    determiner,
    predeterminer,
    preposition, ///< Also conjunctions that subordinate.
    to,
    conjunction,
    number,
    possessive, ///< The 's of a possessor.
    whDeterminer,
    whPronoun,
    whPossessive,
    whAdverb,
    existential, ///< The there of "there is".
    particle,
    foreign,
    interjection,
};

/// Gives each word of a sentence its part of speech: an averaged perceptron, left to right. Thread-safe.
class Tagger {
  public:
    explicit Tagger(const Inflections& inflections);

    /// Words in UTF-8 with straight apostrophes, split as in treebanks: "do" "n't", "John" "'s", each sign
    /// alone.
    std::vector<Tag> tag(const std::vector<std::string>& words) const;

  private:
    struct Slot {
        quint32 hash;
        quint32 weights; ///< The first one; the upper 8 bits are how many. A weight has its tag in 6 bits.
    };
    const Inflections& inflections_;
    const Slot* slots_ = nullptr;
    const quint16* weights_ = nullptr;
    quint32 mask_ = 0;
    std::vector<std::string> names_;
    std::vector<Tag> tags_;
};

} // namespace vellumline
