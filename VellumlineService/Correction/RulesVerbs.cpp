#include "VellumlineService/Correction/RuleFamilies.h"
#include "VellumlineService/Correction/RuleHelpers.h"

namespace vellumline {

namespace {

bool isAdverbBetween(const Line& line, int i) {
    static const Words adverbs = words("not never always also just already ever really still even often only "
                                       "probably recently usually finally now");
    return adverbs.contains(line.follows(i));
}

/// The word after an auxiliary, behind "not" and adverbs; past the end when something else stands between.
int verbAfter(const Line& line, int auxiliary) {
    int i = auxiliary + 1;
    while (i < line.wordCount() && line.isNextTo(i) && isAdverbBetween(line, i)) {
        ++i;
    }
    return i < line.wordCount() && line.isNextTo(i) ? i : line.wordCount();
}

/// The base of a form that is no base itself; empty when the word is a base form or no verb. The commoner
/// verb wins: "found" is of "find", "felt" of "feel".
QString baseOf(const QString& word, const Inflections& inflections) {
    static const Table commoner =
        table("found:find felt:feel saw:see left:leave thought:think lay:lie rose:rise shook:shake");
    if (commoner.contains(word)) {
        return is(word, "lay") ? QString() : commoner.value(word);
    }
    if (inflections.is(word, Form::base)) {
        return {};
    }
    for (const Form form : {Form::past, Form::participle, Form::thirdPerson}) {
        QString base = inflections.changed(word, form, Form::base);
        if (!base.isEmpty() && base != word) {
            return base;
        }
    }
    return {};
}

/// The participle of a form that is only a past form ("went").
QString participleOf(const QString& past, const Inflections& inflections) {
    // Both participles are English; of most others that end in -ed too.
    static const Words either = words("got forgot hid bit bid trod woke beat");
    if (inflections.prefers(past, Form::participle) || !inflections.is(past, Form::past) ||
        (inflections.is(past, Form::participle) &&
         (either.contains(past) || past.endsWith(QStringLiteral("ed")) || past.endsWith(u't')))) {
        return {};
    }
    const QString made = inflections.changed(past, Form::past, Form::participle);
    return made == past ? QString() : made;
}

bool isNounToo(const QString& word, const Inflections& inflections) {
    return inflections.is(word, Form::singular) || inflections.is(word, Form::plural);
}

constexpr double gainOfParticipleBeforeBy = 2;

bool isModal(const QString& word) {
    static const Words modals =
        words("can could will would shall should may might must cannot can't couldn't won't "
              "wouldn't shan't shouldn't mustn't needn't");
    return modals.contains(word);
}

} // namespace

void participleAfterHave(Line& line, const RuleTools& tools) {
    static const Words have = words("have has had having i've you've we've they've haven't hasn't hadn't");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const bool shortened = word.endsWith(QStringLiteral("'ve"));
        if (!have.contains(word) && !shortened) {
            continue;
        }
        const int at = verbAfter(line, i);
        const QString verb = line.lower(at);
        if (at >= line.wordCount() || isProtected(line.word(at))) {
            continue;
        }
        const Tag tag = line.tag(at);
        const QString participle = participleOf(verb, tools.inflections);
        const bool noun = isNounToo(verb, tools.inflections) || tools.inflections.is(verb, Form::plain);
        // Nouns too, but hardly ever behind have.
        static const Words verbs =
            words("see go make take give know find eat meet become write speak choose");
        if (verbs.contains(verb) && !is(word, "having") && !is(word, "had") && !isNoun(line.tag(at + 1)) &&
            (isSubjectPronoun(line.before(i)) || shortened || word.endsWith(QStringLiteral("n't")))) {
            line.replace(at, tools.inflections.form(verb, Form::participle));
            continue;
        }
        if (!participle.isEmpty() && !isBe(verb) &&
            (tag == Tag::pastVerb || tag == Tag::participle || !noun) &&
            !(noun && isNoun(line.tag(at + 1)) && line.isNextTo(at + 1))) {
            line.replace(at, participle);
        } else if (at > i &&
                   (tag == Tag::baseVerb || tag == Tag::presentVerb || tag == Tag::thirdPersonVerb) &&
                   !is(word, "having") && !noun && !isModal(verb) && !is(verb, "to") && !is(verb, "do") &&
                   !is(verb, "let") && !is(verb, "be") &&
                   words("i you we they he she it never not always also just already")
                       .contains(at > i + 1 ? line.lower(at - 1) : line.before(i))) {
            const QString base =
                tools.inflections.is(verb, Form::base) ? verb : baseOf(verb, tools.inflections);
            const QString made = tools.inflections.form(base, Form::participle);
            if (!made.isEmpty() && made != verb) {
                line.replace(at, made);
            }
        }
    }
}

