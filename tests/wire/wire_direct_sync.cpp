// Synchronous requests to direct entries, byte by byte.
#include "direct_server.h"

namespace coap_rpc_test {
namespace {

using DirectSync = Direct;

TEST_F(DirectSync, GetAndPost_AnswerWhatTheHandlerWrote) {
  ServeDirect(kModeSync);
  app_.out = "HELLO";
  const CoapMessage get = Message(kCodeGet, "hello");
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5), "HELLO"));
  const CoapMessage post = Message(kCodePost, "hi");
  EXPECT_EQ(Ask(post), AnswerTo(post, Code(2, 4), "HELLO"));
  EXPECT_EQ(app_.payloads, (std::vector<std::string>{"hello", "hi"}));
  EXPECT_TRUE(app_.isTerminated);
}

TEST_F(DirectSync, WithoutPayload_ReachesTheHandler) {
  ServeDirect(kModeSync);
  app_.out = "x";
  for (const uint8_t method : {kCodeGet, kCodePost}) {
    EXPECT_EQ(Ask(Message(method)).Text(), "x");
  }
  EXPECT_EQ(app_.payloads, (std::vector<std::string>{"", ""}));
  EXPECT_TRUE(app_.isTerminated);
}

TEST_F(DirectSync, ResultZero_AnswerWithoutPayload) {
  ServeDirect(kModeSync);
  const CoapMessage get = Message(kCodeGet, "q");
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5)));
}

TEST_F(DirectSync, ResultOutOfRange_500WithoutPayload) {
  ServeDirect(kModeSync);
  for (const int32_t result : {-1, -2, INT32_MIN, 65471, INT32_MAX}) {
    app_.result = result;
    const CoapMessage post = Message(kCodePost, "q");
    EXPECT_EQ(Ask(post), AnswerTo(post, Code(5, 0))) << result;
  }
}

TEST_F(DirectSync, NonRequest_NonAnswer) {
  ServeDirect(kModeSync);
  app_.out = "x";
  const CoapMessage answer = Ask(Message(kCodePost, "q", CoapType::kNon));
  EXPECT_EQ(answer.type, CoapType::kNon);
  EXPECT_EQ(answer.code, Code(2, 4));
  EXPECT_EQ(answer.token, (Bytes{0xAB, 0xCD}));
  EXPECT_TRUE(answer.options.empty());
  EXPECT_EQ(answer.Text(), "x");
}

TEST_F(DirectSync, AnyKey_ServesBothTypes) {
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    for (const uint32_t pktType : {COAP_RPC_DEFAULT, COAP_RPC_BROADCAST, COAP_RPC_UNICAST}) {
      const std::string uri = "k" + std::to_string(msgType) + std::to_string(pktType);
      key_ = KeyOf(uri.c_str(), msgType, 0, pktType);
      ServeDirect(kModeSync);
      app_.out = uri;
      for (const CoapType type : {CoapType::kCon, CoapType::kNon}) {
        for (const uint8_t method : {kCodeGet, kCodePost}) {
          EXPECT_EQ(Ask(Request(type, method, ++mid_, {1}).AddPath(uri)).Text(), uri);
        }
      }
    }
  }
}

TEST_F(DirectSync, BaseEntryOfTheSameUri_GetsNothing) {
  App other;
  Serve(KeyOf("a/b", COAP_RPC_NON, 0, COAP_RPC_UNICAST), RegOf(&other, kModeSync));
  ServeDirect(kModeSync);
  for (const CoapType type : {CoapType::kCon, CoapType::kNon}) Ask(Message(kCodePost, "q", type));
  EXPECT_EQ(app_.payloads.size(), 2u);
  EXPECT_TRUE(other.requests.empty());
}

