// Elements and IDL payloads built from pending changes, without libcoap.
#include <jansson.h>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_payload.h"
#include "observed_entry.h"

namespace coap_rpc_test {
namespace {

// Call is what a builder was given.
struct Call {
  char kind;
  std::string key;
  std::string val;  // "-" for none
  void *out;
};

struct Builder {
  std::vector<Call> calls;
  uint32_t result = 0;
  std::vector<uint32_t> lens;  // of the IDL messages, in order
  std::vector<uint32_t> lensSeen;
  std::vector<uint8_t> firstBytes;
};

Builder &Of(uint64_t userData) { return *reinterpret_cast<Builder *>(userData); }

void FillIdl(Builder &builder, void *out) {
  auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  builder.lensSeen.push_back(msg->len);
  builder.firstBytes.push_back(msg->buf[0]);
  const size_t i = builder.lensSeen.size() - 1;
  if (i >= builder.lens.size()) return;
  msg->len = builder.lens[i];
  memset(msg->buf, 'A' + static_cast<int>(i), std::min<size_t>(msg->len, msg->size));
}

template <bool kIsIdl>
uint32_t BuildUpdate(uint64_t userData, uint8_t *tuple, uint8_t *val, void *out) {
  const std::string text = val ? std::string(val, val + 4) : "-";
  Of(userData).calls.push_back({'u', std::string(tuple, tuple + 4), text, out});
  if (kIsIdl) FillIdl(Of(userData), out);
  return Of(userData).result;
}

template <bool kIsIdl>
uint32_t BuildDelete(uint64_t userData, uint8_t *tuple, void *out) {
  Of(userData).calls.push_back({'d', std::string(tuple, tuple + 4), "-", out});
  if (kIsIdl) FillIdl(Of(userData), out);
  return Of(userData).result;
}

class Payload : public testing::Test, public ObservedEntry {
 protected:
  explicit Payload(bool isIdl = false, uint16_t valLen = 4) : ObservedEntry(4, valLen) {
    ctx.param.dbgHandle = host.Dbg();
    ctx.lib = &lib_;
    ser.data.delTupleChgData = COAP_RpcSerDelTupleChgData;
    entry.reg.userData = reinterpret_cast<uint64_t>(&builder_);
    ob.buildUpdate = isIdl ? BuildUpdate<true> : BuildUpdate<false>;
    ob.buildDelete = isIdl ? BuildDelete<true> : BuildDelete<false>;
    TestHost::Process().ClearAsserts();
  }

  CoapRpcTupleChg *Queue(const char *key, const char *val, uint32_t chgType) {
    EXPECT_EQ(Chg(key, val, chgType), 0u);
    return ObservedEntry::Changes().back();
  }

  Builder builder_;
  CoapRpcLibCtx lib_ = {};
};

class OneData : public Payload {
 protected:
  ~OneData() override { json_decref(array_); }
  uint32_t Run(CoapRpcTupleChg *chg) { return COAP_RpcSerHandleOneData(&ctx, &entry, chg, array_); }

  json_t *array_ = json_array();
};

TEST_F(OneData, Update_GivesKeyAndValueAndAppendsTheObject) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  EXPECT_EQ(Run(chg), 0u);
  ASSERT_EQ(builder_.calls.size(), 1u);
  EXPECT_EQ(builder_.calls[0].kind, 'u');
  EXPECT_EQ(builder_.calls[0].key, "k001");
  EXPECT_EQ(builder_.calls[0].val, "v001");
  ASSERT_EQ(json_array_size(array_), 1u);
  EXPECT_EQ(json_array_get(array_, 0), builder_.calls[0].out);
  EXPECT_TRUE(host.HasDebug("[CoapRpc]app build observe response update.\n"));
  EXPECT_EQ(ObservedEntry::Changes().size(), 1u);  // removing is the caller's
}

TEST_F(OneData, AnyOtherKind_IsADelete) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  for (const uint8_t kind : {uint8_t{2}, uint8_t{0}, uint8_t{3}}) {
    chg->chgType = kind;
    EXPECT_EQ(Run(chg), 0u);
    EXPECT_EQ(builder_.calls.back().kind, 'd');
  }
  EXPECT_FALSE(host.HasDebug("[CoapRpc]app build observe response update.\n"));
}

