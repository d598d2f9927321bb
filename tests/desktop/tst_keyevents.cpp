#include "Vellumline/Platform/X11/X11Hotkeys.h"
#include "Vellumline/Platform/X11/X11KeyEvents.h"
#include "desktop/X11TestClient.h"

#include <QTest>
#include <atomic>
#include <thread>

using namespace vellumline;

namespace {

constexpr std::uint32_t controlOption = 0x1800;
const QList<std::uint8_t> hotKey{XKey::control, XKey::alt, XKey::r};

QStringList pureStroke(int key, int state = 4) {
    return {QStringLiteral("press %1 state %2").arg(key).arg(state),
            QStringLiteral("release %1 state %2").arg(key).arg(state)};
}

/// The events of one key among all.
QStringList ofKey(const QStringList& events, int key) {
    return events.filter(QStringLiteral(" %1 state").arg(key));
}

} // namespace

/// What a plain program sees of the key strokes that are posted to it.
class KeyEventsTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11KeyEvents> keys_;
    std::unique_ptr<X11Hotkeys> hotkeys_;
    std::unique_ptr<X11KeyRecorder> front_;
    std::unique_ptr<X11PhysicalKeyboard> user_;

    /// Posts a stroke; it has reached the server when this returns.
    void post(std::uint16_t keyCode) {
        keys_->postCommand(keyCode);
        finish();
    }
    void finish() {
        const XcbReply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(connection_->raw(), xcb_get_input_focus(connection_->raw()), nullptr));
    }
    void addLayouts() {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<int>("group");
        QTest::addColumn<int>("copyKey");
        QTest::addColumn<int>("pasteKey");
        const auto row = [](const char* sentence, const char* layout, int group, int copyKey, int pasteKey,
                            const QStringList& more = {}) {
            QTest::newRow(sentence) << QStringList{QStringLiteral("-layout"), QString::fromLatin1(layout)} +
                                           more
                                    << group << copyKey << pasteKey;
        };
        row("us: c and v stand where the described codes say", "us", 0, 54, 55);
        row("de: c and v stand where the described codes say", "de", 0, 54, 55);
        row("fr: c and v stand where the described codes say", "fr", 0, 54, 55);
        row("dvorak: c stands on the i key, v on the full stop", "us", 0, 31, 60,
            {QStringLiteral("-variant"), QStringLiteral("dvorak")});
        row("ru alone has no c: its physical place", "ru", 0, 54, 55);
        row("us,ru in the second group: the place that gives c in the first", "us,ru", 1, 54, 55);
        row("dvorak,ru in the second group: the place that gives c in the first", "us,ru", 1, 31, 60,
            {QStringLiteral("-variant"), QStringLiteral("dvorak,")});
        row("ru,dvorak in the second group: the key that gives c there", "ru,us", 1, 31, 60,
            {QStringLiteral("-variant"), QStringLiteral(",dvorak")});
    }
    bool useLayout() {
        QFETCH(QStringList, layout);
        QFETCH(int, group);
        const bool set = setKeyboardLayout(layout);
        user_->lockGroup(static_cast<std::uint8_t>(group));
        return set && user_->group() == group;
    }
    void holdHotKeyAndCorrect(std::uint16_t keyCode, int& presses) {
        hotkeys_->installHandler([this, keyCode, &presses] {
            ++presses;
            post(keyCode);
        });
    }

  private Q_SLOTS:
    void init() {
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us")}));
        connection_ = X11Connection::open();
        QVERIFY(connection_);
        keys_ = std::make_unique<X11KeyEvents>(*connection_);
        hotkeys_ = std::make_unique<X11Hotkeys>(*connection_);
        front_ = std::make_unique<X11KeyRecorder>();
        user_ = std::make_unique<X11PhysicalKeyboard>();
        QVERIFY(user_->isThere());
        user_->lockGroup(0);
        QTRY_VERIFY(front_->isFocused());
        front_->takeEvents();
    }
    void cleanup() {
        // Whatever happened, the user's hands are off the keyboard now and nothing may be down.
        user_->release(user_->keysDown().isEmpty() ? QList<std::uint8_t>() : hotKey);
        user_->lockModifiers(0xff, false);
        QTRY_COMPARE(user_->keysDown(), QList<int>());
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
        front_.reset();
        hotkeys_.reset();
        keys_.reset();
        connection_.reset();
        user_.reset();
    }

    void copyAndPasteArePureInEveryLayout_data() { addLayouts(); }
    void copyAndPasteArePureInEveryLayout() {
        QVERIFY(useLayout());
        QFETCH(int, copyKey);
        QFETCH(int, pasteKey);
        post(8);
        QCOMPARE(front_->takeEvents(), QStringList({QStringLiteral("press 37 state 0")}) +
                                           pureStroke(copyKey) +
                                           QStringList({QStringLiteral("release 37 state 4")}));
        post(9);
        QCOMPARE(front_->takeEvents(), QStringList({QStringLiteral("press 37 state 0")}) +
                                           pureStroke(pasteKey) +
                                           QStringList({QStringLiteral("release 37 state 4")}));
    }

    void theHeldHotKeyNeverLeaksIntoTheStroke_data() { addLayouts(); }
    void theHeldHotKeyNeverLeaksIntoTheStroke() {
        QVERIFY(useLayout());
        QFETCH(int, copyKey);
        int presses = 0;
        holdHotKeyAndCorrect(8, presses);
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->press(hotKey);
        QTRY_COMPARE(presses, 1);
        const QStringList events = front_->takeEvents();
        QCOMPARE(ofKey(events, copyKey), pureStroke(copyKey));
        // The user still holds Control and Alt, and the program in front knows.
        QCOMPARE(user_->held(), QList<int>({27, 37, 64}));
        QCOMPARE(user_->keysDown(), QList<int>({37, 64}));
        user_->release(hotKey);
        QCOMPARE(user_->keysDown(), QList<int>());
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
        QVERIFY(ofKey(front_->takeEvents(), copyKey).isEmpty());
    }

    void keysThatTheUserLetGoOfBeforeTheStrokeStayUp_data() {
        QTest::addColumn<QList<std::uint8_t>>("released");
        QTest::newRow("only the letter") << QList<std::uint8_t>{XKey::r};
        QTest::newRow("only Control") << QList<std::uint8_t>{XKey::control};
        QTest::newRow("Control and Alt, not yet the letter") << QList<std::uint8_t>{XKey::control, XKey::alt};
        QTest::newRow("everything") << hotKey;
    }
    void keysThatTheUserLetGoOfBeforeTheStrokeStayUp() {
        QFETCH(QList<std::uint8_t>, released);
        int presses = 0;
        hotkeys_->installHandler([&presses] { ++presses; });
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->press(hotKey);
        QTRY_COMPARE(presses, 1);
        user_->release(released);
        post(8);
        QCOMPARE(ofKey(front_->takeEvents(), 54), pureStroke(54));
        QList<std::uint8_t> left = hotKey;
        left.removeIf([&released](std::uint8_t key) { return released.contains(key); });
        QList<int> modifiersLeft;
        for (const auto key : left) {
            if (key != XKey::r)
                modifiersLeft.append(key);
        }
        QCOMPARE(user_->keysDown(), modifiersLeft);
        user_->release(left);
        QCOMPARE(user_->keysDown(), QList<int>());
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
    }

    void aSecondStrokeWhileTheModifiersAreStillHeldIsPureToo() {
        int presses = 0;
        holdHotKeyAndCorrect(8, presses);
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->press(hotKey);
        QTRY_COMPARE(presses, 1);
        front_->takeEvents();
        post(9);
        QCOMPARE(ofKey(front_->takeEvents(), 55), pureStroke(55));
        QCOMPARE(user_->keysDown(), QList<int>({37, 64}));
        user_->release(XKey::alt);
        post(9);
        QCOMPARE(ofKey(front_->takeEvents(), 55), pureStroke(55));
        QCOMPARE(user_->keysDown(), QList<int>({37}));
        user_->release({XKey::control, XKey::r});
        QCOMPARE(user_->keysDown(), QList<int>());
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
    }

    void otherProgramsKeyStrokesWorkAfterTheUserLetGo() {
        // The server drops a synthetic press of a modifier that the XTEST keyboard already holds: one left
        // there would break every other program that types.
        int presses = 0;
        holdHotKeyAndCorrect(8, presses);
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->press(hotKey);
        QTRY_COMPARE(presses, 1);
        user_->release(hotKey);
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
        front_->takeEvents();
        for (const auto& [type, key] :
             {std::pair(XCB_KEY_PRESS, XKey::control), std::pair(XCB_KEY_PRESS, XKey::c),
              std::pair(XCB_KEY_RELEASE, XKey::c), std::pair(XCB_KEY_RELEASE, XKey::control)})
            xcb_test_fake_input(user_->raw(), static_cast<std::uint8_t>(type), key, 0, user_->root(), 0, 0,
                                0);
        user_->sync();
        QCOMPARE(ofKey(front_->takeEvents(), 54), pureStroke(54));
    }

    void aStrokeAfterAnotherProgramLeftControlDownHasControl() {
        xcb_test_fake_input(user_->raw(), XCB_KEY_PRESS, XKey::control, 0, user_->root(), 0, 0, 0);
        user_->sync();
        front_->takeEvents();
        post(8);
        QCOMPARE(ofKey(front_->takeEvents(), 54), pureStroke(54));
        QCOMPARE(user_->keysDown(), QList<int>());
    }

    void locksDoNotReachTheStrokeAndStayOnAfterwards_data() {
        QTest::addColumn<int>("locked");
        QTest::addColumn<int>("seen");
        QTest::newRow("Caps Lock") << 0x02 << 0x04;
        QTest::newRow("the third level") << 0x80 << 0x04;
        QTest::newRow("Shift, by sticky keys") << 0x01 << 0x04;
        QTest::newRow("Num Lock stays: it means nothing to a letter and its light would flicker")
            << 0x10 << 0x14;
        QTest::newRow("Caps Lock and Num Lock") << 0x12 << 0x14;
    }
    void locksDoNotReachTheStrokeAndStayOnAfterwards() {
        QFETCH(int, locked);
        QFETCH(int, seen);
        user_->lockModifiers(static_cast<std::uint8_t>(locked), true);
        post(8);
        QCOMPARE(ofKey(front_->takeEvents(), 54), pureStroke(54, seen));
        QCOMPARE(int(user_->lockedModifiers()), locked);
    }

    void aHeldCapsLockKeyIsNotToggled() {
        user_->press(XKey::capsLock);
        QCOMPARE(int(user_->lockedModifiers()), 0x02);
        front_->takeEvents();
        post(8);
        QCOMPARE(ofKey(front_->takeEvents(), 54), pureStroke(54));
        user_->release(XKey::capsLock);
        QCOMPARE(int(user_->lockedModifiers()), 0x02);
    }

    void swappedControlAndCapsLockAreUnderstood() {
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us"), QStringLiteral("-option"),
                                   QStringLiteral("ctrl:swapcaps")}));
        post(8);
        QCOMPARE(front_->takeEvents(), QStringList({QStringLiteral("press 66 state 0")}) + pureStroke(54) +
                                           QStringList({QStringLiteral("release 66 state 4")}));
    }

    void aKeyThatNoKeyboardHasIsSkippedSilently() {
        post(0xffff);
        QCOMPARE(front_->takeEvents(), QStringList());
        QVERIFY(!connection_->isBroken());
    }

    void aLayoutChangeIsNoticed() {
        post(8);
        QCOMPARE(ofKey(front_->takeEvents(), 54), pureStroke(54));
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us"),
                                   QStringLiteral("-variant"), QStringLiteral("dvorak")}));
        post(8);
        QCOMPARE(ofKey(front_->takeEvents(), 31), pureStroke(31));
    }

    void nothingSticksHoweverTheUserTypesMeanwhile() {
        // A user who presses and releases at random times, from another thread, while strokes are posted.
        std::atomic<bool> stop = false;
        std::thread fingers([&stop] {
            X11PhysicalKeyboard user;
            std::uint32_t random = 12345;
            const QList<std::uint8_t> keys{XKey::control, XKey::alt, XKey::shift, XKey::super};
            QList<bool> down{false, false, false, false};
            while (!stop) {
                random = random * 1664525 + 1013904223;
                const auto which = static_cast<qsizetype>(random >> 16 & 3);
                down[which] = !down[which];
                down[which] ? user.press(keys[which]) : user.release(keys[which]);
                std::this_thread::sleep_for(std::chrono::microseconds(random >> 20 & 0x1ff));
            }
            for (qsizetype i = 0; i < keys.size(); ++i) {
                if (down[i])
                    user.release(keys[i]);
            }
        });
        for (int i = 0; i < 300; ++i) {
            post(8);
            QTest::qWait(0);
        }
        stop = true;
        fingers.join();
        // The stroke's own questions read events too, which a loop hands out before it sleeps; the test's
        // never does.
        QTRY_VERIFY((connection_->drain(), user_->keysDown().isEmpty()));
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
        QCOMPARE(user_->held(), QList<int>());
    }

    void theProgramEndingWhileModifiersAreHeldLeavesNothingStuck() {
        user_->press({XKey::control, XKey::alt});
        post(8);
        QCOMPARE(user_->keysDown(), QList<int>({37, 64}));
        keys_.reset();
        finish();
        QTRY_COMPARE(user_->syntheticHeld(), QList<int>());
        user_->release({XKey::control, XKey::alt});
        QCOMPARE(user_->keysDown(), QList<int>());
    }

    void charactersAreThoseOfTheLayoutInUse() {
        QCOMPARE(keys_->characters(XKey::r), QStringLiteral("r"));
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("de")}));
        QCOMPARE(keys_->characters(52), QStringLiteral("y"));
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us,ru")}));
        user_->lockGroup(1);
        QCOMPARE(keys_->characters(XKey::r), QStringLiteral("к"));
        QCOMPARE(keys_->characters(36), QString()); // Return is no text
        QCOMPARE(keys_->characters(7), QString());
        QCOMPARE(keys_->characters(70000), QString());
    }

    void oneStrokeTakesLittleTime() {
        const auto was = user_->keysDown();
        user_->press({XKey::control, XKey::alt});
        QBENCHMARK {
            post(8);
        }
        user_->release({XKey::control, XKey::alt});
        QTRY_COMPARE(user_->keysDown(), was);
    }
};

QTEST_GUILESS_MAIN(KeyEventsTest)
#include "tst_keyevents.moc"
