#!/usr/bin/env python3
"""Prints the bill of materials of Debian packages as SPDX 2.3 in JSON: each package with its checksum, the Debian packages
that it needs, and the data that is built into it.

  make-sbom.py --date YYYY-MM-DD PACKAGE.deb…
"""
import argparse
import hashlib
import json
import os
import re
import subprocess

BUILT_IN = {
    "vellumline-service": [
        ("vellumline-language-model", "VellumlineService/Correction/NOTICE names the texts that it was made from"),
        ("vellumline-inflections", "VellumlineService/Correction/agid-README.txt has their terms"),
    ],
}


def field(package, name):
    return subprocess.run(["dpkg-deb", "-f", package, name], capture_output=True, text=True, check=True).stdout.strip()


def spdx_id(name):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--date", required=True)
    parser.add_argument("packages", nargs="+")
    options = parser.parse_args()
    packages, relations, digest = {}, [], hashlib.sha256()
    for path in sorted(options.packages):
        name, version = field(path, "Package"), field(path, "Version")
        with open(path, "rb") as file:
            checksum = hashlib.sha256(file.read()).hexdigest()
        digest.update(checksum.encode())
        packages[name] = {"name": name, "SPDXID": spdx_id(name), "versionInfo": version,
                          "packageFileName": os.path.basename(path), "downloadLocation": "NOASSERTION",
                          "filesAnalyzed": False, "licenseConcluded": "Apache-2.0", "licenseDeclared": "Apache-2.0",
                          "copyrightText": "Copyright the Vellumline contributors", "supplier": "Organization: Kelthorne",
                          "checksums": [{"algorithm": "SHA256", "checksumValue": checksum}],
                          "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                            "referenceLocator": f"pkg:deb/{name}@{version}?arch={field(path, 'Architecture')}"}]}
        relations.append(("SPDXRef-DOCUMENT", "DESCRIBES", spdx_id(name)))
        for part, comment in BUILT_IN.get(name, []):
            packages[part] = {"name": part, "SPDXID": spdx_id(part), "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
                              "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION",
                              "copyrightText": "NOASSERTION", "comment": comment}
            relations.append((spdx_id(name), "CONTAINS", spdx_id(part)))
        for clause in filter(None, field(path, "Depends").split(",")):
            needed, _, bound = clause.split("|")[0].strip().partition(" ")
            packages.setdefault(needed, {"name": needed, "SPDXID": spdx_id(needed), "downloadLocation": "NOASSERTION",
                                         "versionInfo": bound.strip("()") or "any", "filesAnalyzed": False,
                                         "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION",
                                         "copyrightText": "NOASSERTION", "supplier": "Organization: Debian"})
            relations.append((spdx_id(name), "DEPENDS_ON", spdx_id(needed)))
    print(json.dumps({"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": "vellumline",
                      "documentNamespace": "https://vellumline.kelthorne.com/spdx/" + digest.hexdigest(),
                      "creationInfo": {"created": options.date + "T00:00:00Z", "creators": ["Tool: make-sbom.py"]},
                      "packages": [packages[name] for name in sorted(packages)],
                      "relationships": [dict(zip(("spdxElementId", "relationshipType", "relatedSpdxElement"), each))
                                        for each in relations]}, indent=2))


if __name__ == "__main__":
    main()
