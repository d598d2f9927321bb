#pragma once

#include <QString>

namespace vellumline {

/// Hashes and checks passwords with Argon2id. Thread-safe.
class Passwords {
  public:
    /// `interactive`: 64 MiB and two passes (libsodium's advice for a sign-in); `least` is for tests.
    enum class Cost { interactive, least };
    static constexpr int shortest = 10;
    static constexpr int longest = 256;

    explicit Passwords(Cost cost = Cost::interactive);

    /// Empty when there is not enough memory.
    QString hash(const QString& password) const;
    /// Takes the same time whether there is a hash to compare with or not.
    bool matches(const QString& password, const QString& hash) const;
    /// A sentence when a password cannot be one.
    static QString problemWith(const QString& password, const QString& email);

  private:
    unsigned long long passes_;
    size_t memory_;
    QString nobodys_;
};

} // namespace vellumline
