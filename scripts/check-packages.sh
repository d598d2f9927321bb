#!/usr/bin/env bash
# The packages in a fresh Debian of their own: lintian; an earlier version installed and used by an ordinary user, the packages
# installed over it, used (the demonstration, with the installed programs, and the units), removed and purged, with nothing left behind
# but what is that user's. Needs root, the network for Debian's packages, and some minutes.
#
#   check-packages.sh [--keep] [--before FOLDER] [PACKAGES]
#       PACKAGES    the folder of scripts/package.sh, build/packages unless given
#       --before    that of the earlier version. Unless given, one is made in build/packages-before, called 0.0.1: from the last release's
#                   tag or, while there is none, from the commit that changed the packaging last
#       --keep      the bare Debian and the earlier packages stay in build/ for the next time
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
keep=no before=$root/build/packages-before
while [ $# -gt 0 ]; do
    case "$1" in
    --keep) keep=yes; shift ;;
    --before) before=$(realpath "$2"); shift 2 ;;
    *) break ;;
    esac
done
packages=$(realpath "${1:-$root/build/packages}")
[ "$(id -u)" = 0 ] || { echo "check-packages.sh: a root file system can only be made by root" >&2; exit 69; }
"$root/scripts/packages.sh" package
files=("$packages"/vellumline_*.deb "$packages"/vellumline-service_*.deb)

if ! ls "$before"/vellumline_*.deb >/dev/null 2>&1; then
    echo "== an earlier version"
    revision=$(git -C "$root" describe --tags --abbrev=0 2>/dev/null || git -C "$root" log -1 --format=%H -- packaging/debian)
    "$root/scripts/package.sh" --revision "$revision" --version 0.0.1 "$before" >"$root/build/packages-before.log" 2>&1 ||
        { tail -20 "$root/build/packages-before.log"; exit 1; }
fi

echo "== lintian"
# Exceptions are named in packaging/debian/*.lintian-overrides. For root it needs to be told.
lintian --fail-on error,warning --allow-root "${files[@]}"

base=$root/build/debian-base
if [ ! -e "$base/etc/debian_version" ]; then
    echo "== debootstrap"
    # shellcheck disable=SC2016  # apt's own variable
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | head -1)
    rm -rf "$base.new"
    debootstrap --variant=minbase bookworm "$base.new" "$mirror" >"$root/build/debootstrap.log" 2>&1 || { tail -5 "$root/build/debootstrap.log"; exit 1; }
    mv "$base.new" "$base"
fi
fresh=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-debian.XXXXXX")
cleanup() {
    [ ! -s "$fresh/opt/running" ] || kill "$(head -1 "$fresh/opt/running")" 2>/dev/null || true
    for mounted in dev/shm dev/pts dev sys proc; do
        umount "$fresh/$mounted" 2>/dev/null || true
    done
    if ! mountpoint -q "$fresh/proc" && ! mountpoint -q "$fresh/sys" && ! mountpoint -q "$fresh/dev"; then rm -rf "$fresh"; fi
    [ "$keep" = yes ] || rm -rf "$base" "$root/build/packages-before"
}
trap cleanup EXIT
cp -a "$base/." "$fresh"
mount -t proc proc "$fresh/proc"
# Chromium looks there for the processors and the graphics.
mount -t sysfs -o ro sysfs "$fresh/sys" || true
mount -t tmpfs -o mode=755 tmpfs "$fresh/dev"
for device in null zero full random urandom tty; do
    cp -a "/dev/$device" "$fresh/dev/"
