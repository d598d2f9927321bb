#include "VellumlineService/Correction/Rules.h"

#include "VellumlineService/Correction/Confusions.h"
#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"
#include "VellumlineService/Correction/Spelling.h"

#include <QHash>
#include <QSet>
#include <algorithm>

namespace vellumline {

namespace {

const Table& pastToParticiple() {
    static const Table made =
        table("went:gone ate:eaten took:taken wrote:written broke:broken gave:given knew:known drove:driven "
              "began:begun "
              "sang:sung swam:swum spoke:spoken chose:chosen flew:flown threw:thrown grew:grown wore:worn "
              "drank:drunk "
              "saw:seen did:done forgot:forgotten stole:stolen rode:ridden fell:fallen");
    return made;
}

const Words& clauseWords() {
    static const Words made =
        words("and or in on at for from to of with that who which were are was is have had do "
              "yesterday today tomorrow tonight ago here there but because when while before "
              "after by belongs belong last every this");
    return made;
}

void doubledWords(Line& line, const RuleTools&) {
    static const Words doubled =
        words("the a an of to and at for with will it we they he she i by from or as my your "
              "their our this can if");
    for (int i = 1; i < line.wordCount(); ++i) {
        const QString word = line.follows(i);
        if (!word.isEmpty() && word == line.lower(i - 1) && doubled.contains(word)) {
            line.remove(i);
            --i;
        }
    }
}

void loneI(Line& line, const RuleTools&) {
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (token.quotedAlone || token.hyphenated || !token.text.startsWith(u'i')) {
            continue;
        }
        const QString& word = token.lower;
        const QChar after = line.punctuationAfter(i);
        if (is(word, "i") && after != u'.' && after != u')' && after != u':' && !line.looksLikeCode()) {
            line.replaceExactly(i, QStringLiteral("I"));
        } else if (is(word, "i'm") || is(word, "i've") || is(word, "i'll") || is(word, "i'd")) {
            line.replaceExactly(i, u'I' + word.mid(1));
        }
    }
}

void knownSlips(Line& line, const RuleTools&) {
    static const Table slips = table(
        "dont:don't doesnt:doesn't didnt:didn't isnt:isn't arent:aren't wasnt:wasn't werent:weren't "
        "havent:haven't "
        "hasnt:hasn't hadnt:hadn't couldnt:couldn't wouldnt:wouldn't shouldnt:shouldn't cant:can't "
        "youre:you're "
        "theyre:they're weve:we've theyve:they've youve:you've thats:that's whats:what's wheres:where's "
        "heres:here's "
        "theres:there's hes:he's shes:she's mustnt:mustn't neednt:needn't "
        "buyed:bought goed:went eated:ate runned:ran catched:caught teached:taught thinked:thought "
        "bringed:brought "
        "drived:drove writed:wrote breaked:broke speaked:spoke taked:took maked:made gived:gave knowed:knew "
        "finded:found feeled:felt keeped:kept sleeped:slept swimmed:swam drinked:drank comed:came "
        "becomed:became "
        "choosed:chose losed:lost selled:sold telled:told standed:stood understanded:understood payed:paid "
        "sended:sent "
        "spended:spent builded:built cutted:cut hurted:hurt throwed:threw growed:grew flied:flew "
        "fighted:fought "
        "forgetted:forgot getted:got heared:heard holded:held meeted:met rided:rode ringed:rang sayed:said "
        "seed:seed "
        "sitted:sat stealed:stole sweared:swore teared:tore weared:wore winned:won wored:wore tooked:took "
        "childs:children tooths:teeth sheeps:sheep deers:deer mices:mice informations:information "
        "furnitures:furniture advices:advice homeworks:homework equipments:equipment luggages:luggage "
        "untill:until wonderfull:wonderful stressfull:stressful beautifull:beautiful usefull:useful "
        "helpfull:helpful carefull:careful successfull:successful powerfull:powerful peacefull:peaceful "
        "allready:already allways:always putted:put costed:cost themself:themselves theirself:themselves "
        "hisself:himself ourself:ourselves "
        "aswell:as_well alot:a_lot eachother:each_other infact:in_fact incase:in_case atleast:at_least "
        "inspite:in_spite abit:a_bit thankyou:thank_you "
        "does'nt:doesn't did'nt:didn't is'nt:isn't was'nt:wasn't are'nt:aren't were'nt:weren't "
        "have'nt:haven't has'nt:hasn't would'nt:wouldn't could'nt:couldn't should'nt:shouldn't "
        "dosen't:doesn't dose'nt:doesn't dont't:don't do'nt:don't ca'nt:can't wo'nt:won't "
        "wether:whether teh:the adn:and taht:that thier:their becuase:because knowledges:knowledge "
        "sceneries:scenery baggages:baggage clothings:clothing");
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (isProtected(token)) {
            continue;
        }
        const QString word = token.lower;
        if (is(word, "im") || is(word, "ive")) {
            line.replaceExactly(i, is(word, "im") ? QStringLiteral("I'm") : QStringLiteral("I've"));
        } else if (is(word, "wont") &&
                   !words("his her their its my our as be been was is are were").contains(line.before(i)) &&
                   !is(line.follows(i + 1), "to")) {
            line.replace(i, QStringLiteral("won't"));
        } else if (slips.contains(word) && slips.value(word) != word) {
            line.replace(i, slips.value(word));
        }
    }
}

