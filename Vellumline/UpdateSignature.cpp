#include "Vellumline/UpdateSignature.h"

#include "VellumlineCore/Base64.h"

#include <sodium.h>

namespace vellumline {

namespace {

const unsigned char* raw(const QByteArray& bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.constData());
}

} // namespace

UpdateKey::UpdateKey(QByteArray bytes) : bytes_(std::move(bytes)) {}

std::optional<UpdateKey> UpdateKey::fromBase64(const QByteArray& text) {
    std::optional<QByteArray> bytes = decodeBase64(text, crypto_sign_PUBLICKEYBYTES);
    if (!bytes)
        return std::nullopt;
    return UpdateKey(std::move(*bytes));
}

bool UpdateKey::verifies(const QByteArray& document, const QByteArray& signature) const {
    static const bool ready = sodium_init() >= 0;
    const std::optional<QByteArray> bytes = decodeBase64(signature.trimmed(), crypto_sign_BYTES);
    return ready && bytes &&
           crypto_sign_verify_detached(raw(*bytes), raw(document),
                                       static_cast<unsigned long long>(document.size()), raw(bytes_)) == 0;
}

} // namespace vellumline
