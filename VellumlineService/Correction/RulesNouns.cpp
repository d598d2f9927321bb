#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

namespace vellumline {

namespace {

const Words& measures() {
    static const Words made =
        words("hundred thousand million billion dozen score half hour pair percent foot pound "
              "head kind sort type couple fold time way");
    return made;
}

/// A plain singular noun that is counted, with nothing behind it that it could belong to.
bool isCountedSingular(const Line& line, int i, const RuleTools& tools) {
    const QString noun = line.lower(i);
    if (i >= line.wordCount() || isProtected(line.word(i)) || line.tag(i) != Tag::noun ||
        line.cliticTag(i) != Tag::other || !tools.inflections.is(noun, Form::singular) ||
        tools.inflections.is(noun, Form::plural) || tools.inflections.isUncounted(noun) ||
        measures().contains(noun)) {
        return false;
    }
    const QString plural = tools.inflections.form(noun, Form::plural);
    // A noun whose plural is rare is not counted ("two percent", "many evidence").
    if (plural.isEmpty() || plural == noun ||
        tools.speller.frequency(plural) * 8 < tools.speller.frequency(noun)) {
        return false;
    }
    if (!line.isNextTo(i + 1)) {
        const QString gap = line.gapBefore(i + 1);
        return gap.isEmpty() || !QStringView(u"'’-–/(").contains(gap.front());
    }
    const Tag next = line.tag(i + 1);
    return !tools.inflections.is(line.lower(i + 1), Form::plural) && !isNoun(next) && !isAdjective(next) &&
           next != Tag::gerund && next != Tag::number;
}

void makePlural(Line& line, int i, const RuleTools& tools) {
    line.replace(i, tools.inflections.form(line.lower(i), Form::plural));
}

// What is sometimes counted is mostly weighed after these words ("lots of hardship").
constexpr double leastShareAfterLots = 0.5;
// "There are a lot of car": the verb says that they are counted.
constexpr double leastShareAfterThere = 0.25;
constexpr double leastGainAfterLots = 2;

bool isPluralVerb(const Line& line, int i) {
    static const Words verbs = words("are were have do aren't weren't haven't don't");
    return verbs.contains(line.follows(i)) || line.tag(i) == Tag::presentVerb;
}

bool startsPhrase(const Line& line, int i) {
    const Tag before = line.tag(i - 1);
    return line.before(i).isEmpty() ||
           !(before == Tag::determiner || before == Tag::possessivePronoun || before == Tag::number ||
             line.cliticTag(i - 1) == Tag::possessive || isAdjective(before));
}

/// Skips the adjectives of a noun phrase: the index of the first word that is none.
int skipAdjectives(const Line& line, int i) {
    for (int most = 2;
         most > 0 && i + 1 < line.wordCount() && isAdjective(line.tag(i)) && line.isNextTo(i + 1); --most) {
        ++i;
    }
    return i;
}

bool alsoVerb(const QString& word, const RuleTools& tools) {
    return tools.inflections.is(word, Form::thirdPerson);
}

/// Plural nouns only: not "news" and "series".
bool isClearPlural(const QString& word, const RuleTools& tools) {
    static const Words odd =
        words("news series species means headquarters politics physics mathematics economics "
              "ethics works stairs thanks lots states people data media statistics barracks "
              "crossroads united gymnastics athletics classics odds savings earnings premises");
    return tools.inflections.is(word, Form::plural) && !tools.inflections.is(word, Form::singular) &&
           !odd.contains(word);
}

} // namespace

void pluralAfterMany(Line& line, const RuleTools& tools) {
    static const Words manyWords = words(
        "two three four five six seven eight nine ten eleven twelve thirteen fourteen fifteen sixteen "
        "seventeen eighteen nineteen twenty thirty forty fifty sixty seventy eighty ninety many several few "
        "these those various numerous both");
    for (int i = 0; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        int head = -1;
        if (manyWords.contains(word) && !line.word(i).hyphenated && !is(line.before(i), "or") &&
            !is(line.follows(i + 1), "a")) {
            head = i + 1;
        } else if (is(word, "other") && startsPhrase(line, i) && line.tag(i) == Tag::adjective &&
                   !is(line.before(i), "some") && !is(line.before(i), "any") && !is(line.before(i), "no") &&
                   !is(line.before(i), "or") && !is(line.before(i), "and") &&
                   !words("what which whose how each every").contains(line.before(i))) {
            head = i + 1;
        } else if (is(word, "some") && isPluralVerb(line, i + 2)) {
            head = i + 1;
        } else if (is(word, "all") && words("the my your our their his her").contains(line.follows(i + 1)) &&
                   isPluralVerb(line, i + 3) && tools.inflections.isCounted(line.lower(i + 2)) &&
                   !words("family world country nation team group").contains(line.lower(i + 2)) &&
                   !is(line.follows(i + 3), "do")) {
            head = i + 2;
        } else if (is(word, "of") && !line.before(i).isEmpty() &&
                   (words("lots plenty").contains(line.before(i)) ||
                    (words("lot number couple variety").contains(line.before(i)) &&
                     words("a the great large wide").contains(line.before(i - 1))))) {
            head = i + 1;
            // "a lot of time": most nouns are weighed there, not counted.
            const QString noun = line.lower(head);
            if (words("lot lots plenty").contains(line.before(i))) {
                const QString plural = tools.inflections.form(noun, Form::plural);
                const bool there =
                    is(line.before(i - 1), "a") && words("are were").contains(line.before(i - 2));
                const double share = is(line.before(i), "lots") ? leastShareAfterLots
                                     : there                    ? leastShareAfterThere
                                                                : 1;
                if (!tools.inflections.isCounted(noun) ||
                    tools.speller.frequency(plural) < tools.speller.frequency(noun) * share ||
                    (share < 1 && gainOf(line, tools, head, 1, {plural}) < leastGainAfterLots)) {
                    continue;
                }
            }
        }
        if (head < 0 || !line.isNextTo(head)) {
            continue;
        }
        head = skipAdjectives(line, head);
        // "several way to do it": no measure here.
        if (is(line.lower(head), "way") &&
            words("several many these those different various few").contains(line.before(head)) &&
            words("to of that in we you i they").contains(line.follows(head + 1))) {
            line.replace(head, QStringLiteral("ways"));
            continue;
        }
        const QString after = line.follows(head + 1);
        const bool demonstrative = is(word, "these") || is(word, "those");
        const Tag next = line.isNextTo(head + 1) ? line.tag(head + 1) : Tag::other;
        const bool verb = demonstrative && tools.inflections.is(line.lower(head), Form::base) &&
                          (next == Tag::preposition || next == Tag::determiner || next == Tag::to);
        if (isCountedSingular(line, head, tools) && !verb && !(demonstrative && is(after, "of")) &&
            !(is(word, "both") && is(after, "and"))) {
            makePlural(line, head, tools);
        }
    }
}

void pluralAfterFigure(Line& line, const RuleTools& tools) {
    for (int i = 1; i < line.wordCount(); ++i) {
        const QString gap = line.gapBefore(i);
        const QString figure = gap.trimmed();
        bool ok = false;
        const int value = figure.toInt(&ok);
        if (ok && value > 1 && value <= 200 && !is(line.lower(i - 1), "the") && gap.endsWith(figure + u' ') &&
            tools.inflections.isCounted(line.lower(i)) && isCountedSingular(line, i, tools) &&
            !is(line.follows(i + 1), "of")) {
            makePlural(line, i, tools);
        }
    }
}

void oneOfMany(Line& line, const RuleTools& tools) {
    static const Words owners = words("the my your his her its our their these those");
    static const Words groups =
        words("family group team staff crew audience class party public rest lot bunch company "
              "faculty world kind best most first last whole other lot room morning afternoon "
              "evening day night week year summer winter time country city");
    static const Words manyWords = words("one many several few two three four five both each some most");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        if (!manyWords.contains(word) || !is(line.follows(i + 1), "of") ||
            !owners.contains(line.follows(i + 2))) {
            continue;
        }
        int head = i + 3;
        if (!line.isNextTo(head)) {
            continue;
        }
        for (int most = 3; most > 0 && head + 1 < line.wordCount() && line.isNextTo(head + 1) &&
                           (isAdjective(line.tag(head)) || isAdverb(line.tag(head)) ||
                            (isNoun(line.tag(head)) && isNoun(line.tag(head + 1))));
             --most) {
            ++head;
        }
        const bool some = is(word, "some") || is(word, "most");
        if (line.isNextTo(head) && isCountedSingular(line, head, tools) &&
            !groups.contains(line.lower(head)) && tools.inflections.isCounted(line.lower(head)) &&
            (!some || isPluralVerb(line, head + 1))) {
            makePlural(line, head, tools);
        }
    }
}