void participleAfterBe(Line& line, const RuleTools& tools) {
    // Verbs that only happen have no passive.
    static const Words without =
        words("was were went came began rose fell ran became swam slept arose grew lay");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        if (!isBe(line.lower(i))) {
            continue;
        }
        const int at = verbAfter(line, i);
        const QString verb = line.lower(at);
        if (at >= line.wordCount() || isProtected(line.word(at)) || without.contains(verb)) {
            continue;
        }
        const QString participle = participleOf(verb, tools.inflections);
        const bool broke = is(verb, "broke") && !is(line.follows(at + 1), "by");
        if (!participle.isEmpty() && !broke && !isNounToo(verb, tools.inflections)) {
            line.replace(at, participle);
        }
    }
}

void participleAfterBeFrames(Line& line, const RuleTools& tools) {
    static const Table forms =
        table("base:based locate:located compose:composed concern:concerned relate:related "
              "divide:divided interest:interested use:used call:called name:named "
              "involve:involved suppose:supposed associate:associated relax:relaxed bore:bored "
              "surprise:surprised satisfy:satisfied generate:generated compare:compared "
              "consider:considered connect:connected tire:tired excite:excited worry:worried");
    static const Words signs = words("on in of with about by to for");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const int at = verbAfter(line, i);
        if (isBe(line.lower(i)) && at < line.wordCount() && forms.contains(line.lower(at)) &&
            signs.contains(line.follows(at + 1)) && !is(line.lower(i), "being") &&
            !(is(line.lower(at), "use") && is(line.follows(at + 1), "of")) && !isProtected(line.word(at))) {
            line.replace(at, forms.value(line.lower(at)));
            continue;
        }
        // "It is cause by smoke"
        const QString verb = line.lower(at);
        if (isBe(line.lower(i)) && at == i + 1 && at < line.wordCount() && is(line.follows(at + 1), "by") &&
            tools.inflections.is(verb, Form::base) && !tools.inflections.is(verb, Form::participle) &&
            !isProtected(line.word(at))) {
            const QString made = tools.inflections.form(verb, Form::participle);
            if (!made.isEmpty() && gainOf(line, tools, at, 1, {made}) > gainOfParticipleBeforeBy) {
                line.replace(at, made);
            }
        }
    }
    for (int i = 1; i + 1 < line.wordCount(); ++i) {
        const QString subject = line.before(i);
        if (is(line.lower(i), "born") && line.word(i).text == line.lower(i) && isSubjectPronoun(subject) &&
            !isFiniteVerb(line.cliticTag(i - 1))) {
            line.insertBefore(i, words("we you they").contains(subject) ? QStringLiteral("were")
                                                                        : QStringLiteral("was"));
        }
    }
}

