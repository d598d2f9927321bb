#!/usr/bin/env bash
# Writes the desktop entry of a built program, and the file by which the session bus starts it, into the user's own data
# folder, so that the browser can hand the sign-in link over. Idempotent; prints nothing when nothing changed.
#
#   install-desktop-entry.sh PROGRAM
set -euo pipefail

program=$(readlink -f "${1:?usage: install-desktop-entry.sh PROGRAM}")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
data=${XDG_DATA_HOME:-$HOME/.local/share}
config=${XDG_CONFIG_HOME:-$HOME/.config}
identifier=com.kelthorne.Vellumline
mkdir -p "$data/applications" "$data/dbus-1/services" "$config"

# The Desktop Entry Specification asks for a quoted Exec line, but xdg-open outside of the large desktops splits it at
# spaces and keeps the quotes. The data folder rarely needs any.
needs_quotes() { [[ $1 = *[!A-Za-z0-9_./+:@,=-]* ]]; }
if needs_quotes "$program" && ! needs_quotes "$data"; then
    mkdir -p "$data/$identifier"
    ln -sfn "$program" "$data/$identifier/vellumline"
    program=$data/$identifier/vellumline
fi

# The entry does not say DBusActivatable: openers that end at once then lose the link. Xfce's exo-open delivered 6 of 20
# to a running program, and all 20 when it starts the Exec line.
#
# Both kinds of file: an argument with reserved characters is quoted, inside the quotes these four are escaped, and a
# backslash in a value is doubled. "%" is doubled in a desktop entry only (Desktop Entry Specification, "The Exec key").
service_exec=\"$(printf '%s' "$program" | sed -e 's/[\\"`$]/\\&/g')\"
entry_exec=${service_exec//%/%%}
needs_quotes "$program" || { entry_exec=$program; service_exec=$program; }

# install_from TEMPLATE EXEC FILE
install_from() {
    local escaped
    escaped=$(printf '%s' "$2" | sed -e 's/\\/\\\\/g' -e 's/[\\&|]/\\&/g')
    sed "s|@VELLUMLINE_EXEC@|$escaped|" "$root/packaging/$1" >"$3.new"
    if cmp -s "$3.new" "$3"; then
        rm -f "$3.new"
    else
        mv "$3.new" "$3"
        echo "Installed $3"
    fi
}
install_from "$identifier.desktop.in" "$entry_exec" "$data/applications/$identifier.desktop"
install_from "$identifier.service.in" "$service_exec" "$data/dbus-1/services/$identifier.service"

# The name that earlier builds used: two entries would be two handlers of the link.
rm -f "$data/applications/com.kelthorne.vellumline.desktop" "$data/dbus-1/services/com.kelthorne.vellumline.service"

# dbus-daemon looks again when it is asked for a name that it does not know, but not every message bus does.
if command -v gdbus >/dev/null && [ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    gdbus call --session --timeout 5 --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
        --method org.freedesktop.DBus.ReloadConfig >/dev/null 2>&1 || true
fi
# Without the cache, xdg-open finds the handler but the desktop portal, which browsers ask, does not.
if command -v update-desktop-database >/dev/null; then
    update-desktop-database "$data/applications"
fi
if command -v xdg-mime >/dev/null; then
    xdg-mime default "$identifier.desktop" x-scheme-handler/vellumline
fi
