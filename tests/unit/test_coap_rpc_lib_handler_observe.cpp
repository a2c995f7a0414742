// Observers coming and going, and resynchronisation, called by hand.
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"

#include "handler_objects.h"

namespace coap_rpc_test {
namespace {

int32_t KeyCmp(const void *a, const void *b) { return memcmp(a, b, 4); }

struct Seen {
  std::vector<uint32_t> observerNums;
  uint32_t numWalks = 0;
  uint32_t numTuples = 0;  // that the application has
};

Seen &Of(uint64_t userData) { return *reinterpret_cast<Seen *>(userData); }

uint32_t GiveTuple(Seen &seen, uint32_t i, void *key, void *val) {
  if (i >= seen.numTuples) return 1;
  memcpy(key, &i, 4);
  memcpy(val, "val", 4);
  return 0;
}

class ObserveHandler : public HandlerObjects {
 protected:
  ObserveHandler() {
    CoapRpcSerVtblReg reg = {};
    reg.userData = reinterpret_cast<uint64_t>(&seen_);
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = 4;
    ob.valLen = 4;
    ob.tupleKeyCmp = KeyCmp;
    ob.onObserverNum = [](uint64_t userData, uint32_t num) {
      Of(userData).observerNums.push_back(num);
    };
    ob.getFirstTuple = [](uint64_t userData, void *, void *key, void *val) {
      ++Of(userData).numWalks;
      return GiveTuple(Of(userData), 0, key, val);
    };
    ob.getNextTuple = [](uint64_t userData, void *, const void *last, void *key, void *val) {
      uint32_t i;
      memcpy(&i, last, 4);
      return GiveTuple(Of(userData), i + 1, key, val);
    };
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key_, &reg, &ob), 0u);
    entry_ = COAP_RpcSerFindUriVtbl(Ctx()->ser, &key_);
  }

  uint32_t BatchUpdate(const std::string &query, uint32_t code = 1) {
    CoapRpcMsgInfo info = {};
    info.code = code;
    coap_string_t text{query.size(), reinterpret_cast<uint8_t *>(const_cast<char *>(query.data()))};
    response_ = NewPdu(COAP_MESSAGE_ACK, 0);
    return COAP_RpcSerHandleObserveBatchUpdate(Ctx(), entry_, response_.get(), &info, &text);
  }

  const CoapRpcUriKey key_ = KeyOf("a/b", COAP_RPC_CON, 1);
  Seen seen_;
  CoapRpcSerUriVtbl *entry_ = nullptr;
  Pdu response_;
};

TEST_F(ObserveHandler, BatchUpdate_NoQueryOrNoGet_Gives1900000707) {
  CoapRpcMsgInfo info = {};
  info.code = 1;
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  EXPECT_EQ(COAP_RpcSerHandleObserveBatchUpdate(Ctx(), entry_, response.get(), &info, nullptr),
            1900000707u);
  EXPECT_EQ(BatchUpdate("_ual-checkcode=1", 2), 1900000707u);
  for (const char *query : {"", "_ual-checkcode", "_ual-checkcod=1", "x=1"}) {
    EXPECT_EQ(BatchUpdate(query), 1900000707u) << query;
  }
  EXPECT_EQ(seen_.numWalks, 0u);
}

TEST_F(ObserveHandler, BatchUpdate_CurrentEtagOrNothing_Gives1900000714) {
  entry_->etag = 18446744073709551615u;
  EXPECT_EQ(BatchUpdate("_ual-checkcode=18446744073709551615"), 1900000714u);
  EXPECT_EQ(BatchUpdate("_ual-checkcode="), 1900000714u);
  EXPECT_TRUE(OptionsOf(response_).empty());
  EXPECT_EQ(seen_.numWalks, 0u);
}

TEST_F(ObserveHandler, BatchUpdate_OtherTexts_WalkAndEcho) {
  entry_->etag = 5;
  uint32_t numWalks = 0;
  for (const char *query : {"_ual-checkcode=4", "_ual-checkcode=x5", "_ual-checkcode=4&more=1"}) {
    EXPECT_EQ(BatchUpdate(query), 0u) << query;
    EXPECT_EQ(seen_.numWalks, ++numWalks);
    EXPECT_EQ(OptionsOf(response_), (std::vector<OptionText>{{15, query}}));
  }
}

TEST_F(ObserveHandler, BatchUpdate_EtagZero_AlwaysWalks) {
  entry_->etag = 0;
  EXPECT_EQ(BatchUpdate("_ual-checkcode="), 0u);
  EXPECT_EQ(BatchUpdate("_ual-checkcode=0"), 0u);
  EXPECT_EQ(seen_.numWalks, 2u);
}

TEST_F(ObserveHandler, BatchUpdate_QueryLongerThanItsBuffer_IsHarmless) {
  EXPECT_EQ(BatchUpdate("_ual-checkcode=" + std::string(900, '1')), 0u);
}

TEST_F(ObserveHandler, BatchUpdate_StoresTheApplicationsTuples) {
  seen_.numTuples = 3;
  entry_->observerNum = 1;
  EXPECT_EQ(BatchUpdate("_ual-checkcode=4"), 0u);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(entry_), 3u);
  EXPECT_NE(entry_->tupleChgList.next, &entry_->tupleChgList);
}

TEST_F(ObserveHandler, BatchUpdate_StopsAtTheFirstFailure) {
  seen_.numTuples = 3;
  Ctx()->ser->updateTuple = [](CoapRpcCtx *, CoapRpcSerUriVtbl *entry, const void *, const void *) {
    ++entry->observerNum;
    return entry->observerNum == 2 ? 1u : 0u;
  };
  EXPECT_EQ(BatchUpdate("_ual-checkcode=4"), 0u);
  EXPECT_EQ(entry_->observerNum, 2u);
}

