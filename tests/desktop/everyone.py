"""The running program for somebody who reads it with a screen reader or uses it without a mouse, and opening at login."""

import os
import shutil
import sys

from session import Atspi, Failure, GLib, activate, main, press, run, wait_for, welcomed

CONTROLS = {Atspi.Role.PUSH_BUTTON: "button", Atspi.Role.CHECK_BOX: "switch", Atspi.Role.LINK: "link",
            Atspi.Role.TEXT: "text", Atspi.Role.PROGRESS_BAR: "bar"}
AUTOSTART = os.path.join(os.environ["XDG_CONFIG_HOME"], "autostart", "com.kelthorne.Vellumline.desktop")


def prepare(session):
    welcomed()
    session.record_browser()
    session.forget_session()
    if session.service is None:
        session.start_service()
    shutil.rmtree(os.path.dirname(AUTOSTART), ignore_errors=True)
    if os.path.isfile(os.path.dirname(AUTOSTART)):
        os.remove(os.path.dirname(AUTOSTART))
    session.set_account("--plan", "paid")


def application(session):
    """The program's root; nothing before it has reached the accessibility bus."""
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        each = desktop.get_child_at_index(index)
        if each is not None and each.get_process_id() == session.pid:
            return each
    return None


def shown_nodes(session):
    """Every node of the program that is on the screen."""
    found = []

    def look(node, depth):
        if node is None or depth > 20:
            return
        states = node.get_state_set()
        if depth > 0 and not states.contains(Atspi.StateType.SHOWING):
            return
        found.append((node, states))
        for index in range(node.get_child_count()):
            look(node.get_child_at_index(index), depth + 1)

    try:
        look(application(session), 0)
    except GLib.Error:  # a window closed meanwhile
        return []
    return found


def controls(session):
    """Kind and name of every control on the screen, in the order of the tree."""
    return [(CONTROLS[node.get_role()], node.get_name()) for node, _ in shown_nodes(session) if node.get_role() in CONTROLS]


def focused(session):
    """The name of the control that has the keyboard, or None."""
    for node, states in shown_nodes(session):
        if states.contains(Atspi.StateType.FOCUSED) and node.get_role() in CONTROLS:
            return node.get_name()
    return None


def expect_controls(session, expected):
    try:
        wait_for("them", 10, lambda: sorted(controls(session)) == sorted(expected), 0.1)
    except Failure as failure:
        raise Failure(f"the controls are {controls(session)}, not {expected}") from failure


def expect_names_everywhere(session):
    for node, states in shown_nodes(session):
        if states.contains(Atspi.StateType.FOCUSABLE) and node.get_role() in CONTROLS and not node.get_name():
            raise Failure(f"a {node.get_role_name()} has no name")
        if node.get_role() in CONTROLS and not states.contains(Atspi.StateType.ENABLED):
            raise Failure(f"\"{node.get_name()}\" is not enabled")


def walk_to(session, name):
    """Presses Tab until the control of that name has the keyboard, at most once around."""
    seen = []
    for _ in range(20):
        if focused(session) == name:
            return
        before = focused(session)
        press("Tab")
        wait_for("the focus to move", 5, lambda: focused(session) not in (before, None), 0.05)
        seen.append(focused(session))
    raise Failure(f"Tab does not reach \"{name}\" but {seen}")


def open_with_keyboard(session):
    session.open_panel()
    activate(session.x_window())


MENU = [("button", "About Vellumline"), ("button", "Settings"), ("button", "Check for Updates…"), ("button", "Quit")]
SETTINGS = [("button", "Change"), ("switch", "Open at login"), ("button", "Show the welcome window"), ("button", "Done")]


def every_page_has_its_controls_with_names_and_roles(session):
    session.start()
    open_with_keyboard(session)
    expect_controls(session, MENU + [("button", "Sign in")])
    expect_names_everywhere(session)
    walk_to(session, "Settings")
    press("Return")
    expect_controls(session, SETTINGS)
    expect_names_everywhere(session)
    walk_to(session, "Done")
    press("space")
    expect_controls(session, MENU + [("button", "Sign in")])
    walk_to(session, "About Vellumline")
    press("Return")
    expect_controls(session, [("link", "127.0.0.1"), ("link", "support@kelthorne.com"), ("button", "Done")])
    expect_names_everywhere(session)
    walk_to(session, "127.0.0.1")
    press("Return")
    session.wait_for_opened(session.origin())


