/* coap_rpc_lib_under_way_disp.cpp: what is under way, as tables: calls, unacknowledged base
 * requests, and requests that the application has not answered.
 *
 * A dump goes on from the key of its last row, which may be gone by then.  Calls come first, in the
 * order in which they are due, then base requests by session and Message ID; asynchronous requests
 * come in the order of their handles, which the two kinds of entries share. */
#include <cinttypes>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async_queue.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_stats.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_traffic.h"

namespace coap_rpc {
namespace {

// AddressText is "address:port".
class AddressText {
 public:
  AddressText() = default;
  explicit AddressText(const coap_address_t *addr) {
    if (!addr || coap_print_addr(addr, reinterpret_cast<uint8_t *>(text_), sizeof(text_)) == 0) {
      snprintf_truncated_s(text_, sizeof(text_), "-");
    }
  }
  const char *c_str() const { return text_; }

 private:
  char text_[64] = {};
};

AddressText LocalText(const coap_session_t *session) {
  return AddressText(coap_session_get_addr_local(session));
}
AddressText RemoteText(const coap_session_t *session) {
  return AddressText(coap_session_get_addr_remote(session));
}

uint64_t MsOf(coap_tick_t ticks) { return ticks * 1000 / COAP_TICKS_PER_SECOND; }

const char *MethodText(unsigned code) {
  static const char *const kTexts[] = {"?",      "GET",   "POST",  "PUT",
                                       "DELETE", "FETCH", "PATCH", "iPATCH"};
  return code < std::size(kTexts) ? kTexts[code] : kTexts[0];
}

// ---- calls and base requests ----

// RequestPlace is where a row stands: that of a call, or of a message of libcoap's.
struct RequestPlace {
  uint64_t isBase;
  CallDue due;                    // of a call
  const coap_session_t *session;  // of a base request; only compared
  int64_t mid;
};

struct RequestPlaceBytes {
  uint8_t bytes[sizeof(RequestPlace)];
};

// RequestRow is a row before it is written.
struct RequestRow {
  RequestPlaceBytes key;
  const RpcCall *call;  // null for a base request
  CoapRpcLibSending sending;
  bool isSending;
};

CoapRpcCalls *CallsOf(const CoapRpcCtx *ctx) { return ctx->lib ? ctx->lib->calls : nullptr; }

void SetPlace(RequestRow &row, const RequestPlace &place) {
  memcpy(row.key.bytes, &place, sizeof(place));
}

bool FillCall(const RpcCall *call, RequestRow &row) {
  if (!call) return false;
  row.call = call;
  row.isSending = call->state != CallState::kQueued &&
                  CoapRpcLibFindSending(SessionOf(*call), call->mid, &row.sending) != 0;
  SetPlace(row, {0, call->due, nullptr, 0});
  return true;
}

// IsOfCalls says whether a message is a call's; calls have rows of their own.
int IsOfCalls(void *calls, const coap_session_t *session, const coap_pdu_t *pdu) {
  const coap_bin_const_t token = CoapRpcLibRequestToken(session, pdu);
  return FindRpcCall(static_cast<CoapRpcCalls *>(calls), IdOf(token)) != nullptr;
}

bool FillBase(CoapRpcCtx *ctx, const coap_session_t *session, int64_t mid, RequestRow &row) {
  if (!ctx->lib || !ctx->lib->coapCtx) return false;
  CoapRpcLibSending &sending = row.sending;
  const bool isFound =
      CoapRpcLibNextSending(ctx->lib->coapCtx, session, static_cast<coap_mid_t>(mid), IsOfCalls,
                            CallsOf(ctx), &sending) != 0;
  if (!isFound) return false;
  row.call = nullptr;
  row.isSending = true;
  SetPlace(row, {1, {}, sending.session, sending.mid});
  return true;
}

bool FillFirst(CoapRpcCtx *ctx, RequestRow &row) {
  CoapRpcCalls *calls = CallsOf(ctx);
  if (calls && FillCall(FirstDue(calls), row)) return true;
  return FillBase(ctx, nullptr, 0, row);
}

bool FillNext(CoapRpcCtx *ctx, const RequestPlaceBytes &key, RequestRow &row) {
  RequestPlace place;
  memcpy(static_cast<void *>(&place), key.bytes, sizeof(place));
  if (place.isBase != 0) return FillBase(ctx, place.session, place.mid, row);
  CoapRpcCalls *calls = CallsOf(ctx);
  if (calls && FillCall(NextDue(calls, place.due), row)) return true;
  return FillBase(ctx, nullptr, 0, row);
}

const char *StateText(CallState state) {
  static const char *const kTexts[] = {"queued", "sent", "watched", "leaving", "ended"};
  return kTexts[static_cast<uint32_t>(state)];
}

// DueMs is how long a call may take yet, or until an observation is renewed.
uint64_t DueMs(const RpcCall &call) {
  const coap_tick_t now = NowTicks();
  return call.due.at > now ? MsOf(call.due.at - now) : 0;
}

void PrintCall(const RequestRow &row, char *buf, uint32_t size) {
  const RpcCall &call = *row.call;
  const coap_session_t *session = SessionOf(call);
  snprintf_truncated_s(
      buf, size,
      "kind(%s)/id(%016" PRIx64
      ")/server(%s)/local(%s)/state(%s)/mid(%d)/attempts(%u)/ageMs(%" PRIu64 ")/dueMs(%" PRIu64 ")",
      call.watch ? "observe" : "call", call.id, RemoteText(session).c_str(),
      LocalText(session).c_str(), StateText(call.state), call.mid,
      row.isSending ? row.sending.attempts : 0, MsOf(NowTicks() - call.startedAt), DueMs(call));
}

void PrintBase(const RequestRow &row, char *buf, uint32_t size) {
  const CoapRpcLibSending &sending = row.sending;
  snprintf_truncated_s(
      buf, size,
      "kind(base)/id(-)/server(%s)/local(%s)/state(sent)/mid(%d)/attempts(%u)/ageMs(%" PRIu64
      ")/dueMs(0)",
      RemoteText(sending.session).c_str(), LocalText(sending.session).c_str(), sending.mid,
      sending.attempts, MsOf(sending.age));
}

void PrintRequest(CoapRpcCtx *ctx, int32_t counter, const RequestRow &row) {
  char text[kRecordTextSize];
  if (row.call) {
    PrintCall(row, text, sizeof(text));
  } else {
    PrintBase(row, text, sizeof(text));
  }
  KST_DispPrintf_(ctx->param.dispHandle, "client call[%3d]: %s\n", counter, text);
}

// ---- asynchronous requests ----

int32_t CompareHandles(const void *a, const void *b) {
  const uintptr_t handleA = *static_cast<const uintptr_t *>(a);
  const uintptr_t handleB = *static_cast<const uintptr_t *>(b);
  return (handleA > handleB) - (handleA < handleB);
}

using BaseRequests = COAP_RPC_TABLE(CoapRpcAsync, id, uintptr_t, CompareHandles);
using DirectRequests = COAP_RPC_TABLE(DirectAsync, id, uintptr_t, CompareHandles);

struct HandleBytes {
  uint8_t bytes[sizeof(uintptr_t)];
};

struct AsyncRow {
  HandleBytes key;
  uintptr_t handle;
  const char *kind;
  const CoapRpcSerUriVtbl *entry;
  AddressText peer;
  unsigned code;
  bool isOpen;
  coap_tick_t arrived;
};

// AddressOf makes libcoap's address of a peer again.
coap_address_t AddressOf(const PeerKey &key) {
  coap_address_t addr;
  coap_address_init(&addr);
  addr.addr.sa.sa_family = key.family;
  if (key.family == AF_INET) {
    addr.size = sizeof(addr.addr.sin);
    memcpy(&addr.addr.sin.sin_addr, key.addr, sizeof(addr.addr.sin.sin_addr));
  } else {
    addr.size = sizeof(addr.addr.sin6);
    memcpy(&addr.addr.sin6.sin6_addr, key.addr, sizeof(addr.addr.sin6.sin6_addr));
  }
  coap_address_set_port(&addr, key.port);
  return addr;
}

AsyncRow RowOf(const CoapRpcAsync &async) {
  const coap_address_t addr = AddressOf(async.request.peer);
  return {{},
          async.id,
          "base",
          async.entry,
          AddressText(&addr),
          async.code,
          async.state == AsyncState::kOpen,
          async.arrived};
}

AsyncRow RowOf(const DirectAsync &async) {
  return {{},
          async.id,
          "direct",
          async.entry->entry,
          RemoteText(async.peer->session),
          static_cast<unsigned>(coap_pdu_get_code(async.request)),
          !async.isAnswered,
          async.arrived};
}

// FillNextAsync finds the request with the least handle that is greater than `after`.
bool FillNextAsync(CoapRpcCtx *ctx, uintptr_t after, AsyncRow &row) {
  if (!ctx->lib) return false;
  CoapRpcDirect *direct = ctx->lib->direct;
  const CoapRpcAsync *base = BaseRequests(ctx->lib->asyncTree).After(&after);
  const DirectAsync *other = direct ? DirectRequests(direct->asyncTree).After(&after) : nullptr;
  if (!base && !other) return false;
  const bool isBase = base && (!other || base->id < other->id);
  row = isBase ? RowOf(*base) : RowOf(*other);
  memcpy(row.key.bytes, &row.handle, sizeof(row.handle));
  return true;
}

bool FillFirst(CoapRpcCtx *ctx, AsyncRow &row) { return FillNextAsync(ctx, 0, row); }

bool FillNext(CoapRpcCtx *ctx, const HandleBytes &key, AsyncRow &row) {
  uintptr_t handle = 0;
  memcpy(&handle, key.bytes, sizeof(handle));
  return FillNextAsync(ctx, handle, row);
}

void PrintRequest(CoapRpcCtx *ctx, int32_t counter, const AsyncRow &row) {
  KST_DispPrintf_(ctx->param.dispHandle,
                  "server async[%3d]: handle(%" PRIuPTR
                  ")/kind(%s)/uri(%s)/method(%s)/peer(%s)/state(%s)/ageMs(%" PRIu64 ")\n",
                  counter, row.handle, row.kind, UriText(row.entry->key.uri).c_str(),
                  MethodText(row.code), row.peer.c_str(), row.isOpen ? "open" : "answered",
                  MsOf(NowTicks() - row.arrived));
}

// ---- dumps ----

// DumpNextRow is DumpNextRecord for rows that are made when they are shown.
template <typename Row>
uint32_t DumpNextRow(CoapRpcCtx *ctx, const char *what) {
  using Key = decltype(Row::key);
  static_assert(sizeof(Key) <= KST_DISP_MAX_KEY_LEN);
  const uint64_t disp = ctx->param.dispHandle;
  int32_t counter = 0;
  Row row = {};
  const auto *last = static_cast<const Key *>(KST_DispGetLastCtx_(disp, &counter));
  if (!(last ? FillNext(ctx, *last, row) : FillFirst(ctx, row))) {
    KST_DispPrintf_(disp, " ***total %d %s(s) ***\n", counter, what);
    return 0;
  }
  PrintRequest(ctx, counter, row);
  ++counter;
  KST_DispSaveCtx_(disp, &row.key, sizeof(Key), &counter, sizeof(counter));
  return 0;
}

uint32_t DispCall(void *ctx, ...) {
  return DumpNextRow<RequestRow>(static_cast<CoapRpcCtx *>(ctx), "client call");
}

uint32_t DispAsync(void *ctx, ...) {
  return DumpNextRow<AsyncRow>(static_cast<CoapRpcCtx *>(ctx), "server async");
}

constexpr DispCommand kCommands[] = {
    {"DispCall", DispCall, "disp client call", nullptr,
     "calls, observations and unacknowledged requests under way"},
    {"DispAsync", DispAsync, "disp server async", nullptr,
     "requests that the application has not answered"},
};

}  // namespace

void RegisterUnderWayCommands(const CoapRpcCtx *ctx) {
  for (const DispCommand &row : kCommands) RegisterCommand(ctx, row);
}

}  // namespace coap_rpc
