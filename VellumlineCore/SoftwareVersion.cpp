#include "VellumlineCore/SoftwareVersion.h"

#include <QRegularExpression>
#include <algorithm>

namespace vellumline {

std::optional<SoftwareVersion> SoftwareVersion::parse(const QString& text) {
    // Nine digits always fit into 32 bits.
    static const QRegularExpression grammar(QRegularExpression::anchoredPattern(
        QStringLiteral("([0-9]{1,9}(?:\\.[0-9]{1,9}){0,7})(?:-([0-9A-Za-z]+(?:[.-][0-9A-Za-z]+)*))?")));
    static const QRegularExpression suffixPart(QStringLiteral("[0-9]+|[A-Za-z]+"));
    if (text.size() > longestText)
        return std::nullopt;
    const QRegularExpressionMatch match = grammar.match(text);
    if (!match.hasMatch())
        return std::nullopt;

    SoftwareVersion version;
    version.text_ = text;
    for (const QString& number : match.captured(1).split(QLatin1Char('.')))
        version.numbers_.append(number.toUInt());
    auto parts = suffixPart.globalMatch(match.captured(2));
    while (parts.hasNext()) {
        const QString part = parts.next().captured();
        if (part.front() > QLatin1Char('9')) {
            version.suffix_.append(SuffixPart{std::nullopt, part.toLower()});
            continue;
        }
        bool fits = false;
        const quint32 number = part.toUInt(&fits);
        if (!fits)
            return std::nullopt;
        version.suffix_.append(SuffixPart{number, {}});
    }
    return version;
}

std::weak_ordering SoftwareVersion::compare(const SuffixPart& one, const SuffixPart& other) {
    if (one.number && other.number)
        return *one.number <=> *other.number;
    if (one.number.has_value() != other.number.has_value())
        return one.number ? std::weak_ordering::less : std::weak_ordering::greater;
    return one.word.compare(other.word) <=> 0;
}

std::weak_ordering operator<=>(const SoftwareVersion& one, const SoftwareVersion& other) {
    for (qsizetype i = 0; i < std::max(one.numbers_.size(), other.numbers_.size()); ++i) {
        const auto result = one.numbers_.value(i, 0) <=> other.numbers_.value(i, 0);
        if (std::is_neq(result))
            return result;
    }
    if (one.suffix_.isEmpty() != other.suffix_.isEmpty())
        return one.suffix_.isEmpty() ? std::weak_ordering::greater : std::weak_ordering::less;
    for (qsizetype i = 0; i < std::min(one.suffix_.size(), other.suffix_.size()); ++i) {
        const auto result = SoftwareVersion::compare(one.suffix_.at(i), other.suffix_.at(i));
        if (std::is_neq(result))
            return result;
    }
    return one.suffix_.size() <=> other.suffix_.size();
}

} // namespace vellumline
