"""The command line on the running program: what a user binds to a key, a script asks, and the desktop entry offers."""

import json
import os
import subprocess
import sys
import tempfile
import time

from session import (EMAIL, SIGNED_IN, Failure, activate, clipboard, editable_text_of, link_behind, main, press, run,
                     same_contents, selected_text_of, text_of, wait_for, welcomed, window_of)

SENTENCE = "i has went to the shop yesterday and buyed three apple."
EXPECTED = "I went to the shop yesterday and bought three apples."
DONE, USAGE, NOT_RUNNING = 0, 64, 69


def prepare(session):
    welcomed()
    session.record_browser()
    session.forget_session()
    if session.service is None:
        session.start_service()


def command(session, *arguments, **options):
    """Exit status, output and complaint of one call of the program."""
    done = subprocess.run([session.program, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20,
                          check=False, **options)
    return done.returncode, done.stdout, done.stderr


def expect(session, status, *arguments, **options):
    got, output, complaint = command(session, *arguments, **options)
    if got != status:
        raise Failure(f"{' '.join(arguments)}: exit status {got}, not {status}: {output}{complaint}")
    return output + complaint


def status_of(session):
    return json.loads(expect(session, DONE, "status", "--json"))


def open_editor(session):
    """An editor in front with the whole sentence selected; its process and the node with the text."""
    path = os.path.join(session.output, "letter.txt")
    with open(path, "w", encoding="utf-8") as file:
        file.write(SENTENCE)
    # In a home of its own: it asks about the unsaved text of its last run otherwise.
    home = tempfile.mkdtemp(dir=session.output)
    editor = session.programs.start("mousepad", "mousepad", "--disable-server", path,
                                    env={**os.environ, "XDG_DATA_HOME": home, "XDG_CONFIG_HOME": home})
    activate(wait_for("the window of mousepad", 30, lambda: window_of(editor.pid), 0.1))
    node = wait_for("the text in the accessibility tree", 15, lambda: editable_text_of(editor.pid), 0.1)
    press("ctrl+a")
    wait_for("the sentence to be selected", 5, lambda: selected_text_of(node).strip() == SENTENCE)
    return editor, node


def signed_in(session):
    session.start()
    session.sign_in()
    session.close_panel()


def expect_correction(session, begin):
    """A selected sentence is corrected by what `begin` does, and the clipboard is what it was."""
    editor, node = open_editor(session)
    try:
        with subprocess.Popen(["xclip", "-selection", "clipboard", "-quiet"], stdin=subprocess.PIPE,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as owner:
            owner.stdin.write(b"what I had copied")
            owner.stdin.close()
            before = wait_for("the clipboard", 5, clipboard)
            try:
                begin()
                wait_for("the correction", 15, lambda: text_of(node).strip() == EXPECTED)
                wait_for("the clipboard to be given back", 8, lambda: same_contents(before, clipboard()), 0.1)
            finally:
                owner.terminate()
    finally:
        session.programs.end(editor)


def rewrite_corrects_what_is_selected(session):
    signed_in(session)
    expect_correction(session, lambda: expect(session, DONE, "rewrite"))
    if status_of(session)["statusText"] != "Rewrote the selection.":
        raise Failure("the status is " + status_of(session)["statusText"])


def rewrite_bound_to_a_key_waits_until_the_key_is_free(session):
    """Whoever has bound the key holds the keyboard as long as it is down, and the user lets go late."""
    signed_in(session)
    settings = os.path.join(session.output, "xbindkeysrc")
    with open(settings, "w", encoding="utf-8") as file:
        file.write(f'"\'{session.program}\' rewrite"\n  control+mod4 + e\n')
    session.programs.start("xbindkeys", "xbindkeys", "--nodaemon", "--file", settings)
    time.sleep(0.5)  # it does not say when it is ready

    def key():
        run("xdotool", "keydown", "ctrl", "keydown", "super", "keydown", "e")
        time.sleep(0.6)
        run("xdotool", "keyup", "e", "keyup", "super", "keyup", "ctrl")

    expect_correction(session, key)


def rewrite_starts_the_program_when_it_does_not_run(session):
    process = session.programs.start("vellumline", session.program, "rewrite")
    session.wait_for_program()
    session.expect_prompt("Sign in to rewrite")
    if process.poll() is not None:
        raise Failure("it has ended")


def open_menu_and_settings_open_their_pages(session):
    session.start()
    expect(session, DONE, "open-menu")
    wait_for("the panel", 10, session.panel)
    session.close_panel()
    expect(session, DONE, "settings")
    wait_for("the settings", 10, lambda: session.window_with("Show the welcome window"))
    session.screenshot("settings")


def sign_in_and_sign_out(session):
    session.start()
    if status_of(session)["accountState"] != "signed-out":
        raise Failure("somebody is signed in")
    expect(session, DONE, "sign-in")
    session.open_link(link_behind(session.wait_for_login_page()))
    session.expect_in_panel(SIGNED_IN)
    session.close_panel()
    wait_for("the plan", 10, lambda: status_of(session).get("plan") == "paid")
    if status_of(session)["signedInAs"] != EMAIL:
        raise Failure(f"signed in is {status_of(session)}")
    expect(session, DONE, "sign-out")
    wait_for("the end of the session", 10, lambda: status_of(session)["accountState"] == "signed-out")
    expect(session, DONE, "sign-out")


def the_status_is_for_people_and_for_scripts(session):
    session.start()
    wait_for("the accessibility bus to be found", 10, lambda: status_of(session)["accessibility"])
    facts = status_of(session)
    for name, kind in {"version": str, "accountState": str, "account": str, "shortcut": str, "shortcutRegistered": bool,
                       "accessibility": bool, "opensAtLogin": bool, "busy": bool, "statusText": str}.items():
        if not isinstance(facts.get(name), kind):
            raise Failure(f"{name} is {facts.get(name)!r}")
    if not facts["shortcutRegistered"] or facts["busy"]:
        raise Failure(f"the status is {facts}")
    lines = expect(session, DONE, "status").splitlines()
    if len(lines) < 6 or not any(line.split()[0] == "shortcut" and line.endswith("registered") for line in lines):
        raise Failure(f"the status reads {lines}")


def nothing_is_started_to_be_asked_or_ended(session):
    for name in ("status", "quit", "sign-out"):
        expect(session, NOT_RUNNING, name)
    if session.owner() is not None:
        raise Failure("a program was started")


def quit_has_ended_the_program_when_it_returns(session):
    process = session.start()
    expect(session, DONE, "quit")
    if session.owner() is not None or process.wait(5) != 0:
        raise Failure("the program still runs, or did not end well")


def a_program_that_does_not_answer_is_said_in_time(session):
    process = session.start()
    os.kill(process.pid, 19)
    try:
        begin = time.monotonic()
        expect(session, 1, "status")
        if time.monotonic() - begin > 8:
            raise Failure("it took too long")
    finally:
        os.kill(process.pid, 18)


def what_cannot_be_meant_is_refused(session):
    for arguments in (("rewrit",), ("quit", "now"), ("--jso", "status"), ("--json",), ("--json", "quit")):
        complaint = expect(session, USAGE, *arguments)
        if not complaint.startswith("vellumline: "):
            raise Failure(complaint)
    if session.owner() is not None:
        raise Failure("a program was started")


def commands_need_no_display(session):
    session.start()
    without = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
    expect(session, DONE, "open-menu", env=without)
    wait_for("the panel", 10, session.panel)
    session.close_panel()
    expect(session, DONE, "quit", env=without)
    expect(session, NOT_RUNNING, "rewrite", env=without)


if __name__ == "__main__":
    sys.exit(main([
        rewrite_corrects_what_is_selected,
        rewrite_bound_to_a_key_waits_until_the_key_is_free,
        rewrite_starts_the_program_when_it_does_not_run,
        open_menu_and_settings_open_their_pages,
        sign_in_and_sign_out,
        the_status_is_for_people_and_for_scripts,
        nothing_is_started_to_be_asked_or_ended,
        quit_has_ended_the_program_when_it_returns,
        a_program_that_does_not_answer_is_said_in_time,
        what_cannot_be_meant_is_refused,
        commands_need_no_display,
    ], prepare))
