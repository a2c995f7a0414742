"""sbom.py <prefix>: the installed SBOM names the libcoap that is inside the library, with each patch."""

import hashlib
import json
import re
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
PATCHES = TOP / "third_party/libcoap/patches"


def relations(sbom, kind):
    return {(relation["spdxElementId"], relation["relatedSpdxElement"])
            for relation in sbom["relationships"] if relation["relationshipType"] == kind}


def sums_of(sbom):
    return {file["fileName"].split("/")[-1]: {sum_["algorithm"]: sum_["checksumValue"]
                                              for sum_ in file["checksums"]} for file in sbom["files"]}


def patches():
    found = {}
    for path in PATCHES.glob("*.patch"):
        data = path.read_bytes()
        found[path.name] = {"SHA1": hashlib.sha1(data).hexdigest(),
                            "SHA256": hashlib.sha256(data).hexdigest()}
    return found


def problems(prefix):
    sbom = json.loads(next(prefix.glob("share/doc/*/coap_svc_rpc.spdx.json")).read_text(encoding="utf-8"))
    source = (TOP / "third_party/libcoap/source.sh").read_text(encoding="utf-8")
    library = next(prefix.glob("lib*/**/libcoap_svc_rpc.so.*.*")).read_bytes()
    libcoap = next(package for package in sbom["packages"] if package["name"] == "libcoap")
    if f"LIBCOAP_VERSION={libcoap['versionInfo']}\n" not in source:
        yield f"libcoap is not {libcoap['versionInfo']}"
    if f"libcoap {libcoap['versionInfo']}".encode() not in library and \
            libcoap["versionInfo"].encode() not in library:
        yield "the library does not contain this version"
    for fix in re.findall(r"CVE-\d+-\d+", source):
        if fix not in libcoap["sourceInfo"]:
            yield f"{fix} is missing"
    if sums_of(sbom) != patches():
        yield "files are not the patches"
    if len(relations(sbom, "PATCH_FOR")) != len(patches()):
        yield "not every patch is one for libcoap"
    if ("SPDXRef-library", "SPDXRef-libcoap") not in relations(sbom, "CONTAINS"):
        yield "the library does not contain libcoap"
    for name in ("jansson", "libcbor", "libxxhash"):
        if not any(package["name"] == name and package["versionInfo"] for package in sbom["packages"]):
            yield f"{name} is missing"


if __name__ == "__main__":
    FOUND = list(problems(Path(sys.argv[1]).resolve()))
    print("\n".join(FOUND))
    sys.exit(1 if FOUND else 0)
