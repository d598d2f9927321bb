#!/usr/bin/env bash
# Installs a build into a folder of its own and checks what the desktop reads of it.
#
#   check-installation.sh BUILD
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
build=$(realpath "$1")
identifier=com.kelthorne.Vellumline
folder=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-installation.XXXXXX")
trap 'rm -rf "$folder"' EXIT
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
DESTDIR=$folder cmake --install "$build" >/dev/null
tree=$folder$prefix
failures=0
check() { # NAME COMMAND…
    local name=$1 output
    shift
    if output=$("$@" 2>&1); then
        echo "ok       $name"
    else
        echo "FAILED   $name: $output"
        failures=$((failures + 1))
    fi
}

desktop_entry() { desktop-file-validate "$tree/share/applications/$identifier.desktop"; }
metainfo() { appstreamcli validate --no-net "$tree/share/metainfo/$identifier.metainfo.xml"; }
actions_name_commands() {
    local command
    for command in rewrite open-menu settings quit; do
        grep -qxF "Exec=$prefix/bin/vellumline $command" "$tree/share/applications/$identifier.desktop" || return 1
    done
}
one_identifier() {
    local wrong
    wrong=$(find "$tree" \( -ipath "*com.kelthorne*" ! -path "*$identifier*" \) -print)
    [ -z "$wrong" ] || { echo "$wrong"; return 1; }
    grep -qxF "Name=$identifier" "$tree/share/dbus-1/services/$identifier.service" &&
        grep -qxF "Icon=$identifier" "$tree/share/applications/$identifier.desktop" &&
        grep -qxF "BusName=$identifier" "$tree/lib/systemd/user/vellumline.service" &&
        grep -qF "<id>$identifier</id>" "$tree/share/metainfo/$identifier.metainfo.xml" &&
        [ -f "$tree/share/icons/hicolor/scalable/apps/$identifier.svg" ] &&
        [ -f "$tree/share/icons/hicolor/symbolic/apps/$identifier-symbolic.svg" ]
}
no_template_is_left() { ! grep -rnE '@[A-Z_]{4,}@' "$tree/share/applications" "$tree/share/metainfo" "$tree/share/dbus-1" "$tree/lib/systemd"; }
units() {
    local copies=$folder/units said
    mkdir "$copies"
    mkdir -m 700 "$folder/run"
    cp "$tree/lib/systemd/user/"* "$copies"
    sed -i -E "s#^Exec(Start|Stop)=$prefix#Exec\1=$tree#; /^Documentation=/d" "$copies"/*
    said=$(XDG_RUNTIME_DIR=$folder/run systemd-analyze verify --user "$copies"/* 2>&1) || true
    # What a machine without its own units for a session lacks is not about ours.
    ! grep -F "$(basename -a "$copies"/* | sed 's/$/:/')" <<<"$said"
}
sandbox() {
    local exposure
    exposure=$(systemd-analyze security --offline=true "$tree/lib/systemd/user/vellumline-service.service" |
        sed -nE 's/.*Overall exposure level for [^:]*: ([0-9]+)[.].*/\1/p')
    echo "exposure $exposure"
    [ -n "$exposure" ] && [ "$exposure" -le 6 ]
}
manual_pages() {
    local page program
    for page in "$tree"/share/man/man1/*.1; do
        [ -z "$(LC_ALL=C.UTF-8 MANROFFSEQ='' man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)" ] || return 1
    done
    for program in "$tree"/bin/*; do
        [ -f "$tree/share/man/man1/$(basename "$program").1" ] || { echo "no page for $program"; return 1; }
    done
}
page_names_every_command() {
    local command help
    help=$("$tree/bin/vellumline" --help)
    for command in rewrite open-menu settings sign-in sign-out status quit doctor; do
        grep -qE "^\.BR? .*$command" <(sed 's/\\-/-/g' "$tree/share/man/man1/vellumline.1") || { echo "$command"; return 1; }
        grep -qE "^  $command " <<<"$help" || { echo "$command: --help"; return 1; }
        grep -qE "\b$command\b" "$tree/share/bash-completion/completions/vellumline" || return 1
        grep -qE "'$command:" "$tree/share/zsh/vendor-completions/_vellumline" || return 1
    done
}
completes() { # EXPECTED WORD…
    local expected=$1
    shift
    PATH=$tree/bin:$PATH bash -c '
        source "$1" && shift
        function=$1; shift
        COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
        "$function" "$1" "${@: -1}" "${@: -2:1}"
        printf "%s\n" "${COMPREPLY[@]}"' _ "$tree/share/bash-completion/completions/$1" \
        "$([ "$1" = vellumline ] && echo _vellumline || echo _vellumline_options)" "$@" | grep -qxF -- "$expected"
}
programs_start() { "$tree/bin/vellumline" --version && "$tree/bin/vellumline-service" --version; }
model_is_found() {
    # Only the installed one: the folder of a build is not this one's.
    [ "$(echo 'i has went to the shop yesterday and buyed three apple.' | "$tree/bin/vellumline-correct")" = \
        'I went to the shop yesterday and bought three apples.' ]
}
nothing_else_is_installed() {
    diff <(cd "$tree" && find . -type f | LC_ALL=C sort) - <<END
./bin/vellumline
./bin/vellumline-correct
./bin/vellumline-service
./lib/systemd/user/vellumline-service.service
./lib/systemd/user/vellumline-service.socket
./lib/systemd/user/vellumline.service
./libexec/vellumline/vellumline-guardian
./share/applications/$identifier.desktop
./share/bash-completion/completions/vellumline
./share/bash-completion/completions/vellumline-correct
./share/bash-completion/completions/vellumline-service
./share/dbus-1/services/$identifier.service
./share/icons/hicolor/scalable/apps/$identifier.svg
./share/icons/hicolor/symbolic/apps/$identifier-symbolic.svg
./share/man/man1/vellumline-correct.1
./share/man/man1/vellumline-service.1
./share/man/man1/vellumline.1
./share/metainfo/$identifier.metainfo.xml
./share/vellumline/models/en.model
./share/zsh/vendor-completions/_vellumline
END
}

check "everything is installed and nothing else" nothing_else_is_installed
check "no template is left" no_template_is_left
check "one application id everywhere" one_identifier
check "the desktop entry" desktop_entry
check "its actions are commands of the program" actions_name_commands
check "the metainfo" metainfo
check "the systemd units" units
check "the service's sandbox" sandbox
check "a manual page for each program, without a warning" manual_pages
check "every command is in the help, the manual and the completions" page_names_every_command
check "completion of a command" completes sign-out vellumline sign-o
check "completion of an option" completes --json vellumline doctor --
check "completion from a program's help" completes --engine-seconds vellumline-service --engine-s
check "the programs start" programs_start
check "the installed model is found" model_is_found
bash -n "$root/packaging/completions/vellumline.bash"
[ "$failures" = 0 ]
