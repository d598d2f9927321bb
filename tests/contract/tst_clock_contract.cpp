#include "Vellumline/Platform/SystemClock.h"
#include "fakes/FakeClock.h"

#include <QCoroTask>
#include <QDateTime>
#include <QTest>

using namespace vellumline;
using std::chrono::milliseconds;

namespace {

constexpr char fakeRow[] = "the fake keeps its promise";

} // namespace

/// What every clock must do, asked of the fake, whose time the test advances, and of the machine's.
class ClockContractTest : public QObject {
    Q_OBJECT

  private:
    FakeClock* fake_ = nullptr;
    std::unique_ptr<Clock> clock_;

    static void parts() {
        QTest::addColumn<bool>("real");
        QTest::newRow(fakeRow) << false;
        QTest::newRow("the system clock keeps its promise") << true;
    }
    void letTimePass(milliseconds duration) const {
        if (fake_)
            fake_->advance(duration);
        else
            QTest::qWait(static_cast<int>(duration.count()));
    }
    /// Lets time pass until the task is over.
    void finish(QCoro::Task<void>& task) const {
        for (int steps = 0; !task.isReady() && steps < 10000; ++steps)
            letTimePass(milliseconds(1));
        QVERIFY(task.isReady());
    }

  private Q_SLOTS:
    void init() {
        fake_ = nullptr;
        if (qstrcmp(QTest::currentDataTag(), fakeRow) == 0) {
            auto fake = std::make_unique<FakeClock>();
            fake_ = fake.get();
            clock_ = std::move(fake);
        } else {
            clock_ = std::make_unique<SystemClock>();
        }
    }

    void theMonotonicClockNeverGoesBack_data() { parts(); }
    void theMonotonicClockNeverGoesBack() {
        std::chrono::nanoseconds last = clock_->monotonic();
        for (int step = 0; step < 20; ++step) {
            letTimePass(milliseconds(1));
            const std::chrono::nanoseconds now = clock_->monotonic();
            QVERIFY(now >= last);
            last = now;
        }
    }

    void bothClocksGoForward_data() { parts(); }
    void bothClocksGoForward() {
        const std::chrono::nanoseconds monotonic = clock_->monotonic();
        const double now = clock_->now();
        letTimePass(milliseconds(20));
        QVERIFY(clock_->monotonic() - monotonic >= milliseconds(19));
        QVERIFY(clock_->now() > now);
    }

    void aSleepLastsAtLeastAsLongAsItWasAsked_data() { parts(); }
    void aSleepLastsAtLeastAsLongAsItWasAsked() {
        for (const int duration : {1, 2, 10, 40}) {
            const std::chrono::nanoseconds start = clock_->monotonic();
            QCoro::Task<void> sleep = clock_->sleepFor(milliseconds(duration));
            QVERIFY(!sleep.isReady());
            finish(sleep);
            QVERIFY(clock_->monotonic() - start >= milliseconds(duration));
        }
    }

    void aSleepOfNothingSuspendsAllTheSame_data() { parts(); }
    void aSleepOfNothingSuspendsAllTheSame() {
        for (const int duration : {0, -5}) {
            QCoro::Task<void> sleep = clock_->sleepFor(milliseconds(duration));
            QVERIFY(!sleep.isReady());
            finish(sleep);
        }
    }

    void sleepsThatOverlapEndInTheOrderOfTheirEnds_data() { parts(); }
    void sleepsThatOverlapEndInTheOrderOfTheirEnds() {
        QList<int> ended;
        QCoro::Task<void> late = clock_->sleepFor(milliseconds(120)).then([&ended]() { ended.append(120); });
        QCoro::Task<void> early = clock_->sleepFor(milliseconds(20)).then([&ended]() { ended.append(20); });
        QCoro::Task<void> middle = clock_->sleepFor(milliseconds(70)).then([&ended]() { ended.append(70); });
        finish(late);
        QCOMPARE(ended, QList<int>({20, 70, 120}));
        QVERIFY(early.isReady() && middle.isReady());
    }

    void theSystemClockTellsTheTimeOfDay() {
        const double before = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000;
        const double now = SystemClock().now();
        const double after = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000;
        QVERIFY(now >= before - 0.001 && now <= after + 0.001);
    }

    void theFakesWallClockJumpsAlone() {
        FakeClock clock;
        const std::chrono::nanoseconds monotonic = clock.monotonic();
        clock.setNow(5);
        QCOMPARE(clock.now(), 5.0);
        QCOMPARE(clock.monotonic(), monotonic);
        clock.advance(milliseconds(1500));
        QCOMPARE(clock.now(), 6.5);
    }

    void theFakeResumesEverySleepAtItsOwnMoment() {
        FakeClock clock;
        QList<std::chrono::nanoseconds> moments;
        const std::chrono::nanoseconds start = clock.monotonic();
        const auto note = [&]() { moments.append(clock.monotonic() - start); };
        QCoro::Task<void> one = clock.sleepFor(milliseconds(10)).then(note);
        QCoro::Task<void> two = clock.sleepFor(milliseconds(30)).then(note);
        QCOMPARE(clock.pendingSleeps(), 2);
        clock.advance(milliseconds(100));
        QCOMPARE(moments, QList<std::chrono::nanoseconds>({milliseconds(10), milliseconds(30)}));
        QCOMPARE(clock.pendingSleeps(), 0);
        QCOMPARE(clock.monotonic() - start, milliseconds(100));
        QCOMPARE(clock.sleeps(), QList<milliseconds>({milliseconds(10), milliseconds(30)}));
        QVERIFY(!clock.advanceToNextSleep());
    }
};

QTEST_GUILESS_MAIN(ClockContractTest)
#include "tst_clock_contract.moc"