void demonstrativeNumber(Line& line, const RuleTools& tools) {
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        if (isProtected(line.word(i)) && !line.word(i).startsSentence) {
            continue;
        }
        const int head = skipAdjectives(line, i + 1);
        const QString noun = line.lower(head);
        if (head >= line.wordCount() || !line.isNextTo(i + 1) || !line.isNextTo(head) ||
            isProtected(line.word(head)) || isNoun(line.tag(head + 1))) {
            continue;
        }
        const bool singularVerb = words("is was has does isn't wasn't").contains(line.follows(head + 1));
        if (is(word, "this") && !words("many few much").contains(line.lower(i + 1)) &&
            line.tag(head) == Tag::pluralNoun && isClearPlural(noun, tools) &&
            line.cliticTag(head) == Tag::other &&
            (!alsoVerb(noun, tools) || head > i + 1 || isPluralVerb(line, head + 1)) &&
            !QStringView(u"'’").contains(line.punctuationAfter(head))) {
            if (singularVerb) {
                line.replace(head, tools.inflections.changed(noun, Form::plural, Form::singular));
            } else {
                line.replace(i, QStringLiteral("these"));
            }
        } else if (is(word, "that") && line.tag(i) == Tag::determiner &&
                   line.tag(i - 1) == Tag::preposition && !is(line.before(i), "so") && line.isNextTo(i) &&
                   line.tag(head) == Tag::pluralNoun && isClearPlural(noun, tools) &&
                   !alsoVerb(noun, tools)) {
            line.replace(i, QStringLiteral("those"));
        } else if ((is(word, "these") || is(word, "those")) && line.tag(head) == Tag::noun &&
                   tools.inflections.isUncounted(noun) && line.cliticTag(head) == Tag::other &&
                   !(line.isNextTo(head + 1) &&
                     (isAdjective(line.tag(head + 1)) || line.tag(head + 1) == Tag::gerund))) {
            line.replace(i, is(word, "these") ? QStringLiteral("this") : QStringLiteral("that"));
        }
    }
}

