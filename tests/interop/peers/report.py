#!/usr/bin/env python3
"""Compares what was seen with what is expected of the cases.

  report.py check <results folder> <peer>           says what differs; status 1 when anything does
  report.py write <results folder> <document>       puts the tables between the document's markers

A results folder has for each peer <peer>.server and <peer>.client, with a line
"<case> TAB <outcome>" for each case, and <peer>.capture.
"""

import os
import sys

import outcome

PEERS = {"libcoap": "libcoap", "aiocoap": "aiocoap", "node": "node-coap"}
SIDES = ("server", "client")


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
    for side in SIDES:
        seen = read(folder, f"{peer}.{side}")
        for case in outcome.read_cases()[side] if seen is not None else []:
            if case.get("slow") and quick:
                continue
            wanted, got = expected(case, peer), seen.get(case["id"], "not run")
            if wanted != got:
                yield f"{peer}: {side}: {case['id']}\n  expected {wanted}\n  seen     {got}"


def check(folder, peer):
    found = list(faults(folder, peer, bool(os.environ.get("INTEROP_QUICK"))))
    print("\n".join(found), end="\n" * bool(found))
    return 1 if found else 0


def cell(case, peer, seen, notes):
    if seen is None or case["id"] not in seen:
        return "not run"
    if seen[case["id"]] != expected(case, peer):
        return f"**FAILED**: `{seen[case['id']]}`"
    if peer in case.get("cannot", {}):
        return "– " + case["cannot"][peer]
    note = case.get("peerNote", {}).get(peer) or case.get("note")
    text = f"differs ({notes.index(note) + 1})" if note else "pass"
    if peer in case.get("expectOf", {}):
        text += f": `{case['expectOf'][peer]}`"
    return text


def table(folder, side, peers):
    data = outcome.read_cases()
    notes = list(data["notes"])
    seen = {peer: read(folder, f"{peer}.{side}") for peer in peers}
    yield f"| Case | What is run | Expected outcome | {' | '.join(PEERS[peer] for peer in peers)} |"
    yield "|---" * (3 + len(peers)) + "|"
    for case in data[side]:
        cells = [cell(case, peer, seen[peer], notes) for peer in peers]
        wanted = case["expect"].replace("PEER", "…").replace(" | ", "`<br>`")
        row = [case["id"], case["does"], f"`{wanted}`", *cells]
        yield "| " + " | ".join(text.replace(" | ", "`, then `") for text in row) + " |"


def notes_text():
    for number, text in enumerate(outcome.read_cases()["notes"].values(), 1):
        yield f"{number}. {text}"


def captures(folder):
    yield "| Peer | Messages captured | Malformed or with a warning |"
    yield "|---|---|---|"
    for peer, name in PEERS.items():
        path = os.path.join(folder, f"{peer}.capture")
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                total, bad = file.read().split()
            yield f"| {name} | {total} | {bad} |"


def versions(folder):
    with open(os.path.join(folder, "versions"), encoding="utf-8") as file:
        yield from (f"- {line.strip()}" for line in file)


def write(folder, document):
    parts = {
        "versions": versions(folder),
        "server": table(folder, "server", list(PEERS)),
        "client": table(folder, "client", ["aiocoap", "node"]),
        "notes": notes_text(),
        "captures": captures(folder),
    }
    with open(document, encoding="utf-8") as file:
        text = file.read()
    for name, lines in parts.items():
        begin, end = f"<!-- {name} -->\n", f"<!-- end of {name} -->"
        head, rest = text.split(begin)
        text = head + begin + "\n".join(lines) + "\n" + end + rest.split(end)[1]
    with open(document, "w", encoding="utf-8") as file:
        file.write(text)
    return 0


if __name__ == "__main__":
    sys.exit({"check": check, "write": write}[sys.argv[1]](*sys.argv[2:]))
