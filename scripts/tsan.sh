#!/usr/bin/env bash
# Tests of what has threads, under ThreadSanitizer: one correction engine on many threads, the service's workers and
# its server, and the owner of the clipboard.
#
# Debian's Qt is not instrumented. ThreadSanitizer sees standard threads, locks and atomics, and calls a race what only Qt's own locks
# put in order; so ignore_noninstrumented_modules leaves out what happens inside such libraries, and what hands
# work to threads does so through standard locks. That a race is found with these very options is proved first.
#
#   tsan.sh [TEST…]        tst_engine_threads tst_worker_pool tst_http_server tst_x11pasteboard by default
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root"
tests=("$@")
[ ${#tests[@]} -gt 0 ] || tests=(tst_engine_threads tst_worker_pool tst_http_server tst_x11pasteboard)
build=$root/build/tsan
# die_after_fork: a test starts another program while its own threads run, and threads after that.
export TSAN_OPTIONS="ignore_noninstrumented_modules=1 die_after_fork=0 exitcode=66"

planted=$(mktemp -d)
trap 'rm -rf "$planted"' EXIT
cat >"$planted/race.cpp" <<'END'
#include <QHash>
#include <thread>
int main() {
    QHash<int, int> shared;
    const auto fill = [&shared](int from) {
        for (int i = 0; i < 100; ++i) {
            shared.insert(from, i);
        }
    };
    shared.reserve(8);
    std::thread one(fill, 1);
    std::thread other(fill, 1);
    one.join();
    other.join();
}
END
read -r -a qt <<<"$(pkg-config --cflags --libs Qt6Core)"
"${CXX:-c++}" -std=c++20 -fPIC -g1 -O1 -fsanitize=thread "$planted/race.cpp" "${qt[@]}" -o "$planted/race"
if "$planted/race" 2>"$planted/said" || ! grep -q 'WARNING: ThreadSanitizer: data race' "$planted/said"; then
    echo "tsan: a planted race is not found" >&2
    exit 1
fi

scripts/build.sh tsan "$build" -- "${tests[@]}"
ctest --test-dir "$build" --output-on-failure --no-tests=error -R "^($(IFS='|'; echo "${tests[*]}"))\$"
