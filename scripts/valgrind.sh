#!/usr/bin/env bash
# The demonstration with the program under Valgrind's memcheck. Exit status 0 when memcheck found nothing in it; what became of the
# demonstration is said, but a program that is thirty times as slow may miss the patience of an editor or of itself.
#
#   valgrind.sh [BUILD]        build/release by default
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
build=$(readlink -f "${1:-$root/build/release}")
work=$root/build/valgrind
command -v valgrind >/dev/null || { echo "valgrind.sh: the Debian package valgrind is missing: scripts/packages.sh memory" >&2; exit 69; }
rm -rf "$work"
mkdir -p "$work/Vellumline" "$work/logs"
for entry in "$build"/*; do
    [ "$(basename "$entry")" = Vellumline ] || ln -s "$entry" "$work/"
done
# The program brings free and realloc of its own: without somalloc Valgrind would replace half of the memory functions.
cat >"$work/Vellumline/vellumline" <<END
#!/bin/sh
exec valgrind --quiet --soname-synonyms=somalloc=NONE --num-callers=30 --suppressions="$root/scripts/valgrind.supp" \\
    --log-file="$work/logs/%p" "$build/Vellumline/vellumline" "\$@"
END
chmod +x "$work/Vellumline/vellumline"

status=0
VELLUMLINE_PATIENCE=10 "$root/demo/demonstration" --build "$work" --output "$work/demonstration" --editors mousepad || status=$?
runs=$(find "$work/logs" -type f | wc -l)
errors=$(cat "$work"/logs/* | grep -cE '^==[0-9]+== +(Invalid|Conditional jump|Use of uninit|Syscall param|Mismatched|Source and destination|Process terminating)' || true)
if [ "$runs" = 0 ]; then
    echo "valgrind: the program was not run" >&2
    exit 1
fi
echo "valgrind: $errors errors in $runs runs of the program; the demonstration $([ "$status" = 0 ] && echo succeeded || echo failed)"
[ "$errors" = 0 ] || { cat "$work"/logs/*; exit 1; }
