#!/usr/bin/env bash
# Installs the Debian packages of the named groups that are missing, and nothing when none is: no network then.
#
#   packages.sh [--list] GROUP…        groups: build run demo test proxy bench check memory train package
set -euo pipefail

declare -A packages
# openssl and python3 sign a release, and so do the unit tests.
packages[build]="
    build-essential cmake ninja-build ccache pkg-config
    qt6-base-dev qt6-svg-dev libgl-dev qcoro-qt6-dev libexpected-dev
    libxcb1-dev libxcb-xfixes0-dev libxcb-xtest0-dev libxcb-xinput-dev libxcb-xkb-dev libxcb-keysyms1-dev
    libxcb-randr0-dev libxcb-res0-dev libxkbcommon-dev libxkbcommon-x11-dev
    libsecret-1-dev libhunspell-dev libssl-dev libcurl4-openssl-dev libsodium-dev libbenchmark-dev
    openssl python3"
packages[run]="
    at-spi2-core dbus xdg-utils desktop-file-utils libglib2.0-bin x11-utils
    libqt6svg6 libqt6sql6-sqlite hunspell-en-us hunspell-de-de ca-certificates"
# A desktop of its own for the demonstration, two editors of two toolkits, and the browser for the sign-in.
packages[demo]="
    xvfb openbox dbus-x11 gnome-keyring libsecret-tools xdotool wmctrl x11-xserver-utils x11-xkb-utils
    xclip imagemagick fonts-dejavu-core procps util-linux iproute2 python3 python3-gi gir1.2-atspi-2.0
    mousepad featherpad chromium chromium-driver"
# The applications, tray hosts and clipboard managers that the desktop tests run against, the service's other database and its
# benchmark's client.
packages[test]="
    libqt6sql6-psql postgresql sqlite3 wrk xinput x11-apps xfwm4 openssl tint2 trayer xfce4-panel lxqt-panel python3-pil python3-xdg faketime xbindkeys
    appstream man-db systemd
    kate gedit gnome-text-editor libreoffice-writer libreoffice-gtk3 firefox-esr xterm xfce4-terminal plasma-workspace"
# What the test behind_nginx runs. Its package starts a web server on port 80, which nobody asked ./test for; CI installs it.
packages[proxy]="nginx openssl iproute2"
# What benchmarks/peers compares with; it leaves out what is not there.
packages[bench]="xbindkeys xdotool xclip curl jq copyq"
# What scripts/valgrind.sh needs; no test does.
packages[memory]="valgrind"
# What builds the language model anew; nothing else needs it.
packages[train]="scowl xz-utils"
# What makes and checks the Debian packages.
packages[package]="dpkg-dev debhelper fakeroot lintian appstream desktop-file-utils man-db debootstrap"
packages[check]="git clang clang-tidy clang-format libclang-rt-14-dev llvm shellcheck"

list_only=no
if [ "${1:-}" = --list ]; then
    list_only=yes
    shift
fi
wanted=()
for group in "$@"; do
    [ -n "${packages[$group]:-}" ] || { echo "packages.sh: no group \"$group\"; there are: ${!packages[*]}" >&2; exit 64; }
    read -r -a names <<<"$(tr -s '\n ' ' ' <<<"${packages[$group]}")"
    wanted+=("${names[@]}")
done
if [ "$list_only" = yes ]; then
    printf '%s\n' "${wanted[@]}"
    exit 0
fi
if ! command -v dpkg-query >/dev/null; then
    echo "This is not a Debian system: please install by hand what corresponds to these Debian packages:" >&2
    echo "  ${wanted[*]}" >&2
    exit 1
fi

installed=" $(dpkg-query -W -f '${db:Status-Status}=${Package}\n' | sed -n 's/^installed=//p' | tr '\n' ' ') "
missing=()
for name in "${wanted[@]}"; do
    case "$installed" in
    *" $name "*) ;;
    *) missing+=("$name") ;;
    esac
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "Installing ${#missing[@]} missing Debian packages: ${missing[*]}"
if [ "$(id -u)" = 0 ]; then
    as_root=(env)
elif command -v sudo >/dev/null; then
    echo "(with sudo, which may ask for your password)"
    as_root=(sudo)
else
    echo "Neither root nor sudo here, so they cannot be installed. As root, run:" >&2
    echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
fi
# DPkg::Lock::Timeout: a fresh machine often runs its own upgrade just then.
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 -o Acquire::Retries=3)
"${apt[@]}" update </dev/null
"${apt[@]}" install --no-install-recommends "${missing[@]}" </dev/null
