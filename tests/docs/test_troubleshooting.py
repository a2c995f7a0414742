"""Each row of docs/troubleshooting.md names a test that exists and that sees what the row shows."""

import re
import unittest

from tests_named import TOP, body_of

DOCUMENT = TOP / "docs/troubleshooting.md"
TEST = re.compile(r"^`(\w+)` `([\w.]+)`$")


def rows():
    """(symptom, cause, evidence, remedy, test) of each row of a table."""
    lines = DOCUMENT.read_text(encoding="utf-8").splitlines()
    return [line.strip("| ").split(" | ") for line in lines
            if line.startswith("| ") and not line.startswith("| Symptom ")]


def sees(body, text):
    """The parts of the text, between its gaps, are in the body in this order."""
    at = 0
    for part in text.split("…"):
        at = body.find(part, at)
        if at < 0:
            return False
        at += len(part)
    return True


def commands_left_out(evidence):
    return [text for text in re.findall(r"`([^`]+)`", evidence) if not text.startswith("disp ")]


class Troubleshooting(unittest.TestCase):
    def test_each_row_has_its_five_cells(self):
        self.assertGreaterEqual(len(rows()), 25)
        self.assertEqual([row for row in rows() if len(row) != 5 or not TEST.match(row[4])], [])

    def test_tests_see_what_the_rows_show(self):
        wrong = []
        for symptom, _, evidence, _, test in rows():
            body = body_of(*TEST.match(test).groups())
            shown = commands_left_out(evidence)
            if not body or not all(sees(body, text) for text in shown):
                wrong.append(f"{symptom}: {test}: {shown}")
        self.assertEqual(wrong, [])

    def test_most_rows_show_a_text(self):
        silent = [row[0] for row in rows() if not commands_left_out(row[2])]
        self.assertLessEqual(len(silent), 1)


class Seeing(unittest.TestCase):
    def test_gaps_stand_for_any_text(self):
        self.assertTrue(sees("mid= + n + , reason=0", "mid=…, reason=0"))
        self.assertFalse(sees(", reason=0 mid=", "mid=…, reason=0"))


if __name__ == "__main__":
    unittest.main()
