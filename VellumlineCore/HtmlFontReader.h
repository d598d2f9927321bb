#pragma once

#include "VellumlineCore/SelectionStyle.h"

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

namespace vellumline {

/// Reads just enough of an HTML fragment to tell the font of its first visible character: tags, inline
/// styles, the `font` element and simple rules of `style` elements (one element, class or element.class
/// selector). One pass over the text, bounded nesting; what is malformed is skipped. Nothing is ever loaded
/// from elsewhere.
class HtmlFontReader {
  public:
    explicit HtmlFontReader(QString html);
    /// The font at the first character that is neither white space nor an attachment, when one is declared
    /// there.
    std::optional<Font> firstFont();

  private:
    struct Style {
        QString family;
        double points = 12; ///< the size of text without a size rule
        bool bold = false;
        bool italic = false;
    };
    struct Element {
        QString name;
        Style style;
    };

    std::optional<Style> firstTextStyle();
    void readTag(const QString& tag);
    void readStyleSheet(const QString& sheet);
    static void apply(const QString& declarations, Style& style);
    static void applyShorthand(const QString& value, Style& style);
    static void applySize(const QString& value, Style& style);

    QString html_;
    QList<Element> open_;
    QHash<QString, QString> rules_; ///< selector → declarations
};

} // namespace vellumline
