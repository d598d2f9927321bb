"""The measurement behind benchmarks/bench_correction; runs inside a private desktop session."""

import argparse
import base64
import ctypes
import json
import os
import statistics
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "demo"))

import stand_in  # noqa: E402
from desktop import (Failure, Programs, activate, clipboard, close_window_of, editable_text_of,  # noqa: E402
                     press, run, same_contents, say, selected_text_of, service_port, text_of, wait_for, window_of)
from gi.repository import Atspi  # noqa: E402

WRONG = "i has went to the shop yesterday and buyed three apple."
RIGHT = "I went to the shop yesterday and bought three apples."
# What one copy waits by rule: 40 ms of quiet after the clipboard's change.
DESCRIBED_WAIT_MS = 40.0


class StandIn(stand_in.StandIn):
    """Signs everybody in, corrects everything to RIGHT at once, and notes when a rewrite was asked and answered."""

    asked = answered = None

    class Request(stand_in.Request):
        def do_POST(self):
            self.arrived = time.monotonic()
            super().do_POST()

        def rewrite(self, text):
            self.server.asked = self.arrived
            self.reply({"text": RIGHT})
            self.server.answered = time.monotonic()

        def renew(self, body):
            part = base64.urlsafe_b64encode(json.dumps({"exp": int(time.time()) + 86400, "sub": "1"}).encode())
            token = "e30." + part.decode().rstrip("=") + ".c2lnbmF0dXJl"
            self.reply({"access_token": token, "refresh_token": "refresh", "user_id": "1", "email": "bench@example.com"})


class Keyboard:
    """Key strokes through XTEST without starting a process for each, and a look at who holds a shortcut."""

    CONTROL, ALT, R, T, Y = 37, 64, 27, 28, 29  # evdev key codes of a pc105 keyboard, which Xvfb has
    CONTROL_AND_ALT = 4 | 8

    class Cookie(ctypes.Structure):
        _fields_ = [("sequence", ctypes.c_uint)]

    def __init__(self):
        self.xcb = ctypes.CDLL("libxcb.so.1")
        self.test = ctypes.CDLL("libxcb-xtest.so.0")
        self.xcb.xcb_connect.restype = ctypes.c_void_p
        self.xcb.xcb_request_check.restype = ctypes.c_void_p
        self.xcb.xcb_grab_key_checked.restype = self.Cookie
        self.connection = ctypes.c_void_p(self.xcb.xcb_connect(None, None))
        self.xcb.xcb_get_setup.restype = ctypes.c_void_p

        class Iterator(ctypes.Structure):
            _fields_ = [("data", ctypes.POINTER(ctypes.c_uint32)), ("rem", ctypes.c_int), ("index", ctypes.c_int)]

        self.xcb.xcb_setup_roots_iterator.restype = Iterator
        setup = ctypes.c_void_p(self.xcb.xcb_get_setup(self.connection))
        self.root = self.xcb.xcb_setup_roots_iterator(setup).data[0]  # the first member of a screen is its root

    def key(self, code, down):
        self.test.xcb_test_fake_input(self.connection, ctypes.c_uint8(2 if down else 3), ctypes.c_uint8(code), 0, 0, 0, 0, 0)
        self.xcb.xcb_flush(self.connection)

    def press_shortcut(self, key=R, held_seconds=0.08):
        """Presses Ctrl, Alt and a key as a hand does, some 80 ms long; answers when the key went down."""
        self.key(self.CONTROL, True)
        self.key(self.ALT, True)
        time.sleep(0.02)
        pressed = time.monotonic()
        self.key(key, True)

        def release():
            time.sleep(held_seconds)
            for code in (key, self.ALT, self.CONTROL):
                self.key(code, False)

        threading.Thread(target=release).start()
        return pressed

    def shortcut_is_taken(self, key=R):
        # With the server grabbed nobody can find our own attempt in the way.
        self.xcb.xcb_grab_server(self.connection)
        cookie = self.xcb.xcb_grab_key_checked(self.connection, 0, self.root, self.CONTROL_AND_ALT, key, 1, 1)
        error = self.xcb.xcb_request_check(self.connection, cookie)
        if not error:
            self.xcb.xcb_ungrab_key(self.connection, key, self.root, self.CONTROL_AND_ALT)
        self.xcb.xcb_ungrab_server(self.connection)
        self.xcb.xcb_flush(self.connection)
        return bool(error)