def a_signed_in_account_shows_its_commands_and_its_usage(session):
    session.set_account("--plan", "free", "--used", "26", "--free-rewrites", "30")
    session.start()
    session.sign_in()
    open_with_keyboard(session)
    expect_controls(session, MENU + [("bar", "Free rewrites used"), ("button", "Monthly"), ("button", "Yearly"),
                                     ("button", "Account"), ("button", "Sign out")])
    expect_names_everywhere(session)
    session.screenshot("signed-in")
    walk_to(session, "Sign out")
    press("space")
    session.expect_in_panel("Not signed in.")


def the_welcome_window_has_its_controls(session):
    os.remove(os.path.join(os.environ["XDG_CONFIG_HOME"], "vellumline", "vellumline.conf"))
    session.start()
    expect_controls(session, [("button", "Change"), ("switch", "Open at login"), ("button", "Sign in"),
                              ("text", "Practice sentence"), ("button", "Done")])
    expect_names_everywhere(session)
    activate(session.x_window())
    for name in ("Done", "Change", "Open at login", "Sign in", "Practice sentence"):
        walk_to(session, name)
    session.screenshot("welcome")
    walk_to(session, "Done")
    press("Return")
    expect_controls(session, [])


def a_prompt_has_its_controls(session):
    session.start()
    # Its name is on the bus before its shortcut is registered.
    wait_for("the shortcut", 15, lambda: b"shortcutRegistered': <true>" in (run(
        "gdbus", "call", "--session", "--dest", "com.kelthorne.Vellumline", "--object-path", "/com/kelthorne/Vellumline",
        "--method", "com.kelthorne.Vellumline.Control.Status") or b""), 0.1)
    press("ctrl+alt+r")
    session.expect_prompt("Sign in to rewrite")
    expect_controls(session, [("button", "Not now"), ("button", "Sign in")])
    expect_names_everywhere(session)
    session.focus_prompt()
    walk_to(session, "Not now")
    press("space")
    session.expect_no_prompt()


def a_new_shortcut_is_recorded_by_the_keyboard_alone(session):
    session.start()
    open_with_keyboard(session)
    walk_to(session, "Settings")
    press("Return")
    walk_to(session, "Change")
    press("space")
    expect_controls(session, [("button", "Press keys…")] + SETTINGS[1:])
    press("ctrl+alt+k")
    wait_for("the new shortcut", 10, lambda: "⌃⌥K" in [node.get_name() for node, _ in shown_nodes(session)], 0.1)
    expect_controls(session, SETTINGS)
    press("Escape")
    wait_for("the panel to close", 10, lambda: controls(session) == [], 0.1)
    press("ctrl+alt+k")
    session.expect_prompt("Sign in to rewrite")


def the_program_opens_at_login(session):
    program = session.start()
    open_with_keyboard(session)
    walk_to(session, "Settings")
    press("Return")
    walk_to(session, "Open at login")
    press("space")
    wait_for("the entry", 10, lambda: os.path.exists(AUTOSTART))
    session.screenshot("open-at-login")
    session.end()
    if program.poll() is None:
        raise Failure("the program did not end")
    # What desktops without a session manager of their own run at login.
    session.programs.start("login", "/usr/lib/x86_64-linux-gnu/openbox-xdg-autostart", "XFCE")
    session.wait_for_program()
    open_with_keyboard(session)
    walk_to(session, "Settings")
    press("Return")
    walk_to(session, "Open at login")
    press("space")
    wait_for("the entry to be gone", 10, lambda: not os.path.exists(AUTOSTART))


def a_refusal_of_opening_at_login_is_said_and_the_switch_goes_back(session):
    with open(os.path.dirname(AUTOSTART), "w", encoding="utf-8"):
        pass  # a file where the folder should be
    session.start()
    open_with_keyboard(session)
    walk_to(session, "Settings")
    press("Return")
    walk_to(session, "Open at login")
    press("space")
    switch = next(states for node, states in shown_nodes(session) if node.get_name() == "Open at login")
    if switch.contains(Atspi.StateType.CHECKED):
        raise Failure("the switch shows what is not")
    walk_to(session, "Done")
    press("Return")
    session.expect_in_panel("Could not change Open at login. Move Vellumline to Applications and try again.")


CASES = [
    every_page_has_its_controls_with_names_and_roles,
    a_signed_in_account_shows_its_commands_and_its_usage,
    the_welcome_window_has_its_controls,
    a_prompt_has_its_controls,
    a_new_shortcut_is_recorded_by_the_keyboard_alone,
    the_program_opens_at_login,
    a_refusal_of_opening_at_login_is_said_and_the_switch_goes_back,
]

if __name__ == "__main__":
    sys.exit(main(CASES, prepare))
