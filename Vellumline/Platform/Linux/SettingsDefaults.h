#pragma once

#include "VellumlineCore/UserDefaults.h"

#include <QString>
#include <memory>

class QSettings;

namespace vellumline {

/// Settings in one INI file, which is written at every change. A file that cannot be read is an empty one,
/// and one that cannot be written forgets the change at the end of the process.
class SettingsDefaults : public UserDefaults {
  public:
    /// vellumline/vellumline.conf in the user's configuration folder (XDG_CONFIG_HOME).
    static QString defaultFile();

    explicit SettingsDefaults(const QString& file = defaultFile());
    ~SettingsDefaults() override;

    bool contains(const QString& key) const override;
    qint64 integer(const QString& key) const override;
    QString string(const QString& key) const override;
    bool boolean(const QString& key) const override;
    void set(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;

  private:
    std::unique_ptr<QSettings> settings_;
};

} // namespace vellumline
