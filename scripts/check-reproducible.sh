#!/usr/bin/env bash
# Builds the packages twice, in two folders with different names, umasks, languages and time zones: every byte has to be the same.
# The first build may take objects from the compiler cache, which others compiled earlier and elsewhere; the second compiles everything.
#
#   check-reproducible.sh      where something differs it says what, and both outputs and both logs are kept
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
output=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-twice.XXXXXX")
differs=no
finish() {
    rm -rf "$output/one-folder" "$output/a-folder-with-another-name"
    if [ "$differs" = yes ]; then
        echo "kept: $output/first $output/second $output/first.log $output/second.log"
    else
        rm -rf "$output"
    fi
}
trap finish EXIT

build() { # NAME FOLDER; the environment is the caller's
    local started=$SECONDS
    mkdir "$output/$2"
    TMPDIR=$output/$2 "$root/scripts/package.sh" "$output/$1" >"$output/$1.log" 2>&1 || { tail -30 "$output/$1.log"; exit 1; }
    echo "the $1 build: $((SECONDS - started)) s"
}
(umask 022 && LANG=C.UTF-8 TZ=UTC build first one-folder)
(umask 077 && LANG=POSIX TZ=Asia/Kathmandu USER=somebody CCACHE_DISABLE=1 build second a-folder-with-another-name)

whatDiffers() { # PACKAGE PACKAGE
    if command -v diffoscope >/dev/null; then
        diffoscope --text-color never --max-report-size 20000 "$1" "$2" || true
        return
    fi
    local contents
    contents=$(mktemp -d "$output/contents.XXXXXX")
    dpkg-deb -R "$1" "$contents/first"
    dpkg-deb -R "$2" "$contents/second"
    diff -rq --no-dereference "$contents/first" "$contents/second" || true
    # Names, modes, owners and times, of which the contents say nothing.
    diff <(dpkg-deb --fsys-tarfile "$1" | TZ=UTC tar -tv --full-time) <(dpkg-deb --fsys-tarfile "$2" | TZ=UTC tar -tv --full-time) || true
    rm -rf "$contents"
}

for package in "$output/first"/*.deb; do
    other=$output/second/$(basename "$package")
    if cmp "$package" "$other"; then
        echo "the same twice: $(sha256sum "$package" | cut -d' ' -f1) $(basename "$package")"
    else
        differs=yes
        echo "not reproducible: $(basename "$package")"
        [ ! -e "$other" ] || whatDiffers "$package" "$other"
    fi
done
[ "$differs" = no ]
