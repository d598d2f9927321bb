#pragma once

#include "VellumlineService/Correction/Candidates.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace vellumline {

class LanguageModel;
struct LanguagePack;

/// Which words exist, how common they are, and what a misspelt one was meant to be. Thread-safe.
class Speller {
  public:
    explicit Speller(const LanguagePack& pack);
    Speller(const Speller&) = delete;
    Speller& operator=(const Speller&) = delete;
    ~Speller();

    /// False when there is no dictionary of the language on this machine, or a model is needed and there is
    /// none.
    bool available() const { return problem_.isEmpty(); }
    /// Why it is not available, for the log.
    const QString& problem() const { return problem_; }
    /// Only of an available speller for a language that has a model.
    const LanguageModel& model() const { return *model_; }
    /// Lower-case words with straight apostrophes. Names are known as the dictionaries know them.
    bool isKnown(const QString& word) const;
    /// How often the word stood in the counted texts; 0 for a rare or unknown one.
    int frequency(const QString& lower) const;
    /// Nearly always a singular noun.
    bool isNoun(const QString& lower) const;
    /// Nearly always a verb in its base form.
    bool isVerb(const QString& lower) const;
    /// The known word that an unknown lower-case one is made of by a common ending or prefix ("founders" of
    /// "cofounders"); empty when there is none.
    QString derivedFrom(const QString& lower) const;
    /// What may have been meant by an unknown word, the likeliest first: lower-case words with a model, words
    /// as they are written without.
    std::shared_ptr<const std::vector<Candidate>> candidates(const QString& lower) const;

  private:
    std::vector<Candidate> suggestions(const QString& word) const;
    bool isListed(const QString& lower) const;
    bool isCompound(const QString& lower) const;
    bool inDictionary(const QString& word) const;

    struct Entry {
        QByteArray word;
        int count = 0;
        char wordClass = '-';
    };
    const Entry* entry(const QString& lower) const;

    QString problem_;
    std::unique_ptr<LanguageModel> model_;
    // The standard library's locks, as ThreadSanitizer does not see those of a Qt that it was not built into.
    // Hunspell keeps scratch state in the object, so that one call at a time is allowed.
    mutable std::mutex mutex_;
    struct Dictionary;
    std::vector<std::unique_ptr<Dictionary>> dictionaries_;
    std::vector<Entry> entries_; ///< Sorted by word.
    std::unique_ptr<CandidateFinder> finder_;
    mutable std::shared_mutex memory_;
    // What Hunspell said, so that threads rarely wait for it.
    mutable QHash<QString, bool> rememberedAnswers_;
    mutable QHash<QString, std::shared_ptr<const std::vector<Candidate>>> remembered_;
};

} // namespace vellumline
