#pragma once

#include "VellumlineCore/SelectionStyle.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <optional>

namespace vellumline {

/// Reads just enough of a Rich Text Format document (RTF Specification 1.9.1) to tell the font of its first
/// visible character. One pass, bounded nesting; whatever is malformed is skipped, never trusted.
class RtfReader {
  public:
    explicit RtfReader(const QByteArray& rtf);
    /// The font at the first character that is neither white space nor an attachment; none when there is no
    /// such character, it has no font, or the bytes are not RTF.
    std::optional<Font> firstFont();

  private:
    struct Group {
        int fontIndex = -1;  ///< \f; -1: the document's default (\deff)
        int halfPoints = 24; ///< \fs; 24 (12 points) unless said otherwise
        bool bold = false;
        bool italic = false;
        bool hidden = false; ///< \v, or a destination that is not part of the text
        bool fontTable = false;
        int unicodeSkip = 1; ///< \uc
    };

    bool readControl();
    void applyWord(const QByteArray& word, std::optional<int> parameter);
    /// True when the unit is the visible character that was looked for.
    bool character(char32_t unit);
    void fontTableByte(char byte);
    void fontTableUnit(char16_t unit);
    bool entryHasRoom() const;
    void decodeEntryBytes();
    void endFontEntry();

    const QByteArray& rtf_;
    qsizetype position_ = 0;
    QList<Group> groups_;
    QHash<int, QString> fontNames_; ///< empty: a name that cannot be read
    QString entryName_;
    QByteArray entryBytes_; ///< of the name, not yet decoded: a character may take two
    bool entryIsReadable_ = true;
    int entryIndex_ = -1;
    std::optional<int> entryCodePage_;
    int documentCodePage_ = 1252; ///< \ansicpg; what \ansi means without it
    int defaultFont_ = 0;
    bool starred_ = false; ///< \* was just read: an unknown word after it starts an ignorable destination
    bool atGroupStart_ = false;
    int skip_ = 0; ///< replacement characters of \u still to be skipped
    bool found_ = false;
};

} // namespace vellumline
