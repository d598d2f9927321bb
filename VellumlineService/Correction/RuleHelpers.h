#pragma once

#include "VellumlineService/Correction/Rules.h"

#include <QHash>
#include <QSet>
#include <optional>

namespace vellumline {

using Words = QSet<QString>;
using Table = QHash<QString, QString>;

/// The words of a text with spaces between them.
Words words(const char* text);
/// "wrong:right wrong:right", with "_" for a space.
Table table(const char* text);

inline bool is(const QString& word, const char* text) {
    return word == QLatin1String(text);
}
bool isAscii(const QString& word);
/// A name, an acronym, a word that is talked about, a part of a compound: not ours to judge.
bool isProtected(const Token& token);

bool isNoun(Tag tag);       ///< Common nouns and names.
bool isFiniteVerb(Tag tag); ///< With tense; modal verbs too.
bool isVerb(Tag tag);
bool isAdjective(Tag tag);
bool isAdverb(Tag tag);
/// i, he, she, it, we, you, they.
bool isSubjectPronoun(const QString& lower);
/// A form of be; with "n't" too.
bool isBe(const QString& lower);

/// Words that belong to one noun: "the three old men".
struct NounPhrase {
    int first = 0;
    int head = 0;
    bool hasDeterminer = false;
};
/// The noun phrase whose head is the word at `head`; none when that is no noun or pronoun.
std::optional<NounPhrase> nounPhraseEndingAt(const Line& line, int head);

/// Whether a finite verb stands between the sentence's start and the word.
bool hasFiniteVerbBefore(const Line& line, int i);
/// Whether the sentence that the word is in has a finite verb.
bool hasFiniteVerb(const Line& line, int i);
/// Whether the "then" at `i` can lead from a condition to its clause: "If it costs more then we wait".
bool concludesCondition(const Line& line, int i);
/// How much likelier the line is with other words in place of `count` of its own (natural logarithm).
double gainOf(const Line& line, const RuleTools& tools, int first, int count, const QStringList& words);
/// The first word of the sentence that the word is in.
int sentenceStart(const Line& line, int i);

} // namespace vellumline
