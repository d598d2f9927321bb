#include "VellumlineService/Correction/Rules.h"

#include "VellumlineService/Correction/Confusions.h"
#include "VellumlineService/Correction/Spelling.h"

#include <QHash>
#include <QSet>
#include <algorithm>

namespace vellumline {

namespace {

using Words = QSet<QString>;
using Table = QHash<QString, QString>;

Words words(const char* text) {
    const QStringList list = QString::fromLatin1(text).split(u' ', Qt::SkipEmptyParts);
    return {list.cbegin(), list.cend()};
}

/// "wrong:right wrong:right", with "_" for a space.
Table table(const char* text) {
    Table made;
    const QStringList pairs = QString::fromLatin1(text).split(u' ', Qt::SkipEmptyParts);
    for (const QString& pair : pairs) {
        const qsizetype colon = pair.indexOf(u':');
        made.insert(pair.left(colon), pair.mid(colon + 1).replace(u'_', u' '));
    }
    return made;
}

bool is(const QString& word, const char* text) {
    return word == QLatin1String(text);
}

bool isAscii(const QString& word) {
    return std::all_of(word.cbegin(), word.cend(), [](QChar c) { return c.unicode() < 128; });
}

/// A name, an acronym, a word that is talked about, a part of a compound: not ours to judge.
bool isProtected(const Token& token) {
    if (token.quotedAlone || token.hyphenated || !isAscii(token.lower)) {
        return true;
    }
    const auto capitals =
        std::count_if(token.text.cbegin(), token.text.cend(), [](QChar c) { return c.isUpper(); });
    return capitals > 1 || (capitals == 1 && !token.startsSentence);
}

const Table& pastToBase() {
    static const Table made =
        table("went:go came:come ate:eat took:take wrote:write gave:give knew:know drove:drive began:begin "
              "ran:run sang:sing "
              "swam:swim spoke:speak forgot:forget chose:choose flew:fly threw:throw grew:grow wore:wear "
              "drank:drink "
              "bought:buy brought:bring caught:catch taught:teach told:tell sold:sell made:make had:have "
              "paid:pay said:say "
              "kept:keep slept:sleep met:meet sent:send spent:spend built:build lost:lose got:get "
              "understood:understand "
              "won:win knew:know became:become stole:steal broke:break woke:wake rode:ride");
    return made;
}

const Table& pastToParticiple() {
    static const Table made =
        table("went:gone ate:eaten took:taken wrote:written broke:broken gave:given knew:known drove:driven "
              "began:begun "
              "sang:sung swam:swum spoke:spoken chose:chosen flew:flown threw:thrown grew:grown wore:worn "
              "drank:drunk "
              "saw:seen did:done forgot:forgotten stole:stolen rode:ridden fell:fallen");
    return made;
}

const Words& numbersAboveOne() {
    static const Words made = words("two three four five six seven eight nine ten eleven twelve thirteen "
                                    "fourteen fifteen sixteen seventeen "
                                    "eighteen nineteen twenty thirty forty fifty sixty seventy eighty ninety "
                                    "many several few these those");
    return made;
}

const Words& clauseWords() {
    static const Words made =
        words("and or in on at for from to of with that who which were are was is have had do "
              "yesterday today tomorrow tonight ago here there but because when while before "
              "after by belongs belong last every this");
    return made;
}

QString plural(const QString& noun) {
    static const Table irregular =
        table("man:men woman:women child:children person:people foot:feet tooth:teeth "
              "mouse:mice knife:knives life:lives wife:wives leaf:leaves half:halves "
              "shelf:shelves loaf:loaves thief:thieves potato:potatoes tomato:tomatoes "
              "hero:heroes echo:echoes");
    const auto found = irregular.constFind(noun);
    if (found != irregular.constEnd()) {
        return *found;
    }
    if (noun.endsWith(QStringLiteral("s")) || noun.endsWith(QStringLiteral("x")) ||
        noun.endsWith(QStringLiteral("z")) || noun.endsWith(QStringLiteral("ch")) ||
        noun.endsWith(QStringLiteral("sh"))) {
        return noun + QStringLiteral("es");
    }
    if (noun.endsWith(u'y') && noun.size() > 1 && !QStringView(u"aeiou").contains(noun.at(noun.size() - 2))) {
        return noun.chopped(1) + QStringLiteral("ies");
    }
    return noun + u's';
}

QString thirdPerson(const QString& verb) {
    if (is(verb, "have")) {
        return QStringLiteral("has");
    }
    if (is(verb, "go") || is(verb, "do")) {
        return verb + QStringLiteral("es");
    }
    return plural(verb);
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
        "aswell:as_well alot:a_lot eachother:each_other infact:in_fact incase:in_case atleast:at_least "
        "inspite:in_spite abit:a_bit thankyou:thank_you");
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (isProtected(token)) {
            continue;
        }
        const QString word = token.lower;
        if (is(word, "im") || is(word, "ive")) {
            line.replaceExactly(i, is(word, "im") ? QStringLiteral("I'm") : QStringLiteral("I've"));
        } else if (is(word, "wont") &&
                   !words("his her their its my our as be was is").contains(line.before(i))) {
            line.replace(i, QStringLiteral("won't"));
        } else if (slips.contains(word) && slips.value(word) != word) {
            line.replace(i, slips.value(word));
        }
    }
}

