#!/usr/bin/env bash
# scripts/release.sh makes a release of two packages without content, with a key of its own: the signatures, checksums, bill of
# materials and feed have to fit the packages, and the same packages have to give the same release.
#
#   check-release.sh [--self-test]      --self-test: prove that a release that was changed, or whose parts do not fit, is found
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
for program in dpkg-deb openssl python3; do
    command -v "$program" >/dev/null || { echo "check-release.sh: there is no $program" >&2; exit 69; }
done
folder=$(mktemp -d "${TMPDIR:-/tmp}/vellumline-release.XXXXXX")
trap 'rm -rf "$folder"' EXIT
version=$(sed -nE 's/^project\(Vellumline VERSION ([0-9.]+) .*/\1/p' "$root/CMakeLists.txt")
url=https://example.com/downloads/$version

make_package() { # NAME DEPENDS
    mkdir -p "$folder/$1/DEBIAN" "$folder/packages"
    chmod 755 "$folder/$1" "$folder/$1/DEBIAN"
    printf 'Package: %s\nVersion: %s\nArchitecture: amd64\nMaintainer: Nobody <nobody@example.com>\nDepends: %s\nDescription: nothing\n' \
        "$1" "$version" "$2" >"$folder/$1/DEBIAN/control"
    dpkg-deb --build --root-owner-group "$folder/$1" "$folder/packages/$1_${version}_amd64.deb" >/dev/null
}
release() { "$root/scripts/release.sh" --key "$folder/key.pem" --url "$url/" --notes "$folder/notes" --packages "$folder/packages" "$1" >/dev/null; }

# What someone does who has downloaded the folder and knows the public key.
verify() ( # RELEASE
    cd "$1"
    openssl pkeyutl -verify -pubin -inkey "$folder/public.pem" -rawin -in SHA256SUMS -sigfile SHA256SUMS.sig >/dev/null 2>&1 ||
        { echo "the checksums are not signed"; exit 1; }
    sha256sum --check --strict --quiet SHA256SUMS 2>/dev/null || { echo "a checksum is wrong"; exit 1; }
    fits "$1"
)
fits() { # RELEASE
    diff <(cd "$1" && find . -type f ! -name 'SHA256SUMS*' | LC_ALL=C sort) <(sed 's/^[0-9a-f]*  /.\//' "$1/SHA256SUMS" | LC_ALL=C sort) >/dev/null ||
        { echo "the checksums are of other files"; return 1; }
    python3 - "$1" "$version" "$url" "$folder/public.pem" <<'END'
import base64, collections, hashlib, json, os, subprocess, sys, tempfile
import xml.etree.ElementTree as ElementTree

folder, version, url, key = sys.argv[1:]


def content(name):
    with open(os.path.join(folder, name), "rb") as file:
        return file.read()


def ask(condition, problem):
    if not condition:
        sys.exit(problem)


def signed(name, signature):
    with tempfile.NamedTemporaryFile() as file:
        file.write(base64.b64decode(signature))
        file.flush()
        return subprocess.run(["openssl", "pkeyutl", "-verify", "-pubin", "-inkey", key, "-rawin", "-in", os.path.join(folder, name),
                               "-sigfile", file.name], capture_output=True, check=False).returncode == 0


ask(signed("appcast.xml", content("appcast.xml.sig")), "the feed is not signed")
enclosure, = ElementTree.fromstring(content("appcast.xml")).iter("enclosure")
program = f"vellumline_{version}_amd64.deb"
mark = "{https://vellumline.kelthorne.com/xml/appcast}"
ask(enclosure.get("url") == f"{url}/{program}", "the feed names another address")
ask(enclosure.get("length") == str(len(content(program))), "the feed names another length")
ask(enclosure.get(mark + "version") == version, "the feed names another version")
ask(signed(program, enclosure.get(mark + "signature")), "the package is not signed in the feed")
ask("<three> & more" in ElementTree.fromstring(content("appcast.xml")).findtext("channel/item/description"), "the notes are not in the feed")

bill = json.loads(content(f"vellumline-{version}.spdx.json"))
ask(bill["spdxVersion"] == "SPDX-2.3" and bill["SPDXID"] == "SPDXRef-DOCUMENT", "the bill of materials is not SPDX 2.3")
ids = collections.Counter(package["SPDXID"] for package in bill["packages"])
ask(max(ids.values()) == 1, "two entries of the bill of materials have the same id")
related = {each[end] for each in bill["relationships"] for end in ("spdxElementId", "relatedSpdxElement")}
ask(related == set(ids) | {"SPDXRef-DOCUMENT"}, "the relations and the entries of the bill of materials do not fit")
files = {package["packageFileName"]: package for package in bill["packages"] if "packageFileName" in package}
ask(set(files) == {name for name in os.listdir(folder) if name.endswith(".deb")}, "the bill of materials is of other packages")
for name, package in files.items():
    ask(package["checksums"] == [{"algorithm": "SHA256", "checksumValue": hashlib.sha256(content(name)).hexdigest()}],
        "a checksum in the bill of materials is wrong")
needed = {each["relatedSpdxElement"] for each in bill["relationships"] if each["relationshipType"] == "DEPENDS_ON"}
ask(needed == {"SPDXRef-libc6", "SPDXRef-libstdc--6", "SPDXRef-hunspell-en-us"}, f"the bill of materials needs {sorted(needed)}")
END
}

printf 'One, two\n<three> & more\n' >"$folder/notes"
"$root/scripts/sign-appcast.py" --new-key "$folder/key.pem" >/dev/null
openssl pkey -in "$folder/key.pem" -pubout -out "$folder/public.pem"
make_package vellumline 'libc6 (>= 2.34), libstdc++6 (>= 12)'
make_package vellumline-service 'libc6 (>= 2.34), hunspell-en-us | hunspell-dictionary'
release "$folder/first"
verify "$folder/first"

if [ "${1:-}" = --self-test ]; then
    expect() { # PROBLEM COMMAND…
        local problem=$1 found
        shift
        if found=$("$@" 2>&1); then
            echo "not found: $problem"
            exit 1
        fi
        grep -qF -- "$problem" <<<"$found" || { echo "\"$problem\" was expected, found was: $found"; exit 1; }
    }
    changed() { # FILE: a release in which one byte more is in the file
        rm -rf "$folder/changed"
        cp -r "$folder/first" "$folder/changed"
        printf ' ' >>"$folder/changed/$1"
    }
    changed SHA256SUMS
    expect "the checksums are not signed" verify "$folder/changed"
    changed "vellumline-service_${version}_amd64.deb"
    expect "a checksum is wrong" verify "$folder/changed"
    expect "a checksum in the bill of materials is wrong" fits "$folder/changed"
    changed "vellumline_${version}_amd64.deb"
    expect "the feed names another length" fits "$folder/changed"
    changed appcast.xml
    expect "the feed is not signed" fits "$folder/changed"
    changed another-file
    expect "the checksums are of other files" verify "$folder/changed"
    expect "exists already" release "$folder/first"
    url=http://example.com
    expect "is not an https one" release "$folder/second"
    rm "$folder/packages/vellumline-service_${version}_amd64.deb"
    expect "No such file" release "$folder/second"
    if [ -e "$folder/second" ] || [ -e "$folder/second.new" ]; then
        echo "half a release was left"
        exit 1
    fi
    echo "release: whatever was changed in it is found"
    exit 0
fi
release "$folder/second"
# An Ed25519 signature has no chance in it.
diff -r "$folder/first" "$folder/second" || { echo "the same packages gave another release"; exit 1; }
echo "release: signatures, checksums, bill of materials and feed fit the packages"
