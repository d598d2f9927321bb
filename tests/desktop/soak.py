"""Corrections one after another in editors of three toolkits, with random texts, clipboards and answers of the service.
After each the text is the corrected one, or the old one after a failure; the clipboard is what it was, byte for byte; no key
is down. The memory and the descriptors of the program are watched.

  soak.py --build FOLDER --output FOLDER [--rounds N] [--seconds S] [--seed S] [--first N] [--paste-delay MS]

Each round is made from the seed and its number alone: --seed S --first N --rounds 1 repeats one. A round that fails is told
with both, and the next one begins."""

import argparse
import ctypes
import hashlib
import json
import os
import random
import shutil
import statistics
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "demo"))
sys.path.insert(0, os.path.join(ROOT, "benchmarks"))

import stand_in  # noqa: E402
from bench_correction import Keyboard, memory  # noqa: E402
from desktop import (MARKER_TARGETS, PROTOCOL_TARGETS, Failure, Programs, activate, active_window,  # noqa: E402
                     editable_text_of, keep_session, press, run, say, screenshot, selected_text_of, text_of, wait_for,
                     welcomed, window_of)
from gi.repository import GLib  # noqa: E402

NAME = "com.kelthorne.vellumline"
MAXIMUM = 4000
EDITORS = {
    "mousepad": ("mousepad", "--disable-server"),
    "gnome-text-editor": ("gnome-text-editor", "--standalone"),
    "featherpad": ("featherpad", "--standalone"),
}
# The shortcut stays at its place; C and V move, or are in the second layout only. In one without them and without a
# second, no editor here pastes by Ctrl+V, whoever presses it.
LAYOUTS = [("de",), ("fr",), ("ru,us",), ("us", "dvorak"), ("gr,us",), ("tr",), ("us,ru",)]
MOST_FAILURES = 20
# Rounds in which what was measured is compared at the end: the first ones load code, fonts and plugins.
WARM_UP = 10
# What the allocator keeps of a snapshot of 20 MB, its copy and its transfer; a leak of 10 KB a round is 50 MB in 5,000.
LARGEST_GROWTH_MB = 40


# Texts

FAMILIES = ["👨‍👩‍👧‍👦", "🏳️‍🌈", "👩🏽‍🚀", "🇩🇪🇫🇷", "❤️‍🔥", "🏴󠁧󠁢󠁳󠁣󠁴󠁿", "1️⃣", "🧑🏿‍🤝‍🧑🏻"]
SCRIPTS = {
    "latin": [chr(c) for c in (*range(0x61, 0x7b), 0x20, 0x20, 0x20, 0x2e, 0x2c, 0xe9, 0xdf, 0x11f, 0x130)],
    "hebrew and arabic": [*"שלום עולם مرحبا بالعالم ", "\u05b8", "\u0651", "\u200f", "\u202b", "\u202c", "\u2067", "\u2069"],
    "combining": [*"aeiouxn ", *(chr(c) for c in range(0x300, 0x370))],
    "indic and thai": [*"नमस्ते दुनिया สวัสดีชาวโลก ", "\u200d", "\u200c"],
    "cjk": [*"漢字仮名交じり文。한국어 ", "\u1112", "\u1161", "\u11ab"],
    "emoji": [*FAMILIES, "🙂", " "],
    # A code point of each assigned plane, and of both for private use.
    "planes": [*"𝔸𐍈𓀀🀄𠀀𪛖𰀀", "\U000e0100", "\U000e0041", "\U000f0000", "\U0010fffd", "\ufffd", "\u200b", "\ufeff", "x", " "],
    "escapes": [*"\"'\\/<>&%{}[]$`#;|", "\\u0000", "</text>", " "],
}
BREAKS = ["\n", "\t", "\n\n", " \n"]


def random_text(dice, length):
    """So many code points, of one script or of all, in lines; CR LF in one of four."""
    pools = list(SCRIPTS.values()) if dice.random() < 0.3 else [dice.choice(list(SCRIPTS.values()))]
    breaks = ["\r\n", "\t"] if dice.random() < 0.25 else BREAKS
    parts, total = [], 0
    while total < length:
        part = dice.choice(breaks) if dice.random() < 0.02 else dice.choice(dice.choice(pools))
        parts.append(part)
        total += len(part)
    # What is cut off must not be half of a line break.
    text = "".join(parts)[:length].rstrip("\r")
    return text if text.strip(" \n\r\t\u200b\ufeff\u200c\u200d") else "x" + text[1:]


