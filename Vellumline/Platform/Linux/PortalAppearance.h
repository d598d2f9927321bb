#pragma once

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QString>
#include <optional>

namespace vellumline {

/// What the user has told the desktop about colours, from the Settings portal (org.freedesktop.appearance,
/// versions 1 and 2). Main thread only; nothing on the bus is waited for, and without a portal there is
/// simply no preference.
class PortalAppearance : public QObject {
    Q_OBJECT
  public:
    enum class ColorScheme { noPreference, dark, light };

    explicit PortalAppearance(QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    /// Asks for the preferences now and listens for their changes from then on. Only a portal that runs
    /// already is asked: starting one takes seconds.
    void start();

    ColorScheme colorScheme() const { return colorScheme_; }
    bool wantsHighContrast() const { return highContrast_; }

  Q_SIGNALS:
    void changed();

  private:
    void ask(const QString& key);
    void take(const QString& key, const QVariant& value);

    QDBusConnection bus_;
    ColorScheme colorScheme_ = ColorScheme::noPreference;
    bool highContrast_ = false;

  private Q_SLOTS:
    void settingChanged(const QString& space, const QString& key, const QDBusVariant& value);
};

} // namespace vellumline
