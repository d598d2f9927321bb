"""The questions about the account, provoked as a user would: a real editor, the real shortcut, the real service."""

import json
import os
import sys
import tempfile
import urllib.error
import urllib.request

from session import (SIGNED_IN, Failure, activate, active_window, clipboard, editable_text_of, link_behind, main, press, run,
                     same_contents, selected_text_of, text_of, wait_for, welcomed, window_of)

SENTENCE = "i has went to the shop yesterday and buyed three apple."
SHORTCUT = "ctrl+alt+r"
SIGN_IN = "Sign in to rewrite"
CLOSED = "This account is closed"
CLOSED_NOTICE = "This account is closed. Reopen it on the account page."
USED_UP = "You've used your 30 free rewrites"


class Editor:
    """A real editor with the sentence selected, and something else on the clipboard."""

    def __init__(self, session):
        # A home of its own: after an unsaved change the editor asks at its next start whether to restore it.
        home = tempfile.mkdtemp(dir=os.environ["XDG_RUNTIME_DIR"])
        path = os.path.join(home, "practice.txt")
        with open(path, "w", encoding="utf-8") as file:
            file.write(SENTENCE)
        self.owner = session.programs.start("clipboard-owner",
                                            os.path.join(session.build, "demo", "vellumline-demo-clipboard"),
                                            "what I had copied before")
        wait_for("the clipboard owner", 10, lambda: "ready" in session.programs.log("clipboard-owner"))
        self.process = session.programs.start("mousepad", "mousepad", "--disable-server", path,
                                              env={**os.environ, "XDG_DATA_HOME": home, "XDG_CONFIG_HOME": home})
        self.window = wait_for("the window of the editor", 30, lambda: window_of(self.process.pid), 0.1)
        self.programs = session.programs
        activate(self.window)
        self.node = wait_for("the text in the accessibility tree", 15, lambda: editable_text_of(self.process.pid), 0.1)
        self.clipboard = wait_for("the clipboard to be filled", 5, clipboard)
        self.select_all()

    def select_all(self):
        press("ctrl+a")
        wait_for("the sentence to be selected", 5, lambda: selected_text_of(self.node).strip() == SENTENCE)

    def press_shortcut(self):
        activate(self.window)
        press(SHORTCUT)

    def expect_front(self):
        if active_window() != int(self.window, 16):
            raise Failure("the editor has lost the keyboard")

    def expect_untouched(self):
        """The sentence, its selection, the clipboard and the keyboard are the user's, as before."""
        self.expect_front()
        if text_of(self.node).strip() != SENTENCE:
            raise Failure("the text is \"" + text_of(self.node) + "\"")
        if selected_text_of(self.node).strip() != SENTENCE:
            raise Failure("the selection is \"" + selected_text_of(self.node) + "\"")
        wait_for("the clipboard to be what it was", 5, lambda: same_contents(self.clipboard, clipboard()))

    def end(self):
        self.programs.end(self.process)
        self.programs.end(self.owner)


def prepare(session):
    welcomed()
    session.record_browser()
    session.forget_session()
    if session.service is None:
        session.start_service()
    session.set_account("--plan", "paid", "--used", "0", "--free-rewrites", "30", "--open", "--monthly-checkout", "",
                        "--yearly-checkout", "")
    session.start()


def with_editor(steps):
    """The case, ended with its editor whatever becomes of it."""

    def case(session):
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


def expect_prompt(session, title, buttons):
    shown = session.expect_prompt(title)[1]
    if list(shown) != buttons:
        raise Failure(f"the prompt has the buttons {list(shown)}")


def sign_in(session, plan):
    """Signed in, and the program knows the account as it is now, which is what the panel says of its plan."""
    session.sign_in()
    session.expect_in_panel(plan)
    session.close_panel()


