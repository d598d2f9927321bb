#!/usr/bin/env bash
# Writes the desktop entry of a built program into the user's own data folder, so that the browser can hand the sign-in
# link over. Idempotent; prints nothing when nothing changed.
#
#   install-desktop-entry.sh PROGRAM
set -euo pipefail

program=$(readlink -f "${1:?usage: install-desktop-entry.sh PROGRAM}")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
data=${XDG_DATA_HOME:-$HOME/.local/share}
config=${XDG_CONFIG_HOME:-$HOME/.config}
entry=$data/applications/com.kelthorne.vellumline.desktop

# Desktop Entry Specification, "The Exec key": an argument with reserved characters is quoted, and inside the quotes
# these four are escaped; "%" is doubled.
quoted=$(printf '%s' "$program" | sed -e 's/[\\"`$]/\\&/g' -e 's/%/%%/g')
escaped=$(printf '"%s"' "$quoted" | sed -e 's/\\/\\\\/g' -e 's/[&|]/\\&/g')

mkdir -p "$data/applications" "$config"
sed "s|@VELLUMLINE_EXEC@|$escaped|" "$root/packaging/com.kelthorne.vellumline.desktop.in" >"$entry.new"
if cmp -s "$entry.new" "$entry"; then
    rm -f "$entry.new"
else
    mv "$entry.new" "$entry"
    echo "Installed $entry"
fi

# Without the cache, xdg-open finds the handler but the desktop portal, which browsers ask, does not.
if command -v update-desktop-database >/dev/null; then
    update-desktop-database "$data/applications"
fi
if command -v xdg-mime >/dev/null; then
    xdg-mime default com.kelthorne.vellumline.desktop x-scheme-handler/vellumline
fi
