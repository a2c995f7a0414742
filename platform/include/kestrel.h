/* kestrel.h: creates and runs the reference host.
 *
 * A host is one object with a memory pool, a log, a display service, a timer service and an event
 * loop.  An application creates a host, passes its handles to what it starts, and runs the loop.
 * All functions except KestrelStop are called from the thread that runs the loop.
 *
 * Defaults unless a comment says otherwise: pointers are borrowed for the call and not
 * null; texts are NUL-terminated; a KestrelResult of 0 is success; records read are copies. */
#ifndef KESTREL_H
#define KESTREL_H

#include "kst_log.h"

KST_C_BEGIN

struct uv_loop_s;

/* Kestrel is one host. */
typedef struct Kestrel Kestrel;

/* KestrelResult says why a call failed.  Numbers are fixed; KestrelResultText describes them. */
typedef enum KestrelResult {
  KESTREL_OK = 0,
  KESTREL_BAD_ARGUMENT = 1,   /* null or out of range */
  KESTREL_NO_MEMORY = 2,      /* the process has no more memory */
  KESTREL_SYSTEM = 3,         /* the operating system or the loop refused */
  KESTREL_NOT_FOUND = 4,      /* no such record, watch, pool or tag */
  KESTREL_EXISTS = 5,         /* the descriptor is already watched */
  KESTREL_BUSY = 6,           /* called from inside the operation that it would start */
  KESTREL_FOREIGN_LOOP = 7,   /* the loop belongs to the application, which runs it itself */
  KESTREL_BAD_LINE = 8,       /* command line too long, or with control characters or open quotes */
  KESTREL_UNKNOWN_OBJECT = 9, /* no display object has this name */
  KESTREL_UNKNOWN_COMMAND = 10,
  KESTREL_AMBIGUOUS = 11,     /* several objects have this command: name one */
  KESTREL_MISSING_PARAM = 12, /* the command needs more parameters */
  KESTREL_EXTRA_PARAM = 13,   /* the command needs fewer parameters */
  KESTREL_BAD_NUMBER = 14,    /* a "uni" parameter is not a decimal number up to 4294967295 */
  KESTREL_MORE_PAGES = 15,    /* output was truncated at the page limit */
  KESTREL_STOPPED = 16        /* the sink stopped the output */
} KestrelResult;

/* KestrelResultText describes a result in a few words; "unknown result" for other numbers.
 * The text is a constant. */
KST_API const char *KestrelResultText(uint32_t result);

/* ---- creating, running, deleting ---- */

/* Lowest level that is printed. */
enum {
  KESTREL_LEVEL_DEFAULT = 0, /* information and above */
  KESTREL_LEVEL_DEBUG = 1,
  KESTREL_LEVEL_INFO = 2,
  KESTREL_LEVEL_WARN = 3,
  KESTREL_LEVEL_ERROR = 4,
  KESTREL_LEVEL_OFF = 5
};

/* Where log records go; the bits may be combined. */
enum {
  KESTREL_SINK_STDERR = 1,   /* coloured on a terminal */
  KESTREL_SINK_FILE = 2,     /* needs KestrelParam.logFile */
  KESTREL_SINK_SYSLOG = 4,   /* facility "user", identified by the host's name */
  KESTREL_SINK_CALLBACK = 8, /* needs KestrelParam.logCallback */
  KESTREL_SINK_NONE = 16     /* nowhere; not combined */
};

/* The source of a log record. */
typedef enum KestrelChannel {
  KESTREL_CHANNEL_LOG = 0,   /* KST_LogSecondHalf_ */
  KESTREL_CHANNEL_HOST = 1,  /* the host itself: suppressed records, leaks, bad frees, asserts */
  KESTREL_CHANNEL_DEBUG = 2, /* CSVC_DBG_Debug */
  KESTREL_CHANNEL_SYSLOG = 3 /* CSVC_DBG_SysLog */
} KestrelChannel;

/* KestrelLogRecord is one printed record. */
typedef struct KestrelLogRecord {
  uint32_t channel;   /* KestrelChannel */
  uint32_t level;     /* KST_LOG_DEBUG to KST_LOG_ERROR */
  const char *module; /* never null */
  uint32_t line;      /* 0 on the debug and system log channels */
  const char *func;   /* never null, may be empty */
  const char *text;   /* without a closing line feed; other control characters as \xNN */
} KestrelLogRecord;

/* KestrelLogCallback gets each printed record; the record is valid during the call.
 * It must not delete the host. */
typedef void (*KestrelLogCallback)(void *param, const KestrelLogRecord *record);

