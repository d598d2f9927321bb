#include "VellumlineService/Correction/Confusions.h"

#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/SentenceScorer.h"

#include <QFile>
#include <optional>

namespace vellumline {

namespace {

// A line of a few words is a note, a label or a title, and tells little.
constexpr int fewWords = 4;
constexpr double marginOfFewWords = 3;

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
            const double surplus = scorer->gain(i, confusion.meant) - confusion.margin;
            if (surplus > best) {
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
