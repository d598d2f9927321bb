#include "VellumlineService/Correction/AnswerCheck.h"

#include <QChar>
#include <QHash>
#include <QRegularExpression>
#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <set>
#include <vector>

namespace vellumline {

namespace {

// Costs of what was done to a line, and what a line of n words may cost: 4 + 1.2 n. Every word may be
// misspelt (1 each), about every fifth may be another one; a translation costs above 3 a word, an answer to
// the text more.
constexpr int similarCost = 1;
constexpr int lostOrNewCost = 3;
constexpr int otherWordCost = 6;
// Articles, auxiliaries and prepositions come and go in ones and twos; a clause does not, and a short line
// has no three words to spare.
constexpr int longestNew = 3;
constexpr int longestOther = 7;
// Of one line. Each pair of words is compared. The longest text that the service takes has some 700.
constexpr qsizetype comparableWords = 1'000;

int allowedCost(qsizetype words) {
    switch (words) {
    case 0:
        return 0;
    case 1: // One word has no context: only its spelling can be wrong.
        return similarCost;
    case 2:
        return 2 * similarCost;
    default:
        return static_cast<int>(4 + words * 6 / 5);
    }
}

const QRegularExpression& protectedPattern() {
    // Possessive throughout, and each alternative starts where a run starts: no input takes longer than its
    // length.
    static const QRegularExpression pattern(
        QStringLiteral(
            // code, as marked up
            "(?s:```.*?(?:```|\\z))|`[^`\\n]++`"
            // addresses
            "|(?<!\\w)[A-Za-z][A-Za-z0-9+.-]{0,20}+://[^\\s<>\"]++"
            "|(?<![\\w.])(?:www\\.|mailto:)[^\\s<>\"]++"
            "|(?<![\\w.%+-])[\\w.%+-]++@[\\w-]++(?:\\.[\\w-]++)++"
            // names of files and hosts
            "|(?<![\\w.-])[\\w-]++(?:\\.[\\w-]++)*?\\.(?:com|org|net|edu|gov|io|dev|html?|txt|pdf|docx?|xlsx?"
            "|png|"
            "jpe?g|gif|svg|json|xml|ya?ml|cpp|hpp|py|js|ts|sh|md|csv|zip|exe)(?![\\w-])(?:/[^\\s<>\"]*+)?"
            "|(?<![\\w/])(?:~|\\.{1,2})?/[\\w.-]++(?:/[\\w.-]*+)*+"
            // names, tags
            "|(?<!\\w)[@#]\\w(?:[\\w.-]*\\w)?+"
            // placeholders and elements
            "|\\$?\\{[^{}\\s]++\\}|%(?:\\d++\\$)?[sdifu@](?!\\w)|</?[A-Za-z][^<>\\n]*+>"
            // identifiers
            "|(?<!\\w)\\w*[^\\W_]_\\w++(?:\\(\\))?|(?<!\\w)\\w++(?:::\\w++)++(?:\\(\\))?|(?<!\\w)\\w++\\(\\)"
            "|(?<!\\w)[a-z]{2,}+[A-Z][a-z]{2,}+\\w*+"
            // numbers
            "|\\d++(?:[.,:/-]\\d++)*+"
            // symbols, currencies, emoji, and what cannot be seen
            "|[\\p{So}\\p{Sc}\\p{Sm}%\\p{Cf}\\p{Co}]"),
        QRegularExpression::UseUnicodePropertiesOption);
    return pattern;
}

bool isLineBreak(QChar c) {
    return c == u'\n' || c == u'\r' || c == QChar(0x2028) || c == QChar(0x2029);
}

/// One line in its pieces: white space, what is written, white space, the break.
struct TextLine {
    QString before;
    QString content;
    QString after;
    QString lineBreak;
};

TextLine makeLine(const QString& whole, const QString& lineBreak) {
    qsizetype start = 0;
    qsizetype end = whole.size();
    while (start < end && whole.at(start).isSpace()) {
        ++start;
    }
    while (end > start && whole.at(end - 1).isSpace()) {
        --end;
    }
    return {whole.left(start), whole.mid(start, end - start), whole.mid(end), lineBreak};
}

std::vector<TextLine> linesOf(const QString& text) {
    std::vector<TextLine> lines;
    qsizetype at = 0;
    while (true) {
        qsizetype end = at;
        while (end < text.size() && !isLineBreak(text.at(end))) {
            ++end;
        }
        qsizetype next = std::min(end + 1, text.size());
        if (end + 1 < text.size() && text.at(end) == u'\r' && text.at(end + 1) == u'\n') {
            ++next;
        }
        lines.push_back(makeLine(text.mid(at, end - at), text.mid(end, next - end)));
        if (end == text.size()) {
            return lines;
        }
        at = next;
    }
}

bool isApostrophe(QChar c) {
    return c == u'\'' || c == QChar(0x2019);
}

struct Word {
    qsizetype start = 0;
    qsizetype end = 0;
    QString core; ///< Folded, without apostrophes.
    quint64 letters = 0;
};

std::vector<Word> wordsOf(const QString& line) {
    std::vector<Word> words;
    const auto inWord = [&line](qsizetype at) {
        const QChar c = line.at(at);
        return c.isLetterOrNumber() || c.isMark() || c.isSurrogate();
    };
    qsizetype at = 0;
    while (at < line.size()) {
        if (!inWord(at)) {
            ++at;
            continue;
        }
        Word word;
        word.start = at;
        while (at < line.size() &&
               (inWord(at) || (isApostrophe(line.at(at)) && at + 1 < line.size() && inWord(at + 1)))) {
            if (!isApostrophe(line.at(at))) {
                word.core += line.at(at);
            }
            ++at;
        }
        word.end = at;
        word.core = word.core.toCaseFolded();
        for (const QChar c : std::as_const(word.core)) {
            word.letters |= quint64(1) << (c.unicode() % 64);
        }
        words.push_back(std::move(word));
    }
    return words;
}

/// Compares one word after the other with many. What there is to compare grows with the square of a text's
/// words, so that a pair has to cost little: Hyyrö's bit vectors (2003) hold a whole column of the table.
class Similarity {
  public:
    Similarity(const std::vector<Word>& from, const std::vector<Word>& to)
        : from_(from), to_(to), fromSigns_(signsOf(from)), toSigns_(signsOf(to)),
          places_(static_cast<size_t>(numbers_.size()), 0) {}

