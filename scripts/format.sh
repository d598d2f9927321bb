#!/usr/bin/env bash
# Formats every tracked C++ file in place, or with --check names those that clang-format would change.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    mapfile -t files < <(git ls-files '*.cpp' '*.h')
else
    mapfile -t files < <(find . -name '*.cpp' -o -name '*.h' | grep -v '^\./build')
fi
[ ${#files[@]} -gt 0 ] || exit 0
if [ "${1:-}" = --check ]; then
    clang-format --dry-run -Werror "${files[@]}"
    echo "format: ${#files[@]} files are as clang-format leaves them"
else
    clang-format -i "${files[@]}"
fi
