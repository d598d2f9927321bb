#include "VellumlineService/Correction/Line.h"

#include <QSet>
#include <algorithm>
#include <utility>

namespace vellumline {

namespace {

constexpr QChar curlyApostrophe(0x2019);

bool isApostrophe(QChar c) {
    return c == u'\'' || c == curlyApostrophe;
}

bool isQuote(QChar c) {
    return c == u'\'' || c == u'"' || c == u'`' || c == QChar(0x2018) || c == curlyApostrophe ||
           c == QChar(0x201C) || c == QChar(0x201D) || c == QChar(0xAB) || c == QChar(0xBB);
}

// Whatever has one of these inside was not written as prose.
bool isTechnical(QChar c) {
    return QStringView(u"@#/\\_`=<>{}|~^$%&*+[]").contains(c);
}

bool isCodeSign(QChar c) {
    return QStringView(u"{}=_`;\\|<>").contains(c);
}

/// "-y" or "--force-with-lease": a command line.
bool isOption(QStringView chunk) {
    const bool isShort = chunk.size() == 2 && chunk.front() == u'-' && chunk.at(1).isLetter();
    const bool isLong = chunk.size() > 3 && chunk.startsWith(u"--") &&
                        std::all_of(chunk.cbegin() + 2, chunk.cend(),
                                    [](QChar c) { return c.isLower() || c.isDigit() || c == u'-'; }) &&
                        chunk.at(2).isLetter() && chunk.back() != u'-';
    return isShort || isLong;
}

bool keptWhole(QStringView chunk) {
    qsizetype begin = 0;
    qsizetype end = chunk.size();
    while (begin < end && (isQuote(chunk.at(begin)) || chunk.at(begin) == u'(')) {
        ++begin;
    }
    while (end > begin &&
           (isQuote(chunk.at(end - 1)) || QStringView(u".,;:!?)").contains(chunk.at(end - 1)))) {
        --end;
    }
    bool letterBefore = false;
    bool lowerBefore = false;
    for (qsizetype i = begin; i < end; ++i) {
        const QChar c = chunk.at(i);
        if (isTechnical(c) || c.isDigit() || c.isSurrogate() || c == u'(' || c == u')') {
            return true;
        }
        // A dot or colon between letters (file.txt, e.g, a::b), or a capital after a small letter
        // (camelCase).
        if ((c == u'.' || c == u':') && letterBefore && i + 1 < end &&
            (chunk.at(i + 1).isLetter() || chunk.at(i + 1) == c) && !(c == u'.' && chunk.at(i + 1) == c)) {
            return true;
        }
        if (c.isUpper() && lowerBefore) {
            return true;
        }
        letterBefore = c.isLetter();
        lowerBefore = c.isLower();
    }
    return false;
}

const QSet<QString>& abbreviations() {
    static const QSet<QString> set = {
        QStringLiteral("etc"),  QStringLiteral("vs"),   QStringLiteral("approx"), QStringLiteral("fig"),
        QStringLiteral("no"),   QStringLiteral("vol"),  QStringLiteral("pp"),     QStringLiteral("ed"),
        QStringLiteral("eds"),  QStringLiteral("dept"), QStringLiteral("est"),    QStringLiteral("inc"),
        QStringLiteral("ltd"),  QStringLiteral("co"),   QStringLiteral("jr"),     QStringLiteral("sr"),
        QStringLiteral("st"),   QStringLiteral("al"),   QStringLiteral("min"),    QStringLiteral("max"),
        QStringLiteral("mr"),   QStringLiteral("mrs"),  QStringLiteral("ms"),     QStringLiteral("dr"),
        QStringLiteral("prof"), QStringLiteral("cf"),   QStringLiteral("ca"),     QStringLiteral("corp")};
    return set;
}

bool isInterjection(const QString& lower) {
    static const QSet<QString> set = {QStringLiteral("o"),    QStringLiteral("oh"),   QStringLiteral("ah"),
                                      QStringLiteral("alas"), QStringLiteral("hark"), QStringLiteral("lo"),
                                      QStringLiteral("ha")};
    return set.contains(lower);
}

} // namespace

Line::Line(const QString& text, bool startsSentence, const Tagger& tagger)
    : tagger_(tagger), startsSentence_(startsSentence), curlyApostrophes_(text.contains(curlyApostrophe)) {
    tokenize(text);
    index(startsSentence);
}

void Line::tokenize(const QString& text) {
    const auto add = [&](Token::Kind kind, const QString& piece) {
        Token token;
        token.kind = kind;
        token.text = piece;
        if (kind == Token::Kind::word) {
            token.lower = piece.toLower().replace(curlyApostrophe, u'\'');
        }
        tokens_.push_back(std::move(token));
    };
    bool hasOption = false;
    qsizetype i = 0;
    while (i < text.size()) {
        const qsizetype start = i;
        const bool space = text.at(i).isSpace();
        while (i < text.size() && text.at(i).isSpace() == space) {
            ++i;
        }
        const QString chunk = text.mid(start, i - start);
        if (space) {
            add(Token::Kind::space, chunk);
            continue;
        }
        looksLikeCode_ = looksLikeCode_ || std::any_of(chunk.cbegin(), chunk.cend() - 1, isCodeSign) ||
                         QStringView(u"{}=`").contains(chunk.back());
        hasOption = hasOption || isOption(chunk);
        if (keptWhole(chunk) || isOption(chunk)) {
            add(Token::Kind::kept, chunk);
            continue;
        }
        qsizetype j = 0;
        while (j < chunk.size()) {
            const qsizetype wordStart = j;
            while (j < chunk.size() && (chunk.at(j).isLetter() || chunk.at(j).isMark() ||
                                        (j > wordStart && isApostrophe(chunk.at(j)) && j + 1 < chunk.size() &&
                                         chunk.at(j + 1).isLetter()))) {
                ++j;
            }
            if (j > wordStart) {
                add(Token::Kind::word, chunk.mid(wordStart, j - wordStart));
            } else {
                add(chunk.at(j).isPunct() ? Token::Kind::punctuation : Token::Kind::kept, chunk.mid(j, 1));
                ++j;
            }
        }
    }
    looksLikeCode_ = looksLikeCode_ || (hasOption && !endsSentence());
}

bool Line::hasCodeInside() const {
    return std::any_of(tokens_.cbegin(), tokens_.cend(), [](const Token& token) {
        return token.kind == Token::Kind::kept &&
               std::any_of(token.text.cbegin(), token.text.cend(),
                           [](QChar c) { return QStringView(u"()/_=").contains(c); });
    });
}

void Line::index(bool startsSentence) {
    words_.clear();
    bool pending = startsSentence;
    const QString* opener = nullptr;
    const auto count = static_cast<int>(tokens_.size());
    const auto at = [&](int i) -> Token* {
        return i >= 0 && i < count ? &tokens_[static_cast<size_t>(i)] : nullptr;
    };
    for (int i = 0; i < count; ++i) {
        Token& token = *at(i);
        const Token* previous = at(i - 1);
        const Token* next = at(i + 1);
        if (token.kind == Token::Kind::word) {
            token.startsSentence = pending;
            opener = pending ? &token.lower : opener;
            pending = false;
            const auto isHyphen = [](const Token* t) {
                return t && (t->text == QStringLiteral("-") || t->text == QChar(0x2010) ||
                             t->text == QChar(0x2011));
            };
            token.hyphenated = isHyphen(previous) || isHyphen(next);
            token.quotedAlone = previous && next && previous->kind == Token::Kind::punctuation &&
                                next->kind == Token::Kind::punctuation && isQuote(previous->text.front()) &&
                                isQuote(next->text.front());
            words_.push_back(i);
        } else if (token.kind == Token::Kind::punctuation) {
            const bool stop = token.text == QStringLiteral(".") || token.text == QStringLiteral("?") ||
                              token.text == QStringLiteral("!");
            if (stop && next && next->kind == Token::Kind::space) {
                const bool abbreviated =
                    previous && previous->kind == Token::Kind::word &&
                    (previous->text.size() < 3 || abbreviations().contains(previous->lower));
                const bool dots = previous && previous->text == token.text;
                // "O Captain! my Captain!": the cry is a part of the sentence.
                const Token* after = at(i + 2);
                const bool cry = token.text == QStringLiteral("!") && opener && isInterjection(*opener) &&
                                 after && after->text.front().isLower();
                pending = !abbreviated && !dots && !cry;
            }
        } else if (token.kind == Token::Kind::kept) {
            pending = false;
        }
    }
}

void Line::keep(const std::function<bool(int)>& condition) {
    const bool starts = !words_.empty() && word(0).startsSentence;
    std::vector<int> kept;
    for (int i = 0; i < wordCount(); ++i) {
        if (condition(i)) {
            kept.push_back(words_[static_cast<size_t>(i)]);
        }
    }
    if (kept.empty()) {
        return;
    }
    for (const int at : kept) {
        tokens_[static_cast<size_t>(at)].kind = Token::Kind::kept;
    }
    index(starts);
}

std::vector<std::pair<int, int>> Line::quotes() const {
    std::vector<std::pair<int, int>> found;
    int words = 0;
    int begin = -1;
    bool spaceBefore = true;
    for (const Token& token : tokens_) {
        if (token.kind == Token::Kind::word) {
            ++words;
        } else if (token.kind == Token::Kind::punctuation && isQuote(token.text.front())) {
            // A quote behind a word closes; an apostrophe there may be one, too.
            if (spaceBefore) {
                begin = words;
            } else if (begin >= 0) {
                found.emplace_back(begin, words);
                begin = -1;
            }
        }
        spaceBefore =
            token.kind == Token::Kind::space || (spaceBefore && token.kind == Token::Kind::punctuation);
    }
    return found;
}

bool Line::isQuoted(int i) const {
    const auto all = quotes();
    return std::any_of(all.cbegin(), all.cend(),
                       [i](const auto& quote) { return quote.first <= i && i < quote.second; });
}

QString Line::text() const {
    QString joined;
    for (const Token& token : tokens_) {
        joined += token.text;
    }
    return joined;
}

bool Line::endsSentence() const {
    for (auto token = tokens_.rbegin(); token != tokens_.rend(); ++token) {
        if (token->kind == Token::Kind::space ||
            (token->kind == Token::Kind::punctuation && isQuote(token->text.front()))) {
            continue;
        }
        return token->text == QStringLiteral(".") || token->text == QStringLiteral("?") ||
               token->text == QStringLiteral("!");
    }
    return true;
}

QString Line::lower(int i) const {
    return i >= 0 && i < wordCount() ? word(i).lower : QString();
}

QString Line::follows(int i) const {
    if (i < 1 || i >= wordCount()) {
        return {};
    }
    const int here = words_[static_cast<size_t>(i)];
    const int there = words_[static_cast<size_t>(i) - 1];
    return here == there + 2 && tokens_[static_cast<size_t>(there) + 1].kind == Token::Kind::space
               ? word(i).lower
               : QString();
}

QString Line::gapBefore(int i) const {
    QString gap;
    if (i > 0 && i < wordCount()) {
        for (int at = words_[static_cast<size_t>(i) - 1] + 1; at < words_[static_cast<size_t>(i)]; ++at) {
            gap += tokens_[static_cast<size_t>(at)].text;
        }
    }
    return gap;
}

QString Line::before(int i) const {
    return follows(i).isEmpty() ? QString() : lower(i - 1);
}

QChar Line::punctuationAfter(int i) const {
    if (i < 0 || i >= wordCount()) {
        return {};
    }
    const auto next = static_cast<size_t>(words_[static_cast<size_t>(i)]) + 1;
    return next < tokens_.size() && tokens_[next].kind == Token::Kind::punctuation
               ? tokens_[next].text.front()
               : QChar();
}

bool Line::endsClause(int i) const {
    if (i < 0 || i >= wordCount()) {
        return true;
    }
    const auto next = static_cast<size_t>(words_[static_cast<size_t>(i)]) + 1;
    return next >= tokens_.size() || QStringView(u".,;:!?").contains(punctuationAfter(i)) ||
           (next + 1 == tokens_.size() && tokens_[next].kind == Token::Kind::space);
}

void Line::replace(int i, const QString& lowerWord) {
    QString made = lowerWord;
    if (word(i).text.front().isUpper()) {
        made.front() = made.front().toUpper();
    }
    replaceExactly(i, made);
}

void Line::replaceExactly(int i, const QString& made) {
    Token& token = word(i);
    const QString before = token.text;
    token.text = made;
    token.lower = made.toLower();
    if (curlyApostrophes_) {
        token.text.replace(u'\'', curlyApostrophe);
    }
    changed(before, token.text);
}

void Line::changed(const QString& before, const QString& after) {
    edits_.push_back({before, after});
    ++changeCount_;
    tags_.clear();
}

void Line::insertBefore(int i, const QString& lowerWord) {
    const int at = words_[static_cast<size_t>(i)];
    Token& next = word(i);
    const QString before = next.text;
    Token made;
    made.kind = Token::Kind::word;
    made.text = lowerWord;
    made.lower = lowerWord;
    made.startsSentence = next.startsSentence;
    if (next.startsSentence && next.text.front().isUpper()) {
        made.text.front() = made.text.front().toUpper();
        if (next.text != QStringLiteral("I")) {
            next.text.front() = next.text.front().toLower();
        }
    }
    next.startsSentence = false;
    changed(before, made.text + u' ' + next.text);
    Token space;
    space.kind = Token::Kind::space;
    space.text = QStringLiteral(" ");
    tokens_.insert(tokens_.begin() + at, {made, space});
    for (size_t later = static_cast<size_t>(i); later < words_.size(); ++later) {
        words_[later] += 2;
    }
    words_.insert(words_.begin() + i, at);
}

void Line::insertSignAfter(int i, QChar sign) {
    const int at = words_[static_cast<size_t>(i)] + 1;
    Token made;
    made.kind = Token::Kind::punctuation;
    made.text = sign;
    tokens_.insert(tokens_.begin() + at, made);
    for (size_t later = static_cast<size_t>(i) + 1; later < words_.size(); ++later) {
        ++words_[later];
    }
    changed(word(i).text, word(i).text + sign);
}

void Line::closeUpSigns() {
    if (looksLikeCode_) {
        return;
    }
    bool closed = false;
    const auto kindAt = [&](size_t i) { return i < tokens_.size() ? tokens_[i].kind : Token::Kind::space; };
    for (size_t i = 1; i + 1 < tokens_.size(); ++i) {
        const QString sign = tokens_[i + 1].text;
        if (tokens_[i].text != QStringLiteral(" ") || kindAt(i + 1) != Token::Kind::punctuation ||
            !QStringView(u",.;?!").contains(sign) || kindAt(i - 1) != Token::Kind::word) {
            continue;
        }
        const bool lastOfText = kindAt(i + 2) == Token::Kind::space;
        const bool comma = sign == QStringLiteral(",") && kindAt(i + 2) == Token::Kind::word;
        if (!lastOfText && !comma) {
            continue;
        }
        const QString before = tokens_[i - 1].text + u' ' + sign;
        const QString after = tokens_[i - 1].text + sign;
        if (comma) {
            std::swap(tokens_[i], tokens_[i + 1]);
        } else {
            tokens_.erase(tokens_.begin() + static_cast<ptrdiff_t>(i));
        }
        changed(before, after);
        closed = true;
    }
    if (closed) {
        index(startsSentence_);
    }
}

void Line::endWithQuestionMark() {
    for (auto token = tokens_.rbegin(); token != tokens_.rend(); ++token) {
        if (token->kind == Token::Kind::punctuation && token->text == QStringLiteral(".")) {
            token->text = QStringLiteral("?");
            changed(QStringLiteral("."), QStringLiteral("?"));
            return;
        }
        if (token->kind != Token::Kind::space) {
            return;
        }
    }
}

Tag Line::tag(int i) const {
    tagAll();
    return i >= 0 && i < wordCount() ? tags_[static_cast<size_t>(i)].first : Tag::other;
}

Tag Line::cliticTag(int i) const {
    tagAll();
    return i >= 0 && i < wordCount() ? tags_[static_cast<size_t>(i)].second : Tag::other;
}

void Line::tagAll() const {
    if (!tags_.empty() || words_.empty()) {
        return;
    }
    tags_.resize(words_.size(), {Tag::other, Tag::other});
    std::vector<std::string> pieces;
    std::vector<std::pair<size_t, bool>> places; // The word of each piece, and whether it is its second part.
    const auto flush = [&] {
        const std::vector<Tag> found = tagger_.tag(pieces);
        for (size_t piece = 0; piece < pieces.size(); ++piece) {
            const auto [at, second] = places[piece];
            if (at < words_.size()) {
                (second ? tags_[at].second : tags_[at].first) = found[piece];
            }
        }
        pieces.clear();
        places.clear();
    };
    const auto add = [&](const QString& text, size_t at, bool second) {
        pieces.push_back(text.toStdString());
        places.emplace_back(at, second);
    };
    size_t at = 0;
    for (const Token& token : tokens_) {
        if (token.kind == Token::Kind::space) {
            continue;
        }
        if (token.kind != Token::Kind::word) {
            add(token.text, words_.size(), false);
            continue;
        }
        if (token.startsSentence && !pieces.empty()) {
            flush();
        }
        const QString text = QString(token.text).replace(curlyApostrophe, u'\'');
        const qsizetype apostrophe = text.lastIndexOf(u'\'');
        const qsizetype cut = text.endsWith(QStringLiteral("n't"), Qt::CaseInsensitive) ? text.size() - 3
                              : token.lower == QStringLiteral("cannot")                 ? 3
                                                                                        : apostrophe;
        if (cut > 0) {
            add(text.left(cut), at, false);
            add(text.mid(cut), at, true);
        } else {
            add(text, at, false);
        }
        ++at;
    }
    flush();
}

std::vector<Line::Edit> Line::takeEdits() {
    return std::exchange(edits_, {});
}

void Line::remove(int i) {
    const bool starts = word(i).startsSentence;
    const bool capital = word(i).text.front().isUpper();
    const int at = words_[static_cast<size_t>(i)];
    const QString removed = word(i).text;
    const auto erase = [&](int from, int to) { tokens_.erase(tokens_.begin() + from, tokens_.begin() + to); };
    if (!follows(i).isEmpty()) {
        changed(word(i - 1).text + u' ' + removed, word(i - 1).text);
        erase(at - 1, at + 1);
    } else if (i + 1 < wordCount() && !follows(i + 1).isEmpty()) {
        changed(removed + u' ' + word(i + 1).text, word(i + 1).text);
        erase(at, at + 2);
    } else {
        return;
    }
    const bool first = words_.front() == at;
    const bool before = !words_.empty() && tokens_.size() > 0 && starts && first;
    index(before);
    if (starts && i < wordCount()) {
        word(i).startsSentence = true;
        if (capital) {
            word(i).text.front() = word(i).text.front().toUpper();
        }
    }
}

} // namespace vellumline
