#include "VellumlineService/Service/WorkerPool.h"

#include <QTest>
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <latch>
#include <semaphore>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

using namespace vellumline;

namespace {

std::atomic<int> localsGone = 0;

struct Local {
    bool used = false;
    ~Local() {
        // Long enough for whoever does not wait for it to be caught.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        localsGone += used ? 1 : 0;
    }
};

thread_local Local local;

/// How another process, in which this runs, ends.
int statusOf(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        std::signal(SIGABRT, SIG_DFL); // The test program has its own way to say that it crashed.
        ::close(STDERR_FILENO);
        ::_exit(work());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

/// From here on the system has no thread for this process.
void takeAllThreads() {
    const rlimit none = {0, 0};
    ::setrlimit(RLIMIT_AS, &none);
    try {
        // The stacks of threads that have ended, and of the parent's, are kept for others.
        while (true) {
            std::thread(::pause).detach();
        }
    } catch (const std::system_error&) {
        return;
    }
}

} // namespace

class WorkerPoolTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void jobsAreDoneInTheOrderInWhichTheyCame() {
        std::vector<int> done;
        WorkerPool pool(1, 0);
        for (int i = 0; i < 100; ++i) {
            QVERIFY(pool.post([&done, i] { done.push_back(i); }));
        }
        pool.finish();
        QCOMPARE(done.size(), 100U);
        QVERIFY(std::is_sorted(done.begin(), done.end()));
    }
    void asManyJobsRunAtOnceAsThereAreThreads() {
        std::latch together(4);
        WorkerPool pool(4, 0);
        for (int i = 0; i < 4; ++i) {
            QVERIFY(pool.post([&together] { together.arrive_and_wait(); }));
        }
        pool.finish();
        QVERIFY(together.try_wait());
    }
    void noMoreJobsRunAtOnceThanThereAreThreads() {
        std::atomic<int> running = 0;
        std::atomic<int> most = 0;
        WorkerPool pool(3, 0);
        for (int i = 0; i < 60; ++i) {
            QVERIFY(pool.post([&] {
                most = std::max(most.load(), ++running);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                --running;
            }));
        }
        pool.finish();
        QVERIFY(most.load() <= 3);
    }
    void aThreadIsNotStartedWhileAnotherIsFree() {
        std::set<std::thread::id> seen;
        std::binary_semaphore done(0);
        WorkerPool pool(8, 0);
        for (int i = 0; i < 50; ++i) {
            QVERIFY(
                pool.post([&seen] { seen.insert(std::this_thread::get_id()); }, [&done] { done.release(); }));
            done.acquire();
        }
        pool.finish();
        QCOMPARE(seen.size(), 1U);
    }
    void jobsBeyondTheLimitAreRefused() {
        std::counting_semaphore gate(0);
        int done = 0;
        WorkerPool pool(1, 3);
        for (int i = 0; i < 3; ++i) {
            QVERIFY(pool.post([&] {
                gate.acquire();
                ++done;
            }));
        }
        QVERIFY(!pool.post([&] { done = -1000; }, [&] { done = -1000; }));
        QCOMPARE(pool.load(), 3);
        gate.release(3);
        pool.finish();
        QCOMPARE(done, 3);
        QCOMPARE(pool.load(), 0);
    }
    void whoeverLearnsThatAJobIsDoneMayPostTheNext() {
        int rounds = 0;
        std::binary_semaphore ended(0);
        WorkerPool pool(2, 1);
        std::function<void()> next = [&] {
            if (rounds == 2000 || !pool.post([&] { ++rounds; }, next)) {
                ended.release();
            }
        };
        next();
        ended.acquire();
        pool.finish();
        QCOMPARE(rounds, 2000);
    }
    void whatWaitsIsDoneBeforeThePoolEnds() {
        int done = 0;
        int after = 0;
        {
            std::latch begun(1);
            WorkerPool pool(1, 0);
            for (int i = 0; i < 50; ++i) {
                QVERIFY(pool.post(
                    [&] {
                        if (done == 0) {
                            begun.count_down();
                            std::this_thread::sleep_for(std::chrono::milliseconds(20));
                        }
                        ++done;
                    },
                    [&] { ++after; }));
            }
            begun.wait();
        }
        QCOMPARE(done, 50);
        QCOMPARE(after, 50);
    }
    void nothingIsTakenWhileThePoolEnds() {
        std::latch begun(1);
        int taken = 0;
        bool refused = false;
        WorkerPool pool(1, 0);
        QVERIFY(pool.post([&] {
            begun.count_down();
            // Until the other thread is in finish() there is room for jobs, which are done as well.
            while (pool.post([&taken] { ++taken; })) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            refused = true;
        }));
        begun.wait();
        pool.finish();
        QVERIFY(refused);
        QVERIFY(!pool.post([&taken] { taken = -1000; }));
        QVERIFY(taken >= 0);
        pool.finish();
    }
    void noJobOfManyProducersIsLost() {
        constexpr size_t producers = 6;
        constexpr size_t each = 3000;
        // Plain, so that ThreadSanitizer sees whether a job is done once and its effect is there at the end.
        std::array<std::vector<int>, producers> done;
        std::array<std::vector<int>, producers> accepted;
        std::latch start(producers);
        WorkerPool pool(4, 64);
        std::vector<std::thread> threads;
        for (size_t producer = 0; producer < producers; ++producer) {
            done[producer].resize(each);
            accepted[producer].resize(each);
            threads.emplace_back([&, producer] {
                start.arrive_and_wait();
                for (size_t i = 0; i < each; ++i) {
                    int& slot = done[producer][i];
                    accepted[producer][i] = pool.post([&slot] { ++slot; }, [&slot] { ++slot; }) ? 2 : 0;
                    if (pool.load() > 64) {
                        std::abort();
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        pool.finish();
        QCOMPARE(done, accepted);
        ptrdiff_t total = 0;
        for (const std::vector<int>& of : done) {
            total += std::count(of.begin(), of.end(), 2);
        }
        QVERIFY(total >= 64);
    }
    void producersThatMeetTheEndLoseNothing() {
        for (int round = 0; round < 50; ++round) {
            std::atomic<int> done = 0;
            std::atomic<int> accepted = 0;
            std::latch start(3);
            WorkerPool pool(2, 0);
            std::vector<std::thread> threads;
            for (int producer = 0; producer < 2; ++producer) {
                threads.emplace_back([&] {
                    start.arrive_and_wait();
                    while (pool.post([&done] { ++done; })) {
                        ++accepted;
                    }
                });
            }
            start.arrive_and_wait();
            pool.finish();
            const int doneAtTheEnd = done;
            for (std::thread& thread : threads) {
                thread.join();
            }
            QCOMPARE(accepted.load(), doneAtTheEnd);
            QCOMPARE(done.load(), doneAtTheEnd);
        }
    }
    void whatIsLocalToTheThreadsIsGoneAtTheEnd() {
        localsGone = 0;
        std::latch together(3);
        WorkerPool pool(3, 0);
        for (int i = 0; i < 3; ++i) {
            QVERIFY(pool.post([&together] {
                local.used = true;
                together.arrive_and_wait();
            }));
        }
        pool.finish();
        QCOMPARE(localsGone.load(), 3);
    }
    void aJobThatThrowsEndsTheProgram() {
#if defined(__SANITIZE_THREAD__)
        QSKIP("ThreadSanitizer ends the other process when the id of a thread comes again there");
#endif
        const int status = statusOf([] {
            WorkerPool pool(1, 0);
            pool.post([] { throw std::runtime_error("a job failed"); });
            pool.finish();
            return 0;
        });
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), SIGABRT);
    }
    void aJobIsRefusedWhenThereIsNoThreadForIt() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        QSKIP("a sanitizer itself needs memory for each thread");
#endif
        const int status = statusOf([] {
            bool done = false;
            WorkerPool pool(1, 0);
            takeAllThreads();
            const bool accepted = pool.post([&done] { done = true; });
            pool.finish();
            return !accepted && !done && pool.load() == 0 ? 0 : 1;
        });
        QCOMPARE(status, 0);
    }
    void fewerThreadsThanAllowedDoTheJobsAsWell() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        QSKIP("a sanitizer itself needs memory for each thread");
#endif
        const int status = statusOf([] {
            std::binary_semaphore gate(0);
            int done = 0;
            WorkerPool pool(2, 0);
            pool.post([&] {
                gate.acquire();
                ++done;
            });
            takeAllThreads();
            const bool accepted = pool.post([&done] { ++done; });
            gate.release();
            pool.finish();
            return accepted && done == 2 ? 0 : 1;
        });
        QCOMPARE(status, 0);
    }
};

QTEST_GUILESS_MAIN(WorkerPoolTest)
#include "tst_worker_pool.moc"
