#pragma once

#include <QList>
#include <QString>
#include <compare>
#include <optional>

namespace vellumline {

/// A version of the program: dotted numbers, and for what comes before a release a suffix after a dash, as in
/// "1.4.0-beta.2".
class SoftwareVersion {
  public:
    static constexpr qsizetype longestText = 64;

    /// Nothing when the text is not such a version.
    static std::optional<SoftwareVersion> parse(const QString& text);

    /// As it was written.
    const QString& text() const { return text_; }

    /// Number by number, a missing one as zero; what has a suffix comes before the release of the same
    /// numbers. Suffixes compare by their numbers and words in turn: a number before a word, the shorter
    /// before the longer, letters without regard to case. Two that are written differently may be equal.
    friend std::weak_ordering operator<=>(const SoftwareVersion& one, const SoftwareVersion& other);
    friend bool operator==(const SoftwareVersion& one, const SoftwareVersion& other) {
        return std::is_eq(one <=> other);
    }

  private:
    struct SuffixPart {
        std::optional<quint32> number;
        QString word; ///< when it is no number
    };
    static std::weak_ordering compare(const SuffixPart& one, const SuffixPart& other);

    QString text_;
    QList<quint32> numbers_;
    QList<SuffixPart> suffix_;
};

} // namespace vellumline
