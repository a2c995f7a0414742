#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_payload.h"

#include <jansson.h>

#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_clock.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_flight.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

using Changes = COAP_RPC_LIST(CoapRpcTupleChg, chgLink);

constexpr size_t kMsgNumBytes = 4;  // in front of all IDL messages
constexpr size_t kMsgLenBytes = 2;  // in front of each
static_assert(kPayloadBufSize <= 0xFFFF + kMsgNumBytes + kMsgLenBytes);

// A change whose element is in the payload carries this mark until libcoap has the payload: only
// then does it leave the list, to be in flight.  Changes that failed stay, in their place.  It is
// set before the builder runs: a builder that changes the same tuple merges into the change, which
// takes the mark off, and the newer state waits for the next payload.
constexpr uint8_t kBuiltMark = 0x80;

struct JsonDeleter {
  void operator()(json_t *json) const { json_decref(json); }
};
using JsonRef = std::unique_ptr<json_t, JsonDeleter>;

void FreeJsonText(void *text) {
  json_malloc_t alloc = nullptr;
  json_free_t release = nullptr;
  json_get_alloc_funcs(&alloc, &release);
  release(text);
}

struct JsonTextDeleter {
  void operator()(char *text) const { FreeJsonText(text); }
};
using JsonText = std::unique_ptr<char, JsonTextDeleter>;

// Body is a finished payload: what to send, the buffer that holds it, and who frees that.
struct Body {
  uint16_t mediaType;
  size_t len;
  void *buf;
  coap_release_large_data_t release;
};

void AnswerEmpty(coap_pdu_t *response) { coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED); }

bool MayBuild(CoapRpcSerUriVtbl *entry, const coap_pdu_t *response) {
  return entry->obVtbl && !Changes(entry->tupleChgList).IsEmpty() &&
         entry->isSendingLargeBlock == 0 && coap_pdu_get_type(response) != COAP_MESSAGE_ACK;
}

void RefreshEtag(CoapRpcSerUriVtbl *entry) { entry->etag = NowMs().value_or(entry->etag + 1); }

// Begin says whether a payload is to be built, and answers 2.01 when not.
bool Begin(const Exchange &to) {
  if (!MayBuild(to.entry, to.response)) {
    AnswerEmpty(to.response);
    return false;
  }
  coap_session_set_max_retransmit(to.session, kNotifyMaxRetransmit);
  RefreshEtag(to.entry);
  return true;
}

uint8_t KindOf(const CoapRpcTupleChg *chg) {
  return static_cast<uint8_t>(chg->chgType & ~kBuiltMark);
}

// EndBuilt takes the marks off and calls `take` for each change that had one.  None after
// `lastTried` carries it, and there may be many of them.
template <typename Take>
void EndBuilt(CoapRpcSerUriVtbl *entry, const CoapRpcTupleChg *lastTried, Take take) {
  if (!lastTried) return;
  Changes changes(entry->tupleChgList);
  bool isLast = false;
  CoapRpcTupleChg *next = nullptr;
  for (CoapRpcTupleChg *chg = changes.First(); chg && !isLast; chg = next) {
    isLast = chg == lastTried;
    next = changes.After(chg);
    const bool isBuilt = (chg->chgType & kBuiltMark) != 0;
    chg->chgType = KindOf(chg);
    if (isBuilt) take(chg);
  }
}

// KeepBuilt leaves the changes that were built to the next payload.
void KeepBuilt(CoapRpcSerUriVtbl *entry, const CoapRpcTupleChg *lastTried) {
  EndBuilt(entry, lastTried, [](CoapRpcTupleChg *) {});
}

// Records are what a payload needs besides itself.
struct Records {
  PoolPtr<BlockRecord> block;
  PoolPtr<Flight> flight;

  bool AreThere() const { return block && flight; }
};

// NewRecords makes the records, tied to each other until libcoap needs no blocks.
Records NewRecords(const Exchange &to) {
  Records records = {NewBlock(to.entry, to.session),
                     NewFlight(to.entry, to.session, coap_pdu_get_mid(to.response))};
  if (!records.AreThere()) return {};
  records.block->flight = records.flight.get();
  records.flight->block = records.block.get();
  return records;
}

