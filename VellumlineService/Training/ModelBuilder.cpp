#include "VellumlineService/Training/ModelBuilder.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/ModelText.h"

#include <QSaveFile>
#include <algorithm>
#include <numeric>

namespace vellumline {

namespace {

using namespace modelformat;

constexpr quint32 specialTokens = 0xffff0000U;

/// One n-gram: its words in a key, 16 bits each, the last one lowest.
struct Gram {
    quint64 key = 0;
    double count = 0; ///< Weighted; in orders below the longest: in how many contexts it stands.
    int seen = 0;
    double logProbability = 0;
    double logBackoff = 0;
};

/// Sorts and adds up. `items` are keys with a weight of each.
std::vector<Gram> counted(std::vector<std::pair<quint64, quint8>>& items) {
    std::sort(items.begin(), items.end());
    std::vector<Gram> grams;
    for (size_t i = 0; i < items.size();) {
        Gram gram{items[i].first};
        for (; i < items.size() && items[i].first == gram.key; ++i) {
            gram.count += items[i].second;
            ++gram.seen;
        }
        grams.push_back(gram);
    }
    return grams;
}

quint64 lowWords(quint64 key, int length) {
    return length >= 4 ? key : key & ((quint64{1} << (16 * length)) - 1);
}

/// A binary fuse filter that gives each key its value.
bool fillTable(const std::vector<std::pair<quint64, quint32>>& entries, int bytes, int valueBits,
               Table* table, QByteArray* out) {
    const double count = static_cast<double>(std::max<size_t>(entries.size(), 2));
    table->segmentLength =
        1U << static_cast<int>(std::clamp(std::floor(std::log(count) / std::log(3.33) + 2.25), 2.0, 18.0));
    const double factor = std::max(1.125, 0.875 + 0.25 * std::log(1e6) / std::log(count));
    table->segments =
        std::max(3U, static_cast<quint32>(std::ceil(count * factor / table->segmentLength)) + 2);
    const quint64 size = tableCells(*table);
    for (table->seed = 1; table->seed < 100; ++table->seed) {
        std::vector<quint64> hashes(size, 0); // The xor of the entries' numbers at a cell.
        std::vector<quint32> degrees(size, 0);
        const auto hashOf = [&](size_t entry) { return mix(entries[entry].first ^ table->seed); };
        for (size_t i = 0; i < entries.size(); ++i) {
            for (const quint64 cell : cells(hashOf(i), *table)) {
                hashes[cell] ^= i;
                ++degrees[cell];
            }
        }
        std::vector<quint64> lonely;
        for (quint64 cell = 0; cell < size; ++cell) {
            if (degrees[cell] == 1) {
                lonely.push_back(cell);
            }
        }
        std::vector<std::pair<size_t, quint64>> order;
        order.reserve(entries.size());
        while (!lonely.empty()) {
            const quint64 cell = lonely.back();
            lonely.pop_back();
            if (degrees[cell] != 1) {
                continue;
            }
            const auto entry = static_cast<size_t>(hashes[cell]);
            order.emplace_back(entry, cell);
            for (const quint64 other : cells(hashOf(entry), *table)) {
                hashes[other] ^= entry;
                if (--degrees[other] == 1) {
                    lonely.push_back(other);
                }
            }
        }
        if (order.size() != entries.size()) {
            continue;
        }
        std::vector<quint32> values(size, 0);
        for (auto item = order.rbegin(); item != order.rend(); ++item) {
            const quint64 hash = hashOf(item->first);
            quint32 value =
                entries[item->first].second | (fingerprint(hash, bytes * 8 - valueBits) << valueBits);
            for (const quint64 other : cells(hash, *table)) {
                if (other != item->second) {
                    value ^= values[other];
                }
            }
            values[item->second] = value;
        }
        for (const quint32 value : values) {
            for (int byte = 0; byte < bytes; ++byte) {
                out->append(static_cast<char>((value >> (8 * byte)) & 0xff));
            }
        }
        return true;
    }
    return false;
}

void appendNumber(QByteArray* out, quint64 value, int bytes) {
    for (int byte = 0; byte < bytes; ++byte) {
        out->append(static_cast<char>((value >> (8 * byte)) & 0xff));
    }
}

} // namespace

quint32 ModelBuilder::typeOf(const QByteArray& text) {
    const auto found = numbers_.constFind(text);
    if (found != numbers_.constEnd()) {
        return *found;
    }
    const auto number = static_cast<quint32>(texts_.size());
    numbers_.insert(text, number);
    texts_.push_back(text);
    types_.emplace_back();
    return number;
}

void ModelBuilder::addLine(const QString& text, int weight) {
    const Line line(text, true, tagger_);
    for (const ModelToken& token : modelTokens(line)) {
        quint32 number = 0;
        switch (token.kind) {
        case ModelToken::Kind::sentenceStart:
            number = specialTokens + sentenceStart;
            break;
        case ModelToken::Kind::number:
            number = specialTokens + numberWord;
            break;
        case ModelToken::Kind::kept:
            number = specialTokens + nameWord;
            break;
        case ModelToken::Kind::word:
        case ModelToken::Kind::capitalWord: {
            const bool capital = token.kind == ModelToken::Kind::capitalWord;
            const quint32 type = typeOf(token.text);
            const bool starts = token.word >= 0 && line.word(token.word).startsSentence;
            // A capital at the start of a sentence says nothing about the word.
            types_[type].small += capital || starts ? 0 : weight;
            types_[type].capital += capital ? weight : 0;
            ++types_[type].seen;
            number = type * 2 + (capital ? 1 : 0);
            break;
        }
        }
        tokens_.push_back(number);
        weights_.push_back(static_cast<quint8>(weight));
    }
}

void ModelBuilder::addListedWord(const QString& word, quint8 flags) {
    const QString lower = word.toLower();
    Type& type = types_[typeOf(lower.toUtf8())];
    type.flags |= flags;
    (word == lower ? type.listedSmall : type.listedCapital) = true;
}

bool ModelBuilder::write(const QString& path, const Cutoffs& cutoffs, QString* report) {
    // Words: the listed ones and those of the texts that are frequent enough; in the order of their bytes.
    const auto typeCount = static_cast<quint32>(texts_.size());
    std::vector<quint32> byCount;
    for (quint32 type = 0; type < typeCount; ++type) {
        if (types_[type].seen >= cutoffs.word) {
            byCount.push_back(type);
        }
    }
    std::sort(byCount.begin(), byCount.end(), [&](quint32 a, quint32 b) {
        const double first = types_[a].small + types_[a].capital + types_[a].seen;
        const double second = types_[b].small + types_[b].capital + types_[b].seen;
        return first != second ? first > second : texts_[a] < texts_[b];
    });
    byCount.resize(std::min<size_t>(byCount.size(), 65'536 - firstWord));
    std::vector<quint16> gramWordOf(typeCount, unknownWord);
    for (size_t i = 0; i < byCount.size(); ++i) {
        gramWordOf[byCount[i]] = static_cast<quint16>(i + firstWord);
    }
    const auto gramWords = static_cast<quint32>(byCount.size() + firstWord);
    std::vector<quint32> words;
    for (quint32 type = 0; type < typeCount; ++type) {
        if (types_[type].flags != 0 || gramWordOf[type] != unknownWord) {
            words.push_back(type);
        }
    }
    std::sort(words.begin(), words.end(), [&](quint32 a, quint32 b) { return texts_[a] < texts_[b]; });

    // The text as n-gram words. A sentence's start ends what can be a context.
    std::vector<quint16> stream;
    stream.reserve(tokens_.size());
    for (const quint32 token : tokens_) {
        if (token >= specialTokens) {
            stream.push_back(static_cast<quint16>(token - specialTokens));
        } else {
            const quint16 word = gramWordOf[token / 2];
            stream.push_back(word == unknownWord && token % 2 == 1 ? nameWord : word);
        }
    }
    std::array<std::vector<Gram>, longestGram + 1> grams;
    for (int length = longestGram; length >= 1; --length) {
        std::vector<std::pair<quint64, quint8>> items;
        items.reserve(stream.size());
        quint64 key = 0;
        int since = 0;
        for (size_t i = 0; i < stream.size(); ++i) {
            since = stream[i] == sentenceStart ? 1 : since + 1;
            key = lowWords(key << 16 | stream[i], length);
            if (since >= length && (length == 1 || stream[i] != sentenceStart)) {
                items.emplace_back(key, weights_[i]);
            }
        }
        grams[static_cast<size_t>(length)] = counted(items);
    }
    // Below the longest order an n-gram counts once for every word that it stands after (Kneser and Ney);
    // n-grams that begin a sentence have no word before them and keep their count.
    for (int length = 1; length < longestGram; ++length) {
        std::vector<std::pair<quint64, quint8>> items;
        for (const Gram& gram : grams[static_cast<size_t>(length) + 1]) {
            items.emplace_back(lowWords(gram.key, length), 1);
        }
        const std::vector<Gram> contexts = counted(items);
        auto context = contexts.begin();
        for (Gram& gram : grams[static_cast<size_t>(length)]) {
            while (context != contexts.end() && context->key < gram.key) {
                ++context;
            }
            const bool begins = (gram.key >> (16 * (length - 1))) == sentenceStart;
            if (!begins && context != contexts.end() && context->key == gram.key) {
                gram.count = context->count;
            }
        }
    }
    const std::array<int, longestGram + 1> cutoff = {0, 1, cutoffs.pair, cutoffs.triple, cutoffs.four};
    std::vector<double> single(gramWords, 0);
    std::vector<double> singleBackoff(gramWords, 0);
    double total = 0;
    for (const Gram& gram : grams[1]) {
        total += gram.key == sentenceStart ? 0 : gram.count;
    }
    for (quint32 word = 0; word < gramWords; ++word) {
        single[word] = std::log(0.5 / total);
    }
    for (const Gram& gram : grams[1]) {
        if (gram.key != sentenceStart) {
            single[gram.key] = std::log(gram.count / total);
        }
    }
    // Probabilities of an order, from those of the order below; grams of one context stand together.
    for (size_t length = 2; length <= longestGram; ++length) {
        std::vector<Gram>& here = grams[length];
        std::vector<Gram>& below = grams[length - 1];
        double ones = 0;
        double twos = 0;
        for (const Gram& gram : here) {
            ones += gram.seen == 1 ? 1 : 0;
            twos += gram.seen == 2 ? 1 : 0;
        }
        const double discount = std::clamp(ones / std::max(1.0, ones + 2 * twos), 0.1, 0.95);
        size_t contextAt = 0;
        for (size_t begin = 0; begin < here.size();) {
            const quint64 context = here[begin].key >> 16;
            size_t end = begin;
            double sum = 0;
            for (; end < here.size() && here[end].key >> 16 == context; ++end) {
                sum += here[end].count;
            }
            double kept = 0;
            for (size_t i = begin; i < end; ++i) {
                Gram& gram = here[i];
                if (gram.seen >= cutoff[length]) {
                    gram.logProbability = gram.count * (1 - discount / gram.seen) / sum;
                    kept += gram.logProbability;
                }
            }
            const double rest = std::max(1 - kept, 1e-3);
            for (size_t i = begin; i < end; ++i) {
                Gram& gram = here[i];
                if (gram.seen >= cutoff[length]) {
                    const quint64 shorter = lowWords(gram.key, static_cast<int>(length) - 1);
                    double lower = 0;
                    if (length == 2) {
                        lower = single[shorter];
                    } else {
                        const auto found =
                            std::lower_bound(below.begin(), below.end(), shorter,
                                             [](const Gram& a, quint64 b) { return a.key < b; });
                        lower = found->logProbability;
                    }
                    gram.logProbability = std::log(gram.logProbability + rest * std::exp(lower));
                }
            }
            if (length == 2) {
                singleBackoff[context] = std::log(rest);
            } else {
                while (below[contextAt].key < context) {
                    ++contextAt;
                }
                below[contextAt].logBackoff = std::log(rest);
            }
            begin = end;
        }
    }

    QByteArray body;
    quint64 at = 0;
    for (const quint32 word : words) {
        appendNumber(&body, at, 4);
        at += static_cast<quint64>(texts_[word].size());
    }
    appendNumber(&body, at, 4);
    for (const quint32 word : words) {
        appendNumber(&body, gramWordOf[word], 2);
    }
    for (const quint32 word : words) {
        const Type& type = types_[word];
        body.append(static_cast<char>(packCount(type.small + type.capital)));
    }
    for (const quint32 word : words) {
        const Type& type = types_[word];
        quint8 flags = type.flags;
        // "march" and "March" are both listed: no name. Of an unlisted word the texts decide.
        if (!type.listedSmall && (type.listedCapital || type.capital > 4 * type.small)) {
            flags |= LanguageModel::capitalWord;
        }
        body.append(static_cast<char>(flags));
    }
    for (const quint32 word : words) {
        body.append(texts_[word]);
    }
    for (quint32 word = 0; word < gramWords; ++word) {
        appendNumber(&body, static_cast<quint64>(std::clamp(std::lround(-single[word] * 1000), 0L, 65'535L)),
                     2);
        appendNumber(&body,
                     static_cast<quint64>(std::clamp(std::lround(-singleBackoff[word] * 1000), 0L, 65'535L)),
                     2);
    }
    Header header;
    std::copy_n(magic, sizeof magic, header.magic);
    header.words = static_cast<quint32>(words.size());
    header.gramWords = gramWords;
    header.textBytes = at;
    *report = QStringLiteral("%1 words, %2 in n-grams").arg(header.words).arg(gramWords);
    for (int length = 2; length <= longestGram; ++length) {
        const auto index = static_cast<size_t>(length);
        std::vector<std::pair<quint64, quint32>> entries;
        for (const Gram& gram : grams[index]) {
            if (gram.seen >= cutoff[index]) {
                quint32 value = packProbability(gram.logProbability);
                if (length < longestGram) {
                    value |= packBackoff(gram.logBackoff) << probabilityBits;
                }
                entries.emplace_back(gram.key, value);
            }
        }
        Table& table = header.tables[length - 2];
        table.offset = sizeof(Header) + static_cast<quint64>(body.size());
        const int valueBits = probabilityBits + (length < longestGram ? backoffBits : 0);
        if (!fillTable(entries, cellBytes[index], valueBits, &table, &body)) {
            *report = QStringLiteral("no arrangement of the n-grams of length %1 was found").arg(length);
            return false;
        }
        *report += QStringLiteral(", %1 of length %2").arg(entries.size()).arg(length);
    }
    header.size = sizeof(Header) + static_cast<quint64>(body.size());
    header.checksum =
        checksum(reinterpret_cast<const uchar*>(body.constData()), static_cast<quint64>(body.size()));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(reinterpret_cast<const char*>(&header), sizeof header) != sizeof header ||
        file.write(body) != body.size() || !file.commit()) {
        *report = file.errorString();
        return false;
    }
    *report += QStringLiteral(", %1 bytes").arg(header.size);
    return true;
}

} // namespace vellumline
