#include "VellumlineCore/RtfReader.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <algorithm>

namespace vellumline {

namespace {

// No writer nests anywhere near this deep; deeper groups are read as if they were not groups.
constexpr qsizetype deepestNesting = 512;
constexpr qsizetype longestFontName = 256;
constexpr qsizetype longestWord = 32; // RTF Specification: control words have at most 32 letters
constexpr char32_t attachment = 0xFFFC;

/// Destinations whose content is not text of the document, apart from those marked with \*.
bool isHiddenDestination(const QByteArray& word) {
    static const QSet<QByteArray> words = {
        "colortbl",  "stylesheet", "info",      "pict",    "object",    "header",     "headerl",
        "headerr",   "headerf",    "footer",    "footerl", "footerr",   "footerf",    "footnote",
        "fldinst",   "listtable",  "revtbl",    "filetbl", "generator", "nonshppict", "xmlnstbl",
        "datastore", "themedata",  "bkmkstart", "bkmkend", "tc",        "xe",         "listoverridetable",
        "rsidtbl",   "annotation", "listtext",  "pntext",  "pnseclvl"};
    return words.contains(word);
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

RtfReader::RtfReader(const QByteArray& rtf) : rtf_(rtf) {}

std::optional<Font> RtfReader::firstFont() {
    if (!rtf_.startsWith("{\\rtf"))
        return std::nullopt;
    groups_.append(Group());
    qsizetype tooDeep = 0;
    while (position_ < rtf_.size() && !found_) {
        const char byte = rtf_.at(position_);
        if (byte == '{') {
            ++position_;
            if (groups_.size() < deepestNesting)
                groups_.append(groups_.last());
            else
                ++tooDeep;
            atGroupStart_ = true;
            starred_ = false;
            skip_ = 0;
            continue;
        }
        if (byte == '}') {
            ++position_;
            if (groups_.last().fontTable)
                endFontEntry();
            if (tooDeep > 0)
                --tooDeep;
            else if (groups_.size() > 1)
                groups_.removeLast();
            atGroupStart_ = false;
            skip_ = 0;
            continue;
        }
        if (byte == '\\') {
            found_ = readControl();
            continue;
        }
        ++position_;
        if (byte == '\r' || byte == '\n')
            continue; // line ends between words mean nothing in RTF
        atGroupStart_ = false;
        if (groups_.last().fontTable)
            fontTableByte(byte);
        else
            found_ = character(static_cast<unsigned char>(byte));
    }
    if (!found_)
        return std::nullopt;

    const Group& group = groups_.last();
    const int index = group.fontIndex >= 0 ? group.fontIndex : defaultFont_;
    const QByteArray name = fontNames_.value(index).trimmed();
    if (name.isEmpty())
        return std::nullopt;
    const QString family = QString::fromUtf8(name);
    return Font{family, family, group.halfPoints / 2.0, group.bold, group.italic};
}

bool RtfReader::readControl() {
    ++position_; // the backslash
    if (position_ >= rtf_.size())
        return false;
    const char first = rtf_.at(position_);
    if (!isLetter(first)) {
        ++position_;
        Group& group = groups_.last();
        switch (first) {
        case '*':
            starred_ = true;
            return false;
        case '\'': {
            const int high = position_ < rtf_.size() ? hexDigit(rtf_.at(position_)) : -1;
            const int low = position_ + 1 < rtf_.size() ? hexDigit(rtf_.at(position_ + 1)) : -1;
            if (high < 0 || low < 0)
                return false;
            position_ += 2;
            const int code = high * 16 + low;
            if (group.fontTable) {
                fontTableByte(static_cast<char>(code));
                return false;
            }
            // Which letter a byte above 127 stands for depends on the code page; that it is one is enough
            // here.
            return character(code == 0xA0 ? U' ' : static_cast<char32_t>(code));
        }
        case '\\':
        case '{':
        case '}':
            if (group.fontTable) {
                fontTableByte(first);
                return false;
            }
            return character(static_cast<unsigned char>(first));
        default:
            return false; // \~ \- \_ and line ends: spaces and hyphenation, nothing visible to take a font
                          // from
        }
    }

    const qsizetype start = position_;
    while (position_ < rtf_.size() && isLetter(rtf_.at(position_)) && position_ - start < longestWord)
        ++position_;
    const QByteArray word = rtf_.sliced(start, position_ - start);
    std::optional<int> parameter;
    const qsizetype numberStart = position_;
    const bool negative = position_ < rtf_.size() && rtf_.at(position_) == '-';
    if (negative)
        ++position_;
    qint64 number = 0;
    const qsizetype digitsStart = position_;
    while (position_ < rtf_.size() && rtf_.at(position_) >= '0' && rtf_.at(position_) <= '9') {
        if (number < 100'000'000)
            number = number * 10 + (rtf_.at(position_) - '0');
        ++position_;
    }
    if (position_ > digitsStart)
        parameter = static_cast<int>(negative ? -number : number);
    else
        position_ = numberStart;
    if (position_ < rtf_.size() && rtf_.at(position_) == ' ')
        ++position_;

    if (word == "bin") {
        // That many raw bytes follow, whatever they look like.
        position_ += std::min<qsizetype>(std::max(parameter.value_or(0), 0), rtf_.size() - position_);
        return false;
    }
    if (word == "u" && parameter) {
        const auto unit = static_cast<char32_t>(static_cast<char16_t>(*parameter));
        const bool hit = !groups_.last().fontTable && character(unit);
        skip_ = groups_.last().unicodeSkip;
        return hit;
    }
    applyWord(word, parameter);
    starred_ = false;
    atGroupStart_ = false;
    return false;
}

void RtfReader::applyWord(const QByteArray& word, std::optional<int> parameter) {
    Group& group = groups_.last();
    if (word == "fonttbl") {
        group.fontTable = true;
    } else if (starred_ || (atGroupStart_ && isHiddenDestination(word))) {
        // Inside the font table, \* groups hold alternative names and embedded fonts: not the name.
        group.hidden = true;
    } else if (word == "deff") {
        defaultFont_ = parameter.value_or(0);
    } else if (word == "f") {
        if (group.fontTable) {
            endFontEntry();
            entryIndex_ = parameter.value_or(0);
        } else {
            group.fontIndex = parameter.value_or(0);
        }
    } else if (word == "fs") {
        group.halfPoints = parameter.value_or(24);
    } else if (word == "b") {
        group.bold = parameter.value_or(1) != 0;
    } else if (word == "i") {
        group.italic = parameter.value_or(1) != 0;
    } else if (word == "v") {
        group.hidden = parameter.value_or(1) != 0;
    } else if (word == "plain") {
        group.fontIndex = -1;
        group.halfPoints = 24;
        group.bold = false;
        group.italic = false;
    } else if (word == "uc") {
        group.unicodeSkip = std::clamp(parameter.value_or(1), 0, 16);
    }
}

bool RtfReader::character(char32_t unit) {
    if (skip_ > 0) {
        --skip_;
        return false;
    }
    const bool surrogate = unit >= 0xD800 && unit <= 0xDFFF;
    return !groups_.last().hidden && unit >= 0x20 && unit != attachment && (surrogate || !isWhitespace(unit));
}

void RtfReader::fontTableByte(char byte) {
    if (groups_.last().hidden)
        return;
    if (byte == ';')
        endFontEntry();
    else if (entryName_.size() < longestFontName)
        entryName_.append(byte);
}

void RtfReader::endFontEntry() {
    if (entryIndex_ >= 0 && !entryName_.trimmed().isEmpty() && !fontNames_.contains(entryIndex_))
        fontNames_.insert(entryIndex_, entryName_);
    entryName_.clear();
}

} // namespace vellumline
