"""The status item in the panels of a desktop: it is seen, it tells that a correction runs, and the menu that drops from
it stands at it, wholly on the screen.

  status_item.py --build FOLDER --output FOLDER HOST

HOST is one of the names in HOSTS. Runs inside of scripts/with-desktop.sh.
"""

import argparse
import os
import re
import sys
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "demo"))

from PIL import Image, ImageChops  # noqa: E402

import stand_in  # noqa: E402
from desktop import (Atspi, Failure, Programs, activate, active_window, editable_text_of, keep_session,  # noqa: E402
                     press, run, screenshot, shows_text, text_of, wait_for, welcomed, window_of)

TINT2 = """
panel_items = TS
panel_position = {position}
panel_size = {size}
panel_monitor = {monitor}
strut_policy = follow_size
taskbar_mode = single_desktop
task_text = 1
task_maximum_size = 140 30
systray_padding = 2 2 2
systray_icon_size = 22
systray_monitor = {monitor}
rounded = 0
background_color = {color} 100
"""

LXQT = """[General]
__userfile__=true
panels=panel1

[panel1]
plugins=statusnotifier
position=Bottom
width=100
width-percent=true
panelSize=32
iconSize=22

[statusnotifier]
type=statusnotifier
alignment=Right
"""

XFCE = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="true"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="26"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
        <value type="int" value="2"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
    </property>
    <property name="plugin-2" type="string" value="systray"/>
  </property>