TEST_F(OneData, MissingBuilder_Gives1900000438) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  ob.buildDelete = nullptr;
  EXPECT_EQ(Run(chg), 1900000438u);
  ob.buildDelete = BuildDelete<false>;
  ob.buildUpdate = nullptr;
  EXPECT_EQ(Run(chg), 1900000438u);
  EXPECT_EQ(json_array_size(array_), 0u);
}

TEST_F(OneData, FailedBuilder_Gives1900000457AndDropsTheObject) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  builder_.result = 1;
  EXPECT_EQ(Run(chg), 1900000457u);
  EXPECT_EQ(json_array_size(array_), 0u);
}

void *NoMemory(size_t) { return nullptr; }

TEST_F(OneData, NoMemoryForTheObject_Gives1900000443AndAssertsLine442) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  json_set_alloc_funcs(NoMemory, free);
  EXPECT_EQ(Run(chg), 1900000443u);
  json_set_alloc_funcs(malloc, free);
  EXPECT_EQ(TestHost::Process().Asserts(),
            (std::vector<AssertRecord>{
                {"coap_server/src/coap_svc/rpc/libadapter/coap_rpc_lib_handler", 442}}));
  EXPECT_TRUE(builder_.calls.empty());
}

TEST_F(OneData, NoMemoryToAppend_Gives1900001412AndDropsTheObject) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  uint32_t ret = 0;
  while (ret == 0 && json_array_size(array_) < 100) {  // until the array must grow
    static int numLeft;
    numLeft = 2;  // the object and its table
    json_set_alloc_funcs([](size_t size) { return numLeft-- > 0 ? malloc(size) : nullptr; }, free);
    ret = Run(chg);
  }
  json_set_alloc_funcs(malloc, free);
  EXPECT_EQ(ret, 1900001412u);
}

class PayloadWithoutValue : public Payload {
 protected:
  PayloadWithoutValue() : Payload(false, 0) {}
};

TEST_F(PayloadWithoutValue, UpdateBuilderGetsNoValue) {
  CoapRpcTupleChg *chg = Queue("k001", nullptr, 1);
  json_t *array = json_array();
  EXPECT_EQ(COAP_RpcSerHandleOneData(&ctx, &entry, chg, array), 0u);
  json_decref(array);
  ASSERT_EQ(builder_.calls.size(), 1u);
  EXPECT_EQ(builder_.calls[0].val, "-");
}

class IdlPayload : public Payload {
 protected:
  IdlPayload() : Payload(true) {}

  uint32_t Get() {
    payload_.assign(65471, 0xEE);
    return COAP_RpcSerHandleIdlGetPayload(&entry, payload_.data(), &len_);
  }

  std::vector<uint8_t> payload_;
  uint32_t len_ = 0;
};

TEST_F(IdlPayload, OneIdlMsg_ReturnsTheBuildersResult) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  uint8_t byte = 0;
  CoapRpcSerIdlMsgBuf msg{&byte, 0, 1};
  EXPECT_EQ(COAP_RpcSerHandleOneIdlMsg(&ctx, &entry, chg, &msg), 0u);
  EXPECT_EQ(builder_.calls.back().val, "v001");
  EXPECT_EQ(builder_.calls.back().out, &msg);
  builder_.result = 77;
  EXPECT_EQ(COAP_RpcSerHandleOneIdlMsg(&ctx, &entry, chg, &msg), 77u);
  chg->chgType = 2;
  EXPECT_EQ(COAP_RpcSerHandleOneIdlMsg(&ctx, &entry, chg, &msg), 77u);
  EXPECT_EQ(builder_.calls.back().kind, 'd');
}

TEST_F(IdlPayload, OneIdlMsg_MissingBuilder_Gives1900000469) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  CoapRpcSerIdlMsgBuf msg{};
  ob.buildDelete = nullptr;
  EXPECT_EQ(COAP_RpcSerHandleOneIdlMsg(&ctx, &entry, chg, &msg), 1900000469u);
  const std::vector<LogRecord> records = host.LogsOf("COAP_RpcSerHandleOneIdlMsg");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 468u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpc]func null.\n");
}

