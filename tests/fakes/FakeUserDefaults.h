#pragma once

#include "VellumlineCore/UserDefaults.h"

#include <QHash>
#include <QStringList>

namespace vellumline {

/// Settings in memory.
class FakeUserDefaults : public UserDefaults {
  public:
    bool contains(const QString& key) const override;
    qint64 integer(const QString& key) const override;
    QString string(const QString& key) const override;
    bool boolean(const QString& key) const override;
    void set(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;

    QHash<QString, QVariant> values;
    /// Keys written or removed, in order.
    QStringList changes;
};

} // namespace vellumline
