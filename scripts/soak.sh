#!/usr/bin/env bash
# Corrects thousands of random texts in a private desktop session and says what it took. What fails is printed with the
# seed and the number of its round, which --seed S --first N --rounds 1 repeats.
#
#   soak.sh [ROUNDS] [--seed S] [--first N]         5000 rounds unless told otherwise, two to three hours
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
rounds=5000
if [[ ${1:-} =~ ^[0-9]+$ ]]; then
    rounds=$1
    shift
fi
build=$root/build/release
"$root/scripts/build.sh" release "$build" -- vellumline vellumline-guardian vellumline-clipboard-owner
exec "$root/scripts/with-desktop.sh" /usr/bin/python3 "$root/tests/desktop/soak.py" --build "$build" \
    --output "$build/soak" --rounds "$rounds" "$@"
