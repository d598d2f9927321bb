#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

namespace vellumline {

namespace {

/// Whether the word can begin a clause: "however the", "for example they".
bool startsSubject(const Line& line, int i) {
    const Tag tag = line.tag(i);
    const QString word = line.lower(i);
    return isSubjectPronoun(word) || tag == Tag::determiner || tag == Tag::possessivePronoun ||
           tag == Tag::existential || tag == Tag::pluralNoun ||
           (tag == Tag::pronoun && line.cliticTag(i) != Tag::other) ||
           ((tag == Tag::name || tag == Tag::noun) && (isVerb(line.tag(i + 1)) || tag == Tag::name));
}

/// Whether a comma or another sign stands between the word and the end of its sentence.
bool hasCommaBehind(const Line& line, int i) {
    for (int at = i + 1; at < line.wordCount() && !line.word(at).startsSentence; ++at) {
        if (!line.isNextTo(at)) {
            return true;
        }
    }
    return false;
}

bool hasFiniteVerbBehind(const Line& line, int i) {
    for (int at = i + 1; at < line.wordCount() && !line.word(at).startsSentence; ++at) {
        if (isFiniteVerb(line.tag(at))) {
            return true;
        }
    }
    return false;
}

// Shorter phrases stand without a comma as often as with one: "In May we left".
constexpr int leastPhrase = 5;

} // namespace

void spaceBeforeSign(Line& line, const RuleTools&) {
    line.closeUpSigns();
}

void introductoryComma(Line& line, const RuleTools&) {
    // What a comma follows always, and what one follows only before a subject.
    static const Words always =
        words("moreover furthermore nevertheless nonetheless consequently additionally firstly "
              "secondly thirdly lastly");
    static const Words single =
        words("however therefore finally also besides unfortunately fortunately nowadays "
              "similarly likewise second third actually obviously overall");
    static const Words phrases =
        words("for_example for_instance in_addition in_conclusion in_fact in_general "
              "in_contrast in_short in_summary above_all");
    static const Words longPhrases = words(
        "in_my_opinion as_a_result on_the_contrary first_of_all in_other_words at_the_same_time "
        "as_a_consequence in_this_case by_the_way in_my_view all_in_all to_sum_up to_my_surprise "
        "for_this_reason for_these_reasons in_this_way in_that_case as_we_know in_the_end in_this_situation");
    static const Words notAfterPhrase = words("of to and or that than is was for as when");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (!token.startsSentence || token.hyphenated) {
            continue;
        }
        // "And in my opinion the …"
        const bool joined = (is(token.lower, "and") || is(token.lower, "but") || is(token.lower, "so")) &&
                            line.isNextTo(i + 1);
        const int start = joined ? i + 1 : i;
        const QString one = line.lower(start);
        const QString two = one + u'_' + line.follows(start + 1);
        const QString three = two + u'_' + line.follows(start + 2);
        const QString four = three + u'_' + line.follows(start + 3);
        int last = -1;
        if (is(four, "on_the_other_hand")) {
            last = start + 3;
        } else if (longPhrases.contains(three)) {
            last = start + 2;
        } else if (phrases.contains(two)) {
            last = start + 1;
        } else if (!joined && (single.contains(one) || always.contains(one))) {
            last = start;
        }
        if (last < 0 || !line.isNextTo(last + 1)) {
            continue;
        }
        const QString next = line.lower(last + 1);
        const bool ordinal = is(one, "second") || is(one, "third");
        const bool clause = last > start && words("if when because although while").contains(next);
        const bool pronounOnly = is(one, "besides") || is(one, "also");
        const bool surely = (last > start || always.contains(one)) && !notAfterPhrase.contains(next) &&
                            (line.tag(last + 1) == Tag::preposition || isAdjective(line.tag(last + 1)) ||
                             isAdverb(line.tag(last + 1)) || isNoun(line.tag(last + 1)));
        if (clause || surely ||
            (startsSubject(line, last + 1) && !(ordinal && isNoun(line.tag(last + 1))) &&
             !(pronounOnly && !isSubjectPronoun(next) && line.tag(last + 1) != Tag::existential))) {
            line.insertSignAfter(last, u',');
        }
    }
}

