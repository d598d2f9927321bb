#include "Vellumline/Platform/Linux/SettingsDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

namespace vellumline {

namespace {

/// Qt gives a new settings file the permissions of the umask, and keeps those of one that is there.
void keepPrivate(const QString& path) {
    constexpr QFile::Permissions ours = QFile::ReadOwner | QFile::WriteOwner;
    constexpr QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                          QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    const QFileInfo info(path);
    if (info.isFile() && info.permissions() & others)
        QFile::setPermissions(path, ours);
    if (!info.exists() && QDir().mkpath(info.path()))
        QFile(path).open(QIODevice::WriteOnly | QIODevice::NewOnly, ours);
}

} // namespace

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
    keepPrivate(settings_->fileName());
    settings_->setValue(key, value);
    settings_->sync();
}

void SettingsDefaults::remove(const QString& key) {
    settings_->remove(key);
    settings_->sync();
}

} // namespace vellumline