void baseAfterDo(Line& line, const RuleTools& tools) {
    static const Words doForms = words("did do does didn't don't doesn't");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        if (!doForms.contains(word)) {
            continue;
        }
        int at = i + 1;
        const bool negated = word.endsWith(QStringLiteral("n't"));
        bool sure = negated;
        if (!negated && is(line.follows(at), "not")) {
            ++at;
            sure = true;
        } else if (isSubjectPronoun(line.follows(at)) &&
                   (line.word(i).startsSentence || line.before(i).isEmpty() ||
                    line.tag(i - 1) == Tag::whAdverb || line.tag(i - 1) == Tag::whPronoun)) {
            ++at;
            sure = true;
        }
        while (at < line.wordCount() && isAdverbBetween(line, at)) {
            ++at;
        }
        if (!sure || at >= line.wordCount() || !line.isNextTo(at) || isProtected(line.word(at))) {
            continue;
        }
        const Tag tag = line.tag(at);
        // "do not trying"
        const bool gerund =
            tag == Tag::gerund && !is(line.lower(at), "being") && (negated || is(line.before(at), "not"));
        const QString base = gerund ? tools.inflections.changed(line.lower(at), Form::gerund, Form::base)
                                    : baseOf(line.lower(at), tools.inflections);
        if (!base.isEmpty() && !is(base, "be") && tag != Tag::adjective && !isNoun(tag) &&
            !(line.isNextTo(at + 1) && tag == Tag::participle && isNoun(line.tag(at + 1)))) {
            line.replace(at, base);
        }
    }
}

void baseAfterModal(Line& line, const RuleTools& tools) {
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString modal = line.lower(i);
        if (!isModal(modal) || line.tag(i) != Tag::modal || line.word(i).hyphenated) {
            continue;
        }
        int at = verbAfter(line, i);
        if (words("must should can may might cannot can't shouldn't mustn't").contains(modal) &&
            is(line.follows(i + 1), "to") && line.tag(i + 2) == Tag::baseVerb && line.isNextTo(i + 2) &&
            tools.inflections.is(line.lower(i + 2), Form::base)) {
            line.remove(i + 1);
            continue;
        }
        if (at >= line.wordCount() || isProtected(line.word(at))) {
            continue;
        }
        // "Can you told me": the subject stands between.
        if (isSubjectPronoun(line.lower(at)) &&
            (line.word(i).startsSentence || line.tag(i - 1) == Tag::whAdverb ||
             line.tag(i - 1) == Tag::whPronoun)) {
            const QString base = line.tag(at + 1) == Tag::pastVerb && line.isNextTo(at + 1)
                                     ? baseOf(line.lower(at + 1), tools.inflections)
                                     : QString();
            if (!base.isEmpty() && !is(base, "be") && !isProtected(line.word(at + 1))) {
                line.replace(at + 1, base);
            }
            continue;
        }
        const QString verb = line.lower(at);
        const Tag tag = line.tag(at);
        // "We should trying": without to, without be.
        if (tag == Tag::gerund && tools.inflections.is(verb, Form::gerund) && !is(verb, "being") &&
            (isSubjectPronoun(line.before(i)) || isNoun(line.tag(i - 1))) && line.isNextTo(i)) {
            const QString bare = tools.inflections.changed(verb, Form::gerund, Form::base);
            if (bare.isEmpty()) {
                continue;
            }
            if (gainOf(line, tools, at, 1, {QStringLiteral("be"), verb}) >
                gainOf(line, tools, at, 1, {bare})) {
                line.insertBefore(at, QStringLiteral("be"));
            } else {
                line.replace(at, bare);
            }
            continue;
        }
        const QString base = baseOf(verb, tools.inflections);
        const bool nounNext = line.isNextTo(at + 1) && isNoun(line.tag(at + 1));
        // "It will helps you": an object behind it shows that it is no noun.
        const Tag next = line.isNextTo(at + 1) ? line.tag(at + 1) : Tag::other;
        const bool object = next == Tag::determiner || next == Tag::possessivePronoun || next == Tag::pronoun;
        const bool hidden = tag == Tag::pluralNoun && object && at == i + 1 && line.isNextTo(i) &&
                            (isSubjectPronoun(line.lower(i - 1)) || isNoun(line.tag(i - 1))) &&
                            tools.inflections.is(verb, Form::thirdPerson);
        if (!base.isEmpty() && !is(base, "be") && !is(verb, "used") &&
            (tag == Tag::pastVerb || tag == Tag::thirdPersonVerb || tag == Tag::presentVerb ||
             tag == Tag::participle || tag == Tag::baseVerb || hidden) &&
            !(tag == Tag::participle && nounNext) && !is(verb, "better")) {
            line.replace(at, base);
        }
    }
}

