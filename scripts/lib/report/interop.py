"""The talks of scripts/interop with other CoAP programs as tables."""

import os
import sys

import page

sys.path.insert(1, os.path.join(os.path.dirname(__file__), "../../../tests/interop/peers"))
import judge    # noqa: E402  pylint: disable=wrong-import-position
import outcome  # noqa: E402  pylint: disable=wrong-import-position

NAMES = {"libcoap": "libcoap", "aiocoap": "aiocoap", "node": "node-coap", "gocoap": "go-coap",
         "californium": "Californium"}
# The lists of cases, each with the peers that run it.
TALKS = {"server": ["libcoap", "aiocoap", "node"], "client": ["aiocoap", "node"],
         "direct": list(NAMES), "calls": list(NAMES)}


def _cell(case, peer, seen, notes):
    """seen: outcomes by case; None when the peer was skipped."""
    if seen is None or case["id"] not in seen:
        return "not run"
    if seen[case["id"]] != judge.expected(case, peer):
        return f"**FAILED**: `{seen[case['id']]}`"
    if peer in case.get("cannot", {}):
        return "– " + case["cannot"][peer]
    note = case.get("peerNote", {}).get(peer) or case.get("note")
    text = f"differs ({notes.index(note) + 1})" if note else "pass"
    if peer in case.get("expectOf", {}):
        text += f": `{case['expectOf'][peer]}`"
    return text


def _talks(folder, name):
    data, peers = outcome.read_cases(), TALKS[name]
    notes = list(data["notes"])
    seen = {peer: judge.read(folder, f"{peer}.{name}") for peer in peers}
    rows = [["Case", "What is run", "Expected outcome", *(NAMES[peer] for peer in peers)]]
    for case in data[name]:
        wanted = case["expect"].replace("PEER", "…").replace(" | ", "`<br>`")
        cells = [_cell(case, peer, seen[peer], notes) for peer in peers]
        row = [case["id"], case["does"], f"`{wanted}`", *cells]
        rows.append([text.replace(" | ", "`, then `") for text in row])
    return page.table(rows, aligned=False)


def notes():
    numbered = enumerate(outcome.read_cases()["notes"].values(), 1)
    return "".join(f"{number}. {text}\n" for number, text in numbered)


def _captures(folder):
    rows = [["Peer", "Messages captured", "Malformed or with a warning"]]
    for peer, name in NAMES.items():
        path = os.path.join(folder, f"{peer}.capture")
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                rows.append([name, *file.read().split()])
    return page.table(rows, aligned=False)


def _versions(folder):
    with open(os.path.join(folder, "versions"), encoding="utf-8") as file:
        return page.measured_today() + "".join(f"- {line.strip()}\n" for line in file)


def publish(folder, document):
    page.put(document, {
        "versions": _versions(folder),
        **{name: _talks(folder, name) for name in TALKS},
        "notes": notes(),
        "captures": _captures(folder),
    })
