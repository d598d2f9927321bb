#include "fakes/FakeUserDefaults.h"

namespace vellumline {

bool FakeUserDefaults::contains(const QString& key) const {
    return values.contains(key);
}

qint64 FakeUserDefaults::integer(const QString& key) const {
    return values.value(key).toLongLong();
}

QString FakeUserDefaults::string(const QString& key) const {
    return values.value(key).toString();
}

bool FakeUserDefaults::boolean(const QString& key) const {
    return values.value(key).toBool();
}

void FakeUserDefaults::set(const QString& key, const QVariant& value) {
    values.insert(key, value);
    changes.append(key);
}

void FakeUserDefaults::remove(const QString& key) {
    values.remove(key);
    changes.append(key);
}

} // namespace vellumline