void baseAfterTo(Line& line, const RuleTools& tools) {
    static const Words before =
        words("want wants wanted need needs needed able decided decide like try tries tried "
              "hope hopes order how supposed ought learn going have has had plan plans start "
              "started began begin");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString verb = line.follows(i + 1);
        if (!is(line.lower(i), "to") || verb.isEmpty() || isProtected(line.word(i + 1)) ||
            line.word(i).hyphenated) {
            continue;
        }
        // "It is difficult to finding", "we have to making"; not "used to doing" and "important to teaching".
        static const Words wishes = words("want wants wanted need needs needed able decided decide try tries "
                                          "tried hope hopes have has had supposed ought");
        const bool adjective = line.isNextTo(i) && isAdjective(line.tag(i - 1)) && isBe(line.before(i - 1)) &&
                               is(line.before(i - 2), "it");
        const bool habit = is(line.before(i), "used") && isSubjectPronoun(line.before(i - 1));
        if (line.tag(i + 1) == Tag::gerund && tools.inflections.is(verb, Form::gerund) &&
            !is(verb, "being") && (wishes.contains(line.before(i)) || adjective || habit)) {
            const QString bare = tools.inflections.changed(verb, Form::gerund, Form::base);
            if (!bare.isEmpty()) {
                line.replace(i + 1, bare);
            }
            continue;
        }
        const QString base = baseOf(verb, tools.inflections);
        if (base.isEmpty() || is(base, "be") || is(verb, "used")) {
            continue;
        }
        const bool noun = isNounToo(verb, tools.inflections) || tools.inflections.is(verb, Form::plain);
        const Tag tag = line.tag(i + 1);
        const bool finite = tag == Tag::pastVerb || tag == Tag::thirdPersonVerb || tag == Tag::presentVerb;
        const bool onlyPast = !participleOf(verb, tools.inflections).isEmpty();
        const bool framed = before.contains(line.before(i)) &&
                            (finite || tag == Tag::baseVerb || tag == Tag::participle) &&
                            !(line.isNextTo(i + 2) && isNoun(line.tag(i + 2)) && tag == Tag::participle);
        if (!noun && (onlyPast || framed || (tools.inflections.is(verb, Form::thirdPerson) && finite))) {
            line.replace(i + 1, base);
        }
    }
}

