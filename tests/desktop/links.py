"""Links of the program's scheme, as a browser hands them over, and the running or not yet running program."""

import os
import shutil
import sys

from session import (EMAIL, KEYRING_SERVICE, NAME, NOT_STARTED_HERE, SIGN_IN_LINK, SIGNED_IN, Failure, link_behind, main,
                     run, wait_for, welcomed)

FOREIGN_CODE = "0123456789abcdefghijkl"
FOREIGN_LINK = "vellumline://auth?handoff=" + FOREIGN_CODE
NOT_FINISHED = "Sign-in did not finish. Sign in again."
SIGNED_OUT = "Not signed in."
WAITING = "Finish signing in in your browser."


def prepare(session):
    welcomed()
    session.record_browser()
    session.forget_session()
    if session.service is None:
        session.start_service()


def command_of(pid):
    with open(f"/proc/{pid}/cmdline", "rb") as file:
        return file.read().decode().split("\0")[:-1]


def has_session():
    return run("secret-tool", "lookup", "service", KEYRING_SERVICE, "account", "session") is not None


def bus_call(method, *arguments):
    answer = run("gdbus", "call", "--session", "--dest", NAME, "--object-path", "/com/kelthorne/Vellumline",
                 "--method", "org.freedesktop.Application." + method, *arguments)
    if answer is None:
        raise Failure(f"the program did not take {method}")


# A program that does not run yet

def a_link_starts_the_program_through_its_desktop_entry(session):
    # For a desktop that it does not know, xdg-open reads the Exec line itself, and waits for the program to end.
    for opener in (("gio", "open"), ("env", "XDG_CURRENT_DESKTOP=", "xdg-open")):
        session.programs.start("opener", *opener, FOREIGN_LINK)
        if FOREIGN_LINK not in command_of(session.wait_for_program()):
            raise Failure("the link is not an argument of the program")
        session.expect_in_panel(NOT_STARTED_HERE)
        session.end()


def a_link_starts_the_program_through_the_bus(session):
    bus_call("Open", f"['{FOREIGN_LINK}']", "{}")
    if "--bus-activated" not in command_of(session.wait_for_program()):
        raise Failure("the session bus did not start the program")
    session.expect_in_panel(NOT_STARTED_HERE)
    session.screenshot("not-started-here")


def a_link_starts_a_program_whose_folder_has_a_space_in_its_name(session):
    folder = os.path.join(session.output, "a folder with 100% $paces")
    program = os.path.join(folder, "vellumline")
    os.makedirs(folder, exist_ok=True)
    shutil.copy2(session.program, program)
    if session.install(program).count("Installed") != 2 or session.install(program) != "":
        raise Failure("installing a second time is not the same as installing once")
    try:
        for opener in (("gio", "open"), ("env", "XDG_CURRENT_DESKTOP=", "xdg-open"), None):
            if opener:
                session.programs.start("opener", *opener, FOREIGN_LINK)
            else:
                bus_call("Open", f"['{FOREIGN_LINK}']", "{}")
            if os.readlink(f"/proc/{session.wait_for_program()}/exe") != program:
                raise Failure("another program was started")
            session.expect_in_panel(NOT_STARTED_HERE)
            session.end()
    finally:
        session.install(session.program)
        shutil.rmtree(folder)


def the_bus_starts_the_program_with_its_panel_open(session):
    bus_call("Activate", "{}")
    session.wait_for_program()
    wait_for("the panel", 10, session.panel)
    session.screenshot("activated")


def a_sign_in_link_starts_the_program_and_the_sign_in(session):
    bus_call("Open", f"['{SIGN_IN_LINK}']", "{}")
    session.wait_for_program()
    session.open_link(link_behind(session.wait_for_login_page()))
    session.expect_in_panel(SIGNED_IN)


def the_loser_of_two_starts_at_once_opens_no_panel(session):
    session.start()
    session.second_start("--bus-activated")
    # The link is answered after what the second start could have asked for.
    session.open_link(SIGN_IN_LINK)
    session.wait_for_login_page()
    if session.panel():
        raise Failure("the panel was opened")


