#include "Vellumline/Platform/Linux/AtSpiWire.h"

#include <QDBusVariant>
#include <QMap>
#include <QStringList>
#include <algorithm>

namespace vellumline::atspi {

namespace {

/// The first argument of a method return, when the whole return has that D-Bus signature.
std::optional<QVariant> only(const QDBusMessage& answer, const char* signature) {
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != QLatin1String(signature) ||
        answer.arguments().isEmpty())
        return std::nullopt;
    return answer.arguments().constFirst();
}

std::optional<QVariant> property(const QDBusMessage& answer) {
    const auto value = only(answer, "v");
    if (!value)
        return std::nullopt;
    return value->value<QDBusVariant>().variant();
}

Reference read(const QDBusArgument& argument) {
    Reference result;
    QDBusObjectPath path;
    argument.beginStructure();
    argument >> result.bus >> path;
    argument.endStructure();
    result.path = path.path();
    return result;
}

} // namespace

bool Reference::isNull() const {
    return bus.isEmpty() || path.isEmpty() || path == QStringLiteral("/org/a11y/atspi/null");
}

bool isMenuRole(uint role) {
    switch (static_cast<Role>(role)) {
    case Role::checkMenuItem:
    case Role::menu:
    case Role::menuBar:
    case Role::menuItem:
    case Role::popupMenu:
    case Role::radioMenuItem:
        return true;
    default:
        return false;
    }
}

std::optional<StateSet> joinedStates(const QList<uint>& words) {
    if (words.isEmpty())
        return std::nullopt;
    quint64 bits = words.at(0);
    if (words.size() > 1)
        bits |= static_cast<quint64>(words.at(1)) << 32;
    return StateSet(bits);
}

std::optional<Span> orderedSpan(int start, int end) {
    if (start == end)
        return Span{std::max(start, 0), std::max(start, 0)};
    if (start < 0 || end < 0)
        return std::nullopt;
    return Span{std::min(start, end), std::max(start, end)};
}

namespace {

qint64 codePointsOf(const QString& text) {
    return std::count_if(text.begin(), text.end(), [](QChar unit) { return !unit.isLowSurrogate(); });
}

} // namespace

bool isWholeText(const Span& span, const QString& text) {
    const qint64 length = qint64(span.end) - span.start;
    return length == codePointsOf(text) || length == text.size();
}

bool mayLackItsFirstCharacter(const Span& span, const QString& text) {
    return qint64(span.end) - span.start == codePointsOf(text) + 1;
}

std::optional<QList<Reference>> references(const QDBusMessage& answer, int most) {
    const auto value = only(answer, "a(so)");
    if (!value)
        return std::nullopt;
    const auto argument = value->value<QDBusArgument>();
    QList<Reference> result;
    argument.beginArray();
    while (!argument.atEnd() && result.size() < most)
        result.append(read(argument));
    argument.endArray();
    return result;
}

std::optional<QList<Reference>> focusedItems(const QDBusMessage& answer, int most) {
    // node, application, parent, index, child count, interfaces, name, role, description, states
    const auto value = only(answer, "a((so)(so)(so)iiassusau)");
    if (!value)
        return std::nullopt;
    const auto argument = value->value<QDBusArgument>();
    QList<Reference> result;
    argument.beginArray();
    for (int i = 0; !argument.atEnd() && i < most; ++i) {
        int index = 0;
        int childCount = 0;
        uint role = 0;
        QStringList interfaces;
        QString name;
        QString description;
        QList<uint> words;
        argument.beginStructure();
        const Reference node = read(argument);
        read(argument);
        read(argument);
        argument >> index >> childCount >> interfaces >> name >> role >> description >> words;
        argument.endStructure();
        const auto states = joinedStates(words);
        if (states && states->contains(State::focused))
            result.append(node);
    }
    argument.endArray(); // what was begun and not ended keeps the whole answer in memory
    return result;
}

std::optional<Reference> reference(const QDBusMessage& answer) {
    const auto value = only(answer, "(so)");
    if (!value)
        return std::nullopt;
    return read(value->value<QDBusArgument>());
}

std::optional<Reference> referenceProperty(const QDBusMessage& answer) {
    const auto value = property(answer);
    if (!value || value->metaType() != QMetaType::fromType<QDBusArgument>())
        return std::nullopt;
    const auto argument = value->value<QDBusArgument>();
    if (argument.currentSignature() != QStringLiteral("(so)"))
        return std::nullopt;
    return read(argument);
}

std::optional<StateSet> states(const QDBusMessage& answer) {
    const auto value = only(answer, "au");
    if (!value)
        return std::nullopt;
    const auto argument = value->value<QDBusArgument>();
    QList<uint> words;
    argument.beginArray();
    while (!argument.atEnd() && words.size() < 2) {
        uint word = 0;
        argument >> word;
        words.append(word);
    }
    argument.endArray();
    return joinedStates(words);
}

std::optional<uint> unsignedNumber(const QDBusMessage& answer) {
    const auto value = only(answer, "u");
    return value ? std::optional(value->toUInt()) : std::nullopt;
}

std::optional<int> number(const QDBusMessage& answer) {
    const auto value = only(answer, "i");
    return value ? std::optional(value->toInt()) : std::nullopt;
}

std::optional<int> numberProperty(const QDBusMessage& answer) {
    const auto value = property(answer);
    if (!value || value->metaType() != QMetaType::fromType<int>())
        return std::nullopt;
    return value->toInt();
}

std::optional<QString> text(const QDBusMessage& answer) {
    const auto value = only(answer, "s");
    return value ? std::optional(value->toString()) : std::nullopt;
}

std::optional<QString> textProperty(const QDBusMessage& answer) {
    const auto value = property(answer);
    if (!value || value->metaType() != QMetaType::fromType<QString>())
        return std::nullopt;
    return value->toString();
}

std::optional<QStringList> names(const QDBusMessage& answer, int most) {
    const auto value = only(answer, "as");
    if (!value)
        return std::nullopt;
    return value->toStringList().mid(0, most);
}

std::optional<Span> span(const QDBusMessage& answer) {
    // Two out arguments, not a structure.
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != QLatin1String("ii"))
        return std::nullopt;
    return orderedSpan(answer.arguments().at(0).toInt(), answer.arguments().at(1).toInt());
}

QDBusArgument& operator<<(QDBusArgument& argument, const MatchRule& rule) {
    constexpr int matchAll = 1; // ATSPI_Collection_MATCH_ALL: with nothing listed, no condition
    argument.beginStructure();
    argument << rule.stateWords << matchAll;
    argument.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    argument.endMap();
    argument << matchAll << QList<int>() << matchAll << QStringList() << matchAll << false;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, MatchRule& /*rule*/) {
    return argument; // never received
}

} // namespace vellumline::atspi
