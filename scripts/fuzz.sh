#!/usr/bin/env bash
# Builds the fuzz targets and runs each for some seconds; with findings the exit status is not 0 and the input is kept
# in build/fuzz/findings.
#
#   fuzz.sh [--seconds N] [TARGET…]        60 seconds each by default; targets are the names in fuzz/ without ".cpp"
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
seconds=60
if [ "${1:-}" = --seconds ]; then
    seconds=$2
    shift 2
fi
cd "$root"
targets=("$@")
if [ ${#targets[@]} = 0 ]; then
    for source in fuzz/fuzz_*.cpp; do
        if [ -e "$source" ]; then targets+=("$(basename "$source" .cpp)"); fi
    done
fi
if [ ${#targets[@]} = 0 ]; then
    echo "fuzz: no targets"
    exit 0
fi
build=$root/build/fuzz
scripts/build.sh fuzz "$build" -- "${targets[@]}"

# As many at a time as there are processors: each target is one thread.
run_target() {
    local target=$1 seconds=$2 build=$3 seeds=() log=$3/findings/$1.log
    mkdir -p "$build/findings" "$build/corpus/$target"
    if [ -d "fuzz/seeds/$target" ]; then seeds=("fuzz/seeds/$target"); fi
    if QT_QPA_PLATFORM=offscreen "$build/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1500 \
        -artifact_prefix="$build/findings/$target-" "$build/corpus/$target" "${seeds[@]}" >"$log" 2>&1; then
        echo "fuzz: $target clean: $(grep -aoE 'Done [0-9]+ runs in [0-9]+ second' "$log" | tail -1)"
    else
        printf '%s\n' "fuzz: $target FAILED" "$(tail -n 40 "$log")"
        return 1
    fi
}
export -f run_target
printf '%s\0' "${targets[@]}" | xargs -0 -P "$(nproc)" -I{} bash -c 'run_target "$@"' _ {} "$seconds" "$build" ||
    { echo "fuzz: findings"; exit 1; }
