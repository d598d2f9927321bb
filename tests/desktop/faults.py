"""What goes wrong outside of the program, provoked for real in the middle of a correction: the service, the network, the
keyring, the editor, the owner of the clipboard, the X server, the bus. After each the text is the old one or the corrected
one, the clipboard is the user's, no key is down, and the next correction works. docs/faults.md is the table of it."""

import contextlib
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

from session import (KEYRING_SERVICE, MARKER_TARGETS, Failure, activate, bus, clipboard, keep_session, link_behind,
                     main, press, run, same_contents, say, selected_text_of, service_answers, text_of, wait_for, welcomed,
                     window_of)
from killed import is_running, keys_down
from prompts import SENTENCE, SHORTCUT, Editor
from soak import Owner
import stand_in

CORRECTED = "I went to the shop yesterday and bought three apples."
REWROTE = "Rewrote the selection."
FAILED = "The rewrite failed. Try again."
OFFLINE = "You're offline. Connect to the internet and try again."
TIMED_OUT = "The correction took too long. Try again."
UNAVAILABLE = "Corrections are unavailable right now. Try again in a minute."
SIGN_IN = "Sign in to rewrite"
STORED = ("service", KEYRING_SERVICE, "account", "session")


# The service

def correct(request):
    request.reply({"text": CORRECTED})


def after(seconds, then=correct):
    """Thinks so long first."""
    def answer(request):
        time.sleep(seconds)
        then(request)
    return answer


def gone(request):
    """As when the service is killed: whoever waits is told at once that nobody is there any more."""
    request.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    request.connection.shutdown(socket.SHUT_RDWR)
    request.close_connection = True


def grant(request):
    request.reply(stand_in.RENEWED)


class StandIn(stand_in.StandIn):
    """Answers each request to rewrite as the case wants it."""

    class Request(stand_in.Request):
        def account(self):
            if self.headers.get("Authorization", "").endswith(" " + self.server.refused_token):
                self.reply({"error": "unauthorized"}, 401)
            else:
                super().account()

        def rewrite(self, text):
            self.server.requests.append(text)
            self.server.answer(self)

        def renew(self, body):
            self.body = body
            self.server.renew(self)

    def __init__(self, port):
        self.requests = []
        self.refused_token = "none"
        self.answer, self.renew = correct, grant
        super().__init__(StandIn.Request, port)


# The program and the editor

def unlock_keyring(environment):
    subprocess.run(["gnome-keyring-daemon", "--unlock", "--components=secrets"], input=b"test", stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True, timeout=20, env=environment)


def prepare(session):
    welcomed()
    session.record_browser()
    keep_session()
    if getattr(session, "stand_in", None):
        session.stand_in.stop()
    session.stand_in = StandIn(session.port)


def status(session):
    return json.loads(run(session.program, "status", "--json", timeout=5) or b"{}")


def expect_says(session, *texts, seconds=10):
    try:
        wait_for("it", seconds, lambda: status(session).get("statusText") in texts, 0.1)
    except Failure as failure:
        raise Failure(f"it does not say {texts} but \"{status(session).get('statusText')}\"") from failure


def expect_idle(session):
    wait_for("the correction to end", 10, lambda: status(session).get("busy") is False, 0.1)


def expect_clipboard(editor, seconds=6):
    wait_for("the clipboard to be what it was", seconds, lambda: same_contents(editor.clipboard, clipboard()), 0.1)
    if keys_down():
        raise Failure(f"these keys are down: {keys_down()}")


def expect_untouched(session, editor):
    expect_idle(session)
    if text_of(editor.node).strip() != SENTENCE:
        raise Failure(f"the text is \"{text_of(editor.node)}\"")
    expect_clipboard(editor)


def expect_corrected(session, editor, seconds=10):
    wait_for("the correction", seconds, lambda: text_of(editor.node).strip() == CORRECTED)
    expect_clipboard(editor)
    expect_says(session, REWROTE)


def expect_works(session, editor):
    """The next correction is one like any other."""
    session.stand_in.answer = correct
    activate(editor.window)
    if selected_text_of(editor.node).strip() != SENTENCE:
        editor.select_all()
    editor.press_shortcut()
    expect_corrected(session, editor)


def wait_for_request(session, number=1):
    wait_for("the request", 10, lambda: len(session.stand_in.requests) >= number, 0.005)


