#include "Vellumline/Platform/Linux/PortalAppearance.h"

#include <QDBusMessage>
#include <QSignalSpy>
#include <QTest>

using namespace vellumline;

/// The Settings portal, answering what the test says.
class SettingsPortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
  public:
    explicit SettingsPortal(QDBusConnection bus) : bus_(std::move(bus)) {
        bus_.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), this,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
    }
    bool comeUp() { return bus_.registerService(QStringLiteral("org.freedesktop.portal.Desktop")); }

    QVariant colorScheme = 0U;
    QVariant contrast = 0U;

  public Q_SLOTS:
    QDBusVariant Read(const QString& space, const QString& key) {
        if (space != QStringLiteral("org.freedesktop.appearance"))
            return {};
        // Wrapped twice, as the portal does.
        const QVariant value = key == QStringLiteral("color-scheme") ? colorScheme : contrast;
        return QDBusVariant(QVariant::fromValue(QDBusVariant(value)));
    }

  Q_SIGNALS:
    void SettingChanged(const QString& space, const QString& key, const QDBusVariant& value);

  private:
    QDBusConnection bus_;
};

class PortalAppearanceTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void withoutAPortalThereIsNoPreference() {
        PortalAppearance appearance(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("alone")));
        QSignalSpy changes(&appearance, &PortalAppearance::changed);
        appearance.start();
        QTest::qWait(100);
        QCOMPARE(changes.count(), 0);
        QCOMPARE(appearance.colorScheme(), PortalAppearance::ColorScheme::noPreference);
        QVERIFY(!appearance.wantsHighContrast());
    }

    void withoutABusThereIsNoPreference() {
        PortalAppearance appearance(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent"),
                                                                  QStringLiteral("nowhere")));
        appearance.start();
        QCOMPARE(appearance.colorScheme(), PortalAppearance::ColorScheme::noPreference);
    }

    void thePreferenceOfALatePortalIsTakenAndFollowed() {
        PortalAppearance appearance(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("program")));
        appearance.start();
        SettingsPortal portal(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal")));
        portal.colorScheme = 1U;
        QVERIFY(portal.comeUp());
        QTRY_COMPARE(appearance.colorScheme(), PortalAppearance::ColorScheme::dark);

        const auto change = [&](const char* space, const char* key, const QVariant& value) {
            Q_EMIT portal.SettingChanged(QString::fromLatin1(space), QString::fromLatin1(key),
                                         QDBusVariant(value));
        };
        change("org.freedesktop.appearance", "color-scheme", 2U);
        QTRY_COMPARE(appearance.colorScheme(), PortalAppearance::ColorScheme::light);
        change("org.freedesktop.appearance", "contrast", 1U);
        QTRY_VERIFY(appearance.wantsHighContrast());
        // What is not a number, not known or not meant for us changes nothing.
        change("org.freedesktop.appearance", "color-scheme", QStringLiteral("dark"));
        change("org.gnome.desktop.interface", "color-scheme", 1U);
        change("org.freedesktop.appearance", "contrast", 0U);
        QTRY_VERIFY(!appearance.wantsHighContrast());
        QCOMPARE(appearance.colorScheme(), PortalAppearance::ColorScheme::light);
        change("org.freedesktop.appearance", "color-scheme", 7U);
        QTRY_COMPARE(appearance.colorScheme(), PortalAppearance::ColorScheme::noPreference);
    }
};

QTEST_GUILESS_MAIN(PortalAppearanceTest)
#include "tst_portalappearance.moc"
