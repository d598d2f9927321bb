#!/usr/bin/env bash
# Builds the Debian packages vellumline and vellumline-service from the tracked files as they are now.
#
#   package.sh [--revision COMMIT] [--version VERSION] [OUTPUT] [-DNAME=VALUE…]
#       --revision   from the files of that commit instead
#       --version    call it so, whatever the files say; check-packages.sh makes the version before this one so
#       OUTPUT       build/packages unless given
#       -D…          build settings (docs/settings.md)
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
output=$root/build/packages revision='' version=''
while [ $# -gt 1 ]; do
    case "$1" in
    --revision) revision=$2 ;;
    --version) version=$2 ;;
    *) break ;;
    esac
    shift 2
done
[[ $version =~ ^[0-9.]*$ ]] || { echo "package.sh: \"$version\" is not a version" >&2; exit 64; }
if [ $# -gt 0 ] && [[ $1 != -* ]]; then
    output=$(realpath -m "$1")
    shift
fi
for option in "$@"; do
    [[ $option =~ ^-DVELLUMLINE_[A-Z_]+=[^[:space:]]*$ ]] || { echo "package.sh: \"$option\" is not a build setting" >&2; exit 64; }
done
"$root/scripts/packages.sh" build package

# Where it is built must not matter; that it does not is what scripts/check-reproducible.sh shows.
work=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
tree=$work/vellumline
mkdir "$tree"
cd "$root"
if [ -n "$revision" ]; then
    git archive "$revision" | tar -x -C "$tree"
else
    git ls-files -z | while IFS= read -r -d '' file; do
        if [ -e "$file" ]; then printf '%s\0' "$file"; fi
    done | tar -c --null -T - | tar -x -C "$tree"
fi
if [ -n "$version" ]; then sed -i -E "s/^(project\(Vellumline VERSION )[0-9.]+ /\1$version /" "$tree/CMakeLists.txt"; fi
version=$(sed -nE 's/^project\(Vellumline VERSION ([0-9.]+) .*/\1/p' "$tree/CMakeLists.txt")
date=$(sed -nE 's/^set\(VELLUMLINE_RELEASE_DATE ([0-9-]+)\)/\1/p' "$tree/CMakeLists.txt")
mv "$tree/packaging/debian" "$tree/debian"
sed -e "s/@VERSION@/$version/" -e "s/@DATE@/$(LC_ALL=C date -u -R -d "$date")/" "$tree/debian/changelog.in" >"$tree/debian/changelog"
rm "$tree/debian/changelog.in"

cd "$tree"
# The build's own environment counts nowhere: neither its language nor its time zone nor its umask.
umask 022
export LC_ALL=C.UTF-8 TZ=UTC
cores=$(nproc)
export DEB_BUILD_OPTIONS="noautodbgsym parallel=$cores" VELLUMLINE_BUILD_OPTIONS="$*"
# debhelper gives the build an empty home, and with it an empty compiler cache.
if command -v ccache >/dev/null; then
    CCACHE_DIR=$(ccache --get-config cache_dir)
    export CCACHE_DIR
fi
dpkg-buildpackage --build=binary --no-sign --no-check-builddeps
mkdir -p "$output"
rm -f "$output"/vellumline*.deb
mv "$work"/*.deb "$output"
echo
sha256sum "$output"/*.deb