@with_editor
def signed_out_asks_to_sign_in(session, editor):
    editor.press_shortcut()
    expect_prompt(session, SIGN_IN, ["Not now", "Sign in"])
    session.screenshot("sign-in")
    editor.expect_untouched()
    session.press_button(session.prompt, "Sign in")
    address = session.wait_for_login_page()
    session.expect_no_prompt()
    session.open_link(link_behind(address))
    session.expect_in_panel(SIGNED_IN)


@with_editor
def keys_go_on_into_the_editor_behind_a_prompt(session, editor):
    editor.press_shortcut()
    session.expect_prompt(SIGN_IN)
    press("ctrl+End", "exclam")
    wait_for("the key to arrive in the editor", 5, lambda: text_of(editor.node).strip() == SENTENCE + "!")
    press("Return")
    wait_for("Return to arrive in the editor", 5, lambda: text_of(editor.node).count("\n") > 0)
    if session.opened():
        raise Failure("Return pressed the prompt's button")
    session.expect_prompt(SIGN_IN)


@with_editor
def a_second_press_shows_the_same_question_again(session, editor):
    windows = set()
    for _ in range(3):
        editor.press_shortcut()
        session.expect_prompt(SIGN_IN)
        editor.expect_untouched()
        windows.add(session.x_window())
    if len(windows) != 1:
        raise Failure("another window took the place of the first")


@with_editor
def a_question_is_on_every_desktop(session, editor):
    editor.press_shortcut()
    session.expect_prompt(SIGN_IN)
    window = session.x_window()
    try:
        run("wmctrl", "-s", "1")
        wait_for("the editor to be out of sight", 5, lambda: b"IsViewable" not in run("xwininfo", "-id", editor.window))
        if b"IsViewable" not in run("xwininfo", "-id", window):
            raise Failure("the question stayed behind on the first desktop")
    finally:
        run("wmctrl", "-s", "0")
    wait_for("the editor to be back", 5, lambda: b"IsViewable" in run("xwininfo", "-id", editor.window))
    session.press_button(session.prompt, "Not now")
    session.expect_no_prompt()


@with_editor
def a_question_is_dismissed_in_each_way(session, editor):
    for dismiss in (lambda: session.press_button(session.prompt, "Not now"),
                    lambda: (session.focus_prompt(), press("Escape")),
                    lambda: run("wmctrl", "-i", "-c", session.x_window())):
        editor.press_shortcut()
        session.expect_prompt(SIGN_IN)
        dismiss()
        session.expect_no_prompt()
    if session.opened():
        raise Failure(f"the browser was asked to open {session.opened()}")


@with_editor
def return_presses_the_rightmost_button(session, editor):
    editor.press_shortcut()
    session.expect_prompt(SIGN_IN)
    session.focus_prompt()
    press("Return")
    session.wait_for_login_page()
    session.expect_no_prompt()


@with_editor
def a_closed_account_that_only_the_service_knows_of(session, editor):
    sign_in(session, "Paid plan")
    session.set_account("--closed")
    editor.press_shortcut()
    expect_prompt(session, CLOSED, ["Not now", "Account"])
    session.screenshot("closed")
    editor.expect_untouched()
    session.press_button(session.prompt, "Account")
    if session.wait_for_opened(session.origin() + "/account/") != session.origin() + "/account/":
        raise Failure("another page was opened")
    session.expect_no_prompt()
    # Closed is not signed out.
    session.expect_in_panel(SIGNED_IN)


@with_editor
def a_closed_account_that_the_program_knows_of(session, editor):
    session.set_account("--closed")
    sign_in(session, CLOSED_NOTICE)
    session.stop_service()  # which is not asked
    editor.press_shortcut()
    expect_prompt(session, CLOSED, ["Not now", "Account"])
    editor.expect_untouched()
    # A second press finishes the question and asks it again; one is shown.
    editor.press_shortcut()
    expect_prompt(session, CLOSED, ["Not now", "Account"])