TEST_F(DirectSync, DirectEntryDetached_BaseEntryIsServedAsEver) {
  App other;
  other.out = "xyz";
  other.result = 3;
  Serve(KeyOf("a/b", COAP_RPC_CON, 0, COAP_RPC_UNICAST), RegOf(&other, kModeSync));
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  EXPECT_EQ(Ask(Message(kCodePost, "q")).payload, (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(Ask(Message(kCodePut, "q")).code, Code(4, 5));
  EXPECT_TRUE(app_.payloads.empty());
}

TEST_F(DirectSync, BaseEntryAfterDirect_SeesZeros) {
  ServeDirect(kModeSync);
  app_.out = std::string(5000, 'x');
  App base;
  base.result = 1;
  Serve(KeyOf("c"), RegOf(&base, kModeSync));
  Ask(Message(kCodeGet));
  EXPECT_EQ(Ask(Get(CoapType::kCon, "c", "q")).payload, (Bytes{0, 0}));
  EXPECT_TRUE(base.isBufferClear);
}

TEST_F(DirectSync, MadeDirectBeforeItIsAttached) {
  const CoapRpcSerVtblReg reg = DirectReg(kModeSync);
  EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key_, &reg, nullptr), 0u);
  const CoapRpcSerDirectParam param = ParamWith(COAP_RPC_ALLOW_PUT);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, &param), 0u);
  Serve(key_, reg);
  app_.out = "x";
  EXPECT_EQ(Ask(Message(kCodePut)).Text(), "x");
}

// ---- methods ----

TEST_F(DirectSync, Methods_DefaultIsGetAndPost) {
  ServeDirect(kModeSync);
  for (const uint8_t method : {kCodePut, kCodeDelete, kCodeFetch, kCodePatch, kCodeIpatch}) {
    EXPECT_EQ(Ask(Message(method, "q").AddUint(kOptContentFormat, 0)).code, Code(4, 5));
  }
  EXPECT_TRUE(app_.payloads.empty());
}

TEST_F(DirectSync, Methods_EachAllowedAlone) {
  ServeDirect(kModeSync);
  for (uint8_t allowed = kCodeGet; allowed <= kCodeIpatch; ++allowed) {
    const CoapRpcSerDirectParam param = ParamWith(1u << allowed);
    EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, &param), 0u);
    for (uint8_t method = kCodeGet; method <= kCodeIpatch; ++method) {
      const bool isRead = method == kCodeGet || method == kCodeFetch;
      const uint8_t expected = method != allowed ? Code(4, 5) : isRead ? Code(2, 5) : Code(2, 4);
      const CoapMessage answer = Ask(Message(method, "q").AddUint(kOptContentFormat, 0));
      EXPECT_EQ(CodeText(answer.code), CodeText(expected)) << int{allowed} << " " << int{method};
    }
  }
}

TEST_F(DirectSync, Methods_ResourceMadeAgain) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_PUT));
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  Serve(key_, DirectReg(kModeSync));
  app_.out = "x";
  EXPECT_EQ(Ask(Message(kCodePut, "q")).Text(), "x");
}

// ---- what the handler says and asks ----

TEST_F(DirectSync, SetAnswer_CodeAndFormat) {
  ServeDirect(kModeSync);
  app_.out = "{}";
  app_.onCall = [&] { EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 201, 50), 0u); };
  const CoapMessage post = Message(kCodePost, "q");
  EXPECT_EQ(Ask(post), AnswerTo(post, Code(2, 1), "{}").AddUint(kOptContentFormat, 50));
  app_.out.clear();
  const CoapMessage empty = Message(kCodePost, "q");
  EXPECT_EQ(Ask(empty), AnswerTo(empty, Code(2, 1))) << "no format without a payload";
}

TEST_F(DirectSync, SetAnswer_IsForOneRequest) {
  ServeDirect(kModeSync);
  app_.onCall = [&] { COAP_RpcSerSetAnswer(Ctx(), 404, COAP_RPC_DIRECT_NO_FORMAT); };
  EXPECT_EQ(Ask(Message(kCodeGet)).code, Code(4, 4));
  app_.onCall = nullptr;
  EXPECT_EQ(Ask(Message(kCodeGet)).code, Code(2, 5));
}

