#include "VellumlineService/Service/KeyRing.h"

namespace vellumline {

KeyRing::KeyRing(Storage& storage, qint64 periodSeconds, qint64 validSeconds)
    : storage_(storage), periodSeconds_(periodSeconds), validSeconds_(validSeconds) {}

bool KeyRing::load() {
    const auto keys = storage_.signingKeys();
    loaded_ = keys.has_value();
    if (keys) {
        keys_ = *keys;
    }
    return loaded_;
}

const SigningKey* KeyRing::newest(qint64 now) const {
    return !keys_.isEmpty() && keys_.first().createdAt > now - periodSeconds_ ? &keys_.first() : nullptr;
}

std::optional<SigningKey> KeyRing::current(qint64 now) {
    const std::scoped_lock lock(mutex_);
    if (const SigningKey* key = newest(now)) {
        return *key;
    }
    if (!load()) {
        return {};
    }
    if (!newest(now)) {
        // Two processes may both come here: then there are two new keys, and each verifies what the other
        // signs.
        const SigningKey made{QString::fromLatin1(randomToken(9)), randomToken(32), now};
        if (!storage_.addSigningKey(made, now - periodSeconds_ - 2 * validSeconds_)) {
            return {};
        }
        load();
    }
    const SigningKey* const key = newest(now);
    return key ? std::optional(*key) : std::nullopt;
}

Lookup<SigningKey> KeyRing::find(const QString& id, qint64 now) {
    if (id.isEmpty()) {
        return Lookup<SigningKey>::none();
    }
    const std::scoped_lock lock(mutex_);
    for (int round = 0; round < 2; ++round) {
        for (const SigningKey& key : std::as_const(keys_)) {
            if (key.id == id) {
                return key.createdAt + periodSeconds_ + validSeconds_ > now ? Lookup<SigningKey>(key)
                                                                            : Lookup<SigningKey>::none();
            }
        }
        // Another process may have made it. Invented names must not become queries without end.
        if (searchedAt_ != now) {
            searchedAt_ = now;
            searches_ = 0;
        }
        if (round > 0 || ++searches_ > searchesASecond) {
            break;
        }
        load();
    }
    // What the limit leaves unsearched is not known to be none while the last search failed.
    return loaded_ ? Lookup<SigningKey>::none() : Lookup<SigningKey>::failure();
}

} // namespace vellumline
