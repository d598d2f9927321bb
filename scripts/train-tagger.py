#!/usr/bin/env python3
"""Trains the part-of-speech tagger of the correction engine (an averaged perceptron, left to right).

Usage: train-tagger.py CORPUS_DIRECTORY INFLECTIONS OUTPUT

CORPUS_DIRECTORY holds pos-gum.tsv.xz and pos-craft.tsv.xz (word TAB Penn tag…, a blank line between sentences) and
INFLECTIONS is the table that make-inflections.py writes: the forms that a word can be are a feature. Every tenth
sentence of each file is held out; the accuracy on those is printed, before and after the weights are made small.
The same input gives the same model, byte for byte.

The features stand in `features` here and in Tagger.cpp; they must be the same.

Model, little endian: "VTAG1\\0\\0\\0", uint32 tags, slots, weights; tags of 8 bytes; slots of (uint32 hash, uint32 first,
with the number of weights in the upper 8 bits), hash 0 is an empty slot; weights of uint16: the tag in the lower 6 bits, above it the weight plus 512.
"""
import lzma
import os
import random
import struct
import sys

ROUNDS = 7
# A gene's article counts less than an interview: every third of its sentences is used.
FILES = (("pos-gum.tsv.xz", 1), ("pos-craft.tsv.xz", 3))
LEAST_UPDATES = 2


def read(path, step):
    sentences, sentence = [], []
    with lzma.open(path, "rt", encoding="utf-8") as lines:
        for line in list(lines) + ["\n"]:
            columns = line.rstrip("\n").split("\t")
            if len(columns) >= 2:
                sentence.append((columns[0].replace("\u2019", "'"), columns[1]))
            elif sentence:
                sentences.append(sentence)
                sentence = []
    held = sentences[::10]
    return [s for i, s in enumerate(sentences) if i % 10 and i % step == 1 % step], held


def read_classes(path):
    classes = {}
    with open(path, encoding="ascii") as lines:
        for line in lines:
            form, cells = line.rstrip("\n").split("\t")
            codes = {c.lower() for cell in cells.split(",") for c in cell.split(":")[1]}
            classes[form] = "".join(c for c in "bdngzspart" if c in codes)
    return classes


def shape(word):
    if any(c.isdigit() for c in word):
        return "d"
    if len(word) > 1 and word.isupper():
        return "U"
    if word[:1].isupper():
        return "C"
    return "w" if word[:1].isalpha() else "p"


def features(words, lows, kinds, shapes, i, one, two):
    """`one` and `two` are the tags of the word before and of the one before that."""
    def at(values, k):
        return values[k] if 0 <= k < len(values) else "-"

    low = lows[i]
    return (
        "a" + low,
        "b" + low[-3:],
        "c" + low[-2:],
        "d" + kinds[i] + shapes[i] + ("1" if i == 0 else "0"),
        "e" + one,
        "f" + one + " " + two,
        "g" + one + " " + low,
        "h" + at(lows, i - 1),
        "i" + at(lows, i + 1),
        "j" + at(lows, i + 1) + " " + low,
        "k" + at(kinds, i + 1) + " " + kinds[i],
        "l" + one + " " + kinds[i],
        "m" + at(lows, i + 1)[-3:] + " " + at(kinds, i + 1),
        "n" + at(lows, i - 2),
        "o" + at(lows, i + 2),
        "p" + one + " " + at(kinds, i + 1),
        "q" + one + " " + kinds[i] + " " + at(lows, i + 1),
        "r" + low[:3],
        "s" + at(lows, i - 1) + " " + kinds[i],
        "t" + one + " " + low[-3:] + " " + shapes[i],
    )


def prepare(sentence, classes):
    words = [word for word, _ in sentence]
    lows = [word.lower() for word in words]
    return words, lows, [classes.get(low, "?") for low in lows], [shape(word) for word in words]


def best(weights, found, tags):
    scores = {}
    for feature in found:
        row = weights.get(feature)
        if row:
            for tag, weight in row.items():
                scores[tag] = scores.get(tag, 0) + weight
    top, choice = None, tags[0]
    for tag in tags:
        score = scores.get(tag, 0)
        if top is None or score > top:
            top, choice = score, tag
    return choice