void gerundAfterPreposition(Line& line, const RuleTools& tools) {
    static const Words prepositions = words("about without by of from for instead after before on in");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString verb = line.follows(i + 1);
        if (!prepositions.contains(line.lower(i)) || verb.isEmpty() || isProtected(line.word(i + 1)) ||
            !tools.inflections.is(verb, Form::base) || is(verb, "be") || is(verb, "let") ||
            tools.inflections.is(verb, Form::past) || tools.inflections.is(verb, Form::plain)) {
            continue;
        }
        const Tag tag = line.tag(i + 1);
        const Tag next = line.isNextTo(i + 2) ? line.tag(i + 2) : Tag::other;
        const bool object = next == Tag::determiner || next == Tag::possessivePronoun ||
                            (next == Tag::pronoun && !isSubjectPronoun(line.lower(i + 2))) ||
                            is(line.follows(i + 2), "it");
        const bool noun = tools.inflections.is(verb, Form::singular);
        // "interested in learn languages": a word that is nothing but a verb.
        const bool verbOnly = !noun && !tools.inflections.is(verb, Form::participle) &&
                              !tools.inflections.is(verb, Form::comparative) &&
                              (isNoun(next) || next == Tag::adjective) &&
                              words("of about without by for in").contains(line.lower(i)) &&
                              line.word(i + 2).text == line.lower(i + 2) && line.isNextTo(i);
        if (verbOnly && tools.speller.frequency(verb) > 500) {
            const QString gerund = tools.inflections.form(verb, Form::gerund);
            const double asGerund = gainOf(line, tools, i + 1, 1, {gerund});
            // "They study for get good marks"
            const double asPurpose =
                is(line.lower(i), "for") ? gainOf(line, tools, i, 1, {QStringLiteral("to")}) : -1;
            if (asPurpose > 0 && asPurpose > asGerund) {
                line.replace(i, QStringLiteral("to"));
                continue;
            }
            if (asGerund > 0) {
                line.replace(i + 1, gerund);
                continue;
            }
        }
        if (object && (tag == Tag::baseVerb || tag == Tag::presentVerb || !noun) &&
            !is(line.follows(i + 2), "this") && !is(line.follows(i + 2), "that") &&
            !(noun && (is(line.lower(i), "before") || is(line.lower(i), "after") || is(line.lower(i), "on") ||
                       is(line.lower(i), "in") || tag != Tag::baseVerb))) {
            const QString gerund = tools.inflections.form(verb, Form::gerund);
            if (!gerund.isEmpty()) {
                line.replace(i + 1, gerund);
            }
        }
    }
}

void gerundAfterVerb(Line& line, const RuleTools& tools) {
    static const Words verbs =
        words("enjoy enjoys enjoyed enjoying avoid avoids avoided avoiding suggest suggested "
              "suggests finish finished finishes dislike dislikes disliked practice practise "
              "recommend recommended recommends quit");
    for (int i = 0; i + 2 < line.wordCount(); ++i) {
        const QString verb = line.follows(i + 2);
        if (verbs.contains(line.lower(i)) && is(line.follows(i + 1), "to") &&
            tools.inflections.is(verb, Form::base) && isVerb(line.tag(i)) && line.tag(i) != Tag::participle &&
            line.tag(i + 2) == Tag::baseVerb && !isProtected(line.word(i + 2))) {
            const QString gerund = tools.inflections.form(verb, Form::gerund);
            if (!gerund.isEmpty()) {
                line.replace(i + 2, gerund);
                line.remove(i + 1);
            }
        }
    }
}

void toAfterWant(Line& line, const RuleTools& tools) {
    static const Words verbs = words("want wants wanted decided able need needs needed");
    for (int i = 0; i + 1 < line.wordCount(); ++i) {
        const QString verb = line.follows(i + 1);
        if (verbs.contains(line.lower(i)) && tools.inflections.is(verb, Form::base) &&
            !isProtected(line.word(i + 1)) && !is(verb, "to") && !is(verb, "let") && !is(verb, "do") &&
            ((!tools.inflections.is(verb, Form::singular) && !tools.inflections.is(verb, Form::plain) &&
              line.tag(i + 1) != Tag::noun && isVerb(line.tag(i + 1))) ||
             (!is(verb, "help") && gainOf(line, tools, i + 1, 1, {QStringLiteral("to"), verb}) > 3))) {
            line.insertBefore(i + 1, QStringLiteral("to"));
        }
    }
}

void bareAfterLet(Line& line, const RuleTools& tools) {
    static const Words causing = words("let lets let's make makes made making");
    static const Words objects = words("me him her us them you it people");
    for (int i = 0; i + 3 < line.wordCount(); ++i) {
        const QString verb = line.follows(i + 3);
        if (causing.contains(line.lower(i)) && objects.contains(line.follows(i + 1)) &&
            is(line.follows(i + 2), "to") && tools.inflections.is(verb, Form::base) &&
            line.tag(i + 3) == Tag::baseVerb &&
            !(is(line.follows(i + 1), "it") && line.lower(i).startsWith(QStringLiteral("ma"))) &&
            !is(verb, "home")) {
            line.remove(i + 2);
        }
    }
}