/* KestrelParam describes a host.  A zeroed record is valid: 0 is the default of every member. */
typedef struct KestrelParam {
  const char *name;       /* copied; appears in the log lines.  Null: "kestrel" */
  struct uv_loop_s *loop; /* loop of the application, which runs it, keeps it until the host is
                             deleted, and closes it.  Null: the host creates its own */
  uint64_t memLimitBytes; /* maximum bytes in use in the host's pool.  0: no limit */

  uint32_t logLevel;     /* KESTREL_LEVEL_* */
  uint32_t logSinks;     /* KESTREL_SINK_* bits.  0: KESTREL_SINK_STDERR */
  const char *logFile;   /* path of the log file; copied */
  uint64_t logFileBytes; /* size at which the file is rotated.  0: 4 MiB */
  uint32_t logFileCount; /* rotated files kept besides the current one, at most 1000.  0: 3 */
  uint32_t logWindowMs;  /* window of the rate limits.  0: 1000 */
  uint32_t logBurst;     /* records a site may print per window; UINT32_MAX: no limit.
                            0: 100 */
  KestrelLogCallback logCallback; /* used with KESTREL_SINK_CALLBACK */
  void *logCallbackParam;         /* passed to logCallback, not otherwise used */
  uint32_t debugBurst;            /* texts that the debug channel prints per window; further ones
                                     are counted.  UINT32_MAX: no limit.  0: 100 */
} KestrelParam;

/* KestrelNew creates a host.
 *
 *   param       null: all defaults
 *   error       receives the reason of a failure, truncated to fit; may be null
 *   errorSize   of `error` in bytes
 *
 * Returns null when a member of `param` is out of range, a sink cannot be opened, the loop
 * fails, or there is no memory.  Delete the host with KestrelDelete. */
KST_API Kestrel *KestrelNew(const KestrelParam *param, char *error, uint32_t errorSize);

/* KestrelDelete stops the host's timers and watches, reports what is still allocated from its
 * pools to its log (KST_LOG_WARN), frees that memory and the host.  Null is accepted.
 * Not allowed inside a tick, a watch or any other callback of the host.
 *
 * A loop of the application remains usable.  The host's handles are closing in it, so run it once
 * more before uv_loop_close.
 *
 * Returns the number of allocations that were still in use. */
KST_API uint64_t KestrelDelete(Kestrel *host);

/* Handles for the application's start-up records, valid until the host is deleted, never 0. */
KST_API uint64_t KestrelMem(Kestrel *host);
KST_API uint64_t KestrelLog(Kestrel *host);
KST_API uint64_t KestrelDisp(Kestrel *host);
KST_API uint64_t KestrelTmr(Kestrel *host);
KST_API uint64_t KestrelDbg(Kestrel *host);

/* KestrelRun runs the loop until KestrelStop.
 *
 * Returns KESTREL_OK after a stop, KESTREL_FOREIGN_LOOP, or KESTREL_BUSY inside a run or turn. */
KST_API uint32_t KestrelRun(Kestrel *host);

/* KestrelTurn runs what is due now and returns without waiting; results as of KestrelRun. */
KST_API uint32_t KestrelTurn(Kestrel *host);

/* KestrelStop ends the current KestrelRun, or the next run or turn if there is none.
 * May be called from any thread and from a signal handler, until the host is deleted.
 *
 * Returns KESTREL_OK or KESTREL_FOREIGN_LOOP. */
KST_API uint32_t KestrelStop(Kestrel *host);

/* KestrelPollFd and KestrelPollTimeoutMs let an application with another main loop wait for the
 * host: it polls the descriptor for readability, at most that timeout in milliseconds, and then
 * calls KestrelTurn.  The timeout is 0 when something is due and -1 when only the descriptor can
 * wake the host. */
KST_API int KestrelPollFd(Kestrel *host);
KST_API int KestrelPollTimeoutMs(Kestrel *host);

/* KestrelFdReady is called from the loop while `fd` can be read without waiting, also for end of
 * file and socket errors (the read then reports them).  It may watch and unwatch any descriptor. */
typedef void (*KestrelFdReady)(void *param, int fd);

/* KestrelWatch calls `ready` whenever `fd` is readable.  The descriptor remains the caller's; it is
 * made non-blocking.  Unwatch it before you close it.
 *
 * Returns KESTREL_OK, KESTREL_BAD_ARGUMENT, KESTREL_EXISTS, KESTREL_NO_MEMORY, or KESTREL_SYSTEM
 * when the descriptor cannot be polled (a regular file, or not open). */
KST_API uint32_t KestrelWatch(Kestrel *host, int fd, KestrelFdReady ready, void *param);

/* KestrelUnwatch ends the watch; `ready` is not called again.
 *
 * Returns KESTREL_OK or KESTREL_NOT_FOUND. */
KST_API uint32_t KestrelUnwatch(Kestrel *host, int fd);

/* ---- memory pools ---- */

