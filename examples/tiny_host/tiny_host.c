/* tiny_host.c: a host of one's own, in one file.
 *
 * The library calls its host through the headers in platform/include and leaves those functions
 * undefined: this program defines all of them, the smallest way that keeps their contracts, and is
 * linked with nothing but the library.  It needs -rdynamic so that the library finds them.
 *
 * The instance at the end sends itself a note from one address to another and ends with its
 * arrival. */
#include <arpa/inet.h>
#include <coap_svc/rpc/coap_rpc.h>
#include <coap_svc/rpc/coap_rpc_cli.h>
#include <coap_svc/rpc/coap_rpc_ser.h>
#include <csvc_dbg.h>
#include <kst.h>
#include <osal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>
#include <time.h>

enum { kHandle = 1 }; /* there is one of each service, so any number but 0 will do */

/* ---- memory: the C library's, counted ----------------------------------------------------------
 */

static int64_t g_numLive;

void *KST_Malloc_(uint64_t mem, size_t size, const char *tag, uint32_t num) {
  (void)tag, (void)num;
  void *p = mem != 0 ? malloc(size != 0 ? size : 1) : NULL;
  if (p) ++g_numLive;
  return p;
}

uint32_t KST_Free_(uint64_t mem, void *p, const char *tag, uint32_t num) {
  (void)mem, (void)tag, (void)num;
  if (p) --g_numLive;
  free(p);
  return 0;
}

char *KST_StrNew(uint64_t mem, const char *fmt, ...) {
  va_list args, again;
  va_start(args, fmt);
  va_copy(again, args);
  const size_t size = (size_t)vsnprintf(NULL, 0, fmt, args) + 1;
  char *text = (char *)KST_Malloc_(mem, size, "KST_StrNew", 0);
  if (text) vsnprintf(text, size, fmt, again);
  va_end(again);
  va_end(args);
  return text;
}

void KST_StrDel(uint64_t mem, char *s) { KST_Free_(mem, s, "KST_StrNew", 0); }

/* ---- module tables -----------------------------------------------------------------------------
 */

uint32_t KST_ModsInit(const KST_ModEntry *rows, void *record, uint32_t rowCount) {
  for (uint32_t i = 0; i < rowCount; ++i) {
    const uint32_t ret = rows[i].init ? rows[i].init(record) : 0;
    if (ret != 0) return ret;
  }
  return 0;
}

uint32_t KST_ModsUninit(const KST_ModEntry *rows, void *record, uint32_t rowCount) {
  while (rowCount-- > 0) {
    if (rows[rowCount].uninit) rows[rowCount].uninit(record);
  }
  return 0;
}

/* ---- timers: a few slots, served by the main loop below ----------------------------------------
 */

enum { kMaxTimers = 64 };

typedef struct Timer {
  uint64_t id; /* 0: free */
  KST_TmrTick tick;
  void *param;
  uint64_t periodMs, dueMs;
} Timer;

static Timer g_timers[kMaxTimers];
static uint64_t g_lastTimerId;

static uint64_t NowMs(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return (uint64_t)now.tv_sec * 1000 + (uint64_t)now.tv_nsec / 1000000;
}

uint64_t KST_TmrStartLoop(uint64_t tmr, KST_TmrTick tick, uint32_t periodMs, void *param) {
  for (Timer *timer = g_timers; tmr != 0 && timer < g_timers + kMaxTimers; ++timer) {
    if (timer->id != 0) continue;
    const Timer started = {++g_lastTimerId, tick, param, periodMs,
                           NowMs(CLOCK_MONOTONIC) + periodMs};
    *timer = started;
    return timer->id;
  }
  return 0;
}

void KST_TmrStop(uint64_t tmr, uint64_t id) {
  (void)tmr;
  for (Timer *timer = g_timers; timer < g_timers + kMaxTimers; ++timer) {
    if (id != 0 && timer->id == id) timer->id = 0;
  }
}