void capitalNames(Line& line, const RuleTools&) {
    static const Words names = words(
        "monday tuesday wednesday thursday friday saturday sunday mondays tuesdays wednesdays thursdays "
        "fridays saturdays sundays january february "
        "september october november december english spanish italian chinese japanese "
        "russian european american british christmas");
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (!token.quotedAlone && !token.hyphenated && !line.looksLikeCode() && token.text == token.lower &&
            names.contains(token.lower)) {
            line.replaceExactly(i, token.text.front().toUpper() + token.text.mid(1));
        }
    }
}

void haveWithPast(Line& line, const RuleTools&) {
    static const Words have = words("has have had");
    bool pastTime = false;
    for (int i = 0; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        pastTime = pastTime || is(word, "yesterday") || is(word, "ago") ||
                   (is(word, "last") && words("night week month year").contains(line.follows(i + 1)));
    }
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString past = line.follows(i + 1);
        const QString subject = line.before(i);
        if (!have.contains(line.lower(i)) || !pastToParticiple().contains(past) || subject.isEmpty() ||
            !words("i he she it we they you who").contains(subject)) {
            continue;
        }
        if (pastTime && !is(line.lower(i), "had")) {
            line.remove(i);
        } else {
            line.replace(i + 1, pastToParticiple().value(past));
        }
    }
}

void modalSlips(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    static const Words modals = words("must should could would might");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        if (!modals.contains(line.lower(i))) {
            continue;
        }
        const QString next = line.follows(i + 1);
        if (is(next, "of") && !line.follows(i + 2).isEmpty() && !is(line.follows(i + 2), "course")) {
            line.replace(i + 1, QStringLiteral("have"));
        } else if (is(next, "to") && (is(line.lower(i), "must") || is(line.lower(i), "should")) &&
                   (speller.isVerb(line.follows(i + 2)) || is(line.follows(i + 2), "call"))) {
            line.remove(i + 1);
        }
    }
}

void articles(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    static const Words letterLike = words("a and or is in an are of as i at on to it if am be by");
    static const QStringList consonantSound = {
        QStringLiteral("uni"),  QStringLiteral("use"), QStringLiteral("usu"),  QStringLiteral("usa"),
        QStringLiteral("eu"),   QStringLiteral("ewe"), QStringLiteral("util"), QStringLiteral("uto"),
        QStringLiteral("ubiq"), QStringLiteral("one"), QStringLiteral("once"), QStringLiteral("ura"),
        QStringLiteral("uri"),  QStringLiteral("ute")};
    static const QStringList vowelSound = {QStringLiteral("hour"), QStringLiteral("honest"),
                                           QStringLiteral("honor"), QStringLiteral("honour"),
                                           QStringLiteral("heir")};
    static const QStringList uninflected = {QStringLiteral("unin"), QStringLiteral("unim"),
                                            QStringLiteral("unid")};
    const auto startsWith = [](const QString& word, const QStringList& stems) {
        return std::any_of(stems.cbegin(), stems.cend(),
                           [&](const QString& stem) { return word.startsWith(stem); });
    };
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString article = line.lower(i);
        const Token& next = line.word(i + 1);
        const QString word = line.follows(i + 1);
        if ((!is(article, "a") && !is(article, "an")) || word.size() < 3 || next.text != next.lower ||
            !isAscii(word) || (line.word(i).text != article && !line.word(i).startsSentence) ||
            line.word(i).hyphenated || letterLike.contains(word) || !speller.isKnown(word)) {
            continue;
        }
        const bool vowelLetter = QStringView(u"aeiou").contains(word.front());
        const bool vowel =
            startsWith(word, vowelSound) ||
            (vowelLetter && (!startsWith(word, consonantSound) || startsWith(word, uninflected)));
        if (vowel && is(article, "a")) {
            line.replace(i, QStringLiteral("an"));
        } else if (!vowel && is(article, "an") && !word.startsWith(u'h')) {
            line.replace(i, QStringLiteral("a"));
        }
    }
}

