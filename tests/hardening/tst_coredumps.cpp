#include "VellumlineHardening/CoreDumps.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vellumline;

namespace {

/// Whether a process that does this and then dies leaves a core dump behind.
bool dumps(void (*first)()) {
    const pid_t child = fork();
    if (child == 0) {
        rlimit limit = {};
        getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_CORE, &limit);
        first();
        std::signal(SIGABRT, SIG_DFL);
        std::abort();
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WCOREDUMP(status);
}

} // namespace

class CoreDumps : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() {
        QVERIFY(folder_.isValid());
        QVERIFY(QDir::setCurrent(folder_.path()));
    }
    void cleanupTestCase() { QDir::setCurrent(QDir::rootPath()); }

    void aProcessThatRefusesLeavesNone() {
        if (!dumps([] {}))
            QSKIP("no process of this machine leaves core dumps");
        QVERIFY(!dumps(refuseCoreDumps));
        QVERIFY(!dumps(refuseToBeInspected));
    }

    void aDeveloperCanAllowThemAgain() {
        rlimit before = {}, after = {};
        getrlimit(RLIMIT_CORE, &before);
        refuseCoreDumps();
        getrlimit(RLIMIT_CORE, &after);
        QVERIFY(after.rlim_cur <= 1);
        QCOMPARE(after.rlim_max, before.rlim_max);
    }

  private:
    QTemporaryDir folder_;
};

QTEST_GUILESS_MAIN(CoreDumps)
#include "tst_coredumps.moc"
