#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

#include <array>

// Rules for places where more than one form is English by its part of speech, so that the language model
// decides between them. How much likelier the line must become is measured: docs/service.md has the table.
namespace vellumline {

namespace {

constexpr double gainOfArticle = 3.3;
constexpr double gainOfArticleOfPredicate = 1.5;
// "is very important issue" is no English, however likely the words are.
constexpr double gainOfArticleBeforeVery = -4;
constexpr double gainOfPlural = 4.5;
// "with conviction", "in time of peace": after a preposition many a counted noun stands for the matter
// itself.
constexpr double gainOfPluralAfterPreposition = 6.5;
constexpr double gainOfPluralBesideArticle = 1.0;
constexpr double gainOfFormAfterBe = 3.5;
constexpr double gainOfComparative = 3;
constexpr double gainOfPossessor = 1.5;
constexpr double gainOfDoubled = 2;
constexpr double gainOfMuch = 2;

/// Whether an article further left counts for this noun, too: "a relatively small firm", "an old and tired
/// man".
bool hasArticleFurtherLeft(const Line& line, int first) {
    constexpr int furthest = 5;
    for (int i = first - 1; i >= 0 && i >= first - furthest && line.isNextTo(i + 1); --i) {
        const Tag tag = line.tag(i);
        if (tag == Tag::determiner || tag == Tag::possessivePronoun || line.cliticTag(i) == Tag::possessive) {
            return true;
        }
        const bool within = isAdjective(tag) || isAdverb(tag) || tag == Tag::participle ||
                            tag == Tag::gerund || tag == Tag::conjunction || isNoun(tag);
        if (!within) {
            return false;
        }
    }
    return false;
}

/// A noun phrase without a determiner whose head is a singular noun that is counted; its head.
int bareSingularHead(const Line& line, int first, const RuleTools& tools) {
    const Tag before = line.tag(first - 1);
    if (first == 0 || !line.isNextTo(first) || line.cliticTag(first - 1) != Tag::other ||
        before == Tag::determiner || before == Tag::possessivePronoun || before == Tag::number ||
        before == Tag::predeterminer || isAdjective(before) || isNoun(before) ||
        line.tag(first - 1) == Tag::whPossessive || before == Tag::whDeterminer) {
        return -1;
    }
    if ((before == Tag::conjunction || before == Tag::participle || before == Tag::gerund ||
         isAdverb(before)) &&
        hasArticleFurtherLeft(line, first)) {
        return -1;
    }
    int head = first;
    while (isAdjective(line.tag(head)) && line.isNextTo(head + 1) && head < first + 2) {
        ++head;
    }
    const QString noun = line.lower(head);
    const Token& token = line.word(head);
    if (line.tag(head) != Tag::noun || isProtected(token) || line.cliticTag(head) != Tag::other ||
        !tools.inflections.is(noun, Form::singular) || tools.inflections.is(noun, Form::plural) ||
        tools.inflections.isUncounted(noun) || line.tag(first - 1) == Tag::existential ||
        (line.isNextTo(head + 1) && isNoun(line.tag(head + 1)))) {
        return -1;
    }
    const QString gap = line.gapBefore(head + 1);
    return !gap.isEmpty() && QStringView(u"'’-–/(").contains(gap.front()) ? -1 : head;
}

QString articleFor(const QString& word) {
    return QStringView(u"aeiou").contains(word.front()) ? QStringLiteral("an") : QStringLiteral("a");
}

} // namespace

void articleByModel(Line& line, const RuleTools& tools) {
    for (int first = 1; first < line.wordCount(); ++first) {
        const int head = bareSingularHead(line, first, tools);
        // "the needs of man": all of them.
        if (head < 0 || isProtected(line.word(first)) || (head == first && is(line.lower(head), "man"))) {
            continue;
        }
        // "book after book", "side by side"
        if (head + 2 < line.wordCount() && line.lower(head + 2) == line.lower(head)) {
            continue;
        }
        // "It is very important issue": after be and before the end nothing but the article can be missing.
        const bool intensified = (is(line.lower(first - 1), "very") || is(line.lower(first - 1), "really")) &&
                                 isBe(line.before(first - 1));
        const bool existential = is(line.before(first - 1), "there") || is(line.before(first - 1), "here");
        const bool predicate =
            (intensified || isBe(line.lower(first - 1))) && !existential && head > first &&
            (intensified || tools.inflections.isCounted(line.lower(head))) &&
            line.tag(first) == Tag::adjective &&
            (line.endsClause(head) ||
             words("to for in of that which who because and but when").contains(line.follows(head + 1)));
        const int at = intensified ? first - 1 : first;
        const QString article = articleFor(line.lower(at));
        const double gain = gainOf(line, tools, at, 1, {article, line.lower(at)});
        const QString plural = tools.inflections.form(line.lower(head), Form::plural);
        if (predicate && gain >= (intensified ? gainOfArticleBeforeVery : gainOfArticleOfPredicate) &&
            gain >= gainOf(line, tools, head, 1, {plural}) - gainOfArticle) {
            line.insertBefore(at, article);
            ++first;
            continue;
        }
        if (gain >= gainOfArticle && gain >= gainOf(line, tools, head, 1, {plural})) {
            line.insertBefore(first, article);
            ++first;
        }
    }
}

void pluralByModel(Line& line, const RuleTools& tools) {
    for (int first = 1; first < line.wordCount(); ++first) {
        const int head = bareSingularHead(line, first, tools);
        if (head < 0) {
            continue;
        }
        const QString plural = tools.inflections.form(line.lower(head), Form::plural);
        const double gain = plural.isEmpty() || !tools.inflections.isCounted(line.lower(head))
                                ? 0
                                : gainOf(line, tools, head, 1, {plural});
        const double other =
            gainOf(line, tools, first, 1, {articleFor(line.lower(first)), line.lower(first)});
        const bool preposition = line.tag(first - 1) == Tag::preposition && !is(line.lower(first - 1), "of");
        if (gain >= (preposition ? gainOfPluralAfterPreposition : gainOfPlural) &&
            gain >= other + gainOfPluralBesideArticle &&
            gain >= gainOf(line, tools, first, 1, {QStringLiteral("the"), line.lower(first)})) {
            line.replace(head, plural);
        }
    }
}

void formAfterBe(Line& line, const RuleTools& tools) {
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString be = line.lower(i);
        const QString verb = line.follows(i + 1);
        const Tag tag = line.tag(i + 1);
        if (!isBe(be) || verb.isEmpty() || isProtected(line.word(i + 1)) ||
            !tools.inflections.is(verb, Form::base) || tools.inflections.is(verb, Form::participle) ||
            tools.inflections.is(verb, Form::plain) ||
            (tag != Tag::baseVerb && tag != Tag::presentVerb && tag != Tag::noun) ||
            line.cliticTag(i + 1) != Tag::other) {
            continue;
        }
        double best = gainOfFormAfterBe;
        QString better;
        for (const Form form : std::array{Form::participle, Form::gerund}) {
            // "It will be help" wants no be.
            if (form == Form::gerund && is(be, "be")) {
                continue;
            }
            const QString made = tools.inflections.form(verb, form);
            const double gain = made.isEmpty() ? 0 : gainOf(line, tools, i + 1, 1, {made});
            if (gain > best) {
                best = gain;
                better = made;
            }
        }
        if (!better.isEmpty()) {
            line.replace(i + 1, better);
        }
    }
}

