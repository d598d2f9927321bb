#!/usr/bin/env bash
# The tests that need a desktop or another server (labels contract, desktop, service), under AddressSanitizer and
# UndefinedBehaviorSanitizer; the unit tests are a step of CI of their own.
#
# Many programs here are started by a driver, the session bus or each other, and what they say is read by nobody. So each
# writes what it finds into a file, and any such file fails the run, whatever the tests make of it. GCC's UBSan beside ASan
# knows no files: it ends the program, and is looked for in the logs. That faults are found so is proved first.
#
#   asan.sh [OPTION of ctest…]        the three labels by default, without two tests that cannot run so
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root"
arguments=("$@")
# Left out: leaks reads all of the program's memory, which is terabytes of shadow here; systemd_units looks at a sandbox in
# which LeakSanitizer cannot stop the process to look at it.
[ ${#arguments[@]} -gt 0 ] || arguments=(-L 'contract|desktop|service' -E '^(leaks|systemd_units)$')
build=$root/build/asan
reports=$build/reports
rm -rf "$reports"
mkdir -p "$reports"
# verify_asan_link_order: one case preloads a library that moves the clock, which then comes before the sanitizer's.
export ASAN_OPTIONS="log_path=$reports/report:log_exe_name=1:verify_asan_link_order=0"
export UBSAN_OPTIONS="print_stacktrace=1"
export LSAN_OPTIONS="suppressions=$root/scripts/asan.supp:print_suppressions=0"
export VELLUMLINE_PATIENCE=3

planted=$(mktemp -d)
trap 'rm -rf "$planted"' EXIT
cat >"$planted/faults.cpp" <<'END'
int main(int count, char**) {
    volatile int number = __INT_MAX__;
    int* memory = new int(count);
    if (count == 1)
        memory = nullptr;
    else
        delete memory;
    if (count == 2)
        return *memory;
    number = number + (count - 1);
    return 0;
}
END
"${CXX:-c++}" -O1 -g1 -fsanitize=address,undefined -fno-sanitize-recover=all -w "$planted/faults.cpp" -o "$planted/faults"
must_find() {
    local fault=$1 where=$2
    shift 2
    if "$planted/faults" "$@" 2>"$planted/said" || ! grep -qs "$fault" "$where"/*; then
        echo "asan: a planted fault is not found: $fault" >&2
        exit 1
    fi
    rm -f "$reports"/*
}
must_find "detected memory leaks" "$reports"
must_find "heap-use-after-free" "$reports" one
must_find "runtime error: signed integer overflow" "$planted" one two

scripts/build.sh asan "$build"
begun=$planted/begun
touch "$begun"
status=0
ctest --test-dir "$build" --output-on-failure --no-tests=error "${arguments[@]}" || status=$?
mapfile -t found < <(find "$reports" -type f
    find "$build" -name '*.log' -newer "$begun" -exec grep -lE 'runtime error: ' {} +)
if [ ${#found[@]} != 0 ]; then
    head -n 60 "${found[@]}"
    echo "asan: ${#found[@]} files with reports: ${found[*]}" >&2
    status=1
fi
exit "$status"
