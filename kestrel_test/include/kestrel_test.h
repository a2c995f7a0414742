/* kestrel_test.h: a host under test control, for the tests of applications.
 *
 * Link a test with the library and with kestrel-test instead of kestrel.  The host has its own
 * clock, which stands still until the test moves it; a memory pool that fails on demand; and a log
 * that can be read.  While such a host exists, the library's CoAP clock (retransmissions,
 * lifetimes) follows the hosts' time as well, so a test of an hour takes as long as its work does,
 * and ends the same way on a machine of any speed.  Datagrams still travel through the system's
 * sockets.
 *
 * As a rule a test has one host with all of its instances: hosts have a time each, and the CoAP
 * clock follows the one that is ahead.
 *
 * Everything is called from one thread.  Pointers are not null unless a comment says so. */
#ifndef KESTREL_TEST_H
#define KESTREL_TEST_H

#include "coap_svc/rpc/coap_rpc_types.h"
#include "kst_base.h"

KST_C_BEGIN

/* KestrelTest is one host. */
typedef struct KestrelTest KestrelTest;

/* KestrelTestNew creates a host.  Do so before COAP_RpcInit. */
KST_API KestrelTest *KestrelTestNew(void);

/* KestrelTestDelete deletes a host, after its instances.  Null is accepted.
 *
 * Returns 0 when everything was given back and nothing was wrong with how the host was used.
 * Otherwise the number of blocks, timers and display objects that are left and of wrong uses of any
 * host since this one was created; they are listed on standard error. */
KST_API uint64_t KestrelTestDelete(KestrelTest *host);

/* KestrelTestParam is a start-up record with the handles of the host.  The library writes its log,
 * but not the debug channel.
 *
 *   name   as in the record: borrowed */
KST_API CoapRpcInitParam KestrelTestParam(const KestrelTest *host, const char *name);

/* ---- time ---- */

/* KestrelTestDrive makes the host run the I/O of an instance whenever time moves, as a host does
 * that watches COAP_RpcGetIoFd: datagrams between driven instances take no time at all.  Without
 * it, an instance looks for datagrams when its own timer ticks.  KestrelTestUndrive ends that: call
 * it before COAP_RpcUninit, unless time is not moved any more. */
KST_API void KestrelTestDrive(KestrelTest *host, CoapRpcCtx *ctx);
KST_API void KestrelTestUndrive(KestrelTest *host, const CoapRpcCtx *ctx);

/* KestrelTestAdvanceMs moves time on.  Timers that fall due tick at their time; driven instances
 * run at least every 100 ms.  With 0 only what is pending now is done.  Not allowed in callbacks.
 */
KST_API void KestrelTestAdvanceMs(KestrelTest *host, uint64_t ms);

/* KestrelTestNowMs is how far the host's time has moved. */
KST_API uint64_t KestrelTestNowMs(const KestrelTest *host);

/* KestrelTestIsDone says whether to stop; not 0: stop. */
typedef uint32_t (*KestrelTestIsDone)(void *param);

/* KestrelTestRunUntil moves time on, 100 ms at a time, until `isDone` says so, which is asked
 * first.
 *
 * Returns 1, or 0 after `maxMs`. */
KST_API uint32_t KestrelTestRunUntil(KestrelTest *host, KestrelTestIsDone isDone, void *param,
                                     uint64_t maxMs);

/* KestrelTestRunUntilIdle moves time on until the driven instances have neither sent nor received a
 * message for 2 s and no call is under way.  An observation is a call, too.
 *
 * Returns 1, or 0 after `maxMs`. */
KST_API uint32_t KestrelTestRunUntilIdle(KestrelTest *host, uint64_t maxMs);

/* ---- memory ---- */

/* KestrelTestFailAlloc makes the n-th allocation from now on fail, 1 is the next one; and with
 * KestrelTestFailAllocsFrom all later ones as well.  0: none.  The last call counts. */
KST_API void KestrelTestFailAlloc(KestrelTest *host, uint64_t n);
KST_API void KestrelTestFailAllocsFrom(KestrelTest *host, uint64_t n);

/* KestrelTestAllocNum counts the allocations that were asked for, those that failed included;
 * KestrelTestFailedNum those that KestrelTestFailAlloc and KestrelTestFailAllocsFrom made fail. */
KST_API uint64_t KestrelTestAllocNum(const KestrelTest *host);
KST_API uint64_t KestrelTestFailedNum(const KestrelTest *host);

/* KestrelTestLimitBytes refuses what would bring the live bytes above a limit; 0: no limit. */
KST_API void KestrelTestLimitBytes(KestrelTest *host, uint64_t bytes);

/* Blocks in use, and their bytes. */
KST_API uint64_t KestrelTestLiveBlocks(const KestrelTest *host);
KST_API uint64_t KestrelTestLiveBytes(const KestrelTest *host);

/* ---- log ---- */

/* KestrelTestLogLine is a line of the log. */
typedef struct KestrelTestLogLine {
  uint32_t level;   /* KST_LOG_DEBUG to KST_LOG_ERROR */
  const char *func; /* the function that wrote it */
  const char *text; /* as written, with line feeds */
} KestrelTestLogLine;

/* KestrelTestSetLogLevel sets the lowest level that is written; at first KST_LOG_INFO. */
KST_API void KestrelTestSetLogLevel(KestrelTest *host, uint32_t level);

/* KestrelTestLogNum counts the lines, since the host's creation or KestrelTestClearLog. */
KST_API uint32_t KestrelTestLogNum(const KestrelTest *host);

/* KestrelTestLogGet reads a line, 0 is the oldest one.  Its texts are valid until the next line.
 *
 * Returns 0, or 1 when there are not that many. */
KST_API uint32_t KestrelTestLogGet(const KestrelTest *host, uint32_t index,
                                   KestrelTestLogLine *line);

/* KestrelTestLogHas counts the lines that have a text in them. */
KST_API uint32_t KestrelTestLogHas(const KestrelTest *host, const char *part);

/* KestrelTestClearLog discards the lines. */
KST_API void KestrelTestClearLog(KestrelTest *host);

/* ---- asserts ---- */

/* KestrelTestAssertNum counts calls of TARN_Assert since the first of the hosts was created: what
 * the library refuses as an error of the program, such as a null argument. */
KST_API uint32_t KestrelTestAssertNum(void);

KST_C_END

#ifdef __cplusplus
/* KestrelTestRunUntil for a function object without arguments. */
template <typename IsDone>
bool KestrelTestRunUntil(KestrelTest *host, IsDone isDone, uint64_t maxMs) {
  const KestrelTestIsDone ask = [](void *param) -> uint32_t {
    return (*static_cast<IsDone *>(param))() ? 1 : 0;
  };
  return KestrelTestRunUntil(host, ask, &isDone, maxMs) != 0;
}
#endif

#endif /* KESTREL_TEST_H */
