#include "Vellumline/Platform/X11/X11MouseMonitor.h"
#include "desktop/X11TestClient.h"
#include "fakes/FakeMouseMonitor.h"

#include <QApplication>
#include <QTest>
#include <QWidget>
#include <xcb/xtest.h>

using namespace vellumline;

namespace {

/// A mouse that a user presses.
class Bench {
  public:
    virtual ~Bench() = default;
    virtual MouseMonitor& monitor() = 0;
    virtual void press(QPoint position, int button) = 0;
};

class FakeBench final : public Bench {
  public:
    MouseMonitor& monitor() override { return monitor_; }
    void press(QPoint position, int button) override {
        if (button != 2)
            monitor_.press(position);
    }

  private:
    FakeMouseMonitor monitor_;
};

class X11Bench final : public Bench {
  public:
    X11Bench() {
        // Another program's window over the whole screen: a press on the desktop itself opens menus.
        const xcb_window_t window = xcb_generate_id(user_.raw());
        const std::uint32_t unmanaged = 1;
        xcb_create_window(user_.raw(), XCB_COPY_FROM_PARENT, window, user_.root(), 0, 0, 1280, 800, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                          &unmanaged);
        xcb_map_window(user_.raw(), window);
        user_.sync();
    }
    MouseMonitor& monitor() override { return monitor_; }
    void press(QPoint position, int button) override {
        xcb_test_fake_input(user_.raw(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, user_.root(),
                            static_cast<std::int16_t>(position.x()), static_cast<std::int16_t>(position.y()),
                            0);
        for (const std::uint8_t type : {XCB_BUTTON_PRESS, XCB_BUTTON_RELEASE})
            xcb_test_fake_input(user_.raw(), type, static_cast<std::uint8_t>(button), XCB_CURRENT_TIME,
                                XCB_NONE, 0, 0, 0);
        user_.sync();
    }

  private:
    X11MouseMonitor monitor_;
    X11TestClient user_;
};

constexpr int left = 1;
constexpr int middle = 2;
constexpr int right = 3;

} // namespace

/// What every mouse monitor does, the real one and the one of the tests.
class MouseMonitorContract : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Bench> bench_;
    QList<QPoint> presses_;

    MouseMonitor::Handler recorder() {
        return [this](QPoint position) { presses_.append(position); };
    }

  private Q_SLOTS:
    void initTestCase_data() {
        QTest::addColumn<bool>("real");
        QTest::newRow("the fake") << false;
        QTest::newRow("X11") << true;
    }
    void init() {
        QFETCH_GLOBAL(bool, real);
        presses_.clear();
        bench_.reset();
        if (real)
            bench_ = std::make_unique<X11Bench>();
        else
            bench_ = std::make_unique<FakeBench>();
    }
    void cleanup() { bench_.reset(); }

    void aPressIsSeenWhereItWasMade() {
        const auto token = bench_->monitor().addGlobalMonitor(recorder());
        QVERIFY(token);
        bench_->press(QPoint(700, 300), left);
        const QList<QPoint> first{QPoint(700, 300)};
        QTRY_COMPARE(presses_, first);
        bench_->press(QPoint(20, 30), right);
        const QList<QPoint> both{QPoint(700, 300), QPoint(20, 30)};
        QTRY_COMPARE(presses_, both);
    }

    void theMiddleButtonIsNotReported() {
        bench_->monitor().addGlobalMonitor(recorder());
        bench_->press(QPoint(5, 5), middle);
        bench_->press(QPoint(6, 6), left);
        const QList<QPoint> expected{QPoint(6, 6)};
        QTRY_COMPARE(presses_, expected);
    }

    void nothingIsReportedToWhoIsRemoved() {
        int others = 0;
        const auto token = bench_->monitor().addGlobalMonitor(recorder());
        const auto other = bench_->monitor().addGlobalMonitor([&](QPoint) { ++others; });
        QVERIFY(token && other && *token != *other);
        bench_->monitor().removeMonitor(*token);
        bench_->press(QPoint(5, 5), left);
        QTRY_COMPARE(others, 1);
        QVERIFY(presses_.isEmpty());
    }

    void aHandlerMayRemoveItself() {
        std::optional<MouseMonitor::Token> token;
        token = bench_->monitor().addGlobalMonitor([&](QPoint position) {
            presses_.append(position);
            bench_->monitor().removeMonitor(*token);
        });
        bench_->press(QPoint(5, 5), left);
        QTRY_COMPARE(presses_.size(), 1);
        bench_->press(QPoint(5, 5), left);
        QTest::qWait(50);
        QCOMPARE(presses_.size(), 1);
        // And may be there again.
        QVERIFY(bench_->monitor().addGlobalMonitor(recorder()));
        bench_->press(QPoint(9, 9), left);
        QTRY_COMPARE(presses_.size(), 2);
    }

    void aPressInAWindowOfOursIsNotAnotherPrograms() {
        QFETCH_GLOBAL(bool, real);
        if (!real)
            QSKIP("the fake has no windows");
        QWidget window(nullptr, Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
        window.setGeometry(400, 400, 100, 100);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        bench_->monitor().addGlobalMonitor(recorder());
        const QPoint inside = window.geometry().center();
        bench_->press(inside, left);
        QTest::qWait(50); // the event itself has no position: the pointer has to be there still
        QVERIFY(presses_.isEmpty());
        bench_->press(QPoint(5, 5), left);
        const QList<QPoint> expected{QPoint(5, 5)};
        QTRY_COMPARE(presses_, expected);
    }
};

QTEST_MAIN(MouseMonitorContract)
#include "tst_mousemonitor_contract.moc"
