#include "Vellumline/Platform/Linux/SecretServiceKeychain.h"

#include "Vellumline/AsyncResult.h"

#include <QAbstractEventDispatcher>
#include <QTimer>
#include <libsecret/secret.h>

namespace vellumline {

namespace {

template<class T> std::shared_ptr<T> adopt(T* object) {
    if (!object)
        return nullptr;
    return std::shared_ptr<T>(object, [](T* owned) { g_object_unref(owned); });
}

struct ErrorHolder {
    GError* error = nullptr;
    ErrorHolder() = default;
    ErrorHolder(const ErrorHolder&) = delete;
    ErrorHolder& operator=(const ErrorHolder&) = delete;
    ~ErrorHolder() { g_clear_error(&error); }
};

/// What an asynchronous GLib call hands to its callback. The callback always comes, cancelled or not.
using Ready = AsyncResult<std::shared_ptr<GAsyncResult>>;

gpointer awaiting(const Ready& ready) {
    return new Ready(ready);
}

void onReady(GObject*, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<Ready> ready(static_cast<Ready*>(data));
    ready->set(adopt(G_ASYNC_RESULT(g_object_ref(result))));
}

const SecretSchema& schema() {
    // Items are found whatever schema they were stored under: other programs, and earlier versions, name
    // theirs differently, and the two attributes say it all.
    static const SecretSchema result = [] {
        SecretSchema made = {};
        made.name = "com.kelthorne.vellumline.GenericPassword";
        made.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
        made.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        made.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return made;
    }();
    return result;
}

std::shared_ptr<SecretValue> secretValue(const QByteArray& data) {
    SecretValue* value = secret_value_new(data.constData(), data.size(), "text/plain");
    return std::shared_ptr<SecretValue>(value, [](SecretValue* owned) { secret_value_unref(owned); });
}

} // namespace

/// Turns GLib's main context while calls are under way, in a process whose Qt does not turn it itself
/// (QT_NO_GLIB, or a Qt built without GLib). Idle otherwise.
class SecretServiceKeychain::ContextPump {
  public:
    ContextPump() {
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, &timer_, []() {
            for (int turns = 0; turns < 100 && g_main_context_iteration(nullptr, FALSE); ++turns) {
            }
        });
    }
    void begin() {
        const QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
        if (++underWay_ == 1 && !(dispatcher && dispatcher->inherits("QEventDispatcherGlib")))
            timer_.start(std::chrono::milliseconds(2));
    }
    void end() {
        if (--underWay_ == 0)
            timer_.stop();
    }

  private:
    QTimer timer_;
    int underWay_ = 0;
};

/// One call. Lives until libsecret has called back for the last time, which can be after the deadline.
struct SecretServiceKeychain::Operation {
    Operation(std::shared_ptr<ContextPump> contextPump, const QString& serviceName,
              const QString& accountName, QByteArray bytes)
        : pump(std::move(contextPump)), service(serviceName.toUtf8()), account(accountName.toUtf8()),
          data(std::move(bytes)), cancellable(adopt(g_cancellable_new())) {
        pump->begin();
    }
    ~Operation() { pump->end(); }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    using Attributes = std::shared_ptr<GHashTable>;
    Attributes attributes() const {
        GHashTable* table = secret_attributes_build(&schema(), "service", service.constData(), "account",
                                                    account.constData(), nullptr);
        return Attributes(table, [](GHashTable* owned) { g_hash_table_unref(owned); });
    }

    std::shared_ptr<ContextPump> pump;
    QByteArray service;
    QByteArray account;
    QByteArray data;
    std::shared_ptr<GCancellable> cancellable;
    AsyncResult<Found> answer;
};

/// The steps of the operations; each sets the operation's answer.
struct SecretServiceKeychain::Work {
    using ServicePtr = std::shared_ptr<SecretService>;
    using CollectionPtr = std::shared_ptr<SecretCollection>;
    struct Located {
        Status status = Status::unavailable;
        std::shared_ptr<SecretItem> item;
    };
    struct Default {
        Status status = Status::unavailable; ///< success: there is one, and it is unlocked.
        CollectionPtr collection;
    };

