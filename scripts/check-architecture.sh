#!/usr/bin/env bash
# Checks who may include and call what (docs/architecture.md says why). Every violation is one line:
# FILE:LINE: RULE: TEXT. Exit status 1 when there is any.
#
#   check-architecture.sh [FOLDER]        check the tree, or the one in FOLDER
#   check-architecture.sh --self-test     prove that every rule can fail: plant each violation in a copy of some of the tree
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)

# Prints "FILE:LINE:TEXT" of the code lines that match, comments and string contents left out (includes keep theirs).
code_matching() {
    local pattern=$1
    shift
    [ $# -gt 0 ] || return 0
    PATTERN=$pattern perl -0777 -ne '
        s{("(?:[^"\\\n]|\\.)*")|(//[^\n]*)|(/\*.*?\*/)}{
            my ($string, $line, $block) = ($1, $2, $3);
            if (defined $block) { (my $ends = $block) =~ s/[^\n]//g; $ends }
            elsif (defined $line) { "" }
            else { $string }
        }gse;
        my $number = 0;
        for my $line (split /\n/, $_, -1) {
            ++$number;
            my $code = $line;
            $code =~ s/"(?:[^"\\]|\\.)*"/""/g if $line !~ /^\s*#\s*include/;
            print "$ARGV:$number:$line\n" if $code =~ /$ENV{PATTERN}/;
        }' "$@"
}

