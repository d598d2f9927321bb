#include "VellumlineService/Correction/Speller.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/ModelFiles.h"

#include <QFile>
#include <QFileInfo>
#include <QtAlgorithms>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <hunspell.hxx>

// At file scope: Q_INIT_RESOURCE may not stand in a namespace.
static void loadResources() {
    Q_INIT_RESOURCE(Words);
}

namespace vellumline {

namespace {

constexpr qsizetype longestWord = 30;
// What one slip outweighs in frequency: e^6, about 400 times.
constexpr double slipWeight = 6.0;
constexpr int rememberedLimit = 20'000;

bool isVowel(char c) {
    return c != 0 && std::strchr("aeiouy", c) != nullptr;
}

bool isNeighbour(char a, char b) {
    static constexpr std::array<const char*, 3> rows = {"qwertyuiop", "asdfghjkl", "zxcvbnm"};
    int rowA = -1;
    int rowB = -1;
    int columnA = 0;
    int columnB = 0;
    for (int row = 0; row < 3; ++row) {
        if (const char* at = std::strchr(rows[static_cast<size_t>(row)], a); a != 0 && at != nullptr) {
            rowA = row;
            columnA = static_cast<int>(at - rows[static_cast<size_t>(row)]);
        }
        if (const char* at = std::strchr(rows[static_cast<size_t>(row)], b); b != 0 && at != nullptr) {
            rowB = row;
            columnB = static_cast<int>(at - rows[static_cast<size_t>(row)]);
        }
    }
    return rowA >= 0 && rowB >= 0 && std::abs(rowA - rowB) <= 1 && std::abs(columnA - columnB) <= 1;
}

quint32 letterSet(const QByteArray& word) {
    quint32 set = 0;
    for (const char c : word) {
        set |= c >= 'a' && c <= 'z' ? quint32{1} << (c - 'a') : 0U;
    }
    return set;
}

double replaceCost(char a, char b) {
    if (isVowel(a) && isVowel(b)) {
        return 0.7;
    }
    static constexpr std::array<const char*, 8> soundPairs = {"cs", "ck", "sz", "gj", "tc", "fv", "qk", "nm"};
    for (const char* pair : soundPairs) {
        if ((a == pair[0] && b == pair[1]) || (a == pair[1] && b == pair[0])) {
            return 0.8;
        }
    }
    return isNeighbour(a, b) ? 0.85 : 1.1;
}

} // namespace

Speller::Speller() {
    for (const char* name : {"en_US", "en_GB"}) {
        for (const char* folder :
             {"/usr/share/hunspell/", "/usr/share/myspell/dicts/", "/usr/local/share/hunspell/"}) {
            const QString stem = QString::fromLatin1(folder) + QString::fromLatin1(name);
            if (QFileInfo::exists(stem + QStringLiteral(".dic")) &&
                QFileInfo::exists(stem + QStringLiteral(".aff"))) {
                dictionaries_.push_back(std::make_unique<Hunspell>(
                    QString(stem + QStringLiteral(".aff")).toLocal8Bit().constData(),
                    QString(stem + QStringLiteral(".dic")).toLocal8Bit().constData()));
                break;
            }
        }
    }
    const QString modelPath = modelFile(QStringLiteral("en"));
    model_ = modelPath.isEmpty() ? nullptr : LanguageModel::open(modelPath, &problem_);
    if (modelPath.isEmpty()) {
        problem_ = QStringLiteral("there is no language model \"en.model\"");
    } else if (dictionaries_.empty()) {
        problem_ = QStringLiteral("there is no Hunspell dictionary for en_US");
    }
    loadResources();
    QFile file(QStringLiteral(":/vellumline/correction/words.tsv"));
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.readAll().split('\n');
        entries_.reserve(static_cast<size_t>(lines.size()));
        for (const QByteArray& line : lines) {
            const QList<QByteArray> columns = line.split('\t');
            if (columns.size() == 3 && !columns.at(2).isEmpty()) {
                entries_.push_back(
                    {columns.at(0), columns.at(1).toInt(), letterSet(columns.at(0)), columns.at(2).at(0)});
            }
        }
        std::sort(entries_.begin(), entries_.end(),
                  [](const Entry& a, const Entry& b) { return a.word < b.word; });
    }
}

Speller::~Speller() = default;

const Speller::Entry* Speller::entry(const QString& lower) const {
    const QByteArray word = lower.toLatin1();
    const auto found = std::lower_bound(entries_.begin(), entries_.end(), word,
                                        [](const Entry& a, const QByteArray& b) { return a.word < b; });
    return found != entries_.end() && found->word == word ? &*found : nullptr;
}

int Speller::frequency(const QString& lower) const {
    const Entry* found = entry(lower);
    return found ? found->count : 0;
}

bool Speller::isNoun(const QString& lower) const {
    const Entry* found = entry(lower);
    return found && found->wordClass == 'n';
}

bool Speller::isVerb(const QString& lower) const {
    const Entry* found = entry(lower);
    return found && found->wordClass == 'v';
}

bool Speller::inDictionary(const QString& word) const {
    const std::string bytes = word.toStdString();
    const QMutexLocker lock(&mutex_);
    return std::any_of(dictionaries_.begin(), dictionaries_.end(),
                       [&](const auto& dictionary) { return dictionary->spell(bytes); });
}

