"""docs/limits.md states the numbers of coap_rpc_limits.h."""

import re
import unittest
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
HEADER = TOP / "coap_server/src/coap_svc/rpc/common/coap_rpc_limits.h"
EXTENSIONS = [TOP / f"coap_server/include/coap_svc/rpc/coap_rpc_{name}.h"
              for name in ("ext", "direct", "call", "sync")]
DOCUMENT = TOP / "docs/limits.md"


def number(value):
    return f"{value:,}"


def exact(value):
    return str(value)


def seconds(value):
    return f"{value / 1000:g} s"


def milliseconds(value):
    return f"{value} ms"


def without_terminator(value):
    return str(value - 1)


def mebibytes(value):
    return f"{value // 1048576} MiB"


# anchor of a row: the constants that it states, and how
ROWS = {
    "path": [("kPathTextSize", lambda value: f"{value // 2} characters")],
    "request-payload": [("kMaxPayload", number)],
    "synchronous-answer": [("kMaxPayload", number)],
    "idl-notification": [("kPayloadBufSize", number)],
    "idl-message": [("kMaxIdlMsg", number)],
    "upload-size": [("kMaxUploadBytes", mebibytes)],
    "log-line": [("kLogTextSize", without_terminator)],
    "display-record": [("kRecordTextSize", without_terminator)],
    "display-tuple": [("kTupleTextSize", without_terminator)],
    "polling": [("kTaskPeriodMs", milliseconds), ("kQuickPeriodMs", milliseconds)],
    "io-run": [("kIoBudgetMs", milliseconds)],
    "update-timer": [("kUpdatePeriodMs", milliseconds)],
    "block-release": [("kSentBlocksKeepMs", seconds)],
    "block-idle": [("kIdleBlocksKeepMs", seconds)],
    "last-block": [("kLastBlockKeepMs", seconds)],
    "resend-period": [("kResendPeriodMs", milliseconds)],
    "session-aging": [("kAgingTicks", lambda value: f"{value} s")],
    "direct-timeout": [("kDirectTimeoutMs", seconds)],
    "remembered-time": [("kExchangeLifetimeMs", seconds), ("kNonLifetimeMs", seconds)],
    "remembered-requests": [("COAP_RPC_MAX_REMEMBERED", number),
                            ("COAP_RPC_MAX_REMEMBERED_BYTES", mebibytes)],
    "direct-peers": [("kMaxDirectPeers", number)],
    "direct-bodies": [("kMaxBodies", number), ("kMaxBodyBytes", mebibytes)],
    "answer-options": [("kMaxAnswerOptions", number), ("kMaxAnswerOptionBytes", "{} bytes".format)],
    "link-attributes": [("kMaxLinkValue", "{} bytes".format)],
    "asker-session": [("kSpareSessionKeepMs", seconds)],
    "repeated-answer-time": [("kExchangeLifetimeMs", seconds)],
    "silent-peer": [("kClientMaxRetransmit", lambda value: f"{value} retransmissions")],
    "silent-observer": [("kNotifyMaxRetransmit", lambda value: f"{value} retransmissions")],
    "renewal-wait": [("kIncomingIdleMs", seconds)],
    "notification-order": [("kNotificationOrderMs", seconds)],
    "unanswered-request": [("kExchangeLifetimeMs", seconds)],
    "held-port": [("kEndPointAttempts", lambda value: f"{value} attempts"),
                  ("kEndPointRetrySeconds", lambda value: f"{value} s apart")],
    "polled-datagrams": [("kCallsPerQuickTick", lambda value: f"{value} in 100 ms")],
    "open-requests": [("COAP_RPC_MAX_OPEN_ASYNC_OF_PEER", number)],
    "open-requests-all": [("COAP_RPC_MAX_OPEN_ASYNC", number)],
    "askers": [("kMaxAnswerSessions", number)],
    "asker-sessions": [("kMaxSpareSessions", number)],
    "queued-answers": [("kMaxWaitingAnswers", exact)],
    "queued-answers-all": [("kMaxWaitingInAll", number)],
    "answers-in-blocks": [("kMaxAnswersInBlocks", exact)],
    "answers-per-turn": [("kMaxAnswersPerTurn", exact)],
    "sync-page": [("COAP_RPC_SYNC_MIN_PAGE", exact), ("COAP_RPC_SYNC_MAX_PAGE", exact)],
    "sync-tuple": [("COAP_RPC_SYNC_MAX_TUPLE", number)],
    "sync-lease": [("COAP_RPC_SYNC_LEASE_MS", seconds)],
    "sync-bodies": [("kMaxSyncBodies", exact)],
    "sync-portion": [("kSyncPortion", exact)],
    "sync-registrations": [("kMaxSyncRegistrations", exact)],
    "mirror-heartbeat": [("COAP_RPC_MIRROR_HEARTBEAT_MS", seconds)],
    "mirror-repeat": [("kMirrorLastRepeatMs", seconds)],
    "mirror-pause": [("kMirrorLastPauseMs", seconds)],
    "mirrors": [("COAP_RPC_MAX_MIRRORS", exact)],
    "mirror-in-flight": [("COAP_RPC_MIRROR_IN_FLIGHT", exact),
                         ("COAP_RPC_MIRROR_MAX_IN_FLIGHT", exact)],
    "sync-tombstones": [("COAP_RPC_SYNC_MIN_TOMBSTONES", exact)],
    "idle-peers": [("kMaxIdleSessions", exact)],
    "uploads": [("kMaxUploads", exact)],
    "last-blocks": [("kMaxLastBlocks", exact)],
    "payloads-in-flight": [("kMaxSpareBlocks", exact)],
    "changes-put-back": [("kMaxPutBackChgs", number)],
    "given-up-payloads": [("kMaxGivenUp", exact)],
    "followed-requests": [("COAP_RPC_MAX_FOLLOWED_REQUESTS", number)],
    "call-payload": [("COAP_RPC_MAX_CALL_PAYLOAD", number)],
    "call-deadline": [("COAP_RPC_CALL_DEADLINE_MS", seconds)],
    "silent-call": [("kCallMaxRetransmit", lambda value: f"{value} retransmissions")],
    "call-renewal": [("kMinRenewalDelayMs", seconds), ("kMaxRenewalDelayMs", seconds)],
    "calls": [("COAP_RPC_MAX_CALLS", number)],
    "resends": [("kResendBatchSize", lambda value: str(value - 1))],
}


