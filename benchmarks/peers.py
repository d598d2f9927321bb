"""The measurement behind benchmarks/peers; runs inside a private desktop session."""

import argparse
import hashlib
import os
import re
import shutil
import statistics
import sys
import tempfile
import time

from bench_correction import RIGHT, WRONG, Keyboard, StandIn, sign_in
from desktop import (Failure, Programs, activate, clipboard, close_window_of, editable_text_of, press, run, say,
                     selected_text_of, service_port, text_of, wait_for, window_of)
from gi.repository import Atspi

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# How long a peer has for whatever it still does after the clipboard is back, before the next one is asked.
REST_SECONDS = 0.4

# From one mark of Vellumline's timing log to the next: what a person reads, and whether it is a wait by rule.
STEPS = (
    ("pressed", "begun", "shortcut to the start of the run"),
    ("begun", "probed", "what has the focus, what is selected"),
    ("probed", "snapshot", "snapshot of the clipboard"),
    ("snapshot", "guarded", "copy of it for the guardian"),
    ("guarded", "copy posted", "copy chord"),
    ("copy posted", "changed", "the editor copies, and it is seen"),
    ("changed", "settled", "quiet for 40 ms (settle rule)"),
    ("settled", "copy read", "reading the copy"),
    ("copy read", "asking", "giving the clipboard back"),
    ("asking", "asked", "request, until the service has it"),
    ("asked", "answered by the service", "the service"),
    ("answered by the service", "answered", "until the answer is read"),
    ("answered", "written", "correction to the clipboard"),
    ("written", "same place", "is it still the same place?"),
    ("same place", "paste posted", "paste chord"),
    ("paste posted", "changed text", "until the editor shows it"),
)


class Vellumline:
    name = "Vellumline"
    key = Keyboard.R

    def __init__(self, build, logs):
        self.program = os.path.join(build, "Vellumline", "vellumline")
        self.build = build
        self.log = os.path.join(logs, "vellumline.log")
        self.read = 0

    @staticmethod
    def missing():
        return None

    def start(self, programs, keyboard, _url):
        process = programs.start("vellumline", self.program, env=dict(os.environ, QT_LOGGING_RULES="vellumline.timing=true"))
        wait_for("the shortcut to be registered", 20, lambda: keyboard.shortcut_is_taken(self.key))
        sign_in(self.build)
        # While it is open, the welcome window looks once a second whether access was granted.
        wait_for("the welcome window to be closed", 10, lambda: close_window_of(process.pid))

    def wake(self):
        pass

    def rest(self):
        pass

    def marks(self):
        """Step → seconds of the monotonic clock, of what was logged since the last time."""
        with open(self.log, encoding="utf-8") as file:
            file.seek(self.read)
            text = file.read()
            self.read = file.tell()
        found = {}
        for step, microseconds in re.findall(r"vellumline\.timing: (.+) (\d+)$", text, re.MULTILINE):
            # An editor that copies in two steps changes the clipboard twice; the quiet begins with the last.
            found[step] = int(microseconds) / 1e6
        return found


class Script:
    name = "xdotool + xclip + curl"
    key = Keyboard.T

    @staticmethod
    def missing():
        return next((each for each in ("xbindkeys", "xdotool", "xclip", "curl", "jq") if not shutil.which(each)), None)

    def start(self, programs, keyboard, url):
        configuration = os.path.join(os.environ["HOME"], "xbindkeysrc")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(f'"{ROOT}/benchmarks/peer_script {url}"\n  control+alt+t\n')
        programs.start("xbindkeys", "xbindkeys", "-n", "-f", configuration)
        wait_for("the script's shortcut to be registered", 20, lambda: keyboard.shortcut_is_taken(self.key))

    def wake(self):
        pass

    def rest(self):
        pass


class CopyQ:
    name = "CopyQ"
    key = Keyboard.Y

    @staticmethod
    def missing():
        return None if shutil.which("copyq") else "copyq"

    def start(self, programs, keyboard, url):
        folder = os.path.join(os.environ["XDG_CONFIG_HOME"], "copyq")
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(ROOT, "benchmarks", "peer_copyq.js"), encoding="utf-8") as file:
            script = "copyq:\n" + file.read().replace("@URL@", url)
        quoted = script.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
        with open(os.path.join(folder, "copyq-commands.ini"), "w", encoding="utf-8") as file:
            file.write(f'[Commands]\n1\\Name=Correct\n1\\Command="{quoted}"\n1\\IsGlobalShortcut=true\n'
                       "1\\GlobalShortcut=ctrl+alt+y\nsize=1\n")
        programs.start("copyq", "copyq")
        wait_for("CopyQ's shortcut to be registered", 20, lambda: keyboard.shortcut_is_taken(self.key), 0.1)
        run("copyq", "hide")
        self.rest()

    # It would read every copy of the others, and slow them down.
    def wake(self):
        run("copyq", "enable")

    def rest(self):
        run("copyq", "disable")


class Figures:
    """What the rounds of one peer took, in milliseconds."""

    def __init__(self):
        self.before_request, self.after_answer, self.whole, self.steps = [], [], [], []


def holds(contents):
    # What a peer adds for itself is its own affair; what the user had must be there byte for byte.
    now = clipboard()
    return all(now.get(name) == value for name, value in contents.items())


