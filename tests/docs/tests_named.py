"""The test cases of the tree, by the program that they are in."""

import functools
import re
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
CASE = re.compile(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", re.MULTILINE)


@functools.cache
def cases_of(program):
    """"Suite.Case" of a test program, empty if there is no such program."""
    return {f"{suite}.{case}" for source in TOP.glob(f"tests/*/{program}.cpp")
            for suite, case in CASE.findall(source.read_text(encoding="utf-8"))}
