#pragma once

#include <QByteArray>
#include <optional>

namespace vellumline {

/// The bytes that a Base64 text (RFC 4648 section 4, padded) stands for; nothing unless the text is the one
/// way to write exactly `size` bytes.
std::optional<QByteArray> decodeBase64(const QByteArray& text, qsizetype size);

} // namespace vellumline
