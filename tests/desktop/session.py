"""The program and the service in a private desktop session, as the tests in this folder use them: started, looked at
through the accessibility tree, clicked on, and ended."""

import argparse
import glob
import os
import sys
import time
import traceback

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "demo"))

from desktop import (KEYRING_SERVICE, MARKER_TARGETS, Failure, Programs, activate, active_window, click, clipboard,  # noqa: E402
                     editable_text_of, keep_session, node_of, press, run, same_contents, say, screenshot, selected_text_of,
                     service_answers, service_port, set_default_browser, text_of, wait_for, welcomed, window_of)
from gi.repository import Atspi, GLib  # noqa: E402
from scripted_browser import link_behind  # noqa: E402

NAME = "com.kelthorne.Vellumline"
SIGN_IN_LINK = "vellumline://sign-in"
EMAIL = "ada@example.com"
SIGNED_IN = f"Signed in as {EMAIL}."
NOT_STARTED_HERE = "That sign-in link was not started from this Mac. Sign in again."


def bus(method, *arguments):
    return run("gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path", "/org/freedesktop/DBus",
               "--method", "org.freedesktop.DBus." + method, *arguments)


def texts_in(window):
    """The names of what is shown in a window, in the order of the tree, and its buttons by their names."""
    texts, buttons = [], {}

    def look(node, depth):
        if node is None or depth > 20:
            return
        states = node.get_state_set()
        if not states.contains(Atspi.StateType.SHOWING):
            return
        name = node.get_name()
        if node.get_role() == Atspi.Role.PUSH_BUTTON:
            buttons[name] = node
        elif name and depth > 0:
            texts.append(name)
        for index in range(node.get_child_count()):
            look(node.get_child_at_index(index), depth + 1)

    look(window, 0)
    return texts, buttons


def settled(what, seconds, find):
    """The node that `find` gives, once it has stayed in its place from one look to the next."""
    last = None

    def still():
        nonlocal last
        node = find()
        if not node:
            return None
        place = Atspi.Component.get_extents(node.get_component_iface(), Atspi.CoordType.SCREEN)
        now = (place.x, place.y, place.width, place.height)
        before, last = last, now
        return node if now == before and place.width > 0 else None

    return wait_for(what, seconds, still, 0.05)


