#!/usr/bin/env bash
# Makes the folder of a release from built packages: the packages, their checksums and the signature of these, a bill of
# materials (SPDX), and the signed update feed.
#
#   release.sh --key KEY --url URL [--notes FILE] [--packages FOLDER] OUTPUT
#
# KEY: the private key of scripts/sign-appcast.py. URL: where the folder will be, with HTTPS. The notes are plain text.
# To verify: openssl pkeyutl -verify -pubin -inkey PUBLIC -rawin -in SHA256SUMS -sigfile SHA256SUMS.sig && sha256sum -c SHA256SUMS
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
key='' url='' notes='' packages=$root/build/packages output=''
while [ $# -gt 0 ]; do
    case "$1" in
    --key) key=$2; shift 2 ;;
    --url) url=${2%/}; shift 2 ;;
    --notes) notes=$2; shift 2 ;;
    --packages) packages=$2; shift 2 ;;
    -*) echo "release.sh: what is $1?" >&2; exit 64 ;;
    *) output=$1; shift ;;
    esac
done
if [ -z "$key" ] || [ -z "$url" ] || [ -z "$output" ]; then
    sed -n '5p' "${BASH_SOURCE[0]}" >&2
    exit 64
fi
[ ! -e "$output" ] || { echo "release.sh: $output exists already" >&2; exit 73; }
version=$(sed -nE 's/^project\(Vellumline VERSION ([0-9.]+) .*/\1/p' "$root/CMakeLists.txt")
date=$(sed -nE 's/^set\(VELLUMLINE_RELEASE_DATE ([0-9-]+)\)/\1/p' "$root/CMakeLists.txt")

# Beside its place until it is whole.
made=$output.new
rm -rf "$made"
mkdir -p "$made"
trap 'rm -rf "$made"' EXIT
cp "$packages/vellumline_${version}_"*.deb "$packages/vellumline-service_${version}_"*.deb "$made"
"$root/scripts/make-sbom.py" --date "$date" "$made"/*.deb >"$made/vellumline-$version.spdx.json"
program=$(basename "$made"/vellumline_*.deb)
signed=$("$root/scripts/sign-appcast.py" --key "$key" --file "$made/$program")
python3 - "$version" "$date" "$url" "$program" "$signed" "$notes" >"$made/appcast.xml" <<'END'
import sys
from datetime import datetime, timezone
from email.utils import format_datetime
from xml.sax.saxutils import escape, quoteattr

version, date, url, program, signed, notes = sys.argv[1:]
day = format_datetime(datetime.fromisoformat(date).replace(tzinfo=timezone.utc))
text = open(notes, encoding="utf-8").read().strip() if notes else "Vellumline " + version
print(f"""<?xml version="1.0" encoding="UTF-8"?>
<rss version="2.0" xmlns:vellumline="https://vellumline.kelthorne.com/xml/appcast">
  <channel>
    <title>Vellumline</title>
    <item>
      <title>Vellumline {version}</title>
      <link>{escape(url)}/</link>
      <pubDate>{day}</pubDate>
      <description>{escape(text)}</description>
      <enclosure url={quoteattr(url + "/" + program)} type="application/vnd.debian.binary-package"
                 vellumline:version="{version}" {signed}/>
    </item>
  </channel>
</rss>""")
END
"$root/scripts/sign-appcast.py" --key "$key" "$made/appcast.xml"
(cd "$made" && sha256sum -- *.deb *.json appcast.xml appcast.xml.sig >SHA256SUMS)
openssl pkeyutl -sign -inkey "$key" -rawin -in "$made/SHA256SUMS" -out "$made/SHA256SUMS.sig"
mv "$made" "$output"
trap - EXIT
ls -l "$output"
