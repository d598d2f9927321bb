#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

namespace vellumline {

class LanguageModel;

/// A word, or two, that may have been meant.
struct Candidate {
    QString text;     ///< In small letters; two words have a space between.
    double cost = 0;  ///< As slipCost tells it.
    quint8 flags = 0; ///< LanguageModel::WordFlag of the word; of two words, what both have.
};

/// Finds the words of a model that are a few slips away. Thread-safe.
class CandidateFinder {
  public:
    explicit CandidateFinder(const LanguageModel& model);

    /// The cheapest ones up to a cost, the best first. `typed` in small letters, Latin-1.
    std::vector<Candidate> find(const QByteArray& typed, double limit) const;

  private:
    void addSplits(const QByteArray& typed, std::vector<Candidate>* found) const;

    const LanguageModel& model_;
    // The words by length, and of each the letters and the neighbours of letters that it has, one bit each.
    // Comparing those leaves about one word in 2000, so that no index of deletions need be built or kept.
    struct Shape {
        quint32 letters = 0;
        quint64 neighbours = 0;
    };
    static Shape shapeOf(QByteArrayView word);
    static constexpr int longest = 30;
    std::vector<Shape> shapes_[longest + 1];
    std::vector<int> words_[longest + 1];
};

} // namespace vellumline
