#include "Vellumline/Platform/Linux/SettingsDefaults.h"

#include <QSettings>
#include <QStandardPaths>

namespace vellumline {

QString SettingsDefaults::defaultFile() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/vellumline/vellumline.conf");
}

SettingsDefaults::SettingsDefaults(const QString& file)
    : settings_(std::make_unique<QSettings>(file, QSettings::IniFormat)) {}

SettingsDefaults::~SettingsDefaults() = default;

bool SettingsDefaults::contains(const QString& key) const {
    return settings_->contains(key);
}

qint64 SettingsDefaults::integer(const QString& key) const {
    return settings_->value(key).toLongLong();
}

QString SettingsDefaults::string(const QString& key) const {
    return settings_->value(key).toString();
}

bool SettingsDefaults::boolean(const QString& key) const {
    return settings_->value(key).toBool();
}

void SettingsDefaults::set(const QString& key, const QVariant& value) {
    settings_->setValue(key, value);
    settings_->sync();
}

void SettingsDefaults::remove(const QString& key) {
    settings_->remove(key);
    settings_->sync();
}

} // namespace vellumline
