#pragma once

#include "VellumlineService/Correction/LanguageModel.h"

#include <QStringList>
#include <vector>

namespace vellumline {

class Line;

/// How much likelier a line becomes by a change of its words. Holds the line's words as they were when it was
/// made; make another one after a change.
class SentenceScorer {
  public:
    SentenceScorer(const LanguageModel& model, const Line& line);

    /// The natural logarithm of how many times likelier the line is with `words` (small letters, straight
    /// apostrophes, maybe none) in place of `count` words from `first` on. Above 0: likelier.
    double gain(int first, int count, const QStringList& words) const;
    /// The same for one word.
    double gain(int word, const QString& other) const { return gain(word, 1, {other}); }
    /// The natural logarithm of the probability of the words there, with the three words after them.
    double score(int first, int count, const QStringList& words) const;

  private:
    double score(size_t begin, size_t end, const std::vector<LanguageModel::Word>& middle) const;
    bool range(int first, int count, size_t* begin, size_t* end) const;

    const LanguageModel& model_;
    std::vector<LanguageModel::Word> words_;
    std::vector<int> firstOf_; ///< Where a word of the line begins in words_; one more entry for the end.
    std::vector<int> endOf_;
};

} // namespace vellumline
