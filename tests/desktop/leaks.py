"""A whole run with marked texts and the tokens of a real sign-in, through success and failures; then neither is found in
any file but the ones that are meant for it, nor in a log, an environment, a command line, or a clipboard history."""

import argparse
import glob
import json
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time

from session import (Failure, Session, activate, editable_text_of, press, run, say, selected_text_of, text_of, wait_for,
                     welcomed, window_of)
import stand_in

SHORTCUT = "ctrl+alt+r"
GARBAGE = b"\x1f\x8b{\"text\":[\xff" + b"A" * 2000


def canary(number):
    """A number that no engine changes and nobody else writes."""
    return "7391" + str(84026153 + number * 1009) + "5562"


def wrong(mark):
    return f"i has went to the shop {mark} yesterday and buyed three apple."


def right(mark):
    return f"I went to the shop {mark} yesterday and bought three apples."


class Request(stand_in.Request):
    """What answers in the service's place when it has to fail."""

    manner = None
    asked = threading.Event()

    def answer(self):
        self.rfile.read(int(self.headers.get("Content-Length", "0")))
        Request.asked.set()
        status, body = {"refuse": (401, b'{"error":"unauthorized"}'), "break": (500, b"<html>oops"),
                        "garbage": (200, GARBAGE)}.get(Request.manner, (None, b""))
        if status is None:
            if Request.manner == "silence":
                time.sleep(20)
            self.close_connection = True
            return
        self.reply(body, status)

    do_GET = do_POST = answer


class Secrets:
    """What must not be found, and how it could be written."""

    def __init__(self):
        self.known = {}

    def add(self, name, text):
        for form, data in (("", text.encode()), (" as UTF-16", text.encode("utf-16-le"))):
            self.known[name + form] = data

    def found_in(self, data):
        return [name for name, secret in self.known.items() if secret in data]


class ProcessWatch(threading.Thread):
    """Environment and command line of every process of this session, as often as one can look. Secrets that are learnt
    later are looked for in all that was seen before."""

    def __init__(self):
        super().__init__(daemon=True)
        self.mark = b"XDG_RUNTIME_DIR=" + os.environ["XDG_RUNTIME_DIR"].encode() + b"\0"
        self.seen = {}
        self.ending = threading.Event()

    def look(self):
        for folder in glob.glob("/proc/[0-9]*"):
            try:
                with open(folder + "/environ", "rb") as file:
                    environment = file.read()
                if self.mark not in environment:
                    continue
                with open(folder + "/cmdline", "rb") as file:
                    words = file.read()
            except OSError:
                continue
            self.seen.setdefault((words, environment), folder)

    def run(self):
        while not self.ending.wait(0.02):
            self.look()

    def finish(self):
        self.ending.set()
        self.join()
        self.look()

    def leaks(self, secrets):
        found = []
        for words, environment in self.seen:
            name = words.split(b"\0")[0].decode(errors="replace")
            found += [f"{secret} in the command line of {name}" for secret in secrets.found_in(words)]
            found += [f"{secret} in the environment of {name}" for secret in secrets.found_in(environment)]
        return found


def files_below(folders, without):
    seen = set()
    for top in folders:
        for folder, names, files in os.walk(top):
            names[:] = [name for name in names if os.path.join(folder, name) not in without]
            for name in files:
                path = os.path.join(folder, name)
                if path not in seen and path not in without and os.path.isfile(path) and not os.path.islink(path):
                    seen.add(path)
                    yield path


def file_leaks(secrets, folders, without):
    found, count = [], 0
    for path in files_below(folders, without):
        with open(path, "rb") as file:
            found += [f"{secret} in {path}" for secret in secrets.found_in(file.read())]
        count += 1
    return found, count


def memory_leaks(secrets, pid):
    """In the memory of a process that it can write, its stacks left out."""
    found = []
    with open(f"/proc/{pid}/maps", encoding="utf-8") as maps, open(f"/proc/{pid}/mem", "rb", 0) as memory:
        for line in maps:
            fields = line.split()
            if not fields[1].startswith("rw") or "[stack" in line:
                continue
            begin, end = (int(number, 16) for number in fields[0].split("-"))
            try:
                memory.seek(begin)
                data = memory.read(end - begin)
            except (OSError, ValueError, OverflowError):
                continue
            found += [f"{secret} in the memory {fields[5] if len(fields) > 5 else 'unnamed'}" for secret in secrets.found_in(data)]
    return sorted(set(found))


def modes_of_private_files(paths):
    return [f"{path} can be read by others: {os.stat(path).st_mode & 0o777:o}" for path in paths
            if os.stat(path).st_mode & 0o077]


