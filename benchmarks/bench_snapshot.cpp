// How long a snapshot of the clipboard takes, by size and number of formats, against an owner in another
// process. Run it inside scripts/with-desktop.sh.

#include "Vellumline/Platform/Linux/GuardianProcess.h"
#include "Vellumline/Platform/X11/X11Pasteboard.h"
#include "tests/contract/ClipboardPeers.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QTimer>
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

using namespace vellumline;

namespace {

enum class Transfer { wholeProperty, incremental };

/// A process that owns the clipboard until it is destroyed.
class OwnerProcess {
  public:
    OwnerProcess(qsizetype totalBytes, int formats, Transfer transfer) {
        std::array<int, 2> ready{};
        if (pipe(ready.data()) != 0)
            std::abort();
        process_ = fork();
        if (process_ == 0) {
            test::OwnerScript script;
            script.piece = 1 << 20;
            for (int i = 0; i < formats; ++i) {
                script.targets.append({"application/x-format-" + QByteArray::number(i),
                                       QByteArray(totalBytes / formats, static_cast<char>('a' + i)),
                                       {},
                                       8,
                                       transfer == Transfer::incremental});
            }
            const test::ScriptedOwner owner(script);
            const char byte = 'r';
            if (write(ready[1], &byte, 1) != 1)
                _exit(1);
            pause();
            _exit(0);
        }
        char byte = 0;
        if (read(ready[0], &byte, 1) != 1)
            std::abort();
        close(ready[0]);
        close(ready[1]);
    }
    ~OwnerProcess() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    OwnerProcess(const OwnerProcess&) = delete;
    OwnerProcess& operator=(const OwnerProcess&) = delete;

  private:
    pid_t process_;
};

void snapshot(benchmark::State& state, Transfer transfer) {
    const auto bytes = static_cast<qsizetype>(state.range(0)) << 20;
    const auto formats = static_cast<int>(state.range(1));
    const OwnerProcess owner(bytes, formats, transfer);
    const auto pasteboard = X11Pasteboard::open();
    if (!pasteboard) {
        state.SkipWithError("no X display");
        return;
    }
    for (auto _ : state) {
        const auto contents = QCoro::waitFor(pasteboard->contents());
        qsizetype read = 0;
        for (const auto& item : contents.items) {
            for (const auto& each : item.representations)
                read += each.data.size();
        }
        if (contents.completeness != PasteboardContents::Completeness::complete ||
            read != bytes / formats * formats) {
            state.SkipWithError("the snapshot is not complete");
            return;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}

/// The copy that the guardian gets before the clipboard is taken.
void guardian(benchmark::State& state) {
    const auto bytes = static_cast<qsizetype>(state.range(0)) << 20;
    GuardianProcess guardian(QCoreApplication::applicationDirPath() +
                             QStringLiteral("/../Vellumline/vellumline-guardian"));
    if (!guardian.start()) {
        state.SkipWithError("no guardian");
        return;
    }
    PasteboardItem item;
    item.set(QStringLiteral("application/x-format"), QByteArray(bytes, 'a'));
    for (auto _ : state)
        QCoro::waitFor(guardian.hold({item}));
    guardian.forget();
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"MB", "formats"})
        ->ArgsProduct({{1, 10, 100}, {1, 10}})
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

// Owners send what is larger than a request of the X server in pieces; a hundred megabytes come that way in
// practice.
BENCHMARK_CAPTURE(snapshot, incremental, Transfer::incremental)->Apply(sizes);
BENCHMARK(guardian)->ArgName("MB")->Arg(1)->Arg(10)->Arg(100)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(snapshot, whole, Transfer::wholeProperty)
    ->ArgNames({"MB", "formats"})
    ->ArgsProduct({{1, 10}, {1, 10}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