void commaAfterPhrase(Line& line, const RuleTools&) {
    static const Words openers =
        words("in after before during for with without by from at on despite since among "
              "through throughout unlike as besides because");
    for (int start = 0; start + 5 < line.wordCount(); ++start) {
        if (!line.word(start).startsSentence) {
            continue;
        }
        const int opener =
            is(line.lower(start), "so") || is(line.lower(start), "but") || is(line.lower(start), "and")
                ? start + 1
                : start;
        if (!openers.contains(line.lower(opener)) || (opener > start && !line.isNextTo(opener)) ||
            (is(line.lower(opener), "because") && !is(line.follows(opener + 1), "of"))) {
            continue;
        }
        // The phrase has no verb of its own; a subject and its verb come behind it.
        for (int i = opener + 1; i + 1 < line.wordCount() && line.isNextTo(i) && !line.word(i).startsSentence;
             ++i) {
            const bool subject = isSubjectPronoun(line.lower(i)) || line.tag(i) == Tag::existential;
            const bool verb = isFiniteVerb(line.tag(i + 1)) || isFiniteVerb(line.cliticTag(i));
            if (subject && verb && line.isNextTo(i + 1)) {
                const Tag before = line.tag(i - 1);
                if (i - opener >= leastPhrase && (isNoun(before) || before == Tag::number) &&
                    !hasCommaBehind(line, i)) {
                    line.insertSignAfter(i - 1, u',');
                }
                break;
            }
            if (isVerb(line.tag(i)) || line.cliticTag(i) == Tag::modal || subject ||
                line.tag(i) == Tag::whDeterminer || line.tag(i) == Tag::whPronoun ||
                line.tag(i) == Tag::whAdverb) {
                break;
            }
        }
    }
}

void commaBeforeBut(Line& line, const RuleTools&) {
    for (int i = 2; i + 2 < line.wordCount(); ++i) {
        if (!is(line.follows(i), "but") || line.before(i).isEmpty() || !hasFiniteVerbBefore(line, i)) {
            continue;
        }
        const bool subject = isSubjectPronoun(line.follows(i + 1)) || line.tag(i + 1) == Tag::existential;
        bool clause = subject && line.isNextTo(i + 2) &&
                      (isFiniteVerb(line.tag(i + 2)) || isFiniteVerb(line.cliticTag(i + 1)));
        if (line.tag(i + 1) == Tag::determiner || line.tag(i + 1) == Tag::possessivePronoun) {
            int at = i + 2;
            while (at < line.wordCount() && line.isNextTo(at) &&
                   (isAdjective(line.tag(at)) || isNoun(line.tag(at)))) {
                ++at;
            }
            clause = at > i + 2 && at < line.wordCount() && line.isNextTo(at) && isFiniteVerb(line.tag(at));
        }
        if (clause && !isSubjectPronoun(line.before(i)) && i - sentenceStart(line, i) >= 5) {
            line.insertSignAfter(i - 1, u',');
        }
    }
}

void commaAfterIfClause(Line& line, const RuleTools&) {
    static const Words openers =
        words("if when although though because while since once after before unless whenever");
    static const Words notBefore =
        words("and or but that which who if when because than as what where how why so "
              "whether until like although while though all");
    for (int start = 0; start + 5 < line.wordCount(); ++start) {
        if (!line.word(start).startsSentence || !openers.contains(line.lower(start))) {
            continue;
        }
        bool verb = false;
        for (int i = start + 1; i + 1 < line.wordCount() && line.isNextTo(i) && !line.word(i).startsSentence;
             ++i) {
            const bool subject = isSubjectPronoun(line.lower(i)) || line.tag(i) == Tag::existential;
            const bool modal = line.tag(i + 1) == Tag::modal || line.cliticTag(i) == Tag::modal;
            // "When the man she loves comes": a clause may stand behind a noun, and another verb behind it.
            const bool finite = (isFiniteVerb(line.tag(i + 1)) || isFiniteVerb(line.cliticTag(i))) &&
                                !hasCommaBehind(line, i) && !hasFiniteVerbBehind(line, i + 1);
            if (verb && subject && (modal || finite) && line.isNextTo(i + 1) &&
                !notBefore.contains(line.lower(i - 1)) && i > start + 3 && !isVerb(line.tag(i - 1)) &&
                line.tag(i - 1) != Tag::preposition) {
                // "then" belongs to the clause that follows.
                line.insertSignAfter(is(line.lower(i - 1), "then") ? i - 2 : i - 1, u',');
                break;
            }
            verb = verb || isFiniteVerb(line.tag(i)) || isFiniteVerb(line.cliticTag(i));
        }
    }
}

void questionMark(Line& line, const RuleTools&) {
    static const Words asking = words("where when why who what how which");
    static const Words inverted =
        words("do does did is are was were will would can could should have has don't doesn't "
              "didn't isn't aren't");
    const int last = line.wordCount() - 1;
    if (last < 3) {
        return;
    }
    const int start = sentenceStart(line, last);
    const QString verb = line.follows(start + 1);
    const bool subject = isSubjectPronoun(line.follows(start + 2));
    const bool asked = asking.contains(line.lower(start)) && inverted.contains(verb) && subject;
    const bool plain = words("do does did don't didn't can could will would").contains(line.lower(start)) &&
                       isSubjectPronoun(verb) && !is(line.lower(start), "may") &&
                       line.tag(start + 2) == Tag::baseVerb;
    bool comma = false;
    for (int i = start + 1; i <= last; ++i) {
        comma = comma || !line.isNextTo(i);
    }
    if ((asked || plain) && !comma) {
        line.endWithQuestionMark();
    }
}

} // namespace vellumline
