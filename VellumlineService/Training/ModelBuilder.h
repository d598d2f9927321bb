#pragma once

#include "VellumlineService/Correction/Inflections.h"
#include "VellumlineService/Correction/Tagger.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <vector>

namespace vellumline {

/// Makes the file that LanguageModel reads, from sentences and lists of words. The same input gives the same
/// bytes.
class ModelBuilder {
  public:
    /// How an n-gram that is too rare to be kept is told from the others.
    struct Cutoffs {
        int word = 3; ///< A word that stands less often has no number of its own.
        int pair = 1;
        int triple = 2;
        int four = 2;
    };

    /// A line of a corpus. `weight`: how often it counts; for the cutoffs every line counts once.
    void addLine(const QString& text, int weight);
    /// A word of a word list; `flags` as in LanguageModel::WordFlag.
    void addListedWord(const QString& word, quint8 flags);
    bool write(const QString& path, const Cutoffs& cutoffs, QString* report);

  private:
    struct Type {
        double small = 0;   ///< Weighted occurrences in small letters, or at the start of a sentence.
        double capital = 0; ///< Weighted occurrences with a capital inside a sentence.
        int seen = 0;
        quint8 flags = 0;
        bool listedSmall = false;
        bool listedCapital = false;
    };
    quint32 typeOf(const QByteArray& text);

    // A Line wants a tagger, which is never asked here.
    Inflections inflections_;
    Tagger tagger_{inflections_};
    QHash<QByteArray, quint32> numbers_;
    std::vector<QByteArray> texts_;
    std::vector<Type> types_;
    std::vector<quint32> tokens_; ///< Type number * 2 + 1 when with a capital; the special ones above them.
    std::vector<quint8> weights_; ///< Of each token.
};

} // namespace vellumline
