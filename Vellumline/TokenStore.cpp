#include "Vellumline/TokenStore.h"

#include "Vellumline/AsyncResult.h"

#include <QFile>
#include <QFileInfo>
#include <utility>

namespace vellumline {

namespace {

const QString service = QStringLiteral("com.kelthorne.vellumline.session");
const QString account = QStringLiteral("session");
const QString legacyService = QStringLiteral("com.kelthorne.vellumline");
const QString legacyAccount = QStringLiteral("accessToken");

/// A session is a few kilobytes; a larger file is not one.
constexpr qint64 largestLegacyFile = qint64(1024) * 1024;

/// The store could not be asked, as opposed to: it answered.
bool isOutOfReach(Keychain::Status status) {
    return status == Keychain::Status::locked || status == Keychain::Status::unavailable;
}

} // namespace

struct TokenStore::State {
    Keychain& keychain;
    QString legacyFile;

    std::optional<AuthSession> cache;
    bool loaded = false;
    /// While not loaded: what the last read found outside the secret store, which could not be asked.
    std::optional<AuthSession> provisional = std::nullopt;
    std::optional<AsyncResult<bool>> loading = std::nullopt;
    /// Set when the last of the operations on the secret store is over; each waits for the one before it.
    std::optional<AsyncResult<bool>> last = std::nullopt;
    int writes = 0;
    /// The secret store was out of reach when it should have taken the cache's value.
    bool unsaved = false;
    /// The legacy file still holds a session that was taken over; it goes once the secret store has one.
    bool legacyFileLeft = false;

    /// A turn in the queue of operations; the next one begins when it is let go.
    class Turn {
      public:
        explicit Turn(AsyncResult<bool> done) : done_(std::move(done)) {}
        ~Turn() { done_.set(true); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        AsyncResult<bool> done_;
    };

    static QCoro::Task<void> load(std::shared_ptr<State> state, AsyncResult<bool> done);
    static QCoro::Task<std::optional<AuthSession>> migrateLegacyStorage(std::shared_ptr<State> state);
    static QCoro::Task<Keychain::Status> write(std::shared_ptr<State> state, AuthSession session);
    static QCoro::Task<Keychain::Status> erase(std::shared_ptr<State> state);
    static QCoro::Task<void> save(std::shared_ptr<State> state);
    std::optional<AuthSession> readLegacyFile() const;
};

TokenStore::TokenStore(Keychain& keychain, QString legacyFile)
    : state_(new State{keychain, std::move(legacyFile), std::nullopt}) {}

TokenStore::~TokenStore() = default;

QCoro::Task<std::optional<AuthSession>> TokenStore::session() {
    const std::shared_ptr<State> state = state_;
    if (!state->loaded) {
        if (!state->loading) {
            state->loading.emplace();
            State::load(state, *state->loading);
        }
        if (state->loading) {
            AsyncResult<bool> loading = *state->loading;
            co_await loading;
        }
    } else if (state->unsaved && state->writes == 0) {
        State::save(state);
    }
    // Read now: a session may have been set while this call was waiting.
    std::optional<AuthSession> result = state->loaded ? state->cache : state->provisional;
    co_return std::move(result);
}

QCoro::Task<void> TokenStore::setSession(std::optional<AuthSession> session) {
    const std::shared_ptr<State> state = state_;
    state->cache = std::move(session);
    state->loaded = true;
    state->provisional.reset();
    co_await State::save(state);
}

bool TokenStore::isWriting() const {
    return state_->writes > 0;
}

QCoro::Task<void> TokenStore::State::load(std::shared_ptr<State> state, AsyncResult<bool> done) {
    std::optional<AsyncResult<bool>> previous = state->last;
    AsyncResult<bool> over;
    state->last = over;
    std::optional<AuthSession> found;
    bool answered = true;
    {
        const Turn turn(over);
        if (previous)
            co_await *previous;
        const Keychain::Found item = co_await state->keychain.copyMatching(service, account);
        if (item.status == Keychain::Status::success)
            found = AuthSession::fromStoredJson(item.data);
        if (isOutOfReach(item.status)) {
            answered = false;
            found = state->readLegacyFile();
            state->legacyFileLeft = found.has_value();
        } else if (!found) {
            found = co_await migrateLegacyStorage(state);
        }
        // A session that was set meanwhile is newer, and its write is next in the queue.
        if (!state->loaded) {
            state->loaded = answered;
            (answered ? state->cache : state->provisional) = found;
        }
        state->loading.reset();
    }
    done.set(true);
}

QCoro::Task<std::optional<AuthSession>>
TokenStore::State::migrateLegacyStorage(std::shared_ptr<State> state) {
    co_await state->keychain.remove(legacyService, legacyAccount);
    std::optional<AuthSession> session = state->readLegacyFile();
    if (!session)
        co_return std::nullopt;
    ++state->writes;
    const Keychain::Status status = co_await write(state, *session);
    --state->writes;
    // Between the read and the write the store can go away or be locked: the file is then the only copy.
    state->unsaved = isOutOfReach(status);
    state->legacyFileLeft = state->unsaved;
    if (!state->unsaved)
        QFile::remove(state->legacyFile);
    co_return std::move(session);
}

QCoro::Task<Keychain::Status> TokenStore::State::write(std::shared_ptr<State> state, AuthSession session) {
    const QByteArray data = session.toStoredJson();
    const Keychain::Status updated = co_await state->keychain.update(service, account, data);
    if (updated != Keychain::Status::itemNotFound)
        co_return updated;
    const Keychain::Status added = co_await state->keychain.add(
        service, account, data, Keychain::Accessible::afterFirstUnlockThisDeviceOnly);
    co_return added;
}

QCoro::Task<Keychain::Status> TokenStore::State::erase(std::shared_ptr<State> state) {
    const Keychain::Status status = co_await state->keychain.remove(service, account);
    QFile::remove(state->legacyFile);
    co_return status;
}

/// Brings the secret store to the cache's value of this moment, after every operation that began before.
QCoro::Task<void> TokenStore::State::save(std::shared_ptr<State> state) {
    const std::optional<AuthSession> session = state->cache;
    std::optional<AsyncResult<bool>> previous = state->last;
    AsyncResult<bool> over;
    state->last = over;
    ++state->writes;
    const Turn turn(over);
    if (previous)
        co_await *previous;
    Keychain::Status status = Keychain::Status::success;
    if (session)
        status = co_await write(state, *session);
    else
        status = co_await erase(state);
    state->unsaved = isOutOfReach(status);
    if (!state->unsaved && std::exchange(state->legacyFileLeft, false))
        QFile::remove(state->legacyFile);
    --state->writes;
}

std::optional<AuthSession> TokenStore::State::readLegacyFile() const {
    // Opening anything but a plain file may wait for ever.
    const QFileInfo info(legacyFile);
    if (!info.isFile() || info.size() > largestLegacyFile)
        return std::nullopt;
    QFile file(legacyFile);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return AuthSession::fromStoredJson(file.read(largestLegacyFile));
}

} // namespace vellumline
