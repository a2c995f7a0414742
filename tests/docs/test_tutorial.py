"""The steps of docs/tutorial.md: each a short program in both languages, with what its terminals show."""

import re
import unittest
from pathlib import Path

DOCUMENT = Path(__file__).resolve().parents[2] / "docs/tutorial.md"
STEP = re.compile(r"^## \d .*?(?=^## )", re.MULTILINE | re.DOTALL)
MARK = re.compile(r"^<!-- (\w+)\.(\w+) -->\n```.*?\n(.*?)```", re.MULTILINE | re.DOTALL)
MOST_LINES = 40


def steps():
    """For each step its blocks: (name, kind, text)."""
    return [MARK.findall(step) for step in STEP.findall(DOCUMENT.read_text(encoding="utf-8"))]


class Tutorial(unittest.TestCase):
    def test_seven_steps_in_both_languages(self):
        self.assertEqual(len(steps()), 7)
        for step in steps():
            self.assertEqual([kind for _, kind, _ in step], ["cpp", "py", "terminals"])
            self.assertEqual(len({name for name, _, _ in step}), 1)

    def test_programs_are_short(self):
        lines = {f"{name}.{kind}": text.count("\n") for step in steps() for name, kind, text in step
                 if kind != "terminals"}
        self.assertEqual({name: num for name, num in lines.items() if num > MOST_LINES}, {})

    def test_blocks_are_played(self):
        # What is typed outside of these blocks would be run by nobody.
        rest = MARK.sub("", DOCUMENT.read_text(encoding="utf-8"))
        self.assertNotIn("\n$ ", rest)


if __name__ == "__main__":
    unittest.main()
