#include "VellumlineCore/SelectionStyle.h"

#include "VellumlineCore/HtmlFontReader.h"
#include "VellumlineCore/RtfReader.h"

#include <QRegularExpression>
#include <QStringDecoder>
#include <cmath>

namespace vellumline::SelectionStyle {

namespace {

// A size outside of this is a slip of the page that was copied from; the font's own size is kept then.
constexpr double largestPointSize = 1638; // the largest that office programs accept
constexpr double largestHalfPoints = 2 * largestPointSize;

QString normalizedLineEnds(QString text) {
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    return text;
}

QString normalized(const QString& text) {
    return trimmedWhitespace(normalizedLineEnds(text)).normalized(QString::NormalizationForm_C);
}

void appendUnit(QByteArray& rtf, char16_t unit) {
    rtf += "\\u" + QByteArray::number(static_cast<qint16>(unit)) + '?';
}

std::optional<QString> decodedUtf8(const QByteArray& bytes) {
    // Otherwise a character that the bytes end within would be waited for, not be an error.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace

std::optional<Font> font(const std::optional<QByteArray>& rtf, const std::optional<QByteArray>& html) {
    if (rtf) {
        auto found = fontInRtf(*rtf);
        if (found)
            return found;
    }
    return html ? fontInHtml(*html) : std::nullopt;
}

bool sameSelection(const QString& a, const QString& b) {
    return normalized(a) == normalized(b);
}

std::optional<QByteArray> usableRtf(const QString& text, const Font& font) {
    if (!(font.pointSize > 0))
        return std::nullopt;
    return rtf(text, font);
}

QByteArray rtf(const QString& text, const Font& font) {
    QString family = familyName(font);
    family.remove(QLatin1Char(';'));
    const double halfPoints = std::round(std::min(font.pointSize * 2, largestHalfPoints));
    QByteArray document = "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fnil\\fcharset0 ";
    document += rtfEscaped(family);
    document += ";}}\\f0\\fs";
    document += QByteArray::number(static_cast<int>(halfPoints));
    if (font.bold)
        document += "\\b";
    if (font.italic)
        document += "\\i";
    document += ' ';
    document += rtfEscaped(text);
    document += '}';
    return document;
}

QByteArray rtfEscaped(const QString& text) {
    QByteArray rtf;
    // Unit by unit: a scalar beyond the basic plane is written as its two surrogates.
    for (const QChar c : normalizedLineEnds(text)) {
        const char16_t unit = c.unicode();
        if (unit == u'\\' || unit == u'{' || unit == u'}') {
            rtf += '\\';
            rtf += static_cast<char>(unit);
        } else if (unit == u'\t') {
            rtf += "\\tab ";
        } else if (unit == u'\n') {
            rtf += "\\line ";
        } else if (unit >= 32 && unit <= 127) {
            rtf += static_cast<char>(unit);
        } else if (unit > 127) {
            appendUnit(rtf, unit);
        }
    }
    return rtf;
}

std::optional<Font> fontInRtf(const QByteArray& rtf) {
    return RtfReader(rtf).firstFont();
}

bool declaresFont(const QByteArray& html) {
    const auto text = decodedUtf8(html);
    if (!text)
        return false;
    const QString lower = text->toLower();
    return lower.contains(QStringLiteral("font-family")) || lower.contains(QStringLiteral("face="));
}

std::optional<Font> fontInHtml(const QByteArray& html) {
    if (!declaresFont(html))
        return std::nullopt;
    const auto text = decodedUtf8(html);
    std::optional<Font> font = HtmlFontReader(*text).firstFont();
    if (!font)
        return std::nullopt;
    static const QRegularExpression rule(QStringLiteral("font-size:\\s*([0-9]+(?:\\.[0-9]+)?)pt"));
    if (const auto match = rule.match(*text); match.hasMatch()) {
        bool ok = false;
        const double points = match.captured(1).toDouble(&ok);
        if (ok && points > 0 && points <= largestPointSize)
            font->pointSize = points;
    }
    return font;
}

QString familyName(const Font& font) {
    return font.familyName.isEmpty() ? font.fontName : font.familyName;
}

} // namespace vellumline::SelectionStyle