def one_round(number, peer, keyboard, service, node, programs, figures):
    service.asked = service.answered = None
    path = os.path.join(os.environ["HOME"], "clipboard.txt")
    mine = f"What the user copied before round {number} of {peer.name}."
    with open(path, "w", encoding="utf-8") as file:
        file.write(mine)
    # Another owner each time: what a program put on the clipboard itself it would not have to read.
    owner = programs.start("owner", "xclip", "-selection", "clipboard", "-quiet", "-i", path)
    peer.wake()
    held = {"UTF8_STRING": (len(mine), hashlib.sha256(mine.encode()).hexdigest())}
    wait_for("the clipboard", 10, lambda: clipboard() == held, 0.1)
    Atspi.EditableText.set_text_contents(node, WRONG)
    wait_for("the wrong sentence", 5, lambda: text_of(node) == WRONG)
    # xdotool presses the shortcut's modifiers again after its script typed, also when they were let go meanwhile.
    run("xdotool", "keyup", "Control_L", "keyup", "Alt_L")
    press("ctrl+a")
    wait_for("the selection", 5, lambda: selected_text_of(node) == WRONG)
    time.sleep(0.2)
    pressed = keyboard.press_shortcut(peer.key)
    wait_for(f"the sentence corrected by {peer.name}", 10, lambda: text_of(node) == RIGHT, 0.001)
    changed = time.monotonic()
    wait_for(f"the clipboard to be given back by {peer.name}", 10, lambda: holds(held), 0.2)
    time.sleep(REST_SECONDS)
    if not holds(held):
        raise Failure(f"{peer.name} did not leave the clipboard as it was")
    peer.rest()
    programs.end(owner)
    steps = {}
    if isinstance(peer, Vellumline):
        marks = peer.marks()
        marks.update({"pressed": pressed, "asked": service.asked, "answered by the service": service.answered,
                      "changed text": changed})
        steps = {name: (marks[end] - marks[begin]) * 1000 for begin, end, name in STEPS}
    if number == 0:  # loads code and fonts
        return
    figures.before_request.append((service.asked - pressed) * 1000)
    figures.after_answer.append((changed - service.answered) * 1000)
    figures.whole.append((changed - pressed) * 1000)
    figures.steps.append(steps)


def ninth_decile(values):
    values = sorted(values)
    return values[min(len(values) - 1, int(len(values) * 0.9))]


def cell(values):
    return f"{statistics.median(values):.0f} ms ({ninth_decile(values):.0f})"


def report(results, rounds):
    with open("/proc/loadavg", encoding="ascii") as file:
        load = file.read().split()[0]
    say(f"\n{rounds} rounds, each peer in turn: median (p90). Load at the end: {load}, {os.cpu_count()} processors.\n")
    ours = results[0][1]
    say("| | " + " | ".join(peer.name for peer, _ in results) + " |")
    say("|---" * (len(results) + 1) + "|")
    say("| key press to changed text | " + " | ".join(cell(each.whole) for _, each in results) + " |")
    say("| of it until the service is asked | " + " | ".join(cell(each.before_request) for _, each in results) + " |")
    say("| of it from the answer on | " + " | ".join(cell(each.after_answer) for _, each in results) + " |")
    say("| Vellumline's part of the whole | | " + " | ".join(
        f"{statistics.median(ours.whole) / statistics.median(each.whole):.2f}" for _, each in results[1:]) + " |")
    say("| … median of the rounds' own ratios | | " + " | ".join(
        f"{statistics.median(a / b for a, b in zip(ours.whole, each.whole)):.2f}" for _, each in results[1:]) + " |")
    say("\n| Where Vellumline's time goes | median (p90) |\n|---|---|")
    for _, _, name in STEPS:
        values = [each[name] for each in ours.steps]
        say(f"| {name} | {statistics.median(values):.1f} ms ({ninth_decile(values):.1f}) |")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "run"))
    parser.add_argument("--rounds", type=int, default=30)
    parser.add_argument("--editor", default="mousepad")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory(dir=os.environ["XDG_RUNTIME_DIR"]) as logs:
        programs = Programs(logs)
        port = service_port()
        service = StandIn(StandIn.Request, port)
        keyboard = Keyboard()
        peers = []
        for peer in (Vellumline(os.path.abspath(options.build), logs), Script(), CopyQ()):
            missing = peer.missing()
            if missing:
                say(f"{peer.name} is left out: {missing} is not installed (scripts/packages.sh bench)")
            else:
                peers.append(peer)
        results = [(peer, Figures()) for peer in peers]
        try:
            for peer in peers:
                peer.start(programs, keyboard, f"http://127.0.0.1:{port}/v1/rewrite")
            path = os.path.join(os.environ["HOME"], "practice.txt")
            with open(path, "w", encoding="utf-8") as file:
                file.write(WRONG)
            editor = programs.start("editor", options.editor, path)
            activate(wait_for("the editor's window", 30, lambda: window_of(editor.pid), 0.1))
            node = wait_for("the editor's text", 15, lambda: editable_text_of(editor.pid), 0.1)
            for number in range(options.rounds + 1):
                for peer, figures in results:
                    one_round(number, peer, keyboard, service, node, programs, figures)
            report(results, options.rounds)
        except Failure as failure:
            say("FAILED: " + str(failure))
            for name in ("vellumline", "xbindkeys", "copyq", "editor"):
                if os.path.exists(os.path.join(logs, name + ".log")):
                    say(f"--- {name}\n" + programs.log(name)[-1500:])
            return 1
        finally:
            programs.end_all()
    return 0


if __name__ == "__main__":
    sys.exit(main())