void confusions(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    static const Words comparatives =
        words("more less rather better worse larger bigger smaller greater higher lower "
              "older younger faster longer shorter other");
    static const Words possessors = words("your my the his her their our its");
    static const Words afterIts = words("a an been going very too so raining important hard easy");
    for (int i = 0; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString before = line.before(i);
        const QString next = line.follows(i + 1);
        if (is(word, "then") && comparatives.contains(before) && !is(before, "other") && !next.isEmpty() &&
            !concludesCondition(line, i)) {
            line.replace(i, QStringLiteral("than"));
        } else if (is(word, "your") && is(next, "welcome")) {
            line.replace(i, QStringLiteral("you're"));
        } else if (((is(word, "you're") && speller.isNoun(next)) ||
                    (is(word, "they're") && isNoun(line.tag(i + 1)) && tools.inflections.isCounted(next) &&
                     !next.endsWith(QStringLiteral("ing")))) &&
                   (line.endsClause(i + 1) || clauseWords().contains(line.follows(i + 2))) &&
                   gainOf(line, tools, i, 1,
                          {is(word, "you're") ? QStringLiteral("your") : QStringLiteral("their")}) > 0) {
            line.replace(i, is(word, "you're") ? QStringLiteral("your") : QStringLiteral("their"));
        } else if (is(word, "it's") && is(next, "own")) {
            line.replace(i, QStringLiteral("its"));
        } else if (is(word, "it's") &&
                   words("wagged wagging wags lost changed changes reached shook").contains(before)) {
            line.replace(i, QStringLiteral("its"));
        } else if (is(word, "its") && afterIts.contains(next)) {
            line.replace(i, QStringLiteral("it's"));
        } else if (is(word, "their") && words("is are was were isn't aren't").contains(next)) {
            line.replace(i, QStringLiteral("there"));
        } else if (is(word, "there") && is(next, "own")) {
            line.replace(i, QStringLiteral("their"));
        } else if (is(word, "their") && words("over").contains(before) &&
                   (line.endsClause(i) || words("now and").contains(next))) {
            line.replace(i, QStringLiteral("there"));
        } else if (is(word, "too") &&
                   words("need needs want wants have has going able like try used decided")
                       .contains(before) &&
                   speller.isVerb(next)) {
            line.replace(i, QStringLiteral("to"));
        } else if (is(word, "loose") &&
                   words("don't not to will can could would didn't can't").contains(before) &&
                   (possessors.contains(next) || is(next, "weight") || is(next, "money"))) {
            line.replace(i, QStringLiteral("lose"));
        } else if (is(word, "affect") && words("no an any the big great little").contains(before) &&
                   (is(next, "on") || is(next, "of"))) {
            line.replace(i, QStringLiteral("effect"));
        } else if (is(word, "weather") && words("sure know decide wonder ask").contains(before) &&
                   words("i he she it we they you to the").contains(next)) {
            line.replace(i, QStringLiteral("whether"));
        } else if (is(word, "who's") && words("turn idea fault house car").contains(next)) {
            line.replace(i, QStringLiteral("whose"));
        } else if (is(word, "suppose") && is(next, "to") &&
                   words("am is are was were be i'm not").contains(before)) {
            line.replace(i, QStringLiteral("supposed"));
        }
    }
}

bool hasVerb(const Line& line) {
    for (int i = 0; i < line.wordCount(); ++i) {
        if (isVerb(line.tag(i)) || isVerb(line.cliticTag(i))) {
            return true;
        }
    }
    return false;
}

void sentenceCapital(Line& line, const RuleTools&) {
    if (line.looksLikeCode()) {
        return;
    }
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        // A short line without an end may be a label, a list item or a part of a sentence.
        // So is a line without a verb ("eggs, milk, two loaves of bread") or one with a call or a path
        // inside.
        const bool sentence =
            i > 0 || line.endsSentence() || (line.wordCount() >= 5 && hasVerb(line) && !line.hasCodeInside());
        if (token.startsSentence && sentence && token.text == token.lower && !token.hyphenated) {
            line.replaceExactly(i, token.text.front().toUpper() + token.text.mid(1));
        }
    }
}

} // namespace

