#!/usr/bin/env python3
"""Measures each rule of the correction engine by itself.

Usage: measure-rules.py KIT_DIRECTORY PROGRAM [RULE…]

KIT_DIRECTORY is the measuring kit (its measure.py and sets), PROGRAM is vellumline-correct. Printed is a table: how many
lines of the sets of correct sentences a rule changed, how many sentences of learners it changed, and how many sentences of
the sets with errors are better or worse with the rule than without it. With names of rules: only those, and the lines themselves.
"""
import json
import os
import subprocess
import sys


def run(program, lines, *options):
    text = "".join(line + "\n" for line in lines)
    out = subprocess.run([program, *options], input=text, capture_output=True, text=True, check=True).stdout
    return out.split("\n")[:-1]


def explained(program, lines):
    """For each line the corrected one and the changes (rule, text)."""
    answers = []
    for line in run(program, lines, "--explain"):
        if line.startswith("\t"):
            rule, _, what = line.strip().partition(": ")
            answers[-1][1].append((rule, what.rsplit(" (", 1)[0]))
        else:
            answers.append((line, []))
    return answers


def main():
    kit, program, wanted = sys.argv[1], sys.argv[2], sys.argv[3:]
    sys.path.insert(0, kit)
    import gecio
    import metrics

    def lines(name):
        with open(os.path.join(kit, "sets", name, "src.txt"), encoding="utf-8") as source:
            return [line.rstrip("\n") for line in source]

    rules = [line.split("\t")[0] for line in run(program, [], "--list-rules")]
    table = {rule: [0, 0, 0, 0, 0, 0] for rule in rules}
    for name in ("clean-dev-book", "clean-dev-textbook", "clean-dev-web"):
        source = lines(name)
        for before, (_, changes) in zip(source, explained(program, source)):
            for rule in {rule for rule, _ in changes}:
                table[rule][0] += 1
                if rule in wanted:
                    print(f"{name}: {before}\n    ", [what for made, what in changes if made == rule])

    source = lines("jfleg-dev")
    root = os.path.join(kit, "sets", "jfleg-dev")
    tokens = [line.split() for line in open(os.path.join(root, "src.tok"), encoding="utf-8")]
    style = json.load(open(os.path.join(root, "meta.json")))["style"]
    references = list(zip(*[[line.split() for line in open(os.path.join(root, f"ref{k}.tok"), encoding="utf-8")] for k in range(4)]))
    groups = [gecio.raw_groups(t, s) or gecio.detok_groups(t, style) for t, s in zip(tokens, source)]
    answers = explained(program, source)

    def score(i, text):
        return metrics.sent_gleu(gecio.retok(groups[i], tokens[i], text, style), tokens[i], references[i])

    items = [json.loads(line) for line in open(os.path.join(kit, "sets", "native-dev", "items.jsonl"), encoding="utf-8")]
    native = explained(program, [item["src"] for item in items])
    for rule in rules:
        if wanted and rule not in wanted:
            continue
        fired = [i for i, (_, changes) in enumerate(answers) if any(made == rule for made, _ in changes)]
        table[rule][1] = len(fired)
        for i, without in zip(fired, run(program, [source[i] for i in fired], "--disable", rule)):
            difference = score(i, answers[i][0]) - score(i, without)
            table[rule][2] += difference > 1e-9
            table[rule][3] += difference < -1e-9
            if wanted:
                sign = "+" if difference > 1e-9 else "-" if difference < -1e-9 else "="
                print(sign, source[i], [what for made, what in answers[i][1] if made == rule])
        fired = [i for i, (_, changes) in enumerate(native) if any(made == rule for made, _ in changes)]
        for i, without in zip(fired, run(program, [items[i]["src"] for i in fired], "--disable", rule)):
            here, there = native[i][0] in items[i]["accept"], without in items[i]["accept"]
            table[rule][4] += here and not there
            table[rule][5] += there and not here
    print("| rule | clean lines changed, of 2600 | learners: applied | better | worse | everyday: right | wrong |")
    print("|---|---|---|---|---|---|---|")
    for rule in rules:
        if not wanted or rule in wanted:
            print(f"| {rule} | {' | '.join(str(value) for value in table[rule])} |")


main()
