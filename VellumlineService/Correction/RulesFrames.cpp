#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

namespace vellumline {

namespace {

/// Puts one run of words in the place of another; what both have at their ends stays.
void rewrite(Line& line, int at, QStringList wrong, QStringList right) {
    while (!wrong.isEmpty() && !right.isEmpty() && wrong.first() == right.first()) {
        wrong.removeFirst();
        right.removeFirst();
        ++at;
    }
    while (!wrong.isEmpty() && !right.isEmpty() && wrong.last() == right.last()) {
        wrong.removeLast();
        right.removeLast();
    }
    while (!wrong.isEmpty() && !right.isEmpty()) {
        line.replace(at++, right.takeFirst());
        wrong.removeFirst();
    }
    for (qsizetype i = 0; i < wrong.size(); ++i) {
        line.remove(at);
    }
    while (!right.isEmpty()) {
        line.insertBefore(at, right.takeLast());
    }
}

using Phrases = QHash<QString, QList<std::pair<QStringList, QStringList>>>;

/// "wrong words:right words" for each string, by the first wrong word.
Phrases phrases(std::initializer_list<const char*> list) {
    Phrases made;
    for (const char* text : list) {
        const QStringList sides = QString::fromLatin1(text).split(u':');
        const QStringList wrong = sides.at(0).split(u' ');
        made[wrong.first()].append({wrong, sides.at(1).split(u' ')});
    }
    return made;
}

void applyPhrases(Line& line, const Phrases& table) {
    for (int i = 0; i < line.wordCount(); ++i) {
        const auto found = table.constFind(line.lower(i));
        if (found == table.constEnd() || line.word(i).hyphenated || line.word(i).quotedAlone) {
            continue;
        }
        for (const auto& [wrong, right] : *found) {
            bool same = true;
            for (int k = 1; same && k < wrong.size(); ++k) {
                same = line.follows(i + k) == wrong.at(k) &&
                       (line.word(i + k).text == wrong.at(k) || is(wrong.at(k), "i"));
            }
            const int last = i + static_cast<int>(wrong.size()) - 1;
            if (same && !(last + 1 < line.wordCount() && line.word(last).hyphenated)) {
                rewrite(line, i, wrong, right);
                i += static_cast<int>(right.size()) - 1;
                break;
            }
        }
    }
}

QString verbLemma(const QString& word, const Inflections& inflections) {
    for (const Form form : {Form::base, Form::past, Form::participle, Form::gerund, Form::thirdPerson}) {
        QString lemma = inflections.lemma(word, form);
        if (!lemma.isEmpty()) {
            return lemma;
        }
    }
    return {};
}

bool isObjectPronoun(const QString& word) {
    static const Words pronouns = words("me him her us them you it");
    return pronouns.contains(word);
}

/// A noun phrase begins at the word.
bool startsObject(const Line& line, int i) {
    const Tag tag = line.tag(i);
    return tag == Tag::determiner || tag == Tag::possessivePronoun || isObjectPronoun(line.lower(i));
}

bool endsPhrase(const Line& line, int i) {
    if (!line.isNextTo(i + 1)) {
        return true;
    }
    const Tag next = line.tag(i + 1);
    return !isNoun(next) && !isAdjective(next) && next != Tag::gerund && next != Tag::number;
}

} // namespace

void fixedPhrase(Line& line, const RuleTools&) {
    static const Phrases table = phrases({
        "in the other hand:on the other hand",
        "on other hand:on the other hand",
        "in other hand:on the other hand",
        "at same time:at the same time",
        "in a such:in such a",
        "is a such:is such a",
        "i m:i'm",
        "home work:homework",
        "house work:housework",
        "an other:another",
        "with out:without",
        "most of time:most of the time",
        "most of the times:most of the time",
        "make a research:do research",
        "do a mistake:make a mistake",
        "do mistakes:make mistakes",
        "did a mistake:made a mistake",
        "take a photo to:take a photo of",
        "on the end of:at the end of",
        "in front the:in front of the",
        "instead to:instead of",
        "because the lack of:because of the lack of",
        "due the:due to the",
        "according the:according to the",
        "look forward to hear:look forward to hearing",
        "looking forward to hear:looking forward to hearing",
        "look forward to see:look forward to seeing",
        "looking forward to see:looking forward to seeing",
        "look forward to meet:look forward to meeting",
        "looking forward to meet:looking forward to meeting",
        "other wise:otherwise",
        "as soon as possibly:as soon as possible",
        "it's depend:it depends",
        "is depend on:depends on",
        "are depend on:depend on",
        "is consist of:consists of",
        "in this days:these days",
        "in these days:these days",
        "in last years:in recent years",
        "for long time:for a long time",
        "since long time:for a long time",
        "have a lunch:have lunch",
        "have a breakfast:have breakfast",
        "have a dinner:have dinner",
        "i'm agree:i agree",
        "in same time:at the same time",
        "in same way:in the same way",
        "as result of:as a result of",
        "in my point of view:from my point of view",
        "on my point of view:from my point of view",
        "despite of:despite",
        "inspite of:in spite of",
        "such us:such as",
        "by my own:on my own",
        "by your own:on your own",
        "by his own:on his own",
        "by their own:on their own",
        "by our own:on our own",
        "all over world:all over the world",
        "around world:around the world",
        "in nowadays:nowadays",
        "in internet:on the internet",
        "in the internet:on the internet",
        "on internet:on the internet",
        "go to abroad:go abroad",
        "going to abroad:going abroad",
        "went to abroad:went abroad",
        "in abroad:abroad",
        "go to shopping:go shopping",
        "went to shopping:went shopping",
        "going to shopping:going shopping",
        "go to home:go home",
        "went to home:went home",
        "going to home:going home",
        "back to home:back home",
        "by foot:on foot",
        "play important role:play an important role",
        "plays important role:plays an important role",
        "played important role:played an important role",
        "play an important roles:play important roles",
        "pay attention on:pay attention to",
        "more and more better:better and better",
        "in the case of that:in case",
        "the key of success:the key to success",
        "different of:different from",
        "according with:according to",
        "in order that to:in order to",
        "for to:to",
        "would like know:would like to know",
        "would like have:would like to have",
        "would like go:would like to go",
        "day by days:day by day",
        "step by steps:step by step",
        "all kind of:all kinds of",
        "many kind of:many kinds of",
        "these type of:these types of",
        "these sort of:these sorts of",
        "many type of:many types of",
        "different kind of:different kinds of",
        "two kind of:two kinds of",
        "all sort of:all sorts of",
        "points of views:points of view",
        "point of views:points of view",
        "one and other:one another",
        "each others:each other",
        "some body:somebody",
        "some one:someone",
        "every body:everybody",
        "any body:anybody",
        "no body:nobody",
        "can not:cannot",
        "some thing:something",
        "any thing:anything",
        "every thing:everything",
        "them self:themselves",
        "him self:himself",
        "her self:herself",
        "my self:myself",
        "your self:yourself",
        "it self:itself",
        "our selves:ourselves",
        "now a days:nowadays",
        "now days:nowadays",
        "in the nowadays:nowadays",

        "further more:furthermore",
        "how ever:however",
        "there fore:therefore",
        "never the less:nevertheless",
        "in to the:into the",
        "can able to:can",
        "at the other hand:on the other hand",
        "by the other hand:on the other hand",
        "from the other hand:on the other hand",
        "in the other side:on the other hand",
        "in other side:on the other hand",
        "a lots of:a lot of",
        "as matter of fact:as a matter of fact",
        "is reason why:is the reason why",
        "is main reason:is the main reason",
        "these day:these days",
        "those day:those days",
        "in the another hand:on the other hand",
        "on the another hand:on the other hand",
        "in another hand:on the other hand",
        "want to success:want to succeed",
        "wants to success:wants to succeed",
        "able to success:able to succeed",
        "how to success:how to succeed",
        "in modern world:in the modern world",
        "in real world:in the real world",
        "in present world:in the present world",
        "success man:successful man",
        "success person:successful person",
        "success people:successful people",
        "success woman:successful woman",
        "success life:successful life",
        "most easiest:easiest",
        "most smartest:smartest",
        "most biggest:biggest",
        "pays attention on:pays attention to",
        "paid attention on:paid attention to",
        "paying attention on:paying attention to",
        "because of i:because i",
        "because of he:because he",
        "because of she:because she",
        "because of we:because we",
        "because of they:because they",
        "is worth to try:is worth trying",
        "is worth to see:is worth seeing",
        "is worth to visit:is worth visiting",
        "is worth to read:is worth reading",
        "in spite the:in spite of the",
        "get marry:get married",
        "got marry:got married",
        "getting marry:getting married",
        "make a party:have a party",
        "made a party:had a party",
        "do a decision:make a decision",
        "do an effort:make an effort",
        "make sport:do sports",
        "make sports:do sports",
        "on the past:in the past",
        "at the past:in the past",
        "on my opinion:in my opinion",
        "at my opinion:in my opinion",
        "by my opinion:in my opinion",
        "from my opinion:in my opinion",
        "in the conclusion i:in conclusion i",
        "in conclude:in conclusion",
        "as conclusion:in conclusion",
        "in additional to:in addition to",
        "as well like:as well as",
        "the same like:the same as",
        "and so one:and so on",
        "and so fourth:and so forth",
        "at lest:at least",
        "in contrary:on the contrary",
        "on contrary:on the contrary",
    });
    static const Words afterLot =
        words("a the whole this that every quite an such same our their his her my your one large awful "
              "huge great wonderful terrible big each");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        if (is(line.lower(i), "lot") && is(line.follows(i + 1), "of") && !line.before(i).isEmpty() &&
            !afterLot.contains(line.before(i)) && !isAdjective(line.tag(i - 1))) {
            line.insertBefore(i, QStringLiteral("a"));
            ++i;
        }
    }
    applyPhrases(line, table);
}

