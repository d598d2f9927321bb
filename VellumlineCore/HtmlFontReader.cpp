#include "VellumlineCore/HtmlFontReader.h"

#include <QSet>
#include <QStringList>
#include <algorithm>
#include <array>
#include <cmath>

namespace vellumline {

namespace {

constexpr qsizetype deepestNesting = 256;
constexpr qsizetype mostRules = 512;
// Selectors share their declarations and every tag reads them again: without these two, a hostile sheet of 1
// MB would cost gigabytes, or minutes.
constexpr qsizetype longestDeclarations = 1024;
constexpr qsizetype mostText = 256 * 1024;
constexpr char32_t attachment = 0xFFFC;
constexpr double pointsPerPixel = 0.75; // CSS Values and Units: 1in = 96px = 72pt

const QSet<QString>& voidElements() {
    static const QSet<QString> names = {
        QStringLiteral("br"),    QStringLiteral("img"),     QStringLiteral("meta"), QStringLiteral("link"),
        QStringLiteral("hr"),    QStringLiteral("input"),   QStringLiteral("col"),  QStringLiteral("area"),
        QStringLiteral("base"),  QStringLiteral("embed"),   QStringLiteral("wbr"),  QStringLiteral("source"),
        QStringLiteral("track"), QStringLiteral("!doctype")};
    return names;
}

/// The value of an attribute of a tag's text, unquoted; null when there is none. Names in `tag` may have any
/// case.
QString attribute(const QString& tag, const QString& name) {
    qsizetype i = 0;
    while (i < tag.size() && !tag.at(i).isSpace())
        ++i; // the element's name
    while (i < tag.size()) {
        while (i < tag.size() && (tag.at(i).isSpace() || tag.at(i) == QLatin1Char('/')))
            ++i;
        const qsizetype nameStart = i;
        while (i < tag.size() && !tag.at(i).isSpace() && tag.at(i) != QLatin1Char('=') &&
               tag.at(i) != QLatin1Char('/'))
            ++i;
        const QStringView found = QStringView(tag).sliced(nameStart, i - nameStart);
        while (i < tag.size() && tag.at(i).isSpace())
            ++i;
        QString value = QStringLiteral("");
        if (i < tag.size() && tag.at(i) == QLatin1Char('=')) {
            ++i;
            while (i < tag.size() && tag.at(i).isSpace())
                ++i;
            const QChar quote = i < tag.size() ? tag.at(i) : QChar();
            qsizetype valueStart = i;
            if (quote == QLatin1Char('"') || quote == QLatin1Char('\'')) {
                valueStart = ++i;
                while (i < tag.size() && tag.at(i) != quote)
                    ++i;
                value = tag.sliced(valueStart, i - valueStart);
                ++i;
            } else {
                while (i < tag.size() && !tag.at(i).isSpace())
                    ++i;
                value = tag.sliced(valueStart, i - valueStart);
            }
        } else if (i == nameStart) {
            ++i; // a stray "=" or quote: step over it
        }
        if (found.compare(name, Qt::CaseInsensitive) == 0) {
            value.replace(QStringLiteral("&quot;"), QStringLiteral("\""), Qt::CaseInsensitive);
            value.replace(QStringLiteral("&#39;"), QStringLiteral("'"));
            value.replace(QStringLiteral("&apos;"), QStringLiteral("'"), Qt::CaseInsensitive);
            value.replace(QStringLiteral("&amp;"), QStringLiteral("&"), Qt::CaseInsensitive);
            return value;
        }
    }
    return {};
}

/// The element's name in a tag's text, in lower case; "/" in front when the tag closes it.
QString elementName(const QString& tag) {
    qsizetype end = 0;
    while (end < tag.size() && !tag.at(end).isSpace() && (tag.at(end) != QLatin1Char('/') || end == 0))
        ++end;
    return tag.first(end).toLower();
}

/// The CSS without its comments. What looks like one inside a string is not; a string ends with its line.
QString withoutComments(const QString& css) {
    QString result;
    result.reserve(css.size());
    QChar quote;
    for (qsizetype i = 0; i < css.size(); ++i) {
        const QChar c = css.at(i);
        if (quote.isNull() && QStringView(css).sliced(i).startsWith(QLatin1String("/*"))) {
            const qsizetype end = css.indexOf(QStringLiteral("*/"), i + 2);
            if (end < 0)
                break;
            i = end + 1;
            continue;
        }
        if (quote.isNull() && (c == QLatin1Char('"') || c == QLatin1Char('\'')))
            quote = c;
        else if (c == quote || c == QLatin1Char('\n'))
            quote = QChar();
        result += c;
        if (c == QLatin1Char('\\') && i + 1 < css.size())
            result += css.at(++i);
    }
    return result;
}

bool isVisible(char32_t scalar) {
    return scalar >= 0x20 && scalar != attachment && !isWhitespace(scalar);
}

/// Whether the character that `&entity;` stands for can be seen.
bool isVisibleEntity(const QString& entity) {
    if (!entity.startsWith(QLatin1Char('#'))) {
        // HTML Standard, "Named character references": those of white space.
        static const QSet<QString> spaces = {
            QStringLiteral("nbsp"),   QStringLiteral("NonBreakingSpace"), QStringLiteral("ensp"),
            QStringLiteral("emsp"),   QStringLiteral("emsp13"),           QStringLiteral("emsp14"),
            QStringLiteral("numsp"),  QStringLiteral("puncsp"),           QStringLiteral("thinsp"),
            QStringLiteral("hairsp"), QStringLiteral("ThinSpace"),        QStringLiteral("VeryThinSpace"),
            QStringLiteral("Tab"),    QStringLiteral("MediumSpace"),      QStringLiteral("ThickSpace"),
            QStringLiteral("NewLine")};
        return !spaces.contains(entity);
    }
    const bool isHexadecimal = entity.startsWith(QLatin1String("#x"), Qt::CaseInsensitive);
    bool ok = false;
    const uint number =
        QStringView(entity).sliced(isHexadecimal ? 2 : 1).toUInt(&ok, isHexadecimal ? 16 : 10);
    // HTML Standard, "Numeric character reference end state": 0x85 is the ellipsis of Windows-1252.
    return !ok || number == 0 || number == 0x85 || isVisible(number);
}

/// The end of the tag that starts at `from` (just behind "<"): the position of ">", quotes respected; -1 when
/// open.
qsizetype tagEnd(const QString& html, qsizetype from) {
    QChar quote;
    for (qsizetype i = from; i < html.size(); ++i) {
        const QChar c = html.at(i);
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
        } else if ((c == QLatin1Char('"') || c == QLatin1Char('\'')) && i > from) {
            quote = c;
        } else if (c == QLatin1Char('>')) {
            return i;
        }
    }
    return -1;
}

/// The first family of a CSS list, without quotes; generic names count as they are.
QString firstFamily(const QString& value) {
    QString family = value.section(QLatin1Char(','), 0, 0).trimmed();
    if (family.size() >= 2 && (family.startsWith(QLatin1Char('"')) || family.startsWith(QLatin1Char('\''))))
        family = family.sliced(1, family.size() - (family.endsWith(family.at(0)) ? 2 : 1));
    return family.trimmed();
}

} // namespace

