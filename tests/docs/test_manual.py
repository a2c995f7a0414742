"""The manual pages of section 3 have what the public headers say, and a page for each function."""

import re
import sys
import tempfile
import unittest
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "scripts/lib"))
import manual  # noqa: E402

HEADERS = [*sorted((TOP / "coap_server/include/coap_svc/rpc").glob("*.h")), TOP / "platform/include/kestrel.h",
           TOP / "kestrel_test/include/kestrel_test.h"]


def pages():
    with tempfile.TemporaryDirectory() as folder:
        manual.write_pages("1.2.3", "2026-01-02", Path(folder), HEADERS)
        return {path.stem: path.read_text(encoding="utf-8") for path in Path(folder).iterdir()}


class Manual(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.pages = pages()

    def test_each_function_leads_to_its_header(self):
        for header in HEADERS:
            names = re.findall(r"^(?:COAP_RPC_API|KST_API)\s[^(;]*?(\w+)\(", header.read_text(encoding="utf-8"),
                               re.MULTILINE)
            for name in names:
                self.assertEqual(self.pages[name], f".so man3/{header.stem}.3\n")
                self.assertRegex(self.pages[header.stem], rf"(?m)^\.SS .*\b{name}\b")

    def test_pages_have_the_comments(self):
        server = " ".join(self.pages["coap_rpc_ser"].split())
        self.assertIn("The bytes of a synchronous answer are not sent.", server)
        self.assertIn("int32_t (*CoapRpcSerOnRequest)(uint64_t userData, const CoapRpcSerReqInfo *info,", server)
        self.assertIn(".TH COAP_RPC_SER 3 2026-01-02 \"coap_svc_rpc 1.2.3\"", server)

    def test_section_7_names_the_pages(self):
        overview = (TOP / "docs/man/coap_svc_rpc.7").read_text(encoding="utf-8")
        for header in HEADERS:
            self.assertIn(f".BR {header.stem} (3)", overview)

    def test_no_line_is_a_command_by_accident(self):
        commands = {".TH", ".SH", ".SS", ".B", ".BR", ".PP", ".nf", ".fi", ".so"}
        wrong = [line for text in self.pages.values() for line in text.split("\n")
                 if line[:1] in (".", "'") and line.split()[0] not in commands]
        self.assertEqual(wrong, [])

    def test_no_line_is_empty(self):
        self.assertEqual([name for name, text in self.pages.items() if "\n\n" in text], [])


class Body(unittest.TestCase):
    def test_tables_stay_as_they_are(self):
        self.assertEqual(manual.body(["Text", "more.", "", "  a   b", "", "Text."]),
                         ["Text", "more.", ".PP", ".nf", "  a   b", ".PP", ".fi", "Text."])

    def test_dots_at_the_beginning_are_text(self):
        self.assertEqual(manual.body([".so it is", "a-b\\c"]), ["\\&.so it is", "a\\-b\\ec"])


if __name__ == "__main__":
    unittest.main()