# Prints "FILE:LINE:TEXT" of lambdas that capture and are coroutines: the captures die with the lambda object at the
# first suspension, while the coroutine goes on (C++ Core Guidelines CP.51).
capturing_coroutine_lambdas() {
    [ $# -gt 0 ] || return 0
    perl -0777 -ne '
        s{"(?:[^"\\\n]|\\.)*"|//[^\n]*|/\*.*?\*/}{ (my $ends = $&) =~ s/[^\n]//g; $ends }gse;
        my $text = $_;
        my $body = qr/(\{(?:[^{}]++|(?-1))*+\})/;
        while ($text =~ /\[([^\[\]]*[&=\w][^\[\]]*)\]\s*(?:\((?:[^()]|\((?:[^()]|\([^()]*\))*\))*\))?\s*(?:mutable|noexcept|\s)*((?:->[^{;]*)?)$body/g) {
            my ($start, $result, $inner, $next) = ($-[0], $2, $3, $+[2]);
            $inner = substr $inner, 1;
            $inner =~ s/\[[^\[\]]*\]\s*(?:\((?:[^()]|\([^()]*\))*\))?[^{;()]*$body//g;
            my $line = 1 + (substr($text, 0, $start) =~ tr/\n//);
            print "$ARGV:$line:[$1]\n" if $result =~ /\bTask\b/ || $inner =~ /\bco_(?:await|return|yield)\b/;
            pos($text) = $next;
        }' "$@"
}

violations=0
report() {
    local rule=$1 line
    while IFS= read -r line; do
        [ -n "$line" ] || continue
        local rest=${line#*:}
        echo "${line%%:*}:${rest%%:*}: $rule: ${rest#*:}"
        violations=$((violations + 1))
    done
}

sources_in() { find "$@" -type f \( -name '*.cpp' -o -name '*.h' \) 2>/dev/null | LC_ALL=C sort; }

check() {
    cd "$1"
    local core application adapters entry service every qt_headers header
    mapfile -t core < <(sources_in VellumlineCore)
    mapfile -t entry < <(find Vellumline -maxdepth 1 -name main.cpp -o -maxdepth 1 -name 'VellumlineApp.*' \
        -o -maxdepth 1 -name 'DoctorApp.*' -o -maxdepth 1 -name 'DesktopAdapters.*' | sort)
    mapfile -t adapters < <(sources_in Vellumline/Platform/X11 Vellumline/Platform/Linux)
    mapfile -t application < <(sources_in Vellumline |
        grep -vE '^Vellumline/(Platform/(X11|Linux)/|main\.cpp$|(VellumlineApp|DoctorApp|DesktopAdapters)\.(h|cpp)$)')
    mapfile -t service < <(sources_in VellumlineService)
    every=("${core[@]}" "${application[@]}" "${adapters[@]}" "${entry[@]}")

    # The core: the standard library, Qt Core and itself.
    qt_headers=$(qmake6 -query QT_INSTALL_HEADERS 2>/dev/null || echo /usr/include/qt6)
    report "VellumlineCore may include the standard library, Qt Core and itself only" < <(
        code_matching '^\s*#\s*include\b' "${core[@]}" | while IFS= read -r line; do
            header=$(sed -nE 's/.*#[[:space:]]*include[[:space:]]*[<"]([^>"]*)[>"].*/\1/p' <<<"$line")
            case "$header" in
            VellumlineCore/*) continue ;;
            QtCore/*) continue ;;
            esac
            # The Qt Core headers are those in the folder of that module; the standard library has no capitals, folders or ends.
            if [[ $header == Q* || $header == q* ]] && [ -e "$qt_headers/QtCore/$header" ]; then continue; fi
            if [[ $header =~ ^[a-z_0-9]+$ ]]; then continue; fi
            echo "$line"
        done)
    report "VellumlineCore may link Qt6::Core only" < <(
        grep -nHoE '\b(Qt6|QCoro|PkgConfig|OpenSSL|tl)::[A-Za-z-]+|\bVellumline(Application|Adapters)\b' VellumlineCore/CMakeLists.txt |
            grep -v ':Qt6::Core$')
    report "VellumlineCore may not ask a clock, a random file or the network for itself" < <(
        code_matching '\b(QNetwork\w+|QDBus\w+|QGuiApplication|QTimer)\b' "${core[@]}")

    # The application, the views and the ports: no adapter and nothing that only an adapter needs.
    report "only Platform/X11, Platform/Linux and the entry may include this" < <(
        code_matching '^\s*#\s*include\s*[<"](X11/|xcb/|xkbcommon/|atspi/|dbind/|libsecret/|glib|gio/|QtDBus|QDBus|QCoroDBus|QX11|private/)' "${application[@]}"
        code_matching '^\s*#\s*include\s*[<"](\.\./|Vellumline/)?(Platform/)?(X11|Linux)/' "${application[@]}")
    report "the X11 adapters may not include the entry or a view" < <(
        code_matching '^\s*#\s*include\s*"Vellumline/(VellumlineApp|AppModel|StatusMenu|MenuContent|SettingsView|InfoView|OnboardingWindow|PromptPanel)\.h"' "${adapters[@]}")
    report "the service may not include the application" < <(
        code_matching '^\s*#\s*include\s*[<"](\.\./)?Vellumline/' "${service[@]}")

    # The main thread never waits.
    report "no nested event loop" < <(
        code_matching '\b(QEventLoop|processEvents|g_main_loop_run)\b|\bg_main_context_iteration\s*\([^,]*,(?!\s*FALSE)' "${every[@]}"
        code_matching '\bexec\s*\(' "${core[@]}" "${application[@]}" "${adapters[@]}"
        code_matching '\bexec\s*\(' "${entry[@]}" | grep -vE '\b(QCoreApplication|QGuiApplication|QApplication|application)(::|\.)exec\(\)')
    report "no blocking wait" < <(
        code_matching '\bwaitFor(Finished|ReadyRead|BytesWritten|Connected|Disconnected|Started|Done)\b|\bQCoro::waitFor\b' "${every[@]}"
        code_matching '\b(QThread::[mu]?sleep|usleep|nanosleep|sleep_for|sleep_until)\b' "${every[@]}")
    report "no blocking bus or keyring call" < <(
        code_matching '\bQDBus::(Block|BlockWithGui)\b|(\.|->)\s*call\s*\(|\bQDBusInterface\b|\bisServiceRegistered\b' "${every[@]}"
        code_matching '\bsecret_\w+_sync\b' "${every[@]}")
    report "no capturing coroutine lambda" < <(capturing_coroutine_lambdas "${every[@]}")
    [ "$violations" = 0 ]
}

self_test() {
    local copy failures=0 count=0
    copy=$(mktemp -d)
    # shellcheck disable=SC2064  # the name is wanted as it is now
    trap "rm -rf '$copy'" EXIT
    # A few files are enough for the rules, and quickly read fifty times.
    (cd "$root" && tar cf - VellumlineCore/*.txt Vellumline/*.txt Vellumline/main.cpp Vellumline/VellumlineApp.cpp \
        Vellumline/Platform/X11/*.h Vellumline/Platform/Linux/*.h VellumlineService/*.cpp) | tar xf - -C "$copy"
    # PATH | LINE | words of the rule. A "+" before the path adds the line to a file that is there.
    local plants=(
        'VellumlineCore/Planted.h|#include <QImage>|VellumlineCore may include'
        'VellumlineCore/Planted.h|#include <QNetworkReply>|VellumlineCore may include'
        'VellumlineCore/Planted.h|#include <QDBusMessage>|VellumlineCore may include'
        'VellumlineCore/Planted.h|#include "Vellumline/API.h"|VellumlineCore may include'
        'VellumlineCore/Planted.h|#include <xcb/xcb.h>|VellumlineCore may include'
        '+VellumlineCore/CMakeLists.txt|target_link_libraries(VellumlineCore PUBLIC Qt6::Gui)|VellumlineCore may link'
        'Vellumline/Planted.cpp|#include <X11/Xlib.h>|only Platform/X11'
        'Vellumline/Planted.cpp|#include <xcb/xfixes.h>|only Platform/X11'
        'Vellumline/Planted.cpp|#include <xkbcommon/xkbcommon.h>|only Platform/X11'
        'Vellumline/Planted.cpp|#include <atspi/atspi.h>|only Platform/X11'
        'Vellumline/Planted.cpp|#include <libsecret/secret.h>|only Platform/X11'
        'Vellumline/Planted.cpp|#include <QDBusConnection>|only Platform/X11'
        'Vellumline/Planted.cpp|  #  include <QtDBus/QDBusMessage>|only Platform/X11'
        'Vellumline/Planted.cpp|#include "Vellumline/Platform/X11/X11Connection.h"|only Platform/X11'
        'Vellumline/Planted.cpp|#include "Platform/Linux/Planted.h"|only Platform/X11'
        'Vellumline/Platform/Planted.h|#include <xcb/xcb.h>|only Platform/X11'
        'Vellumline/Platform/X11/Planted.cpp|#include "Vellumline/AppModel.h"|the X11 adapters'
        'VellumlineService/Planted.cpp|#include "Vellumline/API.h"|the service'
        'Vellumline/Planted.cpp|void planted() { QEventLoop loop; }|no nested event loop'
        'Vellumline/Planted.cpp|void planted() { QCoreApplication::processEvents(); }|no nested event loop'
        'Vellumline/Platform/Linux/Planted.cpp|void planted() { g_main_context_iteration(nullptr, TRUE); }|no nested event loop'
        'Vellumline/Planted.cpp|void planted(QDialog& dialog) { dialog.exec(); }|no nested event loop'
        'Vellumline/VellumlineApp.cpp|void planted(QMenu& menu) { menu.exec(QPoint()); }|no nested event loop'
        'Vellumline/Planted.cpp|void planted(QProcess& process) { process.waitForFinished(); }|no blocking wait'
        'Vellumline/Planted.cpp|void planted(QIODevice* device) { device->waitForReadyRead(100); }|no blocking wait'
        'Vellumline/Planted.cpp|void planted() { QThread::msleep(5); }|no blocking wait'
        'Vellumline/Platform/Linux/Planted.cpp|void planted() { std::this_thread::sleep_for(pause); }|no blocking wait'
        'Vellumline/Platform/Linux/Planted.cpp|auto planted = bus.call(message, QDBus::Block, 100);|no blocking bus'
        'Vellumline/Platform/Linux/Planted.cpp|auto planted = connection->call(message);|no blocking bus'
        'Vellumline/Platform/Linux/Planted.cpp|QDBusInterface planted(service, path);|no blocking bus'
        'Vellumline/Platform/Linux/Planted.cpp|auto planted = secret_password_lookup_sync(schema);|no blocking bus'
        'Vellumline/Planted.cpp|auto planted = [this](int a) -> QCoro::Task<> { co_return; };|no capturing coroutine'
        'Vellumline/Planted.cpp|auto planted = [&] { if (x) { auto y = co_await z(); use(y); } };|no capturing coroutine'
        'Vellumline/Planted.cpp|auto planted = [this] { later([value] { co_await z(value); }); };|no capturing coroutine'
    )
    # What looks like a violation and is none.
    local innocents=(
        'VellumlineCore/Planted.h|#include <QString>'
        'VellumlineCore/Planted.h|#include <cmath>'
        'Vellumline/Planted.cpp|// A QEventLoop here would stop the world; dialog.exec() too.'
        'Vellumline/Planted.cpp|/* QThread::sleep */ const char* planted = "QDBusInterface";'
        'Vellumline/Planted.cpp|auto planted = [](int a) -> QCoro::Task<> { co_return; };'
        'Vellumline/Planted.cpp|auto planted = [this] { later([](Model* model) -> QCoro::Task<> { co_await model->z(); }(this)); };'
        'Vellumline/Platform/Linux/Planted.cpp|auto planted = bus.asyncCall(message);'
        'Vellumline/Platform/X11/Planted.cpp|#include <xcb/xcb.h>'
        'Vellumline/Platform/Linux/Planted.cpp|void planted() { g_main_context_iteration(nullptr, FALSE); }'
        'Vellumline/main.cpp|int planted() { return QApplication::exec(); }'
    )
    local plant path text rule output line saved
    for plant in "${plants[@]}" "${innocents[@]/%/|}"; do
        IFS='|' read -r path text rule _ <<<"$plant"
        count=$((count + 1))
        path=${path#+}
        saved=$copy/saved
        mkdir -p "$(dirname "$copy/$path")"
        rm -f "$saved"
        if [ -e "$copy/$path" ]; then cp "$copy/$path" "$saved"; fi
        printf '%s\n' "$text" >>"$copy/$path"
        line=$(wc -l <"$copy/$path")
        output=$("${BASH_SOURCE[0]}" "$copy" 2>&1) && status=0 || status=$?
        if [ -n "$rule" ]; then
            if [ "$status" = 0 ] || ! grep -qF "$path:$line: $rule" <<<"$output"; then
                echo "not found: \"$text\" in $path should break the rule \"$rule…\""
                failures=$((failures + 1))
            fi
        elif grep -qF "$path:$line: " <<<"$output"; then
            echo "wrongly found: \"$text\" in $path: $(grep -F "$path:$line: " <<<"$output")"
            failures=$((failures + 1))
        fi
        if [ -e "$saved" ]; then mv "$saved" "$copy/$path"; else rm -f "$copy/$path"; fi
    done
    echo "$((count - failures)) of $count planted lines were judged rightly"
    [ "$failures" = 0 ]
}

case "${1:-}" in
--self-test) self_test ;;
*)
    if check "${1:-$root}"; then
        echo "architecture: no violations"
    else
        echo "architecture: $violations violations"
        exit 1
    fi
    ;;
esac
