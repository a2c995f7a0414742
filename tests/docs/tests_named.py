"""The test cases of the tree, by the program that they are in."""

import functools
import re
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
CASE = re.compile(r"^TEST(?:_F|_P)?\((\w+), (\w+)\) (\{ [^\n]* \}$|\{.*?^\}$)", re.MULTILINE | re.DOTALL)


@functools.cache
def cases_of(program):
    """"Suite.Case" of a test program with the case's text, empty if there is no such program."""
    return {f"{suite}.{case}": body for source in TOP.glob(f"tests/*/{program}.cpp")
            for suite, case, body in CASE.findall(source.read_text(encoding="utf-8"))}


def body_of(program, name):
    """What the test says, its texts in one piece; empty if there is no such test."""
    return re.sub(r"\"\s*\"", "", cases_of(program).get(name, ""))