void prepositionOfVerb(Line& line, const RuleTools& tools) {
    // verb wrong:right; "-" for none.
    static const Table frames = table(
        "depend_of:on depend_from:on depend_in:on consist_from:of discuss_about:- emphasize_on:- "
        "emphasise_on:- "
        "mention_about:- participate_to:in focus_at:on rely_in:on rely_of:on rely_to:on insist_to:on "
        "suffer_of:from "
        "protect_of:from differ_of:from worry_of:about return_back:- obey_to:- resemble_to:- "
        "consider_about:- "
        "describe_about:- base_in:on concentrate_at:on comprise_of:- accuse_for:of affect_on:- affect_to:- "
        "explain_about:- influence_to:- enter_in:- enter_to:- contact_with:- contact_to:- marry_with:to "
        "arrive_to:at");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString preposition = line.follows(i + 1);
        if (preposition.isEmpty() || preposition.size() > 5 || !isVerb(line.tag(i)) ||
            !line.isNextTo(i + 2) || isProtected(line.word(i))) {
            continue;
        }
        const auto found = frames.constFind(verbLemma(line.lower(i), tools.inflections) + u' ' + preposition);
        if (found == frames.constEnd() || is(line.lower(i + 2), "which") || is(line.lower(i + 2), "whom")) {
            continue;
        }
        // "arrived to find it closed", and one arrives in a city but at a station.
        if (found.key().startsWith(QStringLiteral("arrive"))) {
            static const Words wide = words("city country town village island capital area region world");
            const bool inside = wide.contains(line.lower(i + 3)) && line.isNextTo(i + 3);
            if (line.tag(i + 2) == Tag::determiner || line.tag(i + 2) == Tag::possessivePronoun) {
                line.replace(i + 1, inside ? QStringLiteral("in") : QStringLiteral("at"));
            }
            continue;
        }
        if (*found != QStringLiteral("-")) {
            line.replace(i + 1, *found);
        } else if (startsObject(line, i + 2) || isNoun(line.tag(i + 2)) || is(preposition, "back")) {
            line.remove(i + 1);
        }
    }
}