TEST_F(IdlPayload, OneIdlMsg_NoBuffer_Gives1900000474) {
  CoapRpcTupleChg *chg = Queue("k001", "v001", 1);
  CoapRpcSerIdlMsgBuf msg{};
  EXPECT_EQ(COAP_RpcSerHandleOneIdlMsg(&ctx, &entry, chg, nullptr), 1900000474u);
  EXPECT_EQ(COAP_RpcSerHandleOneIdlMsg(&ctx, &entry, chg, &msg), 1900000474u);
  const std::vector<LogRecord> records = host.LogsOf("COAP_RpcSerHandleOneIdlMsg");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].line, 473u);
  EXPECT_EQ(records[0].text, "[CoapRpc]msg buf null.\n");
}

TEST_F(IdlPayload, NoChanges_FourZeroBytes) {
  EXPECT_EQ(Get(), 0u);
  EXPECT_EQ(len_, 4u);
  EXPECT_EQ(std::vector<uint8_t>(payload_.begin(), payload_.begin() + 5),
            (std::vector<uint8_t>{0, 0, 0, 0, 0xEE}));
}

TEST_F(IdlPayload, MessagesOf0And3And300Bytes_AllCopiedAndTheirChangesRemoved) {
  builder_.lens = {0, 3, 300};
  Queue("k001", "v001", 1);
  Queue("k002", "v002", 2);
  Queue("k003", "v003", 1);
  EXPECT_EQ(Get(), 0u);
  EXPECT_EQ(len_, 4u + 2 + 2 + 3 + 2 + 300);
  EXPECT_EQ(std::vector<uint8_t>(payload_.begin(), payload_.begin() + 14),
            (std::vector<uint8_t>{3, 0, 0, 0, 0, 0, 3, 0, 'B', 'B', 'B', 44, 1, 'C'}));
  EXPECT_EQ(payload_[len_ - 1], 'C');
  EXPECT_EQ(payload_[len_], 0xEE);
  EXPECT_TRUE(ObservedEntry::Changes().empty());
}

TEST_F(IdlPayload, BufferAndLengthAreNotResetBetweenChanges) {
  builder_.lens = {5};  // the second builder leaves the length
  Queue("k001", "v001", 1);
  Queue("k002", "v002", 1);
  EXPECT_EQ(Get(), 0u);
  EXPECT_EQ(builder_.lensSeen, (std::vector<uint32_t>{0, 5}));
  EXPECT_EQ(builder_.firstBytes, (std::vector<uint8_t>{0, 'A'}));
  EXPECT_EQ(len_, 4u + 2 * (2 + 5));
}

TEST_F(IdlPayload, MessageThatFillsTheBufferExactly_Fits) {
  builder_.lens = {65465};
  Queue("k001", "v001", 1);
  EXPECT_EQ(Get(), 0u);
  EXPECT_EQ(len_, 65471u);
  EXPECT_EQ(payload_[4], 65465 % 256);
  EXPECT_EQ(payload_[5], 65465 / 256);
  EXPECT_EQ(payload_[65470], 'A');
}

TEST_F(IdlPayload, MessageThatDoesNotFit_EndsTheWalkAndLosesNothing) {
  for (const uint32_t tooLong :
       {65466u, 65469u, 65470u, 65471u, 65472u, 65535u, 65536u, UINT32_MAX}) {
    SCOPED_TRACE(tooLong);
    builder_ = {};
    builder_.lens = {3, tooLong, 3};
    Queue("k001", "v001", 1);
    CoapRpcTupleChg *second = Queue("k002", "v002", 1);
    CoapRpcTupleChg *third = Queue("k003", "v003", 2);
    EXPECT_EQ(Get(), 0u);
    EXPECT_EQ(len_, 9u);
    EXPECT_EQ(std::vector<uint8_t>(payload_.begin(), payload_.begin() + 9),
              (std::vector<uint8_t>{1, 0, 0, 0, 3, 0, 'A', 'A', 'A'}));
    EXPECT_EQ(ObservedEntry::Changes(), (std::vector<CoapRpcTupleChg *>{second, third}));
    EXPECT_EQ(second->chgType, 1);
    EXPECT_EQ(builder_.calls.size(), 2u);
    EXPECT_TRUE(host.HasDebug("[CoapRpc] get payload memcpy fail, msgNum: 1, offset: 9.\n"));
    COAP_RpcSerDelTupleChgData(&ctx, second);
    COAP_RpcSerDelTupleChgData(&ctx, third);
  }
}

