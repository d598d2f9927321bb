"""The demonstration itself; demo/demonstration runs it inside a private desktop session."""

import argparse
import os
import subprocess
import sys
import time

from desktop import (MARKER_TARGETS, Failure, Programs, activate, active_window, click, clipboard, close_window_of,
                     editable_text_of, press, run, same_contents, say, screenshot, selected_text_of, service_answers,
                     service_port, set_default_browser, shows_text, text_of, wait_for, window_of)

SENTENCE = "i has went to the shop yesterday and buyed three apple."
EXPECTED = "I went to the shop yesterday and bought three apples."
HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)

# A home of its own has no settings; these keep first-run dialogs away. {file} is the text to open.
EDITORS = {
    "mousepad": ("GTK 3", ["mousepad", "--disable-server", "{file}"]),
    "featherpad": ("Qt 5", ["featherpad", "--standalone", "{file}"]),
    "kate": ("Qt 5, KDE", ["kate", "--startanon", "--new", "{file}"]),
    "gnome-text-editor": ("GTK 4", ["gnome-text-editor", "--standalone", "{file}"]),
}


def signed_in():
    return run("secret-tool", "lookup", "service", "com.kelthorne.vellumline.session", "account", "session") is not None


def sign_in(programs, output):
    say()
    say("== Sign-in, through the service's login page and the vellumline:// link")
    begin = time.monotonic()
    if signed_in():
        raise Failure("a session is stored before anybody signed in")
    if run("xdg-open", "vellumline://sign-in") is None:
        raise Failure("xdg-open did not take vellumline://sign-in")
    try:
        wait_for("the session to be stored in the keyring", 60, signed_in, interval=0.1)
    finally:
        try:
            with open(os.path.join(output, "browser.log"), encoding="utf-8") as log:
                for line in log:
                    say("         browser: " + line.rstrip())
        except OSError:
            say("         browser: was not asked to open anything")
    say(f"ok       signed in after {time.monotonic() - begin:.1f} s; the session is in the keyring")
    wait_for("the browser to close", 20, lambda: not os.path.exists(os.path.join(output, "browser.running")), 0.1)


def show_clipboard(when, contents):
    say(f"         clipboard {when}:")
    for name, (size, digest) in contents.items():
        note = "   (marks the contents as not to be kept in a clipboard history)" if name in MARKER_TARGETS else ""
        say(f"           {name:34} {size:8} bytes  sha256 {digest}{note}")


def correct_in(name, programs, build, output):
    toolkit, command = EDITORS[name]
    say()
    say(f"== A correction in {name} ({toolkit})")
    path = os.path.join(os.environ["HOME"], f"practice-{name}.txt")
    with open(path, "w", encoding="utf-8") as file:
        file.write(SENTENCE)

    owner = programs.start("clipboard-owner-" + name, os.path.join(build, "demo", "vellumline-demo-clipboard"),
                           "what I had copied before")
    wait_for("the clipboard owner", 10, lambda: "ready" in programs.log("clipboard-owner-" + name))
    before = wait_for("the clipboard to hold an image and a text", 5,
                      lambda: (lambda c: c if {"image/png", "UTF8_STRING"} <= set(c) else None)(clipboard()))

    editor = programs.start(name, *[part.format(file=path) for part in command])
    window = wait_for(f"the window of {name}", 30, lambda: window_of(editor.pid), 0.1)
    activate(window)
    node = wait_for("the text in the accessibility tree", 15, lambda: editable_text_of(editor.pid), 0.1)
    wait_for("the practice sentence to be shown", 10, lambda: text_of(node).strip() == SENTENCE)
    text_before = text_of(node)
    press("ctrl+a")
    wait_for("the sentence to be selected", 5, lambda: selected_text_of(node).strip() == SENTENCE)
    screenshot(os.path.join(output, f"{name}-before.png"))

    pressed = time.monotonic()
    press("ctrl+alt+r")
    try:
        wait_for("the text to change", 15, lambda: text_of(node) not in (text_before, ""), interval=0.002)
    except Failure as failure:
        screenshot(os.path.join(output, f"{name}-failed.png"))
        raise failure
    changed = time.monotonic()
    # Some editors replace a text in two steps; what counts is what stays.
    last, since = text_of(node), time.monotonic()
    while time.monotonic() - since < 0.3:
        now = text_of(node)
        if now != last:
            last, since = now, time.monotonic()
            changed = since
        time.sleep(0.005)
    text_after = last
    screenshot(os.path.join(output, f"{name}-after.png"))

    after = {}

    def given_back():
        nonlocal after
        after = clipboard()
        return same_contents(before, after)

    problems = []
    try:
        wait_for("the clipboard to be given back", 8, given_back, 0.1)
    except Failure as failure:
        problems.append(str(failure))
    say(f"         before: {text_before.rstrip()}")
    say(f"         after:  {text_after.rstrip()}")
    say(f"         {(changed - pressed) * 1000:.0f} ms from the key press to the changed text")
    show_clipboard("before", before)
    show_clipboard("after", after)

    engine = correct_by_engine(build)
    if text_after.strip() == SENTENCE:
        problems.append("the text is what it was")
    if text_after.strip() != engine:
        problems.append(f"the engine's own answer is \"{engine}\"")
    if text_after.strip() != EXPECTED:
        problems.append(f"a correct sentence would be \"{EXPECTED}\"")
    if text_after.rstrip("\n") != text_after.strip():
        problems.append("spaces were added around the text")
    if window_of(editor.pid) is None or active_window() != int(window, 16):
        problems.append("the editor is no longer in front")
    programs.end(editor)
    programs.end(owner)
    for problem in problems:
        say("FAILED   " + problem)
    if not problems:
        say("ok       the text is right and the clipboard is what it was")
    return not problems