def memory(pid):
    """(PSS, private) of a process in MB."""
    values = {}
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        for line in file:
            name, _, rest = line.partition(":")
            if rest.strip().endswith("kB"):
                values[name] = int(rest.split()[0]) / 1024
    return values["Pss"], values["Private_Clean"] + values["Private_Dirty"]


def switches(pid):
    """Thread name → voluntary context switches so far: each is one end of a wait."""
    counts = {}
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/status", encoding="utf-8") as file:
            fields = dict(line.split(":", 1) for line in file if ":" in line)
        counts[task + " " + fields["Name"].strip()] = int(fields["voluntary_ctxt_switches"])
    return counts


def row(name, values, unit="ms"):
    values = sorted(values)
    say(f"{name:58} median {statistics.median(values):7.1f}  min {values[0]:7.1f}  "
        f"p90 {values[int(len(values) * 0.9) - (len(values) > 9)]:7.1f}  max {values[-1]:7.1f} {unit}")


def sign_in(build):
    applications = os.path.join(os.environ["XDG_DATA_HOME"], "applications")
    os.makedirs(applications, exist_ok=True)
    browser = os.path.join(os.environ["XDG_DATA_HOME"], "bench-browser")
    with open(browser, "w", encoding="utf-8") as script:
        script.write("#!/bin/sh\nexec xdg-open 'vellumline://auth?handoff=abcdefghijklmnopqrstuvwx'\n")
    os.chmod(browser, 0o755)
    with open(os.path.join(applications, "bench-browser.desktop"), "w", encoding="utf-8") as entry:
        entry.write("[Desktop Entry]\nType=Application\nName=Browser\n"
                    f"Exec={browser} %u\n"
                    "MimeType=x-scheme-handler/http;\nNoDisplay=true\n")
    run(os.path.join(ROOT, "scripts", "install-desktop-entry.sh"), os.path.join(build, "Vellumline", "vellumline"))
    run("update-desktop-database", applications)
    run("xdg-mime", "default", "bench-browser.desktop", "x-scheme-handler/http")
    run("xdg-open", "vellumline://sign-in")
    wait_for("the sign-in", 15, lambda: run("secret-tool", "lookup", "service", "com.kelthorne.vellumline.session",
                                            "account", "session") is not None, 0.1)