TEST_F(DirectSync, SetAnswer_BadArguments) {
  EXPECT_EQ(COAP_RpcSerSetAnswer(nullptr, 205, 0), 1900001469u);
  EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 205, 0), 1900001470u);
  ServeDirect(kModeSync);
  EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 205, 0), 1900001470u);
  app_.onCall = [&] {
    for (const uint32_t code :
         {0u, 1u, 200u, 206u, 231u, 305u, 399u, 432u, 499u, 532u, 600u, ~0u}) {
      EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), code, 0), 1900001471u) << code;
    }
    EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 205, 65536), 1900001471u);
  };
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(2, 4));
  EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 205, 0), 1900001470u);
}

TEST_F(DirectSync, GetRequest_TellsAll) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  CoapRpcSerRequest request = {};
  app_.onCall = [&] { EXPECT_EQ(COAP_RpcSerGetRequest(Ctx(), &request), 0u); };
  Ask(Message(kCodeIpatch, "q")
          .AddUint(kOptContentFormat, 50)
          .AddUint(kOptAccept, 60)
          .Add(kOptEtag, {1, 2, 3}));
  EXPECT_EQ(request.method, 7u);
  EXPECT_EQ(request.isConfirmable, 1u);
  EXPECT_EQ(request.contentFormat, 50u);
  EXPECT_EQ(request.accept, 60u);
  EXPECT_EQ(request.peerAddr.addr.ipv4, 0x7F000001u);
  EXPECT_EQ(request.peerPort, peer_.Local().port);
  ASSERT_EQ(request.etagLen, 3u);
  EXPECT_EQ(request.etag[2], 3);
  Ask(Message(kCodeGet, "", CoapType::kNon));
  EXPECT_EQ(request.isConfirmable, 0u);
  EXPECT_EQ(request.contentFormat, COAP_RPC_DIRECT_NO_FORMAT);
  EXPECT_EQ(request.accept, COAP_RPC_DIRECT_NO_FORMAT);
  EXPECT_EQ(request.etagLen, 0u);
}

TEST_F(DirectSync, GetRequest_BadArguments) {
  CoapRpcSerRequest request;
  EXPECT_EQ(COAP_RpcSerGetRequest(nullptr, &request), 1900001478u);
  EXPECT_EQ(COAP_RpcSerGetRequest(Ctx(), nullptr), 1900001478u);
  EXPECT_EQ(COAP_RpcSerGetRequest(Ctx(), &request), 1900001479u);
}

TEST_F(DirectSync, GetQuery_FindsByName) {
  ServeDirect(kModeSync);
  const auto query = [this](const char *name, uint32_t size = 64) {
    char text[64] = "untouched";
    const uint32_t ret = COAP_RpcSerGetQuery(Ctx(), name, text, size);
    return ret == 0 ? std::string(text) : std::to_string(ret);
  };
  app_.onCall = [&] {
    EXPECT_EQ(query("a"), "1");
    EXPECT_EQ(query("ab"), "two=2");
    EXPECT_EQ(query("flag"), "");
    EXPECT_EQ(query("empty"), "");
    EXPECT_EQ(query("f"), "1900001482");
    EXPECT_EQ(query("A"), "1900001482");
    EXPECT_EQ(query("ab", 6), "two=2");
    EXPECT_EQ(query("ab", 5), "1900001476");
    EXPECT_EQ(query("flag", 0), "1900001476");
  };
  Ask(Message(kCodeGet)
          .AddText(kOptUriQuery, "ab=two=2")
          .AddText(kOptUriQuery, "a=1")
          .AddText(kOptUriQuery, "a=2")
          .AddText(kOptUriQuery, "flag")
          .AddText(kOptUriQuery, "empty="));
  EXPECT_EQ(app_.payloads.size(), 1u);
  EXPECT_EQ(query("a"), "1900001479");
  char text[4];
  EXPECT_EQ(COAP_RpcSerGetQuery(nullptr, "a", text, 4), 1900001481u);
  EXPECT_EQ(COAP_RpcSerGetQuery(Ctx(), nullptr, text, 4), 1900001481u);
  EXPECT_EQ(COAP_RpcSerGetQuery(Ctx(), "a", nullptr, 4), 1900001481u);
}

