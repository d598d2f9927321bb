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

} // namespace

void spaceBeforeSign(Line& line, const RuleTools&) {
    line.closeUpSigns();
}

void introductoryComma(Line& line, const RuleTools&) {
    static const Words single =
        words("however moreover furthermore therefore nevertheless nonetheless consequently additionally "
              "firstly secondly "
              "thirdly lastly finally also besides unfortunately nowadays similarly likewise "
              "second third actually obviously overall");
    static const Words phrases =
        words("for_example for_instance in_addition in_conclusion in_fact in_general "
              "in_contrast in_short in_summary above_all");
    static const Words longPhrases =
        words("in_my_opinion as_a_result on_the_contrary first_of_all in_other_words "
              "as_a_consequence in_this_case by_the_way in_my_view all_in_all to_sum_up");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (!token.startsSentence || token.hyphenated) {
            continue;
        }
        const QString one = token.lower;
        const QString two = one + u'_' + line.follows(i + 1);
        const QString three = two + u'_' + line.follows(i + 2);
        const QString four = three + u'_' + line.follows(i + 3);
        int last = -1;
        if (is(four, "on_the_other_hand")) {
            last = i + 3;
        } else if (longPhrases.contains(three)) {
            last = i + 2;
        } else if (phrases.contains(two)) {
            last = i + 1;
        } else if (single.contains(one)) {
            last = i;
        }
        if (last < 0 || !line.isNextTo(last + 1)) {
            continue;
        }
        const QString next = line.lower(last + 1);
        const bool ordinal = is(one, "second") || is(one, "third");
        const bool clause = last > i && words("if when because although while").contains(next);
        const bool pronounOnly = is(one, "besides") || is(one, "hence") || is(one, "also");
        if (clause || (startsSubject(line, last + 1) && !(ordinal && isNoun(line.tag(last + 1))) &&
                       !(pronounOnly && !isSubjectPronoun(next) && line.tag(last + 1) != Tag::existential))) {
            line.insertSignAfter(last, u',');
        }
    }
}

void commaBeforeBut(Line& line, const RuleTools&) {
    for (int i = 2; i + 2 < line.wordCount(); ++i) {
        if (!is(line.follows(i), "but") || line.before(i).isEmpty() || !hasFiniteVerbBefore(line, i)) {
            continue;
        }
        const bool clause = isSubjectPronoun(line.follows(i + 1)) && line.isNextTo(i + 2) &&
                            (isFiniteVerb(line.tag(i + 2)) || isFiniteVerb(line.cliticTag(i + 1)));
        if (clause && !isSubjectPronoun(line.before(i)) && i - sentenceStart(line, i) >= 5) {
            line.insertSignAfter(i - 1, u',');
        }
    }
}

void commaAfterIfClause(Line& line, const RuleTools&) {
    static const Words openers =
        words("if when although though because while since once after before unless");
    static const Words notBefore =
        words("and or but that which who if when because than as what where how why so "
              "whether until like although while though all");
    for (int start = 0; start + 5 < line.wordCount(); ++start) {
        if (!line.word(start).startsSentence || !openers.contains(line.lower(start))) {
            continue;
        }
        bool verb = false;
        for (int i = start + 1; i + 1 < line.wordCount() && line.isNextTo(i); ++i) {
            const QString word = line.lower(i);
            const QString before = line.lower(i - 1);
            const bool subject = isSubjectPronoun(word);
            const bool modal = line.tag(i + 1) == Tag::modal || line.cliticTag(i) == Tag::modal;
            if (verb && subject && modal && line.isNextTo(i + 1) && !notBefore.contains(before) &&
                i > start + 3 && !isFiniteVerb(line.tag(i - 1)) && line.tag(i - 1) != Tag::preposition) {
                line.insertSignAfter(i - 1, u',');
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