    /// The word of the line that the next comparisons are about.
    void choose(size_t row) {
        for (const size_t sign : fromSigns_[row_]) {
            places_[sign] = 0;
        }
        row_ = row;
        const auto length = std::min<size_t>(fromSigns_[row].size(), longest);
        for (size_t i = 0; i < length; ++i) {
            places_[fromSigns_[row][i]] |= quint64(1) << i;
        }
    }

    /// Whether the chosen word and this one of the answer can be misspellings of each other: at most half of
    /// the longer one differs.
    bool contains(size_t column) const {
        const Word& left = from_[row_];
        const Word& right = to_[column];
        const auto [shorter, longer] = std::minmax({left.core.size(), right.core.size()});
        const auto limit = static_cast<int>(longer / 2);
        return longer <= static_cast<qsizetype>(longest) && longer - shorter <= limit &&
               std::popcount(left.letters & ~right.letters) <= limit &&
               std::popcount(right.letters & ~left.letters) <= limit && distance(column) <= limit;
    }

  private:
    static constexpr size_t longest = 64;

    std::vector<std::vector<size_t>> signsOf(const std::vector<Word>& words) {
        std::vector<std::vector<size_t>> signs;
        for (const Word& word : words) {
            std::vector<size_t>& own = signs.emplace_back();
            for (const QChar c : word.core) {
                const auto number = numbers_.constFind(c);
                own.push_back(number != numbers_.constEnd()
                                  ? *number
                                  : *numbers_.insert(c, static_cast<size_t>(numbers_.size())));
            }
        }
        return signs;
    }

    /// Two letters in the wrong order are one slip (optimal string alignment).
    int distance(size_t column) const {
        const size_t length = fromSigns_[row_].size();
        if (length == 0) {
            return static_cast<int>(toSigns_[column].size());
        }
        quint64 zero = 0;
        quint64 up = ~quint64(0);
        quint64 down = 0;
        quint64 before = 0;
        auto cost = static_cast<int>(length);
        for (const size_t sign : toSigns_[column]) {
            const quint64 here = places_[sign];
            const quint64 swapped = ((~zero & here) << 1) & before;
            zero = (((here & up) + up) ^ up) | here | down | swapped;
            quint64 right = down | ~(zero | up);
            quint64 left = zero & up;
            cost +=
                static_cast<int>((right >> (length - 1)) & 1) - static_cast<int>((left >> (length - 1)) & 1);
            right = (right << 1) | 1;
            left <<= 1;
            up = left | ~(zero | right);
            down = right & zero;
            before = here;
        }
        return cost;
    }