TEST_F(DirectSync, RequestInfo_IsThatOfBaseRequests) {
  ServeDirect(kModeSync);
  Ask(Message(kCodePost).Add(kOptEtag, {1}));
  EXPECT_EQ(app_.info.hasETag, 1u);
  EXPECT_EQ(app_.info.isObserve, 0u);
  EXPECT_EQ(app_.info.srcAddr.addr.ipv4, 0x7F000001u);
  Ask(Message(kCodeGet).Add(kOptEtag, {1}));
  EXPECT_EQ(app_.info.hasETag, 0u);
}

TEST_F(DirectSync, NoCallback_501) {
  CoapRpcSerVtblReg reg = DirectReg(kModeSync);
  reg.onRequest = nullptr;
  Serve(key_, reg);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  EXPECT_EQ(Ask(Message(kCodeGet)).code, Code(5, 1));
}

TEST_F(DirectSync, ModeWithoutCallback_501) {
  Serve(key_, DirectReg(2));
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(5, 1));
}

TEST_F(DirectSync, SetDirect_BadArguments) {
  EXPECT_EQ(COAP_RpcSerSetDirect(nullptr, &key_, nullptr), 1900001464u);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), nullptr, nullptr), 1900001464u);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 1900001465u);
  Serve(key_, DirectReg(kModeSync));
  for (const uint32_t methods : {1u, 256u, ~0u}) {
    const CoapRpcSerDirectParam param = ParamWith(methods);
    EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, &param), 1900001466u);
  }
  const CoapMessage get = Message(kCodeGet);
  ExpectEmptyAck(Ask(get), get);  // still a base entry
}

// ---- large payloads ----

std::string Pattern(size_t len, char first) {
  std::string text(len, ' ');
  for (size_t i = 0; i < len; ++i) text[i] = static_cast<char>(first + static_cast<int>(i % 23));
  return text;
}

class DirectBlocks : public Direct {
 protected:
  // NextBlock asks for a block of an answer.
  CoapMessage NextBlock(RawPeer &peer, uint8_t method, uint32_t num, uint8_t szx) {
    return Ask(peer, Message(method).AddBlock(kOptBlock2, {num, false, szx}));
  }

  // Rest fetches what follows the first block.
  std::string Rest(RawPeer &peer, uint8_t method, const CoapMessage &first) {
    std::string body = first.Text();
    std::optional<CoapBlock> block = first.Block(kOptBlock2);
    while (block && block->more) {
      const CoapMessage next = NextBlock(peer, method, block->num + 1, block->szx);
      EXPECT_FALSE(next.Has(kOptUriPath));
      EXPECT_EQ(next.Has(kOptContentFormat), first.Has(kOptContentFormat));
      body += next.Text();
      block = next.Block(kOptBlock2);
    }
    return body;
  }

  // Upload sends a body in blocks and returns the answer to the last one.
  CoapMessage Upload(const std::string &body, uint8_t szx = 6) {
    const size_t size = size_t{16} << szx;
    for (uint32_t num = 0;; ++num) {
      const bool more = (num + 1) * size < body.size();
      last_ =
          Message(kCodePost, body.substr(num * size, size)).AddBlock(kOptBlock1, {num, more, szx});
      const CoapMessage answer = Ask(last_);
      if (!more) return answer;
      EXPECT_EQ(answer.code, Code(2, 31));
    }
  }

  CoapMessage last_;
};

TEST_F(DirectBlocks, FetchWithoutFormat_415) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  EXPECT_EQ(Ask(Message(kCodeFetch, "x")).code, Code(4, 15));
  EXPECT_TRUE(app_.payloads.empty());
}