/* KestrelPoolNew creates another pool besides the host's own, for example one per service.
 *
 *   name         copied; appears in the leak report
 *   limitBytes   as KestrelParam.memLimitBytes
 *   pool         receives the handle for KST_Malloc_ and related functions
 *
 * Returns KESTREL_OK, KESTREL_BAD_ARGUMENT or KESTREL_NO_MEMORY. */
KST_API uint32_t KestrelPoolNew(Kestrel *host, const char *name, uint64_t limitBytes,
                                uint64_t *pool);

/* KestrelPoolDelete reports what is still allocated from a pool of KestrelPoolNew to the log and
 * frees it.  Remaining pools are deleted with the host.
 *
 *   leaked   receives the number of allocations that were still in use; may be null
 *
 * Returns KESTREL_OK, or KESTREL_NOT_FOUND for any other handle, including the host's own pool. */
KST_API uint32_t KestrelPoolDelete(Kestrel *host, uint64_t pool, uint64_t *leaked);

/* KestrelMemStat has the statistics of one pool.  Bytes are requested bytes. */
typedef struct KestrelMemStat {
  uint64_t liveCount;
  uint64_t liveBytes;
  uint64_t peakCount;    /* highest liveCount so far */
  uint64_t peakBytes;    /* highest liveBytes so far */
  uint64_t allocCount;   /* successful allocations so far */
  uint64_t allocBytes;   /* their sum */
  uint64_t freeCount;    /* successful frees so far */
  uint64_t refusedCount; /* allocations refused by the limit or for lack of memory */
  uint64_t badFreeCount; /* frees of pointers that are not in use in the pool */
  uint64_t limitBytes;   /* 0: none */
} KestrelMemStat;

/* KestrelMemTagStat is the share of one tag (text and number) in a pool; tags beyond 65535 share
 * the tag ("other", 0). */
typedef struct KestrelMemTagStat {
  const char *tag; /* the text passed to KST_Malloc_ */
  uint32_t num;
  uint64_t liveCount;
  uint64_t liveBytes;
  uint64_t allocCount; /* so far */
} KestrelMemTagStat;

/* KestrelMemStatGet reads the statistics of a pool.
 *
 * Returns KESTREL_OK, or KESTREL_BAD_ARGUMENT for pool 0. */
KST_API uint32_t KestrelMemStatGet(uint64_t pool, KestrelMemStat *stat);

/* KestrelMemTagGet reads the tags of a pool by index, in the order of their first use.
 *
 * Returns KESTREL_OK, KESTREL_BAD_ARGUMENT for pool 0, or KESTREL_NOT_FOUND after the last. */
KST_API uint32_t KestrelMemTagGet(uint64_t pool, uint32_t index, KestrelMemTagStat *stat);

/* ---- log ---- */

/* KestrelLogStat has counts since the host's start. */
typedef struct KestrelLogStat {
  uint64_t printed[4]; /* by level, all channels */
  uint64_t suppressedByLevel;
  uint64_t suppressedByRate; /* also of the debug channel */
  uint64_t counted;          /* calls of KST_LogCnt */
  uint64_t sinkErrors;       /* records a sink failed to write, for example on a full disk */
  uint64_t siteCount;        /* known sites; those beyond 4096 share the site ("other", 0) */
} KestrelLogStat;

/* KestrelLogSite has the counts of one site, the pair of module and line. */
typedef struct KestrelLogSite {
  uint64_t counted;    /* calls of KST_LogCnt */
  uint64_t printed;    /* records allowed by KST_LogFirstHalf_ */
  uint64_t suppressed; /* records suppressed by the rate limit */
} KestrelLogSite;

/* KestrelLogStatGet reads the totals. */
KST_API void KestrelLogStatGet(Kestrel *host, KestrelLogStat *stat);

/* KestrelLogSiteGet reads one site; all zero for an unknown site. */
KST_API void KestrelLogSiteGet(Kestrel *host, const char *module, uint32_t line,
                               KestrelLogSite *site);

/* ---- asserts ---- */

enum {
  KESTREL_ASSERT_RESULT = 1900000999, /* what TARN_Assert returns */
  KESTREL_ASSERTS_KEPT = 32           /* number of last asserts that can be read */
};

/* KestrelAssert is one call of TARN_Assert.  Asserts belong to the process, not to a host; while
 * hosts exist, the oldest of them logs them (KST_LOG_ERROR, rate-limited like any site). */
typedef struct KestrelAssert {
  const char *path; /* as passed; never null */
  uint32_t line;
} KestrelAssert;

/* KestrelAssertCount counts the asserts of the process since its start or the last clear. */
KST_API uint64_t KestrelAssertCount(void);

/* KestrelAssertGet reads one of the last asserts.
 *
 *   back   0: the newest
 *
 * Returns KESTREL_OK, or KESTREL_NOT_FOUND when there were fewer or it is no longer kept. */
