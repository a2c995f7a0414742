"""Each rule of docs/interface.md names tests that exist, and is told where a reader looks."""

import re
import unittest

from tests_named import TOP, cases_of

DOCUMENT = TOP / "docs/interface.md"
HEADERS = TOP / "coap_server/include/coap_svc/rpc"
MANUAL = TOP / "docs/man/coap_svc_rpc.7"
ROW = re.compile(r"^\| [^|]+ \| `(\w+)` \| (.*) \|$", re.MULTILINE)
RULE = re.compile(r"^<a id=\"([\w-]+)\"></a>(.*?)\n\n", re.MULTILINE | re.DOTALL)

# anchor of a rule: the header that repeats its first two sentences
PLACES = {
    "get-reaches": "coap_rpc_ser.h",
    "post-reaches": "coap_rpc_ser.h",
    "post-answers": "coap_rpc_ser.h",
    "synchronous-bytes": "coap_rpc_ser.h",
    "answer-port": "coap_rpc_cli.h",
    "one-process": "coap_rpc_cli.h",
    "request-payload": "coap_rpc_cli.h",
    "answer-or-abort": "coap_rpc_ser.h",
    "async-code": "coap_rpc_cli.h",
    "first-call": "coap_rpc_cli.h",
    "check-code": "coap_rpc_cli.h",
    "one-observer": "coap_rpc_ser.h",
    "port-busy": "coap_rpc_ser.h",
}


def words_of(text):
    """The text without links, marks, line breaks and comment stars."""
    plain = re.sub(r"\]\([^)]*\)|[\[\]`*\\]", "", text)
    return " ".join(plain.split())


def rules():
    """The first two sentences of each rule, by its anchor."""
    return {anchor: re.split(r"(?<=\.) (?=[A-Z])", words_of(text))[:2] for anchor, text in
            RULE.findall(DOCUMENT.read_text(encoding="utf-8"))}


def missing_from(text, sentences):
    """A header may name, in brackets before the full stop, where to look."""
    words = re.sub(r" \([a-z_]+\.h\)\.", ".", words_of(text))
    return [sentence for sentence in sentences if sentence not in words]


class Interface(unittest.TestCase):
    def test_rows_name_tests(self):
        rows = ROW.findall(DOCUMENT.read_text(encoding="utf-8"))
        self.assertGreaterEqual(len(rows), 9)
        missing = [name for program, names in rows for name in re.findall(r"`([\w.]+)`", names)
                   if name not in cases_of(program)]
        self.assertEqual(missing, [])

    def test_headers_repeat_the_rules(self):
        self.assertEqual(set(rules()), set(PLACES))
        for anchor, sentences in rules().items():
            header = (HEADERS / PLACES[anchor]).read_text(encoding="utf-8")
            self.assertEqual((len(sentences), missing_from(header, sentences)), (2, []), anchor)

    def test_manual_repeats_the_rules(self):
        manual = MANUAL.read_text(encoding="utf-8")
        self.assertEqual([missing_from(manual, sentences) for sentences in rules().values()],
                         [[]] * len(PLACES))


if __name__ == "__main__":
    unittest.main()
