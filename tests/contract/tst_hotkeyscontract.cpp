#include "Vellumline/Platform/X11/VirtualKeyCodes.h"
#include "Vellumline/Platform/X11/X11Hotkeys.h"
#include "desktop/X11TestClient.h"
#include "fakes/FakeHotkeys.h"

#include <QTest>

using namespace vellumline;

namespace {

constexpr std::uint32_t command = 0x100, shift = 0x200, option = 0x800, control = 0x1000;
constexpr std::uint16_t keyR = 15, keyT = 17, keyF5 = 96;

/// A hot-key service, the user's fingers, and another program.
class Bench {
  public:
    virtual ~Bench() = default;
    virtual Hotkeys& hotkeys() = 0;
    /// Presses and releases the combination; every handler that it calls has run when this returns.
    virtual void press(std::uint16_t keyCode, std::uint32_t carbonFlags) = 0;
    virtual void takeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) = 0;
    virtual void freeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) = 0;
};

class FakeBench final : public Bench {
  public:
    Hotkeys& hotkeys() override { return hotkeys_; }
    void press(std::uint16_t keyCode, std::uint32_t carbonFlags) override {
        hotkeys_.press(keyCode, carbonFlags);
    }
    void takeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) override {
        hotkeys_.takeElsewhere(keyCode, carbonFlags);
    }
    void freeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) override {
        hotkeys_.freeElsewhere(keyCode, carbonFlags);
    }

  private:
    FakeHotkeys hotkeys_;
};

class X11Bench final : public Bench {
  public:
    X11Bench()
        : connection_(X11Connection::open()), elsewhereConnection_(X11Connection::open()),
          hotkeys_(*connection_), elsewhere_(*elsewhereConnection_) {}
    Hotkeys& hotkeys() override { return hotkeys_; }
    void press(std::uint16_t keyCode, std::uint32_t carbonFlags) override {
        QList<std::uint8_t> keys;
        if ((carbonFlags & control) != 0)
            keys.append(XKey::control);
        if ((carbonFlags & option) != 0)
            keys.append(XKey::alt);
        if ((carbonFlags & shift) != 0)
            keys.append(XKey::shift);
        if ((carbonFlags & command) != 0)
            keys.append(XKey::super);
        keys.append(VirtualKeyCodes::xKeyCode(keyCode));
        user_.press(keys);
        handOut();
        user_.release(keys);
        handOut();
    }
    void takeElsewhere(std::uint16_t keyCode, std::uint32_t carbonFlags) override {
        held_ = elsewhere_.registerHotKey(keyCode, carbonFlags, {});
        QVERIFY(held_);
    }
    void freeElsewhere(std::uint16_t, std::uint32_t) override {
        elsewhere_.unregisterHotKey(*held_);
        const XcbReply<xcb_get_input_focus_reply_t> done(xcb_get_input_focus_reply(
            elsewhereConnection_->raw(), xcb_get_input_focus(elsewhereConnection_->raw()), nullptr));
    }

  private:
    void handOut() {
        const XcbReply<xcb_get_input_focus_reply_t> done(
            xcb_get_input_focus_reply(connection_->raw(), xcb_get_input_focus(connection_->raw()), nullptr));
        connection_->drain();
    }
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11Connection> elsewhereConnection_;
    X11Hotkeys hotkeys_;
    X11Hotkeys elsewhere_;
    std::optional<Hotkeys::Handle> held_;
    X11PhysicalKeyboard user_;
};

} // namespace

