#include "Vellumline/Platform/Linux/QtKeyMonitor.h"
#include "Vellumline/Platform/X11/VirtualKeyCodes.h"
#include "Vellumline/Platform/X11/X11KeyEvents.h"
#include "desktop/X11TestClient.h"

#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>
#include <QTest>
#include <QVBoxLayout>
#include <QtTest/qtestspontaneevent.h>

using namespace vellumline;

/// Real keys in a real window of this program.
class QtKeyMonitorTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11KeyEvents> keys_;
    std::unique_ptr<QtKeyMonitor> monitor_;
    std::unique_ptr<QWidget> window_;
    QLineEdit* field_ = nullptr;
    QPushButton* button_ = nullptr;
    int clicks_ = 0;
    int shortcuts_ = 0;
    QList<KeyPress> seen_;
    std::unique_ptr<X11PhysicalKeyboard> user_;

    std::optional<KeyMonitor::Token> add(KeyMonitor::Handling handling) {
        return monitor_->addLocalMonitor([this, handling](const KeyPress& key) {
            seen_.append(key);
            return handling;
        });
    }
    void type(const QList<std::uint8_t>& keys) {
        user_->press(keys);
        user_->release(keys);
    }

    void send(QEvent::Type type, quint64 milliseconds) {
        QKeyEvent event(type, Qt::Key_R, Qt::NoModifier, XKey::r, 'r', 0, QStringLiteral("r"));
        event.setTimestamp(milliseconds);
        QSpontaneKeyEvent::setSpontaneous(
            &event); // Qt would ask about shortcuts first, without the scan code
        qApp->notify(field_, &event);
    }

  private Q_SLOTS:
    void initTestCase() {
        QProcess::execute(QStringLiteral("xset"), {QStringLiteral("r"), QStringLiteral("rate"),
                                                   QStringLiteral("100"), QStringLiteral("50")});
    }
    void init() {
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("us")}));
        connection_ = X11Connection::open();
        QVERIFY(connection_);
        keys_ = std::make_unique<X11KeyEvents>(*connection_);
        monitor_ =
            std::make_unique<QtKeyMonitor>(VirtualKeyCodes::virtualKeyCode, [this](std::uint32_t scanCode) {
                return keys_->characters(scanCode);
            });
        user_ = std::make_unique<X11PhysicalKeyboard>();
        user_->lockGroup(0);
        clicks_ = shortcuts_ = 0;
        seen_.clear();
        window_ = std::make_unique<QWidget>();
        auto* layout = new QVBoxLayout(window_.get());
        field_ = new QLineEdit;
        button_ = new QPushButton(QStringLiteral("&Record"));
        layout->addWidget(field_);
        layout->addWidget(button_);
        connect(button_, &QPushButton::clicked, this, [this] { ++clicks_; });
        auto* shortcut = new QShortcut(QKeySequence(QStringLiteral("Ctrl+T")), window_.get());
        connect(shortcut, &QShortcut::activated, this, [this] { ++shortcuts_; });
        field_->setFocus();
        window_->show();
        QVERIFY(QTest::qWaitForWindowActive(window_.get()));
        QTRY_VERIFY(field_->hasFocus());
    }
    void cleanup() {
        window_.reset();
        monitor_.reset();
        keys_.reset();
        connection_.reset();
        QCOMPARE(user_->keysDown(), QList<int>());
    }

    void withoutAMonitorKeysTypeAndShortcutsFire() {
        type({XKey::r});
        QTRY_COMPARE(field_->text(), QStringLiteral("r"));
        type({XKey::control, 28});
        QTRY_COMPARE(shortcuts_, 1);
    }
    void aSwallowedPressTypesNothing() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({XKey::r});
        type({XKey::control, XKey::alt, XKey::r});
        QTRY_COMPARE(seen_.size(), 2);
        QCOMPARE(seen_.at(0), (KeyPress{15, {}, QStringLiteral("r")}));
        QCOMPARE(seen_.at(1),
                 (KeyPress{15, HotkeyModifiers::control | HotkeyModifiers::option, QStringLiteral("r")}));
        QCOMPARE(field_->text(), QString());
    }
    void neitherAWindowsNorAButtonsShortcutFires() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({XKey::control, 28});
        type({XKey::alt, XKey::r});
        QTRY_COMPARE(seen_.size(), 2);
        QCOMPARE(shortcuts_, 0);
        QCOMPARE(clicks_, 0);
    }
    void aFocusedButtonIsNotPressed() {
        button_->setFocus();
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({65});
        type({36});
        type({9});
        QTRY_COMPARE(seen_.size(), 3);
        QCOMPARE(seen_.at(0).keyCode, KeyCode::space);
        QCOMPARE(seen_.at(1).keyCode, KeyCode::returnKey);
        QCOMPARE(seen_.at(2).keyCode, KeyCode::escape);
        QTest::qWait(50);
        QCOMPARE(clicks_, 0);
        QVERIFY(button_->hasFocus());
    }
    void tabDoesNotMoveTheFocus() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({23});
        QTRY_COMPARE(seen_.size(), 1);
        QCOMPARE(seen_.at(0).keyCode, KeyCode::tab);
        QVERIFY(field_->hasFocus());
    }
    void aPassedOnPressIsSeenOnceAndDoesItsWork() {
        QVERIFY(add(KeyMonitor::Handling::passOn));
        type({XKey::r});
        QTRY_COMPARE(field_->text(), QStringLiteral("r"));
        type({XKey::control, 28});
        QTRY_COMPARE(shortcuts_, 1);
        QCOMPARE(seen_.size(), 2);
    }
    void modifiersAloneAreNotReported() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({XKey::control, XKey::alt, XKey::shift, XKey::super});
        type({XKey::r});
        QTRY_COMPARE(seen_.size(), 1);
    }
    void superIsCommand() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({XKey::super, XKey::r});
        QTRY_COMPARE(seen_.size(), 1);
        QCOMPARE(seen_.at(0).modifiers, HotkeyModifiers::command);
    }
    void autoRepeatsAreNotReportedAndNotTyped() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        user_->press(XKey::r);
        QTest::qWait(300); // ten repeats
        user_->release(XKey::r);
        type({XKey::c});
        QTRY_COMPARE(seen_.size(), 2);
        QCOMPARE(field_->text(), QString());
    }
    void repeatsOfASwallowedPressStaySwallowedAfterTheMonitorIsGone() {
        const auto token = add(KeyMonitor::Handling::swallow);
        user_->press(XKey::r);
        QTRY_COMPARE(seen_.size(), 1);
        monitor_->removeMonitor(*token);
        QTest::qWait(300);
        QCOMPARE(field_->text(), QString());
        user_->release(XKey::r);
        type({XKey::c});
        QTRY_COMPARE(field_->text(), QStringLiteral("c"));
    }
    void aRepeatThatLooksLikeAReleaseAndANewPressIsSwallowedToo() {
        const auto token = add(KeyMonitor::Handling::swallow);
        send(QEvent::KeyPress, 1000);
        monitor_->removeMonitor(*token);
        send(QEvent::KeyRelease, 1100);
        send(QEvent::KeyPress, 1100);
        send(QEvent::KeyRelease, 1120);
        send(QEvent::KeyPress, 1120);
        QCOMPARE(seen_.size(), 1);
        QCOMPARE(field_->text(), QString());
        send(QEvent::KeyRelease, 1130);
        send(QEvent::KeyPress, 1200);
        QCOMPARE(field_->text(), QStringLiteral("r"));
        send(QEvent::KeyRelease, 1210);
        send(QEvent::KeyPress, 1210);
        QCOMPARE(field_->text(), QStringLiteral("rr"));
    }
    void aRepeatThatLooksLikeANewPressIsNotReported() {
        QVERIFY(add(KeyMonitor::Handling::passOn));
        send(QEvent::KeyPress, 1000);
        send(QEvent::KeyRelease, 1100);
        send(QEvent::KeyPress, 1100);
        QCOMPARE(seen_.size(), 1);
        QCOMPARE(field_->text(), QStringLiteral("rr"));
    }
    void charactersAreThoseOfTheLayoutAndTheKeyThatOfThePlace() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        QVERIFY(setKeyboardLayout({QStringLiteral("-layout"), QStringLiteral("de")}));
        type({XKey::control, 52});
        QTRY_COMPARE(seen_.size(), 1);
        QCOMPARE(seen_.at(0), (KeyPress{KeyCode::z, HotkeyModifiers::control, QStringLiteral("y")}));
    }
    void shiftDoesNotChangeTheCharacters() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({XKey::control, XKey::shift, 10});
        QTRY_COMPARE(seen_.size(), 1);
        QCOMPARE(seen_.at(0).characters, QStringLiteral("1"));
    }
    void aKeyWithoutTextHasItsName() {
        QVERIFY(add(KeyMonitor::Handling::swallow));
        type({127});
        QTRY_COMPARE(seen_.size(), 1);
        QCOMPARE(seen_.at(0).characters, QStringLiteral("Pause"));
    }
};

QTEST_MAIN(QtKeyMonitorTest)
#include "tst_qtkeymonitor.moc"