def with_editor(steps):
    """The case, with the program and an editor, which ends with it whatever becomes of it."""

    def case(session):
        session.start("--no-local-service")
        editor = Editor(session)
        try:
            steps(session, editor)
        except Exception:
            session.screenshot("failed-with-editor")
            raise
        finally:
            editor.end()

    case.__name__ = steps.__name__
    return case


# The service and the network

@with_editor
def the_service_is_not_there(session, editor):
    session.stand_in.stop()
    editor.press_shortcut()
    expect_says(session, OFFLINE)
    expect_untouched(session, editor)
    session.stand_in = StandIn(session.port)
    expect_works(session, editor)


@with_editor
def the_service_ends_while_it_thinks(session, editor):
    session.stand_in.answer = after(0.3, gone)
    editor.press_shortcut()
    expect_says(session, OFFLINE)
    expect_untouched(session, editor)
    expect_works(session, editor)


@with_editor
def the_service_ends_in_the_middle_of_its_answer(session, editor):
    def half(request):
        request.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 100\r\n\r\n{\"text\": \"I we")
        time.sleep(0.3)
        gone(request)

    session.stand_in.answer = half
    editor.press_shortcut()
    expect_says(session, OFFLINE, FAILED)
    expect_untouched(session, editor)
    expect_works(session, editor)


@with_editor
def the_service_ends_after_its_answer(session, editor):
    def last(request):
        correct(request)
        threading.Thread(target=session.stand_in.stop).start()

    session.stand_in.answer = last
    editor.press_shortcut()
    expect_corrected(session, editor)


@with_editor
def a_slow_service_is_given_up_and_more_presses_start_nothing(session, editor):
    session.stand_in.answer = after(17)
    editor.press_shortcut()
    wait_for_request(session)
    expect_clipboard(editor)  # it is the user's while the service thinks
    for _ in range(2):
        press(SHORTCUT)
        time.sleep(0.2)
    expect_says(session, TIMED_OUT, seconds=18)
    expect_untouched(session, editor)
    time.sleep(2.5)  # what comes now comes too late
    expect_untouched(session, editor)
    if len(session.stand_in.requests) != 1:
        raise Failure(f"{len(session.stand_in.requests)} requests were sent")
    expect_works(session, editor)


@with_editor
def answers_that_are_none_change_nothing(session, editor):
    def raw(data):
        def answer(request):
            request.wfile.write(data)
            request.close_connection = True
        return answer

    right = json.dumps({"text": CORRECTED}).encode()
    answers = {
        "20 MB of text": lambda request: request.reply({"text": "a " * 10_000_000}),
        "20 MB of zeros": lambda request: request.reply(bytes(20_000_000)),
        "a length that is too large": lambda request: request.reply(right, length=len(right) + 9),
        "a length that is too small": lambda request: request.reply(right, length=len(right) - 9),
        "a length that is no number": raw(b"HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\n{\"te"),
        "a negative length": raw(b"HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n{\"te"),
        "no HTTP": raw(bytes(range(256)) * 40),
        "half of a JSON object": lambda request: request.reply(right[:-9]),
        "a JSON array": lambda request: request.reply(b"[]"),
        "no text": lambda request: request.reply(b"{\"text\": null}"),
        "a blank text": lambda request: request.reply(b"{\"text\": \" \\n\"}"),
        "nothing": lambda request: request.reply(b""),
        "a web page": lambda request: request.reply(b"<html>Log in to this network</html>"),
    }
    for number, (what, answer) in enumerate(answers.items(), 1):
        session.stand_in.answer = answer
        press(SHORTCUT)
        try:
            wait_for_request(session, number)
            expect_idle(session)
            expect_says(session, FAILED, OFFLINE)
            expect_untouched(session, editor)
        except Failure as failure:
            raise Failure(f"{what}: {failure}") from failure
    expect_works(session, editor)


@with_editor
def the_network_goes_away_in_the_middle(session, editor):
    if os.environ.get("VELLUMLINE_PRIVATE_NETWORK") != "yes":
        say("         (not possible here: the network is not this session's own)")
        return

    def cut_off(request):
        subprocess.run(["ip", "link", "set", "lo", "down"], check=True)
        correct(request)

    session.stand_in.answer = cut_off
    try:
        editor.press_shortcut()
        wait_for_request(session)
        expect_says(session, TIMED_OUT, OFFLINE, seconds=18)
        expect_untouched(session, editor)
    finally:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    expect_works(session, editor)


