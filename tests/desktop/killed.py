"""The program is killed at every step of a correction: the user's clipboard is not lost, the text is the old one or the
new one, no key stays down, and the next start works."""

import argparse
import os
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "demo"))

import stand_in  # noqa: E402
from desktop import (Failure, Programs, activate, clipboard, editable_text_of, keep_session, press, run,  # noqa: E402
                     same_contents, say, screenshot, selected_text_of, text_of, wait_for, welcomed, window_of)

NAME = "com.kelthorne.Vellumline"
SENTENCE = "i has went to the shop yesterday and buyed three apple."
CORRECTED = "I went to the shop yesterday and bought three apples."
# Milliseconds after the key press. The copy takes the first 60 or so, the answer 150, the paste 600.
MOMENTS = [0, 2, 4, 6, 8, 10, 15, 20, 30, 40, 50, 60, 70, 80, 100, 130, 160, 200, 205, 210, 215, 220, 230, 250, 300, 400, 600,
           800, 1000, 1500]
ANSWER_SECONDS = 0.15


class Request(stand_in.Request):
    """Corrects a moment later, so that every step can be hit."""

    def rewrite(self, text):
        time.sleep(ANSWER_SECONDS)
        self.reply({"text": CORRECTED})


def is_on_bus():
    return b"true" in (run("gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path",
                           "/org/freedesktop/DBus", "--method", "org.freedesktop.DBus.NameHasOwner", NAME) or b"")


def keys_down():
    """What any keyboard of the server says is down."""
    devices = (run("xinput", "list", "--id-only") or b"").split()
    return [line for device in devices
            for line in (run("xinput", "query-state", device.decode()) or b"").decode().splitlines()
            if "key[" in line and line.endswith("=down")]


def guardian_of(program):
    """Its process; other tests that run beside this one have theirs."""
    return (run("pgrep", "-x", "-P", str(program.pid), "vellumline-guar") or b"").decode().split()


def is_running(process):
    # A zombie that nobody has collected has ended all the same.
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8") as file:
            return file.read().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def kill_after(moment, build, programs, text, window):
    """One correction, killed that many milliseconds after its key press; whether the text was corrected."""
    program = programs.start("vellumline", os.path.join(build, "Vellumline", "vellumline"), "--no-local-service")
    wait_for("the program", 15, is_on_bus, 0.05)
    guardian = wait_for("its guardian", 5, lambda: guardian_of(program), 0.05)[0]
    node = editable_text_of(text.pid)
    activate(window)
    press("ctrl+a")
    run("xdotool", "type", SENTENCE)
    wait_for("the sentence", 5, lambda: text_of(node) == SENTENCE)
    press("ctrl+a")
    wait_for("the sentence to be selected", 5, lambda: selected_text_of(node) == SENTENCE)
    owner = programs.start("owner", os.path.join(build, "demo", "vellumline-demo-clipboard"), "what I had copied before")
    wait_for("the clipboard owner", 10, lambda: "ready" in programs.log("owner"))
    before = wait_for("the clipboard to hold an image and a text", 5,
                      lambda: (lambda c: c if {"image/png", "UTF8_STRING"} <= set(c) else None)(clipboard()))
    # Not through xdotool's own start, which takes longer than some of the steps.
    typist = subprocess.Popen(["xdotool", "-"], stdin=subprocess.PIPE)
    time.sleep(0.2)
    typist.stdin.write(b"key ctrl+alt+r\n")
    typist.stdin.flush()
    time.sleep(moment / 1000)
    os.kill(program.pid, signal.SIGKILL)
    program.wait()
    programs.running.remove(program)
    typist.stdin.close()
    typist.wait(10)

    def is_back():
        return same_contents(before, clipboard())

    try:
        wait_for("it", 5, is_back, 0.1)
    except Failure as failure:
        raise Failure(f"killed after {moment} ms the clipboard offers {clipboard()}") from failure
    time.sleep(0.3)
    if not is_back():
        raise Failure(f"killed after {moment} ms the clipboard did not stay: {clipboard()}")
    if text_of(node) not in (SENTENCE, CORRECTED):
        raise Failure(f"killed after {moment} ms the text is \"{text_of(node)}\"")
    if keys_down():
        raise Failure(f"killed after {moment} ms these keys are down: {keys_down()}")
    corrected = text_of(node) == CORRECTED
    # Who copies something is given the clipboard, and nobody is left who holds the old one.
    programs.end(owner)
    subprocess.run(["xclip", "-selection", "clipboard"], input=b"something new", check=True, timeout=10)
    wait_for("the new clipboard", 5, lambda: run("xclip", "-selection", "clipboard", "-o") == b"something new")
    wait_for("the guardian to be gone", 5, lambda: not is_running(guardian), 0.1)
    return corrected


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--output", required=True)
    arguments.add_argument("moments", nargs="*", type=int)
    options = arguments.parse_args()
    os.makedirs(options.output, exist_ok=True)
    service = stand_in.StandIn(Request)
    os.environ["VELLUMLINE_ORIGIN"] = service.origin
    welcomed()
    keep_session()
    programs = Programs(options.output)
    corrected = []
    try:
        path = os.path.join(os.environ["HOME"], "practice.txt")
        with open(path, "w", encoding="utf-8") as file:
            file.write(SENTENCE)
        editor = programs.start("mousepad", "mousepad", "--disable-server", path)
        window = wait_for("the editor's window", 30, lambda: window_of(editor.pid), 0.1)
        activate(window)
        wait_for("its text", 15, lambda: editable_text_of(editor.pid), 0.1)
        moments = options.moments or MOMENTS
        for moment in moments:
            corrected.append(kill_after(moment, options.build, programs, editor, window))
        say(f"ok       killed {len(moments)} times, {corrected.count(True)} times after the text was corrected; the clipboard "
            "was what it was each time, and no key was down")
        if not options.moments and (all(corrected) or not any(corrected)):
            raise Failure("the moments were all before the paste, or all after it")
    except Failure as failure:
        say("FAILED   " + str(failure))
        screenshot(os.path.join(options.output, "failed.png"))
        return 1
    finally:
        programs.end_all()
        service.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