</channel>
"""

HOSTS = {
    # The older protocol, which embeds a window of ours and so tells where it is.
    "tint2-top": ("tint2", TINT2.format(position="top center horizontal", size="100% 32", color="#202020", monitor=1)),
    "tint2-bottom": ("tint2", TINT2.format(position="bottom center horizontal", size="100% 32", color="#f0f0f0", monitor=1)),
    "tint2-left": ("tint2", TINT2.format(position="center left vertical", size="100% 60", color="#202020", monitor=1)),
    "tint2-right": ("tint2", TINT2.format(position="center right vertical", size="100% 60", color="#f0f0f0", monitor=1)),
    "tint2-second-screen": ("tint2", TINT2.format(position="bottom center horizontal", size="100% 32", color="#202020",
                                                  monitor=2)),
    "trayer": ("trayer", ["--edge", "bottom", "--align", "right", "--widthtype", "request", "--height", "26",
                          "--SetPartialStrut", "true"]),
    # Hosts of StatusNotifierItems, which keep the place to themselves.
    "xfce4-panel": ("xfce4-panel", XFCE),
    "lxqt-panel": ("lxqt-panel", LXQT),
    "late-xfce4-panel": ("xfce4-panel", XFCE),
    "late-lxqt-panel": ("lxqt-panel", LXQT),
}

SENTENCE = "i has went to the shop yesterday and buyed three apple."
CORRECTED = "I went to the shop yesterday and bought three apples."


class SlowRequest(stand_in.Request):
    """Corrects as late as it is told: what is looked at here is what the program shows while it waits."""

    answer = threading.Event()

    def rewrite(self, text):
        SlowRequest.answer.wait(20)
        self.reply({"text": CORRECTED})


SCREENS = {False: (0, 0, 1280, 800), True: (640, 0, 1280, 800)}


def screen_of(name):
    """The screen with the bar."""
    return SCREENS[name.endswith("second-screen")]


def start_host(name, programs):
    program, settings = HOSTS[name]
    config = os.environ["XDG_CONFIG_HOME"]
    if program == "tint2":
        path = os.path.join(config, "tint2rc")
        with open(path, "w", encoding="utf-8") as file:
            file.write(settings)
        return programs.start(name, "tint2", "-c", path)
    if program == "lxqt-panel":
        os.makedirs(os.path.join(config, "lxqt"), exist_ok=True)
        with open(os.path.join(config, "lxqt", "panel.conf"), "w", encoding="utf-8") as file:
            file.write(settings)
        return programs.start(name, "lxqt-panel")
    if program == "xfce4-panel":
        channels = os.path.join(config, "xfce4", "xfconf", "xfce-perchannel-xml")
        os.makedirs(channels, exist_ok=True)
        with open(os.path.join(channels, "xfce4-panel.xml"), "w", encoding="utf-8") as file:
            file.write(settings)
        return programs.start(name, "xfce4-panel", "--disable-wm-check")
    return programs.start(name, program, *settings)


def host_is_ready(name):
    if HOSTS[name][0] in ("tint2", "trayer"):
        # xprop cannot show selections; the tray's own window is there when it is ready.
        return re.search(rb'("tint2"|"trayer"|"panel")', run("xwininfo", "-root", "-tree") or b"")
    answer = run("gdbus", "call", "--session", "--dest", "org.kde.StatusNotifierWatcher", "--object-path",
                 "/StatusNotifierWatcher", "--method", "org.freedesktop.DBus.Properties.Get",
                 "org.kde.StatusNotifierWatcher", "IsStatusNotifierHostRegistered")
    return b"true" in (answer or b"")


def picture(output, name):
    path = os.path.join(output, name + ".png")
    screenshot(path)
    with Image.open(path) as image:
        return image.convert("RGB")


def item_box(before, after):
    """The box of what is new on the screen and has the size of an item, or None."""
    changed = ImageChops.difference(before, after).convert("L").point([0] * 24 + [255] * 232)
    columns = [x for x in range(changed.width) if changed.crop((x, 0, x + 1, changed.height)).getbbox()]
    groups = []
    for x in columns:
        if groups and x - groups[-1][-1] <= 3:
            groups[-1].append(x)
        else:
            groups.append([x])
    for group in groups:
        box = changed.crop((group[0], 0, group[-1] + 1, changed.height)).getbbox()
        width, height = group[-1] + 1 - group[0], box[3] - box[1]
        if 12 <= width <= 40 and 12 <= height <= 40:
            return group[0], box[1], group[-1] + 1, box[3]
    return None


def panel_window(pid):
    """The panel's window number and box on the screen, or None while it is closed."""
    for line in (run("wmctrl", "-lpG") or b"").decode(errors="replace").splitlines():
        fields = line.split(None, 8)
        if fields[2] == str(pid) and fields[-1].endswith("Vellumline"):
            shape = (run("xwininfo", "-id", fields[0]) or b"").decode()
            if "IsViewable" not in shape:
                return None
            number = {key: int(re.search(rf"{key}:\s+(-?\d+)", shape).group(1))
                      for key in ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height")}
            left, top = number["Absolute upper-left X"], number["Absolute upper-left Y"]
            return fields[0], (left, top, left + number["Width"], top + number["Height"])
    return None


def work_area():
    values = re.findall(rb"\d+", (run("xprop", "-root", "_NET_WORKAREA") or b"").split(b"=")[-1])
    left, top, width, height = (int(value) for value in values[:4])
    return left, top, left + width, top + height


def check(condition, sentence):
    if not condition:
        raise Failure("not so: " + sentence)
    print("ok       " + sentence, flush=True)


def click_at(x, y):
    run("xdotool", "mousemove", str(x), str(y))
    run("xdotool", "click", "1")


def check_place(box, item, name):
    area = work_area()
    screen = screen_of(name)
    check(box[0] >= screen[0] and box[1] >= screen[1] and box[2] <= screen[2] and box[3] <= screen[3],
          f"the panel is wholly on the screen ({box})")
    middle = ((item[0] + item[2]) // 2, (item[1] + item[3]) // 2)
    slack = 12 if HOSTS[name][0] in ("tint2", "trayer") else 2  # the item is smaller than its bar
    if middle[1] < area[1]:
        check(0 <= box[1] - item[3] + slack and abs(box[1] - area[1]) <= slack, "it drops from the bar at the top")
    elif middle[1] >= area[3]:
        check(abs(box[3] - area[3]) <= slack, "it stands on the bar at the bottom")
    elif middle[0] < area[0]:
        check(abs(box[0] - item[2]) <= 8, "it stands beside the item at the left")
    else:
        check(abs(box[2] - item[0]) <= 8, "it stands beside the item at the right")
    if middle[1] < area[1] or middle[1] >= area[3]:
        check(box[0] - 4 <= middle[0] <= box[2] + 4, "it stands at the item")
    else:
        check(box[1] - 4 <= middle[1] <= box[3] + 4, "it stands at the item")


def registered_items():
    answer = run("gdbus", "call", "--session", "--dest", "org.kde.StatusNotifierWatcher", "--object-path",
                 "/StatusNotifierWatcher", "--method", "org.freedesktop.DBus.Properties.Get",
                 "org.kde.StatusNotifierWatcher", "RegisteredStatusNotifierItems") or b""
    return answer.count(b"StatusNotifierItem")


def late_host(name, programs, options, output):
    """A panel that comes after the program, as at login, and comes again after it was restarted."""
    program = programs.start("vellumline", os.path.join(options.build, "Vellumline", "vellumline"), "--no-local-service")
    wait_for("the program", 15, lambda: b"true" in (run(
        "gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path", "/org/freedesktop/DBus",
        "--method", "org.freedesktop.DBus.NameHasOwner", "com.kelthorne.Vellumline") or b""), 0.1)
    time.sleep(0.5)
    for when in ("late", "restarted"):
        host = start_host(name, programs)
        wait_for("the item to be registered", 20, lambda: registered_items() == 1, 0.1)
        area = wait_for("its place on the screen", 20, lambda: work_area() != (0, 0, 1280, 800) and work_area(), 0.1)
        wait_for("the item", 40, lambda: light_box(picture(output, when), area), 0.2)
        check(True, f"a panel that is {when} shows the item")
        programs.end(host)
        wait_for("the panel to be gone", 10, lambda: not host_is_ready(name), 0.1)
    check(program.poll() is None, "the program runs on without a panel")
    # Nothing is unreachable without one.
    run(os.path.join(options.build, "Vellumline", "vellumline"))
    _, box = wait_for("the panel of the menu", 15, lambda: panel_window(program.pid))
    check(box[1] == 0 and box[2] == 1276, "a second start opens the menu in the corner")
    check(programs.end(program), "the program ends when asked")


def light_box(image, area):
    """The box of what is light outside of the work area, or None."""
    light = image.convert("L").point([0] * 200 + [255] * 56)
    light.paste(0, area)
    light.paste(0, (0, 0, 640, 800))  # the separator's handle
    box = light.getbbox()
    return box if box and 10 <= box[2] - box[0] <= 40 else None


def selected(node):
    text = node.get_text_iface()
    if Atspi.Text.get_n_selections(text) == 0:
        return ""
    chosen = Atspi.Text.get_selection(text, 0)
    return Atspi.Text.get_text(text, chosen.start_offset, chosen.end_offset)


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--output", required=True)
    arguments.add_argument("host", choices=sorted(HOSTS))
    options = arguments.parse_args()
    name = options.host
    output = os.path.join(options.output, name)
    os.makedirs(output, exist_ok=True)

    service = stand_in.StandIn(SlowRequest)
    os.environ["VELLUMLINE_ORIGIN"] = service.origin
    welcomed()
    programs = Programs(output)
    try:
        run("xsetroot", "-solid", "#3b5b7a")
        if screen_of(name) != SCREENS[False]:
            run("xrandr", "--setmonitor", "left", "640/170x800/200+0+0", "screen")
            run("xrandr", "--setmonitor", "right", "640/170x800/200+640+0", "none")
        if name.startswith("late-"):
            late_host(name, programs, options, output)
            return 0
        start_host(name, programs)
        wait_for("the panel of the desktop", 20, lambda: host_is_ready(name), 0.1)
        wait_for("its place on the screen", 20, lambda: work_area() != (0, 0, 1280, 800), 0.1)
        keep_session()
        path = os.path.join(os.environ["HOME"], "practice.txt")
        with open(path, "w", encoding="utf-8") as file:
            file.write(SENTENCE)
        editor = programs.start("mousepad", "mousepad", "--disable-server", path)
        window = wait_for("the editor's window", 30, lambda: window_of(editor.pid), 0.1)
        activate(window)
        time.sleep(1)
        before = picture(output, "before")

        program = programs.start("vellumline", os.path.join(options.build, "Vellumline", "vellumline"),
                                 "--no-local-service")
        item = wait_for("the item", 40, lambda: item_box(before, picture(output, "item")), 0.2)
        check(True, f"the item is seen at {item}")
        x, y = (item[0] + item[2]) // 2, (item[1] + item[3]) // 2

        node = wait_for("the text in the accessibility tree", 15, lambda: editable_text_of(editor.pid), 0.1)
        press("ctrl+a")
        wait_for("the text to be selected", 15, lambda: selected(node).strip() == SENTENCE)

        click_at(x, y)
        number, box = wait_for("the panel", 15, lambda: panel_window(program.pid))
        wait_for("the account", 15, lambda: shows_text(program.pid, "Signed in as ada@example.org."))
        time.sleep(0.2)  # the last look at its size
        number, box = panel_window(program.pid)
        picture(output, "panel")
        check_place(box, item, name)
        states = run("xprop", "-id", number, "_NET_WM_STATE") or b""
        check(b"SKIP_TASKBAR" in states and b"SKIP_PAGER" in states, "it is in no task bar")
        check(active_window() == int(number, 16), "it has the keyboard")

        press("Escape")
        wait_for("the panel to close", 15, lambda: panel_window(program.pid) is None)
        wait_for("the editor to have the keyboard again", 15, lambda: active_window() == int(window, 16))
        check(selected(node).strip() == SENTENCE, "Escape closes it, and the editor's selection is what it was")

        time.sleep(0.3)
        click_at(x, y)
        wait_for("the panel", 15, lambda: panel_window(program.pid))
        click_at(x, y)
        wait_for("the panel to close", 15, lambda: panel_window(program.pid) is None)
        time.sleep(0.4)
        check(panel_window(program.pid) is None, "a click on the item closes it, and it stays closed")
        check(active_window() == int(window, 16) and selected(node).strip() == SENTENCE,
              "the editor has the keyboard and its selection again")

        click_at(x, y)
        wait_for("the panel", 15, lambda: panel_window(program.pid))
        click_at(640, 700 if y < 400 else 100)
        wait_for("the panel to close", 15, lambda: panel_window(program.pid) is None)
        check(True, "a click into another program closes it")

        activate(window)
        press("ctrl+a")
        wait_for("the text to be selected", 15, lambda: selected(node).strip() == SENTENCE)
        run("xdotool", "mousemove", "640", "400")
        time.sleep(0.3)
        around = (item[0] - 4, item[1] - 4, item[2] + 4, item[3] + 4)
        idle = picture(output, "idle").crop(around)
        press("ctrl+alt+r")
        wait_for("the item to tell of the correction", 5,
                 lambda: ImageChops.difference(idle, picture(output, "busy").crop(around)).getbbox(), 0.05)
        first = picture(output, "busy").crop(around)
        wait_for("the item to move", 5,
                 lambda: ImageChops.difference(first, picture(output, "busy").crop(around)).getbbox(), 0.05)
        check(True, "while a correction runs the item shows it, and moves")
        if HOSTS[name][0] not in ("tint2", "trayer"):
            label = run("gdbus", "call", "--session", "--dest", "com.kelthorne.Vellumline", "--object-path",
                        "/StatusNotifierItem", "--method", "org.freedesktop.DBus.Properties.Get",
                        "org.kde.StatusNotifierItem", "Title") or b""
            check("Vellumline, correcting" in label.decode(), "its label says so")
        SlowRequest.answer.set()
        wait_for("the text to be corrected", 10, lambda: text_of(node).strip() == CORRECTED)
        wait_for("the item to be what it was", 5,
                 lambda: not ImageChops.difference(idle, picture(output, "after").crop(around)).getbbox(), 0.1)
        check(True, "after it the item is what it was")
        check(programs.end(program), "the program ends when asked")
    except Failure as failure:
        print("FAILED   " + str(failure))
        screenshot(os.path.join(output, "failed.png"))
        return 1
    finally:
        programs.end_all()
        service.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