@with_editor
def a_token_that_is_refused_is_renewed(session, editor):
    def refuse_once(request):
        session.stand_in.answer = correct
        request.reply({"error": "unauthorized"}, 401)

    session.stand_in.answer = refuse_once
    editor.press_shortcut()
    expect_corrected(session, editor)
    if len(session.stand_in.requests) != 2:
        raise Failure(f"{len(session.stand_in.requests)} requests were sent")


@with_editor
def a_renewal_that_is_refused_asks_to_sign_in(session, editor):
    session.stand_in.answer = lambda request: request.reply({"error": "unauthorized"}, 401)
    session.stand_in.renew = lambda request: request.reply({"error": "invalid_grant"}, 401)
    editor.press_shortcut()
    session.expect_prompt(SIGN_IN)
    expect_untouched(session, editor)
    if run("secret-tool", "lookup", *STORED):
        raise Failure("the ended session is still in the keyring")


@with_editor
def a_renewal_that_cannot_be_made_keeps_the_session(session, editor):
    session.stand_in.answer = lambda request: request.reply({"error": "unauthorized"}, 401)
    session.stand_in.renew = gone
    editor.press_shortcut()
    expect_says(session, OFFLINE)
    expect_untouched(session, editor)
    session.stand_in.renew = grant
    expect_works(session, editor)


def sign_in_at(session):
    """Signs in at the service that runs, from nothing."""
    session.forget_session()
    session.start("--no-local-service")
    session.open_link(link_behind(session.start_sign_in()))
    wait_for("the sign-in", 10, lambda: status(session).get("accountState") == "signed-in", 0.1)
    session.close_panel()


def start_real_service(session, *before, **options):
    """The service itself in the place of the stand-in, started with these words before it."""
    return session.programs.start("service", *before, os.path.join(session.build, "VellumlineService", "vellumline-service"),
                                  "--port", str(session.port), **options)


def the_services_disk_is_full(session):
    """A limit of no bytes for a file refuses writes as a full disk does."""
    session.stand_in.stop()
    session.stand_in = None

    def no_signal():  # a full disk sends none
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

    session.service = start_real_service(session, preexec_fn=no_signal, restore_signals=False)
    sign_in_at(session)
    editor = Editor(session)
    try:
        limit = ["prlimit", "--pid", str(session.service.pid)]
        subprocess.run([*limit, "--fsize=0:unlimited"], check=True)
        editor.press_shortcut()
        expect_says(session, UNAVAILABLE)
        expect_untouched(session, editor)
        subprocess.run([*limit, "--fsize=unlimited:unlimited"], check=True)
        activate(editor.window)
        press(SHORTCUT)
        expect_corrected(session, editor)
    finally:
        editor.end()
        session.stop_service()


def the_services_database_is_read_only(session):
    """With its folder the service does not start; the file alone refuses only what is written. Root may write what it likes, unless it is started without that power."""
    session.stand_in.stop()
    session.stand_in = None
    weak = ("setpriv", "--bounding-set=-dac_override,-dac_read_search") if os.geteuid() == 0 else ()
    folder = os.path.join(os.environ["XDG_DATA_HOME"], "vellumline-service")

    def permit(mode):
        for name in os.listdir(folder):
            os.chmod(os.path.join(folder, name), mode)

    def used():
        answer = run(os.path.join(session.build, "VellumlineService", "vellumline-service"), "account", "show").decode()
        return next(line for line in answer.splitlines() if "used" in line)

    session.start_service()
    sign_in_at(session)
    session.stop_service()
    permit(0o400)
    before = used()
    os.chmod(folder, 0o500)
    refused = start_real_service(session, *weak)
    if refused.wait(15) != 2 or "it may be damaged, locked or read-only" not in session.programs.log("service"):
        raise Failure(f"it ended with {refused.returncode} and said \"{session.programs.log('service')}\"")
    os.chmod(folder, 0o700)
    session.service = start_real_service(session, *weak)
    wait_for("the service", 15, lambda: service_answers(session.port))
    editor = Editor(session)
    try:
        editor.press_shortcut()
        expect_says(session, UNAVAILABLE)
        expect_untouched(session, editor)
        if used() != before:
            raise Failure(f"counted was {used()} after {before}")
        permit(0o600)
        activate(editor.window)
        press(SHORTCUT)
        expect_corrected(session, editor)
        if used() == before:
            raise Failure("the correction was not counted")
    finally:
        editor.end()
        session.stop_service()


