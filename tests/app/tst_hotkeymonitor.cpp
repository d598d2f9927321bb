#include "Vellumline/HotkeyMonitor.h"
#include "fakes/FakeHotkeys.h"

#include <QTest>

using namespace vellumline;

class HotkeyMonitorTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void fourBytesMakeOneNumber() {
        static_assert(fourCC("VLMN") == 0x564C4D4E);
        static_assert(fourCC("GURL") == 0x4755524C);
        static_assert(fourCC("----") == 0x2D2D2D2D);
        static_assert(fourCC("AB") == 0x4142);
        static_assert(fourCC("") == 0);
        static_assert(fourCC("VLMNX") == 0x564C4D4E);
        QCOMPARE(HotkeyMonitor::identity.signature, 0x564C4D4EU);
        QCOMPARE(HotkeyMonitor::identity.id, 1U);
    }

    void aPressRunsTheAction() {
        FakeHotkeys hotkeys;
        HotkeyMonitor monitor(hotkeys);
        int presses = 0;
        QVERIFY(monitor.registerBinding(HotkeyBinding::defaultBinding()));
        hotkeys.press(); // nothing to call yet
        monitor.onPress = [&] { ++presses; };
        hotkeys.press();
        QCOMPARE(presses, 1);
        QCOMPARE(hotkeys.lastIdentity(), HotkeyMonitor::identity);
    }

    void theOldShortcutIsReleasedBeforeTheNewOneIsTried() {
        FakeHotkeys hotkeys;
        HotkeyMonitor monitor(hotkeys);
        QVERIFY(monitor.registerBinding(HotkeyBinding::defaultBinding()));
        QVERIFY(monitor.registerBinding(HotkeyBinding::defaultBinding()));
        const QStringList expected = {
            QStringLiteral("installHandler"), QStringLiteral("registerHotKey(15, 0x1800)"),
            QStringLiteral("unregisterHotKey(15, 0x1800)"), QStringLiteral("registerHotKey(15, 0x1800)")};
        QCOMPARE(hotkeys.calls(), expected);
        QCOMPARE(hotkeys.registrationCount(), 1);
    }

    void aRefusedShortcutLeavesNone() {
        FakeHotkeys hotkeys;
        hotkeys.takeElsewhere(96, 0x1000);
        HotkeyMonitor monitor(hotkeys);
        QVERIFY(monitor.registerBinding(HotkeyBinding::defaultBinding()));
        QVERIFY(!monitor.registerBinding({96, HotkeyModifiers::control, QStringLiteral("F5")}));
        QCOMPARE(hotkeys.registrationCount(), 0);
    }

    void withoutAHandlerNothingIsRegistered() {
        FakeHotkeys hotkeys;
        hotkeys.refusesHandler = true;
        HotkeyMonitor monitor(hotkeys);
        QVERIFY(!monitor.registerBinding(HotkeyBinding::defaultBinding()));
        QCOMPARE(hotkeys.calls(), QStringList{QStringLiteral("installHandler")});
        hotkeys.refusesHandler = false;
        QVERIFY(monitor.registerBinding(HotkeyBinding::defaultBinding()));
        QCOMPARE(hotkeys.handlerInstallations(), 1);
    }

    void theShortcutGoesWithTheMonitor() {
        FakeHotkeys hotkeys;
        {
            HotkeyMonitor monitor(hotkeys);
            QVERIFY(monitor.registerBinding(HotkeyBinding::defaultBinding()));
        }
        QCOMPARE(hotkeys.registrationCount(), 0);
    }
};

QTEST_GUILESS_MAIN(HotkeyMonitorTest)
#include "tst_hotkeymonitor.moc"
