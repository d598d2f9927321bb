#pragma once

#include "VellumlineService/Service/Storage.h"

#include <mutex>

namespace vellumline {

/// The keys that sign access tokens and forms, kept in the database so that every process knows them. A key
/// signs for a period and verifies until what it signed last has expired; then it is thrown away.
/// Thread-safe.
class KeyRing {
  public:
    /// `validSeconds`: how long something signed is good at most.
    KeyRing(Storage& storage, qint64 periodSeconds, qint64 validSeconds);

    /// The key to sign with; nothing when there is none and the database fails.
    std::optional<SigningKey> current(qint64 now);
    Lookup<SigningKey> find(const QString& id, qint64 now);

  private:
    bool load();
    const SigningKey* newest(qint64 now) const;

    Storage& storage_;
    const qint64 periodSeconds_;
    const qint64 validSeconds_;
    std::mutex mutex_;
    QList<SigningKey> keys_;
    static constexpr int searchesASecond = 20;
    qint64 searchedAt_ = 0;
    int searches_ = 0;
    bool loaded_ = true; ///< Whether the database answered when it was asked last.
};

} // namespace vellumline
