#pragma once

#include <QtGlobal>
#include <algorithm>
#include <array>
#include <cmath>

/// What the reader and the builder of a model file must agree on. Numbers are little-endian. A file is
///
///   Header, text offsets (words + 1, 4 bytes each), n-gram word numbers (2 each), frequencies (1), flags
///   (1), word text, one probability and back-off weight per n-gram word (2 + 2), table of pairs, of triples,
///   of fours.
///
/// Words stand sorted by their UTF-8 bytes. A table of n-grams is a binary fuse filter whose cells hold
/// values: the xor of the three cells of a key gives its fingerprint and its value, so that no key is stored
/// and an n-gram costs about 1.13 cells. An n-gram that is not there is taken for one that is once in
/// 2^fingerprint bits.
namespace vellumline::modelformat {

constexpr char magic[8] = {'V', 'L', 'M', 'O', 'D', 'E', 'L', '1'};
/// Number of the n-gram words that are no words of the text.
constexpr quint16 unknownWord = 0;
constexpr quint16 sentenceStart = 1;
constexpr quint16 numberWord = 2;
constexpr quint16 nameWord = 3;
constexpr quint16 firstWord = 4;

constexpr int longestGram = 4;
/// Bytes of a cell by the length of the n-gram. Fours are never a context and have no back-off weight.
constexpr std::array<int, 5> cellBytes = {0, 0, 3, 3, 2};
constexpr int probabilityBits = 7;
constexpr int backoffBits = 6;

struct Table {
    quint64 offset = 0;
    quint64 seed = 0;
    quint32 segmentLength = 0; ///< A power of two.
    quint32 segments = 0;      ///< At least 3.
};

struct Header {
    char magic[8] = {};
    quint64 size = 0;     ///< Of the whole file.
    quint64 checksum = 0; ///< Of all bytes after the header.
    quint32 words = 0;
    quint32 gramWords = 0;
    quint64 textBytes = 0;
    Table tables[longestGram - 1];
};

constexpr quint64 mix(quint64 x) {
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdULL;
    x ^= x >> 33;
    x *= 0xc4ceb9fe1a85ec53ULL;
    return x ^ (x >> 33);
}

inline std::array<quint64, 3> cells(quint64 hash, const Table& table) {
    const quint64 mask = table.segmentLength - 1;
    const quint64 segment = ((hash >> 32) * (table.segments - 2)) >> 32;
    const quint64 base = segment * table.segmentLength;
    return {base + (hash & mask), base + table.segmentLength + ((hash >> 18) & mask),
            base + 2ULL * table.segmentLength + (mix(hash) & mask)};
}

inline quint64 tableCells(const Table& table) {
    return quint64{table.segmentLength} * table.segments;
}

/// The low bits of a cell are the value, the others the fingerprint.
inline quint32 fingerprint(quint64 hash, int bits) {
    return static_cast<quint32>((hash * 0x9e3779b97f4a7c15ULL) >> (64 - bits));
}

/// Natural logarithms of probabilities, 1/8 apart, down to e^-15.9.
inline quint32 packProbability(double logarithm) {
    return static_cast<quint32>(std::clamp(std::lround(-logarithm * 8), 0L, (1L << probabilityBits) - 1));
}
inline float unpackProbability(quint32 packed) {
    return -static_cast<float>(packed) / 8.0F;
}
/// Natural logarithms of back-off weights, 1/10 apart, down to e^-6.3.
inline quint32 packBackoff(double logarithm) {
    return static_cast<quint32>(std::clamp(std::lround(-logarithm * 10), 0L, (1L << backoffBits) - 1));
}
inline float unpackBackoff(quint32 packed) {
    return -static_cast<float>(packed) / 10.0F;
}
/// Counts of words, in steps of 8 %.
inline quint8 packCount(double count) {
    return static_cast<quint8>(std::clamp(std::lround(12 * std::log1p(count)), 0L, 255L));
}
inline int unpackCount(quint8 packed) {
    return static_cast<int>(std::lround(std::expm1(packed / 12.0)));
}

/// Eight bytes at a time: a file of 20 MB must be checked while the program starts.
inline quint64 checksum(const uchar* bytes, quint64 size) {
    quint64 sum = size;
    quint64 at = 0;
    for (; at + 8 <= size; at += 8) {
        quint64 word = 0;
        std::copy_n(bytes + at, 8, reinterpret_cast<uchar*>(&word));
        sum = (sum ^ word) * 0x9e3779b97f4a7c15ULL;
        sum ^= sum >> 29;
    }
    for (; at < size; ++at) {
        sum = (sum ^ bytes[at]) * 0x9e3779b97f4a7c15ULL;
    }
    return mix(sum);
}

} // namespace vellumline::modelformat
