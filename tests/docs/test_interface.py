"""Each rule of docs/interface.md names tests that exist, and is told where a reader looks."""

import re
import unittest

from tests_named import TOP, cases_of

DOCUMENT = TOP / "docs/interface.md"
HEADERS = TOP / "coap_server/include/coap_svc/rpc"
MANUAL = TOP / "docs/man/coap_svc_rpc.7"
ROW = re.compile(r"^\| [^|]+ \| `(\w+)` \| (.*) \|$", re.MULTILINE)
RULE = re.compile(r"^<a id=\"([\w-]+)\"></a>\*\*(.*?)\*\*", re.MULTILINE | re.DOTALL)

# anchor of a rule: the header that repeats its first sentence
PLACES = {
    "get-reaches": "coap_rpc_ser.h",
    "post-reaches": "coap_rpc_ser.h",
    "post-answers": "coap_rpc_ser.h",
    "synchronous-bytes": "coap_rpc_ser.h",
    "answer-port": "coap_rpc_cli.h",
    "one-process": "coap_rpc_cli.h",
    "answer-or-abort": "coap_rpc_ser.h",
    "async-code": "coap_rpc_cli.h",
    "first-call": "coap_rpc_cli.h",
    "check-code": "coap_rpc_cli.h",
    "one-observer": "coap_rpc_ser.h",
    "port-busy": "coap_rpc_ser.h",
}


def words_of(text):
    """The text without marks, line breaks and comment stars."""
    plain = re.sub(r"[`*\\]|\.BR? |\.IR? ", "", text)
    return " ".join(plain.split())


def rules():
    return {anchor: words_of(sentence) for anchor, sentence in
            RULE.findall(DOCUMENT.read_text(encoding="utf-8"))}


class Interface(unittest.TestCase):
    def test_rows_name_tests(self):
        rows = ROW.findall(DOCUMENT.read_text(encoding="utf-8"))
        self.assertGreaterEqual(len(rows), 9)
        missing = [name for program, names in rows for name in re.findall(r"`([\w.]+)`", names)
                   if name not in cases_of(program)]
        self.assertEqual(missing, [])

    def test_headers_repeat_the_rules(self):
        self.assertEqual(set(rules()), set(PLACES))
        missing = [anchor for anchor, sentence in rules().items()
                   if sentence not in words_of((HEADERS / PLACES[anchor]).read_text(encoding="utf-8"))]
        self.assertEqual(missing, [])

    def test_manual_repeats_the_rules(self):
        manual = words_of(MANUAL.read_text(encoding="utf-8"))
        self.assertEqual([anchor for anchor, sentence in rules().items() if sentence not in manual], [])


if __name__ == "__main__":
    unittest.main()
