#!/usr/bin/env bash
# Builds the English language model of the correction engine from a folder of texts and the word lists of the package
# scowl. The same input gives the same file.
#
#   train-language-model.sh BUILD_FOLDER CORPUS_FOLDER OUTPUT
#
# CORPUS_FOLDER holds books, textbooks, government, docs and speech, each as NAME.txt.xz with one sentence a line.
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
build=$1 corpus=$2 output=$3
lists=/usr/share/dict/scowl
[ -e "$lists/english-words.10" ] || { echo "The word lists are missing; please install the package scowl." >&2; exit 1; }

"$root/scripts/build.sh" release "$build" -- vellumline-train-model >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Possessives are made by rule, and a list that has "thats" or "dont" would hide a slip.
words() { # OUTPUT LIST…
    local to=$1
    shift
    cat "$@" | grep -vE "'s$|^(dont|wont|cant|im|ive|id|ill|thats|whats|lets|alot|teh)$" | LC_ALL=C sort -u >"$to"
}
sizes() { # PREFIX SIZE…
    local prefix=$1 size
    shift
    for size in "$@"; do
        [ -e "$lists/$prefix.$size" ] && echo "$lists/$prefix.$size"
    done
}
common="10 20 35 40 50 55 60"
# shellcheck disable=SC2046,SC2086  # lists of files and of numbers
{
    words "$work/usual" $(sizes english-words 10 20 35 40 50) $(sizes american-words 10 20 35 40 50) \
        $(sizes british-words 10 20 35 40 50) $(sizes english-contractions 10 35 40 50)
    words "$work/american" $(sizes english-words $common 70) $(sizes american-words $common 70) \
        $(sizes english-contractions $common) $(sizes english-upper $common) $(sizes english-proper-names 35 40 50)
    words "$work/british" $(sizes english-words $common 70) $(sizes british-words $common 70) $(sizes british_z-words $common 70) \
        $(sizes british_variant_1-words $common) $(sizes english-contractions $common) $(sizes english-upper $common) \
        $(sizes english-proper-names 35 40 50)
}
inputs=("words:1:$work/american" "words:2:$work/british" "words:8:$work/usual")
# Half of the texts are books from before 1930; the newer ones count double.
for name in books textbooks government docs speech; do
    xz -dkc "$corpus/$name.txt.xz" >"$work/$name"
    inputs+=("text:$([ "$name" = books ] && echo 1 || echo 2):$work/$name")
done
"$build/VellumlineService/vellumline-train-model" "$output" "cutoffs:3:1:2:3" "${inputs[@]}"
