#pragma once

#include "Vellumline/Platform/Pasteboard.h"

#include <QByteArray>
#include <QIODevice>
#include <QList>
#include <optional>

namespace vellumline::guardianMessages {

// Between the program and its guardian, over a pair of sequenced-packet sockets: one byte a message. `hold`
// carries a file descriptor (SCM_RIGHTS) of a sealed memory file with the items; the guardian answers it with
// one byte once it has taken it.
enum class Message : char { hold = 'h', borrow = 'b', settle = 's', forget = 'f' };
inline constexpr char taken = 't';

/// The number of the guardian's end of the sockets in its process.
inline constexpr int socketDescriptor = 3;

QByteArray encode(const QList<PasteboardItem>& items);
/// Writes the same without a copy of it in between. False when the device did not take everything.
bool encode(const QList<PasteboardItem>& items, QIODevice& device);
/// Nothing when the bytes are not what encode() makes.
std::optional<QList<PasteboardItem>> decode(const QByteArray& bytes);

} // namespace vellumline::guardianMessages