def accuracy(weights, sentences, classes, tags):
    right = total = 0
    for sentence in sentences:
        ready = prepare(sentence, classes)
        one, two = "-", "-"
        for i, (_, gold) in enumerate(sentence):
            guess = best(weights, features(*ready, i, one, two), tags)
            right += guess == gold
            total += 1
            two, one = one, guess
    return right / total


def train(sentences, classes, tags):
    weights, totals, stamps, updates = {}, {}, {}, {}
    step = 0
    order = list(range(len(sentences)))
    ready = [prepare(sentence, classes) for sentence in sentences]
    dice = random.Random(1)
    for _ in range(ROUNDS):
        dice.shuffle(order)
        for index in order:
            one, two = "-", "-"
            for i, (_, gold) in enumerate(sentences[index]):
                found = features(*ready[index], i, one, two)
                guess = best(weights, found, tags)
                step += 1
                if guess != gold:
                    for feature in found:
                        row = weights.setdefault(feature, {})
                        updates[feature] = updates.get(feature, 0) + 1
                        for tag, change in ((gold, 1), (guess, -1)):
                            key = (feature, tag)
                            value = row.get(tag, 0)
                            totals[key] = totals.get(key, 0) + (step - stamps.get(key, 0)) * value
                            stamps[key] = step
                            row[tag] = value + change
                two, one = one, guess
    averaged = {}
    for feature, row in weights.items():
        if updates[feature] < LEAST_UPDATES:
            continue
        made = {}
        for tag, value in row.items():
            key = (feature, tag)
            made[tag] = (totals[key] + (step - stamps[key]) * value) / step
        averaged[feature] = made
    return averaged


def quantised(weights):
    values = sorted(abs(v) for row in weights.values() for v in row.values())
    scale = 511 / values[int(len(values) * 0.9999)]
    made = {}
    for feature, row in weights.items():
        small = {tag: max(-511, min(511, round(v * scale))) for tag, v in row.items()}
        small = {tag: v for tag, v in small.items() if abs(v) >= 2}
        if small:
            made[feature] = small
    return made


def fnv(text):
    value = 2166136261
    for byte in text.encode():
        value = ((value ^ byte) * 16777619) & 0xFFFFFFFF
    return value or 1


def write(path, weights, tags):
    size = 1
    while size * 3 < len(weights) * 4:
        size *= 2
    slots = [(0, 0)] * size
    pool = bytearray()
    number = {tag: i for i, tag in enumerate(tags)}
    for feature in sorted(weights):
        value = fnv(feature)
        at = value & (size - 1)
        while slots[at][0] not in (0, value):
            at = (at + 1) & (size - 1)
        row = weights[feature]
        slots[at] = (value, len(pool) // 2 | len(row) << 24)
        for tag in sorted(row):
            pool += struct.pack("<H", number[tag] | row[tag] + 512 << 6)
    with open(path, "wb") as out:
        out.write(b"VTAG1\0\0\0" + struct.pack("<III", len(tags), size, len(pool) // 2))
        for tag in tags:
            out.write(tag.encode().ljust(8, b"\0"))
        for slot in slots:
            out.write(struct.pack("<II", *slot))
        out.write(pool)


def main():
    directory, inflections, output = sys.argv[1:4]
    classes = read_classes(inflections)
    sentences, held = [], []
    for name, step in FILES:
        training, apart = read(os.path.join(directory, name), step)
        sentences += training
        held.append((name, apart))
    tags = sorted({tag for sentence in sentences for _, tag in sentence})
    print(f"{len(sentences)} sentences, {sum(map(len, sentences))} tokens, {len(tags)} tags")
    weights = train(sentences, classes, tags)
    for name, apart in held:
        print(f"{name}: {100 * accuracy(weights, apart, classes, tags):.2f} % of the held-out tokens right")
    weights = quantised(weights)
    for name, apart in held:
        print(f"{name}: {100 * accuracy(weights, apart, classes, tags):.2f} % with small weights")
    write(output, weights, tags)
    print(f"{len(weights)} features, {os.path.getsize(output)} bytes")


main()
