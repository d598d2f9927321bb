#!/usr/bin/env bash
# docs/settings.md names every environment variable, build setting and stored setting that the sources know, and no other.
#
#   check-settings.sh [--self-test]
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root"

# One name a line: read from the environment, set for CMake, or kept in the settings file.
known() {
    local programs=(Vellumline VellumlineCore VellumlineService VellumlineGuardian)
    grep -rhoE '(qEnvironmentVariable(IsSet|IsEmpty)?|qgetenv|getenv)\("[A-Za-z_]+"' "${programs[@]}" | sed 's/.*"\(.*\)"/\1/'
    grep -rhoE 'constexpr auto keyVariable = "[A-Z_]+"' "${programs[@]}" | sed 's/.*"\(.*\)"/\1/'
    grep -hoE '^(option|set)\(VELLUMLINE_[A-Z_]+ .*' CMakeLists.txt | grep -E '^option|CACHE' | sed -E 's/^[a-z]+\(([A-Z_]+).*/\1/'
    grep -rhoE 'environ(\.get\(|\[)"VELLUMLINE_[A-Z_]+"' tests demo benchmarks | sed 's/.*"\(.*\)"/\1/'
    grep -hoE '\$\{VELLUMLINE_[A-Z_]+' run test .ci/run scripts/*.sh | grep -v VELLUMLINE_BUILD_OPTIONS | sed 's/..//'
    grep -rhoE 'QStringLiteral\("vellumline\.[a-zA-Z.]+"\)' Vellumline VellumlineCore | grep -vE '\.(desktop|svg|conf)"' | sed 's/.*"\(.*\)".*/\1/'
}
# shellcheck disable=SC2016  # the marks of the page, not of the shell
documented() { grep -oE '^\| `[^`]+`' "$1" | sed 's/.*`\(.*\)`/\1/'; }
compare() { # PAGE
    diff <(known | LC_ALL=C sort -u) <(documented "$1" | LC_ALL=C sort -u) | sed -n 's/^< /not in docs\/settings.md: /p; s/^> /not in the sources: /p' || true # diff says that they differ
}

# shellcheck disable=SC2016
if [ "${1:-}" = --self-test ]; then
    page=$(mktemp)
    trap 'rm -f "$page"' EXIT
    grep -v '^| `VELLUMLINE_ORIGIN`' docs/settings.md >"$page"
    echo '| `VELLUMLINE_NOWHERE` | nothing |' >>"$page"
    [ "$(compare "$page")" = "$(printf 'not in docs/settings.md: VELLUMLINE_ORIGIN\nnot in the sources: VELLUMLINE_NOWHERE')" ] ||
        { compare "$page"; exit 1; }
    echo "settings: a missing and an unknown name are found"
    exit 0
fi
found=$(compare docs/settings.md)
[ -z "$found" ] || { echo "$found"; exit 1; }
echo "settings: all $(known | sort -u | wc -l) are documented"
