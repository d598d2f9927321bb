#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QString>

namespace vellumline {

/// The system's secret store: generic-password items, each named by service and account. Main thread only;
/// calls suspend, never block, and end within the adapter's own deadline even when the store's daemon does
/// not answer.
class Keychain {
  public:
    virtual ~Keychain() = default;

    enum class Status {
        success,
        itemNotFound, ///< -25300 where statuses are numbers
        locked,      ///< the store is there but must be unlocked by the user first; reads are worth repeating
                     ///< later
        unavailable, ///< no store, or it did not answer in time
    };
    enum class Accessible { afterFirstUnlockThisDeviceOnly };
    struct Found {
        Status status = Status::itemNotFound;
        QByteArray data;
    };

    virtual QCoro::Task<Found> copyMatching(QString service, QString account) = 0;
    virtual QCoro::Task<Status> update(QString service, QString account, QByteArray data) = 0;
    virtual QCoro::Task<Status> add(QString service, QString account, QByteArray data,
                                    Accessible accessible) = 0;
    virtual QCoro::Task<Status> remove(QString service, QString account) = 0;
};

} // namespace vellumline
