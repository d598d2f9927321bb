#pragma once

#include "VellumlineService/Correction/Tagger.h"

#include <QString>
#include <functional>
#include <utility>
#include <vector>

namespace vellumline {

struct Token {
    enum class Kind {
        word,        ///< Letters, with apostrophes between them.
        space,       ///< Any run of white space.
        punctuation, ///< One character.
        kept,        ///< An address, path, number, code: never changed.
    };
    Kind kind = Kind::kept;
    QString text;
    QString lower; ///< Of a word: lower case with straight apostrophes.
    bool startsSentence = false;
    bool hyphenated = false;  ///< A part of a hyphenated word.
    bool quotedAlone = false; ///< The only word between two quotes: a word that is talked about.
};

/// One line of text as tokens; joined again they are the line, character for character.
class Line {
  public:
    /// What one change did, for the writer's eye.
    struct Edit {
        QString before;
        QString after;
    };

    Line(const QString& text, bool startsSentence, const Tagger& tagger);

    QString text() const;
    bool looksLikeCode() const { return looksLikeCode_; }
    /// Whether a path, a call or the like stands among the words.
    bool hasCodeInside() const;
    /// Whether what follows this line begins a sentence.
    bool endsSentence() const;

    /// Makes words, given by their index, unchangeable. Before any change.
    void keep(const std::function<bool(int)>& condition);
    /// The index of the first word behind each opening quote and of the one behind the last word of the
    /// quote.
    std::vector<std::pair<int, int>> quotes() const;
    /// Whether the word stands in one of them.
    bool isQuoted(int i) const;
    const std::vector<Token>& tokens() const { return tokens_; }
    /// The tokens that are words, in order.
    int wordCount() const { return static_cast<int>(words_.size()); }
    Token& word(int i) { return tokens_[static_cast<size_t>(words_[static_cast<size_t>(i)])]; }
    const Token& word(int i) const { return tokens_[static_cast<size_t>(words_[static_cast<size_t>(i)])]; }
    /// The lower-case word at an index when only one space stands between it and the word before; else empty.
    /// Out of range is empty too, so that rules need no bounds.
    QString follows(int i) const;
    /// The lower-case word at an index; empty out of range.
    QString lower(int i) const;
    /// The lower-case word before `i` when only one space stands between; else empty.
    QString before(int i) const;
    /// What the word at an index is; of "don't" and "John's" the first part. `Tag::other` out of range.
    Tag tag(int i) const;
    /// The part behind the apostrophe: `Tag::possessive` in "John's book"; `Tag::other` where there is none.
    Tag cliticTag(int i) const;
    /// What stands between the word and the one before.
    QString gapBefore(int i) const;
    /// Whether only one space stands between the word and the one before.
    bool isNextTo(int i) const { return !follows(i).isEmpty(); }
    /// Whether a sentence's or clause's punctuation, or the line's end, follows the word.
    bool endsClause(int i) const;
    /// The punctuation right after the word; null when none is.
    QChar punctuationAfter(int i) const;

    /// Puts another word there; its case and the form of its apostrophe follow the text.
    void replace(int i, const QString& lowerWord);
    /// As it stands, for "I" and names.
    void replaceExactly(int i, const QString& word);
    /// Puts a lower-case word in front of the word at an index, with a space; at the start of a sentence the
    /// capital moves.
    void insertBefore(int i, const QString& lowerWord);
    /// Puts a sign right behind the word.
    void insertSignAfter(int i, QChar sign);
    /// Takes away the space in front of commas and stops, and puts one behind a comma that a word follows.
    void closeUpSigns();
    /// Makes the last full stop a question mark.
    void endWithQuestionMark();
    /// Takes a word out with the space before it, or after it at the start.
    void remove(int i);
    /// How many changes were made until now.
    int changeCount() const { return changeCount_; }
    /// The changes since the last call.
    std::vector<Edit> takeEdits();

  private:
    void tokenize(const QString& text);
    void index(bool startsSentence);
    void changed(const QString& before, const QString& after);
    void tagAll() const;

    std::vector<Token> tokens_;
    std::vector<int> words_;
    std::vector<Edit> edits_;
    int changeCount_ = 0;
    const Tagger& tagger_;
    // The tags of the words, made when they are asked for; empty after a change.
    mutable std::vector<std::pair<Tag, Tag>> tags_;
    const bool startsSentence_;
    bool looksLikeCode_ = false;
    bool curlyApostrophes_ = false;
};

} // namespace vellumline