KST_API uint32_t KestrelAssertGet(uint32_t back, KestrelAssert *assertion);

/* KestrelAssertClear discards all asserts. */
KST_API void KestrelAssertClear(void);

/* ---- display commands ---- */

enum {
  KESTREL_DISP_MAX_LINE = 4096,       /* bytes of a command line */
  KESTREL_DISP_DEFAULT_PAGES = 100000 /* default page limit */
};

/* KestrelDispSink receives output of a command.
 *
 *   error   0: the command printed it; 1: the service says why the command did not run or was
 *           truncated, one line without a line feed
 *   text    `len` bytes, not NUL-terminated, valid during the call
 *
 * Returns 0 to continue; any other value drops the rest and ends the command after this page. */
typedef uint32_t (*KestrelDispSink)(void *param, uint32_t error, const char *text, size_t len);

/* KestrelDispRequest is one command line to run. */
typedef struct KestrelDispRequest {
  const char *line;     /* command words, then parameters, separated by blanks or tabs; words with
                           blanks and empty words need double quotes; a trailing CR or LF or both
                           are ignored */
  const char *object;   /* name of the object.  Null: any that has the command */
  uint32_t maxPages;    /* maximum calls of the handler.  0: KESTREL_DISP_DEFAULT_PAGES */
  KestrelDispSink sink; /* null: output is dropped */
  void *sinkParam;      /* passed to sink, not otherwise used */
} KestrelDispRequest;

/* KestrelDispRun runs a display command with all its pages.  The longest command that the line
 * begins with is used.  A handler may unregister its own object; the command then ends.
 *
 * Returns KESTREL_OK, KESTREL_BAD_ARGUMENT, KESTREL_NO_MEMORY, KESTREL_BUSY inside a handler, or
 * one of KESTREL_BAD_LINE to KESTREL_STOPPED; the sink gets the reason, except for
 * KESTREL_STOPPED. */
KST_API uint32_t KestrelDispRun(Kestrel *host, const KestrelDispRequest *request);

/* KestrelDispCommand describes one registered command. */
typedef struct KestrelDispCommand {
  const char *object;
  const char *command;
  const char *handlerName;
  uint32_t flags; /* as registered */
  uint32_t paramCount;
  const char *params[4]; /* their names; null beyond paramCount */
} KestrelDispCommand;

/* KestrelDispVisitObject and KestrelDispVisitCommand receive the entries of a listing; the texts
 * are valid during the call.  They must not register or unregister anything.  A result other than 0
 * ends the listing. */
typedef uint32_t (*KestrelDispVisitObject)(void *param, const char *object);
typedef uint32_t (*KestrelDispVisitCommand)(void *param, const KestrelDispCommand *command);

/* KestrelDispObjects lists the objects in order of their names. */
KST_API void KestrelDispObjects(Kestrel *host, KestrelDispVisitObject visit, void *param);

/* KestrelDispCommands lists commands in order of object and command, for help and completion.
 *
 *   object   null: of all objects
 *   prefix   only commands that begin with this text; null or empty: all */
KST_API void KestrelDispCommands(Kestrel *host, const char *object, const char *prefix,
                                 KestrelDispVisitCommand visit, void *param);

/* KestrelDispAccess describes how operators' consoles reach the display commands. */
typedef struct KestrelDispAccess {
  const char *path;        /* of the UNIX socket, at most 107 bytes; copied */
  uint32_t maxConsoles;    /* consoles connected at once; further ones get an error.  0: 16 */
  uint64_t maxQueuedBytes; /* maximum output queued for one console; a page that exceeds it is
                              truncated, and the command ends.  0: 32 MiB */
} KestrelDispAccess;

/* KestrelDispListen serves the display commands on a UNIX socket, as kestrel_console.h describes,
 * until KestrelDispUnlisten or the host's deletion.  Only processes of the same user and of root
 * are served; the file has mode 0600.  A socket file left by a dead process is replaced.
 *
 * Commands are run from the loop, page by page, as fast as each console reads.
 *
 * Returns KESTREL_OK, KESTREL_BAD_ARGUMENT, KESTREL_EXISTS when the host already listens, another
 * process listens at the path or the file is not a socket, KESTREL_SYSTEM or KESTREL_NO_MEMORY. */
KST_API uint32_t KestrelDispListen(Kestrel *host, const KestrelDispAccess *access);

/* KestrelDispUnlisten disconnects all consoles and removes the socket.
 *
 * Returns KESTREL_OK, KESTREL_NOT_FOUND, or KESTREL_BUSY inside a display command. */
KST_API uint32_t KestrelDispUnlisten(Kestrel *host);

KST_C_END
#endif /* KESTREL_H */