def constants():
    text = HEADER.read_text(encoding="utf-8")
    found = {name: int(value) for name, value in
             re.findall(r"constexpr \w+ (k\w+) = (\d+);", text)}
    for name, factor, value in re.findall(r"constexpr \w+ (k\w+) = size_t\{(\d+)\} \* (\d+);", text):
        found[name] = int(factor) * int(value)
    for extension in EXTENSIONS:
        found.update((name, int(value)) for name, value in
                     re.findall(r"#define (COAP_RPC_\w+) (\d+)u",
                                extension.read_text(encoding="utf-8")))
    return found


def rows():
    text = DOCUMENT.read_text(encoding="utf-8")
    return dict(re.findall(r"^\| <a id=\"([^\"]+)\"></a>(.*) \|$", text, re.MULTILINE))


def states(row, text):
    """The row has the text as words of their own: "64" is not in "1064" or "64,5"."""
    return re.search(rf"(?<![\w,.]){re.escape(text)}(?![\w]|[,.]\d)", row) is not None


class Limits(unittest.TestCase):
    def test_rows_state_the_constants(self):
        value_of, row_of = constants(), rows()
        wrong = [f"{anchor}: {name} is {render(value_of[name])}"
                 for anchor, stated in ROWS.items() for name, render in stated
                 if not states(row_of[anchor], render(value_of[name]))]
        self.assertEqual(wrong, [])

    def test_every_row_has_an_anchor_of_its_own(self):
        text = DOCUMENT.read_text(encoding="utf-8")
        body = [line for line in text.splitlines()
                if line.startswith("| ") and not line.startswith("| What ")]
        self.assertEqual(len(body), len(rows()))

    def test_parts_of_numbers_do_not_count(self):
        self.assertTrue(states("at most 64 of", "64"))
        for row in ("1064", "64,536", "6,64", "64.5", "640"):
            self.assertFalse(states(row, "64"), row)


if __name__ == "__main__":
    unittest.main()