HtmlFontReader::HtmlFontReader(QString html) : html_(std::move(html)) {
    html_.truncate(mostText); // the first visible character stands near the beginning
}

std::optional<Font> HtmlFontReader::firstFont() {
    const auto style = firstTextStyle();
    if (!style || style->family.isEmpty())
        return std::nullopt;
    return Font{style->family, style->family, style->points, style->bold, style->italic};
}

std::optional<HtmlFontReader::Style> HtmlFontReader::firstTextStyle() {
    qsizetype i = 0;
    while (i < html_.size()) {
        const QChar c = html_.at(i);
        if (c == QLatin1Char('<')) {
            if (QStringView(html_).sliced(i).startsWith(QLatin1String("<!--"))) {
                const qsizetype end = html_.indexOf(QStringLiteral("-->"), i + 4);
                if (end < 0)
                    return std::nullopt;
                i = end + 3;
                continue;
            }
            const qsizetype end = tagEnd(html_, i + 1);
            if (end < 0)
                return std::nullopt;
            const QString tag = html_.sliced(i + 1, end - i - 1);
            i = end + 1;
            const QString name = elementName(tag);
            if (name == QStringLiteral("style") || name == QStringLiteral("script") ||
                name == QStringLiteral("title")) {
                const qsizetype close = html_.indexOf(QStringLiteral("</") + name, i, Qt::CaseInsensitive);
                if (close < 0)
                    return std::nullopt;
                if (name == QStringLiteral("style"))
                    readStyleSheet(html_.sliced(i, close - i));
                i = close;
                continue;
            }
            readTag(tag);
            continue;
        }
        if (c == QLatin1Char('&')) {
            const qsizetype end = html_.indexOf(QLatin1Char(';'), i);
            if (end > i && !isVisibleEntity(html_.sliced(i + 1, end - i - 1))) {
                i = end + 1;
                continue;
            }
        }
        if (isVisible(c.unicode()))
            return open_.isEmpty() ? Style() : open_.last().style;
        ++i;
    }
    return std::nullopt;
}