    /// A connection of its own to the daemon for every call: calls are rare, and a shared one would go on
    /// speaking of a session that a restarted daemon does not know. Null when the daemon cannot be reached.
    static QCoro::Task<ServicePtr> open(OperationPtr operation, SecretServiceFlags flags) {
        Ready ready;
        secret_service_open(SECRET_TYPE_SERVICE, nullptr, flags, operation->cancellable.get(), onReady,
                            awaiting(ready));
        const std::shared_ptr<GAsyncResult> result = co_await ready;
        ServicePtr service = adopt(secret_service_open_finish(result.get(), nullptr));
        if (service) {
            // GLib's shared bus connection ends the process when the bus goes away, unless told otherwise.
            g_dbus_connection_set_exit_on_close(g_dbus_proxy_get_connection(G_DBUS_PROXY(service.get())),
                                                FALSE);
        }
        co_return std::move(service);
    }

    static QCoro::Task<Default> defaultCollection(OperationPtr operation, ServicePtr service) {
        Ready ready;
        secret_collection_for_alias(service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE,
                                    operation->cancellable.get(), onReady, awaiting(ready));
        const std::shared_ptr<GAsyncResult> result = co_await ready;
        ErrorHolder failure;
        Default found;
        found.collection = adopt(secret_collection_for_alias_finish(result.get(), &failure.error));
        if (failure.error)
            found.status = Status::unavailable;
        else if (!found.collection || secret_collection_get_locked(found.collection.get()))
            found.status = Status::locked;
        else
            found.status = Status::success;
        co_return std::move(found);
    }

    static QCoro::Task<Located> locate(OperationPtr operation, ServicePtr service, int flags) {
        const Operation::Attributes attributes = operation->attributes();
        Ready ready;
        secret_service_search(service.get(), &schema(), attributes.get(),
                              static_cast<SecretSearchFlags>(flags), operation->cancellable.get(), onReady,
                              awaiting(ready));
        const std::shared_ptr<GAsyncResult> result = co_await ready;
        Located located;
        ErrorHolder failure;
        GList* items = secret_service_search_finish(service.get(), result.get(), &failure.error);
        if (items)
            located.item = adopt(SECRET_ITEM(g_object_ref(items->data)));
        g_list_free_full(items, g_object_unref);
        if (failure.error)
            co_return std::move(located);
        if (located.item) {
            located.status = secret_item_get_locked(located.item.get()) ? Status::locked : Status::success;
            co_return std::move(located);
        }
        // GNOME Keyring finds nothing in a locked collection and says nothing of it: an empty answer means
        // "no such item" only when the default collection is open.
        const Default collection = co_await defaultCollection(operation, service);
        located.status = collection.status == Status::success ? Status::itemNotFound : collection.status;
        co_return std::move(located);
    }

    static QCoro::Task<void> copyMatching(OperationPtr operation) {
        Found found{Status::unavailable, {}};
        const ServicePtr service = co_await open(operation, SECRET_SERVICE_OPEN_SESSION);
        if (service) {
            const Located located = co_await locate(operation, service, SECRET_SEARCH_LOAD_SECRETS);
            found.status = located.status;
            if (located.status == Status::success) {
                SecretValue* value = secret_item_get_secret(located.item.get());
                if (value) {
                    gsize length = 0;
                    const gchar* bytes = secret_value_get(value, &length);
                    found.data = QByteArray(bytes, static_cast<qsizetype>(length));
                    secret_value_unref(value);
                } else {
                    found.status = Status::unavailable;
                }
            }
        }
        operation->answer.set(found);
    }

    static QCoro::Task<void> update(OperationPtr operation) {
        Found found{Status::unavailable, {}};
        const ServicePtr service = co_await open(operation, SECRET_SERVICE_OPEN_SESSION);
        if (service) {
            const Located located = co_await locate(operation, service, SECRET_SEARCH_NONE);
            found.status = located.status;
            if (located.status == Status::success) {
                const std::shared_ptr<SecretValue> value = secretValue(operation->data);
                Ready ready;
                secret_item_set_secret(located.item.get(), value.get(), operation->cancellable.get(), onReady,
                                       awaiting(ready));
                const std::shared_ptr<GAsyncResult> result = co_await ready;
                if (!secret_item_set_secret_finish(located.item.get(), result.get(), nullptr))
                    found.status = Status::unavailable;
            }
        }
        operation->answer.set(found);
    }