def links_of_several_starts_at_once_all_arrive(session):
    starts = [session.programs.start(f"start-{number}", session.program, SIGN_IN_LINK) for number in range(4)]
    session.wait_for_program()
    wait_for("each link to open a page", 15, lambda: len(session.opened()) == len(starts), 0.05)
    wait_for("the other starts to end", 10, lambda: sum(start.poll() is None for start in starts) == 1)
    if sorted(start.poll() or 0 for start in starts) != [0] * len(starts):
        raise Failure(f"the starts ended with {[start.poll() for start in starts]}")
    # Only the newest of the four sign-ins is waited for, and nobody knows which page that is.
    links = [link_behind(address) for address in session.opened()]
    session.forget_opened()
    if len(set(links)) != len(starts):
        raise Failure("two pages have one link")


# A sign-in that runs

def the_link_of_the_sign_in_signs_in(session):
    session.start()
    session.open_link(link_behind(session.start_sign_in()))
    session.expect_in_panel(SIGNED_IN)
    session.screenshot("signed-in")
    wait_for("the session to be in the keyring", 5, has_session)


def a_repeated_link_changes_nothing(session):
    session.start()
    link = link_behind(session.start_sign_in())
    session.open_link(link)
    session.expect_in_panel(SIGNED_IN)
    session.open_link(link)
    unchanged(session, SIGNED_IN)


def unchanged(session, text):
    """What is in the panel stays, also after the program has answered one more question."""
    for _ in range(2):
        session.second_start()
        session.expect_in_panel(text, 2)
    if session.opened():
        raise Failure(f"the browser was asked to open {session.opened()}")
    if session.prompts():
        raise Failure("a prompt is shown")


def a_link_that_this_program_did_not_start_is_refused(session):
    session.start()
    session.expect_in_panel(SIGNED_OUT)
    session.open_link(FOREIGN_LINK)
    session.expect_in_panel(NOT_STARTED_HERE)
    # Another program's code, while a sign-in of this one runs: the service knows that it is not its own.
    session.start_sign_in()
    session.open_link(FOREIGN_LINK)
    session.expect_in_panel(NOT_FINISHED)
    session.screenshot("not-finished")
    # The sign-in is over; even its own link is too late now.
    session.open_link(FOREIGN_LINK)
    session.expect_in_panel(NOT_STARTED_HERE)


def a_real_code_of_somebody_else_is_refused(session):
    session.start()
    first = session.start_sign_in()
    link = link_behind(first)
    session.end()
    session.start()
    # The code is good, but its sign-in was started by a program that has ended.
    session.open_link(link)
    session.expect_in_panel(NOT_STARTED_HERE)
    session.start_sign_in()
    session.open_link(link)
    session.expect_in_panel(NOT_FINISHED)
    if has_session():
        raise Failure("a session was stored")


def only_the_newest_of_two_sign_ins_completes(session):
    session.start()
    first = session.start_sign_in()
    second = session.start_sign_in("Open the sign-in page again")
    if first == second:
        raise Failure("both sign-ins have one challenge")
    session.open_link(link_behind(second))
    session.expect_in_panel(SIGNED_IN)
    session.open_link(link_behind(first))
    unchanged(session, SIGNED_IN)


def the_older_of_two_sign_ins_does_not_complete(session):
    session.start()
    first = session.start_sign_in()
    session.start_sign_in("Open the sign-in page again")
    session.open_link(link_behind(first))
    session.expect_in_panel(NOT_FINISHED)


def a_link_within_ten_minutes_signs_in(session):
    ahead = session.start_with_own_clock()
    link = link_behind(session.start_sign_in())
    ahead(570)
    session.open_link(link)
    session.expect_in_panel(SIGNED_IN)


def a_link_after_ten_minutes_is_refused(session):
    ahead = session.start_with_own_clock()
    link = link_behind(session.start_sign_in())
    ahead(601)
    session.open_link(link)
    session.expect_in_panel(NOT_STARTED_HERE)
    # It was not redeemed, and a new sign-in works.
    session.open_link(link_behind(session.start_sign_in()))
    session.expect_in_panel(SIGNED_IN)


# What is no link of this program

