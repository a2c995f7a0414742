/* test_coap_rpc_ser_disp_tuple.cpp: what an operator sees of tuples and pending changes. */
#include <algorithm>

#include <gtest/gtest.h>

#include "server_fixture.h"

namespace coap_rpc_test {
namespace {

using Pages = std::vector<std::string>;

constexpr char kSet[] = "disp server tupleSetTree";
constexpr char kChgs[] = "disp server tupleChgList";

const char *NullText(const void *, char *, uint32_t) { return nullptr; }

const char *OverlongText(const void *, char *, uint32_t) {
  static const std::string text(5000, 'x');
  return text.c_str();
}

const char *UnterminatedText(const void *, char *buf, uint32_t size) {
  memset(buf, 'y', size);
  return buf;
}

const char *UntouchedBuffer(const void *, char *buf, uint32_t) { return buf; }

// FirstLetters shows the size that it is given and the first two bytes, or "none" for null.
const char *FirstLetters(const void *bytes, char *buf, uint32_t size) {
  if (!bytes) return "none";
  const auto *text = static_cast<const char *>(bytes);
  snprintf(buf, size, "%u:%c%c", size, text[0], text[1]);
  return buf;
}

// Shown is what the two commands print for one tuple of an observed URI.
struct Shown {
  std::string set;
  std::string chgs;
};

Shown ShowOne(const CoapRpcSerObVtblReg &ob, const char *key, const char *val) {
  ServerFixture t;
  t.ob = ob;
  t.ob.tupleKeyCmp = [](const void *, const void *) { return 0; };
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  entry->observerNum = 1;
  EXPECT_EQ(COAP_RpcSerUpdateTuple(&t.ctx, entry, key, val), 0u);
  return {t.host.InvokeOnce(kSet, "obs"), t.host.InvokeOnce(kChgs, "obs")};
}

CoapRpcSerObVtblReg FourAndFour() {
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = 4;
  ob.valLen = 4;
  return ob;
}

TEST(SerDispTuples, Set_IsPrintedAtOnceInKeyOrder) {
  ServerFixture t;
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  for (const char *key : {"eth1", "eth0", "lo.."}) {
    COAP_RpcSerUpdateTuple(&t.ctx, entry, key, "\x00\x01\x02\xff");
  }
  EXPECT_EQ(t.host.RunCommand(kSet, "obs"), (Pages{"TupleInfo: uri:obs, cnt:3\n"
                                                   "key(65746830)/val(000102ff)\n"
                                                   "key(65746831)/val(000102ff)\n"
                                                   "key(6c6f2e2e)/val(000102ff)\n"}));
}

TEST(SerDispTuples, EmptySet_PrintsOnlyTheTitle) {
  ServerFixture t;
  t.AddObservable("obs");
  EXPECT_EQ(t.host.RunCommand(kSet, "obs"), (Pages{"TupleInfo: uri:obs, cnt:0\n"}));
  EXPECT_EQ(t.host.RunCommand(kChgs, "obs"), (Pages{"ChgTupleInfo: uri:obs\n"}));
}

TEST(SerDispTuples, Changes_ArePrintedInListOrderWithoutTheirType) {
  ServerFixture t;
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  entry->observerNum = 1;
  COAP_RpcSerProcTupleChg(&t.ctx, entry, &entry->key, "eth1", "1001", 1);
  COAP_RpcSerProcTupleChg(&t.ctx, entry, &entry->key, "eth0", nullptr, 2);
  EXPECT_EQ(t.host.RunCommand(kChgs, "obs"), (Pages{"ChgTupleInfo: uri:obs\n"
                                                    "key(65746831)/val(31303031)\n"
                                                    "key(65746830)/val(00000000)\n"}));
}

TEST(SerDispTuples, OtherKindsOfEntry_AreNotShown) {
  ServerFixture t;
  t.Add("non", {.msgType = 1, .observe = 1}, &t.ob);
  t.Add("plain", {}, &t.ob);
  t.Add("two", {.observe = 2}, &t.ob);
  t.Add("uni", {.observe = 1, .pktType = 2}, &t.ob);
  t.Add("norecord", {.observe = 1});
  for (const std::string uri : {"non", "plain", "two", "uni", "norecord", "nowhere", "", "%s%n"}) {
    const Pages expected{"No oberver tupleSetTree for uri(" + uri + ").\n"};
    EXPECT_EQ(t.host.RunCommand(kSet, uri), expected);
    EXPECT_EQ(t.host.RunCommand(kChgs, uri), expected);
  }
}

TEST(SerDispTuples, UriOf64Characters_EndsSilently) {
  ServerFixture t;
  for (const size_t len : {64u, 65u, 5000u}) {
    EXPECT_EQ(t.host.RunCommand(kSet, std::string(len, 'u')), Pages{""});
    EXPECT_EQ(t.host.RunCommand(kChgs, std::string(len, 'u')), Pages{""});
  }
}

TEST(SerDispTuples, UriOf63Characters_IsLookedUp) {
  ServerFixture t;
  const std::string uri(63, 'u');
  EXPECT_EQ(t.host.RunCommand(kSet, uri),
            (Pages{"No oberver tupleSetTree for uri(" + uri + ").\n"}));
  t.AddObservable(uri);
  EXPECT_EQ(t.host.RunCommand(kSet, uri), (Pages{"TupleInfo: uri:" + uri + ", cnt:0\n"}));
}

TEST(SerDispTuples, Renderers_GetABufferOf128) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.keyToStr = FirstLetters;
  ob.valToStr = FirstLetters;
  const Shown shown = ShowOne(ob, "eth0", "1000");
  EXPECT_EQ(shown.set, "TupleInfo: uri:obs, cnt:1\nkey(128:et)/val(128:10)\n");
  EXPECT_EQ(shown.chgs, "ChgTupleInfo: uri:obs\nkey(128:et)/val(128:10)\n");
}

TEST(SerDispTuples, ValLen0_TheRendererGetsNull) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.valLen = 0;
  EXPECT_EQ(ShowOne(ob, "eth0", nullptr).set, "TupleInfo: uri:obs, cnt:1\nkey(65746830)/val()\n");
  ob.valToStr = FirstLetters;
  EXPECT_EQ(ShowOne(ob, "eth0", nullptr).chgs, "ChgTupleInfo: uri:obs\nkey(65746830)/val(none)\n");
}