// Send hands a body to libcoap.  The code is set first: libcoap takes it for the later blocks.
bool Send(const Exchange &to, const Body &body, PoolPtr<BlockRecord> block) {
  CoapRpcSerLargeBlockCtx *releaseCtx = StartBlock(std::move(block), body.buf);
  coap_pdu_set_code(to.response, COAP_RESPONSE_CODE_CONTENT);
  if (coap_add_data_large_response(to.resource, to.session, to.request, to.response, to.query,
                                   body.mediaType, -1, to.entry->etag, body.len,
                                   static_cast<const uint8_t *>(body.buf), body.release,
                                   releaseCtx) != 0) {
    return true;
  }
  CoapRpcLibClearBody(to.response);
  AnswerEmpty(to.response);
  return false;
}

// HandOver sends a body; the changes that are in it are in flight then, or stay where they are.
void HandOver(const Exchange &to, const Body &body, const CoapRpcTupleChg *lastTried,
              Records records) {
  if (!Send(to, body, std::move(records.block))) {
    return KeepBuilt(to.entry, lastTried);
  }
  DropOutdatedChgs(to.entry);
  EndBuilt(to.entry, lastTried, [&](CoapRpcTupleChg *chg) { TakeChg(records.flight->chgs, chg); });
  StartFlight(std::move(records.flight));
}

uint8_t *ValueOf(const CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg) {
  return entry->obVtbl->valLen != 0 ? chg->key + entry->obVtbl->keyLen : nullptr;
}

bool HasBuilders(const CoapRpcSerUriVtbl *entry) {
  return entry->obVtbl && entry->obVtbl->buildUpdate && entry->obVtbl->buildDelete;
}

// CallBuilder lets the application turn a change into an element.
uint32_t CallBuilder(const CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg, void *out) {
  const uint64_t userData = entry->reg.userData;
  return KindOf(chg) == COAP_RPC_CHG_UPDATE
             ? entry->obVtbl->buildUpdate(userData, chg->key, ValueOf(entry, chg), out)
             : entry->obVtbl->buildDelete(userData, chg->key, out);
}

bool IsUpdate(const CoapRpcTupleChg *chg) { return KindOf(chg) == COAP_RPC_CHG_UPDATE; }

void Mark(CoapRpcTupleChg *chg) { chg->chgType |= kBuiltMark; }
void Unmark(CoapRpcTupleChg *chg) { chg->chgType = KindOf(chg); }

// BuildEach calls `build` for the changes that are pending now, not for those that it adds, until
// it returns false.  Returns the last change tried; null for an empty list.
template <typename Build>
const CoapRpcTupleChg *BuildEach(CoapRpcSerUriVtbl *entry, Build build) {
  const Changes changes(entry->tupleChgList);
  const CoapRpcTupleChg *last = changes.Last();
  CoapRpcTupleChg *chg = changes.First();
  while (chg && build(chg) && chg != last) chg = changes.After(chg);
  return chg;
}

const CoapRpcTupleChg *BuildJsonArray(CoapRpcSerUriVtbl *entry, json_t *array) {
  CoapRpcCtx *ctx = CoapRpcSerRootOf(entry);
  return BuildEach(entry, [&](CoapRpcTupleChg *chg) {
    COAP_RPC_DEBUG(ctx, "[CoapRpc]app build observe response handle one data.\n");
    Mark(chg);
    if (COAP_RpcSerHandleOneData(ctx, entry, chg, array) != 0) Unmark(chg);
    return true;
  });
}

JsonText BuildJsonText(CoapRpcSerUriVtbl *entry, const CoapRpcTupleChg **lastTried) {
  const JsonRef root(json_object());
  JsonRef array(json_array());
  if (!root || !array || json_object_set(root.get(), "data", array.get()) != 0) return nullptr;
  {
    CallbackTime time(CoapRpcSerRootOf(entry), entry->key.uri, &entry->counts);
    *lastTried = BuildJsonArray(entry, array.get());
  }
  return JsonText(json_dumps(root.get(), JSON_COMPACT));
}

void SendJson(const Exchange &to, JsonText text, const CoapRpcTupleChg *lastTried,
              Records records) {
  const size_t len = strlen(text.get());
  COAP_RPC_DEBUG(
      to.ctx, "[CoapRpc]app build observe response success, uri:%s, len:%u, payload:%s.\n",
      UriText(to.entry->key.uri).c_str(), static_cast<uint32_t>(len), LineText(text.get()).c_str());
  const Body body{COAP_MEDIATYPE_APPLICATION_JSON, len, text.release(), COAP_OnLargeBlockSent};
  HandOver(to, body, lastTried, std::move(records));
}

// IdlWriter puts messages one after another into a payload buffer.
class IdlWriter {
 public:
  explicit IdlWriter(uint8_t *out) : out_(out) {}