void noBeBesideVerb(Line& line, const RuleTools& tools) {
    static const Words verbs =
        words("agree agrees disagree belong belongs depend depends consist consists happen "
              "happens exist exists seem seems believe believes want wants");
    for (int i = 1; i + 1 < line.wordCount(); ++i) {
        const QString be = line.lower(i);
        const int at = verbAfter(line, i);
        const QString verb = line.lower(at);
        if ((is(be, "am") || is(be, "is") || is(be, "are")) && at == i + 1 && verbs.contains(verb) &&
            (isNoun(line.tag(i - 1)) || isSubjectPronoun(line.before(i)))) {
            const QString base =
                tools.inflections.is(verb, Form::base) ? verb : baseOf(verb, tools.inflections);
            line.replace(at, is(be, "is") ? tools.inflections.form(base, Form::thirdPerson) : base);
            line.remove(i);
        }
    }
}

void gerundAfterBe(Line& line, const RuleTools& tools) {
    static const Words verbs = words("go come wait try sit eat talk listen learn play write speak");
    for (int i = 1; i + 1 < line.wordCount(); ++i) {
        const QString be = line.lower(i);
        const int at = verbAfter(line, i);
        if ((is(be, "am") || is(be, "is") || is(be, "are") || is(be, "was") || is(be, "were")) &&
            isSubjectPronoun(line.before(i)) && at < line.wordCount() && verbs.contains(line.lower(at)) &&
            !isProtected(line.word(at))) {
            line.replace(at, tools.inflections.form(line.lower(at), Form::gerund));
        }
    }
}

void pastTime(Line& line, const RuleTools& tools) {
    static const Words units =
        words("night week month year summer winter weekend monday tuesday wednesday thursday "
              "friday saturday sunday");
    static const Words verbs = words(
        "go come see meet get take eat drink buy find lose break tell give make feel leave arrive call visit "
        "stay watch play work walk travel start finish happen decide talk ask try receive wake sleep "
        "write speak buy sell win fall drive run study learn enjoy want need have is are am choose lead send "
        "bring "
        "think know hear sit stand pay spend begin become help wear");
    static const Table beForms = table("is:was are:were am:was");
    for (int start = 0; start < line.wordCount(); ++start) {
        if (!line.word(start).startsSentence) {
            continue;
        }
        int end = start + 1;
        bool past = false;
        int finite = 0;
        int verb = -1;
        for (int i = start; i < line.wordCount() && (i == start || !line.word(i).startsSentence); ++i) {
            const QString word = line.lower(i);
            past = past || is(word, "yesterday") || (is(word, "ago") && !line.before(i).isEmpty()) ||
                   (is(word, "last") && units.contains(line.follows(i + 1)) && !is(line.before(i), "the"));
            const bool counts = isFiniteVerb(line.tag(i)) || line.cliticTag(i) != Tag::other;
            finite += counts ? 1 : 0;
            if (isSubjectPronoun(line.before(i)) && verbs.contains(word) && !isProtected(line.word(i)) &&
                !is(line.before(i - 1), "that")) {
                verb = i;
                finite += counts ? 0 : 1;
            }
            end = i + 1;
        }
        // One verb only: "She says that he called yesterday" has two times.
        if (!past || verb < 0 || finite != 1 || end - start > 14 || line.tag(start) == Tag::modal) {
            continue;
        }
        const QString word = line.lower(verb);
        const QString made =
            beForms.contains(word) ? beForms.value(word) : tools.inflections.form(word, Form::past);
        if (!made.isEmpty() && made != word) {
            line.replace(verb, made);
        }
    }
}

