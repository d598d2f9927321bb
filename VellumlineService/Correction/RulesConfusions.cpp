#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

// Words that are taken for one another, told apart by the words right beside them. Only places where the
// other word would be no English; where both are possible the language model decides (Confusions.cpp).
namespace vellumline {

namespace {

struct Place {
    QString word, before, beforeThat, next, nextButOne;
    Tag tagBefore = Tag::other;
    Tag tagNext = Tag::other;
    bool ends = false;  ///< A sign or the line's end follows.
    bool opens = false; ///< It begins a sentence, or stands where a clause may begin.
};

Place placeOf(const Line& line, int i) {
    static const Words openers =
        words("if when that think thinks thought hope know knows knew say says said sure because and but so "
              "unless whenever once since until guess believe");
    Place place;
    place.word = line.lower(i);
    place.before = line.before(i);
    place.beforeThat = place.before.isEmpty() ? QString() : line.before(i - 1);
    place.next = line.follows(i + 1);
    place.nextButOne = place.next.isEmpty() ? QString() : line.follows(i + 2);
    place.tagBefore = place.before.isEmpty() ? Tag::other : line.tag(i - 1);
    place.tagNext = place.next.isEmpty() ? Tag::other : line.tag(i + 1);
    place.ends = line.endsClause(i);
    place.opens = line.word(i).startsSentence || openers.contains(place.before);
    return place;
}

/// Of a few words: without making a set of them.
bool isOneOf(const QString& word, const char* list) {
    for (const QLatin1String one : QLatin1String(list).tokenize(u' ')) {
        if (word == one) {
            return true;
        }
    }
    return false;
}

/// "can", "won't": the word behind is a verb.
bool asksForBase(const Place& place) {
    static const Words modals =
        words("can could will would may might should must cannot can't couldn't won't wouldn't shouldn't "
              "don't doesn't didn't");
    return modals.contains(place.before);
}

bool isOwner(const QString& word) {
    static const Words owners = words("my your his her its our their");
    return owners.contains(word);
}

/// What the contraction of a pronoun and be was meant to be: "their", "your", "its", "who's" and their likes.
QString contraction(const Line& line, int i, const Place& place) {
    static const Words states = words(
        "free sure late welcome right wrong kidding joking interested busy ready tired lucky crazy able");
    static const Words behindStates =
        words("to for at on about now later today tomorrow tonight that with in again already yet this");
    static const Words behindIts = words("not also really just still always never probably definitely");
    static const Words behindAdverb =
        words("a an the not so very too been that going about like my your our been");
    if (is(place.word, "there") && place.tagNext == Tag::gerund && !is(place.next, "being") &&
        (place.opens && !isOneOf(place.before, "and but so"))) {
        return QStringLiteral("they're");
    }
    if (is(place.word, "your") && place.opens && states.contains(place.next) &&
        !(is(place.next, "right") && is(place.nextButOne, "to")) &&
        (line.endsClause(i + 1) || behindStates.contains(place.nextButOne))) {
        return QStringLiteral("you're");
    }
    if (is(place.word, "who's") && (place.tagNext == Tag::noun || place.tagNext == Tag::pluralNoun) &&
        isOneOf(place.nextButOne, "is are was were")) {
        return QStringLiteral("whose");
    }
    if (is(place.word, "its") && !place.next.isEmpty() && !line.word(i + 1).hyphenated &&
        ((behindIts.contains(place.next) && behindAdverb.contains(place.nextButOne)) ||
         (isOneOf(place.next, "necessary better possible impossible easier harder difficult") &&
          is(place.nextButOne, "to")) ||
         (isOneOf(place.next, "true clear obvious") && is(place.nextButOne, "that")))) {
        return QStringLiteral("it's");
    }
    if (is(place.word, "were") && line.word(i).startsSentence && place.tagNext == Tag::gerund) {
        for (int k = i; k < line.wordCount(); ++k) {
            const QChar sign = line.punctuationAfter(k);
            if (sign == u'?' || sign == u'.' || sign == u'!') {
                return sign == u'?' ? QString() : QStringLiteral("we're");
            }
        }
    }
    return {};
}

/// Nouns that were written for verbs, and verbs for nouns.
QString nounOrVerb(const Line& line, int i, const Place& place) {
    static const Words persons =
        words("everyone everybody us you them me him people my your his her our their");
    if (is(place.word, "effect") && persons.contains(place.next) &&
        (asksForBase(place) || place.tagBefore == Tag::pluralNoun)) {
        return QStringLiteral("affect");
    }
    if ((is(place.word, "affect") || is(place.word, "affects")) &&
        isOneOf(place.before, "the an side negative positive bad good big huge") &&
        (isOneOf(place.next, "on of") || place.ends)) {
        return is(place.word, "affect") ? QStringLiteral("effect") : QStringLiteral("effects");
    }
    if (is(place.word, "breath") &&
        (asksForBase(place) || (is(place.before, "to") &&
                                isOneOf(place.beforeThat, "able hard trying need difficult how easier")))) {
        return QStringLiteral("breathe");
    }
    if (is(place.word, "loose") && (isOwner(place.next) || isOneOf(place.next, "weight money hope")) &&
        isOneOf(place.before, "i you we they he she it")) {
        return isOneOf(place.before, "he she it") ? QStringLiteral("loses") : QStringLiteral("lose");
    }
    if (is(place.word, "live") && isOwner(place.before) && !line.word(i).hyphenated &&
        (place.ends ||
         isOneOf(place.next, "is was will would and but when because with for better easier"))) {
        return isOneOf(place.before, "our their") ? QStringLiteral("lives") : QStringLiteral("life");
    }
    if (is(place.word, "different") && is(place.next, "between") &&
        isOneOf(place.before, "the a big main no any only great huge biggest important")) {
        return QStringLiteral("difference");
    }
    if (is(place.word, "strong") && isSubjectPronoun(place.before) &&
        isOneOf(place.next, "believe agree disagree recommend support think feel")) {
        return QStringLiteral("strongly");
    }
    return {};
}

QString soundAlike(const Line& line, int i, const Place& place) {
    static const Words wishes = words("need needs needed want wants wanted have has had going able decided "
                                      "trying how money afford");
    if (is(place.word, "to") && is(place.before, "me") && line.word(i - 1).startsSentence && place.ends) {
        return QStringLiteral("too");
    }
    if (is(place.word, "quite") && place.ends && isOneOf(place.before, "be keep stay very is was are were")) {
        return QStringLiteral("quiet");
    }
    if (is(place.word, "from") && isOneOf(place.before, "the a this your my his her our") &&
        (place.ends || isOneOf(place.next, "and or is to of below with in on at for")) &&
        !isOneOf(place.beforeThat, "to and")) {
        return QStringLiteral("form");
    }
    if (is(place.word, "desert") && is(place.before, "for") && place.ends) {
        return QStringLiteral("dessert");
    }
    if (is(place.word, "brake") && is(place.before, "a") &&
        isOneOf(place.beforeThat, "me us him take takes took taking")) {
        return QStringLiteral("break");
    }
    if (is(place.word, "principle") && isOneOf(place.before, "school vice assistant")) {
        return QStringLiteral("principal");
    }
    if (is(place.word, "by") && is(place.before, "to") && wishes.contains(place.beforeThat) &&
        (isOneOf(place.next, "a an some more new it them things food one another clothes something") ||
         isOwner(place.next))) {
        return QStringLiteral("buy");
    }
    if (is(place.word, "board") && isOneOf(place.before, "am is are was were i'm so very get got getting") &&
        (place.ends || is(place.next, "with"))) {
        return QStringLiteral("bored");
    }
    if (is(place.word, "passed") &&
        isOneOf(place.before, "ran run walk walked drove drive went go goes rode flew jogged") &&
        (place.tagNext == Tag::determiner || place.tagNext == Tag::possessivePronoun ||
         isOneOf(place.next, "me him us them it"))) {
        return QStringLiteral("past");
    }
    if (is(place.word, "their") && isOneOf(place.before, "is was are were be been go went get got") &&
        (place.ends || isOneOf(place.next, "now already yesterday when with before until tomorrow"))) {
        return QStringLiteral("there");
    }
    if (is(place.word, "then") && (isOneOf(place.next, "today before ever usual") ||
                                   (is(place.next, "to") && line.tag(i + 2) == Tag::baseVerb))) {
        for (int k = i - 2; k > 0 && k > i - 12 && line.isNextTo(k + 1); --k) {
            const bool compares =
                line.tag(k) == Tag::comparativeAdjective || isOneOf(line.lower(k), "more less fewer rather");
            if (compares && !isFiniteVerb(line.tag(i - 1))) {
                return QStringLiteral("than");
            }
        }
    }
    if (is(place.word, "then") && place.tagNext == Tag::baseVerb && !place.before.isEmpty()) {
        for (int k = i - 2; k > 0 && k > i - 6 && line.isNextTo(k + 1); --k) {
            if (is(line.lower(k), "rather") &&
                (is(line.before(k), "would") || line.before(k).endsWith(QStringLiteral("'d")))) {
                return QStringLiteral("than");
            }
        }
    }
    return {};
}

QString otherForm(const Line& line, int i, const Place& place, const RuleTools& tools) {
    static const Words states = words("be live have think know love like hate believe feel");
    if (is(place.word, "use") && is(place.next, "to") && tools.inflections.is(place.nextButOne, Form::base) &&
        (isSubjectPronoun(place.before) || is(place.before, "there")) &&
        (line.word(i - 1).startsSentence || states.contains(place.nextButOne))) {
        return QStringLiteral("used");
    }
    if (is(place.word, "suppose") && is(place.next, "to") &&
        (place.before.endsWith(QStringLiteral("'m")) || place.before.endsWith(QStringLiteral("'re")) ||
         isOneOf(place.before, "he's she's it's that's"))) {
        return QStringLiteral("supposed");
    }
    if (is(place.word, "you") && is(place.before, "for") &&
        (is(place.beforeThat, "thanks") || is(place.beforeThat, "you") || is(place.beforeThat, "thank")) &&
        isOneOf(place.next, "help time support reply email message patience understanding interest letter")) {
        return QStringLiteral("your");
    }
    if (is(place.word, "i") && is(place.before, "and") && isFiniteVerb(place.tagNext)) {
        return {};
    }
    if (is(place.word, "i") && is(place.before, "and")) {
        for (int k = i - 2; k >= 0 && k > i - 6 && line.isNextTo(k + 1); --k) {
            if (is(line.lower(k), "between")) {
                return QStringLiteral("me");
            }
        }
    }
    static const Words auxiliaries =
        words("have has had haven't hasn't hadn't be been being is was were are get gets got having");
    if ((is(place.word, "seen") || is(place.word, "done")) && isOneOf(place.before, "i he she we they") &&
        !auxiliaries.contains(place.beforeThat) && !line.isQuoted(i) && !place.next.isEmpty()) {
        return is(place.word, "seen") ? QStringLiteral("saw") : QStringLiteral("did");
    }
    return {};
}

} // namespace

void confusionFrames(Line& line, const RuleTools& tools) {
    static const Words frames = words(
        "there your were who's its effect affect affects breath loose live different strong to quite from "
        "desert brake principle board passed their by then use suppose you i seen done");
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        if (!frames.contains(token.lower) || token.quotedAlone || token.hyphenated ||
            (token.text != token.lower && !token.startsSentence && token.text != QStringLiteral("I"))) {
            continue;
        }
        const Place place = placeOf(line, i);
        for (const QString& better : {contraction(line, i, place), nounOrVerb(line, i, place),
                                      soundAlike(line, i, place), otherForm(line, i, place, tools)}) {
            if (!better.isEmpty()) {
                if (is(better, "me")) {
                    line.replaceExactly(i, better);
                } else {
                    line.replace(i, better);
                }
                break;
            }
        }
    }
}

} // namespace vellumline
