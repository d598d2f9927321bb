#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QString>
#include <memory>
#include <vector>

class Hunspell;

namespace vellumline {

class LanguageModel;

/// Which words exist, how common they are, and what a misspelt one was meant to be. Thread-safe.
class Speller {
  public:
    Speller();
    Speller(const Speller&) = delete;
    Speller& operator=(const Speller&) = delete;
    ~Speller();

    /// False when there is no English dictionary on this machine, or no language model.
    bool available() const { return problem_.isEmpty(); }
    /// Why it is not available, for the log.
    const QString& problem() const { return problem_; }
    /// Only of an available speller.
    const LanguageModel& model() const { return *model_; }
    /// Lower-case words with straight apostrophes. Names are known as the dictionaries know them.
    bool isKnown(const QString& word) const;
    /// How often the word stood in the counted texts; 0 for a rare or unknown one.
    int frequency(const QString& lower) const;
    /// Nearly always a singular noun.
    bool isNoun(const QString& lower) const;
    /// Nearly always a verb in its base form.
    bool isVerb(const QString& lower) const;
    /// The most likely meant word for an unknown lower-case one; empty when nothing is likely enough.
    /// `cautious` asks for more certainty, for words that may be names.
    QString correction(const QString& lower, bool cautious) const;

    /// What it costs to have typed `typed` for `meant`: about 1 a slip, less for a likely one (a doubled
    /// letter, two letters swapped, a neighbouring key, one vowel for another). `limit` + 1 when it is more
    /// than `limit`.
    static double slipCost(const QByteArray& typed, const QByteArray& meant, double limit);

  private:
    bool isCompound(const QString& lower) const;
    bool inDictionary(const QString& word) const;

    struct Entry {
        QByteArray word;
        int count = 0;
        quint32 letters = 0; ///< One bit for each letter that the word has.
        char wordClass = '-';
    };
    const Entry* entry(const QString& lower) const;

    QString problem_;
    std::unique_ptr<LanguageModel> model_;
    // Hunspell keeps scratch state in the object, so that one call at a time is allowed.
    mutable QMutex mutex_;
    std::vector<std::unique_ptr<Hunspell>> dictionaries_;
    std::vector<Entry> entries_; ///< Sorted by word.
    mutable QHash<QString, QString> remembered_;
};

} // namespace vellumline
