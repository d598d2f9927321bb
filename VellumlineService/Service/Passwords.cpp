#include "VellumlineService/Service/Passwords.h"

#include "VellumlineService/Service/Tokens.h"

#include <array>
#include <sodium.h>

namespace vellumline {

Passwords::Passwords(Cost cost)
    : passes_(cost == Cost::least ? crypto_pwhash_OPSLIMIT_MIN : crypto_pwhash_OPSLIMIT_INTERACTIVE),
      memory_(cost == Cost::least ? crypto_pwhash_MEMLIMIT_MIN : crypto_pwhash_MEMLIMIT_INTERACTIVE) {
    // Safe to call again, and from several threads (libsodium 1.0.11 and later).
    if (sodium_init() >= 0) {
        nobodys_ = hash(QString::fromLatin1(randomToken(32)));
    }
}

QString Passwords::hash(const QString& password) const {
    const QByteArray bytes = password.normalized(QString::NormalizationForm_C).toUtf8();
    std::array<char, crypto_pwhash_STRBYTES> made = {};
    if (crypto_pwhash_str_alg(made.data(), bytes.constData(), static_cast<unsigned long long>(bytes.size()),
                              passes_, memory_, crypto_pwhash_ALG_ARGON2ID13) != 0) {
        return {};
    }
    return QString::fromLatin1(made.data());
}

bool Passwords::matches(const QString& password, const QString& hash) const {
    const QByteArray bytes = password.normalized(QString::NormalizationForm_C).toUtf8();
    const bool real = !hash.isEmpty();
    const QByteArray compared = (real ? hash : nobodys_).toLatin1();
    const bool same = compared.size() < qsizetype{crypto_pwhash_STRBYTES} &&
                      crypto_pwhash_str_verify(compared.constData(), bytes.constData(),
                                               static_cast<unsigned long long>(bytes.size())) == 0;
    return same && real;
}

QString Passwords::problemWith(const QString& password, const QString& email) {
    if (password.size() < shortest) {
        return QStringLiteral("A password has at least %1 characters.").arg(shortest);
    }
    if (password.size() > longest) {
        return QStringLiteral("A password has at most %1 characters.").arg(longest);
    }
    if (password.compare(email, Qt::CaseInsensitive) == 0) {
        return QStringLiteral("The password must not be the e-mail address.");
    }
    return {};
}

} // namespace vellumline