def plain(text):
    """As every editor tells its lines; Qt's know one kind of line break."""
    return text.replace("\r\n", "\n").replace("\r", "\n")


def set_layout(layout, variant=None):
    if run("setxkbmap", "-layout", layout, "-variant", variant or "") is None:
        raise Failure("no layout " + layout)


# The clipboard

def random_clipboard(dice, folder):
    """Writes what the clipboard shall hold into the folder; its kind. An empty one has no targets."""
    kind = dice.choices(["text", "rich text", "image", "files", "odd targets", "empty", "20 MB"],
                        [25, 20, 20, 12, 12, 8, 3])[0]
    text = random_text(dice, dice.randint(1, 2000)).encode()
    targets = {}
    if kind == "text":
        targets = {"text/plain": text}
    elif kind == "rich text":
        targets = {"text/html": b"<p><b>" + text + b"</b></p>", "text/plain": text,
                   "text/rtf": b"{\\rtf1\\ansi{\\fonttbl{\\f0 Georgia;}}\\f0\\fs28 rich}"}
    elif kind == "image":
        targets = {dice.choice(["image/png", "image/bmp", "image/tiff"]): dice.randbytes(dice.randint(1, 2_000_000))}
        if dice.random() < 0.5:
            targets["text/plain"] = text
    elif kind == "files":
        paths = [f"file:///srv/pictures/{dice.randint(0, 9999)}%20a.txt" for _ in range(dice.randint(1, 40))]
        targets = {"text/uri-list": "".join(path + "\r\n" for path in paths).encode(),
                   "x-special/gnome-copied-files": ("copy\n" + "\n".join(paths)).encode(),
                   "application/x-kde-cutselection": b"0"}
    elif kind == "odd targets":
        for number in range(dice.randint(1, 20)):
            name = dice.choice([f"_ODD_{number}", f"application/x-odd;n={number};charset=\"utf 8\"", f"name with spaces {number}",
                                f"a{number}", f"x-long/{'y' * 200}{number}"])
            targets[name] = dice.randbytes(dice.choice([0, 1, 7, 4096, 300_000]))
    elif kind == "20 MB":
        targets = {"application/octet-stream": dice.randbytes(20_000_000), "text/plain": text}
    with open(os.path.join(folder, "targets"), "w", encoding="utf-8") as file:
        file.write("\n".join(targets))
    for number, data in enumerate(targets.values()):
        with open(os.path.join(folder, str(number)), "wb") as file:
            file.write(data)
    return kind


def clipboard():
    """As in the demonstration, for names with spaces too: target → SHA-256."""
    names = run("xclip", "-selection", "clipboard", "-o", "-t", "TARGETS", timeout=5) or b""
    contents = {}
    for name in names.decode().splitlines():
        if name not in PROTOCOL_TARGETS | MARKER_TARGETS:
            data = run("xclip", "-selection", "clipboard", "-o", "-t", name, timeout=20)
            contents[name] = None if data is None else (len(data), hashlib.sha256(data).hexdigest())
    return contents


