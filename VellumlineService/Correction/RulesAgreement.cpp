#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

namespace vellumline {

namespace {

enum class Number {
    unknown,
    singular,
    plural,
    first, ///< "I".
};

/// Verbs that a clause without "that" follows: "I think the man is right".
bool takesClause(const QString& verb) {
    static const Words verbs =
        words("think thinks thought believe believes believed say says said know knows knew "
              "hope hopes guess suppose feel feels felt mean means shows means sure");
    return verbs.contains(verb);
}

/// What stands in front of a clause.
bool opensClause(const QString& word) {
    static const Words openers = words(
        "that because if when although though while since as whether where how why what which unless until "
        "before after so than whenever wherever whatever who");
    return openers.contains(word);
}

/// Nouns that stand for a group: either number is English. Quantities go by what they count.
bool isGroupOrQuantity(const QString& noun) {
    static const Words nouns = words(
        "team family staff police group couple government company public crew audience band class committee "
        "council crowd army data media majority minority rest number pair enemy party half club generation "
        "population press jury board firm department management percent lot lots variety remainder range "
        "series "
        "handful dozen dozens hundreds thousands millions plenty part some most all none many any few "
        "several "
        "both fraction quarter third bulk amount quantity cattle clergy youth faculty people folk kind kinds "
        "sort sorts type types herd flock bunch host set proportion percentage more less enough ones tribe "
        "school university personnel society village town nation community");
    return nouns.contains(noun);
}

/// Plural in form, singular in use, or both.
bool isPluralInForm(const QString& noun) {
    static const Words nouns = words(
        "news mathematics physics economics politics measles athletics gymnastics series species means "
        "headquarters gallows crossroads thanks ethics statistics linguistics genetics electronics mechanics "
        "diabetes savings works barracks aerobics acoustics logistics classics humanities states "
        "dollars pounds euros cents miles kilometers kilometres meters metres feet inches years months weeks "
        "days "
        "hours minutes seconds degrees percent times pages points tons kilograms grams liters litres "
        "gallons");
    return nouns.contains(noun);
}

Number numberOf(const Line& line, const NounPhrase& phrase, const Inflections& inflections) {
    const QString head = line.lower(phrase.head);
    // A name keeps the number of what it names: "Twin Shores is a town".
    if (line.word(phrase.head).text != head && !line.word(phrase.head).startsSentence && !is(head, "i")) {
        return Number::unknown;
    }
    if (is(head, "i")) {
        return line.word(phrase.head).text == head ? Number::unknown : Number::first;
    }
    static const Words plurals = words("we you they these those");
    static const Words singulars =
        words("he she it everyone everybody everything someone somebody something anyone "
              "anybody anything nobody nothing");
    if (plurals.contains(head)) {
        return Number::plural;
    }
    if (singulars.contains(head)) {
        return Number::singular;
    }
    static const Words manyWords =
        words("these those many several few both two three four five six seven eight nine ten");
    static const Words oneWords = words("this each every a an another one");
    bool many = false;
    bool one = false;
    for (int i = phrase.first; i < phrase.head; ++i) {
        many = many || manyWords.contains(line.lower(i)) || line.tag(i) == Tag::number;
        one = one || oneWords.contains(line.lower(i));
    }
    const Tag tag = line.tag(phrase.head);
    static const Words neither = words("data media today yesterday tomorrow tonight");
    if (neither.contains(head)) {
        return Number::unknown;
    }
    if (tag == Tag::pluralNoun && inflections.is(head, Form::plural) &&
        !inflections.is(head, Form::singular) && !isPluralInForm(head) && !one) {
        return Number::plural;
    }
    if (is(head, "people") && !one) {
        return Number::plural;
    }
    if (tag == Tag::noun && inflections.is(head, Form::singular) && !inflections.is(head, Form::plural) &&
        !many && !isPluralInForm(head) && !isGroupOrQuantity(head) &&
        (phrase.hasDeterminer || inflections.isUncounted(head))) {
        return Number::singular;
    }
    return Number::unknown;
}

struct Subject {
    Number number = Number::unknown;
    int first = 0;
    bool attracted = false; ///< Another noun stands between the head and the verb.
};

bool isPlaceFor(const QString& preposition) {
    static const Words prepositions =
        words("of in for on with about between at by among against into near under over "
              "behind around like without from");
    return prepositions.contains(preposition);
}

/// "Both of them was", "one of us are": the number that the quantity in front of "of" has.
Number numberOfQuantity(const Line& line, int pronoun) {
    static const Words many = words("both many several few");
    static const Words pronouns = words("them us you these those");
    if (pronoun < 2 || !pronouns.contains(line.lower(pronoun)) || !is(line.before(pronoun), "of") ||
        !line.word(pronoun - 2).startsSentence || line.before(pronoun - 1).isEmpty()) {
        return Number::unknown;
    }
    const QString quantity = line.lower(pronoun - 2);
    return many.contains(quantity)                       ? Number::plural
           : is(quantity, "one") || is(quantity, "each") ? Number::singular
                                                         : Number::unknown;
}

/// "What matters is …", "Whether the weather holds is …": the whole clause is the subject, and what looks
/// like a plural noun is its verb.
bool isClauseAsSubject(const Line& line, const NounPhrase& phrase, const Inflections& inflections) {
    static const Words openers = words("what whatever whether how who whoever why where that");
    return inflections.is(line.lower(phrase.head), Form::thirdPerson) &&
           line.tag(phrase.head) == Tag::pluralNoun &&
           openers.contains(line.lower(sentenceStart(line, phrase.head)));
}

/// "Living alone give you": an -ing form that opens the sentence is the subject; its first word, or -1.
int gerundAsSubject(const Line& line, int verb) {
    const int start = sentenceStart(line, verb);
    const QString next = line.follows(start + 1);
    const Tag tag = line.tag(start + 1);
    // "Growing numbers are": there it belongs to the noun.
    const bool verbal = tag == Tag::determiner || tag == Tag::possessivePronoun || isAdverb(tag) ||
                        tag == Tag::to || is(next, "to") || is(next, "alone");
    if (verb - start < 2 || line.tag(start) != Tag::gerund || next.isEmpty() || !verbal) {
        return -1;
    }
    for (int i = start + 1; i < verb; ++i) {
        if (!line.isNextTo(i) || isFiniteVerb(line.tag(i)) || line.tag(i) == Tag::whDeterminer ||
            line.tag(i) == Tag::whPronoun || line.tag(i) == Tag::conjunction ||
            isSubjectPronoun(line.lower(i)) || opensClause(line.lower(i))) {
            return -1;
        }
    }
    return start;
}

/// The subject of the verb at `verb`, from the words in front of it; `Number::unknown` unless it is sure.
Subject subjectOf(const Line& line, int verb, const Inflections& inflections) {
    static const Words betweenAdverbs =
        words("also often always usually never really still just only now sometimes "
              "probably actually generally even already currently");
    int last = verb - 1;
    if (last < 0 || !line.isNextTo(verb)) {
        return {};
    }
    // "As we all knows"
    if (last > 0 && is(line.lower(last), "all") && words("we you they").contains(line.before(last))) {
        --last;
    }
    while (last > 0 && line.isNextTo(last) &&
           (betweenAdverbs.contains(line.lower(last)) ||
            (isAdverb(line.tag(last)) && line.lower(last).endsWith(QStringLiteral("ly"))))) {
        --last;
    }
    if (const auto number = numberOfQuantity(line, last); number != Number::unknown) {
        return {number, last - 2, true};
    }
    auto phrase = nounPhraseEndingAt(line, last);
    if (!phrase) {
        return {};
    }
    if (isClauseAsSubject(line, *phrase, inflections)) {
        return {};
    }
    bool attracted = false;
    // "Technology are": without an article only be is sure to have this subject.
    const auto isBare = [&](int noun) {
        const QString word = line.lower(noun);
        return !attracted && phrase->head == last && last == noun && !phrase->hasDeterminer &&
               (phrase->first == noun || isAdjective(line.tag(noun - 1))) &&
               (is(line.lower(verb), "are") || is(line.lower(verb), "were")) && line.tag(noun) == Tag::noun &&
               inflections.is(word, Form::singular) && !inflections.is(word, Form::plural) &&
               !isPluralInForm(word) && !isGroupOrQuantity(word);
    };
    for (int level = 0; level < 3; ++level) {
        const int first = phrase->first;
        const Number number = numberOf(line, *phrase, inflections);
        if (line.word(first).startsSentence) {
            // "Learning facts is fun": the facts are what is learnt.
            const bool object = last > first && inflections.is(line.lower(first), Form::gerund);
            return {isBare(phrase->head) ? Number::singular
                    : object             ? Number::unknown
                                         : number,
                    first, attracted};
        }
        const QString before = line.before(first);
        if (before.isEmpty()) {
            // After a comma: only when what stands before it is no noun that could belong to the subject.
            if (words("i he she it we they").contains(line.lower(first)) && first == phrase->head &&
                !attracted && line.gapBefore(first) == QStringLiteral(", ")) {
                return {number, first, false};
            }
            if (line.gapBefore(first) == QStringLiteral(": ") ||
                line.gapBefore(first) == QStringLiteral("; ")) {
                return {number, first, attracted};
            }
            const int start = sentenceStart(line, first);
            const Tag opening = line.tag(start);
            const bool adverbial =
                (opening == Tag::preposition || isAdverb(opening) || opening == Tag::whAdverb ||
                 opening == Tag::to) &&
                line.gapBefore(first) == QStringLiteral(", ") &&
                (phrase->hasDeterminer || isBare(phrase->head) || is(line.lower(phrase->head), "people"));
            for (int i = start; adverbial && i < first; ++i) {
                if (i > start && !line.isNextTo(i)) {
                    return {};
                }
            }
            return adverbial ? Subject{isBare(phrase->head) ? Number::singular : number, first, attracted}
                             : Subject{};
        }
        const Tag tag = line.tag(first - 1);
        const bool pronoun = isSubjectPronoun(line.lower(phrase->head));
        if (is(before, "but") || is(before, "so") || is(before, "yet")) {
            return {number, first, attracted};
        }
        if (is(before, "and") || is(before, "or")) {
            // A second clause; "my friend and he" is a subject of two.
            const bool nounBefore = line.isNextTo(first - 1) &&
                                    (isNoun(line.tag(first - 2)) || line.tag(first - 2) == Tag::pronoun);
            // "She was tired and the house were dark": no noun before "and" that could be a part of the
            // subject.
            const bool afterQuality = phrase->hasDeterminer && words("are were").contains(line.lower(verb)) &&
                                      number == Number::singular && is(before, "and") &&
                                      line.isNextTo(first - 1) &&
                                      (isAdjective(line.tag(first - 2)) || isAdverb(line.tag(first - 2)));
            const bool sure = (pronoun || afterQuality) && hasFiniteVerbBefore(line, first) &&
                              (!nounBefore || number != Number::plural);
            return sure && !attracted ? Subject{number, first, false} : Subject{};
        }
        if (opensClause(before) && !(is(before, "as") && !pronoun) &&
            !((is(before, "before") || is(before, "after") || is(before, "than") || is(before, "until") ||
               is(before, "since") || is(before, "so") || is(before, "who")) &&
              !pronoun)) {
            return {isBare(phrase->head) ? Number::singular : number, first, attracted};
        }
        if (takesClause(before) && (isVerb(tag) || is(before, "sure")) && !attracted) {
            return {number, first, false};
        }
        if (pronoun || !isPlaceFor(before) || !line.isNextTo(first - 1)) {
            return {};
        }
        // "one of the books", "the quality of the photos": the head stands further left.
        const QString outer = line.lower(first - 2);
        const bool ofOne =
            (is(outer, "one") || is(outer, "each") || is(outer, "neither") || is(outer, "either")) &&
            is(before, "of") && (first - 2 == 0 || line.word(first - 2).startsSentence);
        if (ofOne) {
            return {Number::singular, first - 2, true};
        }
        if (is(outer, "number") && is(line.before(first - 2), "the") && line.word(first - 3).startsSentence) {
            return {Number::singular, first - 3, true};
        }
        const bool quantity =
            words("most some all many both several few").contains(outer) && is(before, "of");
        if (quantity && number == Number::plural && line.word(first - 2).startsSentence) {
            return {number, first - 2, false};
        }
        if (isGroupOrQuantity(outer)) {
            return {};
        }
        phrase = nounPhraseEndingAt(line, first - 2);
        attracted = true;
        if (!phrase || isSubjectPronoun(outer)) {
            return {};
        }
    }
    return {};
}

bool isUnreal(const Line& line, int before) {
    static const Words unreal = words("if wish wishes wished though suppose unless would whether lest until");
    for (int i = sentenceStart(line, before); i < before; ++i) {
        if (unreal.contains(line.lower(i))) {
            return true;
        }
    }
    return false;
}

/// "I suggest that she have a look": the base form is right.
bool isDemanded(const Line& line, int before) {
    static const Words demands = words(
        "suggest suggests suggested suggesting recommend recommends recommended demand demands demanded "
        "insist "
        "insists insisted require requires required propose proposes proposed ask asks asked request "
        "requested "
        "important essential necessary vital crucial imperative advise advised urge urged order ordered "
        "prefer preferred lest better may let make help see hear watch have had saw heard made let's wish");
    for (int i = sentenceStart(line, before); i < before; ++i) {
        if (demands.contains(line.lower(i))) {
            return true;
        }
    }
    return false;
}

/// Base forms that are past forms too, or that go before another verb as they are.
bool isAmbiguousBase(const QString& verb, const Inflections& inflections) {
    static const Words alone =
        words("need dare be beware let ought used may might can could must shall should will "
              "would please thank bless save last");
    return alone.contains(verb) || inflections.is(verb, Form::past) || inflections.is(verb, Form::participle);
}

QString agreeing(const QString& verb, Number number, bool unreal, const Inflections& inflections) {
    static const Table singular = table("are:is were:was have:has do:does don't:doesn't aren't:isn't "
                                        "weren't:wasn't haven't:hasn't am:is");
    static const Table plural =
        table("is:are was:were has:have does:do doesn't:don't isn't:aren't wasn't:weren't "
              "hasn't:haven't am:are");
    static const Table first = table("is:am are:am has:have does:do doesn't:don't hasn't:haven't");
    if (number == Number::singular) {
        if (singular.contains(verb)) {
            return is(verb, "were") && unreal ? QString() : singular.value(verb);
        }
        return inflections.is(verb, Form::base) && !isAmbiguousBase(verb, inflections)
                   ? inflections.form(verb, Form::thirdPerson)
                   : QString();
    }
    const Table& fixed = number == Number::first ? first : plural;
    if (fixed.contains(verb)) {
        return fixed.value(verb);
    }
    return inflections.is(verb, Form::thirdPerson) && !isBe(verb)
               ? inflections.changed(verb, Form::thirdPerson, Form::base)
               : QString();
}

bool startsNounPhrase(Tag tag) {
    return tag == Tag::determiner || tag == Tag::possessivePronoun || tag == Tag::name ||
           tag == Tag::pluralNoun;
}

/// In a sentence of its own a verb is missing; a heading or a fragment needs none.
double leastGainOfHidden(const Line& line, int i) {
    const Tag next = line.tag(i + 1);
    const bool sentence = line.wordCount() >= 6 && line.endsSentence() &&
                          (next == Tag::preposition || next == Tag::to || next == Tag::determiner);
    const bool whole = line.wordCount() >= 6 && line.endsSentence();
    return sentence ? -1.5 : whole ? -1 : 1;
}

// Behind "that" and "which" the noun in front is more often the object.
constexpr double leastGainBehindWho = -3;
constexpr double leastGainBehindThat = -1.5;

bool isAuxiliary(const QString& word) {
    static const Words auxiliaries =
        words("is are was were am have has do does don't doesn't isn't aren't wasn't weren't haven't hasn't");
    return auxiliaries.contains(word);
}

} // namespace

void agreeWithSubject(Line& line, const RuleTools& tools) {
    static const Words mostlyVerbs = words("thinks says knows gets makes takes gives becomes goes sees");
    const Inflections& inflections = tools.inflections;
    for (int i = 1; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        const QString verb = token.lower;
        if (isProtected(token) || token.text != verb) {
            continue;
        }
        const Tag tag = line.tag(i);
        const bool auxiliary = isAuxiliary(verb);
        const QString subject = line.before(i);
        const bool pronoun = isSubjectPronoun(subject);
        // What is nothing but a verb may look like something else to the tagger beside a wrong ending.
        const bool onlyVerb = (inflections.is(verb, Form::base) || inflections.is(verb, Form::thirdPerson)) &&
                              !inflections.is(verb, Form::singular) && !inflections.is(verb, Form::plural) &&
                              !inflections.is(verb, Form::plain) && !isAmbiguousBase(verb, inflections);
        const bool verbTag =
            tag == Tag::presentVerb || tag == Tag::thirdPersonVerb || tag == Tag::baseVerb ||
            (tag == Tag::pluralNoun && mostlyVerbs.contains(verb)) ||
            (onlyVerb && (tag == Tag::adjective || tag == Tag::noun || tag == Tag::pluralNoun));
        const bool nounAfterPronoun = pronoun &&
                                      (tag == Tag::noun || tag == Tag::pluralNoun || is(verb, "live")) &&
                                      !isVerb(line.tag(i + 1));
        // "The dogs barks": a verb that does not agree looks like a noun, and the sentence has no other verb.
        const bool hiddenVerb = (tag == Tag::noun || tag == Tag::pluralNoun) && !pronoun &&
                                token.lower.size() > 3 && !hasFiniteVerb(line, i) && line.isNextTo(i + 1);
        if (!auxiliary && !verbTag && !nounAfterPronoun && !hiddenVerb) {
            continue;
        }
        // "What information do they provide", "as it were".
        const bool inverted = auxiliary && line.isNextTo(i + 1) &&
                              (isSubjectPronoun(line.lower(i + 1)) ||
                               (words("do does did").contains(verb) && startsNounPhrase(line.tag(i + 1))));
        if (inverted || (is(verb, "were") && is(subject, "it") && is(line.before(i - 1), "as"))) {
            continue;
        }
        Subject found = subjectOf(line, i, inflections);
        if (const int gerund = gerundAsSubject(line, i);
            gerund >= 0 && (tag == Tag::presentVerb || is(verb, "are") || is(verb, "have"))) {
            // "Walking down the street are two men": the subject comes behind.
            const Tag next = line.isNextTo(i + 1) ? line.tag(i + 1) : Tag::other;
            const bool part = !isBe(verb) && inflections.is(verb, Form::singular) && next != Tag::pronoun &&
                              next != Tag::determiner && next != Tag::possessivePronoun;
            const bool inverse =
                part || (isBe(verb) && !isAdjective(next) && !isAdverb(next) && next != Tag::gerund);
            found = inverse ? Subject{} : Subject{Number::singular, gerund, false};
        }
        // "Hopefully it don't": no word in front makes it right.
        if (is(verb, "don't") &&
            (words("he she it").contains(subject) ||
             (words("this that").contains(subject) && line.word(i - 1).startsSentence))) {
            found = {Number::singular, i - 1, false};
        }
        if (found.number == Number::unknown) {
            continue;
        }
        if (!auxiliary && (isDemanded(line, found.first) || isFiniteVerb(line.tag(i + 1)))) {
            continue;
        }
        if (auxiliary && (is(verb, "have") || is(verb, "do")) && isDemanded(line, found.first)) {
            continue;
        }
        if (found.attracted && !auxiliary && tag == Tag::baseVerb) {
            continue;
        }
        const QString right = agreeing(verb, found.number, isUnreal(line, i), inflections);
        // Speech that is written down keeps its dialect: "We was robbed!"
        if (!right.isEmpty() && right != verb && !line.isQuoted(i) &&
            !(hiddenVerb && gainOf(line, tools, i, 1, {right}) < leastGainOfHidden(line, i))) {
            line.replace(i, right);
        }
    }
}

void agreeInRelativeClause(Line& line, const RuleTools& tools) {
    static const Words reasons = words("reason way time day place moment year fact");
    const auto hasPluralBefore = [](const Line& of, int i) {
        for (int k = sentenceStart(of, i); k < i; ++k) {
            if (of.tag(k) == Tag::pluralNoun) {
                return true;
            }
        }
        return false;
    };
    const Inflections& inflections = tools.inflections;
    for (int i = 2; i < line.wordCount(); ++i) {
        const QString relative = line.before(i);
        const QString verb = line.lower(i);
        if ((!is(relative, "who") && !is(relative, "that") && !is(relative, "which")) ||
            line.before(i - 1).isEmpty() || isProtected(line.word(i))) {
            continue;
        }
        const Tag tag = line.tag(i);
        if (!isAuxiliary(verb) && tag != Tag::presentVerb && tag != Tag::thirdPersonVerb &&
            tag != Tag::baseVerb) {
            continue;
        }
        if (!is(relative, "who") && line.tag(i - 1) != Tag::whDeterminer) {
            continue;
        }
        const auto phrase = nounPhraseEndingAt(line, i - 2);
        if (!phrase || isSubjectPronoun(line.lower(i - 2))) {
            continue;
        }
        const QString before = line.before(phrase->first);
        if (!before.isEmpty() && !isVerb(line.tag(phrase->first - 1)) && !opensClause(before) &&
            !is(before, "there")) {
            continue;
        }
        // "the reason that study": the subject is missing, not the ending. "the one who", of several: "ones".
        if ((!is(relative, "who") && reasons.contains(line.lower(i - 2))) ||
            (is(line.lower(i - 2), "one") && hasPluralBefore(line, phrase->first))) {
            continue;
        }
        const Number number = numberOf(line, *phrase, inflections);
        // "the needs that is": that may go back further than to the plural noun in front of it.
        if (number != Number::singular && !(number == Number::plural && is(relative, "who"))) {
            continue;
        }
        const QString right = agreeing(verb, number, isUnreal(line, i) || isDemanded(line, i), inflections);
        // A clause behind a noun often belongs to another noun before it: "one of the men who are here".
        if (!right.isEmpty() && right != verb && !(is(verb, "were") || is(verb, "have")) &&
            gainOf(line, tools, i, 1, {right}) >
                (is(relative, "who") ? leastGainBehindWho : leastGainBehindThat)) {
            line.replace(i, right);
        }
    }
}

void agreeAfterThere(Line& line, const RuleTools& tools) {
    static const Words manyWords = words("two three four five six seven eight nine ten many several");
    static const Words oneQuantities =
        words("lot number few couple variety range great dozen series handful host "
              "hundred thousand million large wide huge good small small growing "
              "pair bunch total wealth multitude majority little bit");
    static const Table many = table("is:are was:were isn't:aren't wasn't:weren't");
    static const Table one = table("are:is were:was aren't:isn't weren't:wasn't");
    for (int i = 1; i + 1 < line.wordCount(); ++i) {
        const QString verb = line.lower(i);
        if (!is(line.before(i), "there") || !(many.contains(verb) || one.contains(verb)) ||
            line.word(i).text != verb) {
            continue;
        }
        const QString next = line.follows(i + 1);
        const QString after = line.follows(i + 2);
        if (many.contains(verb)) {
            int head = -1;
            if (manyWords.contains(next) && !is(after, "a") && !is(after, "an")) {
                head = i + 2;
            } else if ((is(next, "a") && is(after, "lot") && is(line.follows(i + 3), "of"))) {
                head = i + 4;
            } else if (is(next, "lots") && is(after, "of")) {
                head = i + 3;
            } else if (is(next, "some") || is(next, "no")) {
                head = i + 2;
            } else if (!next.isEmpty()) {
                head = i + 1;
            }
            while (head > 0 && (isAdjective(line.tag(head)) || is(line.lower(head), "also")) &&
                   line.isNextTo(head + 1)) {
                ++head;
            }
            const QString noun = line.lower(head);
            if (head > 0 && line.isNextTo(head) && line.tag(head) == Tag::pluralNoun &&
                line.cliticTag(head) == Tag::other &&
                (is(noun, "people") ||
                 (tools.inflections.is(noun, Form::plural) && !tools.inflections.is(noun, Form::singular) &&
                  !isPluralInForm(noun))) &&
                !isNoun(line.tag(head + 1))) {
                line.replace(i, many.value(verb));
            }
        } else if ((is(next, "a") || is(next, "an") || is(next, "another")) &&
                   !oneQuantities.contains(after)) {
            int head = i + 2;
            while (isAdjective(line.tag(head)) && line.isNextTo(head + 1)) {
                ++head;
            }
            const QString noun = line.lower(head);
            if (line.isNextTo(head) && line.tag(head) == Tag::noun && tools.inflections.isCounted(noun) &&
                !isGroupOrQuantity(noun) && !is(line.follows(head + 1), "and") &&
                !is(line.follows(head + 1), "or") && !isNoun(line.tag(head + 1)) &&
                line.punctuationAfter(head) != u',' && !oneQuantities.contains(noun)) {
                line.replace(i, one.value(verb));
            }
        }
    }
}

} // namespace vellumline