void singularAfterEach(Line& line, const RuleTools& tools) {
    static const Words oneWords = words("each every another");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const bool article = is(word, "a") || is(word, "an");
        if ((!oneWords.contains(word) && !article) || !line.isNextTo(i + 1)) {
            continue;
        }
        const int head = article ? i + 1 : skipAdjectives(line, i + 1);
        const QString noun = line.lower(head);
        if (!line.isNextTo(head) || isProtected(line.word(head)) || line.tag(head) != Tag::pluralNoun ||
            !isClearPlural(noun, tools) || line.cliticTag(head) != Tag::other ||
            (line.isNextTo(head + 1) && (isNoun(line.tag(head + 1)) || isAdjective(line.tag(head + 1)))) ||
            QStringView(u"'’").contains(line.punctuationAfter(head))) {
            continue;
        }
        const QString singular = tools.inflections.changed(noun, Form::plural, Form::singular);
        const bool compound =
            article && line.isNextTo(head + 1) && tools.inflections.is(line.lower(head + 1), Form::singular);
        bool several = false;
        for (int k = i + 1; k < head; ++k) {
            several = several || words("few many other couple several dozen").contains(line.lower(k));
        }
        if (several || compound ||
            (article && (!tools.inflections.isCounted(singular) || is(line.follows(head + 1), "of")))) {
            continue;
        }
        line.replace(head, singular);
    }
}