void prepositionOfAdjective(Line& line, const RuleTools&) {
    static const Table frames = table(
        "interested_on:in interested_about:in interested_for:in afraid_from:of similar_with:to "
        "responsible_of:for "
        "responsible_about:for aware_about:of proud_about:of full_with:of jealous_from:of famous_of:for "
        "married_with:to satisfied_of:with fond_to:of related_with:to accustomed_with:to addicted_with:to "
        "superior_than:to inferior_than:to scared_from:of");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString preposition = line.follows(i + 1);
        const auto found = frames.constFind(line.lower(i) + u' ' + preposition);
        if (found != frames.constEnd() && line.isNextTo(i + 2) && !isProtected(line.word(i))) {
            line.replace(i + 1, *found);
        }
        // "spend money for clothes"
        static const Words spending = words("spend spends spent spending");
        if (is(line.lower(i), "money") && is(preposition, "for") && line.isNextTo(i + 2) &&
            (isNoun(line.tag(i + 2)) || line.tag(i + 2) == Tag::gerund) &&
            (spending.contains(line.before(i)) || spending.contains(line.before(i - 1)) ||
             (is(line.before(i), "of") && is(line.before(i - 1), "lot") &&
              spending.contains(line.before(i - 3))))) {
            line.replace(i + 1, QStringLiteral("on"));
        }
    }
}

