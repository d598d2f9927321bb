#pragma once

#include "Vellumline/Platform/Pasteboard.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <utility>

/// What the bytes of a selection transfer mean. Pure functions: everything here takes what another program
/// sent and must stand any of it.
namespace vellumline::clipboardFormats {

/// The atoms of a TARGETS property: none when it is not made of 32-bit units; without doubles; at most
/// maximumTargets.
QList<std::uint32_t> decodeAtoms(const QByteArray& bytes, int format);
inline constexpr qsizetype maximumTargets = 512;

/// The (target, property) pairs of a MULTIPLE request (ICCCM section 2.6.2); an odd atom at the end is left
/// out.
QList<std::pair<std::uint32_t, std::uint32_t>> decodeAtomPairs(const QByteArray& bytes, int format);

/// The lower bound of the size that an INCR property announces; 0 when it says nothing usable.
std::uint32_t decodeIncrementalSize(const QByteArray& bytes, int format);

/// Targets that only make sense while their owner owns the selection: requests of the protocol, and internal
/// ids and raw pointers with which a program recognises its own copy. Given back by somebody else they make
/// it paste what it copied last.
bool isProcessLocal(const QString& target);

/// X11 targets that can answer a type, best first; a platform type is its own only answer.
QStringList targetsForType(const QString& type);

/// Text as a selection owner sent it under that target and property type (encoding): UTF-8, or Latin-1 when
/// either says STRING; without the NUL that some owners count as part of the text.
QString decodeText(QByteArray bytes, const QString& target, const QString& encoding);

/// HTML as UTF-8: owners that send UTF-16 (with a byte order mark, or recognisable by its zero bytes) are
/// converted.
QByteArray htmlAsUtf8(const QByteArray& bytes);

/// The bytes of a type as the port promises them (UTF-8 for string and html), from what a target gave.
QByteArray normalized(const QByteArray& bytes, const QString& type, const QString& target,
                      const QString& encoding);

/// In which order to read targets so that a budget that ends takes the least: text, rich text, one image, the
/// rest. Returns indices into the list; `essential` is how many of them, from the front, are worth waiting
/// for.
struct ReadingOrder {
    QList<qsizetype> indices;
    qsizetype essential = 0;
};
ReadingOrder readingOrder(const QStringList& targets);

/// One target as this program offers it.
struct ServedTarget {
    QString target;
    QString encoding; ///< type of the property; empty: the target itself
    int format = 8;
    QByteArray data;
    bool operator==(const ServedTarget&) const = default;
};

/// What to offer for the items: X11 knows one item, so all of them together, the first to name a target wins.
/// Port types become the targets by which programs know them; rich text comes first because office programs
/// take the first format that they can read.
QList<ServedTarget> servedTargets(const QList<PasteboardItem>& items);

} // namespace vellumline::clipboardFormats