void muchAndMany(Line& line, const RuleTools& tools) {
    static const Words weighed =
        words("homework information advice knowledge furniture equipment luggage money traffic music "
              "pollution software hardware housework");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString noun = line.follows(i + 1);
        if (noun.isEmpty() || isProtected(line.word(i + 1)) || line.word(i).hyphenated ||
            line.cliticTag(i + 1) != Tag::other) {
            continue;
        }
        const bool partOfName = line.isNextTo(i + 2) && isNoun(line.tag(i + 2));
        if (is(word, "much") && line.tag(i + 1) == Tag::pluralNoun && !partOfName &&
            (is(noun, "people") || (isClearPlural(noun, tools) && !alsoVerb(noun, tools)))) {
            line.replace(i, QStringLiteral("many"));
        } else if (is(word, "many") && line.tag(i + 1) == Tag::noun &&
                   (tools.inflections.isUncounted(noun) || weighed.contains(noun)) && !partOfName &&
                   !is(line.before(i), "a") && !is(line.before(i), "great")) {
            line.replace(i, QStringLiteral("much"));
        } else if ((is(word, "fewer") || is(word, "few")) && line.tag(i + 1) == Tag::noun &&
                   tools.inflections.isUncounted(noun) && !partOfName && is(word, "fewer")) {
            line.replace(i, QStringLiteral("less"));
        } else if (is(word, "less") &&
                   (is(noun, "people") ||
                    words("friends cars children students mistakes problems things jobs books accidents "
                          "opportunities chances countries buses houses")
                        .contains(noun)) &&
                   !partOfName) {
            line.replace(i, QStringLiteral("fewer"));
        }
    }
}

void uncountedPlural(Line& line, const RuleTools& tools) {
    for (int i = 0; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        if (isProtected(line.word(i)) || line.tag(i) != Tag::pluralNoun || line.cliticTag(i) != Tag::other) {
            continue;
        }
        const bool opening =
            line.word(i).startsSentence &&
            words("are who have should can will in don't think want like").contains(line.follows(i + 1));
        if (is(word, "peoples") &&
            (opening || words("many some most other young old these all these few several two more")
                            .contains(line.before(i)))) {
            line.replace(i, QStringLiteral("people"));
            continue;
        }
        if (is(word, "childrens") || is(word, "womens")) {
            const bool owner =
                line.isNextTo(i + 1) && (isNoun(line.tag(i + 1)) || isAdjective(line.tag(i + 1)));
            line.replace(i, word.chopped(1) + (owner ? QStringLiteral("'s") : QString()));
            continue;
        }
        const QString noun = tools.inflections.lemma(word, Form::plural);
        if (!noun.isEmpty() && noun != word && tools.inflections.isUncounted(noun) &&
            tools.speller.frequency(noun) >= 200 && !is(word, "hers") &&
            tools.speller.frequency(word) * 800 < tools.speller.frequency(noun)) {
            line.replace(i, noun);
        }
    }
}

void articleOfUncounted(Line& line, const RuleTools& tools) {
    static const Words nouns =
        words("information advice furniture homework luggage equipment traffic weather news "
              "progress research software hardware evidence baggage housework");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        static const Words qualities =
            words("good bad useful great important new helpful valuable excellent nice wonderful "
                  "terrible interesting heavy");
        const QString quality = line.follows(i + 1);
        const QString qualified = line.follows(i + 2);
        if ((is(line.lower(i), "a") || is(line.lower(i), "an")) && qualities.contains(quality) &&
            words("information advice furniture homework luggage equipment weather news software traffic")
                .contains(qualified) &&
            !isProtected(line.word(i + 2)) && !line.word(i + 2).hyphenated && !line.word(i + 1).hyphenated &&
            line.cliticTag(i + 2) == Tag::other &&
            !(line.isNextTo(i + 3) &&
              (isNoun(line.tag(i + 3)) || isAdjective(line.tag(i + 3)) || line.tag(i + 3) == Tag::gerund))) {
            line.remove(i);
            continue;
        }
        const QString noun = line.follows(i + 1);
        if ((is(line.lower(i), "a") || is(line.lower(i), "an")) && nouns.contains(noun) &&
            !isProtected(line.word(i + 1)) && tools.inflections.knows(noun) && !line.word(i + 1).hyphenated &&
            !(line.isNextTo(i + 2) &&
              (isNoun(line.tag(i + 2)) || isAdjective(line.tag(i + 2)) || line.tag(i + 2) == Tag::gerund ||
               line.tag(i + 2) == Tag::participle))) {
            line.remove(i);
        }
    }
}

} // namespace vellumline