void HtmlFontReader::readTag(const QString& tag) {
    const QString name = elementName(tag);
    if (name.startsWith(QLatin1Char('/'))) {
        for (qsizetype i = open_.size() - 1; i >= 0; --i) {
            if (open_.at(i).name == QStringView(name).sliced(1)) {
                open_.resize(i);
                break;
            }
        }
        return;
    }
    if (name.isEmpty() || name.startsWith(QLatin1Char('!')) || name.startsWith(QLatin1Char('?')) ||
        voidElements().contains(name) || tag.endsWith(QLatin1Char('/')) || open_.size() >= deepestNesting)
        return;

    Style style = open_.isEmpty() ? Style() : open_.last().style;
    if (name == QStringLiteral("b") || name == QStringLiteral("strong") || name == QStringLiteral("th"))
        style.bold = true;
    if (name == QStringLiteral("i") || name == QStringLiteral("em") || name == QStringLiteral("cite"))
        style.italic = true;
    if (name.size() == 2 && name.at(0) == QLatin1Char('h') && name.at(1).isDigit())
        style.bold = true;
    if (name == QStringLiteral("font")) {
        const QString face = attribute(tag, QStringLiteral("face"));
        if (!face.isEmpty())
            style.family = firstFamily(face);
        // HTML Standard, "rules for parsing a legacy font size"; the CSS sizes x-small … xxx-large at 16 px
        // medium.
        static constexpr std::array<double, 7> legacyPoints = {7.5, 10, 12, 13.5, 18, 24, 36};
        bool ok = false;
        const int size = attribute(tag, QStringLiteral("size")).toInt(&ok);
        if (ok && size >= 1 && size <= 7)
            style.points = legacyPoints[static_cast<std::size_t>(size - 1)];
    }
    apply(rules_.value(name), style);
    const QString classes = attribute(tag, QStringLiteral("class"));
    for (const QString& each : classes.split(QLatin1Char(' '), Qt::SkipEmptyParts).mid(0, 16)) {
        apply(rules_.value(QLatin1Char('.') + each), style);
        apply(rules_.value(name + QLatin1Char('.') + each), style);
    }
    apply(withoutComments(attribute(tag, QStringLiteral("style"))), style);
    open_.append({name, style});
}

void HtmlFontReader::readStyleSheet(const QString& sheet) {
    const QString css = withoutComments(sheet);
    qsizetype i = 0;
    while (i < css.size() && rules_.size() < mostRules) {
        const qsizetype brace = css.indexOf(QLatin1Char('{'), i);
        if (brace < 0)
            return;
        const qsizetype end = css.indexOf(QLatin1Char('}'), brace);
        if (end < 0)
            return;
        QString selectors = css.sliced(i, brace - i);
        selectors.remove(QStringLiteral("<!--"));
        selectors.remove(QStringLiteral("-->"));
        const QString declarations = css.sliced(brace + 1, end - brace - 1);
        for (const QString& selector : selectors.split(QLatin1Char(','))) {
            if (rules_.size() >= mostRules)
                return;
            const QString key = selector.trimmed();
            const qsizetype dot = key.indexOf(QLatin1Char('.'));
            const QString stored = dot < 0 ? key.toLower() : key.first(dot).toLower() + key.sliced(dot);
            QString& rule = rules_[stored];
            if (rule.size() + declarations.size() <= longestDeclarations)
                rule += declarations + QLatin1Char(';');
        }
        i = end + 1;
    }
}

