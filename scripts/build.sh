#!/usr/bin/env bash
# Configures a preset where that has not happened yet, and builds it.
#
#   build.sh PRESET FOLDER [-DNAME=VALUE…] [-- TARGET…]
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
preset=$1 folder=$2
shift 2
options=() targets=()
while [ $# -gt 0 ]; do
    if [ "$1" = -- ]; then
        shift
        targets=("$@")
        break
    fi
    options+=("$1")
    shift
done

cd "$root"
# A tree that was moved or copied with its build folder cannot be built there any more.
if [ -f "$folder/CMakeCache.txt" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt"; then
    rm -rf "$folder"
fi
# After the first time Ninja itself calls CMake when a list file or the set of sources has changed.
if [ ! -f "$folder/build.ninja" ]; then
    cmake --preset "$preset" -B "$folder" "${options[@]}"
fi
exec ninja -C "$folder" "${targets[@]}"
