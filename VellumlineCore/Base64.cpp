#include "VellumlineCore/Base64.h"

namespace vellumline {

std::optional<QByteArray> decodeBase64(const QByteArray& text, qsizetype size) {
    const auto decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    // Qt also takes a text without its padding, or with stray bits in its last letter.
    if (!decoded || decoded.decoded.size() != size || decoded.decoded.toBase64() != text)
        return std::nullopt;
    return decoded.decoded;
}

} // namespace vellumline