TEST_F(DirectBlocks, HopLimitReached_BeginsWithOurAddress) {
  ServeDirect(kModeSync);
  app_.out = "text";
  app_.onCall = [&] { COAP_RpcSerSetAnswer(Ctx(), 508, COAP_RPC_DIRECT_NO_FORMAT); };
  EXPECT_EQ(Ask(Message(kCodePost)).Text(), Address().host + " text");
}

TEST_F(DirectBlocks, LargeAnswer_ComesWhole) {
  ServeDirect(kModeSync);
  for (const size_t len : {1024u, 1025u, 5000u, 65470u}) {
    app_.out = Pattern(len, 'a');
    for (const uint8_t method : {kCodeGet, kCodePost}) {
      EXPECT_EQ(Rest(peer_, method, Ask(Message(method, "q"))), app_.out) << len;
    }
  }
}

TEST_F(DirectBlocks, LargeAnswer_WithAndWithoutFormat) {
  ServeDirect(kModeSync);
  app_.out = Pattern(3000, 'a');
  EXPECT_FALSE(Ask(Message(kCodeGet)).Has(kOptContentFormat));
  app_.onCall = [&] { COAP_RpcSerSetAnswer(Ctx(), 205, 50); };
  const CoapMessage first = Ask(Message(kCodeGet));
  EXPECT_EQ(first.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(Rest(peer_, kCodeGet, first), app_.out);
}

TEST_F(DirectBlocks, SmallBlocksAskedFor) {
  ServeDirect(kModeSync);
  app_.out = Pattern(200, 'a');
  const CoapMessage first = Ask(Message(kCodeGet).AddBlock(kOptBlock2, {0, false, 1}));
  EXPECT_EQ(first.payload.size(), 32u);
  EXPECT_EQ(Rest(peer_, kCodeGet, first), app_.out);
}

TEST_F(DirectBlocks, TwoClients_TwoBodiesAtATime) {
  ServeDirect(kModeSync);
  RawPeer other;
  other.SetRemote(Address());
  app_.out = Pattern(3000, 'a');
  const CoapMessage first = Ask(Message(kCodeGet));
  app_.out = Pattern(3000, 'A');
  const CoapMessage second = Ask(other, Message(kCodeGet));
  EXPECT_EQ(Rest(peer_, kCodeGet, first), Pattern(3000, 'a'));
  EXPECT_EQ(Rest(other, kCodeGet, second), Pattern(3000, 'A'));
}

TEST_F(DirectBlocks, Upload_ReachesTheHandlerOnceAndWhole) {
  ServeDirect(kModeSync);
  app_.out = "done";
  const std::string body = Pattern(20000, 'a');
  const CoapMessage answer = Upload(body);
  EXPECT_EQ(answer.code, Code(2, 4));
  EXPECT_EQ(answer.Text(), "done");
  ASSERT_EQ(app_.payloads.size(), 1u);
  EXPECT_EQ(app_.payloads[0], body);
  EXPECT_TRUE(app_.isTerminated);
  EXPECT_EQ(Ask(last_), answer) << "the last block again";
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectBlocks, BlocksOfAnotherMethodOrQuery_AreNotJoined) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  const std::string part = Pattern(64, 'a');
  const auto block = [&](uint8_t method, const char *query, uint32_t num) {
    return Message(method, num == 0 ? part : "end")
        .AddText(kOptUriQuery, query)
        .AddBlock(kOptBlock1, {num, num == 0, 2});
  };
  EXPECT_EQ(Ask(block(kCodePost, "a=1", 0)).code, Code(2, 31));
  for (const CoapMessage &other : {block(kCodePut, "a=1", 1), block(kCodePost, "a=2", 1)}) {
    peer_.Send(other);
    Tick();
    while (peer_.ReceiveNow()) {
    }
  }
  EXPECT_TRUE(app_.payloads.empty());
  EXPECT_EQ(Ask(block(kCodePost, "a=1", 1)).code, Code(2, 4));
  EXPECT_EQ(app_.payloads, std::vector<std::string>{part + "end"});
}