class Run:
    def __init__(self, options):
        self.output = os.path.realpath(options.output)
        os.makedirs(self.output, exist_ok=True)
        self.logs = tempfile.mkdtemp(dir=self.output)
        self.documents = tempfile.mkdtemp(dir=os.environ["XDG_RUNTIME_DIR"])
        # What the programs put into temporary files is looked at as well.
        os.environ["TMPDIR"] = tempfile.mkdtemp(dir=self.logs)
        os.environ["QT_LOGGING_RULES"] = "*.debug=true;*.info=true"
        os.environ["QT_LOGGING_TO_CONSOLE"] = "1"
        self.session = Session(os.path.realpath(options.build), self.logs)
        self.secrets, self.tokens = Secrets(), Secrets()
        self.watch = ProcessWatch()
        self.stand_in = None
        self.runs = 0
        self.problems = []

    def learn_tokens(self):
        """The tokens that the keyring holds now."""
        held = wait_for("the tokens in the keyring", 10, lambda: run(
            "secret-tool", "lookup", "service", "com.kelthorne.vellumline.session", "account", "session"), 0.1)
        session = json.loads(held)
        for name in ("accessToken", "refreshToken"):
            # The front part of an access token says only what it is for; the signature is what is secret.
            value = session[name].rsplit(".", 1)[-1]
            if len(value) < 20:
                raise Failure(f"{name} is too short to look for")
            self.secrets.add(f"{name} {self.runs}", value)
            self.tokens.add(f"{name} {self.runs}", value)

    def serve(self, manner):
        """Puts the stand-in into the service's place."""
        if self.session.service is not None:
            self.session.stop_service()
        Request.manner = manner
        if manner is not None and self.stand_in is None:
            self.stand_in = stand_in.StandIn(Request, self.session.port)
        if manner is None and self.stand_in is not None:
            self.stand_in.stop()
            self.stand_in = None

    def correct(self, after):
        """Selects a text with a mark of its own in a real editor and presses the shortcut; `after` says what to await."""
        self.runs += 1
        mark = canary(self.runs)
        self.secrets.add(f"text {self.runs}", mark)
        home = tempfile.mkdtemp(dir=self.documents)
        path = os.path.join(home, "letter.txt")
        with open(path, "w", encoding="utf-8") as file:
            file.write(wrong(mark))
        editor = self.session.programs.start("mousepad", "mousepad", "--disable-server", path,
                                             env={**os.environ, "XDG_DATA_HOME": home, "XDG_CONFIG_HOME": home,
                                                  "QT_LOGGING_RULES": ""})
        window = wait_for("the window of mousepad", 30, lambda: window_of(editor.pid), 0.1)
        activate(window)
        node = wait_for("the text in the accessibility tree", 15, lambda: editable_text_of(editor.pid), 0.1)
        press("ctrl+a")
        wait_for("the sentence to be selected", 5, lambda: selected_text_of(node).strip() == wrong(mark))
        Request.asked.clear()
        press(SHORTCUT)
        try:
            after(node, mark)
        finally:
            self.session.programs.end(editor)

    def idle(self):
        wait_for("the correction to be over", 25, lambda: b"busy: no" in self.status() or b'"busy": false' in self.status(), 0.1)

    def status(self):
        return run(self.session.program, "status", "--json", timeout=10) or b""

    def corrected(self, node, mark):
        wait_for("the correction", 15, lambda: text_of(node).strip() == right(mark))
        self.idle()

    def unchanged(self, node, mark):
        time.sleep(0.3)
        self.idle()
        if text_of(node).strip() != wrong(mark):
            raise Failure("the text is " + text_of(node))

    def killed_while_asking(self, node, mark):
        if not Request.asked.wait(10):
            raise Failure("nobody was asked")
        os.kill(self.session.pid, signal.SIGKILL)
        wait_for("the program to be gone", 5, lambda: self.session.owner() is None)
        self.session.end()

    def clipboard_history(self):
        return run("gdbus", "call", "--session", "--dest", "org.kde.klipper", "--object-path", "/klipper",
                   "--method", "org.kde.klipper.klipper.getClipboardHistoryMenu") or b""

    def start_program(self):
        self.session.start("--no-local-service")

    def through_everything(self):
        session = self.session
        welcomed()
        session.record_browser()
        session.forget_session()
        self.watch.start()
        has_klipper = run("which", "klipper") is not None
        if has_klipper:
            session.programs.start("klipper", "klipper", env={**os.environ, "QT_LOGGING_RULES": ""})
            wait_for("the clipboard history", 20, lambda: self.clipboard_history().startswith(b"("), 0.2)

        say("signing in, and a correction")
        session.start_service("--log", "text")
        self.start_program()
        session.sign_in()
        session.close_panel()
        self.learn_tokens()
        self.correct(self.corrected)
        first_text = self.secrets.known["text 1"]
        if has_klipper:
            history = self.clipboard_history()
            if right(first_text.decode()).encode() in history:
                self.problems.append("the correction is in the clipboard history")
            if first_text in history:
                say("         the clipboard history has what the editor itself copied, which bears no marks")

        say("the service is killed")
        os.kill(session.service.pid, signal.SIGKILL)
        session.service.wait()
        session.stop_service()
        self.correct(self.unchanged)
        for manner in ("garbage", "break", "hang up"):
            say("the service answers with: " + manner)
            self.serve(manner)
            self.correct(self.unchanged)
        say("the program is killed while it waits")
        self.serve("silence")
        self.correct(self.killed_while_asking)
        say("a new program corrects, and exchanges its tokens")
        self.serve(None)
        session.start_service("--log", "text")
        self.start_program()
        self.correct(self.corrected)
        self.learn_tokens()
        say("the service refuses the tokens")
        self.serve("refuse")
        self.correct(self.unchanged)
        wait_for("the end of the session", 10, lambda: b"signed-out" in self.status(), 0.1)
        self.serve(None)

        say("signing in again, and out")
        session.start_service("--log", "text")
        session.sign_in()
        session.close_panel()
        self.learn_tokens()
        time.sleep(1)  # the account is loaded meanwhile
        before = memory_leaks(self.tokens, session.pid)
        if not before:
            self.problems.append("the tokens were not found in the program's memory while it had them: the search is wrong")
        session.second_start("sign-out")
        wait_for("the end of the session", 10, lambda: b"signed-out" in self.status(), 0.1)
        time.sleep(1)
        after = memory_leaks(self.tokens, session.pid)
        say(f"         tokens in the program's memory: {len(before)} places before, {len(after)} after")
        self.problems += [place + " after signing out" for place in after]

    def look(self):
        """Everything at rest; the programs have ended and written what they write."""
        home = os.environ["HOME"]
        # The keyring's own files are for the tokens (encrypted, they would not be found); the documents are the user's.
        without = {os.path.join(os.environ["XDG_DATA_HOME"], "keyrings"), self.documents}
        without |= set(glob.glob(os.path.join(os.environ["XDG_DATA_HOME"], "klipper")))
        folders = [home, os.environ["XDG_RUNTIME_DIR"], self.logs]
        self.watch.finish()
        found, count = file_leaks(self.secrets, folders, without)
        self.problems += found + self.watch.leaks(self.secrets)
        say(f"looked for {len(self.secrets.known)} secrets in {count} files and {len(self.watch.seen)} command lines and environments")
        journal = subprocess.run(["journalctl", "--since", "-10min", "--no-pager"], capture_output=True, check=False) \
            if run("which", "journalctl") else None
        if journal and journal.returncode == 0:
            self.problems += [f"{secret} in the journal" for secret in self.secrets.found_in(journal.stdout)]
        databases = glob.glob(os.path.join(os.environ["XDG_DATA_HOME"], "vellumline*", "*"))
        if not databases:
            raise Failure("no database")
        self.problems += modes_of_private_files(databases)

    def prove_that_leaks_are_found(self):
        """Plants one of each kind; all have to be found."""
        mark = self.secrets.known["text 1"].decode()
        planted = os.path.join(os.environ["XDG_CACHE_HOME"], "planted")
        with open(planted, "wb") as file:
            file.write(b"\0\0" + mark.encode("utf-16-le"))
        watch = ProcessWatch()
        watch.start()
        child = subprocess.Popen(["sleep", "0.0" + mark], env={**os.environ, "PLANTED": mark})
        time.sleep(0.3)
        sleeper = subprocess.Popen(["sh", "-c", "sleep 5; : " + mark], env={**os.environ, "PLANTED": mark})
        time.sleep(0.5)
        watch.finish()
        child.wait()
        sleeper.kill()
        sleeper.wait()
        found = file_leaks(self.secrets, [os.environ["HOME"]], set())[0] + watch.leaks(self.secrets)
        os.remove(planted)
        for place in ("as UTF-16 in " + planted, "in the command line of", "in the environment of"):
            if not any(place in line for line in found):
                raise Failure(f"what was planted was not found: {place}, only {found}")
        say("what was planted in a file, a command line and an environment is found")


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--output", required=True)
    test = Run(arguments.parse_args())
    try:
        test.through_everything()
        test.session.end()
        test.session.stop_service()
        test.look()
        test.prove_that_leaks_are_found()
    except Failure as failure:
        test.problems.append(str(failure))
        test.session.screenshot("failed")
    finally:
        test.session.close()
    for problem in test.problems:
        say("FAILED   " + problem)
    return 1 if test.problems else 0


if __name__ == "__main__":
    sys.exit(main())