/// What every hot-key service does, the real one and the one of the tests.
class HotkeysContract : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Bench> bench_;
    int presses_ = 0;

    Hotkeys& hotkeys() { return bench_->hotkeys(); }
    static void bothServices() {
        QTest::addColumn<bool>("real");
        QTest::newRow("the fake") << false;
        QTest::newRow("X11") << true;
    }

  private Q_SLOTS:
    void initTestCase_data() { bothServices(); }
    void init() {
        QFETCH_GLOBAL(bool, real);
        presses_ = 0;
        bench_.reset();
        if (real)
            bench_ = std::make_unique<X11Bench>();
        else
            bench_ = std::make_unique<FakeBench>();
        QVERIFY(hotkeys().installHandler([this] { ++presses_; }));
    }
    void cleanup() { bench_.reset(); }

    void eachPressCallsTheHandlerOnce() {
        QVERIFY(hotkeys().registerHotKey(keyR, control | option, {0x564c4d4e, 1}));
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 2);
    }
    void everyModifierAndAFunctionKeyWork() {
        QVERIFY(hotkeys().registerHotKey(keyF5, control | option | shift | command, {}));
        bench_->press(keyF5, control | option | shift | command);
        QCOMPARE(presses_, 1);
    }
    void otherCombinationsDoNotCall() {
        QVERIFY(hotkeys().registerHotKey(keyR, control | option, {}));
        bench_->press(keyT, control | option);
        bench_->press(keyR, control | option | shift);
        bench_->press(keyR, option);
        bench_->press(keyR, 0);
        QCOMPARE(presses_, 0);
    }
    void nothingIsCalledBeforeARegistration() {
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 0);
    }
    void whatAnotherProgramHoldsIsRefused() {
        bench_->takeElsewhere(keyR, control | option);
        QVERIFY(!hotkeys().registerHotKey(keyR, control | option, {}));
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 0);
    }
    void theSameKeyWithOtherModifiersIsFree() {
        bench_->takeElsewhere(keyR, control | option);
        QVERIFY(hotkeys().registerHotKey(keyR, control | option | shift, {}));
    }
    void whatAnotherProgramGaveUpCanBeHad() {
        bench_->takeElsewhere(keyR, control | option);
        QVERIFY(!hotkeys().registerHotKey(keyR, control | option, {}));
        bench_->freeElsewhere(keyR, control | option);
        QVERIFY(hotkeys().registerHotKey(keyR, control | option, {}));
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
    }
    void aRefusalLeavesTheEarlierHotKeyWorking() {
        bench_->takeElsewhere(keyT, control | option);
        QVERIFY(hotkeys().registerHotKey(keyR, control | option, {}));
        QVERIFY(!hotkeys().registerHotKey(keyT, control | option, {}));
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
    }
    void aSecondRegistrationOfTheSameIsRefusedWhileTheFirstStands() {
        QVERIFY(hotkeys().registerHotKey(keyR, control | option, {}));
        QVERIFY(!hotkeys().registerHotKey(keyR, control | option, {}));
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
    }
    void releasedFirstTheSameCanBeRegisteredAgain() {
        const auto first = hotkeys().registerHotKey(keyR, control | option, {});
        QVERIFY(first);
        hotkeys().unregisterHotKey(*first);
        const auto second = hotkeys().registerHotKey(keyR, control | option, {});
        QVERIFY(second);
        QVERIFY(*second != *first);
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
    }
    void anUnregisteredHotKeyIsSilentAndFree() {
        const auto handle = hotkeys().registerHotKey(keyR, control | option, {});
        QVERIFY(handle);
        hotkeys().unregisterHotKey(*handle);
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 0);
        bench_->takeElsewhere(keyR, control | option);
    }
    void unregisteringWhatWasNeverRegisteredDoesNothing() {
        hotkeys().unregisterHotKey(4711);
        const auto handle = hotkeys().registerHotKey(keyR, control | option, {});
        QVERIFY(handle);
        hotkeys().unregisterHotKey(*handle + 1);
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
        hotkeys().unregisterHotKey(*handle);
        hotkeys().unregisterHotKey(*handle);
    }
    void aSecondHandlerReplacesTheFirst() {
        int second = 0;
        QVERIFY(hotkeys().installHandler([&second] { ++second; }));
        QVERIFY(hotkeys().registerHotKey(keyR, control | option, {}));
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 0);
        QCOMPARE(second, 1);
    }
    void theHandlerMayRegisterAnotherHotKey() {
        std::optional<Hotkeys::Handle> handle = hotkeys().registerHotKey(keyR, control | option, {});
        QVERIFY(handle);
        QVERIFY(hotkeys().installHandler([this, &handle] {
            ++presses_;
            hotkeys().unregisterHotKey(*handle);
            handle = hotkeys().registerHotKey(keyT, control | option, {});
        }));
        bench_->press(keyR, control | option);
        QVERIFY(handle);
        bench_->press(keyR, control | option);
        QCOMPARE(presses_, 1);
        bench_->press(keyT, control | option);
        QCOMPARE(presses_, 2);
    }
};

QTEST_GUILESS_MAIN(HotkeysContract)
#include "tst_hotkeyscontract.moc"