TEST_F(DirectBlocks, Upload_LastBlockIsAcknowledged) {
  ServeDirect(kModeSync);
  const CoapBlock last = {2, false, 6}, only = {0, false, 6};
  EXPECT_EQ(Upload(Pattern(3000, 'a')).Block(kOptBlock1), last);
  EXPECT_EQ(Ask(last_).Block(kOptBlock1), last);
  EXPECT_EQ(Upload("small").Block(kOptBlock1), only);
  EXPECT_FALSE(Ask(Message(kCodePost, "small")).Has(kOptBlock1));
}

TEST_F(DirectBlocks, UploadAndLargeAnswer_OnlyTheFirstBlockAcknowledges) {
  ServeDirect(kModeSync);
  app_.out = Pattern(3000, 'A');
  const CoapMessage first = Upload(Pattern(3000, 'a'));
  EXPECT_EQ(first.Block(kOptBlock1), (CoapBlock{2, false, 6}));
  EXPECT_EQ(first.Block(kOptBlock2), (CoapBlock{0, true, 6}));
  EXPECT_FALSE(NextBlock(peer_, kCodePost, 1, 6).Has(kOptBlock1));
}

TEST_F(DirectBlocks, UploadAndLargeAnswer) {
  ServeDirect(kModeSync);
  app_.out = Pattern(5000, 'A');
  const CoapMessage first = Upload(Pattern(3000, 'a'), 5);
  EXPECT_EQ(Rest(peer_, kCodePost, first), app_.out);
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectBlocks, AsLargeAsAnUploadMayBe) {
  ServeDirect(kModeSync);
  const std::string body = Pattern(1024 * 1024, 'a');
  Upload(body);
  ASSERT_EQ(app_.payloads.size(), 1u);
  EXPECT_EQ(app_.payloads[0], body);
}

// A transfer ends when its peer is silent for long; what was asked for in it is not executed again.
TEST_F(DirectBlocks, LaterBlockOfALostPost_408) {
  ServeDirect(kModeSync);
  app_.out = Pattern(3000, 'a');
  Ask(Message(kCodePost, "q"));
  host_.AdvanceMs(200000);
  EXPECT_EQ(NextBlock(peer_, kCodePost, 1, 6).code, Code(4, 8));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectBlocks, LaterBlockOfALostGet_IsMadeAgain) {
  ServeDirect(kModeSync);
  app_.out = Pattern(3000, 'a');
  Ask(Message(kCodeGet));
  host_.AdvanceMs(200000);
  EXPECT_EQ(NextBlock(peer_, kCodeGet, 1, 6).Text(), app_.out.substr(1024, 1024));
  EXPECT_EQ(NextBlock(peer_, kCodeGet, 3, 6).code, Code(4, 0)) << "behind the end";
}

TEST_F(DirectBlocks, TooManyBodies_OldestEnds) {
  ServeDirect(kModeSync);
  app_.out = Pattern(60000, 'a');
  const auto ask = [this](const std::string &query) {
    return Ask(Message(kCodeGet).AddText(kOptUriQuery, query));
  };
  const uint32_t numBodies = 32 * 1024 * 1024 / 60000 + 1;
  for (uint32_t i = 0; i < numBodies; ++i) ask(std::to_string(i));
  app_.out = "new";
  const CoapMessage later =
      Ask(Message(kCodeGet).AddText(kOptUriQuery, "0").AddBlock(kOptBlock2, {1, false, 6}));
  EXPECT_EQ(later.code, Code(4, 0)) << "the handler was asked again";
  const CoapMessage kept = Ask(Message(kCodeGet)
                                   .AddText(kOptUriQuery, std::to_string(numBodies - 1))
                                   .AddBlock(kOptBlock2, {1, false, 6}));
  EXPECT_EQ(kept.Text(), Pattern(60000, 'a').substr(1024, 1024));
}

// ---- observers ----

int32_t CompareKeys(const void *a, const void *b) { return memcmp(a, b, 4); }

