"""docs/counters.md says which limit each refusal is of, and no limit is forgotten.

Each constant of coap_rpc_limits.h that bounds something, and each row of docs/limits.md that counts
something, belongs to an element of CoapRpcStats.refused or is told here to refuse nothing."""

import re
import unittest

from tests_named import TOP

LIMITS = TOP / "coap_server/src/coap_svc/rpc/common/coap_rpc_limits.h"
STATS = TOP / "coap_server/include/coap_svc/rpc/coap_rpc_stats.h"
NUMBERS = TOP / "coap_server/src/coap_svc/rpc/libadapter/stats/coap_rpc_lib_numbers.cpp"
DOCUMENT = TOP / "docs/counters.md"
ROWS_OF_LIMITS = TOP / "docs/limits.md"

# Which element counts what a constant refuses.
REFUSES = {
    "kMaxOpenAsyncOfPeer": "OPEN_OF_PEER", "kMaxOpenAsync": "OPEN", "kMaxAnswerSessions": "ASKERS",
    "kMaxWaitingAnswers": "ANSWERS", "kMaxWaitingInAll": "ANSWERS", "kMaxDirectPeers": "DIRECT_PEERS",
    "kMaxDirectPeersOfHost": "DIRECT_PEERS", "kMaxSyncRegistrations": "SYNC_REGISTRATIONS",
    "kMaxCalls": "CALLS", "kMaxMirrors": "MIRRORS", "kMaxPutBackChgs": "PUT_BACK",
    "kMaxGivenUp": "GIVEN_UP", "kMaxRemembered": "REMEMBERED", "kMaxRememberedBytes": "REMEMBERED",
    "kMaxSyncBodies": "SYNC_BODIES", "kMaxBodies": "DIRECT_BODIES", "kMaxBodyBytes": "DIRECT_BODIES",
    "kMaxIdleSessions": "IDLE_PEERS", "kMaxUploads": "UPLOADS", "kMaxUploadBytes": "UPLOADS",
    "kMaxSpareBlocks": "PAYLOADS", "kMaxLastBlocks": "LAST_BLOCKS", "kMaxOpenRequests": "FOLLOWED",
}
# Elements of more than one constant, or of none in that file.
OTHERS = {"DIRECT", "OBSERVERS"}

REFUSE_NOTHING = {
    "kMaxAdviceLines": "further warnings are counted",
    "kMaxAnswersInLibcoap": "the others stay queued", "kMaxAnswersPerTurn": "the others follow",
    "kMaxAnswersInBlocks": "the others stay queued", "kMaxAnswerInOneMessage": "a longer one has blocks",
    "kMaxSpareSessions": "a session is opened again", "kMaxUnacknowledged": "further ones are NON",
    "kMaxRenewalDelayMs": "a time", "kMaxAnswerOptions": "a bad argument gets a code",
    "kMaxAnswerOptionBytes": "a bad argument gets a code", "kMaxLinkValue": "a bad argument gets a code",
    "kMaxPayload": "a bad answer gets a code", "kMaxIdlMsg": "the log tells of a bad message",
}

ROWS_THAT_REFUSE_NOTHING = {
    "polled-datagrams": "later ones are read later", "asker-sessions": "a session is opened again",
    "answers-in-blocks": "others are queued", "answers-per-turn": "others follow", "sync-portion": "others follow",
    "sync-tombstones": "a reader begins again: syncFull", "mirror-in-flight": "questions are asked later",
    "mirror-bytes": "the mirror's state tells", "gaps": "a transfer that its peer makes wrong ends",
    "call-messages": "a bad argument gets a code", "resends": "they are sent later",
    "debug-texts": "of the reference host", "direct-unacknowledged": "further ones are NON",
    "answer-options": "a bad argument gets a code", "link-attributes": "a bad argument gets a code",
    "processes": "a rule", "advice": "further warnings are counted",
}


def elements():
    """Elements of `refused`, from the header."""
    return re.findall(r"COAP_RPC_LIMIT_(\w+) = \d+", STATS.read_text(encoding="utf-8"))


def rows():
    """(element, name, rest) of each row of the document's table."""
    return re.findall(r"^\| `COAP_RPC_LIMIT_(\w+)` \| `(\w+)` \| (.*) \|$",
                      DOCUMENT.read_text(encoding="utf-8"), re.MULTILINE)


def anchors(section):
    """Anchors of a section of docs/limits.md."""
    text = ROWS_OF_LIMITS.read_text(encoding="utf-8")
    begin = text.index(f"\n## {section}\n")
    end = text.find("\n## ", begin + 1)
    return re.findall(r'<a id="([^"]+)">', text[begin:end])


class Refusals(unittest.TestCase):
    def test_each_constant_refuses_something_that_is_counted_or_nothing(self):
        constants = set(re.findall(r"constexpr \w+ (kMax\w+) =", LIMITS.read_text(encoding="utf-8")))
        self.assertEqual(constants, set(REFUSES) | set(REFUSE_NOTHING))

    def test_each_element_is_of_a_limit(self):
        self.assertEqual(set(elements()), set(REFUSES.values()) | OTHERS)

    def test_the_document_has_a_row_for_each_element(self):
        self.assertEqual([element for element, _, _ in rows()], elements())

    def test_names_are_those_of_the_commands(self):
        shown = dict(re.findall(r'Refused\("(\w+)", COAP_RPC_LIMIT_(\w+)\)',
                                NUMBERS.read_text(encoding="utf-8")))
        self.assertEqual({name: element for element, name, _ in rows()}, shown)

    def test_each_row_of_the_limits_is_told(self):
        linked = {anchor for _, _, rest in rows() for anchor in re.findall(r"limits\.md#([\w-]+)", rest)}
        counts = set(anchors("Counts"))
        self.assertEqual(counts, (linked & counts) | set(ROWS_THAT_REFUSE_NOTHING))
        self.assertFalse(linked & set(ROWS_THAT_REFUSE_NOTHING))


if __name__ == "__main__":
    unittest.main()
