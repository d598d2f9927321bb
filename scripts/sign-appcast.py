#!/usr/bin/env python3
"""Makes the key of the update feed, and signs the feed and the files that it names.

  sign-appcast.py --new-key KEY            makes a private key, and prints the VELLUMLINE_UPDATE_KEY of a build
  sign-appcast.py --key KEY                prints the VELLUMLINE_UPDATE_KEY of that private key
  sign-appcast.py --key KEY --file FILE    prints the attributes of the file's enclosure on the feed
  sign-appcast.py --key KEY FEED           signs the feed: writes FEED.sig, to be put beside it

The key is an Ed25519 one in a PEM file that only its owner can read. A feed is signed only when the program would read
it; its versions are printed. Needs the "openssl" program, 3.0 or newer.
"""
import argparse
import base64
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

NAMESPACE = "{https://vellumline.kelthorne.com/xml/appcast}"
LARGEST_FEED = 1 << 20
MOST_ITEMS = 200
VERSION = re.compile(r"[0-9]{1,9}(\.[0-9]{1,9}){0,7}(-[0-9A-Za-z]+([.-][0-9A-Za-z]+)*)?")
LINK = re.compile(r"(https://[^/@\s]+|http://(localhost|127(\.\d+){3}|\[::1\])(:\d+)?)(/\S*)?")
LONGEST_LINK = 2048


def openssl(*arguments):
    answer = subprocess.run(["openssl", *arguments], stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if answer.returncode != 0:
        sys.exit("sign-appcast.py: openssl " + arguments[0] + ": " + answer.stderr.decode(errors="replace").partition("\n")[0])
    return answer.stdout


def new_key(path):
    # Never over an old key: every program out there trusts only that one.
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
    with os.fdopen(descriptor, "wb") as file:
        file.write(openssl("genpkey", "-algorithm", "ed25519"))


def public_key(key):
    # RFC 8410 section 4: the key is the last 32 bytes of its DER form.
    der = openssl("pkey", "-in", key, "-pubout", "-outform", "DER")
    if len(der) != 44:
        sys.exit(f"sign-appcast.py: {key} is not an Ed25519 key")
    return base64.b64encode(der[-32:]).decode()


def signature(key, path):
    with tempfile.NamedTemporaryFile() as signed:
        openssl("pkeyutl", "-sign", "-rawin", "-inkey", key, "-in", path, "-out", signed.name)
        openssl("pkeyutl", "-verify", "-rawin", "-inkey", key, "-in", path, "-sigfile", signed.name)
        return base64.b64encode(signed.read()).decode()


def is_signature(text):
    try:
        return len(base64.b64decode(text, validate=True)) == 64
    except ValueError:
        return False


def problems_of(item):
    for link in item.findall("link"):
        if not LINK.fullmatch((link.text or "").strip()) or len(link.text) > LONGEST_LINK:
            yield "its link is not an https address"
    enclosures = item.findall("enclosure")
    if len(enclosures) != 1:
        yield f"it has {len(enclosures)} enclosures instead of one"
        return
    enclosure = enclosures[0].attrib
    if not VERSION.fullmatch(enclosure.get(NAMESPACE + "version", "")):
        yield "its version is not one, such as 1.4.0 or 1.4.0-beta.2"
    if not LINK.fullmatch(enclosure.get("url", "")) or len(enclosure["url"]) > LONGEST_LINK:
        yield "the address of its enclosure is not an https one"
    if not re.fullmatch(r"[1-9][0-9]{0,11}", enclosure.get("length", "")):
        yield "the length of its enclosure is not the number of its bytes"
    if not enclosure.get("type"):
        yield "its enclosure has no type"
    if not is_signature(enclosure.get(NAMESPACE + "signature", "")):
        yield "its enclosure has no signature"


def check(feed):
    with open(feed, "rb") as file:
        document = file.read()
    if len(document) > LARGEST_FEED:
        sys.exit(f"sign-appcast.py: {feed} is larger than {LARGEST_FEED} bytes")
    if b"<!DOCTYPE" in document:
        sys.exit(f"sign-appcast.py: {feed} has a document type")
    try:
        root = ElementTree.fromstring(document)
    except ElementTree.ParseError as error:
        sys.exit(f"sign-appcast.py: {feed} is not XML: {error}")
    if root.tag != "rss" or root.get("version") != "2.0" or len(root.findall("channel")) != 1:
        sys.exit(f"sign-appcast.py: {feed} is not RSS 2.0 with one channel")
    items = root.findall("channel/item")
    if len(items) > MOST_ITEMS:
        sys.exit(f"sign-appcast.py: {feed} has more than {MOST_ITEMS} items")
    failures = [f"item {number}: {problem}" for number, item in enumerate(items, 1) for problem in problems_of(item)]
    if failures:
        sys.exit("\n".join(f"sign-appcast.py: {feed}: {failure}" for failure in failures))
    return [item.find("enclosure").get(NAMESPACE + "version") for item in items]


def sign_feed(key, feed):
    versions = check(feed)
    with open(feed + ".sig.new", "w", encoding="ascii") as file:
        file.write(signature(key, feed) + "\n")
    os.replace(feed + ".sig.new", feed + ".sig")
    print(f"{feed}.sig: signed, with the versions {', '.join(versions) or '(none)'}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    keys = parser.add_mutually_exclusive_group(required=True)
    keys.add_argument("--new-key", metavar="KEY")
    keys.add_argument("--key", metavar="KEY")
    parser.add_argument("--file", metavar="FILE")
    parser.add_argument("feed", nargs="?", metavar="FEED")
    options = parser.parse_args()
    if options.new_key and (options.file or options.feed):
        parser.error("a new key goes into builds before it signs anything")
    try:
        if options.new_key:
            new_key(options.new_key)
        key = options.new_key or options.key
        if options.file:
            size = os.path.getsize(options.file)
            print(f'length="{size}" vellumline:signature="{signature(key, options.file)}"')
        if options.feed:
            sign_feed(key, options.feed)
        if not options.file and not options.feed:
            print(public_key(key))
    except OSError as error:
        sys.exit(f"sign-appcast.py: {error.filename}: {error.strerror}")


if __name__ == "__main__":
    main()
