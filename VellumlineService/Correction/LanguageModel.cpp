#include "VellumlineService/Correction/LanguageModel.h"

#include <QtEndian>
#include <algorithm>
#include <cstring>

namespace vellumline {

namespace {

using namespace modelformat;

// More than any language needs; keeps the sums of sizes far from overflow.
constexpr quint32 mostWords = 4'000'000;
constexpr quint64 mostCells = quint64{1} << 32;

quint32 number(const uchar* at) {
    return qFromLittleEndian<quint32>(at);
}

} // namespace

std::unique_ptr<LanguageModel> LanguageModel::open(const QString& path, QString* error) {
    std::unique_ptr<LanguageModel> model(new LanguageModel);
    if (!model->map(path, error)) {
        return nullptr;
    }
    return model;
}

bool LanguageModel::map(const QString& path, QString* error) {
    const auto refuse = [&](const QString& reason) {
        if (error) {
            *error = QStringLiteral("%1: %2").arg(path, reason);
        }
        return false;
    };
    file_.setFileName(path);
    if (!file_.open(QIODevice::ReadOnly)) {
        return refuse(file_.errorString());
    }
    const auto size = static_cast<quint64>(file_.size());
    if (size < sizeof(Header)) {
        return refuse(QStringLiteral("is too short for a language model"));
    }
    const uchar* bytes = file_.map(0, file_.size());
    if (!bytes) {
        return refuse(file_.errorString());
    }
    std::memcpy(&header_, bytes, sizeof(Header));
    if (std::memcmp(header_.magic, magic, sizeof magic) != 0) {
        return refuse(QStringLiteral("is no language model of this version"));
    }
    if (header_.size != size) {
        return refuse(QStringLiteral("has %1 bytes and should have %2").arg(size).arg(header_.size));
    }
    // Before any offset of the file is used: with the right sum the builder wrote them.
    if (checksum(bytes + sizeof(Header), size - sizeof(Header)) != header_.checksum) {
        return refuse(QStringLiteral("is damaged (its checksum is wrong)"));
    }
    if (header_.words > mostWords || header_.gramWords < firstWord || header_.gramWords > 65'536 ||
        header_.textBytes > size) {
        return refuse(QStringLiteral("is damaged (impossible number of words)"));
    }
    quint64 at = sizeof(Header);
    const auto section = [&](quint64 length) {
        const uchar* begin = bytes + at;
        at += length;
        return begin;
    };
    offsets_ = section((quint64{header_.words} + 1) * 4);
    gramWords_ = section(quint64{header_.words} * 2);
    frequencies_ = section(header_.words);
    flags_ = section(header_.words);
    text_ = section(header_.textBytes);
    single_ = section(quint64{header_.gramWords} * 4);
    if (at > size || number(offsets_) != 0 ||
        number(offsets_ + quint64{header_.words} * 4) != header_.textBytes) {
        return refuse(QStringLiteral("is damaged (its word list does not fit)"));
    }
    for (quint32 i = 0; i < header_.words; ++i) {
        if (number(offsets_ + quint64{i} * 4) > number(offsets_ + quint64{i} * 4 + 4) ||
            qFromLittleEndian<quint16>(gramWords_ + quint64{i} * 2) >= header_.gramWords) {
            return refuse(QStringLiteral("is damaged (its word list is not in order)"));
        }
    }
    for (int length = 2; length <= longestGram; ++length) {
        const Table& table = header_.tables[length - 2];
        const quint64 count = tableCells(table);
        if (table.segments < 3 || table.segmentLength == 0 ||
            (table.segmentLength & (table.segmentLength - 1)) != 0 || count > mostCells ||
            table.offset > size ||
            count * static_cast<quint64>(cellBytes[static_cast<size_t>(length)]) > size - table.offset) {
            return refuse(QStringLiteral("is damaged (a table does not fit)"));
        }
        tables_[length] = bytes + table.offset;
    }
    return true;
}

QByteArrayView LanguageModel::text(int index) const {
    const uchar* offset = offsets_ + quint64{static_cast<quint32>(index)} * 4;
    return {reinterpret_cast<const char*>(text_) + number(offset),
            static_cast<qsizetype>(number(offset + 4) - number(offset))};
}

int LanguageModel::find(QByteArrayView lower) const {
    int begin = 0;
    int end = wordCount();
    while (begin < end) {
        const int middle = begin + (end - begin) / 2;
        if (text(middle).compare(lower) < 0) {
            begin = middle + 1;
        } else {
            end = middle;
        }
    }
    return begin < wordCount() && text(begin) == lower ? begin : -1;
}

LanguageModel::Word LanguageModel::gramWord(int index) const {
    return qFromLittleEndian<quint16>(gramWords_ + quint64{static_cast<quint32>(index)} * 2);
}

LanguageModel::Word LanguageModel::gramWord(QByteArrayView lower) const {
    const int index = find(lower);
    return index < 0 ? unknownWord : gramWord(index);
}

bool LanguageModel::lookUp(int length, quint64 key, Gram* gram) const {
    const Table& table = header_.tables[length - 2];
    const int bytes = cellBytes[static_cast<size_t>(length)];
    const quint64 hash = mix(key ^ table.seed);
    quint32 cell = 0;
    for (const quint64 at : cells(hash, table)) {
        // Byte by byte: a copy of a length that is not known here is a call, a tenth of all time.
        const uchar* from = tables_[length] + at * static_cast<quint64>(bytes);
        for (int byte = 0; byte < bytes; ++byte) {
            cell ^= quint32{from[byte]} << (8 * byte);
        }
    }
    const int valueBits = probabilityBits + (length < longestGram ? backoffBits : 0);
    if (cell >> valueBits != fingerprint(hash, bytes * 8 - valueBits)) {
        return false;
    }
    gram->probability = unpackProbability(cell & ((1U << probabilityBits) - 1));
    gram->backoff =
        length < longestGram ? unpackBackoff((cell >> probabilityBits) & ((1U << backoffBits) - 1)) : 0.0F;
    return true;
}

double LanguageModel::logProbability(std::span<const Word> context, Word word) const {
    const auto single = [&](Word of, int part) {
        return qFromLittleEndian<quint16>(single_ + quint64{of} * 4 + static_cast<quint64>(part) * 2) /
               -1000.0;
    };
    double answer = single(word, 0);
    bool found = true;
    quint64 key = word;
    quint64 contextKey = 0;
    const int longest = std::min<int>(longestGram, static_cast<int>(context.size()) + 1);
    for (int length = 2; length <= longest; ++length) {
        const Word added = context[context.size() - static_cast<size_t>(length - 1)];
        key |= quint64{added} << (16 * (length - 1));
        contextKey |= quint64{added} << (16 * (length - 2));
        Gram gram{};
        // A longer n-gram is only there when its end is.
        found = found && lookUp(length, key, &gram);
        if (found) {
            answer = gram.probability;
        } else if (length == 2) {
            answer += single(added, 1);
        } else if (lookUp(length - 1, contextKey, &gram)) {
            answer += gram.backoff;
        }
    }
    return answer;
}

} // namespace vellumline
