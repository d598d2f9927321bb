#pragma once

#include <QByteArray>
#include <optional>

namespace vellumline {

/// The public key that the publisher of the program signs its update feed with (Ed25519, RFC 8032).
class UpdateKey {
  public:
    /// Nothing unless the text is the Base64 of 32 bytes.
    static std::optional<UpdateKey> fromBase64(const QByteArray& text);

    /// Whether `signature`, the Base64 of 64 bytes with white space around it or not, is this key's over
    /// exactly these bytes.
    bool verifies(const QByteArray& document, const QByteArray& signature) const;

  private:
    explicit UpdateKey(QByteArray bytes);
    QByteArray bytes_;
};

} // namespace vellumline
