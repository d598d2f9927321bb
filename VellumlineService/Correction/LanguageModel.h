#pragma once

#include "VellumlineService/Correction/ModelFormat.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <memory>
#include <span>

namespace vellumline {

/// The words of a language with their frequencies, and how likely a word is after up to three others. The
/// file is mapped, not read: its pages are shared by all processes. Nothing changes after opening, so that
/// any number of threads may ask at once.
class LanguageModel {
  public:
    /// The number of a word in n-grams. Only the frequent words have one of their own.
    using Word = quint16;

    enum WordFlag : quint8 {
        americanWord = 1, ///< In an American word list.
        britishWord = 2,  ///< In a British word list.
        capitalWord = 4,  ///< Written with a capital inside a sentence.
        usualWord = 8,    ///< In a list of words that most people know.
    };

    /// Null, with a reason in `error`, for a file that is missing, damaged, or of another version.
    static std::unique_ptr<LanguageModel> open(const QString& path, QString* error);

    /// Index of a lower-case word in UTF-8 among all words; -1 for an unknown one.
    int find(QByteArrayView lower) const;
    int wordCount() const { return static_cast<int>(header_.words); }
    /// In UTF-8. The indices are from 0 to wordCount() - 1 in what follows.
    QByteArrayView text(int index) const;
    /// How often the word stood in the counted texts, within 4 %; newer texts count twice.
    int frequency(int index) const { return modelformat::unpackCount(frequencies_[index]); }
    quint8 flags(int index) const { return flags_[index]; }
    /// The n-gram number; modelformat::unknownWord for an infrequent word.
    Word gramWord(int index) const;
    /// The same for a lower-case word.
    Word gramWord(QByteArrayView lower) const;

    /// The natural logarithm of the probability of `word` after `context` (its last three words count).
    double logProbability(std::span<const Word> context, Word word) const;

  private:
    LanguageModel() = default;
    struct Gram {
        float probability;
        float backoff;
    };
    bool map(const QString& path, QString* error);
    bool lookUp(int length, quint64 key, Gram* gram) const;

    QFile file_;
    modelformat::Header header_;
    const uchar* offsets_ = nullptr;
    const uchar* gramWords_ = nullptr;
    const uchar* frequencies_ = nullptr;
    const uchar* flags_ = nullptr;
    const uchar* text_ = nullptr;
    const uchar* single_ = nullptr;
    const uchar* tables_[modelformat::longestGram + 1] = {};
};

} // namespace vellumline
