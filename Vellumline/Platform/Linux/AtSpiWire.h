#pragma once

#include <QDBusArgument>
#include <QDBusMessage>
#include <QList>
#include <QString>
#include <optional>

namespace vellumline::atspi {

// The wire of the AT-SPI 2 D-Bus protocol, as far as it is read here. Every answer comes from another program
// and is checked against its D-Bus signature before it is read; what does not fit is no answer.

/// A node of a program's tree: the program's unique bus name and an object path.
struct Reference {
    QString bus;
    QString path;

    /// Programs name "nothing" by this path.
    bool isNull() const;
    bool operator==(const Reference&) const = default;
};

/// AtspiStateType
enum class State {
    active = 1,
    defunct = 6,
    editable = 7,
    focusable = 11,
    focused = 12,
    showing = 25,
    visible = 30,
    managesDescendants = 31,
    readOnly = 43
};

/// AtspiRole
enum class Role : uint {
    checkMenuItem = 8,
    frame = 23,
    menu = 33,
    menuBar = 34,
    menuItem = 35,
    passwordText = 40,
    popupMenu = 41,
    radioMenuItem = 45,
    terminal = 60,
    paragraph = 73,
};
bool isMenuRole(uint role);

class StateSet {
  public:
    StateSet() = default;
    explicit StateSet(quint64 bits) : bits_(bits) {}
    bool contains(State state) const { return (bits_ >> static_cast<int>(state) & 1U) != 0; }

  private:
    quint64 bits_ = 0;
};

/// Joins the 32-bit words in which states travel; nothing when there are none.
std::optional<StateSet> joinedStates(const QList<uint>& words);
/// The two ends of a selection in order, both at least 0; nothing when they make no sense. Equal ends are an
/// empty selection, whatever they are: some programs say -1 twice.
struct Span {
    int start = 0;
    int end = 0;
    bool operator==(const Span&) const = default;
};
std::optional<Span> orderedSpan(int start, int end);
/// Whether a text fills its span: offsets count code points, in Qt programs UTF-16 units.
bool isWholeText(const Span& span, const QString& text);
/// Whether one character is missing. The toolkit's D-Bus drops a zero width no-break space (U+FEFF) that a
/// text begins with, as if it were the mark of its encoding. Only where characters are counted: Qt counts
/// UTF-16 units, and answers the question for one character with a byte of it (6.4).
bool mayLackItsFirstCharacter(const Span& span, const QString& text);

// Readers of method returns.
std::optional<QList<Reference>> references(const QDBusMessage& answer, int most);
/// The focused ones among the first `most` items of org.a11y.atspi.Cache.GetItems.
std::optional<QList<Reference>> focusedItems(const QDBusMessage& answer, int most);
std::optional<Reference> reference(const QDBusMessage& answer);
std::optional<Reference> referenceProperty(const QDBusMessage& answer);
std::optional<StateSet> states(const QDBusMessage& answer);
std::optional<uint> unsignedNumber(const QDBusMessage& answer);
std::optional<int> number(const QDBusMessage& answer);
std::optional<int> numberProperty(const QDBusMessage& answer);
std::optional<QString> text(const QDBusMessage& answer);
std::optional<QString> textProperty(const QDBusMessage& answer);
std::optional<QStringList> names(const QDBusMessage& answer, int most);
std::optional<Span> span(const QDBusMessage& answer);

/// Argument of org.a11y.atspi.Collection.GetMatches: all nodes with all of these states.
struct MatchRule {
    QList<int> stateWords;
};
QDBusArgument& operator<<(QDBusArgument& argument, const MatchRule& rule);
const QDBusArgument& operator>>(const QDBusArgument& argument, MatchRule& rule);

} // namespace vellumline::atspi

Q_DECLARE_METATYPE(vellumline::atspi::MatchRule)