TEST(SerDispTuples, KeyLen0_IsAnEmptyText) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.keyLen = 0;
  EXPECT_EQ(ShowOne(ob, "", "1000").set, "TupleInfo: uri:obs, cnt:1\nkey()/val(31303030)\n");
}

TEST(SerDispTuples, RendererGivesNull_IsAnEmptyText) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.keyToStr = NullText;
  ob.valToStr = NullText;
  EXPECT_EQ(ShowOne(ob, "eth0", "1000").set, "TupleInfo: uri:obs, cnt:1\nkey()/val()\n");
}

TEST(SerDispTuples, RendererGivesItsUntouchedBuffer_IsAnEmptyText) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.keyToStr = UntouchedBuffer;
  EXPECT_EQ(ShowOne(ob, "eth0", "1000").chgs, "ChgTupleInfo: uri:obs\nkey()/val(31303030)\n");
}

TEST(SerDispTuples, OverlongTexts_AreCutAt128) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.keyToStr = OverlongText;
  ob.valToStr = UnterminatedText;
  EXPECT_EQ(ShowOne(ob, "eth0", "1000").set, "TupleInfo: uri:obs, cnt:1\nkey(" +
                                                 std::string(128, 'x') + ")/val(" +
                                                 std::string(128, 'y') + ")\n");
}

TEST(SerDispTuples, LongBytes_AreGroupedBy16AndCut) {
  CoapRpcSerObVtblReg ob = FourAndFour();
  ob.keyLen = 17;
  ob.valLen = 65535;
  const std::string group(32, '6');
  EXPECT_EQ(ShowOne(ob, std::string(17, 'f').c_str(), std::string(65535, 'f').c_str()).set,
            "TupleInfo: uri:obs, cnt:1\nkey(" + group + " 66)/val(" + group + " " + group + " " +
                group + " " + std::string(28, '6') + ")\n");
}

TEST(SerDispTuples, OneTupleAndOneChange_NullPrintsNothing) {
  ServerFixture t;
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  COAP_RpcDispOneTuple_(&t.ctx, entry, nullptr);
  COAP_RpcDispOneChgTuple_(&t.ctx, entry, nullptr);
  EXPECT_EQ(t.host.RunCommand(kChgs, "obs"), (Pages{"ChgTupleInfo: uri:obs\n"}));
}

TEST(SerDispTuples, KeyAndValStr_RenderAlone) {
  ServerFixture t;
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  char buf[8];
  EXPECT_EQ(COAP_RpcGetTupleKeyStr(entry, "eth0", buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "657468");
  entry->obVtbl->valToStr = NullText;
  EXPECT_STREQ(COAP_RpcGetTupleValStr(entry, "1000", buf, sizeof(buf)), "");
  entry->obVtbl->valToStr = FirstLetters;
  EXPECT_STREQ(COAP_RpcGetTupleValStr(entry, "1000", buf, sizeof(buf)), "8:10");
}

TEST(SerDispTuples, TenThousandTuples_ComeInOneInvocation) {
  ServerFixture t;
  t.ctx.log = 0;
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  entry->observerNum = 1;
  for (uint32_t i = 0; i < 10'000; ++i) {
    COAP_RpcSerUpdateTuple(&t.ctx, entry, std::to_string(10'000 + i).c_str() + 1, "1000");
  }
  const std::string set = t.host.InvokeOnce(kSet, "obs");
  EXPECT_EQ(set.substr(0, 30), "TupleInfo: uri:obs, cnt:10000\n");
  EXPECT_EQ(std::count(set.begin(), set.end(), '\n'), 10'001);
  EXPECT_FALSE(t.host.Display().HasContext());
  const std::string chgs = t.host.InvokeOnce(kChgs, "obs");
  EXPECT_EQ(std::count(chgs.begin(), chgs.end(), '\n'), 10'001);
}

}  // namespace
}  // namespace coap_rpc_test