class Owner:
    """The program that has copied what is on the clipboard."""

    def __init__(self, build, folder):
        self.folder = folder
        self.process = subprocess.Popen([os.path.join(build, "tests", "desktop", "vellumline-clipboard-owner")],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def tell(self, command):
        self.process.stdin.write(command.encode() + b"\n")
        self.process.stdin.flush()
        if self.process.stdout.readline() != b"ready\n":
            raise Failure("the owner of the clipboard ended")

    def offer_text(self, text):
        with open(os.path.join(self.folder, "targets"), "w", encoding="utf-8") as file:
            file.write("text/plain")
        with open(os.path.join(self.folder, "0"), "wb") as file:
            file.write(text.encode())
        self.tell("own " + self.folder)

    def offer(self, dice):
        kind = random_clipboard(dice, self.folder)
        # Who had it last may have been Vellumline: only an owner can leave the clipboard without one.
        self.tell("own " + self.folder)
        if kind == "empty":
            self.tell("clear")
        return kind


# The service

class StandIn(stand_in.StandIn):
    """Answers the next rewrite as it was told to."""

    status, body, delay, renewals, broken = 200, b"", 0.0, 0, ""
    requests = []
    answered = 0

    class Request(stand_in.Request):
        def rewrite(self, text):
            server = self.server
            if server.renewals > 0:
                server.renewals -= 1
                self.reply(b"{}", 401)
                return
            server.requests.append(text)
            time.sleep(server.delay)
            try:
                if server.broken != "nothing":
                    self.reply(server.body, server.status, len(server.body) + (5 if server.broken == "short" else 0))
            except OSError:
                pass
            self.close_connection = bool(server.broken) or server.status != 200
            server.answered += 1


def corrected(dice, text):
    """What the service makes of the text."""
    return dice.choice([
        lambda: text.upper(),
        lambda: text.replace("e", "é").replace(" ", "  ") + ".",
        lambda: "I " + text,
        lambda: random_text(dice, dice.randint(1, MAXIMUM)),
        lambda: random_text(dice, dice.randint(1, 20)),
        lambda: text,
    ])()


def random_answer(dice, service, text):
    """Tells the service what to answer; the kind, and the correction if it is one."""
    kind = dice.choices(["correction", "slow correction", "correction after a renewed token", "error", "garbage", "cut off",
                         "no answer"], [60, 8, 5, 12, 8, 4, 3])[0]
    service.status, service.delay, service.renewals, service.broken = 200, 0.0, 0, ""
    service.requests, service.answered = [], 0
    correction = None
    if "correction" in kind:
        correction = corrected(dice, text)
        service.body = json.dumps({"text": correction}, ensure_ascii=dice.random() < 0.5).encode()
        service.delay = dice.uniform(0.3, 2) if kind == "slow correction" else dice.choice([0, 0, 0.05])
        service.renewals = 1 if kind == "correction after a renewed token" else 0
    elif kind == "error":
        service.status = dice.choice([400, 404, 429, 500, 502, 503, 504])
        service.body = dice.choice([b"", b"{\"error\":\"no\"}", b"<html>busy</html>"])
    elif kind == "garbage":
        service.body = dice.choice([b"", b"null", b"[]", b"{\"text\":7}", b"{\"text\":\"\"}", b"{\"text\":\"half", b"{\"text\":\" \\n\"}",
                                    b"[" * 5000, b"{\"text\":\"\xff\xfe", dice.randbytes(3000), dice.randbytes(3_000_000)])
    else:
        service.body = json.dumps({"text": "cut off"}).encode()
        service.broken = "short" if kind == "cut off" else "nothing"
    return kind, correction


# The desktop

class Keys(Keyboard):
    class Reply(ctypes.Structure):
        _fields_ = [("head", ctypes.c_uint8 * 8), ("keys", ctypes.c_uint8 * 32)]

    def __init__(self):
        super().__init__()
        self.xcb.xcb_query_keymap.restype = self.Cookie
        self.xcb.xcb_query_keymap_reply.restype = ctypes.POINTER(self.Reply)
        self.free = ctypes.CDLL(None).free

    def down(self):
        reply = self.xcb.xcb_query_keymap_reply(self.connection, self.xcb.xcb_query_keymap(self.connection), None)
        codes = [8 * index + bit for index, byte in enumerate(reply.contents.keys) for bit in range(8) if byte >> bit & 1]
        self.free(reply)
        return codes


class Editor:
    def __init__(self, name, programs):
        self.name = name
        path = os.path.join(os.environ["HOME"], name + ".txt")
        with open(path, "w", encoding="utf-8") as file:
            file.write("practice")
        self.process = programs.start(name, *EDITORS[name], path)
        self.window = wait_for(f"the window of {name}", 30, lambda: window_of(self.process.pid), 0.1)
        activate(self.window)
        self.node = wait_for(f"the text of {name}", 20, lambda: editable_text_of(self.process.pid), 0.1)

    def text(self):
        return plain(self.ask(text_of))

    def ask(self, question):
        """An editor that is busy with a long text, on a busy machine, lets a question time out."""
        for _ in range(5):
            try:
                return question(self.node)
            except GLib.Error:
                time.sleep(0.2)
        raise Failure(f"{self.name} does not answer")

    def pasted(self, text):
        """What is there once a text has been pasted."""
        # Qt takes what a text of the clipboard begins with for the mark of its encoding.
        return plain(text).removeprefix("\ufeff") if self.name == "featherpad" else plain(text)

    def select_all(self, text):
        def selected():
            press("ctrl+a")
            try:
                wait_for("it", 1, lambda: plain(self.ask(selected_text_of)) == plain(text))
            except Failure:
                return False
            return True

        wait_for(f"the text to be selected in {self.name}", 8, selected)

    def fill(self, text, owner):
        """Replaces the whole text, by way of the clipboard, as every toolkit can."""
        if active_window() != int(self.window, 16):
            activate(self.window)
        owner.offer_text(text)

        def pasted():
            press("ctrl+a", "ctrl+v")
            try:
                wait_for("it", 1.5, lambda: self.text() == self.pasted(text))
            except Failure:
                return False
            return True

        wait_for(f"the text to be in {self.name}", 10, pasted)
        self.select_all(self.pasted(text))


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


class Soak:
    def __init__(self, options, programs):
        self.options, self.programs = options, programs
        folder = os.path.join(options.output, "clipboard")
        os.makedirs(folder, exist_ok=True)
        self.owner = Owner(options.build, folder)
        self.keys = Keys()
        self.service = StandIn(StandIn.Request)
        os.environ["VELLUMLINE_ORIGIN"] = self.service.origin
        self.program = programs.start("vellumline", os.path.join(options.build, "Vellumline", "vellumline"),
                                      "--no-local-service")
        wait_for("the shortcut to be registered", 20, self.keys.shortcut_is_taken)
        self.editors = [Editor(name, programs) for name in EDITORS if shutil.which(name)]
        self.counts, self.memories, self.descriptors, self.seconds = {}, [], [], []

    def round(self, number):
        dice = random.Random(f"{self.options.seed}:{number}")
        editor = dice.choice(self.editors)
        length = dice.choice([1, 2, MAXIMUM]) if dice.random() < 0.1 else int(MAXIMUM ** dice.random())
        special = dice.choices(["", "too long", "blank"], [94, 3, 3])[0]
        if special == "too long":
            text = "".join(dice.choices("abcdefg hij", k=MAXIMUM + dice.choice([1, 50, 3000])))
        elif special == "blank":
            text = dice.choice([" ", "\t", "\n", " \n\t "])
        else:
            text = random_text(dice, length)
        layout = dice.choice(LAYOUTS) if dice.random() < 0.15 else None
        editor.fill(text, self.owner)
        text = editor.pasted(text)
        answer, correction = random_answer(dice, self.service, text)
        holds = self.owner.offer(dice)
        before = clipboard()
        label = (f"round {number} of seed {self.options.seed} ({editor.name}, {len(text)} code points, {special or answer}, the clipboard "
                 f"holds {holds}, layout {layout or 'us'})")
        if layout:
            set_layout(*layout)
            wait_for("the shortcut in the other layout", 5, self.keys.shortcut_is_taken)
        begin = time.monotonic()
        self.keys.press_shortcut(held_seconds=dice.uniform(0.03, 0.25))
        try:
            if special:
                time.sleep(1)
                self.expect(not self.service.requests, "something was sent")
            else:
                wait_for("the request", 10, lambda: self.service.requests, 0.005)
                self.expect(plain(self.service.requests[0]) == plain(text),
                            f"the request was {ascii(self.service.requests[0][:100])}")
                # One that changes nothing is not seen in the editor.
                wait_for("the answer", 10, lambda: self.service.answered, 0.005)
            if special or correction is None:
                time.sleep(0.4)
                self.expect(editor.text() == plain(text), "the text was touched")
            else:
                wait_for("the correction", 12, lambda: editor.text() == editor.pasted(correction), 0.01)
                self.seconds.append(time.monotonic() - begin - self.service.delay)
                # The clipboard is given back then; what comes too early would be pasted instead.
                time.sleep(self.options.paste_delay / 1000 + 0.05)
            wait_for("the clipboard to be what it was", 6, lambda: clipboard() == before, 0.1)
            self.expect(len(self.service.requests) == (0 if special else 1),
                        f"{len(self.service.requests)} requests were sent")
            wait_for("the keys to be up", 3, lambda: not self.keys.down())
            self.expect(self.program.poll() is None, "the program ended")
            self.expect(editor.text() == (plain(text) if special or correction is None else editor.pasted(correction)),
                        "the text changed once more")
        except Failure as failure:
            after = clipboard()
            seen = Failure(f"{label}: {failure}\n  the program says {run(self.program.args[0], 'status')}\n  keys down {self.keys.down()}"
                           f"\n  the text was {ascii(text[:100])}\n  the text is  {ascii(editor.text()[:100])}"
                           f"\n  the service had {ascii(self.service.body[:100])}"
                           f"\n  the clipboard had {before}\n  the clipboard has {after}")
            # What this round has left under way is none of the next one's.
            wait_for("the program to be done", 30, lambda: json.loads(
                run(self.program.args[0], "status", "--json") or b"{}").get("busy") is False, 0.2)
            raise seen from failure
        finally:
            if layout:
                set_layout("us")
        for what in (editor.name, "clipboard: " + holds, "answer: " + (special or answer),
                     "layout: " + " ".join(layout or ("us",))):
            self.counts[what] = self.counts.get(what, 0) + 1
        if holds != "20 MB":
            self.memories.append(memory(self.program.pid)[0])
        self.descriptors.append(descriptors(self.program.pid))

    @staticmethod
    def expect(condition, otherwise):
        if not condition:
            raise Failure(otherwise)

    def report(self, rounds, failures, seconds):
        say(f"{'FAILED ' if failures else 'ok     '}  {rounds} rounds in {seconds:.0f} s with seed {self.options.seed}: in all but "
            f"{failures} the text right, the clipboard what it was, no key down")
        for what in sorted(self.counts):
            say(f"         {self.counts[what]:6} {what}")
        say(f"         key press to changed text, delay of the service left out: median {statistics.median(self.seconds) * 1000:.0f} ms, "
            f"longest {max(self.seconds) * 1000:.0f} ms")
        tenth = max(1, (len(self.memories) - WARM_UP) // 10)
        early = statistics.median(self.memories[WARM_UP:WARM_UP + tenth] or self.memories)
        late = statistics.median(self.memories[-tenth:])
        say(f"         memory (PSS) in the first and the last tenth after {WARM_UP} rounds: {early:.1f} MB, {late:.1f} MB; "
            f"at most {max(self.memories):.1f} MB")
        # A connection or a transfer may be open for a moment, so that a look between is worth as little as one of memory.
        first, last = (statistics.median(part) for part in (self.descriptors[WARM_UP:WARM_UP + tenth] or self.descriptors,
                                                            self.descriptors[-tenth:]))
        say(f"         descriptors in the same: {first:.0f}, {last:.0f}; at most {max(self.descriptors)}")
        if last > first + 3:
            raise Failure("descriptors are left open")
        # AddressSanitizer keeps what was freed, to know it again.
        if late > early + LARGEST_GROWTH_MB and "ASAN_OPTIONS" not in os.environ:
            raise Failure("the memory grows")


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--output", required=True)
    arguments.add_argument("--rounds", type=int, default=30)
    arguments.add_argument("--seconds", type=float, default=0, help="go on after the rounds until so many have passed")
    arguments.add_argument("--seed", type=int, default=None)
    arguments.add_argument("--first", type=int, default=0)
    arguments.add_argument("--paste-delay", type=int, default=600, help="milliseconds; the program's own are 600")
    options = arguments.parse_args()
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(1_000_000)
    os.makedirs(options.output, exist_ok=True)
    welcomed(pasteDelayMs=options.paste_delay)
    keep_session()
    programs = Programs(options.output)
    begin, failures = time.monotonic(), 0
    try:
        soak = Soak(options, programs)
        number = options.first
        while number < options.first + options.rounds or time.monotonic() - begin < options.seconds:
            try:
                soak.round(number)
            except Failure as failure:
                say("FAILED   " + str(failure))
                screenshot(os.path.join(options.output, f"failed-{number}.png"))
                failures += 1
                if failures == MOST_FAILURES or soak.program.poll() is not None:
                    return 1
            number += 1
            if (number - options.first) % 100 == 0:
                say(f"         {number - options.first} rounds, {time.monotonic() - begin:.0f} s, "
                    f"PSS {soak.memories[-1]:.1f} MB, {soak.descriptors[-1]} descriptors")
        soak.report(number - options.first, failures, time.monotonic() - begin)
    except Failure as failure:
        say("FAILED   " + str(failure))
        screenshot(os.path.join(options.output, "failed.png"))
        return 1
    finally:
        programs.end_all()
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