# The keyring

@with_editor
def the_keyring_dies_and_comes_back(session, editor):
    session.stand_in.answer = after(0.5)
    editor.press_shortcut()
    wait_for_request(session)
    daemon = int(bus("GetConnectionUnixProcessID", "org.freedesktop.secrets").decode().strip("(),\n").split()[-1])
    os.kill(daemon, signal.SIGKILL)
    expect_corrected(session, editor)
    unlock_keyring(os.environ)
    session.end()
    session.start("--no-local-service")
    wait_for("the session to be read again", 10, lambda: status(session).get("accountState") == "signed-in", 0.1)


# The program that is corrected

@with_editor
def the_editor_hangs_before_the_key(session, editor):
    activate(editor.window)
    os.kill(editor.process.pid, signal.SIGSTOP)
    try:
        press(SHORTCUT)
        expect_says(session, f"Select some text first, then press {status(session)['shortcut']}.")
        expect_clipboard(editor)
    finally:
        os.kill(editor.process.pid, signal.SIGCONT)
    # It finds Ctrl+C waiting, and copies; what was there comes back with the program's marks.
    wait_for("the clipboard to be given back", 10, lambda: MARKER_TARGETS & set(clipboard()), 0.1)
    expect_untouched(session, editor)


@with_editor
def the_editor_hangs_while_the_service_thinks(session, editor):
    session.stand_in.answer = after(0.5)
    editor.press_shortcut()
    wait_for_request(session)
    os.kill(editor.process.pid, signal.SIGSTOP)
    try:
        expect_says(session, FAILED)
        expect_clipboard(editor)
    finally:
        os.kill(editor.process.pid, signal.SIGCONT)
    time.sleep(0.5)
    expect_untouched(session, editor)
    expect_works(session, editor)


@with_editor
def the_editor_is_closed_while_the_service_thinks(session, editor):
    session.stand_in.answer = after(0.5)
    editor.press_shortcut()
    wait_for_request(session)
    os.kill(editor.process.pid, signal.SIGKILL)
    expect_says(session, FAILED)
    expect_clipboard(editor)


@with_editor
def the_user_turns_to_another_window(session, editor):
    other = Editor(session)
    try:
        # Whoever selects takes the selection away from the other one.
        activate(editor.window)
        editor.select_all()
        session.stand_in.answer = after(0.5)
        editor.press_shortcut()
        wait_for_request(session)
        activate(other.window)
        expect_says(session, FAILED)
        expect_untouched(session, other)
        expect_untouched(session, editor)
    finally:
        other.end()


@with_editor
def the_user_selects_something_else(session, editor):
    session.stand_in.answer = after(0.5)
    editor.press_shortcut()
    wait_for_request(session)
    press("Home", "shift+ctrl+Right")
    expect_says(session, FAILED)
    expect_untouched(session, editor)
    expect_works(session, editor)


@with_editor
def the_user_types_meanwhile(session, editor):
    session.stand_in.answer = after(0.5)
    editor.press_shortcut()
    wait_for_request(session)
    press("End", "x", "y")
    expect_says(session, FAILED)
    if text_of(editor.node).strip() not in (SENTENCE + "xy", SENTENCE + "\nxy"):
        raise Failure("the text is " + text_of(editor.node))
    expect_clipboard(editor)


# The clipboard

@with_editor
def the_owner_of_the_clipboard_hangs(session, editor):
    os.kill(editor.owner.pid, signal.SIGSTOP)
    try:
        editor.press_shortcut()
        expect_says(session, FAILED)
        if session.stand_in.requests:
            raise Failure("something was sent")
    finally:
        os.kill(editor.owner.pid, signal.SIGCONT)
    expect_untouched(session, editor)
    expect_works(session, editor)


@with_editor
def the_owner_of_the_clipboard_dies(session, editor):
    session.stand_in.answer = after(0.5)
    editor.press_shortcut()
    wait_for_request(session)
    os.kill(editor.owner.pid, signal.SIGKILL)
    expect_corrected(session, editor)