void capitalNames(Line& line, const RuleTools&) {
    static const Words names =
        words("monday tuesday wednesday thursday friday saturday sunday january february "
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

void agreement(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    static const Words third = words("he she it");
    static const Words plurals = words("we they you");
    static const Words inverted = words("did does do should would could will can might may must shall let "
                                        "make makes made see saw help that lest "
                                        "and or nor if and than as didn't don't doesn't won't can't couldn't "
                                        "wouldn't shouldn't both hear heard "
                                        "watch have had has is was were are to");
    static const Words of = words("of to with about for from and or between than like by on in at that");
    static const Words pastLikeBase =
        words("put let set cut hit hurt read cost shut quit spread split cast bet burst "
              "bid beat come run become wed rid thrust forecast broadcast overcome found "
              "lay saw felt ground wound bound fell needs dare need");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString subject = line.lower(i);
        const QString verb = line.follows(i + 1);
        const QString before = line.before(i);
        if (verb.isEmpty()) {
            continue;
        }
        if (is(subject, "i")) {
            if (is(before, "and") || is(before, "or") || is(before, "nor")) {
                continue;
            }
            if (is(verb, "has")) {
                line.replace(i + 1, QStringLiteral("have"));
            } else if (is(verb, "is") && (line.word(i).startsSentence || before.isEmpty())) {
                line.replace(i + 1, QStringLiteral("am"));
            } else if (is(verb, "doesn't")) {
                line.replace(i + 1, QStringLiteral("don't"));
            }
        } else if (third.contains(subject)) {
            const bool free = line.word(i).startsSentence ||
                              (!inverted.contains(before) && !of.contains(before) && !before.isEmpty());
            if (is(verb, "don't") && !is(before, "and") && !is(before, "or")) {
                line.replace(i + 1, QStringLiteral("doesn't"));
            } else if (free && (is(verb, "have") || is(verb, "are"))) {
                line.replace(i + 1, is(verb, "have") ? QStringLiteral("has") : QStringLiteral("is"));
            } else if (line.word(i).startsSentence && speller.isVerb(verb) && !pastLikeBase.contains(verb) &&
                       speller.frequency(thirdPerson(verb)) >= 20 && !is(verb, "be")) {
                line.replace(i + 1, thirdPerson(verb));
            }
        } else if (plurals.contains(subject) && !of.contains(before)) {
            if (is(verb, "was")) {
                line.replace(i + 1, QStringLiteral("were"));
            } else if (is(verb, "has")) {
                line.replace(i + 1, QStringLiteral("have"));
            } else if (is(verb, "is")) {
                line.replace(i + 1, QStringLiteral("are"));
            } else if (is(verb, "doesn't")) {
                line.replace(i + 1, QStringLiteral("don't"));
            }
        } else if ((is(before, "every") || is(before, "each")) && speller.isNoun(subject) &&
                   (is(verb, "have") || is(verb, "don't") || is(verb, "are"))) {
            line.replace(i + 1, is(verb, "have")    ? QStringLiteral("has")
                                : is(verb, "don't") ? QStringLiteral("doesn't")
                                                    : QStringLiteral("is"));
        } else if (is(subject, "there") && (is(verb, "was") || is(verb, "is")) &&
                   line.word(i).startsSentence &&
                   words("two three four five six seven eight nine ten many several")
                       .contains(line.follows(i + 2)) &&
                   !is(line.follows(i + 3), "a") && !is(line.follows(i + 3), "an")) {
            line.replace(i + 1, is(verb, "was") ? QStringLiteral("were") : QStringLiteral("are"));
        }
    }
}

void didWithPast(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    static const Words subjects = words("i he she it we they you");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        int at = i + 1;
        if (is(word, "did") && (is(line.follows(at), "not") || subjects.contains(line.follows(at)))) {
            ++at;
        } else if (!is(word, "didn't")) {
            continue;
        }
        const QString past = line.follows(at);
        if (pastToBase().contains(past)) {
            line.replace(at, pastToBase().value(past));
        } else if (past.endsWith(QStringLiteral("ed"))) {
            for (const QString& base : {past.chopped(2), past.chopped(1)}) {
                if (speller.isVerb(base)) {
                    line.replace(at, base);
                    break;
                }
            }
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

void numberWithSingular(Line& line, const RuleTools& tools) {
    const Speller& speller = tools.speller;
    static const Words measures = words("hundred thousand million billion dozen score half hour pair");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString noun = line.follows(i + 1);
        if (noun.isEmpty() || !numbersAboveOne().contains(line.lower(i)) || line.word(i).hyphenated ||
            isProtected(line.word(i + 1)) || measures.contains(noun) || !speller.isNoun(noun)) {
            continue;
        }
        const QString many = plural(noun);
        // A noun whose plural is rare is not counted ("two percent", "many evidence").
        if (speller.frequency(many) * 8 < speller.frequency(noun) ||
            !(line.endsClause(i + 1) || clauseWords().contains(line.follows(i + 2)))) {
            continue;
        }
        line.replace(i + 1, many);
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
        if (is(word, "then") && comparatives.contains(before) && !is(before, "other") && !next.isEmpty()) {
            line.replace(i, QStringLiteral("than"));
        } else if (is(word, "your") && is(next, "welcome")) {
            line.replace(i, QStringLiteral("you're"));
        } else if (is(word, "you're") && speller.isNoun(next) &&
                   (line.endsClause(i + 1) || clauseWords().contains(line.follows(i + 2)))) {
            line.replace(i, QStringLiteral("your"));
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

void sentenceCapital(Line& line, const RuleTools&) {
    if (line.looksLikeCode()) {
        return;
    }
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        // A short line without an end may be a label, a list item or a part of a sentence.
        const bool sentence = i > 0 || line.endsSentence() || line.wordCount() >= 5;
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
        {"spelling", "The word is in no dictionary; this is the likeliest meant one.", applySpelling},
        {"lone-i", "The pronoun I is always a capital.", loneI},
        {"have-with-past", "After have stands the participle.", haveWithPast},
        {"agreement", "The verb agrees with its subject.", agreement},
        {"did-with-past", "After did stands the base form.", didWithPast},
        {"modal-slip", "After a modal verb stands the base form, without to and without of.", modalSlips},
        {"number-with-singular", "More than one: the noun is in the plural.", numberWithSingular},
        {"confusion", "A word that sounds alike was meant.", confusions},
        {"real-word", "Another word that is spelt alike fits much better here.", applyRealWordConfusions},
        {"a-an", "a or an goes by the sound that follows.", articles},
        {"capital-name", "Names of days, months and languages have a capital.", capitalNames},
        {"sentence-capital", "A sentence starts with a capital.", sentenceCapital},
    };
    return rules;
}

} // namespace vellumline
