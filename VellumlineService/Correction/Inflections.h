#pragma once

#include <QString>
#include <string>
#include <string_view>
#include <vector>

namespace vellumline {

/// A form that a word can be; the letters are those of the table.
enum class Form : char {
    base = 'b',
    past = 'd',
    participle = 'n',
    gerund = 'g',
    thirdPerson = 'z',
    singular = 's',
    plural = 'p',
    plain = 'a',
    comparative = 'r',
    superlative = 't',
};

/// The forms of English verbs, nouns, adjectives and adverbs. Thread-safe; words are in lower case.
class Inflections {
  public:
    Inflections();

    /// Whether the word can be that form of any lemma.
    bool is(const QString& word, Form form) const;
    /// Whether it is the form that a lemma prefers: of "drink" the participle is "drunk", and rarely "drank".
    bool prefers(const QString& word, Form form) const;
    /// The lemma that the word is a form of: one that prefers this form before others, a common one before a
    /// rare one. Empty when there is none.
    QString lemma(const QString& word, Form form) const;
    /// The preferred form of a lemma; empty when it has none.
    QString form(const QString& lemma, Form form) const;
    /// Another form of the same lemma, `from` being the form that the word is.
    QString changed(const QString& word, Form from, Form to) const;

    /// Whether a plain noun is counted ("a chair").
    bool isCounted(const QString& noun) const;
    /// Whether a plain noun is not counted ("furniture").
    bool isUncounted(const QString& noun) const;
    bool knows(const QString& word) const { return !readings(word.toStdString()).empty(); }
    /// All forms that the word can be, in the order of the tagger's features; "?" for none.
    std::string formClass(std::string_view lower) const;

  private:
    std::string_view readings(std::string_view word) const;
    bool hasCode(const QString& word, char code) const;

    struct Preferred {
        quint32 lemmaAndForm; ///< A hash.
        quint32 line;         ///< Where the form stands.
    };
    std::string_view data_;
    std::vector<Preferred> preferred_; ///< Sorted by hash.
};

} // namespace vellumline
