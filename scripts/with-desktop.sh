#!/usr/bin/env bash
# Runs a command inside a private desktop session and takes the session down afterwards: Xvfb, session bus,
# accessibility bus switched on, window manager, unlocked keyring, and a home of its own. Nothing of it touches the
# caller's session. Exit status: the command's.
#
#   with-desktop.sh [--wm openbox|xfwm4|none] [--size 1280x800x24] [--no-keyring] [--no-accessibility]
#                   [--private-network] COMMAND [ARG…]
#
# --private-network gives the session a loopback address of its own where the kernel lets us, so that two sessions
# can each have a service on the same port; VELLUMLINE_PRIVATE_NETWORK is "yes" in the command's environment then.
set -u

arguments=("$@")
window_manager=openbox size=1280x800x24 keyring=yes accessibility=yes private_network=no
while [ $# -gt 0 ]; do
    case "$1" in
    --wm) window_manager=$2; shift 2 ;;
    --size) size=$2; shift 2 ;;
    --no-keyring) keyring=no; shift ;;
    --no-accessibility) accessibility=no; shift ;;
    --private-network) private_network=yes; shift ;;
    *) break ;;
    esac
done
[ $# -gt 0 ] || { echo "with-desktop.sh: no command given" >&2; exit 64; }

if [ "$private_network" = yes ] && [ "${VELLUMLINE_PRIVATE_NETWORK:-}" != entered ]; then
    namespace=(unshare --net)
    [ "$(id -u)" = 0 ] || namespace=(unshare --user --map-current-user --keep-caps --net)
    if "${namespace[@]}" ip link set lo up 2>/dev/null; then
        export VELLUMLINE_PRIVATE_NETWORK=entered
        # shellcheck disable=SC2016  # expanded by the inner shell
        exec "${namespace[@]}" bash -c 'ip link set lo up && exec "$@"' _ "$0" "${arguments[@]}"
    fi
fi
if [ "${VELLUMLINE_PRIVATE_NETWORK:-}" = entered ]; then
    export VELLUMLINE_PRIVATE_NETWORK=yes
else
    unset VELLUMLINE_PRIVATE_NETWORK
fi

folder=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-desktop.XXXXXX")
pids=()
stop_session() {
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill "${pids[i]}" 2>/dev/null
    done
    # Programs that the session bus activated (keyring, portals) live outside our process tree; their runtime folder
    # names them. What does not end when asked is ended.
    for attempt in $(seq 40); do
        remaining=$(grep -slz "^XDG_RUNTIME_DIR=$folder/run$" /proc/[0-9]*/environ 2>/dev/null | cut -d/ -f3)
        found=no
        for pid in $remaining; do
            if [ "$pid" = "$$" ] || [ ! -d "/proc/$pid" ]; then continue; fi
            found=yes
            if [ "$attempt" = 1 ]; then kill "$pid" 2>/dev/null; fi
            if [ "$attempt" = 30 ]; then kill -KILL "$pid" 2>/dev/null; fi
        done
        [ "$found" = yes ] || break
        sleep 0.05
    done
    for _ in 1 2 3 4 5; do
        rm -rf "$folder" 2>/dev/null && break
        sleep 0.1
    done
}
trap stop_session EXIT
trap 'exit 130' INT TERM

mkdir -m 700 "$folder/run" "$folder/home"
Xvfb -displayfd 7 -screen 0 "$size" -nolisten tcp -noreset 7>"$folder/display" >"$folder/xvfb.log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do
    [ -s "$folder/display" ] && break
    sleep 0.05
done
[ -s "$folder/display" ] || { echo "with-desktop.sh: Xvfb did not start" >&2; cat "$folder/xvfb.log" >&2; exit 69; }

DISPLAY=:$(cat "$folder/display")
export HOME=$folder/home XDG_RUNTIME_DIR=$folder/run DISPLAY
export XDG_CONFIG_HOME=$HOME/.config XDG_DATA_HOME=$HOME/.local/share XDG_CACHE_HOME=$HOME/.cache
export XDG_SESSION_TYPE=x11 XDG_CURRENT_DESKTOP=XFCE LANG=C.UTF-8
unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS AT_SPI_BUS_ADDRESS NO_AT_BRIDGE QT_ACCESSIBILITY GTK_MODULES GTK_A11Y
unset QT_QPA_PLATFORM XDG_SESSION_ID
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"

dbus-daemon --session --nofork --nopidfile --address="unix:path=$folder/run/bus" >"$folder/bus.log" 2>&1 &
pids+=($!)
export DBUS_SESSION_BUS_ADDRESS=unix:path=$folder/run/bus
for _ in $(seq 200); do
    [ -S "$folder/run/bus" ] && break
    sleep 0.02
done

if [ "$keyring" = yes ]; then
    # The password must not be empty: with an empty one the daemon asks on the screen and grabs the keyboard.
    printf test | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1
fi
if [ "$accessibility" = yes ]; then
    gdbus call --session --dest org.a11y.Bus --object-path /org/a11y/bus \
        --method org.freedesktop.DBus.Properties.Set org.a11y.Status IsEnabled '<true>' >/dev/null
fi
if [ "$window_manager" != none ]; then
    "$window_manager" >"$folder/wm.log" 2>&1 &
    pids+=($!)
    # A window mapped while the window manager is still starting stays unmanaged for ever. Openbox announces the
    # list of its clients last; that it is running comes earlier.
    for _ in $(seq 200); do
        xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 0x && wmctrl -m >/dev/null 2>&1 &&
            { [ "$window_manager" != openbox ] || xprop -root _NET_CLIENT_LIST 2>/dev/null | grep -q WINDOW; } && break
        sleep 0.05
    done
fi

"$@"