TEST_F(IdlPayload, MessageForNoPayload_IsLoggedOnce) {
  for (int round = 0; round < 3; ++round) {
    builder_ = {};
    builder_.lens = {65466};
    if (round == 0) Queue("k001", "v001", 1);
    EXPECT_EQ(Get(), 0u);
    EXPECT_EQ(len_, 4u);
  }
  const std::vector<LogRecord> records = host.LogsOf("COAP_RpcSerHandleIdlGetPayload");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 1455u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text,
            "[CoapRpc]idl msg too long, nothing is published until its tuple is built shorter, "
            "uri:sensors/temp, len:65466, max:65465.\n");
}

TEST_F(IdlPayload, MessageForTheNextPayload_IsNotLogged) {
  builder_.lens = {3, 65465};
  Queue("k001", "v001", 1);
  Queue("k002", "v002", 1);
  EXPECT_EQ(Get(), 0u);
  EXPECT_TRUE(host.LogsOf("COAP_RpcSerHandleIdlGetPayload").empty());
}

// The links of the changes after the one at `index` cannot be followed while this lives.
class BrokenList {
 public:
  BrokenList(std::vector<CoapRpcTupleChg *> changes, size_t index) : changes_(changes) {
    for (size_t i = index; i < changes_.size(); ++i) {
      links_.push_back(changes_[i]->chgLink);
      // The neighbour of the one that is tried last may write to it, nothing may read from it.
      changes_[i]->chgLink.next = reinterpret_cast<CoapRpcLink *>(uintptr_t{8});
    }
    first_ = index;
  }
  ~BrokenList() {
    for (size_t i = 0; i < links_.size(); ++i) changes_[first_ + i]->chgLink.next = links_[i].next;
  }

 private:
  std::vector<CoapRpcTupleChg *> changes_;
  std::vector<CoapRpcLink> links_;
  size_t first_;
};

TEST_F(IdlPayload, ManyPending_NothingAfterTheLastTriedIsTouched) {
  builder_.lens = {30'000, 30'000, 30'000};
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(Chg(std::to_string(1000 + i).c_str(), "v001", 1), 0u);
  }
  const std::vector<CoapRpcTupleChg *> changes = ObservedEntry::Changes();
  {
    const BrokenList broken(changes, 3);
    EXPECT_EQ(Get(), 0u);
  }
  EXPECT_EQ(payload_[0], 2);
  EXPECT_EQ(ObservedEntry::Changes(),
            std::vector<CoapRpcTupleChg *>(changes.begin() + 2, changes.end()));
}

TEST_F(IdlPayload, NoRoomForALengthField_EndsTheWalk) {
  for (const uint32_t first : {65464u, 65465u}) {  // one byte left, none left
    builder_ = {};
    builder_.lens = {first, 0};
    Queue("k001", "v001", 1);
    CoapRpcTupleChg *second = Queue("k002", "v002", 1);
    EXPECT_EQ(Get(), 0u);
    EXPECT_EQ(payload_[0], 1);
    EXPECT_EQ(ObservedEntry::Changes(), (std::vector<CoapRpcTupleChg *>{second}));
    COAP_RpcSerDelTupleChgData(&ctx, second);
  }
}

TEST_F(IdlPayload, NoScratchBuffer_Gives1900000608AndKeepsTheChanges) {
  Queue("k001", "v001", 1);
  host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Get(), 1900000608u);
  EXPECT_EQ(ObservedEntry::Changes().size(), 1u);
  EXPECT_TRUE(builder_.calls.empty());
  const std::vector<LogRecord> records = host.LogsOf("COAP_RpcSerHandleIdlGetPayload");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 607u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpc] malloc fail.\n");
}

// Release contexts of two payloads of one entry.
class ReleaseContext : public Payload {
 protected:
  CoapRpcSerLargeBlockCtx *Start(void *buf) {
    return coap_rpc::StartBlock(coap_rpc::NewBlock(&entry, nullptr), buf);
  }
  CoapRpcSerLargeBlockCtx *StartJson() {
    json_t *object = json_object();
    CoapRpcSerLargeBlockCtx *release = Start(json_dumps(object, 0));
    json_decref(object);
    return release;
  }
  CoapRpcSerLargeBlockCtx *StartIdl() { return Start(coap_rpc::PoolAlloc(host.Mem(), 10)); }
};

