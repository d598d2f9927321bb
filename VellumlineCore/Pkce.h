#pragma once

#include <QByteArray>
#include <QString>

namespace vellumline {

/// A PKCE pair (RFC 7636, method S256): the kept verifier and the challenge derived from it.
class Pkce {
  public:
    /// A new pair from 32 bytes of the system's secure random generator.
    static Pkce generate();
    /// A pair from a kept verifier.
    explicit Pkce(QString verifier);

    const QString& verifier() const { return verifier_; }
    /// base64url of the SHA-256 of the verifier's UTF-8 bytes, 43 characters.
    QString challenge() const;

    /// Base64 with the URL-safe alphabet and no padding (RFC 4648 section 5).
    static QString base64URL(const QByteArray& bytes);

    bool operator==(const Pkce&) const = default;

  private:
    QString verifier_;
};

} // namespace vellumline
