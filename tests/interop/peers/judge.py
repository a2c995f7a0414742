#!/usr/bin/env python3
"""Compares what was seen with what is expected of the cases.

  judge.py <results folder> <peer>      prints what differs; status 1 when anything does

A results folder has for each peer <peer>.<list> for the lists of cases that it ran, with a line
"<case> TAB <outcome>" for each case, and <peer>.capture.
"""

import os
import sys

import outcome

LISTS = ("server", "client", "direct", "calls")


def read(folder, name):
    path = os.path.join(folder, name)
    if not os.path.exists(path):
        return None
    with open(path, encoding="utf-8") as file:
        return dict(line.rstrip("\n").split("\t", 1) for line in file if "\t" in line)


def expected(case, peer):
    if peer in case.get("cannot", {}):
        return "cannot: " + case["cannot"][peer]
    return case.get("expectOf", {}).get(peer, case["expect"]).replace("PEER", peer)


def faults(folder, peer, quick):
    for name in LISTS:
        seen = read(folder, f"{peer}.{name}")
        for case in outcome.read_cases()[name] if seen is not None else []:
            if case.get("slow") and quick:
                continue
            wanted, got = expected(case, peer), seen.get(case["id"], "not run")
            if wanted != got:
                yield f"{peer}: {name}: {case['id']}\n  expected {wanted}\n  seen     {got}"


def check(folder, peer):
    found = list(faults(folder, peer, bool(os.environ.get("INTEROP_QUICK"))))
    print("\n".join(found), end="\n" * bool(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(check(*sys.argv[1:]))