TEST_F(ReleaseContext, NamesEntryAndBuffer) {
  CoapRpcSerLargeBlockCtx *release = StartIdl();
  EXPECT_EQ(release->entry, &entry);
  EXPECT_NE(release->buf, nullptr);
  EXPECT_EQ(entry.isSendingLargeBlock, 1u);
  COAP_OnLargeIdlMsgBlockSent(nullptr, release);
  EXPECT_EQ(entry.isSendingLargeBlock, 0u);
  EXPECT_TRUE(host.HasDebug("[CoapRpc]large block sent success.\n"));
}

TEST_F(ReleaseContext, Json_TextIsFreed) {
  COAP_OnLargeBlockSent(nullptr, StartJson());
  EXPECT_EQ(entry.isSendingLargeBlock, 0u);
}

TEST_F(ReleaseContext, Null_IsIgnored) {
  COAP_OnLargeBlockSent(nullptr, nullptr);
  COAP_OnLargeIdlMsgBlockSent(nullptr, nullptr);
}

TEST_F(ReleaseContext, OlderOne_LeavesTheFlagOfTheNewerOne) {
  CoapRpcSerLargeBlockCtx *older = StartIdl();
  CoapRpcSerLargeBlockCtx *newer = StartJson();
  COAP_OnLargeIdlMsgBlockSent(nullptr, older);
  EXPECT_EQ(entry.isSendingLargeBlock, 1u);
  COAP_OnLargeBlockSent(nullptr, newer);
  EXPECT_EQ(entry.isSendingLargeBlock, 0u);
}

TEST_F(ReleaseContext, EntryGone_BuffersAreFreedAllTheSame) {
  CoapRpcSerLargeBlockCtx *json = StartJson();
  CoapRpcSerLargeBlockCtx *idl = StartIdl();
  coap_rpc::ForgetEntryBlocks(&entry);
  EXPECT_EQ(json->entry, nullptr);
  EXPECT_EQ(idl->entry, nullptr);
  entry.isSendingLargeBlock = 1;  // not theirs any more
  COAP_OnLargeBlockSent(nullptr, json);
  COAP_OnLargeIdlMsgBlockSent(nullptr, idl);
  EXPECT_EQ(entry.isSendingLargeBlock, 1u);
  EXPECT_FALSE(host.HasDebug("[CoapRpc]large block sent success.\n"));
  EXPECT_EQ(host.Pool().LiveCount(), 0u) << host.Pool().LeakText();
}

TEST(SetMember, JsonOfAnyKind_IsAMember) {
  json_t *object = json_object();
  const auto set = [&](const char *name, const std::string &json) {
    return COAP_RpcSerSetMember(object, name, json.data(), static_cast<uint32_t>(json.size()));
  };
  EXPECT_EQ(set("a", "old"), 1900001725u);
  EXPECT_EQ(set("a", "1"), 0u);
  EXPECT_EQ(set("a", "{\"b\":[null,true]}"), 0u);
  EXPECT_EQ(set("c", "\"\xC3\xA9\""), 0u);
  for (const char *bad : {"", "[", "1 2", "\"\xFF\"", "{\"a\":1,}"})
    EXPECT_EQ(set("a", bad), 1900001725u);
  EXPECT_EQ(set("\xFF", "1"), 1900001726u);
  char *text = json_dumps(object, JSON_COMPACT | JSON_SORT_KEYS);
  EXPECT_STREQ(text, "{\"a\":{\"b\":[null,true]},\"c\":\"\xC3\xA9\"}");
  free(text);
  json_decref(object);
}

TEST(SetMember, NullArguments_GiveACode) {
  json_t *object = json_object();
  EXPECT_EQ(COAP_RpcSerSetMember(nullptr, "a", "1", 1), 1900001724u);
  EXPECT_EQ(COAP_RpcSerSetMember(object, nullptr, "1", 1), 1900001724u);
  EXPECT_EQ(COAP_RpcSerSetMember(object, "a", nullptr, 0), 1900001724u);
  json_decref(object);
}

}  // namespace
}  // namespace coap_rpc_test
