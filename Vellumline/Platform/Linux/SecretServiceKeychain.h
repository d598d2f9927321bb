#pragma once

#include "Vellumline/Platform/Keychain.h"

#include <chrono>
#include <memory>

namespace vellumline {

/// Items of the desktop's Secret Service (org.freedesktop.secrets: GNOME Keyring, KWallet, KeePassXC), found
/// by the attributes "service" and "account". Nothing here asks the user anything: a locked collection, or a
/// missing default one, is `locked`. A daemon that is absent, hung or dies is `unavailable` (or `locked`,
/// when the bus starts another in its place), at the latest after `deadline`. Must outlive its calls.
class SecretServiceKeychain : public Keychain {
  public:
    explicit SecretServiceKeychain(std::chrono::milliseconds deadline = std::chrono::seconds(2));
    ~SecretServiceKeychain() override;

    QCoro::Task<Found> copyMatching(QString service, QString account) override;
    QCoro::Task<Status> update(QString service, QString account, QByteArray data) override;
    QCoro::Task<Status> add(QString service, QString account, QByteArray data,
                            Accessible accessible) override;
    QCoro::Task<Status> remove(QString service, QString account) override;

  private:
    class ContextPump;
    struct Operation;
    using OperationPtr = std::shared_ptr<Operation>;
    struct Work;

    QCoro::Task<Found> finish(OperationPtr operation);
    OperationPtr begin(const QString& service, const QString& account, const QByteArray& data) const;

    std::chrono::milliseconds deadline_;
    std::shared_ptr<ContextPump> pump_;
};

} // namespace vellumline