@with_editor
def a_used_up_allowance_that_only_the_service_knows_of(session, editor):
    session.set_account("--plan", "free", "--used", "20")
    sign_in(session, "Free · 20 of 30 used")
    session.set_account("--used", "30")
    for button, plan in (("Yearly", "yearly"), ("Monthly", "monthly")):
        editor.press_shortcut()
        expect_prompt(session, USED_UP, ["Not now", "Yearly", "Monthly"])
        editor.expect_untouched()
        session.screenshot("used-up")
        session.press_button(session.prompt, button)
        address = session.wait_for_opened(session.origin() + "/account/")
        if address != session.origin() + "/account/?plan=" + plan:
            raise Failure("opened was " + address)
        session.expect_no_prompt()


@with_editor
def a_used_up_allowance_that_the_program_knows_of(session, editor):
    session.set_account("--plan", "free", "--used", "30")
    sign_in(session, "Free · 30 of 30 used")
    session.stop_service()  # which is not asked
    editor.press_shortcut()
    expect_prompt(session, USED_UP, ["Not now", "Yearly", "Monthly"])
    editor.expect_untouched()
    session.focus_prompt()
    press("Return")
    session.wait_for_opened(session.origin() + "/account/?plan=monthly")


@with_editor
def the_links_that_the_service_offers_with_a_used_up_allowance_are_opened(session, editor):
    session.set_account("--plan", "free", "--used", "20")
    sign_in(session, "Free · 20 of 30 used")
    session.set_account("--used", "30", "--yearly-checkout", session.origin() + "/account/?a", "--monthly-checkout",
                        session.origin() + "/account/?b")
    editor.press_shortcut()
    session.expect_prompt(USED_UP)
    session.press_button(session.prompt, "Yearly")
    session.wait_for_opened(session.origin() + "/account/?a")


@with_editor
def another_question_takes_the_place_of_the_first(session, editor):
    editor.press_shortcut()
    session.expect_prompt(SIGN_IN)
    session.set_account("--closed")
    sign_in(session, CLOSED_NOTICE)
    editor.press_shortcut()
    session.expect_prompt(CLOSED)


@with_editor
def a_session_that_the_service_has_ended_asks_to_sign_in(session, editor):
    session.end()
    ahead = session.start_with_own_clock()
    link = link_behind(session.start_sign_in())
    session.open_link(link)
    session.expect_in_panel("Paid plan")
    session.close_panel()
    # A code that is used twice was stolen: the service ends what the first use gave.
    body = json.dumps({"code": link.partition("=")[2], "code_verifier": "x" * 43})
    again = urllib.request.Request(session.origin() + "/v1/auth/handoff/redeem", data=body.encode(),
                                   headers={"Content-Type": "application/json"})
    try:
        urllib.request.build_opener(urllib.request.ProxyHandler({})).open(again, timeout=10).close()
        raise Failure("a code was redeemed twice")
    except urllib.error.HTTPError as refusal:
        refusal.close()
    ahead(601)  # and the access token is used up
    editor.press_shortcut()
    session.expect_prompt(SIGN_IN)
    editor.expect_untouched()
    session.press_button(session.prompt, "Sign in")
    session.open_link(link_behind(session.wait_for_login_page()))
    session.expect_in_panel(SIGNED_IN)


CASES = [
    signed_out_asks_to_sign_in,
    keys_go_on_into_the_editor_behind_a_prompt,
    a_second_press_shows_the_same_question_again,
    a_question_is_on_every_desktop,
    a_question_is_dismissed_in_each_way,
    return_presses_the_rightmost_button,
    a_closed_account_that_only_the_service_knows_of,
    a_closed_account_that_the_program_knows_of,
    a_used_up_allowance_that_only_the_service_knows_of,
    a_used_up_allowance_that_the_program_knows_of,
    the_links_that_the_service_offers_with_a_used_up_allowance_are_opened,
    another_question_takes_the_place_of_the_first,
    a_session_that_the_service_has_ended_asks_to_sign_in,
]

if __name__ == "__main__":
    sys.exit(main(CASES, prepare))
