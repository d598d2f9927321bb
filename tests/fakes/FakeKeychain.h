#pragma once

#include "Vellumline/AsyncResult.h"
#include "Vellumline/Platform/Keychain.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QStringList>
#include <functional>
#include <optional>

namespace vellumline {

/// A secret store in memory. Every call is answered on a later turn of the main loop, or, while held, when
/// the test releases it; it takes effect when it is answered.
class FakeKeychain : public Keychain {
  public:
    using Name = QPair<QString, QString>; ///< service, account
    struct Item {
        QByteArray data;
        Accessible accessible = Accessible::afterFirstUnlockThisDeviceOnly;
    };

    QCoro::Task<Found> copyMatching(QString service, QString account) override;
    QCoro::Task<Status> update(QString service, QString account, QByteArray data) override;
    QCoro::Task<Status> add(QString service, QString account, QByteArray data,
                            Accessible accessible) override;
    QCoro::Task<Status> remove(QString service, QString account) override;

    QHash<Name, Item> items;
    /// locked and unavailable are answered to every call; anything else means a working store.
    Status condition = Status::success;
    /// When set, answered to the calls of that operation in place of carrying them out.
    std::optional<Status> copyMatchingStatus, updateStatus, addStatus, removeStatus;

    /// Every call in the order of arrival: operation, service and account, separated by one space.
    QStringList calls;
    /// How many calls of an operation came, by its name.
    int count(const QString& operation) const;

    /// From now on calls stay pending.
    void hold() { held_ = true; }
    /// Answers the pending calls in order, and later calls again by themselves.
    void release();
    /// Answers the oldest pending call; false when there is none. Later calls stay pending.
    bool releaseOne();
    int pending() const { return static_cast<int>(pending_.size()); }

  private:
    void arrive(const char* operation, const QString& service, const QString& account,
                std::function<void()> answer);
    std::optional<Status> refusal(const std::optional<Status>& instead) const;

    QObject context_; // what is still to be answered goes away with the keychain
    bool held_ = false;
    QList<std::function<void()>> pending_;
};

} // namespace vellumline
