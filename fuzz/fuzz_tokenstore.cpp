// What the secret store and the legacy file give back: any bytes must end in a session or in none, and what
// was read as a session must survive being stored again.
#include "Vellumline/TokenStore.h"

#include <QCoroTask>
#include <QFile>
#include <QTemporaryDir>
#include <cstdlib>

using namespace vellumline;

namespace {

/// Answers every call at once from memory.
class MemoryKeychain : public Keychain {
  public:
    QCoro::Task<Found> copyMatching(QString, QString) override {
        Found found{item ? Status::success : Status::itemNotFound, item.value_or(QByteArray())};
        co_return std::move(found);
    }
    QCoro::Task<Status> update(QString, QString, QByteArray data) override {
        if (!item)
            co_return Status::itemNotFound;
        item = data;
        co_return Status::success;
    }
    QCoro::Task<Status> add(QString, QString, QByteArray data, Accessible) override {
        item = data;
        co_return Status::success;
    }
    QCoro::Task<Status> remove(QString, QString account) override {
        if (account == QLatin1String("session"))
            item.reset();
        co_return Status::success;
    }

    std::optional<QByteArray> item;
};

std::optional<AuthSession> read(Keychain& keychain, const QString& legacyFile) {
    TokenStore store(keychain, legacyFile);
    QCoro::Task<std::optional<AuthSession>> task = store.session();
    if (!task.isReady())
        std::abort();
    std::optional<AuthSession> result;
    task.then([&result](std::optional<AuthSession> session) { result = std::move(session); });
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const QTemporaryDir folder;
    static const QString legacyFile = folder.filePath(QStringLiteral("session.json"));
    const QByteArray data(reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(size));

    MemoryKeychain stored;
    stored.item = data;
    const std::optional<AuthSession> fromKeychain = read(stored, legacyFile);

    QFile file(legacyFile);
    if (!file.open(QIODevice::WriteOnly))
        std::abort();
    file.write(data);
    file.close();
    MemoryKeychain empty;
    const std::optional<AuthSession> fromFile = read(empty, legacyFile);

    if (fromKeychain != fromFile)
        std::abort();
    // A session is moved and its file removed; anything else stays.
    if (QFile::exists(legacyFile) == fromFile.has_value() || empty.item.has_value() != fromFile.has_value())
        std::abort();
    if (fromFile && read(empty, legacyFile) != fromFile)
        std::abort();
    QFile::remove(legacyFile);
    return 0;
}