void missingPreposition(Line& line, const RuleTools& tools) {
    static const Table verbs =
        table("listen:to deal:with depend:on wait:for belong:to agree:with disagree:with rely:on "
              "participate:in reply:to respond:to react:to arrive:at interfere:with "
              "consist:of complain:about suffer:from");
    static const Words times =
        words("minute moment while bit second hour day week month year time turn minutes hours "
              "days weeks months years moments seconds night little few couple whole entire long "
              "same next last day's following other second age ages lot great good more any much "
              "and morning evening afternoon");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString lemma = verbLemma(line.lower(i), tools.inflections);
        const auto found = verbs.constFind(lemma);
        if (found == verbs.constEnd() || !line.isNextTo(i + 1) || !isVerb(line.tag(i)) ||
            isProtected(line.word(i))) {
            continue;
        }
        const QString next = line.lower(i + 1);
        const Tag tag = line.tag(i + 1);
        // "wait you": the verbs that take no object at all.
        const bool bare = (is(lemma, "wait") || is(lemma, "listen")) && isObjectPronoun(next) &&
                          !is(line.follows(i + 2), "out") && endsPhrase(line, i + 1) &&
                          !(is(next, "you") && isFiniteVerb(line.tag(i + 2)));
        const bool music =
            is(lemma, "listen") && (is(next, "music") || is(next, "songs") || is(next, "radio"));
        const bool late = is(lemma, "suffer") || is(lemma, "wait") || is(lemma, "agree") ||
                          is(lemma, "complain") || is(lemma, "disagree") || is(lemma, "arrive") ||
                          is(lemma, "reply") || is(lemma, "respond");
        if (music || bare ||
            ((tag == Tag::determiner || tag == Tag::possessivePronoun ||
              (isObjectPronoun(next) && !is(next, "it") && !isSubjectPronoun(next))) &&
             !words("that all each both no this some another any every").contains(next) &&
             !(late && (times.contains(line.lower(i + 2)) || times.contains(line.lower(i + 3)))) &&
             !(is(lemma, "suffer") || is(lemma, "complain") || is(lemma, "respond")) &&
             !(isObjectPronoun(next) && (is(lemma, "agree") || is(lemma, "arrive"))))) {
            line.insertBefore(i + 1, *found);
        }
    }
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const Tag next = line.isNextTo(i + 1) ? line.tag(i + 1) : Tag::other;
        const bool phrase = next == Tag::determiner || next == Tag::possessivePronoun;
        const bool forward = is(line.follows(i), "forward") &&
                             words("look looks looking looked").contains(line.before(i)) && phrase;
        const bool source = is(line.lower(i), "according") && !line.word(i).hyphenated &&
                            (phrase || next == Tag::name || isObjectPronoun(line.follows(i + 1)));
        if (forward || source) {
            line.insertBefore(i + 1, QStringLiteral("to"));
        }
    }
}

void tellAndSay(Line& line, const RuleTools&) {
    static const Words told = words("tell tells told telling ask asks asked asking");
    static const Table saying = table("say:tell says:tells said:told saying:telling");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString next = line.follows(i + 1);
        if (told.contains(word) && is(next, "to") && isObjectPronoun(line.follows(i + 2)) &&
            !is(line.follows(i + 2), "it") && isVerb(line.tag(i)) &&
            (endsPhrase(line, i + 2) || line.tag(i + 3) == Tag::noun)) {
            line.remove(i + 1);
        } else if (saying.contains(word) && words("me him us them").contains(next) &&
                   (is(line.follows(i + 2), "that") || isSubjectPronoun(line.follows(i + 2)) ||
                    is(line.follows(i + 2), "to"))) {
            line.replace(i, saying.value(word));
        } else if ((is(word, "explain") || is(word, "explained") || is(word, "explains")) &&
                   words("me him us them").contains(next) && isVerb(line.tag(i))) {
            line.insertBefore(i + 1, QStringLiteral("to"));
        }
    }
}

