#!/usr/bin/env bash
# The systemd units under a real user manager (systemd --user) with a control group, /run and loopback address of its own: the socket
# listens and nothing runs, the first connection starts the service, its sandbox is in force, it comes back when it is killed and ends
# when it is told to. Nothing of the machine's own systemd is touched, and none needs to run. Exit status 77: it cannot be tried here.
#
#   check-units.sh BUILD            the units of a build
#   check-units.sh --root FOLDER    in a file system of its own, with the units that are installed there (scripts/check-packages.sh)
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cannot() { echo "check-units.sh: $1: not tried"; exit 77; }
[ $# -gt 0 ] || { sed -n '2,8s/^# \{0,1\}//p' "$0" >&2; exit 64; }
[ "$(id -u)" = 0 ] || cannot "only root may give a user manager its control group"
# What has to be there is in the second one; on the machine it is the first one.
other=/
[ "$1" != --root ] || other=$(realpath "$2")
[ -x "$other/lib/systemd/systemd" ] || cannot "systemd is not installed"
[ -x "$other/usr/bin/python3" ] || cannot "python3 is not installed"
hierarchy=$(findmnt -n -o TARGET -t cgroup2 | head -1)
[ -n "$hierarchy" ] || cannot "there are no control groups of version 2"

folder=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-units.XXXXXX")
group=$hierarchy$(sed -n 's/^0:://p' /proc/self/cgroup)/${folder##*/}
inside=
cleanup() {
    for _ in $(seq 50); do
        [ -d "$group" ] || break
        find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || sleep 0.1
    done
    rm -rf "$folder" ${inside:+"$other/$inside"}
}
trap cleanup EXIT
chmod 755 "$folder"
mkdir "$group" 2>/dev/null || cannot "no control group can be made"

if [ "$1" = --root ]; then
    inside=/opt/${folder##*/}
    mkdir -p "$other$inside"
    cp "$root/scripts/check-units.py" "$other$inside"
    units=
else
    inside=
    build=$(realpath "$1")
    prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
    DESTDIR=$folder/tree cmake --install "$build" >/dev/null
    cp "$root/scripts/check-units.py" "$folder"
    mkdir "$folder/units"
    cp "$folder/tree$prefix/lib/systemd/user/"* "$folder/units"
    sed -i -E "s#^Exec(Start|Stop)=$prefix#Exec\1=$folder/tree$prefix#" "$folder/units"/*
    units=/run/user/65534/systemd/user:$folder/units:/usr/lib/systemd/user
fi
code=${inside:-$folder}

export other code units group
# shellcheck disable=SC2016  # expanded by the inner shell
exec_inside='
set -e
echo 0 >"$group/cgroup.procs"
exec unshare --cgroup --mount --pid --fork --kill-child --net --ipc bash -c '\''
set -e
mount -t proc proc "$other/proc"
mount -t cgroup2 cgroup2 "$other/sys/fs/cgroup"
mount -t tmpfs -o mode=755 tmpfs "$other/run"
# So that programs take the machine for one that systemd started.
mkdir -p "$other/run/systemd/system" "$other/run/user/65534" "$other/run/home"
chown nobody:nogroup "$other/run/user/65534" "$other/run/home"
chmod 700 "$other/run/user/65534" "$other/run/home"
ip link set lo up
mkdir "$other/sys/fs/cgroup/manager"
chown -R nobody:nogroup "$other/sys/fs/cgroup"
echo 0 >"$other/sys/fs/cgroup/manager/cgroup.procs"
cd "$other"
exec chroot "$other" setpriv --reuid=nobody --regid=nogroup --clear-groups env -i HOME=/run/home PATH=/usr/bin:/bin LANG=C.UTF-8 \
    XDG_RUNTIME_DIR=/run/user/65534 ${units:+SYSTEMD_UNIT_PATH="$units"} /usr/bin/python3 "$code/check-units.py"
'\'
bash -c "$exec_inside"
