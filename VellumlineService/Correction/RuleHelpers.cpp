#include "VellumlineService/Correction/RuleHelpers.h"

#include "VellumlineService/Correction/SentenceScorer.h"

#include <algorithm>

namespace vellumline {

Words words(const char* text) {
    const QStringList list = QString::fromLatin1(text).split(u' ', Qt::SkipEmptyParts);
    return {list.cbegin(), list.cend()};
}

Table table(const char* text) {
    Table made;
    const QStringList pairs = QString::fromLatin1(text).split(u' ', Qt::SkipEmptyParts);
    for (const QString& pair : pairs) {
        const qsizetype colon = pair.indexOf(u':');
        made.insert(pair.left(colon).replace(u'_', u' '), pair.mid(colon + 1).replace(u'_', u' '));
    }
    return made;
}

bool isAscii(const QString& word) {
    return std::all_of(word.cbegin(), word.cend(), [](QChar c) { return c.unicode() < 128; });
}

bool isProtected(const Token& token) {
    if (token.quotedAlone || token.hyphenated || !isAscii(token.lower)) {
        return true;
    }
    const auto capitals =
        std::count_if(token.text.cbegin(), token.text.cend(), [](QChar c) { return c.isUpper(); });
    return capitals > 1 || (capitals == 1 && !token.startsSentence);
}

bool isNoun(Tag tag) {
    return tag == Tag::noun || tag == Tag::pluralNoun || tag == Tag::name || tag == Tag::pluralName;
}

bool isFiniteVerb(Tag tag) {
    return tag == Tag::pastVerb || tag == Tag::presentVerb || tag == Tag::thirdPersonVerb ||
           tag == Tag::modal;
}

bool isVerb(Tag tag) {
    return isFiniteVerb(tag) || tag == Tag::baseVerb || tag == Tag::gerund || tag == Tag::participle;
}

bool isAdjective(Tag tag) {
    return tag == Tag::adjective || tag == Tag::comparativeAdjective || tag == Tag::superlativeAdjective;
}

bool isAdverb(Tag tag) {
    return tag == Tag::adverb || tag == Tag::comparativeAdverb || tag == Tag::superlativeAdverb;
}

bool isSubjectPronoun(const QString& lower) {
    static const Words pronouns = words("i he she it we you they");
    return pronouns.contains(lower);
}

bool isBe(const QString& lower) {
    static const Words forms = words("am is are was were be been being isn't aren't wasn't weren't");
    return forms.contains(lower);
}

std::optional<NounPhrase> nounPhraseEndingAt(const Line& line, int head) {
    static const Words indefinite =
        words("everyone everybody everything someone somebody something anyone anybody "
              "anything nobody nothing this these that those");
    if (head < 0 || head >= line.wordCount()) {
        return std::nullopt;
    }
    const QString word = line.lower(head);
    if (isSubjectPronoun(word) || indefinite.contains(word)) {
        return NounPhrase{head, head, true};
    }
    if (!isNoun(line.tag(head)) || line.cliticTag(head) != Tag::other || line.word(head).hyphenated) {
        return std::nullopt;
    }
    NounPhrase phrase{head, head, false};
    bool possessorsHead = false;
    for (int i = head - 1; i >= 0 && line.isNextTo(i + 1); --i) {
        const Tag tag = line.tag(i);
        const bool possessor = line.cliticTag(i) == Tag::possessive;
        if (possessor) {
            phrase.first = i;
            phrase.hasDeterminer = true;
            possessorsHead = true;
        } else if (tag == Tag::determiner || tag == Tag::possessivePronoun) {
            // "that" in front of a noun is mostly a conjunction where learners write.
            phrase.first = i;
            phrase.hasDeterminer = true;
            if (line.tag(i - 1) == Tag::predeterminer && line.isNextTo(i)) {
                phrase.first = i - 1;
            }
            return phrase;
        } else if (phrase.hasDeterminer && !possessorsHead) {
            return phrase;
        } else if (isNoun(tag) || isAdjective(tag) || tag == Tag::number ||
                   ((tag == Tag::participle || tag == Tag::gerund) && i > 0 && line.isNextTo(i) &&
                    (line.tag(i - 1) == Tag::determiner || line.tag(i - 1) == Tag::possessivePronoun ||
                     isAdjective(line.tag(i - 1)))) ||
                   (isAdverb(tag) && isAdjective(line.tag(i + 1)) && i > 0 &&
                    (line.tag(i - 1) == Tag::determiner || line.tag(i - 1) == Tag::possessivePronoun))) {
            phrase.first = i;
            possessorsHead = false;
        } else {
            return phrase;
        }
    }
    return phrase;
}

bool hasFiniteVerbBefore(const Line& line, int i) {
    for (int at = i - 1; at >= 0; --at) {
        if (isFiniteVerb(line.tag(at)) || isFiniteVerb(line.cliticTag(at))) {
            return true;
        }
        if (line.word(at).startsSentence) {
            return false;
        }
    }
    return false;
}

bool hasFiniteVerb(const Line& line, int i) {
    int at = sentenceStart(line, i);
    do {
        if (isFiniteVerb(line.tag(at)) || isFiniteVerb(line.cliticTag(at))) {
            return true;
        }
        ++at;
    } while (at < line.wordCount() && !line.word(at).startsSentence);
    return false;
}

double gainOf(const Line& line, const RuleTools& tools, int first, int count, const QStringList& words) {
    return SentenceScorer(tools.speller.model(), line).gain(first, count, words);
}

int sentenceStart(const Line& line, int i) {
    while (i > 0 && !line.word(i).startsSentence) {
        --i;
    }
    return i;
}

bool concludesCondition(const Line& line, int i) {
    static const Words conditions = words("if when whenever once unless");
    bool hasCondition = false;
    for (int k = sentenceStart(line, i); k < i; ++k) {
        hasCondition = hasCondition || conditions.contains(line.lower(k));
    }
    if (!hasCondition) {
        return false;
    }
    for (int k = i + 1; k < line.wordCount(); ++k) {
        if (isFiniteVerb(line.tag(k))) {
            return true;
        }
        if (line.endsClause(k)) {
            return false;
        }
    }
    return false;
}

} // namespace vellumline