void comparativeByModel(Line& line, const RuleTools& tools) {
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString plain = line.follows(i + 1);
        const bool more = is(word, "more");
        if ((!more && !(is(word, "most") && is(line.before(i), "the"))) || line.word(i).hyphenated ||
            plain.isEmpty() || isProtected(line.word(i + 1)) || !isAdjective(line.tag(i + 1)) ||
            !tools.inflections.is(plain, Form::plain)) {
            continue;
        }
        const QString made = tools.inflections.form(plain, more ? Form::comparative : Form::superlative);
        if (!made.isEmpty() && tools.speller.frequency(made) > 50 &&
            gainOf(line, tools, i, 2, {made}) > gainOfComparative) {
            line.replace(i + 1, made);
            line.remove(i);
        }
    }
}

void possessor(Line& line, const RuleTools& tools) {
    static const Words people = words(
        "mothers fathers brothers sisters friends wifes husbands uncles aunts cousins bosses teachers "
        "neighbours neighbors daughters sons grandmothers grandfathers girlfriends boyfriends dads mums moms "
        "colleagues doctors roommates babys ladys managers dogs cats");
    static const Words times = words("todays yesterdays tomorrows");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString thing = line.follows(i + 1);
        const bool time = times.contains(word);
        if (thing.isEmpty() || isProtected(line.word(i)) || isProtected(line.word(i + 1)) ||
            line.cliticTag(i) != Tag::other ||
            (!time &&
             !(people.contains(word) && line.tag(i - 1) == Tag::possessivePronoun && line.isNextTo(i))) ||
            !(isNoun(line.tag(i + 1)) || isAdjective(line.tag(i + 1)))) {
            continue;
        }
        const QString made = word.chopped(1) + QStringLiteral("'s");
        if (time || gainOf(line, tools, i, 1, {made}) > gainOfPossessor) {
            line.replace(i, made);
        }
    }
}

