#include "VellumlineService/Correction/Inflections.h"

#include "VellumlineService/Correction/EmbeddedData.h"

#include <algorithm>
#include <cctype>

namespace vellumline {

namespace {

quint32 hashOf(std::string_view lemma, char form) {
    quint32 value = 2166136261U;
    for (const char c : lemma) {
        value = (value ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return (value ^ static_cast<unsigned char>(form)) * 16777619U;
}

char lowered(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

/// Calls `use(lemma, codes)` for each reading until it returns true.
template<typename Use> bool anyReading(std::string_view readings, Use use) {
    while (!readings.empty()) {
        const size_t comma = std::min(readings.find(','), readings.size());
        const std::string_view reading = readings.substr(0, comma);
        const size_t colon = reading.find(':');
        if (use(reading.substr(0, colon), reading.substr(colon + 1))) {
            return true;
        }
        readings.remove_prefix(std::min(comma + 1, readings.size()));
    }
    return false;
}

} // namespace

Inflections::Inflections() : data_(inflectionData()) {
    preferred_.reserve(80'000);
    size_t at = 0;
    while (at < data_.size()) {
        const size_t tab = data_.find('\t', at);
        const size_t end = std::min(data_.find('\n', tab), data_.size());
        anyReading(data_.substr(tab + 1, end - tab - 1), [&](std::string_view lemma, std::string_view codes) {
            for (const char code : codes) {
                if (std::isupper(static_cast<unsigned char>(code))) {
                    preferred_.push_back({hashOf(lemma, lowered(code)), static_cast<quint32>(at)});
                }
            }
            return false;
        });
        at = end + 1;
    }
    std::sort(preferred_.begin(), preferred_.end(),
              [](const Preferred& a, const Preferred& b) { return a.lemmaAndForm < b.lemmaAndForm; });
}

std::string_view Inflections::readings(std::string_view word) const {
    size_t low = 0;
    size_t high = data_.size();
    while (low < high) {
        size_t middle = low + (high - low) / 2;
        while (middle > low && data_[middle - 1] != '\n') {
            --middle;
        }
        const size_t tab = data_.find('\t', middle);
        const size_t end = std::min(data_.find('\n', tab), data_.size());
        const int order = data_.substr(middle, tab - middle).compare(word);
        if (order == 0) {
            return data_.substr(tab + 1, end - tab - 1);
        }
        if (order < 0) {
            low = end + 1;
        } else {
            high = middle;
        }
    }
    return {};
}

bool Inflections::hasCode(const QString& word, char code) const {
    const std::string bytes = word.toStdString();
    return anyReading(readings(bytes), [&](std::string_view, std::string_view codes) {
        return std::any_of(codes.begin(), codes.end(), [&](char c) { return lowered(c) == code; });
    });
}

bool Inflections::is(const QString& word, Form form) const {
    return hasCode(word, static_cast<char>(form));
}

bool Inflections::prefers(const QString& word, Form form) const {
    const std::string bytes = word.toStdString();
    const auto code = static_cast<char>(std::toupper(static_cast<unsigned char>(form)));
    return anyReading(readings(bytes), [&](std::string_view, std::string_view codes) {
        return codes.find(code) != std::string_view::npos;
    });
}

QString Inflections::lemma(const QString& word, Form form) const {
    QString preferred;
    QString other;
    const std::string bytes = word.toStdString();
    anyReading(readings(bytes), [&](std::string_view lemma, std::string_view codes) {
        const char code = static_cast<char>(form);
        const QString found = QString::fromLatin1(lemma.data(), static_cast<qsizetype>(lemma.size()));
        if (codes.find(static_cast<char>(std::toupper(static_cast<unsigned char>(code)))) !=
            std::string_view::npos) {
            preferred = preferred.isEmpty() ? found : preferred;
        } else if (codes.find(code) != std::string_view::npos) {
            other = other.isEmpty() ? found : other;
        }
        return false;
    });
    return preferred.isEmpty() ? other : preferred;
}

QString Inflections::form(const QString& lemma, Form form) const {
    const std::string bytes = lemma.toStdString();
    const char wanted = static_cast<char>(form);
    const quint32 hash = hashOf(bytes, wanted);
    auto found = std::lower_bound(preferred_.begin(), preferred_.end(), hash,
                                  [](const Preferred& a, quint32 b) { return a.lemmaAndForm < b; });
    for (; found != preferred_.end() && found->lemmaAndForm == hash; ++found) {
        const size_t tab = data_.find('\t', found->line);
        const size_t end = std::min(data_.find('\n', tab), data_.size());
        // Two lemmas may share a hash.
        const bool same = anyReading(
            data_.substr(tab + 1, end - tab - 1), [&](std::string_view reading, std::string_view codes) {
                return reading == bytes &&
                       codes.find(static_cast<char>(std::toupper(static_cast<unsigned char>(wanted)))) !=
                           std::string_view::npos;
            });
        if (same) {
            return QString::fromLatin1(data_.data() + found->line, static_cast<qsizetype>(tab - found->line));
        }
    }
    return {};
}

QString Inflections::changed(const QString& word, Form from, Form to) const {
    const QString found = lemma(word, from);
    return found.isEmpty() ? QString() : form(found, to);
}

bool Inflections::isCounted(const QString& noun) const {
    return hasCode(noun, 'c');
}

bool Inflections::isUncounted(const QString& noun) const {
    return hasCode(noun, 'm');
}

std::string Inflections::formClass(std::string_view lower) const {
    const std::string_view found = readings(lower);
    if (found.empty()) {
        return "?";
    }
    bool has[128] = {};
    anyReading(found, [&](std::string_view, std::string_view codes) {
        for (const char code : codes) {
            has[static_cast<unsigned char>(lowered(code))] = true;
        }
        return false;
    });
    std::string made;
    for (const char code : std::string_view("bdngzspart")) {
        if (has[static_cast<unsigned char>(code)]) {
            made += code;
        }
    }
    return made;
}

} // namespace vellumline
