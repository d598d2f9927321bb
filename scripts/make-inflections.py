#!/usr/bin/env python3
"""Makes the table of inflected forms for the correction engine.

Usage: make-inflections.py CORPUS_DIRECTORY OUTPUT

CORPUS_DIRECTORY holds agid.txt.xz (Automatically Generated Inflection Database) and texts, *.txt.xz, one sentence a
line. Written is OUTPUT, sorted by form, so that a form is found by halving in the mapped file:

    form TAB reading,reading…      a reading is lemma:codes; that of the commonest lemma stands first

Codes: verbs b (base), d (past), n (past participle), g (-ing), z (third person); nouns s (singular), p (plural);
adjectives and adverbs a (plain), r (-er), t (-est). The form that is preferred for a lemma has its code in upper case.
A plain noun that is counted ("a chair") has the code c besides, one that is not ("furniture") the code m; neither
stands where the texts say too little or both.

Only lemmas that the texts use are kept: AGID has many that nobody writes, and each is a wrong reading of some slip.
"""
import collections
import glob
import lzma
import os
import re
import sys

WORD = re.compile(r"(?<![\w'@#./\\-])[a-z]+(?:'[a-z]+)?(?![\w'@/\\])")
BOUNDARY = r"(?=[,.;:!?]|\s(?:of|in|on|at|for|from|to|with|that|who|which|and|or|is|was|has|had|by|as)\b)"
COUNTED = re.compile(r"\b(?:a|an|every|each|another)\s(?:[a-z]+\s)?([a-z]+)" + BOUNDARY)
BARE = re.compile(r"\b(?:of|in|for|with|by|and|or|to|more|less|much|without)\s([a-z]+)" + BOUNDARY)
LEAST = 4


def count(directory):
    words, counted, bare = collections.Counter(), collections.Counter(), collections.Counter()
    for path in sorted(glob.glob(os.path.join(directory, "*.txt.xz"))):
        if os.path.basename(path).startswith("agid"):
            continue
        with lzma.open(path, "rt", encoding="utf-8") as lines:
            for line in lines:
                words.update(WORD.findall(line))
                counted.update(COUNTED.findall(line))
                bare.update(BARE.findall(line))
    return words, counted, bare


def variants(field):
    """(form, level) of one field such as "learned, learnt 1"; doubtful ones are left out."""
    found = []
    for piece in field.split(","):
        piece = re.sub(r"\{[^}]*\}", "", piece).strip()
        match = re.match(r"([A-Za-z']+)([~<!?]*)(?:\s+([\d.]+))?$", piece)
        if match and not set(match.group(2)) & set("?!<~") and float(match.group(3) or 0) < 2:
            found.append((match.group(1), float(match.group(3) or 0)))
    return found


def main():
    directory, output = sys.argv[1], sys.argv[2]
    words, counted, bare = count(directory)
    readings = collections.defaultdict(lambda: collections.defaultdict(list))

    def add(form, lemma, code, preferred):
        code = code.upper() if preferred else code
        have = readings[form][lemma]
        if code not in have and code.upper() not in have:
            have.append(code)

    with lzma.open(os.path.join(directory, "agid.txt.xz"), "rt", encoding="utf-8") as lines:
        for line in lines:
            match = re.match(r"([a-z]+) ([VNA])(\??): (.*)$", line.strip())
            if not match:
                continue
            lemma, kind, doubtful, rest = match.groups()
            if words[lemma] < LEAST:
                continue
            fields = [variants(field) for field in rest.split("|")]
            if kind == "N":
                forms = fields[0]
                if doubtful and not any(words[form] >= LEAST for form, _ in forms):
                    continue
                add(lemma, lemma, "s", True)
                if counted[lemma] >= 4 and counted[lemma] * 3 > bare[lemma]:
                    add(lemma, lemma, "c", False)
                elif bare[lemma] >= 20 and counted[lemma] * 8 < bare[lemma]:
                    add(lemma, lemma, "m", False)
                for at, (form, _) in enumerate(forms):
                    if words[form] or at == 0:
                        add(form, lemma, "p", at == 0)
            elif kind == "A":
                if len(fields) < 2 or not fields[0] or not words[fields[0][0][0]]:
                    continue
                add(lemma, lemma, "a", True)
                for code, forms in zip("rt", fields):
                    for at, (form, _) in enumerate(forms):
                        add(form, lemma, code, at == 0)
            elif lemma == "be":
                for form, code in (("be", "B"), ("was", "D"), ("were", "d"), ("been", "N"), ("being", "G"),
                                   ("is", "Z"), ("am", "b"), ("are", "b")):
                    readings[form]["be"].append(code)
            else:
                if len(fields) == 3:
                    fields = [fields[0], fields[0], fields[1], fields[2]]
                if len(fields) != 4 or not fields[2] or not fields[3]:
                    continue
                if doubtful and not (any(words[f] >= LEAST for f, _ in fields[0]) and words[fields[2][0][0]] >= LEAST):
                    continue
                add(lemma, lemma, "b", True)
                for code, forms in zip("dngz", fields):
                    for at, (form, level) in enumerate(forms):
                        if words[form] or at == 0:
                            add(form, lemma, code, at == 0)
    with open(output, "w", encoding="ascii") as out:
        for form in sorted(readings):
            commonest = sorted(readings[form].items(), key=lambda reading: (-words[reading[0]], reading[0]))
            cells = [f"{lemma}:{''.join(codes)}" for lemma, codes in commonest]
            out.write(f"{form}\t{','.join(cells)}\n")


main()
