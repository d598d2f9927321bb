#!/usr/bin/env python3
"""Counts lower-case words of a text corpus for the correction engine.

Usage: train-word-counts.py CORPUS_DIRECTORY OUTPUT [MINIMUM_COUNT]

CORPUS_DIRECTORY holds *.txt.xz files with one sentence a line and a SOURCES.tsv that names every source with its
licence. Written is OUTPUT, one "word TAB count TAB class" a line, sorted by word, and nothing else of the corpus. Words are
counted only where they stand in lower case: a capital at the start of a sentence cannot be told from a name's.
Modern texts count double, because half of the corpus is prose from before 1930.

The class is "n" for a word that stands as a singular noun ("a WORD of") far more often than as a verb ("to WORD",
"don't WORD"), "v" the other way round, else "-".
"""
import collections
import glob
import lzma
import os
import re
import sys

WORD = re.compile(r"(?<![\w'@#./\\-])[a-z]+(?:'[a-z]+)?(?![\w'@/\\])")
BOUNDARY = r"(?=[,.;:!?]|\s(?:of|in|on|at|for|from|to|with|that|who|which|and|or|is|was|has|had|by|as)\b)"
NOUN = re.compile(r"\b(?:a|an|one|every|each|another)\s([a-z]+)" + BOUNDARY)
VERB = re.compile(r"\b(?:to|don't|didn't|cannot)\s([a-z]+)\b")
WEIGHT = {"books.txt.xz": 1}


def word_class(count, noun, verb):
    if noun >= 5 and noun > 6 * verb:
        return "n"
    if verb >= 10 and verb > 6 * noun and verb * 12 > count:
        return "v"
    return "-"


def main():
    directory, output = sys.argv[1], sys.argv[2]
    minimum = int(sys.argv[3]) if len(sys.argv) > 3 else 6
    counts = collections.Counter()
    nouns = collections.Counter()
    verbs = collections.Counter()
    for path in sorted(glob.glob(os.path.join(directory, "*.txt.xz"))):
        name = os.path.basename(path)
        if name.startswith("agid"):
            continue
        here = collections.Counter()
        with lzma.open(path, "rt", encoding="utf-8") as lines:
            for line in lines:
                here.update(WORD.findall(line))
                nouns.update(NOUN.findall(line))
                verbs.update(VERB.findall(line))
        weight = WEIGHT.get(name, 2)
        for word, count in here.items():
            counts[word] += weight * count
    with open(output, "w", encoding="ascii") as out:
        for word in sorted(counts):
            if counts[word] >= minimum and (len(word) > 1 or word in ("a",)):
                out.write(f"{word}\t{counts[word]}\t{word_class(counts[word], nouns[word], verbs[word])}\n")


main()
