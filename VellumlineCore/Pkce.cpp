#include "VellumlineCore/Pkce.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <array>

namespace vellumline {

Pkce Pkce::generate() {
    std::array<quint32, 8> words{};
    // system() is the operating system's cryptographically secure generator; global() is not.
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return Pkce(base64URL(QByteArray(reinterpret_cast<const char*>(words.data()), sizeof(words))));
}

Pkce::Pkce(QString verifier) : verifier_(std::move(verifier)) {}

QString Pkce::challenge() const {
    return base64URL(QCryptographicHash::hash(verifier_.toUtf8(), QCryptographicHash::Sha256));
}

QString Pkce::base64URL(const QByteArray& bytes) {
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

} // namespace vellumline
