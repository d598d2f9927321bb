#include "fakes/FakeKeychain.h"

#include <QMetaObject>

namespace vellumline {

QCoro::Task<Keychain::Found> FakeKeychain::copyMatching(QString service, QString account) {
    AsyncResult<Found> result;
    arrive("copyMatching", service, account, [this, result, service, account]() mutable {
        const std::optional<Status> refused = refusal(copyMatchingStatus);
        const auto item = items.constFind(Name(service, account));
        if (refused)
            result.set(Found{*refused, {}});
        else if (item == items.constEnd())
            result.set(Found{Status::itemNotFound, {}});
        else
            result.set(Found{Status::success, item->data});
    });
    Found found = co_await result;
    co_return found;
}

QCoro::Task<Keychain::Status> FakeKeychain::update(QString service, QString account, QByteArray data) {
    AsyncResult<Status> result;
    arrive("update", service, account, [this, result, service, account, data]() mutable {
        const std::optional<Status> refused = refusal(updateStatus);
        const auto item = items.find(Name(service, account));
        if (refused) {
            result.set(*refused);
        } else if (item == items.end()) {
            result.set(Status::itemNotFound);
        } else {
            item->data = data;
            result.set(Status::success);
        }
    });
    const Status status = co_await result;
    co_return status;
}

QCoro::Task<Keychain::Status> FakeKeychain::add(QString service, QString account, QByteArray data,
                                                Accessible accessible) {
    AsyncResult<Status> result;
    arrive("add", service, account, [this, result, service, account, data, accessible]() mutable {
        const std::optional<Status> refused = refusal(addStatus);
        if (!refused)
            items.insert(Name(service, account), Item{data, accessible});
        result.set(refused.value_or(Status::success));
    });
    const Status status = co_await result;
    co_return status;
}

QCoro::Task<Keychain::Status> FakeKeychain::remove(QString service, QString account) {
    AsyncResult<Status> result;
    arrive("remove", service, account, [this, result, service, account]() mutable {
        const std::optional<Status> refused = refusal(removeStatus);
        if (refused)
            result.set(*refused);
        else
            result.set(items.remove(Name(service, account)) ? Status::success : Status::itemNotFound);
    });
    const Status status = co_await result;
    co_return status;
}

int FakeKeychain::count(const QString& operation) const {
    int count = 0;
    for (const QString& call : calls)
        count += call.startsWith(operation + QLatin1Char(' ')) ? 1 : 0;
    return count;
}

void FakeKeychain::release() {
    held_ = false;
    while (releaseOne()) {
    }
}

bool FakeKeychain::releaseOne() {
    if (pending_.isEmpty())
        return false;
    const std::function<void()> answer = pending_.takeFirst();
    answer();
    return true;
}

void FakeKeychain::arrive(const char* operation, const QString& service, const QString& account,
                          std::function<void()> answer) {
    calls.append(QString::fromLatin1(operation) + QLatin1Char(' ') + service + QLatin1Char(' ') + account);
    if (held_)
        pending_.append(std::move(answer));
    else
        QMetaObject::invokeMethod(&context_, std::move(answer), Qt::QueuedConnection);
}

std::optional<Keychain::Status> FakeKeychain::refusal(const std::optional<Status>& instead) const {
    if (instead)
        return instead;
    if (condition == Status::locked || condition == Status::unavailable)
        return condition;
    return std::nullopt;
}

} // namespace vellumline
