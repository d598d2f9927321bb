// Chooses, for each pair of words that are taken for each other, how much likelier the other one must make a
// sentence before it is put there. scripts/tune-confusions.sh calls it.
#include "VellumlineService/Correction/Inflections.h"
#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/SentenceScorer.h"
#include "VellumlineService/Correction/SlipCost.h"
#include "VellumlineService/Correction/Tagger.h"

#include <QHash>
#include <QMap>
#include <array>
#include <cstdio>
#include <fstream>

using namespace vellumline;

namespace {

// What a wrong change costs, in right ones.
constexpr double costOfHarm = 2.0;
// How often one word of a hand-written set stands for another; the same for small words, which are so
// frequent that writers know them; how often a word is one slip away from the one that was meant. Estimates;
// the order of magnitude decides.
constexpr double exchangeRate = 0.05;
constexpr double seldomRate = 0.02;
constexpr double slipRate = 0.0015;

constexpr int steps = 60;
constexpr double stepsPerUnit = 4;
constexpr double leastMargin = 3.0;

struct Pair {
    double rate = 0;
    // Gains of exchanging the written word, where the written one was right and where it was not.
    std::array<int, steps> harm{};
    std::array<int, steps> help{};
};

using Pairs = QHash<QString, QMap<QString, Pair>>;

void count(std::array<int, steps>* gains, double gain) {
    if (gain > 0) {
        ++(*gains)[static_cast<size_t>(std::min(steps - 1.0, gain * stepsPerUnit))];
    }
}

void add(Pairs* pairs, const QString& a, const QString& b, double rate) {
    Pair& pair = (*pairs)[a][b];
    pair.rate = std::max(pair.rate, rate);
}

/// All pairs of frequent words that one slip exchanges.
void addSlips(Pairs* pairs, const LanguageModel& model, int leastFrequency) {
    QHash<QByteArray, QList<QByteArray>> byDeletion;
    for (int i = 0; i < model.wordCount(); ++i) {
        const QByteArray word = model.text(i).toByteArray();
        const bool usual = (model.flags(i) & (LanguageModel::usualWord | LanguageModel::capitalWord)) ==
                           LanguageModel::usualWord;
        if (!usual || model.frequency(i) < leastFrequency || word.size() < 2) {
            continue;
        }
        byDeletion[word].append(word);
        for (qsizetype at = 0; at < word.size(); ++at) {
            const QByteArray shorter = QByteArray(word).remove(at, 1);
            if (!byDeletion[shorter].contains(word)) {
                byDeletion[shorter].append(word);
            }
        }
    }
    for (const QList<QByteArray>& near : std::as_const(byDeletion)) {
        for (const QByteArray& typed : near) {
            for (const QByteArray& meant : near) {
                const double cost = typed == meant ? 9 : slipCost(typed, meant, 1.2);
                // A short word is near to too many others, and an ending is grammar.
                const bool ending = typed.startsWith(meant.left(std::max<qsizetype>(3, meant.size() - 2))) ||
                                    meant.startsWith(typed.left(std::max<qsizetype>(3, typed.size() - 2)));
                if (cost <= 1.2 && !ending) {
                    add(pairs, QString::fromUtf8(typed), QString::fromUtf8(meant),
                        slipRate * std::exp(2 * (0.8 - cost)));
                }
            }
        }
    }
}

} // namespace

int main(int count_, char** arguments) {
    if (count_ < 4) {
        std::fputs("Usage: vellumline-tune-confusions MODEL SETS TEXT...\n"
                   "MODEL may not be trained on TEXT. SETS: a set of words a line. The table goes to "
                   "standard output.\n",
                   stderr);
        return 64;
    }
    QString error;
    const auto model = LanguageModel::open(QString::fromLocal8Bit(arguments[1]), &error);
    if (!model) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    const Inflections inflections;
    const Tagger tagger(inflections);
    Pairs pairs;
    addSlips(&pairs, *model, 600);
    QList<std::pair<QString, QString>> never;
    QList<std::pair<QString, QString>> seldom;
    std::ifstream sets(arguments[2]);
    for (std::string text; std::getline(sets, text);) {
        if (text.starts_with('#')) {
            continue;
        }
        QStringList words = QString::fromStdString(text).split(u' ', Qt::SkipEmptyParts);
        const QString first = words.value(0);
        const bool refused = first == QStringLiteral("never") && words.size() > 1;
        const bool rare = first == QStringLiteral("seldom");
        if (refused || rare) {
            words.removeFirst();
        }
        for (const QString& a : words) {
            for (const QString& b : words) {
                if (a != b && refused) {
                    never.append({a, b});
                } else if (a != b && rare) {
                    seldom.append({a, b});
                } else if (a != b) {
                    add(&pairs, a, b, exchangeRate);
                }
            }
        }
    }
    for (const auto& [a, b] : std::as_const(seldom)) {
        if (const auto pair = pairs[a].find(b); pair != pairs[a].end()) {
            pair->rate = std::min(pair->rate, seldomRate);
        }
    }
    for (const auto& [a, b] : std::as_const(never)) {
        pairs[a].remove(b);
    }
    for (int file = 3; file < count_; ++file) {
        std::ifstream text(arguments[file]);
        for (std::string sentence; std::getline(text, sentence);) {
            const Line line(QString::fromStdString(sentence), true, tagger);
            const SentenceScorer scorer(*model, line);
            for (int i = 0; i < line.wordCount(); ++i) {
                const Token& token = line.word(i);
                const auto found = pairs.find(token.lower);
                if (found == pairs.end() || token.hyphenated || token.quotedAlone ||
                    (token.text.front().isUpper() && !token.startsSentence)) {
                    continue;
                }
                for (auto other = found->begin(); other != found->end(); ++other) {
                    const double gain = scorer.gain(i, other.key());
                    count(&other->harm, gain);
                    // Had the other word stood here wrongly, this one would gain as much as it loses now.
                    const auto mirrored = pairs.find(other.key());
                    if (mirrored != pairs.end() && mirrored->contains(token.lower)) {
                        count(&(*mirrored)[token.lower].help, -gain);
                    }
                }
            }
        }
    }
    QMap<QString, QString> lines;
    for (auto word = pairs.begin(); word != pairs.end(); ++word) {
        for (auto other = word->begin(); other != word->end(); ++other) {
            const Pair& pair = other.value();
            // Where a calibrated model would change; little data pulls towards it.
            const double expected = std::log(costOfHarm / pair.rate);
            double harm = 0;
            double help = 0;
            double best = 0;
            double margin = 0;
            double helped = 0;
            for (int step = steps - 1; step >= leastMargin * stepsPerUnit; --step) {
                harm += pair.harm[static_cast<size_t>(step)];
                help += pair.help[static_cast<size_t>(step)];
                const double at = step / stepsPerUnit;
                const double smoothed = harm + std::min(1.0, 0.5 * std::exp(expected - at));
                const double worth = help * pair.rate - costOfHarm * smoothed;
                if (worth > best) {
                    best = worth;
                    margin = at;
                    helped = help;
                }
            }
            if (helped > 0) {
                lines.insert(word.key() + u'\t' + other.key(),
                             QStringLiteral("%1\t%2\t%3").arg(word.key(), other.key()).arg(margin));
            }
        }
    }
    for (const QString& line : std::as_const(lines)) {
        std::printf("%s\n", qPrintable(line));
    }
    return 0;
}