void finiteBe(Line& line, const RuleTools&) {
    static const Table forms = table("i:am he:is she:is it:is we:are you:are they:are");
    for (int i = 1; i + 1 < line.wordCount(); ++i) {
        const QString subject = line.before(i);
        if (!is(line.lower(i), "be") || !forms.contains(subject) || line.follows(i + 1).isEmpty()) {
            continue;
        }
        // "I suggest he be told", "if it be so": only where nothing demands the base form.
        const bool opens =
            line.word(i - 1).startsSentence || words("when because but").contains(line.before(i - 1));
        if (opens) {
            line.replace(i, forms.value(subject));
        }
    }
}

void adverbAfterVerb(Line& line, const RuleTools& tools) {
    static const Table adverbs = table(
        "careful:carefully slow:slowly quick:quickly beautiful:beautifully fluent:fluently clear:clearly "
        "loud:loudly quiet:quietly serious:seriously good:well perfect:perfectly bad:badly easy:easily "
        "happy:happily safe:safely different:differently polite:politely honest:honestly");
    // These are no adverbs even in easy speech ("drive slow").
    static const Words never = words("careful beautiful fluent perfect");
    static const Words verbs =
        words("drive speak walk talk sing work play write move act behave learn run dance");
    for (int i = 2; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        const auto found = adverbs.constFind(word);
        if (found == adverbs.constEnd() || !line.isNextTo(i) || !line.endsClause(i) ||
            isProtected(line.word(i)) || line.punctuationAfter(i) == u',') {
            continue;
        }
        const bool degree = words("very so too really").contains(line.lower(i - 1));
        int verb = degree ? i - 2 : i - 1;
        // "speaks English very good"
        if (verb > 0 && line.isNextTo(verb) && line.isNextTo(verb + 1) && line.tag(verb) == Tag::name &&
            degree) {
            --verb;
        }
        if (verb < 1 || !line.isNextTo(verb + 1) || !isVerb(line.tag(verb)) ||
            (!degree && !never.contains(word))) {
            continue;
        }
        for (const Form form : {Form::base, Form::past, Form::gerund, Form::thirdPerson}) {
            if (verbs.contains(tools.inflections.lemma(line.lower(verb), form))) {
                line.replace(i, *found);
                break;
            }
        }
    }
}

void overRegularForm(Line& line, const RuleTools& tools) {
    for (int i = 0; i < line.wordCount(); ++i) {
        const QString word = line.lower(i);
        if (word.size() < 5 || isProtected(line.word(i)) || tools.speller.isKnown(word)) {
            continue;
        }
        if (word.endsWith(QStringLiteral("ed"))) {
            QStringList bases = {word.chopped(2), word.chopped(1)};
            if (word.size() > 5 && word.at(word.size() - 3) == word.at(word.size() - 4)) {
                bases.append(word.chopped(3));
            }
            if (word.endsWith(QStringLiteral("ied"))) {
                bases.append(word.chopped(3) + u'y');
            }
            for (const QString& base : bases) {
                const QString past = tools.inflections.form(base, Form::past);
                if (!tools.inflections.is(base, Form::base) || past.isEmpty() ||
                    past.endsWith(QStringLiteral("ed"))) {
                    continue;
                }
                const QString before = line.before(i);
                const bool perfect =
                    isBe(before) || words("have has had haven't hasn't hadn't").contains(before);
                line.replace(i, perfect ? tools.inflections.form(base, Form::participle) : past);
                break;
            }
        } else if (word.endsWith(u's')) {
            for (const QString& noun : {word.chopped(1), word.chopped(2)}) {
                const QString plural = tools.inflections.form(noun, Form::plural);
                if (tools.inflections.isCounted(noun) && !plural.isEmpty() && !plural.endsWith(u's')) {
                    line.replace(i, plural);
                    break;
                }
            }
        }
    }
}

} // namespace vellumline