  // Append copies a message; false: it does not fit.
  bool Append(const CoapRpcSerIdlMsgBuf &msg) {
    const size_t room = kPayloadBufSize - offset_;
    if (room < kMsgLenBytes || msg.len > room - kMsgLenBytes) return false;
    const uint8_t len[kMsgLenBytes] = {static_cast<uint8_t>(msg.len),
                                       static_cast<uint8_t>(msg.len >> 8)};
    if (!Copy(offset_, len, sizeof(len))) return false;
    if (!Copy(offset_ + kMsgLenBytes, msg.buf, msg.len)) return false;
    offset_ += kMsgLenBytes + msg.len;
    ++msgNum_;
    return true;
  }

  // Finish writes the number of messages.  Returns the payload's length.
  uint32_t Finish() {
    for (size_t i = 0; i < kMsgNumBytes; ++i) out_[i] = static_cast<uint8_t>(msgNum_ >> (8 * i));
    return static_cast<uint32_t>(offset_);
  }

  uint32_t MsgNum() const { return msgNum_; }
  uint32_t Offset() const { return static_cast<uint32_t>(offset_); }

 private:
  bool Copy(size_t at, const uint8_t *bytes, size_t len) {
    return len == 0 || memcpy_s(out_ + at, kPayloadBufSize - at, bytes, len) == 0;
  }

  uint8_t *out_;
  size_t offset_ = kMsgNumBytes;
  uint32_t msgNum_ = 0;
};

// LogTooLong tells once of each entry that a message fits into no payload: its change stays, and
// with it all that come after.
void LogTooLong(CoapRpcSerUriVtbl *entry, uint32_t len) {
  if (len <= kMaxIdlMsg || entry->lib.hasLoggedTooLong != 0) return;
  entry->lib.hasLoggedTooLong = 1;
  COAP_RPC_LOG(CoapRpcSerRootOf(entry)->log, kLogIdlMsgTooLong,
               "[CoapRpc]idl msg too long, nothing is published until its tuple is built shorter, "
               "uri:%s, len:%u, max:%u.\n",
               UriText(entry->key.uri).c_str(), len, kMaxIdlMsg);
}

const CoapRpcTupleChg *BuildIdlMessages(CoapRpcSerUriVtbl *entry, uint8_t *scratch,
                                        IdlWriter &writer) {
  CoapRpcCtx *ctx = CoapRpcSerRootOf(entry);
  CoapRpcSerIdlMsgBuf msg{scratch, 0, kPayloadBufSize};
  return BuildEach(entry, [&](CoapRpcTupleChg *chg) {
    COAP_RPC_DEBUG(ctx, "[CoapRpc]hdl one idl msg, msgNum: %u, offset: %u.\n", writer.MsgNum(),
                   writer.Offset());
    Mark(chg);
    if (COAP_RpcSerHandleOneIdlMsg(ctx, entry, chg, &msg) != 0) {
      Unmark(chg);
      COAP_RPC_DEBUG(ctx, "[CoapRpc]hdl one idl msg fail, msgNum: %u, offset: %u.\n",
                     writer.MsgNum(), writer.Offset());
      return true;
    }
    if (writer.Append(msg)) return true;
    Unmark(chg);
    COAP_RPC_DEBUG(ctx, "[CoapRpc] get payload memcpy fail, msgNum: %u, offset: %u.\n",
                   writer.MsgNum(), writer.Offset());
    LogTooLong(entry, msg.len);
    return false;
  });
}

// BuildIdl fills `out`; the changes that are in it carry the mark.
uint32_t BuildIdl(CoapRpcSerUriVtbl *entry, uint8_t *out, uint32_t *len,
                  const CoapRpcTupleChg **lastTried) {
  CoapRpcCtx *ctx = CoapRpcSerRootOf(entry);
  const uint64_t mem = ctx->param.memHandle;
  const PoolPtr<uint8_t> scratch(static_cast<uint8_t *>(PoolAlloc(mem, kPayloadBufSize)), {mem});
  if (!scratch) {
    COAP_RPC_LOG(ctx->log, kLogIdlPayloadNoMemory, "[CoapRpc] malloc fail.\n");
    return Code(kSiteIdlPayloadNoMemory);
  }
  IdlWriter writer(out);
  CallbackTime time(ctx, entry->key.uri, &entry->counts);
  *lastTried = BuildIdlMessages(entry, scratch.get(), writer);
  *len = writer.Finish();
  return 0;
}

