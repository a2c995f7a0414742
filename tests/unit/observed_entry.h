/* observed_entry.h: one observable server entry on a TestHost, with no neighbour but a fake lookup.
 *
 * Keys and values are texts of a fixed length; the entry has one observer until a test says
 * otherwise. */
#ifndef OBSERVED_ENTRY_H
#define OBSERVED_ENTRY_H

#include <cstring>
#include <string>
#include <vector>

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "test_host.h"

namespace coap_rpc_test {

// ByText orders keys of four bytes bytewise, ByLetter without regard to case.
inline int32_t ByText(const void *a, const void *b) { return memcmp(a, b, 4); }
inline int32_t ByLetter(const void *a, const void *b) {
  return strncasecmp(static_cast<const char *>(a), static_cast<const char *>(b), 4);
}

// ManyKey is a key of eight bytes.
inline std::string ManyKey(uint32_t i) { return "k" + std::to_string(10'000'000 + i).substr(1); }

class ObservedEntry {
 public:
  explicit ObservedEntry(uint16_t keyLen = 4, uint16_t valLen = 4, OSAL_AVL3_CMP cmp = ByText) {
    ctx.param.memHandle = host.Mem();
    ctx.param.tmrHandle = host.Tmr();
    ctx.param.dispHandle = host.Disp();
    ctx.log = host.Log();
    ctx.ser = &ser.data;
    ser.data.owner = &ctx;
    ser.data.findUriVtbl = FindUriVtbl;
    ser.data.notifyObservers = NotifyObservers;
    ser.data.refreshTaskTimer = RefreshTaskTimer;
    ser.test = this;
    ob.keyLen = keyLen;
    ob.valLen = valLen;
    ob.tupleKeyCmp = cmp;
    strcpy(entry.key.uri, "sensors/temp");
    entry.key.observe = 1;
    entry.owner = &ser.data;
    entry.obVtbl = &ob;
    entry.tupleSetDesc = {cmp, offsetof(CoapRpcUriTuple, key), offsetof(CoapRpcUriTuple, node)};
    entry.observerNum = 1;
  }
  ObservedEntry(const ObservedEntry &) = delete;
  ObservedEntry &operator=(const ObservedEntry &) = delete;
  ~ObservedEntry() {
    COAP_RpcSerDelAllUriTuple(&ctx, &entry);
    COAP_RpcSerStopUriUpdateTimer(&entry);
    CoapRpcSerOrphanChgs(&entry);
    CoapRpcSerFreeOrphanChgs(&ctx);
    EXPECT_TRUE(host.Pool().Violations().empty());
  }

  uint32_t Update(const char *key, const char *val) {
    return COAP_RpcSerUpdateTuple(&ctx, &entry, key, val);
  }
  uint32_t Chg(const char *key, const char *val, uint32_t chgType) {
    return COAP_RpcSerProcTupleChg(&ctx, &entry, &entry.key, key, val, chgType);
  }

  // QueueMany queues updates of `numKeys` different keys of eight bytes.
  void QueueMany(uint32_t numKeys, uint32_t from = 0) {
    for (uint32_t i = from; i < from + numKeys; ++i) {
      ASSERT_EQ(Chg(ManyKey(i).c_str(), "val1", 1), 0u);
    }
  }

  // Changes are the records on the list, from the head.
  std::vector<CoapRpcTupleChg *> Changes() {
    std::vector<CoapRpcTupleChg *> changes;
    CoapRpcLink &head = entry.tupleChgList;
    for (CoapRpcLink *link = head.next; link && link != &head; link = link->next) {
      changes.push_back(reinterpret_cast<CoapRpcTupleChg *>(link));  // chgLink comes first
    }
    return changes;
  }

  // ChangeTexts shows the changes as "<type><key>=<value>"; a zero byte shows as '.'.
  std::vector<std::string> ChangeTexts() {
    std::vector<std::string> texts;
    for (const CoapRpcTupleChg *chg : Changes()) {
      texts.push_back(std::to_string(chg->chgType) + Text(chg->key));
    }
    return texts;
  }

  // TupleTexts shows the set in order as "<key>=<value>".
  std::vector<std::string> TupleTexts() {
    std::vector<std::string> texts;
    for (CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(&entry); tuple;
         tuple = COAP_RpcSerGetNextUriTuple(&entry, tuple)) {
      texts.push_back(Text(tuple->key));
    }
    return texts;
  }

  TestHost host;
  CoapRpcCtx ctx = {};
  struct {
    CoapRpcSerData data;
    ObservedEntry *test;
  } ser = {};
  CoapRpcSerObVtblReg ob = {};
  CoapRpcSerUriVtbl entry = {};
  uint32_t numNotified = 0;
  uint32_t numRefreshed = 0;

 private:
  static ObservedEntry *TestOf(CoapRpcSerData *data) {
    return reinterpret_cast<decltype(ObservedEntry::ser) *>(data)->test;
  }
  static CoapRpcSerUriVtbl *FindUriVtbl(CoapRpcSerData *data, const CoapRpcUriKey *key) {
    CoapRpcSerUriVtbl *entry = &TestOf(data)->entry;
    return COAP_RpcUriKeyCmp(&entry->key, key) == 0 ? entry : nullptr;
  }
  static uint32_t NotifyObservers(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
    ObservedEntry *test = TestOf(ctx->ser);
    EXPECT_EQ(entry, &test->entry);
    ++test->numNotified;
    return 7;
  }
  static uint32_t RefreshTaskTimer(CoapRpcCtx *ctx) { return ++TestOf(ctx->ser)->numRefreshed; }

  std::string Text(const uint8_t *key) const {
    std::string text(key, key + ob.keyLen);
    text += '=';
    text.append(key + ob.keyLen, key + ob.keyLen + ob.valLen);
    for (char &c : text) c = c == '\0' ? '.' : c;
    return text;
  }
};

}  // namespace coap_rpc_test

#endif /* OBSERVED_ENTRY_H */