    const std::vector<Word>& from_;
    const std::vector<Word>& to_;
    QHash<QChar, size_t> numbers_; ///< Of each sign that one of the words has.
    const std::vector<std::vector<size_t>> fromSigns_;
    const std::vector<std::vector<size_t>> toSigns_;
    std::vector<quint64> places_; ///< Of each sign in the chosen word.
    size_t row_ = 0;
};

/// How a line became its answer, word by word.
struct Alignment {
    int cost = 0;
    /// For each word of the answer the word of the line that it was made of, or -1.
    std::vector<qsizetype> source;
    std::vector<qsizetype> place; ///< The same, and also the word that it replaces.
    std::vector<bool> kept;       ///< For each word of the line: whether something was made of it.
};

Alignment align(const std::vector<Word>& from, const std::vector<Word>& to) {
    enum Step : quint8 { same, like, other, lost, added, joined, split };
    const size_t rows = from.size();
    const size_t columns = to.size();
    std::vector<quint8> steps((rows + 1) * (columns + 1), same);
    // Joined and split words look two rows back.
    std::array<std::vector<int>, 3> costs;
    costs.fill(std::vector<int>(columns + 1, 0));
    Similarity similarity(from, to);
    for (size_t i = 0; i <= rows; ++i) {
        std::vector<int>& row = costs[i % 3];
        const std::vector<int>& above = costs[(i + 2) % 3];
        const std::vector<int>& twoAbove = costs[(i + 1) % 3];
        if (i > 0) {
            similarity.choose(i - 1);
        }
        for (size_t j = 0; j <= columns; ++j) {
            if (i == 0 && j == 0) {
                row[0] = 0;
                continue;
            }
            int best = std::numeric_limits<int>::max();
            Step step = same;
            const auto offer = [&best, &step](int cost, Step how) {
                if (cost < best) {
                    best = cost;
                    step = how;
                }
            };
            if (i > 0 && j > 0) {
                const Word& left = from[i - 1];
                const Word& right = to[j - 1];
                if (left.core == right.core) {
                    offer(above[j - 1], same);
                } else {
                    // Another word costs as much as one lost and one new; the look at the letters is for the
                    // rest.
                    if (above[j - 1] + similarCost < std::min(above[j], row[j - 1]) + lostOrNewCost &&
                        similarity.contains(j - 1)) {
                        offer(above[j - 1] + similarCost, like);
                    }
                    offer(above[j - 1] + otherWordCost, other);
                }
                if (i > 1 && from[i - 2].core + left.core == right.core) {
                    offer(twoAbove[j - 1] + similarCost, joined);
                }
                if (j > 1 && to[j - 2].core + right.core == left.core) {
                    offer(above[j - 2] + similarCost, split);
                }
            }
            if (i > 0) {
                offer(above[j] + lostOrNewCost, lost);
            }
            if (j > 0) {
                offer(row[j - 1] + lostOrNewCost, added);
            }
            row[j] = best;
            steps[i * (columns + 1) + j] = step;
        }
    }

    Alignment alignment;
    alignment.cost = costs[rows % 3][columns];
    alignment.source.assign(columns, -1);
    alignment.place.assign(columns, -1);
    alignment.kept.assign(rows, false);
    size_t i = rows;
    size_t j = columns;
    while (i > 0 || j > 0) {
        switch (static_cast<Step>(steps[i * (columns + 1) + j])) {
        case same:
        case like:
            --i;
            --j;
            alignment.source[j] = static_cast<qsizetype>(i);
            alignment.kept[i] = true;
            break;
        case other:
            --i;
            --j;
            alignment.place[j] = static_cast<qsizetype>(i);
            break;
        case lost:
            --i;
            break;
        case added:
            --j;
            break;
        case joined:
            i -= 2;
            --j;
            alignment.source[j] = static_cast<qsizetype>(i);
            alignment.kept[i] = alignment.kept[i + 1] = true;
            break;
        case split:
            --i;
            j -= 2;
            alignment.source[j] = alignment.source[j + 1] = static_cast<qsizetype>(i);
            alignment.kept[i] = true;
            break;
        }
    }
    for (size_t k = 0; k < columns; ++k) {
        alignment.place[k] = std::max(alignment.place[k], alignment.source[k]);
    }
    return alignment;
}

int longestLost(qsizetype words) {
    return words < 6 ? 1 : words < 12 ? 2 : 3;
}

bool isOnlySpace(QStringView text) {
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.isSpace(); });
}

