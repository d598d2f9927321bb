"""`vellumline doctor` on whole desktops and on some with something missing."""

import json
import os
import subprocess
import sys
import tempfile

from session import (Failure, activate, clipboard, editable_text_of, main, press, run, same_contents, wait_for, welcomed,
                     window_of)

EXPECTED = "I went to the shop yesterday and bought three apples."
CHECKS = ["display", "program", "shortcut", "accessibility", "focus", "clipboard", "keyring", "tray", "service", "links",
          "keys", "correction"]


def prepare(session):
    welcomed()
    session.record_browser()
    session.forget_session()
    if session.service is None:
        session.start_service()


def examine(session, expected_status, environment=None):
    """The findings by the name of their check."""
    done = subprocess.run([session.program, "doctor", "--json"], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=60, check=False, env=environment)
    try:
        report = json.loads(done.stdout)
    except ValueError as error:
        raise Failure(f"exit status {done.returncode}, and no report: {done.stdout}{done.stderr}") from error
    findings = {finding["check"]: finding for finding in report["findings"]}
    if list(findings) != CHECKS:
        raise Failure(f"the checks are {list(findings)}")
    problems = [finding for finding in findings.values() if finding["verdict"] == "problem"]
    if done.returncode != expected_status or report["healthy"] == bool(problems):
        raise Failure(f"exit status {done.returncode}, problems: {problems}")
    for finding in findings.values():
        if not finding["seen"] or (finding["verdict"] == "problem" and not finding["advice"]):
            raise Failure(f"a finding without an explanation: {finding}")
    return findings


def expect(findings, **verdicts):
    for check, verdict in verdicts.items():
        if findings[check]["verdict"] != verdict:
            raise Failure(f"{check} is not {verdict} but {findings[check]}")


def panel(session):
    """A panel with status icons."""
    process = session.programs.start("trayer", "trayer", "--edge", "bottom", "--align", "right", "--height", "26")
    wait_for("the panel", 10, lambda: window_of(process.pid) or b"trayer" in (run("xprop", "-root", "_NET_CLIENT_LIST") or b"")
             or run("xdotool", "search", "--class", "trayer"))
    return process


def editor(session):
    path = os.path.join(session.output, "letter.txt")
    with open(path, "w", encoding="utf-8") as file:
        file.write("some text")
    home = tempfile.mkdtemp(dir=session.output)
    process = session.programs.start("mousepad", "mousepad", "--disable-server", path,
                                     env={**os.environ, "XDG_DATA_HOME": home, "XDG_CONFIG_HOME": home})
    activate(wait_for("the window of mousepad", 30, lambda: window_of(process.pid), 0.1))
    wait_for("the text in the accessibility tree", 15, lambda: editable_text_of(process.pid), 0.1)
    press("ctrl+a")
    return process