/* A late tick keeps the phase, and what was missed altogether is not made up for.  The tick may
 * stop any timer, so nothing is remembered across it. */
static void RunTimers(void) {
  const uint64_t now = NowMs(CLOCK_MONOTONIC);
  for (Timer *timer = g_timers; timer < g_timers + kMaxTimers; ++timer) {
    if (timer->id == 0 || timer->dueMs > now) continue;
    timer->dueMs += ((now - timer->dueMs) / timer->periodMs + 1) * timer->periodMs;
    timer->tick(timer->param);
  }
}

/* ---- log: warnings and errors only when TINY_HOST_LOG is set ------------------------------------
 */

static KST_LogObj g_log; /* its fourth word, the counter, stays 0: nothing is counted */

void KST_LogCnt(uint64_t counter, const char *module, uint32_t line) {
  (void)counter, (void)module, (void)line;
}

uint32_t KST_LogFirstHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level) {
  (void)module, (void)line;
  return log != 0 && level >= KST_LOG_WARN && getenv("TINY_HOST_LOG") ? 0 : 1;
}

void KST_LogSecondHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level,
                        const char *func, const char *fmt, ...) {
  va_list args;
  (void)log, (void)level;
  fprintf(stderr, "%s:%u %s: ", module, line, func);
  va_start(args, fmt);
  vfprintf(stderr, fmt, args);
  va_end(args);
}

uint32_t CSVC_DBG_Takes(uint64_t dbg, uint32_t level) {
  (void)dbg, (void)level;
  return 0; /* so that nothing is formatted for it */
}

void CSVC_DBG_Debug(uint64_t dbg, uint32_t level, const char *fmt, ...) {
  (void)dbg, (void)level, (void)fmt;
}

void CSVC_DBG_SysLog(uint64_t dbg, uint32_t level, const char *fmt, ...) {
  (void)dbg, (void)level, (void)fmt;
}

uint32_t TARN_Assert(const char *path, uint32_t line, uint32_t zero) {
  (void)zero;
  fprintf(stderr, "broken contract at %s:%u\n", path, line);
  return 1;
}

/* ---- display commands: one object; commands without parameters ----------------------------------
 */

enum { kMaxCommands = 16, kMaxCommandLen = 64 };

static void *g_dispObject;
static struct Command {
  char text[kMaxCommandLen];
  KST_DISP_FUNC handler;
} g_commands[kMaxCommands];
static uint32_t g_numCommands;

/* The position of the command that runs; the reading half is what the last page saved. */
static uint8_t g_savedKey[KST_DISP_MAX_KEY_LEN], g_lastKey[KST_DISP_MAX_KEY_LEN];
static uint8_t g_counter[KST_DISP_MAX_COUNTER_LEN];
static uint32_t g_counterLen;
static int g_isPaging, g_hasSaved, g_hasLast;

uint32_t KST_DispRegObj(uint64_t disp, const char *name, void *obj) {
  (void)name;
  if (disp == 0 || g_dispObject) return 1;
  g_dispObject = obj;
  return 0;
}

uint32_t KST_DispUnregObj(uint64_t disp, const char *name) {
  (void)disp, (void)name;
  if (!g_dispObject) return 1;
  g_dispObject = NULL;
  g_numCommands = 0;
  return 0;
}

uint32_t KST_DispRegFunc_(uint64_t disp, const char *handlerName, KST_DISP_FUNC handler,
                          const char *command, uint32_t flags, const char *objName,
                          uint32_t paramCount, ...) {
  (void)handlerName, (void)flags, (void)objName;
  if (disp == 0 || !g_dispObject || g_numCommands == kMaxCommands) return 1;
  if (paramCount != 0) return 0; /* accepted, but this host has no way to run it */
  snprintf(g_commands[g_numCommands].text, kMaxCommandLen, "%s", command);
  g_commands[g_numCommands++].handler = handler;
  return 0;
}

void KST_DispPrintf_(uint64_t disp, const char *fmt, ...) {
  va_list args;
  (void)disp;
  if (!g_isPaging) return;
  va_start(args, fmt);
  vprintf(fmt, args);
  va_end(args);
}

