#pragma once

#include <QString>
#include <QVariant>

namespace vellumline {

/// The user's settings, one flat namespace of keys. Reads and writes never fail: an unreadable store is an
/// empty one. Main thread only.
class UserDefaults {
  public:
    virtual ~UserDefaults() = default;

    virtual bool contains(const QString& key) const = 0;
    /// 0 when absent or not a number.
    virtual qint64 integer(const QString& key) const = 0;
    /// Absent (a null string) when nothing is stored.
    virtual QString string(const QString& key) const = 0;
    /// False when absent.
    virtual bool boolean(const QString& key) const = 0;
    virtual void set(const QString& key, const QVariant& value) = 0;
    virtual void remove(const QString& key) = 0;
};

} // namespace vellumline