    static QCoro::Task<void> add(OperationPtr operation) {
        Found found{Status::unavailable, {}};
        const ServicePtr service = co_await open(operation, SECRET_SERVICE_OPEN_SESSION);
        if (service) {
            // Creating an item in a locked collection would ask for the password, and the prompt grabs the
            // keyboard.
            const Default target = co_await defaultCollection(operation, service);
            found.status = target.status;
            if (target.status == Status::success) {
                const std::shared_ptr<SecretValue> value = secretValue(operation->data);
                const Operation::Attributes attributes = operation->attributes();
                Ready ready;
                secret_item_create(target.collection.get(), &schema(), attributes.get(), "Vellumline session",
                                   value.get(), SECRET_ITEM_CREATE_REPLACE, operation->cancellable.get(),
                                   onReady, awaiting(ready));
                const std::shared_ptr<GAsyncResult> result = co_await ready;
                if (!adopt(secret_item_create_finish(result.get(), nullptr)))
                    found.status = Status::unavailable;
            }
        }
        operation->answer.set(found);
    }

    static QCoro::Task<void> remove(OperationPtr operation) {
        Found found{Status::unavailable, {}};
        const ServicePtr service = co_await open(operation, SECRET_SERVICE_NONE);
        if (service) {
            const Located located = co_await locate(operation, service, SECRET_SEARCH_NONE);
            found.status = located.status;
            if (located.status == Status::success) {
                const Operation::Attributes attributes = operation->attributes();
                Ready ready;
                secret_service_clear(service.get(), &schema(), attributes.get(), operation->cancellable.get(),
                                     onReady, awaiting(ready));
                const std::shared_ptr<GAsyncResult> result = co_await ready;
                if (!secret_service_clear_finish(service.get(), result.get(), nullptr))
                    found.status = Status::unavailable;
            }
        }
        operation->answer.set(found);
    }
};

SecretServiceKeychain::SecretServiceKeychain(std::chrono::milliseconds deadline)
    : deadline_(deadline), pump_(std::make_shared<ContextPump>()) {}

SecretServiceKeychain::~SecretServiceKeychain() = default;

SecretServiceKeychain::OperationPtr
SecretServiceKeychain::begin(const QString& service, const QString& account, const QByteArray& data) const {
    return std::make_shared<Operation>(pump_, service, account, data);
}

/// The operation's answer, or `unavailable` at the deadline.
QCoro::Task<Keychain::Found> SecretServiceKeychain::finish(OperationPtr operation) {
    // Cancelling alone would not do: libsecret calls back only when GLib has wound up the call.
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &timer, [operation]() {
        g_cancellable_cancel(operation->cancellable.get());
        operation->answer.set(Found{Status::unavailable, {}});
    });
    timer.start(deadline_);
    Found found = co_await operation->answer;
    co_return std::move(found);
}

QCoro::Task<Keychain::Found> SecretServiceKeychain::copyMatching(QString service, QString account) {
    const OperationPtr operation = begin(service, account, {});
    Work::copyMatching(operation);
    Found found = co_await finish(operation);
    co_return std::move(found);
}

QCoro::Task<Keychain::Status> SecretServiceKeychain::update(QString service, QString account,
                                                            QByteArray data) {
    const OperationPtr operation = begin(service, account, data);
    Work::update(operation);
    const Found found = co_await finish(operation);
    co_return found.status;
}

QCoro::Task<Keychain::Status> SecretServiceKeychain::add(QString service, QString account, QByteArray data,
                                                         Accessible) {
    const OperationPtr operation = begin(service, account, data);
    Work::add(operation);
    const Found found = co_await finish(operation);
    co_return found.status;
}

QCoro::Task<Keychain::Status> SecretServiceKeychain::remove(QString service, QString account) {
    const OperationPtr operation = begin(service, account, {});
    Work::remove(operation);
    const Found found = co_await finish(operation);
    co_return found.status;
}

} // namespace vellumline