def folder_with(session, text):
    folder = os.path.join(session.output, "insists")
    os.makedirs(folder, exist_ok=True)
    for name, contents in (("targets", b"text/plain"), ("0", text)):
        with open(os.path.join(folder, name), "wb") as file:
            file.write(contents)
    return folder


@with_editor
def another_program_takes_the_clipboard_before_the_paste(session, editor):
    """It takes it back each time that anybody takes it. On a busy machine it comes too late now and then, after the key: what the
    editor reads then is not in our hands, and the case tries again."""
    other = Owner(session.build, folder_with(session, b"mine alone"))
    with contextlib.suppress(PermissionError):  # where that may be, it is in time at once
        os.sched_setscheduler(other.process.pid, os.SCHED_RR, os.sched_param(1))

    def in_time():
        press("ctrl+a")
        run("xdotool", "type", SENTENCE)
        editor.select_all()
        editor.press_shortcut()
        expect_says(session, FAILED, REWROTE)
        expect_idle(session)
        wait_for("the clipboard to be the other program's", 5,
                 lambda: run("xclip", "-selection", "clipboard", "-o") == b"mine alone", 0.1)
        return status(session)["statusText"] == FAILED

    try:
        other.tell("insist " + other.folder)
        wait_for("it to come before the key", 40, in_time)
        if text_of(editor.node).strip() != SENTENCE:
            raise Failure("the text is " + text_of(editor.node))
    finally:
        other.process.kill()
        other.process.wait()


def reads_late(session, milliseconds, also=None):
    """One correction in a window that reads the clipboard so long after the key; what it read."""
    owner = session.programs.start("clipboard-owner", os.path.join(session.build, "demo", "vellumline-demo-clipboard"),
                                   "what I had copied before")
    wait_for("the clipboard owner", 10, lambda: "ready" in session.programs.log("clipboard-owner"))
    before = wait_for("the clipboard to be filled", 5, clipboard)
    reader = session.programs.start("late-reader", os.path.join(session.build, "tests", "desktop", "vellumline-late-reader"),
                                    SENTENCE, str(milliseconds))
    try:
        activate(wait_for("its window", 10, lambda: window_of(reader.pid), 0.1))
        begin = time.monotonic()
        press(SHORTCUT)
        wait_for("the paste", 10, lambda: "pasted" in session.programs.log("late-reader"))
        wait_for("the clipboard to be what it was", 5, lambda: same_contents(before, clipboard()), 0.05)
        if also:
            also(time.monotonic() - begin)
        return session.programs.log("late-reader").strip().removeprefix("pasted ")
    finally:
        session.programs.end(reader)
        session.programs.end(owner)


def a_target_that_reads_two_seconds_late_gets_the_correction(session):
    """Also when a clipboard manager reads it at once, which is another program than the target."""
    session.start("--no-local-service")
    seen = os.path.join(session.output, "seen")
    if os.path.exists(seen):
        os.remove(seen)
    manager = Owner(session.build, session.output)
    try:
        manager.tell("watch " + seen)
        read = reads_late(session, 2000)
        if read != CORRECTED:
            raise Failure(f"the target read \"{read}\"")
        with open(seen, encoding="utf-8") as file:
            if CORRECTED not in file.read().splitlines():
                raise Failure("the clipboard manager has not read the correction")
    finally:
        manager.process.kill()
        manager.process.wait()


def a_target_that_reads_after_the_bound_gets_what_the_user_had(session):
    session.start("--no-local-service")
    read = reads_late(session, 4000)
    if read == CORRECTED:
        raise Failure("the target was waited for without a bound")


# The session

@with_editor
def the_keyboard_is_free_and_the_clipboard_back_after_log_out_while_the_service_thinks(session, editor):
    session.stand_in.answer = after(3)
    editor.press_shortcut()
    wait_for_request(session)
    begin = time.monotonic()
    program = next(process for process in session.programs.running if process.name == "vellumline")
    program.terminate()
    if program.wait(10) != 0 or time.monotonic() - begin > 2.5:
        raise Failure(f"it ended after {time.monotonic() - begin:.1f} s with {program.returncode}")
    time.sleep(0.3)
    if text_of(editor.node).strip() != SENTENCE:
        raise Failure("the text is " + text_of(editor.node))
    expect_clipboard(editor)