bool hasPunctuation(QStringView text) {
    return std::any_of(text.begin(), text.end(), [](QChar c) { return !c.isSpace() && !isApostrophe(c); });
}

/// Whether a stretch of the answer was made of nothing and is too long for a missing word or two, or a
/// stretch of the line went into nothing.
bool hasLongGap(const Alignment& alignment) {
    qsizetype line = 0;
    qsizetype lost = 0;
    qsizetype added = 0;
    const int mayBeLost = longestLost(static_cast<qsizetype>(alignment.kept.size()));
    const auto tooLong = [&lost, &added, mayBeLost] {
        const bool found =
            lost - added > mayBeLost || added - lost > longestNew || std::max(lost, added) > longestOther;
        lost = added = 0;
        return found;
    };
    const auto tooLongBefore = [&](qsizetype end) {
        for (; line < end; ++line) {
            if (!alignment.kept[static_cast<size_t>(line)]) {
                ++lost;
            } else if (tooLong()) {
                return true;
            }
        }
        return false;
    };
    for (const qsizetype source : alignment.source) {
        if (source < 0) {
            ++added;
        } else if (tooLongBefore(source) || tooLong()) {
            return true;
        } else {
            line = std::max(line, source + 1);
        }
    }
    return tooLongBefore(static_cast<qsizetype>(alignment.kept.size())) || tooLong();
}

/// "Sure: …", "… (no changes)": new words at an end that punctuation divides from the text.
bool hasComment(const QString& answer, const std::vector<Word>& words, const Alignment& alignment) {
    const auto firstKept =
        std::find_if(alignment.source.begin(), alignment.source.end(), [](qsizetype s) { return s >= 0; });
    if (firstKept == alignment.source.end()) {
        return false; // Not a comment alone.
    }
    const auto first = static_cast<size_t>(firstKept - alignment.source.begin());
    size_t last = words.size() - 1;
    while (alignment.source[last] < 0) {
        --last;
    }
    const bool beginningKept = *firstKept == 0;
    const bool endKept = alignment.source[last] >= 0 && alignment.kept.back();
    const auto between = [&](size_t left) {
        return QStringView(answer).mid(words[left].end, words[left + 1].start - words[left].end);
    };
    return (first > 0 && beginningKept && hasPunctuation(between(first - 1))) ||
           (last + 1 < words.size() && endKept && hasPunctuation(between(last)));
}

/// Capitals at the beginnings of words come and go ("i live in new york"); a line that shouts is another one.
bool shouts(const QString& line, const std::vector<Word>& from, const QString& answer,
            const std::vector<Word>& to, const Alignment& alignment) {
    qsizetype changed = 0;
    for (size_t j = 0; j < to.size(); ++j) {
        if (alignment.source[j] < 0) {
            continue;
        }
        const Word& word = from[static_cast<size_t>(alignment.source[j])];
        if (word.core == to[j].core) {
            const auto capitals = [](QStringView text) {
                return std::count_if(text.begin() + 1, text.end(), [](QChar c) { return c.isUpper(); });
            };
            changed += capitals(QStringView(line).mid(word.start, word.end - word.start)) !=
                               capitals(QStringView(answer).mid(to[j].start, to[j].end - to[j].start))
                           ? 1
                           : 0;
        }
    }
    return changed > std::max<qsizetype>(1, static_cast<qsizetype>(from.size()) / 5);
}

/// Signs between the words: a correction adds a comma here and there.
qsizetype punctuationCount(const QString& line) {
    return std::count_if(line.begin(), line.end(), [](QChar c) { return c.isPunct(); });
}