done
mkdir "$fresh/dev/shm" "$fresh/dev/pts"
mount -t tmpfs -o mode=1777 tmpfs "$fresh/dev/shm"
mount -t devpts -o newinstance,ptmxmode=666 devpts "$fresh/dev/pts"
ln -s pts/ptmx "$fresh/dev/ptmx"
ln -sf /proc/self/fd "$fresh/dev/fd"
cp -L /etc/resolv.conf "$fresh/etc/" 2>/dev/null || true
# Debian's installer writes it, debootstrap does not; chromedriver's socket to the browser goes to the name "localhost".
printf '127.0.0.1\tlocalhost\n::1\tlocalhost ip6-localhost ip6-loopback\n' >"$fresh/etc/hosts"
cp -r /etc/apt/sources.list.d /etc/apt/apt.conf.d "$fresh/etc/apt/" 2>/dev/null || true
[ ! -f /etc/apt/sources.list ] || cp /etc/apt/sources.list "$fresh/etc/apt/"
[ ! -d /etc/apt/sources.list.d ] || [ -z "$(ls /etc/apt/sources.list.d)" ] || rm -f "$fresh/etc/apt/sources.list"
# Nothing in there has to outlive a loss of power.
echo force-unsafe-io >"$fresh/etc/dpkg/dpkg.cfg.d/unsafe-io"
# No daemon of a package is started in there.
printf '#!/bin/sh\nexit 101\n' >"$fresh/usr/sbin/policy-rc.d"
chmod +x "$fresh/usr/sbin/policy-rc.d"
inside() { chroot "$fresh" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/opt LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
as_user() { # COMMAND…, in a network of its own, as an ordinary user
    unshare --net sh -c 'ip link set lo up && exec "$@"' sh chroot "$fresh" setpriv --reuid=grace --regid=grace --init-groups \
        env -i PATH=/usr/bin:/bin HOME=/opt/grace USER=grace LANG=C.UTF-8 "$@"
}
apt() { inside apt-get -q -y -o Dpkg::Use-Pty=0 "$@" </dev/null >>"$root/build/check-packages.log" 2>&1 || { tail -20 "$root/build/check-packages.log"; exit 1; }; }
: >"$root/build/check-packages.log"
everything() { (cd "$fresh" && find . -path ./proc -prune -o -path ./sys -prune -o -path ./dev -prune -o -path ./tmp -prune -o -path ./opt -prune -o -path ./var/lib/apt -prune -o \
    -path ./var/lib/dpkg -prune -o -path ./var/cache -prune -o -path ./var/log -prune -o -print | LC_ALL=C sort); }

echo "== the desktop that the packages are tried in"
apt update
mapfile -t demo < <("$root/scripts/packages.sh" --list demo)
# What the packages need is here before, so that what they leave is theirs; they themselves bring only their own files.
mapfile -t needed < <(inside true; for file in "${files[@]}"; do dpkg-deb -f "$file" Depends; done |
    tr ',' '\n' | sed -E 's/\(.*//; s/\|.*//; s/ //g' | grep -vE '^(vellumline.*|)$' | LC_ALL=C sort -u)
apt install --no-install-recommends "${demo[@]}" "${needed[@]}" libglib2.0-bin x11-utils desktop-file-utils man-db
inside useradd --create-home --home-dir /opt/grace --shell /bin/sh grace
everything >"$fresh/opt/before"
mkdir "$fresh/opt/earlier" "$fresh/opt/now" "$fresh/opt/tools"
cp "$before"/vellumline_*.deb "$before"/vellumline-service_*.deb "$fresh/opt/earlier"
cp "${files[@]}" "$fresh/opt/now"
cp "$root/scripts/with-desktop.sh" "$root/scripts/check-upgrade.py" "$fresh/opt/tools"
mapfile -t earlier < <(cd "$fresh" && printf '/%s\n' opt/earlier/*.deb)
mapfile -t names < <(cd "$fresh" && printf '/%s\n' opt/now/*.deb)
version() { inside dpkg-query -W -f "\${Version}" vellumline; }

echo "== an earlier version, used by an ordinary user"
apt install --no-install-recommends "${earlier[@]}"
was=$(version)
as_user /opt/tools/with-desktop.sh /usr/bin/python3 /opt/tools/check-upgrade.py before
# One that runs meanwhile goes on, and ends as it should.
# shellcheck disable=SC2016  # expanded by the inner shell
as_user sh -c 'vellumline-service & echo $!; wait $!' >"$fresh/opt/running" 2>&1 &
waiting=$!
for _ in $(seq 100); do grep -q 'ready on' "$fresh/opt/running" && break; sleep 0.1; done

echo "== installed over it"
said=$(wc -l <"$root/build/check-packages.log")
apt install --no-install-recommends "${names[@]}"
[ "$was" != "$(version)" ] || { echo "both are version $was"; exit 1; }
echo "         $was -> $(version)"
if tail -n +$((said + 1)) "$root/build/check-packages.log" | grep -iE 'conffile|configuration file|downgrad' ||
    [ -n "$(inside dpkg-query -W -f "\${Conffiles}" vellumline vellumline-service)" ]; then
    echo "dpkg has a question about a configuration file"
    exit 1
fi
running=$(head -1 "$fresh/opt/running")
kill -0 "$running" || { echo "the service that was running has ended"; exit 1; }
kill "$running"
wait "$waiting" || { echo "the service that was running did not end well"; exit 1; }
rm "$fresh/opt/running"
as_user /opt/tools/with-desktop.sh /usr/bin/python3 /opt/tools/check-upgrade.py after
inside grep -q com.kelthorne.Vellumline.desktop /usr/share/applications/mimeinfo.cache || { echo "the link handler is not known"; exit 1; }
inside vellumline --version
inside sh -c 'vellumline status; test $? = 69'
[ "$(echo 'i has went to the shop yesterday and buyed three apple.' | inside vellumline-correct)" = 'I went to the shop yesterday and bought three apples.' ]
inside test -L /etc/systemd/user/sockets.target.wants/vellumline-service.socket || { echo "the socket is not enabled"; exit 1; }
inside test ! -e /etc/systemd/user/graphical-session.target.wants/vellumline.service || { echo "the program is enabled as a unit"; exit 1; }

echo "== used"
mkdir "$fresh/opt/tree"
cp -r "$root/demo" "$root/scripts" "$root/packaging" "$fresh/opt/tree/"
mkdir -p "$fresh/opt/tree/installed"/{Vellumline,VellumlineService,demo}
ln -s /usr/bin/vellumline "$fresh/opt/tree/installed/Vellumline/vellumline"
ln -s /usr/bin/vellumline-service /usr/bin/vellumline-correct "$fresh/opt/tree/installed/VellumlineService/"
"$root/scripts/build.sh" release "$root/build/run" -DVELLUMLINE_TESTS=OFF -DVELLUMLINE_BENCHMARKS=OFF -- vellumline-demo-clipboard >/dev/null
cp "$root/build/run/demo/vellumline-demo-clipboard" "$fresh/opt/tree/installed/demo/"
# Installed, the entry and the bus's file are the package's.
printf '#!/bin/sh\nexit 0\n' >"$fresh/opt/tree/scripts/install-desktop-entry.sh"
used=yes
inside /opt/tree/demo/demonstration --build /opt/tree/installed --output /opt/tree/output || used=no
rm -rf "$fresh/opt/tree"

echo "== its units"
"$root/scripts/check-units.sh" --root "$fresh"

echo "== installed again, with the socket disabled by the administrator"
inside systemctl --global disable vellumline-service.socket 2>>"$root/build/check-packages.log"
apt install --no-install-recommends --reinstall "${names[@]}"
inside vellumline --version
inside test ! -e /etc/systemd/user/sockets.target.wants/vellumline-service.socket || { echo "the socket is enabled again"; exit 1; }

echo "== removed and purged"
apt remove vellumline vellumline-service
if inside test -e /usr/bin/vellumline; then
    echo "the program is still there"
    exit 1
fi
apt purge vellumline vellumline-service
for file in .config/vellumline/vellumline.conf .config/vellumline/dictionary.txt .local/share/vellumline-service/service.sqlite; do
    inside test -s "/opt/grace/$file" || { echo "the user's $file is gone"; exit 1; }
done
everything >"$fresh/opt/after"
if difference=$(diff "$fresh/opt/before" "$fresh/opt/after"); then
    echo "nothing is left behind but what is the user's"
else
    grep '^[<>]' <<<"$difference"
    echo "that was left behind or taken away"
    exit 1
fi
# What follows the demonstration is worth knowing whatever came of it.
[ "$used" = yes ] || { echo "the demonstration failed"; exit 1; }