void KST_DispSaveCtx_(uint64_t disp, const void *key, uint32_t keyLen, const void *counter,
                      uint32_t counterLen) {
  (void)disp;
  if (!g_isPaging || keyLen > sizeof(g_savedKey) || counterLen > sizeof(g_counter)) return;
  memcpy(g_savedKey, key, keyLen);
  memcpy(g_counter, counter, counterLen);
  g_counterLen = counterLen;
  g_hasSaved = 1;
}

const void *KST_DispGetLastCtx_(uint64_t disp, void *counter) {
  (void)disp;
  if (!g_hasLast) return NULL;
  memcpy(counter, g_counter, g_counterLen);
  return g_lastKey;
}

/* A handler that saved its position is invoked again. */
static void RunCommand(const char *text) {
  for (uint32_t i = 0; i < g_numCommands; ++i) {
    if (strcmp(g_commands[i].text, text) != 0) continue;
    g_isPaging = 1;
    g_hasLast = 0;
    do {
      g_hasSaved = 0;
      g_commands[i].handler(g_dispObject);
      memcpy(g_lastKey, g_savedKey, sizeof(g_lastKey));
      g_hasLast = g_hasSaved;
    } while (g_hasSaved);
    g_isPaging = 0;
  }
}

char *KST_GetMemStr(const void *bytes, uint32_t len, uint32_t perGroup, char *buf, uint32_t size) {
  const uint8_t *byte = (const uint8_t *)bytes;
  uint32_t used = 0;
  if (size != 0) buf[0] = 0;
  for (uint32_t i = 0; i < len; ++i) {
    const int isGroup = perGroup != 0 && i != 0 && i % perGroup == 0;
    if (used + (isGroup ? 3 : 2) >= size) break;
    used += (uint32_t)snprintf(buf + used, size - used, isGroup ? " %02x" : "%02x", byte[i]);
  }
  return buf;
}

/* ---- trees -------------------------------------------------------------------------------------
 */

/* The contract asks for order and for the node's state outside a tree.  This one is a treap: a
 * binary tree by key that is a heap by a number made from each node's address, and so is balanced
 * well enough without any data in the nodes. */

static uint64_t RankOf(const OSAL_AVL3_NODE *node) {
  uint64_t rank = (uint64_t)(uintptr_t)node * 0x9E3779B97F4A7C15u;
  rank ^= rank >> 29;
  return rank * 0xBF58476D1CE4E5B9u;
}

static const void *KeyOf(const OSAL_AVL3_DESC *desc, const OSAL_AVL3_NODE *node) {
  return (const uint8_t *)node - desc->nodeOffset + desc->keyOffset;
}

static OSAL_AVL3_NODE **SlotOf(OSAL_AVL3_TREE *tree, OSAL_AVL3_NODE *node) {
  if (!node->parent) return &tree->root;
  return node->parent->left == node ? &node->parent->left : &node->parent->right;
}

static void Attach(OSAL_AVL3_NODE **slot, OSAL_AVL3_NODE *parent, OSAL_AVL3_NODE *node) {
  *slot = node;
  if (node) node->parent = parent;
}

/* Rotates a node into its parent's place. */
static void Raise(OSAL_AVL3_TREE *tree, OSAL_AVL3_NODE *node) {
  OSAL_AVL3_NODE *parent = node->parent;
  OSAL_AVL3_NODE **slot = SlotOf(tree, parent);
  OSAL_AVL3_NODE *above = parent->parent;
  if (parent->left == node) {
    Attach(&parent->left, parent, node->right);
    Attach(&node->right, node, parent);
  } else {
    Attach(&parent->right, parent, node->left);
    Attach(&node->left, node, parent);
  }
  Attach(slot, above, node);
}

static OSAL_AVL3_NODE *Leftmost(OSAL_AVL3_NODE *node) {
  while (node && node->left) node = node->left;
  return node;
}

