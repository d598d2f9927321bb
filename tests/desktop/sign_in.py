"""The sign-in as a user does it: the welcome window, the panel's button, the real browser, its question, the link."""

import os
import signal
import sys

from session import SIGNED_IN, Atspi, click, main, node_of, set_default_browser, settled, wait_for, welcomed

ALLOW = "Open xdg-open"  # the button of Chromium's own question


class Browser:
    """Chromium, chosen as the default browser; started by the desktop, seen through the accessibility tree."""

    def __init__(self, session):
        self.pid_file = os.path.join(session.output, "browser.pid")
        launcher = os.path.join(session.output, "chromium")
        # No sandbox: it cannot start as root, and the only pages that are visited are our own service's. With another
        # password store Chromium asks to unlock a keyring and grabs the keyboard.
        with open(launcher, "w", encoding="utf-8") as script:
            script.write(f"""#!/bin/sh
echo $$ >'{self.pid_file}'
exec chromium --no-sandbox --test-type --no-first-run --no-default-browser-check \\
    --disable-gpu --disable-dev-shm-usage --password-store=basic --disable-sync \\
    --disable-background-networking --disable-component-update \\
    --force-renderer-accessibility --window-size=900,700 --window-position=60,40 \\
    --user-data-dir="$(mktemp -d "$XDG_RUNTIME_DIR/profile.XXXXXX")" "$1" >'{launcher}.log' 2>&1
""")
        os.chmod(launcher, 0o755)
        if os.path.exists(self.pid_file):
            os.remove(self.pid_file)
        set_default_browser(launcher)

    def pid(self):
        try:
            with open(self.pid_file, encoding="ascii") as file:
                return int(file.read())
        except (FileNotFoundError, ValueError):
            return None

    def button(self, name):
        """A button or link of the page or of the browser itself."""
        pid = self.pid()
        return pid and node_of(pid, lambda node, states: (
            node.get_role() in (Atspi.Role.PUSH_BUTTON, Atspi.Role.LINK) and node.get_name() == name
            and states.contains(Atspi.StateType.SHOWING)))

    def press(self, name):
        click(settled(f"\"{name}\" in the browser", 30, lambda: self.button(name)))

    def answer(self, name):
        """Presses a button of Chromium's question. Chromium ignores clicks for half a second after it has shown one, so
        that nobody answers by accident; a click that came to nothing is made again."""
        wait_for("the browser's question", 15, lambda: self.button(name))

        def answered():
            button = self.button(name)
            if button:
                click(button)
            return not button

        wait_for("the browser's question to be gone", 15, answered, 0.4)

    def end(self):
        pid = self.pid()
        if pid is not None:
            os.kill(pid, signal.SIGTERM)
            wait_for("the browser to end", 10, lambda: not running(pid))


def running(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
            return file.read().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def prepare(session):
    session.forget_session()
    if session.service is None:
        session.start_service()


def with_browser(steps):
    """The case, ended with its browser whatever becomes of it."""

    def case(session):
        browser = Browser(session)
        try:
            steps(session, browser)
        except Exception:
            session.screenshot("failed-with-browser")
            raise
        finally:
            browser.end()

    case.__name__ = steps.__name__
    return case


@with_browser
def the_browser_signs_the_program_in(session, browser):
    session.start()
    wait_for("the welcome window", 10, session.windows)
    session.open_panel()
    session.press_button(session.panel, "Sign in")
    wait_for("the browser to be started", 15, browser.pid)
    browser.press("Sign in")
    wait_for("the browser's question", 15, lambda: browser.button(ALLOW))
    session.screenshot("browser-asks")
    browser.answer(ALLOW)
    session.expect_in_panel(SIGNED_IN)
    session.screenshot("signed-in")
    # The page still has its link, which has had its one use.
    browser.press("Open Vellumline")
    browser.answer(ALLOW)
    session.expect_in_panel(SIGNED_IN)
    # The next start of the program finds the session in the keyring.
    session.end()
    session.start()
    session.expect_in_panel(SIGNED_IN)


@with_browser
def the_page_has_a_button_for_a_browser_that_did_not_open_the_link(session, browser):
    welcomed()
    session.start()
    session.open_panel()
    session.press_button(session.panel, "Sign in")
    wait_for("the browser to be started", 15, browser.pid)
    browser.press("Sign in")
    browser.answer("Cancel")
    session.expect_in_panel("Finish signing in in your browser.")
    browser.press("Open Vellumline")
    browser.answer(ALLOW)
    session.expect_in_panel(SIGNED_IN)


CASES = [
    the_browser_signs_the_program_in,
    the_page_has_a_button_for_a_browser_that_did_not_open_the_link,
]

if __name__ == "__main__":
    sys.exit(main(CASES, prepare))