CheckedAnswer checkLine(const QString& line, const QString& answer) {
    if (line == answer) {
        return {AnswerVerdict::accepted, answer};
    }
    // Of a few letters more than three times as many is no correction either.
    const auto longest = [](const QString& of) { return std::min(of.size() * 3 / 2 + 20, of.size() * 3); };
    if (answer.size() > longest(line) || line.size() > longest(answer)) {
        return {AnswerVerdict::length};
    }
    const std::vector<Word> from = wordsOf(line);
    const std::vector<Word> to = wordsOf(answer);
    if (static_cast<qsizetype>(std::max(from.size(), to.size())) > comparableWords) {
        return {AnswerVerdict::tooLong};
    }
    if (from.empty() || to.empty()) {
        return {AnswerVerdict::otherText}; // Nothing but signs: there is nothing to correct.
    }
    const Alignment alignment = align(from, to);
    if (hasComment(answer, to, alignment)) {
        return {AnswerVerdict::comment};
    }
    if (alignment.cost > allowedCost(static_cast<qsizetype>(from.size())) || hasLongGap(alignment) ||
        shouts(line, from, answer, to, alignment) ||
        punctuationCount(answer) > punctuationCount(line) + 2 + static_cast<qsizetype>(from.size()) / 3) {
        return {AnswerVerdict::otherText};
    }
    // Engines like to put one space where the writer has two, or a tab.
    QString text = answer.left(to.front().start);
    for (size_t j = 0; j < to.size(); ++j) {
        text += QStringView(answer).mid(to[j].start, to[j].end - to[j].start);
        const qsizetype next = j + 1 < to.size() ? to[j + 1].start : answer.size();
        const QStringView gap = QStringView(answer).mid(to[j].end, next - to[j].end);
        const qsizetype left = alignment.place[j];
        const qsizetype right = j + 1 < to.size() ? alignment.place[j + 1] : -1;
        if (left >= 0 && right == left + 1) {
            const Word& before = from[static_cast<size_t>(left)];
            const Word& after = from[static_cast<size_t>(right)];
            const QStringView original = QStringView(line).mid(before.end, after.start - before.end);
            if (!original.isEmpty() && isOnlySpace(original) && isOnlySpace(gap)) {
                text += original;
                continue;
            }
        }
        text += gap;
    }
    return {AnswerVerdict::accepted, text};
}

/// Signs that a correction leaves alone: they make markup, a quotation or an aside of the text.
bool changesSigns(const QString& text, const QString& answer) {
    const auto count = [](const QString& in, const QString& signs) {
        return std::count_if(in.begin(), in.end(), [&signs](QChar c) { return signs.contains(c); });
    };
    static const QString markup = QStringLiteral("[]{}<>*`#|~^\\=_@");
    for (const QChar sign : markup) {
        if (answer.count(sign) != text.count(sign)) {
            return true;
        }
    }
    // One that is missing may be put in, one too many taken away.
    static const QString quotes = QStringLiteral("\"\u201c\u201d\u201e\u00ab\u00bb");
    const auto quoted = count(text, quotes);
    const auto opened = text.count(u'(');
    const auto closed = text.count(u')');
    const auto asides = answer.count(u'(') + answer.count(u')');
    // "Corrected: …" begins with a sign that hardly ever is what is missing.
    return answer.count(u':') > text.count(u':') ||
           std::abs(count(answer, quotes) - quoted) > (quoted % 2 != 0 ? 1 : 0) ||
           std::abs(asides - opened - closed) > (opened != closed ? 1 : 0);
}

bool isQuote(QChar c) {
    return isApostrophe(c) || QStringView(u"\"\u2018\u201c\u201d\u201e\u00ab\u00bb").contains(c);
}

bool isWrapped(const QString& text) {
    return text.size() > 1 && isQuote(text.front()) && isQuote(text.back());
}

std::set<QChar::Script> scriptsOf(const QString& text) {
    std::set<QChar::Script> scripts;
    const QList<uint> codePoints = text.toUcs4();
    for (const uint codePoint : codePoints) {
        const QChar::Script script = QChar::script(codePoint);
        if (script > QChar::Script_Common) {
            scripts.insert(script);
        }
    }
    return scripts;
}