void prepositionOfTime(Line& line, const RuleTools&) {
    static const Words days = words("monday tuesday wednesday thursday friday saturday sunday");
    static const Words months = words("january february april june july september october november december");
    static const Words parts = words("morning afternoon evening");
    static const Words lengths =
        words("year years month months week weeks day days hour hours decade decades century "
              "centuries minutes");
    static const Words figures = words("one two three four five six seven eight nine ten many several");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString next = line.follows(i + 1);
        if ((is(word, "in") || is(word, "on")) && is(line.lower(i + 1), "o'clock") && next.isEmpty() &&
            line.gapBefore(i + 1).trimmed().size() <= 2) {
            line.replace(i, QStringLiteral("at"));
            continue;
        }
        if (isProtected(line.word(i)) || next.isEmpty()) {
            continue;
        }
        if ((is(word, "in") || is(word, "at")) && days.contains(next) && endsPhrase(line, i + 1)) {
            line.replace(i, QStringLiteral("on"));
        } else if ((is(word, "on") || is(word, "at")) && months.contains(next) &&
                   line.gapBefore(i + 2).trimmed().size() < 2 && endsPhrase(line, i + 1) &&
                   !QStringView(u"0123456789").contains(line.gapBefore(i + 2).trimmed().left(1)) &&
                   i + 2 < line.wordCount()) {
            line.replace(i, QStringLiteral("in"));
        } else if (is(word, "at") && is(next, "the") && parts.contains(line.follows(i + 2)) &&
                   endsPhrase(line, i + 2) && !is(line.follows(i + 3), "of")) {
            line.replace(i, QStringLiteral("in"));
        } else if ((is(word, "since") || is(word, "during")) && figures.contains(next) &&
                   lengths.contains(line.follows(i + 2)) && !is(line.follows(i + 3), "ago") &&
                   !isNoun(line.tag(i + 3))) {
            line.replace(i, QStringLiteral("for"));
        }
    }
}

void noOfBeforeBareNoun(Line& line, const RuleTools& tools) {
    static const Words quantities = words("most many some several few all");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const int head = isAdjective(line.tag(i + 2)) && line.isNextTo(i + 3) ? i + 3 : i + 2;
        const QString noun = line.follows(head);
        if (!quantities.contains(line.lower(i)) || !is(line.follows(i + 1), "of") || noun.isEmpty() ||
            !line.isNextTo(i + 2) || isProtected(line.word(i + 2)) || isProtected(line.word(head)) ||
            line.tag(head) != Tag::pluralNoun || line.cliticTag(head) != Tag::other ||
            is(line.before(i), "the") || isVerb(line.tag(i - 1)) ||
            (line.isNextTo(head + 1) && isNoun(line.tag(head + 1))) ||
            !(is(noun, "people") || tools.inflections.is(noun, Form::plural))) {
            continue;
        }
        line.remove(i + 1);
    }
}

void twoDeterminers(Line& line, const RuleTools&) {
    static const Words second = words("my your our their its this these those another each every some any");
    static const Words owners = words("my your our their its his her");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString next = line.follows(i + 1);
        if (next.isEmpty() || line.word(i).hyphenated || isProtected(line.word(i + 1)) ||
            line.follows(i + 2).isEmpty()) {
            continue;
        }
        const bool article = is(word, "the") || is(word, "a") || is(word, "an");
        if (article && second.contains(next) && !(is(word, "a") && is(line.before(i), "such"))) {
            line.remove(i);
        } else if (owners.contains(word) && is(next, "the") && !is(word, "her") && !is(word, "his")) {
            line.remove(i + 1);
        }
    }
}

void othersBeforeNoun(Line& line, const RuleTools& tools) {
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString noun = line.follows(i + 1);
        if (!is(line.lower(i), "others") || isProtected(line.word(i)) || noun.isEmpty() ||
            line.cliticTag(i) != Tag::other || isProtected(line.word(i + 1))) {
            continue;
        }
        const bool plural = line.tag(i + 1) == Tag::pluralNoun || is(noun, "people");
        if (plural && gainOf(line, tools, i, 1, {QStringLiteral("other")}) > 0) {
            line.replace(i, QStringLiteral("other"));
        }
    }
}

