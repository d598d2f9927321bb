#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy.
#
#   tidy.sh                 every source file (17 minutes on two cores)
#   tidy.sh --budget SECONDS    the core, the files that the last forty commits changed, then as many of the others
#                           as fit into the time, beginning at another one each day
#   tidy.sh FILE…           these
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root"
build=$root/build/tidy
budget=
if [ "${1:-}" = --budget ]; then
    budget=$2
    shift 2
fi

if [ ! -f "$build/build.ninja" ]; then
    # Without this moc of a test would wait for the libraries that the test links.
    cmake --preset tidy -B "$build" -DCMAKE_AUTOGEN_ORIGIN_DEPENDS=OFF >/dev/null
fi
cmake --build "$build" --target rebuild_cache >/dev/null # a new source has a compile command too
# The sources include what moc makes of the headers.
mapfile -t autogen < <(ninja -C "$build" -t targets all | sed -n 's/^\([^:/]*_autogen\): phony$/\1/p')
if [ ${#autogen[@]} -gt 0 ]; then
    made=$(ninja -C "$build" "${autogen[@]}" 2>&1) || { echo "$made"; exit 1; }
fi

mapfile -t known < <(grep -o '"file": "[^"]*"' "$build/compile_commands.json" | cut -d'"' -f4 | grep -v "^$build/" |
    sed "s,^$root/,," | grep -vE '^(tests|benchmarks|fuzz|demo)/' | LC_ALL=C sort -u) # test rows end in _data, as Qt Test has it
if [ $# -gt 0 ]; then
    files=("$@")
elif [ -z "$budget" ]; then
    files=("${known[@]}")
else
    mapfile -t first < <(
        printf '%s\n' "${known[@]}" | grep '^VellumlineCore/'
        # Also where this is origin's main branch itself, as in CI.
        git log --max-count=40 --format= --name-only -- '*.cpp' | grep -Fxf <(printf '%s\n' "${known[@]}") || true)
    mapfile -t rest < <(printf '%s\n' "${known[@]}" |
        awk -v start="$(date +%j)" '{ lines[NR - 1] = $0 } END { for (i = 0; i < NR; i++) print lines[(i + start * 7) % NR] }')
    mapfile -t files < <(printf '%s\n' "${first[@]}" "${rest[@]}" | awk 'NF && !seen[$0]++')
fi

results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
tidy_one() {
    local result=$2/${1//\//_}
    if [ -n "$3" ] && [ "$(date +%s)" -ge "$3" ]; then
        return
    fi
    if clang-tidy --quiet -p "$4" "$1" >"$result" 2>/dev/null; then
        echo ok >"$result.status"
    else
        echo failed >"$result.status"
    fi
}
export -f tidy_one
until=
if [ -n "$budget" ]; then
    until=$(($(date +%s) + budget))
fi
printf '%s\0' "${files[@]}" | xargs -0 -P "$(nproc)" -I{} bash -c 'tidy_one "$@"' _ {} "$results" "$until" "$build"

checked=0 failed=0
for status in "$results"/*.status; do
    if [ ! -e "$status" ]; then continue; fi
    checked=$((checked + 1))
    if grep -qx failed "$status"; then
        failed=$((failed + 1))
        cat "${status%.status}"
    fi
done
echo "tidy: $checked of ${#files[@]} files looked at, $failed with findings"
[ "$failed" = 0 ] && [ "$checked" -gt 0 ]
