#include "VellumlineService/Correction/LanguageGuess.h"

#include <QFile>
#include <QSet>
#include <algorithm>

// At file scope: Q_INIT_RESOURCE may not stand in a namespace.
static void loadResources() {
    Q_INIT_RESOURCE(Words);
}

namespace vellumline {

namespace {

// "man" and "war" are English words, too.
constexpr double weightOfEnglishWord = 0.5;
// How much more must speak for another language than for English. A misspelt English text still has most of
// its small words.
constexpr double lead = 1.5;
constexpr double leastOfText = 1;
constexpr double leastOfLine = 2;
constexpr int fewWords = 4;
constexpr int shortQuote = 6;

bool beginsSentence(QStringView text, qsizetype at) {
    while (at > 0 && (text.at(at - 1) == u' ' || QStringView(u"\"'([*_").contains(text.at(at - 1)) ||
                      QStringView(u"\u201c\u201e\u00ab\u2018").contains(text.at(at - 1)))) {
        --at;
    }
    return at == 0 || QStringView(u".!?:\n\r").contains(text.at(at - 1));
}

} // namespace

LanguageGuess::LanguageGuess(std::function<bool(const QString&)> isEnglish)
    : isEnglish_(std::move(isEnglish)) {
    loadResources();
    QFile file(QStringLiteral(":/vellumline/correction/languages.tsv"));
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        const auto language = static_cast<int>(codes_.size());
        codes_.append(line.section(u'\t', 0, 0));
        const QStringList words = line.section(u'\t', 1).split(u' ', Qt::SkipEmptyParts);
        for (const QString& word : words) {
            std::vector<int>& languages = words_[word].languages;
            if (languages.empty() || languages.back() != language) {
                languages.push_back(language);
            }
        }
    }
    for (auto word = words_.begin(); word != words_.end(); ++word) {
        const bool english = word->languages.front() != 0 && isEnglish_(word.key());
        word->weight = (english ? weightOfEnglishWord : 1.0) / static_cast<double>(word->languages.size());
    }
}

LanguageGuess::Guess LanguageGuess::guess(QStringView text) const {
    Guess made;
    std::vector<double> scores(static_cast<size_t>(codes_.size()), 0);
    QSet<QString> counted; // A word that is repeated tells no more.
    int latin = 0;
    int otherScript = 0;
    qsizetype at = 0;
    while (at < text.size()) {
        const qsizetype begin = at;
        while (at < text.size() && (text.at(at).isLetter() || text.at(at).isMark() || text.at(at) == u'\'' ||
                                    text.at(at) == QChar(0x2019))) {
            const QChar::Script script = text.at(at).script();
            latin += script == QChar::Script_Latin ? 1 : 0;
            otherScript += text.at(at).isLetter() && script != QChar::Script_Latin ? 1 : 0;
            ++at;
        }
        if (at == begin) {
            ++at;
            continue;
        }
        if (text.at(begin).isUpper() && !beginsSentence(text, begin)) {
            continue;
        }
        QString word = text.mid(begin, at - begin).toString().toLower().replace(QChar(0x2019), u'\'');
        while (word.endsWith(u'\'')) {
            word.chop(1);
        }
        while (word.startsWith(u'\'')) {
            word.remove(0, 1);
        }
        if (word.isEmpty()) {
            continue;
        }
        ++made.words;
        const auto found = words_.constFind(word);
        if (found != words_.cend() && !counted.contains(word)) {
            counted.insert(word);
            for (const int language : found->languages) {
                scores[static_cast<size_t>(language)] += found->weight;
            }
        }
        const qsizetype apostrophe = word.indexOf(u'\'');
        made.unknown += isEnglish_(apostrophe > 0 ? word.left(apostrophe) : word) ? 0 : 1;
    }
    made.foreignScript = otherScript > latin;
    if (!scores.empty()) {
        made.english = scores.front();
        const auto best = std::max_element(scores.begin() + 1, scores.end());
        made.score = *best;
        made.other = codes_.at(best - scores.begin());
    }
    return made;
}

bool LanguageGuess::isOther(const Guess& guess, double least) {
    return guess.score >= least && guess.score > lead * guess.english;
}

QString LanguageGuess::of(QStringView text) const {
    const Guess made = guess(text);
    if (made.foreignScript) {
        return {};
    }
    if (isOther(made, leastOfText)) {
        return made.other;
    }
    const bool strange =
        made.words >= fewWords && made.english < weightOfEnglishWord && made.unknown * 2 > made.words;
    return strange ? QString() : QStringLiteral("en");
}

bool LanguageGuess::isForeign(QStringView words, const QString& language) const {
    const Guess made = guess(words);
    if (made.foreignScript) {
        return true;
    }
    if (language != QStringLiteral("en")) {
        return made.english > lead * made.score && made.english >= leastOfText;
    }
    return isOther(made, made.words <= shortQuote ? leastOfText : leastOfLine);
}

} // namespace vellumline