OSAL_AVL3_NODE *OSAL_AVL3_Insert_Or_Find(OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                                         OSAL_AVL3_NODE *node) {
  OSAL_AVL3_NODE **slot = &tree->root, *parent = NULL;
  while (*slot) {
    const int32_t order = desc->cmp(KeyOf(desc, node), KeyOf(desc, *slot));
    if (order == 0) return *slot;
    parent = *slot;
    slot = order < 0 ? &parent->left : &parent->right;
  }
  node->left = node->right = NULL;
  node->leftHeight = node->rightHeight = 0;
  node->parent = parent;
  *slot = node;
  while (node->parent && RankOf(node) > RankOf(node->parent)) Raise(tree, node);
  return NULL;
}

OSAL_AVL3_NODE *AVL3_Find_Or_Find_Next(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                                       const void *key) {
  OSAL_AVL3_NODE *node = tree->root, *greater = NULL;
  while (node) {
    const int32_t order = desc->cmp(key, KeyOf(desc, node));
    if (order == 0) return node;
    if (order < 0) greater = node;
    node = order < 0 ? node->left : node->right;
  }
  return greater;
}

OSAL_AVL3_NODE *OSAL_AVL3_Find(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                               const void *key) {
  OSAL_AVL3_NODE *node = AVL3_Find_Or_Find_Next(tree, desc, key);
  return node && desc->cmp(key, KeyOf(desc, node)) == 0 ? node : NULL;
}

OSAL_AVL3_NODE *OSAL_AVL3_First(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc) {
  (void)desc;
  return Leftmost(tree->root);
}

OSAL_AVL3_NODE *OSAL_AVL3_Next(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_NODE *node,
                               const OSAL_AVL3_DESC *desc) {
  (void)tree, (void)desc;
  if (node->right) return Leftmost(node->right);
  while (node->parent && node->parent->right == node) node = node->parent;
  return node->parent;
}

/* Sinks the node to where it has at most one child, which then takes its place. */
void OSAL_AVL3_Delete(OSAL_AVL3_TREE *tree, OSAL_AVL3_NODE *node, const OSAL_AVL3_DESC *desc) {
  static const OSAL_AVL3_NODE fresh = OSAL_AVL3_NODE_FRESH;
  (void)desc;
  if (node->leftHeight == -1) return;
  while (node->left && node->right) {
    Raise(tree, RankOf(node->left) > RankOf(node->right) ? node->left : node->right);
  }
  Attach(SlotOf(tree, node), node->parent, node->left ? node->left : node->right);
  *node = fresh;
}

/* ---- bytes, texts, clocks -----------------------------------------------------------------------
 */

int32_t OSAL_MemCmp(const void *a, const void *b, size_t len) {
  const int order = len != 0 ? memcmp(a, b, len) : 0;
  return (order > 0) - (order < 0);
}

char *OSAL_StrChr(const char *s, int c) { return strchr(s, c); }
char *OSAL_StrRChr(const char *s, int c) { return strrchr(s, c); }

uint32_t OSAL_MillSecNow(uint32_t *high, uint32_t *low) {
  const uint64_t now = NowMs(CLOCK_REALTIME);
  *high = (uint32_t)(now >> 32);
  *low = (uint32_t)now;
  return 0;
}

int32_t OSAL_SystimeGet(OSAL_Systime *now) {
  const time_t seconds = time(NULL);
  struct tm local;
  if (!localtime_r(&seconds, &local)) return -1;
  now->year = (uint32_t)local.tm_year + 1900;
  now->month = (uint32_t)local.tm_mon + 1;
  now->day = (uint32_t)local.tm_mday;
  now->hour = (uint32_t)local.tm_hour;
  now->minute = (uint32_t)local.tm_min;
  now->second = (uint32_t)local.tm_sec;
  now->millis = (uint32_t)(NowMs(CLOCK_REALTIME) % 1000);
  return 0;
}