/// "What he does does not matter."
bool hasClauseAsSubject(const Line& line, int i) {
    static const Words openers = words("what whatever whoever how where all");
    for (int k = sentenceStart(line, i); k < i; ++k) {
        if (openers.contains(line.lower(k))) {
            return true;
        }
    }
    return false;
}

void doubledByModel(Line& line, const RuleTools& tools) {
    static const Words emphatic =
        words("all very so really much many that had no yes more far long bye ha never again "
              "her you well now there what do who blah hear tut her one his please");
    for (int i = 1; i < line.wordCount(); ++i) {
        const QString word = line.follows(i);
        if (!word.isEmpty() && line.word(i).text == word && word == line.lower(i - 1) &&
            !emphatic.contains(word) && !(isFiniteVerb(line.tag(i)) && hasClauseAsSubject(line, i)) &&
            !isProtected(line.word(i)) && !line.word(i - 1).hyphenated && i + 1 < line.wordCount() &&
            line.isNextTo(i + 1) && gainOf(line, tools, i, 2, {line.lower(i + 1)}) > gainOfDoubled) {
            line.remove(i);
            --i;
        }
    }
}

void muchByModel(Line& line, const RuleTools& tools) {
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString next = line.follows(i + 1);
        if (next.isEmpty() || isProtected(line.word(i + 1))) {
            continue;
        }
        if (is(word, "many") && line.tag(i + 1) == Tag::noun && tools.inflections.is(next, Form::singular) &&
            !is(next, "a") && !is(line.before(i), "a") && !isNoun(line.tag(i + 2))) {
            const QString plural = tools.inflections.form(next, Form::plural);
            const double much = gainOf(line, tools, i, 1, {QStringLiteral("much")});
            if (much > gainOfMuch && much > gainOf(line, tools, i + 1, 1, {plural}) + gainOfMuch) {
                line.replace(i, QStringLiteral("much"));
            }
        } else if (is(word, "very") &&
                   (is(next, "less") || is(next, "more") ||
                    tools.inflections.prefers(next, Form::comparative)) &&
                   line.tag(i + 1) != Tag::adjective &&
                   gainOf(line, tools, i, 1, {QStringLiteral("much")}) > gainOfMuch) {
            line.replace(i, QStringLiteral("much"));
        }
    }
}

} // namespace vellumline