class Session:
    """One desktop: the service, at most one program, and a browser that only notes what it was asked to open."""

    def __init__(self, build, output):
        self.build, self.output = build, output
        self.programs = Programs(output)
        self.program = os.path.join(build, "Vellumline", "vellumline")
        self.opened_file = os.path.join(output, "opened")
        self.pid = None
        self.port = service_port()
        self.service = None
        self.install(self.program)
        # The session bus gives programs that it starts its own environment.
        if "VELLUMLINE_ORIGIN" in os.environ:
            run("dbus-update-activation-environment", "VELLUMLINE_ORIGIN")

    @staticmethod
    def install(program):
        """Installs the desktop entry and the bus's file; what the script has to say about it."""
        said = run(os.path.join(ROOT, "scripts", "install-desktop-entry.sh"), program)
        if said is None:
            raise Failure("the desktop entry could not be installed")
        return said.decode()

    # The service

    def start_service(self, *options):
        if service_answers(self.port):
            raise Failure(f"something answers at port {self.port} already")
        self.service = self.programs.start("service",
                                           os.path.join(self.build, "VellumlineService", "vellumline-service"),
                                           "--port", str(self.port), *options)
        wait_for("the service to answer", 15, lambda: service_answers(self.port))
        self.set_account("--email", EMAIL)

    def stop_service(self):
        self.programs.end(self.service)
        self.service = None

    def set_account(self, *options):
        if run(os.path.join(self.build, "VellumlineService", "vellumline-service"), "account", "set", *options) is None:
            raise Failure("the account could not be set: " + " ".join(options))

    # The program

    def start(self, *arguments, **environment):
        process = self.programs.start("vellumline", self.program, *arguments, env={**os.environ, **environment})
        wait_for("the program to be on the session bus", 15, lambda: self.owner() or process.poll() is not None)
        if process.poll() is not None:
            raise Failure("the program ended: " + self.programs.log("vellumline")[-2000:])
        self.pid = process.pid
        return process

    def start_with_own_clock(self):
        """Starts the program and gives a function that moves its wall clock so many seconds ahead of the real one."""
        libraries = glob.glob("/usr/lib/*/faketime/libfaketime.so.1")
        if not libraries:
            raise Failure("the Debian package faketime is not installed")
        offset = os.path.join(self.output, "clock")

        def ahead(seconds):
            with open(offset + ".new", "w", encoding="ascii") as file:
                file.write(f"+{seconds}\n")
            os.replace(offset + ".new", offset)

        ahead(0)
        # Timers count by the monotonic clock, which goes on as it is.
        self.start(LD_PRELOAD=libraries[0], FAKETIME_TIMESTAMP_FILE=offset, FAKETIME_NO_CACHE="1",
                   FAKETIME_DONT_FAKE_MONOTONIC="1")
        return ahead

    def owner(self):
        """The process that has the program's name on the session bus."""
        answer = bus("GetConnectionUnixProcessID", NAME)
        return int(answer.decode().strip("(),\n").split()[-1]) if answer else None

    def wait_for_program(self):
        """The program that something else than the test has started."""
        self.pid = wait_for("a program on the session bus", 15, self.owner)
        return self.pid

    def end(self):
        """Ends the program as the session does, whoever started it."""
        pid = self.owner()
        if pid is not None:
            os.kill(pid, 15)
            wait_for("the program to end", 10, lambda: self.owner() is None)
        for process in list(self.programs.running):
            if process.name == "vellumline":
                self.programs.end(process)
        self.pid = None

    def alive(self):
        return self.pid is not None and self.owner() == self.pid

    def second_start(self, *arguments):
        """What a click on the program's icon does, or a browser with a link; its exit status is 0."""
        if run(self.program, *arguments) is None:
            raise Failure("a second start of the program failed")

    # What it shows

    def windows(self):
        """Texts and buttons of each shown window of the program."""
        application = node_of(self.pid, lambda node, _: node.get_role() == Atspi.Role.APPLICATION)
        if application is None:
            return []
        try:
            tops = [application.get_child_at_index(index) for index in range(application.get_child_count())]
            return [texts_in(top) for top in tops
                    if top is not None and top.get_state_set().contains(Atspi.StateType.SHOWING)]
        except GLib.Error:  # a window closed meanwhile
            return []

    def window_with(self, button):
        """Texts and buttons of the shown window that has such a button, or None."""
        return next(((texts, buttons) for texts, buttons in self.windows() if button in buttons), None)

    def panel(self):
        return self.window_with("Quit")

    def prompt(self):
        return self.window_with("Not now")

    def prompts(self):
        return [window for window in self.windows() if "Not now" in window[1]]

    def open_panel(self):
        if not self.panel():
            self.second_start()
        return wait_for("the panel", 10, self.panel)

    def close_panel(self):
        if self.panel():
            activate(self.x_window())
            press("Escape")
            wait_for("the panel to be closed", 10, lambda: not self.panel())

    def x_window(self):
        """The one window of the program, as wmctrl names it."""
        return wait_for("a window of the program", 5, lambda: window_of(self.pid))

    def focus_prompt(self):
        """Turns to the prompt, as a click on its title does."""
        activate(self.x_window())

    def expect_in_panel(self, text, seconds=10):
        """Opens the panel and waits until it reads exactly that in one of its labels."""
        self.open_panel()
        try:
            wait_for("it", seconds, lambda: text in (self.open_panel() or ([],))[0], 0.1)
        except Failure as failure:
            raise Failure(f"the panel does not say \"{text}\" but {self.open_panel()[0]}") from failure

    def expect_prompt(self, title):
        """Waits for the one prompt with that title and gives its texts and buttons."""
        def there():
            prompt = self.prompt()
            return prompt if prompt and title in prompt[0] else None

        try:
            prompt = wait_for("it", 15, there)
        except Failure as failure:
            raise Failure(f"no prompt \"{title}\" but {[texts for texts, _ in self.windows()]}") from failure
        if len(self.prompts()) != 1:
            raise Failure(f"{len(self.prompts())} prompts are shown at once")
        return prompt

    def expect_no_prompt(self):
        wait_for("the prompt to be gone", 10, lambda: not self.prompts())

    def press_button(self, find, name):
        """Clicks on a button once its window has stopped moving. `find` is self.panel or self.prompt."""
        click(settled(f"the button \"{name}\"", 10, lambda: (find() or ([], {}))[1].get(name)))

    def screenshot(self, name):
        screenshot(os.path.join(self.output, name + ".png"))

    # Links and the browser

    def record_browser(self):
        """The default browser only writes down what it is asked to open."""
        recorder = os.path.join(self.output, "record-browser")
        with open(recorder, "w", encoding="utf-8") as script:
            script.write('#!/bin/sh\nprintf "%s\\n" "$2" >>"$1"\n')
        os.chmod(recorder, 0o755)
        set_default_browser(recorder, self.opened_file)
        self.forget_opened()

    def opened(self):
        try:
            with open(self.opened_file, encoding="utf-8") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []

    def forget_opened(self):
        if os.path.exists(self.opened_file):
            os.remove(self.opened_file)

    def wait_for_opened(self, start):
        """The next address that the browser was asked to open; it begins as given."""
        address = wait_for("the browser to be asked to open " + start, 10, lambda: (self.opened() or [None])[-1], 0.05)
        if len(self.opened()) != 1 or not address.startswith(start):
            raise Failure(f"the browser was asked to open {self.opened()}, not {start}…")
        self.forget_opened()
        return address

    def origin(self):
        return f"http://127.0.0.1:{self.port}"

    def wait_for_login_page(self):
        """The address of the login page that the browser was asked to open, with the challenge of this sign-in."""
        address = self.wait_for_opened(self.origin() + "/")
        if "/login/?app_challenge=" not in address:
            raise Failure("opened was " + address)
        return address

    def start_sign_in(self, button="Sign in"):
        """Presses the button in the panel; the login page's address."""
        self.open_panel()
        self.press_button(self.panel, button)
        return self.wait_for_login_page()

    def open_link(self, link):
        if run("xdg-open", link) is None:
            raise Failure("xdg-open did not take " + link)

    def sign_in(self):
        self.open_link(link_behind(self.start_sign_in()))
        self.expect_in_panel(SIGNED_IN)

    @staticmethod
    def forget_session():
        """Nobody is signed in at the program's next start."""
        run("secret-tool", "clear", "service", KEYRING_SERVICE, "account", "session")

    def close(self):
        try:
            self.end()
        finally:
            self.programs.end_all()


def main(cases, prepare):
    """Runs the cases one after another, each with what `prepare` leaves it; 0 when all were right."""
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--output", required=True)
    arguments.add_argument("cases", nargs="*", help="only these")
    options = arguments.parse_args()
    os.makedirs(options.output, exist_ok=True)
    session = Session(os.path.realpath(options.build), os.path.realpath(options.output))
    failed = 0
    try:
        for case in cases:
            if options.cases and case.__name__ not in options.cases:
                continue
            try:
                prepare(session)
                begin = time.monotonic()
                case(session)
                say(f"ok       {case.__name__.replace('_', ' ')} ({time.monotonic() - begin:.1f} s)")
            except Exception as failure:  # whatever it is, the next case is still worth running
                failed += 1
                say("FAILED   " + case.__name__.replace("_", " "))
                say("         " + str(failure))
                if not isinstance(failure, Failure):
                    traceback.print_exc()
                try:
                    session.screenshot("failed-" + case.__name__)
                    say("         shown: " + str([texts for texts, _ in session.windows()]))
                except Failure:
                    pass
            finally:
                session.end()
    finally:
        session.close()
    return 1 if failed else 0