/// White space other than the plain one, control characters and broken surrogates, in their order.
QString exactCharacters(const QString& text) {
    QString found;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            ++i;
        } else if (c.isSurrogate() || (c.isSpace() && c != u' ') || c.category() == QChar::Other_Control ||
                   c.category() == QChar::Other_NotAssigned) {
            found += c;
        }
    }
    return found;
}

} // namespace

QList<ProtectedSpan> protectedSpans(const QString& text) {
    QList<ProtectedSpan> spans;
    auto matches = protectedPattern().globalMatch(text);
    while (matches.hasNext()) {
        const auto match = matches.next();
        ProtectedSpan span{match.capturedStart(), match.capturedLength()};
        // A full stop after an address is the sentence's.
        const QStringView found = match.capturedView();
        if (found.contains(u'/') || found.startsWith(u"www.") || found.startsWith(u"mailto:")) {
            const QStringView ends = u".,;:!?)'\u2019";
            while (span.length > 1 && ends.contains(text.at(span.start + span.length - 1))) {
                --span.length;
            }
        }
        spans.append(span);
    }
    return spans;
}

QStringList protectedTexts(const QString& text) {
    QStringList texts;
    const auto spans = protectedSpans(text);
    for (const ProtectedSpan& span : spans) {
        texts.append(text.mid(span.start, span.length));
    }
    return texts;
}

QString verdictText(AnswerVerdict verdict) {
    switch (verdict) {
    case AnswerVerdict::accepted:
        break;
    case AnswerVerdict::tooLong:
        return QStringLiteral("the text is too long to compare an answer with");
    case AnswerVerdict::length:
        return QStringLiteral("the answer is much shorter or longer than the text");
    case AnswerVerdict::lines:
        return QStringLiteral("the answer has lost or new lines");
    case AnswerVerdict::characters:
        return QStringLiteral("the answer has quotes, markup or letters that the text does not have");
    case AnswerVerdict::untouchable:
        return QStringLiteral("the answer changes a number, an address, a name or code");
    case AnswerVerdict::comment:
        return QStringLiteral("the answer says something besides the text");
    case AnswerVerdict::otherText:
        return QStringLiteral("the answer is another text");
    }
    return QStringLiteral("the answer is a correction");
}

CheckedAnswer checkAnswer(const QString& text, const QString& answer) {
    if (text.size() > comparableLength) {
        return {AnswerVerdict::tooLong};
    }
    if (answer.size() > text.size() * 2 + 100) {
        return {AnswerVerdict::length};
    }
    const TextLine whole = makeLine(text, {});
    const QString trimmed = answer.trimmed();
    if (trimmed.isEmpty() || whole.content.isEmpty()) {
        return {AnswerVerdict::length};
    }
    const std::vector<TextLine> lines = linesOf(whole.content);
    const std::vector<TextLine> answered = linesOf(trimmed);
    if (lines.size() != answered.size()) {
        return {AnswerVerdict::lines};
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].content.isEmpty() != answered[i].content.isEmpty()) {
            return {AnswerVerdict::lines};
        }
    }
    if (changesSigns(whole.content, trimmed) || (isWrapped(trimmed) && !isWrapped(whole.content))) {
        return {AnswerVerdict::characters};
    }
    const auto scripts = scriptsOf(whole.content);
    const auto answeredScripts = scriptsOf(trimmed);
    if (!std::includes(scripts.begin(), scripts.end(), answeredScripts.begin(), answeredScripts.end())) {
        return {AnswerVerdict::characters};
    }
    if (protectedTexts(whole.content) != protectedTexts(trimmed)) {
        return {AnswerVerdict::untouchable};
    }
    QString made = whole.before;
    for (size_t i = 0; i < lines.size(); ++i) {
        const CheckedAnswer line = checkLine(lines[i].content, answered[i].content);
        if (line.verdict != AnswerVerdict::accepted) {
            return {line.verdict};
        }
        made += lines[i].before + line.text + lines[i].after + lines[i].lineBreak;
    }
    made += whole.after;
    // Looked at last, as white space and line breaks are those of the text by now.
    if (exactCharacters(made) != exactCharacters(text)) {
        return {AnswerVerdict::characters};
    }
    if (protectedTexts(made) != protectedTexts(text)) {
        return {AnswerVerdict::untouchable};
    }
    return {AnswerVerdict::accepted, made};
}

} // namespace vellumline