@with_editor
def log_out_while_the_correction_is_pasted_finishes_it(session, editor):
    editor.press_shortcut()
    wait_for("the correction", 10, lambda: text_of(editor.node).strip() == CORRECTED, 0.002)
    program = next(process for process in session.programs.running if process.name == "vellumline")
    program.terminate()
    if program.wait(10) != 0:
        raise Failure(f"it ended with {program.returncode}")
    expect_clipboard(editor)
    if text_of(editor.node).strip() != CORRECTED:
        raise Failure("the text is " + text_of(editor.node))


@with_editor
def the_program_sleeps_while_the_service_thinks_and_while_it_pastes(session, editor):
    session.stand_in.answer = after(0.3)
    editor.press_shortcut()
    wait_for_request(session)
    os.kill(session.pid, signal.SIGSTOP)
    time.sleep(2)
    os.kill(session.pid, signal.SIGCONT)
    wait_for("the correction", 10, lambda: text_of(editor.node).strip() == CORRECTED, 0.002)
    os.kill(session.pid, signal.SIGSTOP)
    time.sleep(2)
    os.kill(session.pid, signal.SIGCONT)
    expect_corrected(session, editor)


def the_clock_jumps(session):
    """As after a night asleep: the wall clock is eight hours on, in the middle of a correction."""
    ahead = session.start_with_own_clock()
    editor = Editor(session)
    try:
        session.stand_in.answer = after(0.5)
        editor.press_shortcut()
        wait_for_request(session)
        ahead(8 * 3600)
        expect_corrected(session, editor)
    finally:
        editor.end()


class OtherServer:
    """An X server of its own with a window manager, which can be taken away."""

    def __enter__(self):
        reader, writer = os.pipe()
        # pylint: disable=consider-using-with
        self.server = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-screen", "0", "1000x700x24", "-nolisten", "tcp"],
                                       pass_fds=(writer,), stderr=subprocess.DEVNULL)
        os.close(writer)
        self.before = os.environ["DISPLAY"]
        with os.fdopen(reader) as answer:
            os.environ["DISPLAY"] = ":" + answer.readline().strip()
        self.manager = subprocess.Popen(["openbox"], stderr=subprocess.DEVNULL)
        wait_for("the window manager", 10, lambda: b"WINDOW" in (run("xprop", "-root", "_NET_CLIENT_LIST") or b""), 0.05)
        return self

    def end(self):
        self.server.kill()
        self.server.wait()

    def __exit__(self, *_):
        os.environ["DISPLAY"] = self.before
        self.end()
        self.manager.wait(10)


def the_x_server_goes_away(session):
    with OtherServer() as server:
        program = session.start("--no-local-service")
        guardian = wait_for("the guardian", 5, lambda: run("pgrep", "-P", str(program.pid)), 0.05).decode().split()[0]
        editor = Editor(session)
        session.stand_in.answer = after(0.5)
        editor.press_shortcut()
        wait_for_request(session)
        server.end()
        program.wait(5)
        wait_for("the guardian to end", 5, lambda: not is_running(guardian), 0.05)
        editor.end()
    session.start("--no-local-service")
    editor = Editor(session)
    try:
        expect_works(session, editor)
    finally:
        editor.end()


class OtherBus:
    """A session bus with a keyring of its own, on the same screen."""

    def __init__(self, session):
        self.session = session
        # Inside of this session's runtime folder, so that what the bus starts ends with this session; apart from it, as each
        # accessibility bus has its socket there under the same name.
        folder = tempfile.mkdtemp(dir=os.environ["XDG_RUNTIME_DIR"])
        socket_file = os.path.join(folder, "bus")
        self.environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": "unix:path=" + socket_file, "XDG_RUNTIME_DIR": folder,
                            "XDG_DATA_HOME": folder}
        # What this bus starts does not know the screen: its accessibility bus would be announced there as the only one.
        without_display = {name: value for name, value in self.environment.items() if name != "DISPLAY"}
        self.daemon = session.programs.start("other-bus", "dbus-daemon", "--session", "--nofork", "--nopidfile",
                                             "--address=unix:path=" + socket_file, env=without_display)
        wait_for("the other bus", 5, lambda: os.path.exists(socket_file))
        unlock_keyring(without_display)  # ends with its bus, as the rest does
        keep_session(**self.environment)

    def start(self):
        return self.session.programs.start("vellumline-elsewhere", self.session.program, "--no-local-service", env=self.environment)

    def status(self):
        done = subprocess.run([self.session.program, "status", "--json"], env=self.environment, capture_output=True, timeout=10,
                              check=False)
        return json.loads(done.stdout or b"{}")