MALFORMED = {
    "another scheme": "https://auth/?handoff=" + FOREIGN_CODE,
    "another case": "Vellumline://auth?handoff=" + FOREIGN_CODE,
    "another host": "vellumline://oauth?handoff=" + FOREIGN_CODE,
    "no host": "vellumline:///auth?handoff=" + FOREIGN_CODE,
    "a short code": "vellumline://auth?handoff=0123456789abcde",
    "a long code": "vellumline://auth?handoff=" + "a" * 129,
    "no code": "vellumline://auth",
    "an empty code": "vellumline://auth?handoff=",
    "another name": "vellumline://auth?code=" + FOREIGN_CODE,
    "a code with an escape in it": "vellumline://auth?handoff=0123456789%2Fabcdefghij",
    "percent garbage": "vellumline://auth?handoff=%%%zz%0%" + FOREIGN_CODE,
    "an escaped zero byte": "vellumline://auth?handoff=0123456789abcdef%00",
    "control characters": "vellumline://auth?handoff=0123456789\x01\x1b[31m\r\nabcdefghij",
    "ten kilobytes": "vellumline://auth?handoff=" + "a" * 10240,
    "bytes that are no text": b"vellumline://auth?handoff=0123456789abcdef\xff\xfe",
    "words": "not a link at all",
    "a path": "/etc/passwd",
    "nothing": "",
}


def what_is_no_link_of_the_program_changes_nothing(session):
    session.start()
    session.open_link(FOREIGN_LINK)
    session.expect_in_panel(NOT_STARTED_HERE)
    session.start_sign_in()
    session.expect_in_panel(WAITING)
    for what, link in MALFORMED.items():
        session.second_start(link)
        if not session.alive():
            raise Failure(f"the program ended at {what}")
    # The sign-in still waits: none of them was taken for its link.
    unchanged(session, WAITING)
    for link in MALFORMED.values():
        # Not xdg-open: Xfce's opener shows a dialog of its own for an escape that is no text.
        if isinstance(link, str) and link.startswith("vellumline:"):
            run("gio", "open", link)
    if not session.alive():
        raise Failure("the program ended")
    unchanged(session, WAITING)


# A program that is signed in

def a_sign_in_link_offers_to_switch_the_account(session):
    session.start()
    session.sign_in()
    session.open_link(SIGN_IN_LINK)
    texts, buttons = session.expect_prompt("Vellumline is signed in")
    if not any(text.startswith(SIGNED_IN + " Select text in any app and press ") for text in texts):
        raise Failure(f"the prompt says {texts}")
    if list(buttons) != ["Not now", "Switch account"]:
        raise Failure(f"the prompt has the buttons {list(buttons)}")
    session.screenshot("signed-in-already")
    session.press_button(session.prompt, "Not now")
    session.expect_no_prompt()
    session.expect_in_panel(SIGNED_IN)
    session.open_link(SIGN_IN_LINK)
    session.expect_prompt("Vellumline is signed in")
    session.press_button(session.prompt, "Switch account")
    session.set_account("--email", "grace@example.com")
    try:
        session.open_link(link_behind(session.wait_for_login_page()))
        session.expect_in_panel("Signed in as grace@example.com.")
    finally:
        session.set_account("--email", EMAIL)


CASES = [
    a_link_starts_the_program_through_its_desktop_entry,
    a_link_starts_the_program_through_the_bus,
    a_link_starts_a_program_whose_folder_has_a_space_in_its_name,
    the_bus_starts_the_program_with_its_panel_open,
    a_sign_in_link_starts_the_program_and_the_sign_in,
    the_loser_of_two_starts_at_once_opens_no_panel,
    links_of_several_starts_at_once_all_arrive,
    the_link_of_the_sign_in_signs_in,
    a_repeated_link_changes_nothing,
    a_link_that_this_program_did_not_start_is_refused,
    a_real_code_of_somebody_else_is_refused,
    only_the_newest_of_two_sign_ins_completes,
    the_older_of_two_sign_ins_does_not_complete,
    a_link_within_ten_minutes_signs_in,
    a_link_after_ten_minutes_is_refused,
    what_is_no_link_of_the_program_changes_nothing,
    a_sign_in_link_offers_to_switch_the_account,
]

if __name__ == "__main__":
    sys.exit(main(CASES, prepare))