def a_whole_desktop_is_healthy_and_a_sentence_is_corrected(session):
    session.start()
    session.sign_in()
    session.close_panel()
    icons, text = panel(session), editor(session)
    with subprocess.Popen(["xclip", "-selection", "clipboard", "-quiet"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL) as owner:
        try:
            owner.stdin.write(b"what I had copied")
            owner.stdin.close()
            before = wait_for("the clipboard", 5, clipboard)
            findings = examine(session, 0)
            expect(findings, **{check: "ok" for check in CHECKS})
            if EXPECTED not in findings["correction"]["seen"]:
                raise Failure(f"the correction is {findings['correction']}")
            if "Mousepad" not in findings["focus"]["seen"]:
                raise Failure(f"the focus is {findings['focus']}")
            wait_for("the clipboard to be given back", 8, lambda: same_contents(before, clipboard()), 0.1)
        finally:
            owner.terminate()
    session.programs.end(icons)
    session.programs.end(text)
    if not session.alive():
        raise Failure("the program was disturbed")


def without_a_running_program_it_corrects_by_itself(session):
    session.start()
    session.sign_in()
    session.end()
    findings = examine(session, 0)
    expect(findings, program="note", shortcut="ok", accessibility="ok", keyring="ok", service="ok", links="ok", keys="ok",
           correction="ok")
    if EXPECTED not in findings["correction"]["seen"]:
        raise Failure(f"the correction is {findings['correction']}")
    if session.owner() is not None:
        raise Failure("a program was started")


def it_is_readable_and_shows_its_window(session):
    process = session.programs.start("doctor", session.program, "doctor")
    wait_for("its window", 15, lambda: window_of(process.pid))
    session.screenshot("window")
    if process.wait(30) != 0:
        raise Failure("exit status " + str(process.returncode))
    lines = session.programs.log("doctor")
    for words in ("ok       Display server", "tried:", "seen:", "to do:", "problems"):
        if words not in lines:
            raise Failure(f"\"{words}\" is not in {lines}")


def nobody_signed_in_and_no_status_icons_are_no_problem(session):
    findings = examine(session, 0)
    expect(findings, tray="note", correction="skipped")
    if "sign-in" not in findings["correction"]["advice"]:
        raise Failure(f"the advice is {findings['correction']}")
    session.start()
    expect(examine(session, 0), program="ok", tray="note", correction="skipped")


def a_shortcut_of_another_program_is_a_problem(session):
    settings = os.path.join(session.output, "xbindkeysrc")
    with open(settings, "w", encoding="utf-8") as file:
        file.write('"true"\n  control+alt + r\n')
    other = session.programs.start("xbindkeys", "xbindkeys", "--nodaemon", "--file", settings)

    def taken():
        findings = examine_or_none(session)
        return findings and findings["shortcut"]["verdict"] == "problem"

    try:
        wait_for("the shortcut to be taken", 30, taken)
    finally:
        session.programs.end(other)


def examine_or_none(session):
    try:
        return examine(session, 1)
    except Failure:
        return None


def a_service_that_is_not_there_is_a_problem(session):
    session.start("--no-local-service")
    session.sign_in()
    session.close_panel()
    session.stop_service()
    findings = examine(session, 1)
    expect(findings, service="problem", keys="ok", correction="problem")


def without_a_running_program_the_service_is_started_for_the_look(session):
    session.stop_service()
    expect(examine(session, 0), service="ok")


def links_that_nobody_opens_are_a_problem(session):
    entry = os.path.join(os.environ["XDG_DATA_HOME"], "applications", "com.kelthorne.Vellumline.desktop")
    gone = entry + ".away"
    os.rename(entry, gone)
    try:
        expect(examine(session, 1), links="problem")
        with open(gone, encoding="utf-8") as whole, open(entry, "w", encoding="utf-8") as broken:
            broken.writelines("Exec=/nonexistent/vellumline %u\n" if line.startswith("Exec=") else line for line in whole)
        findings = examine(session, 1)
        expect(findings, links="problem")
        if "/nonexistent/vellumline" not in findings["links"]["seen"]:
            raise Failure(f"seen was {findings['links']}")
    finally:
        os.replace(gone, entry)


def a_session_bus_without_services_has_neither_keyring_nor_accessibility(session):
    settings = os.path.join(session.output, "bus.conf")
    socket = os.path.join(os.environ["XDG_RUNTIME_DIR"], "bare-bus")
    with open(settings, "w", encoding="utf-8") as file:
        file.write(f"""<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path={socket}</listen><policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>""")
    daemon = session.programs.start("bare-bus", "dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + settings)
    wait_for("the bus", 10, lambda: os.path.exists(socket))
    try:
        findings = examine(session, 1, {**os.environ, "DBUS_SESSION_BUS_ADDRESS": "unix:path=" + socket})
        expect(findings, accessibility="problem", keyring="note", tray="note", clipboard="ok", keys="ok", correction="skipped")
    finally:
        session.programs.end(daemon)


def no_session_bus_is_survived(session):
    nowhere = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"}
    expect(examine(session, 1, nowhere), program="note", accessibility="problem", keyring="note")


def no_display_is_a_problem_and_the_rest_is_looked_at(session):
    without = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
    findings = examine(session, 1, without)
    expect(findings, display="problem", shortcut="skipped", clipboard="skipped", keyring="ok", service="ok", links="ok",
           keys="skipped", correction="skipped")


if __name__ == "__main__":
    sys.exit(main([
        a_whole_desktop_is_healthy_and_a_sentence_is_corrected,
        without_a_running_program_it_corrects_by_itself,
        it_is_readable_and_shows_its_window,
        nobody_signed_in_and_no_status_icons_are_no_problem,
        a_shortcut_of_another_program_is_a_problem,
        a_service_that_is_not_there_is_a_problem,
        without_a_running_program_the_service_is_started_for_the_look,
        links_that_nobody_opens_are_a_problem,
        a_session_bus_without_services_has_neither_keyring_nor_accessibility,
        no_session_bus_is_survived,
        no_display_is_a_problem_and_the_rest_is_looked_at,
    ], prepare))