bool Speller::isKnown(const QString& word) const {
    // A word that edited text uses ten times is a word: most British spellings are known without their
    // dictionary.
    if (frequency(word) >= 10 || inDictionary(word)) {
        return true;
    }
    // -ise, -ised, -isation for -ize.
    for (qsizetype at = word.indexOf(QStringLiteral("is"), 3); at > 0;
         at = word.indexOf(QStringLiteral("is"), at + 1)) {
        if (inDictionary(QString(word).replace(at + 1, 1, u'z'))) {
            return true;
        }
    }
    // -our for -or, and a plural that the dictionary does not list.
    const QString american = QString(word).replace(QStringLiteral("our"), QStringLiteral("or"));
    if (american != word && inDictionary(american)) {
        return true;
    }
    if (word.size() > 5 && word.endsWith(QStringLiteral("ings")) && inDictionary(word.chopped(1))) {
        return true;
    }
    return isCompound(word) || (word.endsWith(u's') && isCompound(word.chopped(1)));
}

bool Speller::isCompound(const QString& lower) const {
    // Two common words written as one, or a common word with a prefix, are more often jargon than a slip.
    for (const char* text :
         {"co", "re", "un", "non", "pre", "anti", "multi", "sub", "micro", "meta", "hyper"}) {
        const QString prefix = QString::fromLatin1(text);
        if (lower.size() >= prefix.size() + 4 && lower.startsWith(prefix) &&
            frequency(lower.mid(prefix.size())) >= 300) {
            return true;
        }
    }
    for (qsizetype at = 3; at + 3 <= lower.size(); ++at) {
        if (frequency(lower.left(at)) >= 800 && frequency(lower.mid(at)) >= 800) {
            return true;
        }
    }
    return false;
}

double Speller::slipCost(const QByteArray& a, const QByteArray& b, double limit) {
    const auto rows = a.size();
    const auto columns = b.size();
    if (rows > longestWord || columns > longestWord || std::abs(rows - columns) > 2) {
        return limit + 1;
    }
    // Damerau-Levenshtein with adjacent swaps; three rows are enough.
    std::array<std::array<double, longestWord + 1>, 3> table{};
    auto row = [&](qsizetype i) -> std::array<double, longestWord + 1>& {
        return table[static_cast<size_t>(i % 3)];
    };
    const auto at = [](qsizetype i) { return static_cast<size_t>(i); };
    for (qsizetype j = 0; j <= columns; ++j) {
        row(0)[at(j)] = static_cast<double>(j);
    }
    for (qsizetype i = 1; i <= rows; ++i) {
        row(i)[0] = static_cast<double>(i);
        double best = row(i)[0];
        for (qsizetype j = 1; j <= columns; ++j) {
            const char x = a.at(i - 1);
            const char y = b.at(j - 1);
            const bool doubledTyped = i > 1 && a.at(i - 2) == x;
            const bool doubledMeant = j > 1 && b.at(j - 2) == y;
            double cost = x == y ? row(i - 1)[at(j - 1)] : row(i - 1)[at(j - 1)] + replaceCost(x, y);
            cost = std::min(cost, row(i - 1)[at(j)] + (doubledTyped ? 0.5 : 1.0));
            cost = std::min(cost, row(i)[at(j - 1)] + (doubledMeant               ? 0.5
                                                       : (isVowel(y) || y == 'h') ? 0.85
                                                                                  : 0.9));
            if (i > 1 && j > 1 && x == b.at(j - 2) && a.at(i - 2) == y && x != y) {
                cost = std::min(cost, row(i - 2)[at(j - 2)] + 0.7);
            }
            row(i)[at(j)] = cost;
            best = std::min(best, cost);
        }
        if (best > limit) {
            return limit + 1;
        }
    }
    return row(rows)[at(columns)] + (rows > 0 && columns > 0 && a.at(0) != b.at(0) ? 0.4 : 0.0);
}

QString Speller::correction(const QString& lower, bool cautious) const {
    const QByteArray typed = lower.toLatin1();
    if (typed.size() < 3 || typed.size() > longestWord) {
        return {};
    }
    const QString memory = (cautious ? QStringLiteral("?") : QString()) + lower;
    {
        const QMutexLocker lock(&mutex_);
        const auto found = remembered_.constFind(memory);
        if (found != remembered_.constEnd()) {
            return *found;
        }
    }
    const double limit = cautious ? 1.0 : typed.size() <= 4 ? 1.05 : typed.size() <= 7 ? 1.5 : 2.0;
    const quint32 letters = letterSet(typed);
    const Entry* best = nullptr;
    double bestScore = -1e9;
    for (const Entry& candidate : entries_) {
        if (candidate.count < (cautious ? 150 : 8) || std::abs(candidate.word.size() - typed.size()) > 2 ||
            candidate.word.size() < 2 || qPopulationCount(candidate.letters ^ letters) > 4) {
            continue;
        }
        const double cost = slipCost(typed, candidate.word, limit);
        if (cost > limit) {
            continue;
        }
        const double score = std::log(static_cast<double>(candidate.count)) - slipWeight * cost;
        if (score > bestScore) {
            bestScore = score;
            best = &candidate;
        }
    }
    QString answer = best ? QString::fromLatin1(best->word) : QString();
    const QMutexLocker lock(&mutex_);
    if (remembered_.size() >= rememberedLimit) {
        remembered_.clear();
    }
    remembered_.insert(memory, answer);
    return answer;
}

} // namespace vellumline
