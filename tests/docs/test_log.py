"""docs/log.md is what the sources make of it, and each line has a meaning."""

import sys
import unittest

from tests_named import TOP

sys.path.insert(0, str(TOP / "scripts/lib"))
import log_document  # noqa: E402  pylint: disable=wrong-import-position


class Log(unittest.TestCase):
    def test_document_is_current(self):
        self.assertEqual((TOP / "docs/log.md").read_text(encoding="utf-8"), log_document.document(),
                         "run scripts/make-docs")

    def test_each_site_has_a_meaning_and_no_meaning_is_left_over(self):
        names = [name for name, _, _ in log_document.sites()]
        self.assertGreater(len(names), 35)
        self.assertEqual(sorted(names), sorted(log_document.MEANINGS))

    def test_each_site_of_ours_has_a_text(self):
        without = {name for name, _, _ in log_document.sites()} - set(log_document.texts())
        self.assertEqual(without, {"LibCoapDebug", "LibCoapInfo", "LibCoapWarn", "LibCoapError",
                                   "LogModDo", "MemDumpLine", "MemDumpLastLine"})

    def test_meanings_of_the_trace_are_of_lines(self):
        texts = [text for text, _ in log_document.trace_lines()]
        self.assertGreater(len(texts), 40)
        for start in log_document.TRACE_MEANINGS:
            self.assertTrue(any(text.startswith(start) for text in texts), start)


if __name__ == "__main__":
    unittest.main()