void missingArticle(Line& line, const RuleTools& tools) {
    static const Words professions =
        words("doctor teacher engineer student nurse lawyer writer driver farmer singer dentist manager "
              "waiter waitress "
              "chef actor actress artist musician scientist soldier pilot journalist photographer accountant "
              "programmer "
              "secretary policeman businessman carpenter mechanic plumber hairdresser designer vet");
    static const Words determiners =
        words("the this that these those my your his her its our their very a an one same "
              "exactly all no any some");
    for (int i = 1; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString before = line.before(i);
        if (before.isEmpty() || isProtected(line.word(i))) {
            continue;
        }
        if (professions.contains(word) && line.tag(i) == Tag::noun && endsPhrase(line, i) &&
            words("is am was i'm he's she's become became as").contains(before) &&
            !is(line.follows(i + 1), "and") &&
            (!is(before, "as") || words("work works worked working").contains(line.before(i - 1)))) {
            line.insertBefore(i, QStringView(u"aeiou").contains(word.front()) ? QStringLiteral("an")
                                                                              : QStringLiteral("a"));
            ++i;
        } else if (is(word, "same") && !determiners.contains(before) &&
                   line.cliticTag(i - 1) != Tag::possessive &&
                   (line.tag(i - 1) == Tag::preposition || isVerb(line.tag(i - 1))) &&
                   ((isNoun(line.tag(i + 1)) && line.isNextTo(i + 1)) ||
                    (isBe(before) && (line.endsClause(i) || is(line.follows(i + 1), "as"))))) {
            line.insertBefore(i, QStringLiteral("the"));
            ++i;
        } else if (isBe(before) && line.tag(i) == Tag::superlativeAdjective && line.isNextTo(i + 1) &&
                   !is(word, "most") && !is(word, "least") && line.tag(i + 1) == Tag::noun &&
                   tools.inflections.isCounted(line.lower(i + 1)) && endsPhrase(line, i + 1) &&
                   !is(line.lower(i + 1), "practice")) {
            line.insertBefore(i, QStringLiteral("the"));
            ++i;
        } else if (is(before, "of") && is(line.before(i - 1), "one") &&
                   (is(word, "most") || line.tag(i) == Tag::superlativeAdjective) &&
                   (isAdjective(line.tag(i + 1)) || isNoun(line.tag(i + 1))) && line.isNextTo(i + 1)) {
            line.insertBefore(i, QStringLiteral("the"));
            ++i;
        }
    }
}

void doubleComparative(Line& line, const RuleTools& tools) {
    static const Words plain =
        words("hot cold big small fast slow tall short long old young cheap easy large rich strong "
              "high low heavy light hard warm thin wide dark bright noisy dirty clean weak");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString next = line.follows(i + 1);
        if (next.isEmpty() || isProtected(line.word(i + 1)) || line.word(i).hyphenated) {
            continue;
        }
        if (is(word, "more") && tools.inflections.is(next, Form::comparative) &&
            (line.tag(i + 1) == Tag::comparativeAdjective || line.tag(i + 1) == Tag::comparativeAdverb ||
             (tools.inflections.prefers(next, Form::comparative) && isBe(line.before(i)))) &&
            !words("later further other rather former latter lesser upper inner outer less more elder")
                 .contains(next) &&
            !(is(line.before(i), "no") || is(line.before(i), "any"))) {
            line.remove(i);
        } else if (is(word, "more") && plain.contains(next) && is(line.follows(i + 2), "than") &&
                   !is(line.follows(i + 3), "it")) {
            line.replace(i + 1, tools.inflections.form(next, Form::comparative));
            line.remove(i);
        } else if (is(word, "most") && is(line.before(i), "the") &&
                   tools.inflections.is(next, Form::superlative) &&
                   line.tag(i + 1) == Tag::superlativeAdjective) {
            line.remove(i);
        }
    }
}

void pronounCase(Line& line, const RuleTools&) {
    static const Table objects = table("he:him she:her they:them we:us");
    static const Words prepositions = words("to with from for about by of at without between against let");
    for (int i = 0; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const QString before = line.before(i);
        if (line.word(i).startsSentence && (is(word, "her") || is(word, "him")) &&
            is(line.follows(i + 1), "and") && is(line.follows(i + 2), "i") && isVerb(line.tag(i + 3))) {
            line.replace(i, is(word, "her") ? QStringLiteral("she") : QStringLiteral("he"));
        } else if (objects.contains(word) && prepositions.contains(before) && line.endsClause(i) &&
                   !isProtected(line.word(i))) {
            line.replace(i, objects.value(word));
        } else if (objects.contains(word) && is(before, "let") && line.tag(i + 1) == Tag::baseVerb) {
            line.replace(i, objects.value(word));
        }
    }
}

} // namespace vellumline