TEST_F(DirectSync, Observe_WithoutRecord_IsAnOrdinaryGet) {
  key_.observe = 1;
  ServeDirect(kModeSync);
  app_.out = "x";
  const CoapMessage get = Message(kCodeGet).Add(kOptObserve);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5), "x"));
  EXPECT_EQ(app_.info.isObserve, 2u);
  coap_str_const_t path{3, reinterpret_cast<const uint8_t *>("a/b")};
  EXPECT_EQ(coap_resource_notify_observers(
                coap_get_resource_from_uri_path(Ctx()->lib->coapCtx, &path), nullptr),
            0);
  ExpectSilence(peer_);
}

TEST_F(DirectSync, Observe_ByFetchOrPost_IsAnOrdinaryRequest) {
  CoapRpcSerObVtblReg record = {};
  record.keyLen = 4;
  record.tupleKeyCmp = CompareKeys;
  key_.observe = 1;
  Serve(key_, DirectReg(kModeSync), &record);
  const CoapRpcSerDirectParam param = ParamWith(COAP_RPC_ALLOW_ALL);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, &param), 0u);
  app_.out = "x";
  for (const uint8_t method : {kCodeFetch, kCodePost}) {
    const CoapMessage answer = Ask(Message(method).Add(kOptObserve).AddUint(kOptContentFormat, 0));
    EXPECT_EQ(answer.Text(), "x");
    EXPECT_FALSE(answer.Has(kOptObserve));
  }
}

TEST_F(DirectSync, LoggedInDetailAsAnyRequest) {
  ServeDirect(kModeSync);
  COAP_RpcLogRegUri(Ctx(), "a/b");
  Ask(Message(kCodePost, "hello"));
  const std::vector<LogRecord> records = host_.Logs().OfKind(LogKind::kSysLog);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "[CoapRpc]get request success, uri:a/b, len:5, payload:hello.");
}

TEST_F(DirectSync, Observe_NotObservable_IsAnOrdinaryGet) {
  ServeDirect(kModeSync);
  app_.out = "x";
  const CoapMessage get = Message(kCodeGet).Add(kOptObserve);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5), "x"));
}

TEST_F(DirectSync, Observe_WithRecord_FirstAnswerIs205) {
  CoapRpcSerObVtblReg record = {};
  record.keyLen = 4;
  record.valLen = 4;
  record.tupleKeyCmp = CompareKeys;
  key_.observe = 1;
  Serve(key_, DirectReg(kModeSync), &record);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  const CoapMessage answer = Ask(Message(kCodeGet).Add(kOptObserve));
  EXPECT_EQ(answer.code, Code(2, 5));
  EXPECT_TRUE(answer.Has(kOptObserve));
  EXPECT_EQ(answer.Path(), "a/b");
  app_.out = "x";
  EXPECT_EQ(Ask(Message(kCodeGet)).Text(), "x") << "without Observe";
}

TEST_F(DirectSync, Observe_BaseEntryWithRecordBeside_IsServedAsEver) {
  CoapRpcSerObVtblReg record = {};
  record.keyLen = 4;
  record.tupleKeyCmp = CompareKeys;
  App base;
  Serve(KeyOf("a/b", COAP_RPC_CON, 1), RegOf(&base, kModeSync), &record);
  ServeDirect(kModeSync);
  app_.out = "x";
  EXPECT_EQ(Ask(Message(kCodeGet).Add(kOptObserve)).code, Code(2, 1));
  EXPECT_EQ(Ask(Message(kCodeGet)).Text(), "x");
}

TEST_F(DirectSync, NoResponse_IsHonoured) {
  constexpr uint16_t kOptNoResponse = 258;
  ServeDirect(kModeSync);
  app_.out = "x";
  const CoapMessage post = Message(kCodePost, "q").AddUint(kOptNoResponse, 2);
  ExpectEmptyAck(Ask(post), post);
  EXPECT_EQ(app_.payloads.size(), 1u);
}

}  // namespace
}  // namespace coap_rpc_test
