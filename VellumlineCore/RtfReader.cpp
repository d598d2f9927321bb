#include "VellumlineCore/RtfReader.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QStringDecoder>
#include <algorithm>
#include <array>

namespace vellumline {

namespace {

// No writer nests anywhere near this deep; deeper groups are read as if they were not groups.
constexpr qsizetype deepestNesting = 512;
constexpr qsizetype longestFontName = 256;
constexpr qsizetype longestWord = 32; // RTF Specification: control words have at most 32 letters
constexpr char32_t attachment = 0xFFFC;
constexpr int westernCodePage = 1252;
constexpr int utf8CodePage = 65001;

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

/// The code page of \fcharset; none: that of the document, or one that has no number here.
std::optional<int> codePageOfCharset(int charset) {
    static const QHash<int, int> pages = {
        {0, westernCodePage}, {77, 10000}, {128, 932},  {129, 949},  {130, 1361}, {134, 936},
        {136, 950},           {161, 1253}, {162, 1254}, {163, 1258}, {177, 1255}, {178, 1256},
        {186, 1257},          {204, 1251}, {222, 874},  {238, 1250}, {254, 437},  {255, 850}};
    const auto found = pages.constFind(charset);
    return found == pages.constEnd() ? std::nullopt : std::optional(*found);
}

QString decodedWestern(const QByteArray& bytes) {
    // Latin-1 apart from these; 0: not a character.
    static constexpr std::array<char16_t, 32> special = {
        0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
    QString text = QString::fromLatin1(bytes);
    for (QChar& c : text) {
        if (c.unicode() >= 0x80 && c.unicode() <= 0x9F)
            c = QChar(special.at(c.unicode() - 0x80U));
    }
    return text;
}

/// A byte that the code page has no character for becomes one of these, depending on the page (seen with
/// Qt 6.4).
bool standsForNothing(QChar c) {
    return c == QChar::ReplacementCharacter || c.category() == QChar::Other_Control ||
           c.category() == QChar::Other_PrivateUse;
}

std::optional<QString> decoded(const QByteArray& bytes, int codePage) {
    if (std::ranges::all_of(bytes, [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return QString::fromLatin1(bytes);
    QString text;
    if (codePage == westernCodePage) {
        text = decodedWestern(bytes);
    } else {
        // Qt knows these where it was built with ICU, as Debian's is.
        const QByteArray name =
            codePage == utf8CodePage ? QByteArrayLiteral("UTF-8") : "windows-" + QByteArray::number(codePage);
        QStringDecoder decoder(name.constData(), QStringDecoder::Flag::Stateless);
        if (!decoder.isValid())
            return std::nullopt;
        text = decoder.decode(bytes);
        if (decoder.hasError())
            return std::nullopt;
    }
    return std::ranges::any_of(text, standsForNothing) ? std::nullopt : std::optional(text);
}

/// Which letter a byte above 127 stands for depends on the code page; that it is one is enough for the text.
/// The ellipsis of the Windows code pages is the one whose number is white space in Unicode.
char32_t textCharacter(unsigned char byte) {
    return byte == 0x85 ? U'\u2026' : byte;
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
            found_ = character(textCharacter(static_cast<unsigned char>(byte)));
    }
    if (!found_)
        return std::nullopt;

    const Group& group = groups_.last();
    const int index = group.fontIndex >= 0 ? group.fontIndex : defaultFont_;
    const QString family = fontNames_.value(index);
    if (family.isEmpty())
        return std::nullopt;
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
            return character(textCharacter(static_cast<unsigned char>(code)));
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
        const auto unit = static_cast<char16_t>(*parameter);
        bool hit = false;
        if (groups_.last().fontTable)
            fontTableUnit(unit);
        else
            hit = character(unit);
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
    } else if (word == "ansicpg") {
        documentCodePage_ = parameter.value_or(westernCodePage);
    } else if (word == "fcharset" && group.fontTable && !group.hidden) {
        entryCodePage_ = codePageOfCharset(parameter.value_or(0));
    } else if (word == "cpg" && group.fontTable && !group.hidden) {
        entryCodePage_ = parameter;
    } else if (word == "f") {
        if (group.fontTable) {
            endFontEntry();
            entryIndex_ = parameter.value_or(0);
            entryCodePage_ = std::nullopt;
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
    if (skip_ > 0) {
        --skip_;
        return;
    }
    if (groups_.last().hidden)
        return;
    if (byte == ';')
        endFontEntry();
    else if (entryHasRoom())
        entryBytes_.append(byte);
}

void RtfReader::fontTableUnit(char16_t unit) {
    if (groups_.last().hidden || !entryHasRoom())
        return;
    decodeEntryBytes();
    entryName_.append(QChar(unit));
}

bool RtfReader::entryHasRoom() const {
    return entryName_.size() + entryBytes_.size() < longestFontName;
}

void RtfReader::decodeEntryBytes() {
    const auto text = decoded(entryBytes_, entryCodePage_.value_or(documentCodePage_));
    entryBytes_.clear();
    entryIsReadable_ = entryIsReadable_ && text;
    entryName_ += text.value_or(QString());
}

void RtfReader::endFontEntry() {
    decodeEntryBytes();
    const QString name = trimmedWhitespace(entryName_);
    const bool isReadable = entryIsReadable_ && name.isValidUtf16();
    if (entryIndex_ >= 0 && (!isReadable || !name.isEmpty()) && !fontNames_.contains(entryIndex_))
        fontNames_.insert(entryIndex_, isReadable ? name : QString());
    entryName_.clear();
    entryIsReadable_ = true;
}

} // namespace vellumline