def two_processes_renew_the_same_session_at_once(session):
    """As two desktops do that share a session: of two exchanges of one refresh token the service grants one."""
    together = threading.Barrier(2, timeout=15)
    granted = []

    def renew(request):
        if not request.body.endswith(b"refresh_token=b"):
            raise Failure("an unknown token was exchanged: " + str(request.body))
        together.wait()
        with lock:
            granted.append(not granted)
            won = granted[-1]
        request.reply(stand_in.RENEWED if won else {"error": "invalid_grant"}, 200 if won else 400)

    lock = threading.Lock()
    session.stand_in.refused_token = "a"
    session.stand_in.renew = renew
    other = OtherBus(session)
    program = other.start()
    session.start("--no-local-service")
    wait_for("both exchanges", 20, lambda: len(granted) == 2)

    def states():
        return sorted(answer.get("accountState", "") for answer in (status(session), other.status()))

    wait_for("one to be signed in and the other not", 10, lambda: states() == ["signed-in", "signed-out"], 0.1)
    if granted.count(True) != 1:
        raise Failure("granted: " + str(granted))
    session.programs.end(program)
    session.programs.end(other.daemon)


def the_session_bus_goes_away(session):
    """The correction that runs ends as if nothing had been. The accessibility bus goes with it, and without it nothing more is
    touched."""
    editor = Editor(session)
    try:
        other = OtherBus(session)
        program = other.start()
        wait_for("the program", 15, other.status, 0.1)
        session.stand_in.answer = after(0.5)
        editor.press_shortcut()
        wait_for_request(session)
        other.daemon.kill()
        other.daemon.wait()
        wait_for("the correction", 10, lambda: text_of(editor.node).strip() == CORRECTED)
        expect_clipboard(editor)
        if program.poll() is not None:
            raise Failure("the program ended: " + session.programs.log("vellumline-elsewhere")[-500:])
        press("ctrl+a")
        press(SHORTCUT)
        time.sleep(2)
        if len(session.stand_in.requests) != 1 or text_of(editor.node).strip() != CORRECTED:
            raise Failure(f"{len(session.stand_in.requests)} requests were sent, the text is \"{text_of(editor.node)}\"")
        expect_clipboard(editor)
        program.terminate()
        if program.wait(10) != 0:
            raise Failure(f"it ended with {program.returncode}")
    finally:
        editor.end()


CASES = [
    the_service_is_not_there,
    the_service_ends_while_it_thinks,
    the_service_ends_in_the_middle_of_its_answer,
    the_service_ends_after_its_answer,
    a_slow_service_is_given_up_and_more_presses_start_nothing,
    answers_that_are_none_change_nothing,
    the_network_goes_away_in_the_middle,
    a_token_that_is_refused_is_renewed,
    a_renewal_that_is_refused_asks_to_sign_in,
    a_renewal_that_cannot_be_made_keeps_the_session,
    two_processes_renew_the_same_session_at_once,
    the_services_disk_is_full,
    the_services_database_is_read_only,
    the_keyring_dies_and_comes_back,
    the_editor_hangs_before_the_key,
    the_editor_hangs_while_the_service_thinks,
    the_editor_is_closed_while_the_service_thinks,
    the_user_turns_to_another_window,
    the_user_selects_something_else,
    the_user_types_meanwhile,
    the_owner_of_the_clipboard_hangs,
    the_owner_of_the_clipboard_dies,
    another_program_takes_the_clipboard_before_the_paste,
    a_target_that_reads_two_seconds_late_gets_the_correction,
    a_target_that_reads_after_the_bound_gets_what_the_user_had,
    the_keyboard_is_free_and_the_clipboard_back_after_log_out_while_the_service_thinks,
    log_out_while_the_correction_is_pasted_finishes_it,
    the_program_sleeps_while_the_service_thinks_and_while_it_pastes,
    the_clock_jumps,
    the_x_server_goes_away,
    the_session_bus_goes_away,
]

if __name__ == "__main__":
    sys.exit(main(CASES, prepare))
