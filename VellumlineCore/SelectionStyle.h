#pragma once

#include "VellumlineCore/Text.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace vellumline {

/// A font by name, as rich text declares it. Point size in typographic points.
struct Font {
    QString familyName; ///< May be empty; then `fontName` names it.
    QString fontName;
    double pointSize = 0;
    bool bold = false;
    bool italic = false;

    bool operator==(const Font&) const = default;
};

/// Finds the font of a copied selection and writes text as a minimal RTF document in that font.
namespace SelectionStyle {

/// The font of the copied selection: from the RTF when it has one, else from the HTML, else none.
/// Absent data means the clipboard has none of that type.
std::optional<Font> font(const std::optional<QByteArray>& rtf, const std::optional<QByteArray>& html);
/// Whether two texts are the same selection: line ends, white space at both ends and composition are not
/// differences.
bool sameSelection(const QString& a, const QString& b);
/// The RTF document for the text in that font, ASCII only; none when the point size is not greater than 0.
std::optional<QByteArray> usableRtf(const QString& text, const Font& font);
QByteArray rtf(const QString& text, const Font& font);

QByteArray rtfEscaped(const QString& text);
/// The font of the first character that is neither white space nor an attachment in an RTF document.
std::optional<Font> fontInRtf(const QByteArray& rtf);
/// Whether the HTML names a font at all; without that a reader would invent one.
bool declaresFont(const QByteArray& html);
std::optional<Font> fontInHtml(const QByteArray& html);
QString familyName(const Font& font);

} // namespace SelectionStyle

} // namespace vellumline
