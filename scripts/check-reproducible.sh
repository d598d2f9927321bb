#!/usr/bin/env bash
# Builds the packages twice, in two folders with different names, umasks, languages and time zones: every byte has to be the same.
# The first build may take objects from the compiler cache, which others compiled earlier and elsewhere; the second compiles everything.
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
output=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-twice.XXXXXX")
trap 'rm -rf "$output"' EXIT
mkdir "$output/one-folder" "$output/a-folder-with-another-name"
(umask 022 && TMPDIR=$output/one-folder LANG=C.UTF-8 TZ=UTC "$root/scripts/package.sh" "$output/first") >"$output/first.log" 2>&1 ||
    { tail -30 "$output/first.log"; exit 1; }
(umask 077 && TMPDIR=$output/a-folder-with-another-name LANG=POSIX TZ=Asia/Kathmandu USER=somebody CCACHE_DISABLE=1 \
    "$root/scripts/package.sh" "$output/second") >"$output/second.log" 2>&1 || { tail -30 "$output/second.log"; exit 1; }
for package in "$output/first"/*.deb; do
    if ! cmp "$package" "$output/second/$(basename "$package")"; then
        echo "not reproducible: $(basename "$package")"
        exit 1
    fi
    echo "the same twice: $(sha256sum "$package" | cut -d' ' -f1) $(basename "$package")"
done
