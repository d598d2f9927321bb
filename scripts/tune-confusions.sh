#!/usr/bin/env bash
# Chooses the margins of the real-word confusions of the correction engine: a language model is trained without every
# twelfth sentence of the corpus, and those sentences show how often an exchange would be right and how often wrong.
#
#   tune-confusions.sh BUILD_FOLDER CORPUS_FOLDER OUTPUT
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
build=$1 corpus=$2 output=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for name in books textbooks government docs speech; do
    xz -dkc "$corpus/$name.txt.xz" >"$work/all"
    awk 'NR % 12 == 0' "$work/all" >"$work/$name.held"
    awk 'NR % 12 != 0' "$work/all" | xz -0 >"$work/$name.txt.xz"
done
"$root/scripts/train-language-model.sh" "$build" "$work" "$work/held-out.model"
"$root/scripts/build.sh" release "$build" -- vellumline-tune-confusions >/dev/null
"$build/VellumlineService/vellumline-tune-confusions" "$work/held-out.model" \
    "$root/VellumlineService/Training/confusion-sets.txt" "$work"/*.held >"$output"
