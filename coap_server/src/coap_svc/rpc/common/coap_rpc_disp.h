/* coap_rpc_disp.h: what the display commands of both sides share: registration, and the dump of a
 * table, one record per call.
 *
 * Between two calls records may be added and removed: the position is a key, and the next page
 * begins with the first record after it.  The counter counts records that were walked. */
#ifndef COAP_RPC_DISP_H
#define COAP_RPC_DISP_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "kst_disp.h"

// Null in a host without help for operators.
#pragma weak KST_DispDescribe

namespace coap_rpc {

inline constexpr uint32_t kOperatorCommand = 128;

// DispCommand is one row of a side's command list.
struct DispCommand {
  const char *handlerName;
  KST_DISP_FUNC handler;
  const char *command;
  const char *param;                 // name of the only parameter; null: the command has none
  const char *about;                 // what an operator's help says about the command
  const char *paramAbout = nullptr;  // and about its parameter
};

// DescribeCommand passes the help texts to a host that has a place for them.
inline void DescribeCommand(const CoapRpcCtx *ctx, const DispCommand &row) {
  if (!KST_DispDescribe) return;
  KST_DispDescribe(ctx->param.dispHandle, ctx->nameStr, row.command, row.about, row.param ? 1 : 0,
                   row.paramAbout);
}

// RegisterCommand adds a command to the instance's display object.  A host that refuses it leaves
// the operator without that command, nothing else.
inline void RegisterCommand(const CoapRpcCtx *ctx, const DispCommand &row) {
  const uint64_t disp = ctx->param.dispHandle;
  if (row.param) {
    KST_DispRegFunc_(disp, row.handlerName, row.handler, row.command, kOperatorCommand,
                     ctx->nameStr, 1, row.param);
  } else {
    KST_DispRegFunc_(disp, row.handlerName, row.handler, row.command, kOperatorCommand,
                     ctx->nameStr, 0);
  }
  DescribeCommand(ctx, row);
}

// DumpNextRecord runs one invocation of a table dump: the next record's line, or the total line
// when there is none.  Records before `startIndex` are counted, not printed.
//
// `Dump` says which table, as static members:
//   Data *DataOf(CoapRpcCtx *)              the side's context; null while it is not started
//   Rec *First(Data *)
//   Rec *Next(Data *, const Key &)          first record with a greater key
//   const Key &KeyOf(const Rec &)           what is saved, whole; alignment 1
//   char *Text(Data *, const Rec *, char *buf, uint32_t size)
//   void PrintLine(uint64_t disp, int32_t counter, const char *text)
//   void PrintTotal(uint64_t disp, int32_t counter)
template <typename Dump>
uint32_t DumpNextRecord(void *obj, uint32_t startIndex = 0) {
  using Key = typename Dump::Key;
  static_assert(alignof(Key) == 1);
  static_assert(sizeof(Key) <= KST_DISP_MAX_KEY_LEN);
  auto *ctx = static_cast<CoapRpcCtx *>(obj);
  const uint64_t disp = ctx->param.dispHandle;
  auto *data = Dump::DataOf(ctx);
  int32_t counter = 0;
  const auto *last = static_cast<const Key *>(KST_DispGetLastCtx_(disp, &counter));
  auto *rec = !data ? nullptr : last ? Dump::Next(data, *last) : Dump::First(data);
  if (!rec) {
    Dump::PrintTotal(disp, counter);
    return 0;
  }
  if (static_cast<uint32_t>(counter) >= startIndex) {
    char text[kRecordTextSize];
    Dump::PrintLine(disp, counter, Dump::Text(data, rec, text, sizeof(text)));
  }
  ++counter;
  KST_DispSaveCtx_(disp, &Dump::KeyOf(*rec), sizeof(Key), &counter, sizeof(counter));
  return 0;
}

// LabelledDump prints rows as "label[  0]: text", of a Dump that says their label and what a total
// counts.
template <typename Texts>
struct LabelledDump {
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "%s[%3d]: %s\n", Texts::kLabel, counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d %s(s) ***\n", counter, Texts::kCounted);
  }
};

// LowWord is what an Uninit without anything to undo returns of its argument.
inline uint32_t LowWord(const void *arg) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg));
}

}  // namespace coap_rpc

#endif /* COAP_RPC_DISP_H */
