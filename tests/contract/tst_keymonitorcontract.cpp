#include "Vellumline/Platform/Linux/QtKeyMonitor.h"
#include "Vellumline/Platform/X11/VirtualKeyCodes.h"
#include "fakes/FakeKeyMonitor.h"

#include <QApplication>
#include <QKeyEvent>
#include <QTest>
#include <QWidget>
#include <QtTest/qtestspontaneevent.h>

using namespace vellumline;

namespace {

using Handling = KeyMonitor::Handling;

class Bench {
  public:
    virtual ~Bench() = default;
    virtual KeyMonitor& monitor() = 0;
    /// The user presses and releases a key in a window of this program; true when the focused control saw
    /// the press.
    virtual bool press(const KeyPress& key) = 0;
};

class FakeBench final : public Bench {
  public:
    KeyMonitor& monitor() override { return monitor_; }
    bool press(const KeyPress& key) override { return monitor_.press(key) == Handling::passOn; }

  private:
    FakeKeyMonitor monitor_;
};

class Control final : public QWidget {
  public:
    int presses = 0;

  protected:
    void keyPressEvent(QKeyEvent*) override { ++presses; }
};

class QtBench final : public Bench {
  public:
    QtBench() : monitor_(VirtualKeyCodes::virtualKeyCode, [this](std::uint32_t) { return characters_; }) {}
    KeyMonitor& monitor() override { return monitor_; }
    bool press(const KeyPress& key) override {
        characters_ = key.characters;
        Qt::KeyboardModifiers modifiers;
        modifiers.setFlag(Qt::ControlModifier, key.modifiers.contains(HotkeyModifiers::control));
        modifiers.setFlag(Qt::AltModifier, key.modifiers.contains(HotkeyModifiers::option));
        modifiers.setFlag(Qt::ShiftModifier, key.modifiers.contains(HotkeyModifiers::shift));
        modifiers.setFlag(Qt::MetaModifier, key.modifiers.contains(HotkeyModifiers::command));
        const int code = key.characters.isEmpty() ? 0 : key.characters.toUpper().at(0).unicode();
        const int before = control_.presses;
        ++time_;
        // As the window system's plugin does: the question first, then the press, then the release.
        for (const auto type : {QEvent::ShortcutOverride, QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, code, modifiers, VirtualKeyCodes::xKeyCode(key.keyCode), 0, 0,
                            key.characters);
            event.setTimestamp(time_);
            // From the window system; for others Qt makes up a question of its own.
            QSpontaneKeyEvent::setSpontaneous(&event);
            event.setAccepted(type != QEvent::ShortcutOverride);
            qApp->notify(&control_, &event); // not sendEvent, which takes the origin mark away
        }
        return control_.presses != before;
    }

  private:
    QString characters_;
    QtKeyMonitor monitor_;
    Control control_;
    std::uint64_t time_ = 0;
};

const KeyPress controlOptionR{15, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("r")};
const KeyPress plainS{1, {}, QStringLiteral("s")};

} // namespace

/// What every key monitor does, the real one and the one of the tests.
class KeyMonitorContract : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Bench> bench_;
    QList<KeyPress> seen_;

    KeyMonitor::Handler answer(Handling handling) {
        return [this, handling](const KeyPress& key) {
            seen_.append(key);
            return handling;
        };
    }

  private Q_SLOTS:
    void initTestCase_data() {
        QTest::addColumn<bool>("real");
        QTest::newRow("the fake") << false;
        QTest::newRow("Qt") << true;
    }
    void init() {
        QFETCH_GLOBAL(bool, real);
        seen_.clear();
        bench_.reset();
        if (real)
            bench_ = std::make_unique<QtBench>();
        else
            bench_ = std::make_unique<FakeBench>();
    }
    void cleanup() { bench_.reset(); }

    void withoutAMonitorControlsSeeTheirKeys() { QVERIFY(bench_->press(plainS)); }
    void aMonitorSeesEachPressOnceWithKeyModifiersAndText() {
        QVERIFY(bench_->monitor().addLocalMonitor(answer(Handling::passOn)));
        QVERIFY(bench_->press(controlOptionR));
        QVERIFY(bench_->press(plainS));
        QCOMPARE(seen_, QList<KeyPress>({controlOptionR, plainS}));
    }
    void everyModifierIsTold() {
        QVERIFY(bench_->monitor().addLocalMonitor(answer(Handling::swallow)));
        const KeyPress all{96,
                           HotkeyModifiers::control | HotkeyModifiers::option | HotkeyModifiers::shift |
                               HotkeyModifiers::command,
                           QStringLiteral("x")};
        bench_->press(all);
        QCOMPARE(seen_, QList<KeyPress>({all}));
    }
    void aSwallowedPressReachesNoControl() {
        QVERIFY(bench_->monitor().addLocalMonitor(answer(Handling::swallow)));
        QVERIFY(!bench_->press(controlOptionR));
        QVERIFY(!bench_->press(plainS));
        QCOMPARE(seen_.size(), 2);
    }
    void aRemovedMonitorSeesNothing() {
        const auto token = bench_->monitor().addLocalMonitor(answer(Handling::swallow));
        QVERIFY(token);
        bench_->monitor().removeMonitor(*token);
        QVERIFY(bench_->press(plainS));
        QVERIFY(seen_.isEmpty());
    }
    void removingTwiceOrTheUnknownDoesNothing() {
        const auto token = bench_->monitor().addLocalMonitor(answer(Handling::swallow));
        QVERIFY(token);
        bench_->monitor().removeMonitor(*token + 1);
        QVERIFY(!bench_->press(plainS));
        bench_->monitor().removeMonitor(*token);
        bench_->monitor().removeMonitor(*token);
        QVERIFY(bench_->press(plainS));
    }
    void aMonitorMayRemoveItselfWhileItHandlesAPress() {
        std::optional<KeyMonitor::Token> token;
        token = bench_->monitor().addLocalMonitor([this, &token](const KeyPress& key) {
            seen_.append(key);
            bench_->monitor().removeMonitor(*token);
            return Handling::swallow;
        });
        QVERIFY(token);
        QVERIFY(!bench_->press(controlOptionR));
        QVERIFY(bench_->press(controlOptionR));
        QCOMPARE(seen_.size(), 1);
    }
    void theFirstMonitorThatSwallowsEndsIt() {
        QVERIFY(bench_->monitor().addLocalMonitor(answer(Handling::swallow)));
        QVERIFY(bench_->monitor().addLocalMonitor(answer(Handling::swallow)));
        bench_->press(plainS);
        QCOMPARE(seen_.size(), 1);
    }
};

QTEST_MAIN(KeyMonitorContract)
#include "tst_keymonitorcontract.moc"