char *OSAL_IpAddrToStrEx(uint32_t ipv4, char *buf, uint32_t len) {
  const int size =
      snprintf(buf, len, "%u.%u.%u.%u", ipv4 >> 24, ipv4 >> 16 & 255, ipv4 >> 8 & 255, ipv4 & 255);
  return (uint32_t)size < len ? buf : NULL;
}

uint32_t OSAL_Inet_ntoa_b_ipv6_ex(uint64_t high, uint64_t low, char *buf, uint32_t len) {
  const uint64_t bytes[2] = {high, low}; /* as they lie in memory */
  return inet_ntop(AF_INET6, bytes, buf, len) ? 0 : 1;
}

/* ---- the application ----------------------------------------------------------------------------
 */

enum { kPort = 15683, kPatienceMs = 10000 };

static int g_hasArrived;

static int32_t OnNote(uint64_t userData, const CoapRpcSerReqInfo *info, uint8_t *payload,
                      uint32_t payloadLen, uint8_t *out, uint32_t outSize) {
  (void)userData, (void)info, (void)payloadLen, (void)out, (void)outSize;
  printf("arrived: %s\n", payload);
  g_hasArrived = 1;
  return 0;
}

static int32_t BuildNote(uint64_t userData, const CoapRpcCliReqParam *req, uint8_t *out,
                         uint32_t outSize) {
  (void)userData, (void)req;
  return snprintf((char *)out, outSize, "hello from a tiny host");
}

/* Serves "note" on 127.0.0.3 and posts to it from 127.0.0.1. */
static uint32_t SendNote(CoapRpcCtx *ctx) {
  CoapRpcUriKey key = {"note", COAP_RPC_CON, 0, COAP_RPC_UNICAST};
  CoapRpcSerListenAddr listen = {{COAP_RPC_IPV4, {0}, {0x7F000003}}, kPort, {0}};
  CoapRpcSerVtblReg serReg = {COAP_RPC_JSON, 0, {0}, 0, OnNote, NULL};
  CoapRpcCliVtblReg cliReg = {COAP_RPC_JSON, 0, BuildNote, NULL, NULL, NULL};
  CoapRpcCliReqParam param = {0};
  CoapRpcCliAddr peer = {
      {COAP_RPC_IPV4, {0}, {0x7F000001}}, listen.listenAddr, kPort, COAP_RPC_POST, {0}};
  uint32_t ret = COAP_RpcSerRegVtbl(ctx, &key, &serReg, NULL);
  if (ret == 0) ret = COAP_RpcSerSetUri(ctx, &key, &listen);
  if (ret == 0) ret = COAP_RpcCliRegVtbl(ctx, &key, &cliReg);
  if (ret == 0) ret = COAP_RpcCliConReq(ctx, &key, &param, &peer);
  if (ret != 0) fprintf(stderr, "%s\n", COAP_RpcErrStr(ret));
  return ret;
}

static void RunUntilArrival(void) {
  const struct timespec aMoment = {0, 10L * 1000 * 1000};
  const uint64_t end = NowMs(CLOCK_MONOTONIC) + kPatienceMs;
  while (!g_hasArrived && NowMs(CLOCK_MONOTONIC) < end) {
    nanosleep(&aMoment, NULL);
    RunTimers();
  }
}

int main(void) {
  CoapRpcInitParam param = {0};
  param.name = "tiny";
  param.logEnable = 1;
  param.memHandle = kHandle;
  param.dispHandle = kHandle;
  param.logHandle = (uint64_t)(uintptr_t)&g_log;
  param.tmrHandle = kHandle;
  CoapRpcCtx *ctx = COAP_RpcInit(&param);
  if (!ctx) return 1;
  if (SendNote(ctx) == 0) RunUntilArrival();
  if (!g_hasArrived) printf("no note has arrived\n");
  RunCommand("disp server listen");
  RunCommand("disp client uriVtbl");
  COAP_RpcUninit(ctx);
  printf("%lld allocations left\n", (long long)g_numLive);
  return g_hasArrived && g_numLive == 0 ? 0 : 1;
}