def correct(rounds, keyboard, service, editor, node, held):
    before_request, after_answer, whole = [], [], []
    for number in range(rounds + 2):
        service.asked = service.answered = None
        Atspi.EditableText.set_text_contents(node, WRONG)
        wait_for("the wrong sentence", 5, lambda: text_of(node) == WRONG)
        press("ctrl+a")
        wait_for("the selection", 5, lambda: selected_text_of(node) == WRONG)
        time.sleep(0.1)
        pressed = keyboard.press_shortcut()
        wait_for("the corrected sentence", 10, lambda: text_of(node) == RIGHT, 0.001)
        changed = time.monotonic()
        wait_for("the clipboard to be given back", 10, lambda: same_contents(held, clipboard()), 0.2)
        time.sleep(0.3)
        if number >= 2:  # the first ones load code and fonts
            before_request.append((service.asked - pressed) * 1000)
            after_answer.append((changed - service.answered) * 1000)
            whole.append((changed - pressed) * 1000)
    row("  key press to request on the wire", before_request)
    row(f"  … beyond the waits by rule ({DESCRIBED_WAIT_MS:.0f} ms)", [v - DESCRIBED_WAIT_MS for v in before_request])
    row("  request answered to text changed", after_answer)
    row("  key press to text changed", whole)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "run"))
    parser.add_argument("--rounds", type=int, default=30)
    parser.add_argument("--idle", type=float, default=20)
    parser.add_argument("--settle", type=float, default=35, help="seconds before something counts as idle")
    parser.add_argument("--editor", default="mousepad")
    options = parser.parse_args()
    build = os.path.abspath(options.build)

    with tempfile.TemporaryDirectory(dir=os.environ["XDG_RUNTIME_DIR"]) as logs:
        programs = Programs(logs)
        service = StandIn(StandIn.Request, service_port())
        keyboard = Keyboard()
        try:
            starts = []
            for _ in range(max(1, min(options.rounds, 5))):
                begin = time.monotonic()
                program = programs.start("vellumline", os.path.join(build, "Vellumline", "vellumline"))
                wait_for("the shortcut to be registered", 20, keyboard.shortcut_is_taken, 0.001)
                starts.append((time.monotonic() - begin) * 1000)
                time.sleep(0.5)
                programs.end(program)
                wait_for("the shortcut to be free", 10, lambda: not keyboard.shortcut_is_taken())
            row("start-up to shortcut registered", starts)

            program = programs.start("vellumline", os.path.join(build, "Vellumline", "vellumline"))
            wait_for("the shortcut to be registered", 20, keyboard.shortcut_is_taken)
            sign_in(build)
            # While it is open, the welcome window looks once a second whether access was granted.
            wait_for("the welcome window to be closed", 10, lambda: close_window_of(program.pid))

            def idle(when):
                # For half a minute after its start the program waits for a panel that could show its icon.
                time.sleep(options.settle)
                proportional, private = memory(program.pid)
                before = switches(program.pid)
                time.sleep(options.idle)
                after = switches(program.pid)
                woken = {name: count - before.get(name, 0) for name, count in after.items() if count != before.get(name, 0)}
                say(f"{'idle memory ' + when:58} PSS {proportional:.1f} MB, private {private:.1f} MB, {len(after)} threads")
                say(f"{'idle wakeups ' + when:58} {sum(woken.values()) / options.idle:.2f} a second over {options.idle:.0f} s "
                    f"{woken if woken else ''}")

            idle("after the sign-in")
            path = os.path.join(os.environ["HOME"], "practice.txt")
            with open(path, "w", encoding="utf-8") as file:
                file.write(WRONG)
            editor = programs.start("editor", options.editor, path)
            activate(wait_for("the editor's window", 30, lambda: window_of(editor.pid), 0.1))
            node = wait_for("the editor's text", 15, lambda: editable_text_of(editor.pid), 0.1)

            for label, command, targets in (
                    ("a short text", ["xclip", "-selection", "clipboard", "-quiet", "-i", path], {"UTF8_STRING"}),
                    ("an image of 1.6 MB and a text", [os.path.join(build, "demo", "vellumline-demo-clipboard"), "text"],
                     {"image/png"})):
                owner = programs.start("owner", *command)
                held = wait_for("the clipboard", 10,
                                lambda: (lambda c: c if targets <= set(c) else None)(clipboard()), 0.1)  # noqa: B023
                say(f"correction in {options.editor}, {options.rounds} rounds, the clipboard holds {label}")
                correct(options.rounds, keyboard, service, editor, node, held)
                programs.end(owner)
            idle("after the corrections")
        except Failure as failure:
            say("FAILED: " + str(failure))
            for name in ("vellumline", "editor"):
                if os.path.exists(os.path.join(logs, name + ".log")):
                    say(programs.log(name)[-1500:])
            return 1
        finally:
            programs.end_all()
    return 0


if __name__ == "__main__":
    sys.exit(main())