void HtmlFontReader::apply(const QString& declarations, Style& style) {
    for (const QString& declaration : declarations.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QString property = declaration.section(QLatin1Char(':'), 0, 0).trimmed().toLower();
        QString value = declaration.section(QLatin1Char(':'), 1).trimmed();
        if (const qsizetype important = value.indexOf(QStringLiteral("!important"), 0, Qt::CaseInsensitive);
            important >= 0)
            value = value.first(important).trimmed();
        if (property == QStringLiteral("font-family")) {
            if (const QString family = firstFamily(value);
                !family.isEmpty() && family.compare(QStringLiteral("inherit"), Qt::CaseInsensitive) != 0)
                style.family = family;
        } else if (property == QStringLiteral("font-size")) {
            applySize(value, style);
        } else if (property == QStringLiteral("font-weight")) {
            bool numeric = false;
            const int weight = value.toInt(&numeric);
            if (numeric)
                style.bold = weight >= 600;
            else if (value.startsWith(QStringLiteral("bold"), Qt::CaseInsensitive))
                style.bold = true;
            else if (value.compare(QStringLiteral("normal"), Qt::CaseInsensitive) == 0)
                style.bold = false;
        } else if (property == QStringLiteral("font-style")) {
            if (value.compare(QStringLiteral("normal"), Qt::CaseInsensitive) == 0)
                style.italic = false;
            else if (value.startsWith(QStringLiteral("italic"), Qt::CaseInsensitive) ||
                     value.startsWith(QStringLiteral("oblique"), Qt::CaseInsensitive))
                style.italic = true;
        } else if (property == QStringLiteral("font")) {
            applyShorthand(value, style);
        }
    }
}

void HtmlFontReader::applyShorthand(const QString& value, Style& style) {
    // CSS Fonts, the shorthand: style and weight words, then the size (with an optional line height), then
    // families.
    style.bold = false;
    style.italic = false;
    qsizetype i = 0;
    while (i < value.size()) {
        while (i < value.size() && value.at(i).isSpace())
            ++i;
        qsizetype end = i;
        while (end < value.size() && !value.at(end).isSpace())
            ++end;
        const QString word = value.sliced(i, end - i).toLower();
        bool numeric = false;
        const int weight = word.toInt(&numeric);
        if (word.startsWith(QStringLiteral("bold")) || (numeric && weight >= 600)) {
            style.bold = true;
        } else if (word == QStringLiteral("italic") || word == QStringLiteral("oblique")) {
            style.italic = true;
        } else if (!numeric && !word.isEmpty() && word.at(0).isDigit()) {
            applySize(word.section(QLatin1Char('/'), 0, 0), style);
            if (const QString family = firstFamily(value.sliced(end)); !family.isEmpty())
                style.family = family;
            return;
        }
        i = end;
    }
}

void HtmlFontReader::applySize(const QString& value, Style& style) {
    const QString lower = value.trimmed().toLower();
    qsizetype digits = 0;
    while (digits < lower.size() && (lower.at(digits).isDigit() || lower.at(digits) == QLatin1Char('.')))
        ++digits;
    bool ok = false;
    const double number = lower.first(digits).toDouble(&ok);
    if (!ok || !std::isfinite(number))
        return;
    const QString unit = lower.sliced(digits).trimmed();
    double points = style.points;
    if (unit == QStringLiteral("pt"))
        points = number;
    else if (unit == QStringLiteral("px"))
        points = number * pointsPerPixel;
    else if (unit == QStringLiteral("em"))
        points = style.points * number;
    else if (unit == QStringLiteral("rem"))
        points = 12 * number;
    else if (unit == QStringLiteral("%"))
        points = style.points * number / 100;
    if (std::isfinite(points) && points > 0)
        style.points = points;
}

} // namespace vellumline