const std::vector<Rule>& correctionRules() {
    static const std::vector<Rule> rules = {
        {"doubled-word", "The same word stands there twice.", doubledWords},
        {"known-slip", "A form that does not exist, or words run together.", knownSlips},
        {"capital-name", "Names of days, months and languages have a capital.", capitalNames},
        {"doubled-likely", "The same word stands there twice.", doubledByModel},
        {"lone-i", "The pronoun I is always a capital.", loneI},
        {"have-with-past", "After have stands the participle.", haveWithPast},
        {"over-regular", "This word has a form of its own.", overRegularForm},
        {"spelling", "The word is in no dictionary; this is the likeliest meant one.", applySpelling},
        {"confusion", "A word that sounds alike was meant.", confusions},
        {"confusion-frame", "Beside these words another one was meant.", confusionFrames},
        {"real-word", "Another word that is spelt alike fits much better here.", applyRealWordConfusions},
        {"modal-slip", "After a modal verb stands the base form, without to and without of.", modalSlips},
        {"space-before-sign", "No space stands before a comma or a full stop.", spaceBeforeSign},
        {"fixed-phrase", "The phrase goes like this.", fixedPhrase},
        {"have-participle", "After have stands the participle.", participleAfterHave},
        {"be-participle", "After be stands the participle.", participleAfterBe},
        {"be-participle-frame", "After be stands the participle.", participleAfterBeFrames},
        {"do-base", "After do stands the base form.", baseAfterDo},
        {"modal-base", "After a modal verb stands the base form.", baseAfterModal},
        {"to-base", "After to stands the base form.", baseAfterTo},
        {"preposition-gerund", "After a preposition stands the -ing form.", gerundAfterPreposition},
        {"verb-gerund", "After this verb stands the -ing form.", gerundAfterVerb},
        {"verb-to", "After this verb stands to.", toAfterWant},
        {"let-bare", "After let and make stands the verb without to.", bareAfterLet},
        {"be-beside-verb", "The verb needs no be.", noBeBesideVerb},
        {"be-gerund", "After be stands the -ing form.", gerundAfterBe},
        {"much-likely", "much goes with what is weighed, and with comparatives.", muchByModel},
        {"other-others", "others stands alone, other before a noun.", othersBeforeNoun},
        {"two-determiners", "One article or possessive is enough.", twoDeterminers},
        {"possessor", "The possessor has an apostrophe.", possessor},
        {"past-time", "A time in the past goes with the past tense.", pastTime},
        {"finite-be", "After a subject be has a form of its own.", finiteBe},
        {"adverb-form", "How something is done is said by an adverb.", adverbAfterVerb},
        {"be-form", "After be stands a participle or the -ing form.", formAfterBe},
        {"introductory-comma", "A comma stands after the introduction.", introductoryComma},
        {"comma-after-phrase", "A comma stands after the introduction.", commaAfterPhrase},
        {"plural-after-many", "More than one: the noun is in the plural.", pluralAfterMany},
        {"plural-after-figure", "More than one: the noun is in the plural.", pluralAfterFigure},
        {"one-of-many", "One of several: the noun is in the plural.", oneOfMany},
        {"uncounted-plural", "The noun has no plural.", uncountedPlural},
        {"uncounted-article", "The noun is not counted and takes no a.", articleOfUncounted},
        {"singular-after-each", "One at a time: the noun is in the singular.", singularAfterEach},
        {"this-these", "this goes with one, these with more.", demonstrativeNumber},
        {"much-many", "much goes with what is weighed, many with what is counted.", muchAndMany},
        {"quantity-of", "Without the, no of stands between.", noOfBeforeBareNoun},
        {"subject-verb", "The verb agrees with its subject.", agreeWithSubject},
        {"relative-clause-verb", "The verb agrees with the noun before who, which or that.",
         agreeInRelativeClause},
        {"there-is", "After there the verb agrees with what follows.", agreeAfterThere},
        {"verb-preposition", "The verb takes another preposition, or none.", prepositionOfVerb},
        {"adjective-preposition", "The adjective takes another preposition.", prepositionOfAdjective},
        {"missing-preposition", "The verb takes a preposition.", missingPreposition},
        {"tell-say", "One tells somebody and says something.", tellAndSay},
        {"time-preposition", "Times take a preposition of their own.", prepositionOfTime},
        {"missing-article", "An article is missing.", missingArticle},
        {"double-comparative", "One sign of comparison is enough.", doubleComparative},
        {"comparative-likely", "A short adjective has a comparative of its own.", comparativeByModel},
        {"article-likely", "An article is missing.", articleByModel},
        {"plural-likely", "Without an article the noun is in the plural.", pluralByModel},
        {"pronoun-case", "The pronoun has another form in this place.", pronounCase},
        {"comma-before-but", "A comma stands before the second clause.", commaBeforeBut},
        {"comma-after-clause", "A comma stands after the first clause.", commaAfterIfClause},
        {"question-mark", "A question ends with a question mark.", questionMark},
        {"a-an", "a or an goes by the sound that follows.", articles},
        {"sentence-capital", "A sentence starts with a capital.", sentenceCapital},
    };
    return rules;
}

} // namespace vellumline