def practise(program, output, build):
    """The practice sentence of the welcome window, corrected by the real shortcut in the program's own window."""
    say()
    say("== The practice sentence in the welcome window")
    window = wait_for("the welcome window", 10, lambda: window_of(program.pid), 0.1)
    node = wait_for("the practice sentence in the accessibility tree", 15, lambda: editable_text_of(program.pid, focused=False), 0.1)
    activate(window)
    click(node)
    press("ctrl+a")
    wait_for("the sentence to be selected", 5, lambda: selected_text_of(node).strip() == SENTENCE)
    pressed = time.monotonic()
    press("ctrl+alt+r")
    wait_for("the practice sentence to change", 15, lambda: text_of(node) not in (SENTENCE, ""), interval=0.005)
    changed = time.monotonic()
    wait_for("the correction to be finished", 10, lambda: shows_text(program.pid, "Rewrote the selection."), 0.1)
    after = text_of(node)
    screenshot(os.path.join(output, "welcome.png"))
    close_window_of(program.pid)
    good = after == EXPECTED == correct_by_engine(build)
    say(f"         after:  {after}")
    say(f"         {(changed - pressed) * 1000:.0f} ms from the key press to the changed text")
    say("ok       corrected in the program's own window" if good else f"FAILED   it should read \"{EXPECTED}\"")
    return good


def correct_by_engine(build):
    done = subprocess.run([os.path.join(build, "VellumlineService", "vellumline-correct")], input=SENTENCE + "\n",
                          capture_output=True, text=True, timeout=30, check=False)
    return done.stdout.rstrip("\n")


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--output", required=True)
    arguments.add_argument("--editors", default="mousepad,featherpad")
    options = arguments.parse_args()
    output, build = options.output, options.build
    with open(os.path.join(output, "session"), "w", encoding="utf-8") as session:
        session.write(os.environ["XDG_RUNTIME_DIR"])
    for leftover in ("browser.log", "browser.running"):
        if os.path.exists(os.path.join(output, leftover)):
            os.remove(os.path.join(output, leftover))

    programs = Programs(output)
    good = True
    try:
        port = service_port()
        if service_answers(port):
            raise Failure(f"something answers at port {port} already")
        run("xsetroot", "-solid", "#3b5b7a")
        set_default_browser("/usr/bin/python3", os.path.join(HERE, "scripted_browser.py"), output)
        if run(os.path.join(ROOT, "scripts", "install-desktop-entry.sh"),
               os.path.join(build, "Vellumline", "vellumline")) is None:
            raise Failure("the desktop entry could not be installed")

        say("== A private desktop: display %s, own session bus, accessibility bus, keyring%s" %
            (os.environ["DISPLAY"],
             " and loopback network" if os.environ.get("VELLUMLINE_PRIVATE_NETWORK") == "yes" else ""))
        begin = time.monotonic()
        service = programs.start("service", os.path.join(build, "VellumlineService", "vellumline-service"),
                                 "--port", str(port))
        wait_for("the service to answer", 15,
                 lambda: service_answers(port) or (service.poll() is not None and _ended(service, programs)))
        say(f"ok       the correction service answers after {(time.monotonic() - begin) * 1000:.0f} ms")
        begin = time.monotonic()
        program = programs.start("vellumline", os.path.join(build, "Vellumline", "vellumline"))
        wait_for("the program to be on the session bus", 15,
                 lambda: b"true" in (run("gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path",
                                         "/org/freedesktop/DBus", "--method", "org.freedesktop.DBus.NameHasOwner",
                                         "com.kelthorne.Vellumline") or b"")
                 or (program.poll() is not None and _ended(program, programs)))
        say(f"ok       Vellumline is on the session bus after {(time.monotonic() - begin) * 1000:.0f} ms")

        sign_in(programs, output)
        good = practise(program, output, build) and good
        for name in options.editors.split(","):
            good = correct_in(name, programs, build, output) and good
            if program.poll() is not None:
                _ended(program, programs)
        say()
        if not programs.end(program):
            say("FAILED   the program did not end when asked")
            good = False
        if not programs.end(service):
            say("FAILED   the service did not end when asked")
            good = False
    except Failure as failure:
        say("FAILED   " + str(failure))
        for name in ("service", "vellumline"):
            try:
                lines = programs.log(name).splitlines()[-15:]
            except OSError:
                continue
            for line in lines:
                say(f"         {name}: {line}")
        try:
            screenshot(os.path.join(output, "failed.png"))
        except Failure:
            pass
        good = False
    finally:
        programs.end_all()
    return 0 if good else 1


def _ended(process, programs):
    raise Failure(f"{process.name} ended with status {process.returncode}: {programs.log(process.name)[-2000:]}")


if __name__ == "__main__":
    sys.exit(main())
