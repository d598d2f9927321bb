#include "Vellumline/Platform/X11/X11Hotkeys.h"
#include "Vellumline/Platform/X11/X11KeyEvents.h"
#include "desktop/X11TestClient.h"

#include <QStandardPaths>
#include <QTest>
#include <sys/socket.h>

using namespace vellumline;

namespace {

constexpr std::uint32_t controlOption = 0x1800;
const QList<std::uint8_t> hotKey{XKey::control, XKey::alt, XKey::r};

/// True when another program got that grab.
bool grabs(X11TestClient& client, std::uint16_t modifiers, std::uint8_t key) {
    const auto cookie = xcb_grab_key_checked(client.raw(), 0, client.root(), modifiers, key,
                                             XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    const XcbReply<xcb_generic_error_t> error(xcb_request_check(client.raw(), cookie));
    return !error;
}

int grabKeyboard(X11TestClient& client) {
    const auto cookie = xcb_grab_keyboard(client.raw(), 0, client.root(), XCB_CURRENT_TIME,
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    const XcbReply<xcb_grab_keyboard_reply_t> reply(xcb_grab_keyboard_reply(client.raw(), cookie, nullptr));
    return reply->status;
}

} // namespace

/// Grabs, locks, layouts and other programs on a real X server.
class X11HotkeysTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11Hotkeys> hotkeys_;
    std::unique_ptr<X11KeyRecorder> front_;
    std::unique_ptr<X11PhysicalKeyboard> user_;
    int presses_ = 0;

    void settle() {
        const XcbReply<xcb_get_input_focus_reply_t> done(
            xcb_get_input_focus_reply(connection_->raw(), xcb_get_input_focus(connection_->raw()), nullptr));
        connection_->drain();
    }
    void pressAndRelease(const QList<std::uint8_t>& keys) {
        user_->press(keys);
        settle();
        user_->release(keys);
        settle();
    }

  private Q_SLOTS:
    void init() {
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us")}));
        connection_ = X11Connection::open();
        QVERIFY(connection_);
        hotkeys_ = std::make_unique<X11Hotkeys>(*connection_);
        presses_ = 0;
        QVERIFY(hotkeys_->installHandler([this] { ++presses_; }));
        front_ = std::make_unique<X11KeyRecorder>();
        user_ = std::make_unique<X11PhysicalKeyboard>();
        user_->lockGroup(0);
        QTRY_VERIFY(front_->isFocused());
        front_->takeEvents();
    }
    void cleanup() {
        user_->lockModifiers(0xff, false);
        user_->lockGroup(0);
        hotkeys_.reset();
        connection_.reset();
        QCOMPARE(user_->keysDown(), QList<int>());
    }

    void itFiresWhateverLocksAreOn_data() {
        QTest::addColumn<int>("locked");
        QTest::newRow("no lock") << 0;
        QTest::newRow("Caps Lock") << 0x02;
        QTest::newRow("Num Lock") << 0x10;
        QTest::newRow("Caps Lock and Num Lock") << 0x12;
    }
    void itFiresWhateverLocksAreOn() {
        QFETCH(int, locked);
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->lockModifiers(static_cast<std::uint8_t>(locked), true);
        pressAndRelease(hotKey);
        QCOMPARE(presses_, 1);
    }

    void itFiresAtItsPlaceInEveryLayout_data() {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<int>("group");
        QTest::newRow("fr") << QStringList{QStringLiteral("fr")} << 0;
        QTest::newRow("dvorak") << QStringList{QStringLiteral("us"), QStringLiteral("-variant"),
                                               QStringLiteral("dvorak")}
                                << 0;
        QTest::newRow("ru") << QStringList{QStringLiteral("ru")} << 0;
        QTest::newRow("us,ru in the second group") << QStringList{QStringLiteral("us,ru")} << 1;
    }
    void itFiresAtItsPlaceInEveryLayout() {
        QFETCH(QStringList, layout);
        QFETCH(int, group);
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        QVERIFY(setKeyboardLayout(QStringList{QStringLiteral("-layout")} + layout));
        user_->lockGroup(static_cast<std::uint8_t>(group));
        settle();
        pressAndRelease(hotKey);
        QCOMPARE(presses_, 1);
    }

    void swappedAltAndSuperAreFollowed() {
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us"), QStringLiteral("-option"),
                                   QStringLiteral("altwin:swap_alt_win")}));
        settle();
        pressAndRelease({XKey::control, XKey::super, XKey::r});
        QCOMPARE(presses_, 1);
        pressAndRelease({XKey::control, XKey::alt, XKey::r});
        QCOMPARE(presses_, 1);
    }

    void aHeldKeyFiresOnce() {
        QProcess::execute(QStringLiteral("xset"), {QStringLiteral("r"), QStringLiteral("rate"),
                                                   QStringLiteral("100"), QStringLiteral("50")});
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->press(hotKey);
        QTRY_COMPARE(presses_, 1);
        QTest::qWait(400); // fifteen repeats would have come
        settle();
        QCOMPARE(presses_, 1);
        QCOMPARE(front_->takeEvents().filter(QStringLiteral(" 27 ")), QStringList());
        user_->release(hotKey);
        settle();
        pressAndRelease(hotKey);
        QCOMPARE(presses_, 2);
    }

    void theProgramInFrontHasTheKeyboardBackWhenTheHandlerRuns() {
        int status = -1;
        hotkeys_->installHandler([this, &status] {
            // The handler may ask other programs about their focus, so the grab must be over by then.
            const XcbReply<xcb_get_input_focus_reply_t> done(xcb_get_input_focus_reply(
                connection_->raw(), xcb_get_input_focus(connection_->raw()), nullptr));
            X11TestClient other;
            status = grabKeyboard(other);
        });
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        pressAndRelease(hotKey);
        QCOMPARE(status, int(XCB_GRAB_STATUS_SUCCESS));
        QVERIFY(front_->isFocused());
    }

    void theProgramInFrontNeverSeesTheKeyItself() {
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        pressAndRelease(hotKey);
        QCOMPARE(front_->takeEvents().filter(QStringLiteral(" 27 ")), QStringList());
    }

    void aGrabOfOneLockStateElsewhereIsARefusalThatKeepsNothing() {
        X11TestClient other;
        QVERIFY(grabs(other, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_LOCK, XKey::r));
        QVERIFY(!hotkeys_->registerHotKey(15, controlOption, {}));
        X11TestClient third;
        QVERIFY(grabs(third, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, XKey::r));
        QVERIFY(grabs(third, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_2, XKey::r));
    }

    void everyLockStateIsTakenFromOthers() {
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        X11TestClient other;
        const int base = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1;
        for (const int locks : {0, 0x02, 0x10, 0x12})
            QVERIFY(!grabs(other, static_cast<std::uint16_t>(base | locks), XKey::r));
    }

    void aProgramThatEndsFreesItsHotKey() {
        auto other = std::make_unique<X11TestClient>();
        QVERIFY(grabs(*other, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, XKey::r));
        QVERIFY(!hotkeys_->registerHotKey(15, controlOption, {}));
        other->disconnect();
        std::optional<Hotkeys::Handle> handle;
        QTRY_VERIFY(handle || (handle = hotkeys_->registerHotKey(15, controlOption, {})));
        pressAndRelease(hotKey);
        QCOMPARE(presses_, 1);
    }

    void ourEndFreesOurs() {
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        hotkeys_.reset();
        settle();
        X11TestClient other;
        QVERIFY(grabs(other, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, XKey::r));
    }

    void theDesktopsEditingShortcutsAreTaken_data() {
        QTest::addColumn<int>("keyCode");
        QTest::addColumn<int>("flags");
        QTest::newRow("Control-C: every program would lose its copy, and our own would fire it")
            << 8 << 0x1000;
        QTest::newRow("Control-V") << 9 << 0x1000;
        QTest::newRow("Control-X") << 7 << 0x1000;
        QTest::newRow("Control-Z") << 6 << 0x1000;
        QTest::newRow("Control-Shift-Z") << 6 << 0x1200;
        QTest::newRow("Control-A") << 0 << 0x1000;
        QTest::newRow("Control-Y") << 16 << 0x1000;
        QTest::newRow("Control-S") << 1 << 0x1000;
        QTest::newRow("Control-Insert, the older copy") << 114 << 0x1000;
    }
    void theDesktopsEditingShortcutsAreTaken() {
        QFETCH(int, keyCode);
        QFETCH(int, flags);
        QVERIFY(!hotkeys_->registerHotKey(static_cast<std::uint16_t>(keyCode),
                                          static_cast<std::uint32_t>(flags), {}));
    }
    void inDvorakTheKeyThatGivesVIsTakenToo() {
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us"),
                                   QStringLiteral("-variant"), QStringLiteral("dvorak")}));
        settle();
        QVERIFY(!hotkeys_->registerHotKey(47, 0x1000, {})); // the full stop's place
    }
    void otherCombinationsWithControlAreNotEditing() {
        QVERIFY(hotkeys_->registerHotKey(96, 0x1000, {}));        // Control-F5
        QVERIFY(hotkeys_->registerHotKey(8, 0x1000 | 0x800, {})); // Control-Option-C
        QVERIFY(hotkeys_->registerHotKey(8, 0x100, {}));          // Super-C
    }
    void aPlaceThatNoKeyboardHasIsRefused() { QVERIFY(!hotkeys_->registerHotKey(0x7f0, controlOption, {})); }

    void theServersEndIsSilent() {
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        ::shutdown(xcb_get_file_descriptor(connection_->raw()), 2);
        connection_->drain();
        QVERIFY(connection_->isBroken());
        QVERIFY(!hotkeys_->registerHotKey(17, controlOption, {}));
        QVERIFY(!hotkeys_->installHandler([] {}));
        X11KeyEvents keys(*connection_);
        keys.postCommand(8);
        const X11SecureInput secure(*connection_);
        QVERIFY(!secure.isSecureEventInputEnabled());
    }

    // Secure input

    void nobodyHoldsTheKeyboard() {
        const X11SecureInput secure(*connection_);
        QVERIFY(!secure.isSecureEventInputEnabled());
    }
    void askingDisturbsNobody() {
        const X11SecureInput secure(*connection_);
        front_->takeEvents();
        for (int i = 0; i < 3; ++i)
            QVERIFY(!secure.isSecureEventInputEnabled());
        QCOMPARE(front_->takeEvents(true), QStringList());
        X11TestClient other;
        QCOMPARE(grabKeyboard(other), int(XCB_GRAB_STATUS_SUCCESS)); // we hold nothing
        front_->takeEvents(true);
        QVERIFY(secure.isSecureEventInputEnabled());
        QCOMPARE(front_->takeEvents(true), QStringList());
    }
    void anotherProgramsGrabIsSecureInputUntilItEnds() {
        const X11SecureInput secure(*connection_);
        X11TestClient other;
        QCOMPARE(grabKeyboard(other), int(XCB_GRAB_STATUS_SUCCESS));
        QVERIFY(secure.isSecureEventInputEnabled());
        xcb_ungrab_keyboard(other.raw(), XCB_CURRENT_TIME);
        other.sync();
        QVERIFY(!secure.isSecureEventInputEnabled());
        QCOMPARE(grabKeyboard(other), int(XCB_GRAB_STATUS_SUCCESS));
        other.disconnect();
        QTRY_VERIFY(!secure.isSecureEventInputEnabled());
    }
    void aGrabThroughTheInputExtensionCountsToo() {
        const X11SecureInput secure(*connection_);
        X11PhysicalKeyboard other; // has spoken XInput 2 already
        constexpr std::uint16_t masterKeyboard = 3;
        const std::uint32_t mask = XCB_INPUT_XI_EVENT_MASK_KEY_PRESS;
        const auto cookie =
            xcb_input_xi_grab_device(other.raw(), other.root(), XCB_CURRENT_TIME, XCB_NONE, masterKeyboard,
                                     XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, 0, 1, &mask);
        const XcbReply<xcb_input_xi_grab_device_reply_t> reply(
            xcb_input_xi_grab_device_reply(other.raw(), cookie, nullptr));
        QVERIFY(reply);
        QCOMPARE(int(reply->status), int(XCB_GRAB_STATUS_SUCCESS));
        QVERIFY(secure.isSecureEventInputEnabled());
    }
    void ourOwnHotKeyIsNotSecureInput() {
        const X11SecureInput secure(*connection_);
        bool during = true;
        hotkeys_->installHandler([&secure, &during] { during = secure.isSecureEventInputEnabled(); });
        QVERIFY(hotkeys_->registerHotKey(15, controlOption, {}));
        user_->press(hotKey);
        settle();
        QVERIFY(!during);
        QVERIFY(!secure.isSecureEventInputEnabled());
        user_->release(hotKey);
        // Nor is a grab that is active on our connection.
        const auto cookie = xcb_grab_keyboard(connection_->raw(), 0, connection_->rootWindow(),
                                              XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        const XcbReply<xcb_grab_keyboard_reply_t> reply(
            xcb_grab_keyboard_reply(connection_->raw(), cookie, nullptr));
        QCOMPARE(int(reply->status), int(XCB_GRAB_STATUS_SUCCESS));
        QVERIFY(!secure.isSecureEventInputEnabled());
        xcb_ungrab_keyboard(connection_->raw(), XCB_CURRENT_TIME);
        settle();
    }
    void theKeyringsPasswordPromptIsSecureInput() {
        if (QStandardPaths::findExecutable(QStringLiteral("secret-tool")).isEmpty())
            QSKIP("secret-tool is not installed");
        const X11SecureInput secure(*connection_);
        QProcess::execute(QStringLiteral("gdbus"),
                          {QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--dest"),
                           QStringLiteral("org.freedesktop.secrets"), QStringLiteral("--object-path"),
                           QStringLiteral("/org/freedesktop/secrets"), QStringLiteral("--method"),
                           QStringLiteral("org.freedesktop.Secret.Service.Lock"),
                           QStringLiteral("['/org/freedesktop/secrets/collection/login']")});
        QProcess store;
        store.start(QStringLiteral("secret-tool"), {QStringLiteral("store"), QStringLiteral("--label=test"),
                                                    QStringLiteral("name"), QStringLiteral("value")});
        store.write("secret");
        store.closeWriteChannel();
        QTRY_VERIFY_WITH_TIMEOUT(secure.isSecureEventInputEnabled(), 15000);
        // Escape closes the prompt, wherever it stands: it holds the keyboard.
        pressAndRelease({9});
        QTRY_VERIFY_WITH_TIMEOUT(!secure.isSecureEventInputEnabled(), 15000);
        store.kill();
        store.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(X11HotkeysTest)
#include "tst_x11hotkeys.moc"
