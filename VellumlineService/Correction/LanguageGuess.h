#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace vellumline {

/// Tells the language of a text by its script and its small words ("the", "und", "les"), of which every
/// sentence has some. Thread-safe.
class LanguageGuess {
  public:
    /// `isEnglish` says whether a lower-case word is one that English uses often.
    explicit LanguageGuess(std::function<bool(const QString&)> isEnglish);

    /// The code of the language ("en", "de"); "en" also when nothing speaks for another one; empty for one
    /// that is not known here. Names say nothing: words with a capital count only where a sentence begins.
    QString of(QStringView text) const;
    /// Whether the words are so clearly of another language that they are left as they are in a text of
    /// `language`.
    bool isForeign(QStringView words, const QString& language) const;

  private:
    struct Guess {
        QString other;    ///< The likeliest language that is not English.
        double score = 0; ///< What speaks for it, in words.
        double english = 0;
        int words = 0;
        int unknown = 0; ///< Those that are no English words.
        bool foreignScript = false;
    };
    Guess guess(QStringView text) const;
    static bool isOther(const Guess& guess, double least);

    std::function<bool(const QString&)> isEnglish_;
    QStringList codes_;
    struct Evidence {
        std::vector<int> languages; ///< Places in `codes_`.
        double weight = 0;
    };
    QHash<QString, Evidence> words_;
};

} // namespace vellumline