void SendIdl(const Exchange &to, uint32_t len, PoolPtr<uint8_t> out,
             const CoapRpcTupleChg *lastTried, Records records) {
  COAP_RPC_DEBUG(to.ctx, "[CoapRpc]app build observe response success, uri:%s, len:%u.\n",
                 UriText(to.entry->key.uri).c_str(), len);
  const Body body{COAP_MEDIATYPE_TEXT_PLAIN, len, out.release(), COAP_OnLargeIdlMsgBlockSent};
  HandOver(to, body, lastTried, std::move(records));
}

}  // namespace

void coap_rpc::PublishJson(const Exchange &to) {
  if (!Begin(to)) return;
  // The records come first: nothing but the text can fail once the builders have run.
  Records records = NewRecords(to);
  const CoapRpcTupleChg *lastTried = nullptr;
  JsonText text = records.AreThere() ? BuildJsonText(to.entry, &lastTried) : nullptr;
  if (text) {
    SendJson(to, std::move(text), lastTried, std::move(records));
  } else {
    KeepBuilt(to.entry, lastTried);
    AnswerEmpty(to.response);
  }
}

void coap_rpc::PublishIdl(const Exchange &to) {
  if (!Begin(to)) return;
  const uint64_t mem = to.ctx->param.memHandle;
  PoolPtr<uint8_t> out(static_cast<uint8_t *>(PoolAlloc(mem, kPayloadBufSize)), {mem});
  Records records = NewRecords(to);
  uint32_t len = 0;
  const CoapRpcTupleChg *lastTried = nullptr;
  if (out && records.AreThere() && BuildIdl(to.entry, out.get(), &len, &lastTried) == 0) {
    SendIdl(to, len, std::move(out), lastTried, std::move(records));
  } else {
    AnswerEmpty(to.response);
  }
}

uint32_t COAP_RpcSerHandleOneData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg,
                                  struct json_t *array) {
  if (!HasBuilders(entry)) return Code(kSiteOneDataNoBuilder);
  JsonRef object(json_object());
  if (!object) return Violated(kSiteOneDataNoObject);
  if (IsUpdate(chg)) COAP_RPC_DEBUG(ctx, "[CoapRpc]app build observe response update.\n");
  if (CallBuilder(entry, chg, object.get()) != 0) return Code(kSiteOneDataBuilderFailed);
  // The array takes the object in any case.
  return json_array_append_new(array, object.release()) == 0 ? 0 : Code(kSiteOneDataNotAppended);
}

uint32_t COAP_RpcSerHandleOneIdlMsg(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg,
                                    CoapRpcSerIdlMsgBuf *msg) {
  if (!HasBuilders(entry)) {
    COAP_RPC_LOG(ctx->log, kLogOneIdlMsgNoBuilder, "[CoapRpc]func null.\n");
    return Code(kSiteOneIdlMsgNoBuilder);
  }
  if (!msg || !msg->buf) {
    COAP_RPC_LOG(ctx->log, kLogOneIdlMsgNoBuffer, "[CoapRpc]msg buf null.\n");
    return Code(kSiteOneIdlMsgNoBuffer);
  }
  if (IsUpdate(chg)) {
    COAP_RPC_DEBUG(ctx, "[CoapRpc]hdl one idl msg build update.\n");
  } else {
    COAP_RPC_DEBUG(ctx, "[CoapRpc]hdl one idl msg build delete.\n");
  }
  return CallBuilder(entry, chg, msg);
}

uint32_t COAP_RpcSerHandleIdlGetPayload(CoapRpcSerUriVtbl *entry, uint8_t *out, uint32_t *len) {
  const CoapRpcTupleChg *lastTried = nullptr;
  const uint32_t ret = BuildIdl(entry, out, len, &lastTried);
  if (ret != 0) return ret;
  EndBuilt(entry, lastTried, [=](CoapRpcTupleChg *chg) {
    entry->owner->delTupleChgData(CoapRpcSerRootOf(entry), chg);
  });
  return ret;
}

void COAP_OnLargeBlockSent(coap_session_t *, void *blockCtx) {
  auto *block = static_cast<BlockRecord *>(blockCtx);
  if (!block) return;
  FreeJsonText(block->head.buf);
  EndBlock(block);
}

void COAP_OnLargeIdlMsgBlockSent(coap_session_t *, void *blockCtx) {
  auto *block = static_cast<BlockRecord *>(blockCtx);
  if (!block) return;
  const CoapRpcSerUriVtbl *entry = block->head.entry;
  CoapRpcCtx *ctx = entry && entry->owner ? CoapRpcSerRootOf(entry) : nullptr;
  if (ctx && block->head.buf) COAP_RPC_DEBUG(ctx, "[CoapRpc]large block sent success.\n");
  PoolFree(block->mem, block->head.buf);
  EndBlock(block);
}