TEST_F(ObserveHandler, BatchUpdate_NoObserveRecord_WalksNothingAndReturns0) {
  CoapRpcSerUriVtbl plain = {};
  plain.etag = 5;
  plain.owner = Ctx()->ser;
  std::swap(plain.obVtbl, entry_->obVtbl);
  EXPECT_EQ(BatchUpdate("_ual-checkcode=4"), 0u);
  std::swap(plain.obVtbl, entry_->obVtbl);
  EXPECT_EQ(seen_.numWalks, 0u);
}

TEST_F(ObserveHandler, BatchUpdate_NoMemoryForTheWalk_Returns0) {
  seen_.numTuples = 3;
  for (uint64_t n = 1; n <= 3; ++n) {
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(BatchUpdate("_ual-checkcode=4"), 0u);
    EXPECT_EQ(seen_.numWalks, 0u);
  }
}

TEST_F(ObserveHandler, OnObserveReq_TellsTheCountAndReturnsTheWord) {
  entry_->observerNum = 7;
  EXPECT_EQ(COAP_RpcSerOnObserveReq_(123, entry_), 123u);
  EXPECT_EQ(seen_.observerNums, (std::vector<uint32_t>{7}));
  entry_->obVtbl->onObserverNum = nullptr;
  EXPECT_EQ(COAP_RpcSerOnObserveReq_(4, entry_), 4u);
  EXPECT_EQ(COAP_RpcSerOnObserveReq_(5, nullptr), 5u);
  CoapRpcSerUriVtbl plain = {};
  EXPECT_EQ(COAP_RpcSerOnObserveReq_(6, &plain), 6u);
  EXPECT_EQ(seen_.observerNums.size(), 1u);
}

TEST_F(ObserveHandler, TuplesForANewObserver_ReturnsTheLastResult) {
  EXPECT_EQ(COAP_RpcSerProcTupleForNewObserve_(Ctx(), entry_), 0u);
  COAP_RpcSerObserveDataUpdate(Ctx(), &key_, "k001", "v001");
  COAP_RpcSerObserveDataUpdate(Ctx(), &key_, "k002", "v002");
  static std::vector<std::string> calls;
  calls.clear();
  Ctx()->ser->procTupleChg = [](CoapRpcCtx *, CoapRpcSerUriVtbl *entry, const CoapRpcUriKey *key,
                                const void *tupleKey, const void *tupleVal, uint32_t chgType) {
    EXPECT_EQ(key, &entry->key);
    EXPECT_EQ(chgType, 1u);
    calls.push_back(std::string(static_cast<const char *>(tupleKey), 4) +
                    (tupleVal ? std::string(static_cast<const char *>(tupleVal), 4) : "-"));
    return static_cast<uint32_t>(calls.size());
  };
  EXPECT_EQ(COAP_RpcSerProcTupleForNewObserve_(Ctx(), entry_), 2u);
  EXPECT_EQ(calls, (std::vector<std::string>{"k001v001", "k002v002"}));
  entry_->obVtbl->valLen = 0;
  EXPECT_EQ(COAP_RpcSerProcTupleForNewObserve_(Ctx(), entry_), 4u);
  EXPECT_EQ(calls[2], "k001-");
}

TEST_F(ObserveHandler, NotifyObservers_UnknownResource_Returns0) {
  CoapRpcSerUriVtbl other = {};
  other.key = KeyOf("other");
  EXPECT_EQ(COAP_RpcSerNotifyObservers(Ctx(), &other), 0u);
  other.key = KeyOf(std::string(64, 'u').c_str(), 0x01010101);
  EXPECT_EQ(COAP_RpcSerNotifyObservers(Ctx(), &other), 0u);
  EXPECT_EQ(COAP_RpcSerNotifyObservers(Ctx(), entry_), 0u);
}

TEST_F(ObserveHandler, ObserverHooksWithoutServerSide_Return0) {
  CoapRpcCtx bare = {};
  EXPECT_EQ(COAP_RpcSerAddObserve(session_, nullptr, COAP_PROTO_UDP, nullptr, nullptr, nullptr,
                                  nullptr, &bare),
            0);
  EXPECT_EQ(COAP_RpcSerDelObserve(session_, nullptr, &bare), 0);
  EXPECT_EQ(COAP_RpcSerDelObserve(session_, nullptr, nullptr), 0);
}

TEST_F(ObserveHandler, ObserveUpdate_NoEntry_IsLogged) {
  Pdu request = NewPdu(COAP_MESSAGE_CON, 1);
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcSerHandleObserveUpdate(resource_, session_, request.get(), nullptr, response.get());
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcSerHandleObserveUpdate");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpc]server get vtbl failed.\n");
  EXPECT_EQ(coap_pdu_get_code(response.get()), 0);
}

TEST_F(ObserveHandler, ObserveUpdate_ResourceWithoutUserData_DoesNothing) {
  coap_resource_set_userdata(resource_, nullptr);
  const Pdu request = NewRequest();
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcSerHandleObserveUpdate(resource_, session_, request.get(), nullptr, response.get());
  EXPECT_TRUE(OptionsOf(response).empty());
  EXPECT_TRUE(host_.LogsOf("COAP_RpcSerHandleObserveUpdate").empty());
}

}  // namespace
}  // namespace coap_rpc_test
