#include "VellumlineService/Correction/Confusions.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/RuleHelpers.h"
#include "VellumlineService/Correction/SentenceScorer.h"

#include <QFile>
#include <optional>

namespace vellumline {

namespace {

// A line of a few words is a note, a label or a title, and tells little.
constexpr int fewWords = 4;
constexpr double marginOfFewWords = 3;
// Where much is wrong, the words around tell less: half of the exchanges of learners that became likelier by
// less than this were wrong.
constexpr double marginOfEachChange = 0.6;
constexpr int mostChanges = 3;
constexpr double marginBesideUnknown = 2;
// The word does in its place what grammar asks of it, and the other one would not.
constexpr double marginOfFittingForm = 5;

/// Whether a verb without tense must stand here: "to just know", "could see".
bool mustBeBaseVerb(const Line& line, int i) {
    if (line.tag(i) != Tag::baseVerb) {
        return false;
    }
    int before = i - 1;
    while (before > 0 && isAdverb(line.tag(before)) && line.isNextTo(before + 1)) {
        --before;
    }
    return before < i - 1 && line.isNextTo(before + 1) &&
           (line.tag(before) == Tag::to || line.tag(before) == Tag::modal || is(line.lower(before), "to"));
}

/// Whether the word is the one verb of its subject: "children form a line".
bool isOnlyVerbOfSubject(const Line& line, int i, const Inflections& inflections) {
    return line.tag(i) == Tag::presentVerb && !inflections.is(line.lower(i), Form::plain) &&
           line.isNextTo(i) && (line.tag(i - 1) == Tag::pluralNoun || isSubjectPronoun(line.lower(i - 1))) &&
           (!hasFiniteVerbBefore(line, i) || is(line.before(i - 1), "that"));
}

/// Whether the word that was meant wants a noun behind it, and none can follow: "rely on the to help".
bool wantsNounBehind(const Line& line, int i, const QString& meant, Tag next) {
    static const Words determiners = words("the a an every my your his its our their no");
    if (!determiners.contains(meant)) {
        return false;
    }
    const QString word = line.follows(i + 1);
    if (word.isEmpty()) {
        return line.endsClause(i);
    }
    if (is(meant, "an") || is(meant, "a")) {
        const bool vowel = QStringView(u"aeiou").contains(word.front());
        if (vowel != is(meant, "an") && word.front() != u'h' && word.front() != u'u' &&
            !word.startsWith(QStringLiteral("on"))) {
            return true;
        }
    }
    const bool degree =
        isAdverb(next) && !(isAdjective(line.tag(i + 2)) || line.tag(i + 2) == Tag::participle ||
                            line.tag(i + 2) == Tag::gerund);
    return degree || next == Tag::to || next == Tag::preposition || next == Tag::determiner ||
           next == Tag::modal || next == Tag::pronoun || next == Tag::conjunction;
}

/// "an elect band": what follows begins with a vowel, as it must behind "an".
bool fitsAsArticle(const Line& line, int i, const QString& written) {
    const QString next = line.follows(i + 1);
    return is(written, "an") && !next.isEmpty() && QStringView(u"aeio").contains(next.front()) &&
           (isNoun(line.tag(i + 1)) || isAdjective(line.tag(i + 1)) || line.tag(i + 1) == Tag::participle);
}

/// The sentence would be left without a verb: "JSON.parse() threw an error".
bool isOnlyFiniteVerb(const Line& line, int i, bool staysVerb) {
    if (!isFiniteVerb(line.tag(i)) || staysVerb || !line.endsSentence()) {
        return false;
    }
    for (int k = sentenceStart(line, i); k < line.wordCount(); ++k) {
        if (k != i && line.word(k).startsSentence && k > i) {
            break;
        }
        if (k != i && (isFiniteVerb(line.tag(k)) || isFiniteVerb(line.cliticTag(k)))) {
            return false;
        }
    }
    return true;
}

/// "A mean bug": behind an article and adjectives stands a noun, and the other word is none.
bool isHeadOfPhrase(const Line& line, int i, Tag changed) {
    if (!isNoun(line.tag(i)) || isNoun(changed) || isAdjective(changed) || isVerb(changed)) {
        return false;
    }
    int first = i;
    while (first > 0 && line.isNextTo(first) && isAdjective(line.tag(first - 1))) {
        --first;
    }
    return first < i && first > 0 && line.isNextTo(first) &&
           (line.tag(first - 1) == Tag::determiner || line.tag(first - 1) == Tag::possessivePronoun);
}

/// "Your guess is": a possessive, its noun and the verb.
bool ownsSubject(const Line& line, int i, Tag changed) {
    return line.tag(i) == Tag::possessivePronoun && changed == Tag::pronoun && line.isNextTo(i + 1) &&
           isNoun(line.tag(i + 1)) && line.isNextTo(i + 2) && isFiniteVerb(line.tag(i + 2));
}

/// "Is that all?"
bool asks(const Line& line, int i) {
    if (!line.word(i).startsSentence || !isFiniteVerb(line.tag(i))) {
        return false;
    }
    for (int k = i; k < line.wordCount(); ++k) {
        const QChar sign = line.punctuationAfter(k);
        if (sign == u'?' || sign == u'.' || sign == u'!') {
            return sign == u'?';
        }
    }
    return false;
}

/// Whether the word is wrong in another way, which a rule of its own mends: "an trap" wants "a", "these
/// thread" wants the plural, "could sees" the base form.
bool isOfOtherRule(const Line& line, int i, const QString& meant, const RuleTools& tools) {
    const QString written = line.lower(i);
    const QString next = line.follows(i + 1);
    if (is(written, "an") && is(meant, "and") && !next.isEmpty()) {
        return gainOf(line, tools, i, 1, {QStringLiteral("a")}) > gainOf(line, tools, i, 1, {meant});
    }
    if (is(written, "these") || is(written, "those")) {
        int head = i + 1;
        while (line.isNextTo(head + 1) && isAdjective(line.tag(head))) {
            ++head;
        }
        const QString noun = line.follows(head);
        return !noun.isEmpty() && tools.inflections.is(noun, Form::singular) &&
               tools.inflections.isCounted(noun) &&
               gainOf(line, tools, head, 1, {tools.inflections.form(noun, Form::plural)}) >
                   gainOf(line, tools, i, 1, {meant}) - 1;
    }
    return line.isNextTo(i) && line.tag(i - 1) == Tag::modal &&
           tools.inflections.is(written, Form::thirdPerson);
}

/// What speaks for the written word besides the model, which sees three words to each side.
double doubt(const Line& line, int i, const QString& meant, const RuleTools& tools) {
    const QString written = line.lower(i);
    const Tag next = line.isNextTo(i + 1) ? line.tag(i + 1) : Tag::other;
    Line changed = line;
    changed.replace(i, meant);
    const Tag tag = changed.tag(i);
    double margin = marginOfEachChange * std::min(line.changeCount(), mostChanges);
    const bool loneVerb =
        (mustBeBaseVerb(line, i) || isOnlyVerbOfSubject(line, i, tools.inflections)) && !isVerb(tag);
    const bool ofDegree =
        is(written, "far") && (next == Tag::comparativeAdjective || next == Tag::comparativeAdverb);
    // Who leaves out the article of "the same" does not mean "some".
    const bool bareSame = is(written, "same") && is(meant, "some") && line.isNextTo(i) &&
                          (isVerb(line.tag(i - 1)) || line.tag(i - 1) == Tag::preposition ||
                           line.tag(i - 1) == Tag::determiner);
    const Tag nextThen = line.isNextTo(i + 1) ? changed.tag(i + 1) : Tag::other;
    const bool beforeVerb =
        tag == Tag::possessivePronoun && (next == Tag::baseVerb || next == Tag::presentVerb);
    const bool modalBeforeNoun = tag == Tag::modal && isNoun(nextThen);
    if (loneVerb || ofDegree || bareSame || beforeVerb || modalBeforeNoun ||
        wantsNounBehind(line, i, meant, nextThen) || fitsAsArticle(line, i, written) ||
        isOnlyFiniteVerb(line, i, isVerb(tag) && tools.inflections.knows(meant)) ||
        isHeadOfPhrase(line, i, tag) || ownsSubject(line, i, tag) || asks(line, i) ||
        isOfOtherRule(line, i, meant, tools)) {
        margin += marginOfFittingForm;
    }
    const auto isUnknown = [&](int at) {
        return at >= 0 && at < line.wordCount() && line.word(at).text == line.lower(at) &&
               tools.speller.model().gramWord(line.lower(at).toUtf8()) == modelformat::unknownWord;
    };
    if (isUnknown(i - 1) || isUnknown(i + 1)) {
        margin += marginBesideUnknown;
    }
    return margin;
}

} // namespace

const QHash<QString, std::vector<Confusion>>& confusions() {
    static const QHash<QString, std::vector<Confusion>> table = [] {
        QHash<QString, std::vector<Confusion>> made;
        QFile file(QStringLiteral(":/vellumline/correction/confusions.tsv"));
        if (file.open(QIODevice::ReadOnly)) {
            const QList<QByteArray> lines = file.readAll().split('\n');
            for (const QByteArray& line : lines) {
                const QList<QByteArray> columns = line.split('\t');
                if (columns.size() == 3) {
                    made[QString::fromUtf8(columns.at(0))].push_back(
                        {QString::fromUtf8(columns.at(1)), columns.at(2).toDouble()});
                }
            }
        }
        return made;
    }();
    return table;
}

void applyRealWordConfusions(Line& line, const RuleTools& tools) {
    if (line.looksLikeCode()) {
        return;
    }
    std::optional<SentenceScorer> scorer;
    const double least = line.wordCount() <= fewWords ? marginOfFewWords : 0;
    for (int i = 0; i < line.wordCount(); ++i) {
        const Token& token = line.word(i);
        const auto found = confusions().constFind(token.lower);
        if (found == confusions().constEnd() || token.quotedAlone || token.hyphenated ||
            (token.text.front().isUpper() && !token.startsSentence)) {
            continue;
        }
        if (!scorer) {
            scorer.emplace(tools.speller.model(), line);
        }
        double best = least;
        QString better;
        for (const Confusion& confusion : *found) {
            if (is(token.lower, "then") && concludesCondition(line, i)) {
                continue; // the model does not see as far as the "if"
            }
            const double surplus = scorer->gain(i, confusion.meant) - confusion.margin;
            if (surplus > best && surplus - doubt(line, i, confusion.meant, tools) > least) {
                best = surplus;
                better = confusion.meant;
            }
        }
        if (!better.isEmpty()) {
            line.replace(i, better);
            scorer.emplace(tools.speller.model(), line);
        }
    }
}

} // namespace vellumline
