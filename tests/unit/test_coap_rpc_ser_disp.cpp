/* test_coap_rpc_ser_disp.cpp: what an operator sees of the server tables. */
#include <gtest/gtest.h>

#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "server_fixture.h"

namespace coap_rpc_test {
namespace {

using Pages = std::vector<std::string>;

constexpr uint32_t kNumMany = 10'000;

// CommandText shows a registration with its parameters.
std::string CommandText(const DispCommand &command) {
  std::string text = command.handlerName + " | " + command.command + " | " +
                     std::to_string(command.flags) + " | " + command.objName;
  for (const std::string &name : command.paramNames) text += " | " + name;
  return text;
}

TEST(SerDisp, Init_RegistersFiveCommandsInOrder) {
  ServerFixture t;
  Pages commands;
  for (const DispCommand &command : t.host.Display().Commands()) {
    commands.push_back(CommandText(command));
  }
  EXPECT_EQ(commands,
            (Pages{"COAP_RpcDispSerVtbl_ | disp server uriVtbl | 128 | inst",
                   "COAP_RpcDispTupleSetTree_ | disp server tupleSetTree | 128 | inst | pcUri",
                   "COAP_RpcDispTupleChgList_ | disp server tupleChgList | 128 | inst | pcUri",
                   "COAP_RpcDispSerResource_ | disp server resource | 128 | inst",
                   "COAP_RpcDispSerListen_ | disp server listen | 128 | inst"}));
  EXPECT_EQ(t.host.Display().Commands()[0].handler, &COAP_RpcDispSerVtbl_);
  EXPECT_EQ(t.host.LogsOf("COAP_RPC_LOG_MOD_DO").front().text, "[CoapRpc]\n");
}

TEST(SerDisp, Instance_HasTheCommandsOfBothSidesUntilItEnds) {
  TestHost host;
  TestInstance instance(host);
  EXPECT_EQ(host.Display().Commands().size(), 8u);
  EXPECT_EQ(host.RunCommand("disp server listen"), (Pages{" ***total 0 server listen(s) ***\n"}));
  EXPECT_EQ(host.RunCommand("disp client session", 0u),
            (Pages{" ***total 0 client session(s) ***\n"}));
  instance.Stop();
  EXPECT_TRUE(host.Display().Commands().empty());
}

TEST(SerDisp, Init_EveryRegistrationFails_Gives0) {
  ServerFixture t;
  t.host.Display().FuncFailures().FailFrom(1);
  EXPECT_EQ(COAP_RpcSerDispInit(&t.ser), 0u);
  EXPECT_EQ(t.host.Display().FuncFailures().NumFailed(), 5u);
}

TEST(SerDisp, Uninit_GivesTheLowHalfOfItsArgument) {
  EXPECT_EQ(COAP_RpcSerDispUninit(reinterpret_cast<void *>(uintptr_t{0x123456789ABCDEF0})),
            0x9ABCDEF0u);
  EXPECT_EQ(COAP_RpcSerDispUninit(nullptr), 0u);
}

TEST(SerDispTables, Empty_PrintOnlyTheTotal) {
  ServerFixture t;
  EXPECT_EQ(t.host.RunCommand("disp server uriVtbl"),
            (Pages{" ***total 0 server uriVtbl(s) ***\n"}));
  EXPECT_EQ(t.host.RunCommand("disp server resource"),
            (Pages{" ***total 0 server resource(s) ***\n"}));
  EXPECT_EQ(t.host.RunCommand("disp server listen"), (Pages{" ***total 0 server listen(s) ***\n"}));
}

TEST(SerDispTables, NoServerSide_PrintOnlyTheTotal) {
  ServerFixture t;
  t.Add("a");
  t.ctx.ser = nullptr;
  EXPECT_EQ(t.host.RunCommand("disp server uriVtbl"),
            (Pages{" ***total 0 server uriVtbl(s) ***\n"}));
  EXPECT_EQ(t.host.RunCommand("disp server tupleSetTree", "a"),
            (Pages{"No oberver tupleSetTree for uri(a).\n"}));
  t.ctx.ser = &t.ser;
}

TEST(SerDispTables, ThreeUris_FourPages) {
  ServerFixture t;
  t.Add("b", {.msgType = 1, .pktType = 2, .payloadFormat = 2});
  t.Add("c", {.observe = 7, .pktType = 3, .payloadFormat = 0});
  t.Add("a");
  EXPECT_EQ(t.host.RunCommand("disp server uriVtbl"),
            (Pages{"server Vtbl[  0]: uri(a)/msgType(CON)/observe(0)/pktType(DEFAULT)/"
                   "payloadFormat(JSON)/listen(notListen-:0)\n",
                   "server Vtbl[  1]: uri(b)/msgType(NON)/observe(0)/pktType(UNICAST)/"
                   "payloadFormat(BYTE)/listen(notListen-:0)\n",
                   "server Vtbl[  2]: uri(c)/msgType(CON)/observe(7)/pktType(__unknown__)/"
                   "payloadFormat(__unknown__)/listen(notListen-:0)\n",
                   " ***total 3 server uriVtbl(s) ***\n"}));
}

TEST(SerDispTables, AttachedUri_ShowsItsListen) {
  ServerFixture t;
  t.Attach(t.Add("a"), Ipv4Listen(0x0A000001, 5683));
  t.Attach(t.Add("b"), Ipv6Listen("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x01", 65535));
  EXPECT_EQ(t.host.RunCommand("disp server uriVtbl"),
            (Pages{"server Vtbl[  0]: uri(a)/msgType(CON)/observe(0)/pktType(DEFAULT)/"
                   "payloadFormat(JSON)/listen(hasListen-10.0.0.1:5683)\n",
                   "server Vtbl[  1]: uri(b)/msgType(CON)/observe(0)/pktType(DEFAULT)/"
                   "payloadFormat(JSON)/listen(hasListen-2001:db8::1:65535)\n",
                   " ***total 2 server uriVtbl(s) ***\n"}));
}

// The address buffer has 32 bytes; a longer address shows as the marker.
TEST(SerDispTables, LongIpv6Address_ShowsTheMarker) {
  ServerFixture t;
  const char *longest = "\x2a\xaa\xbb\xbb\xcc\xcc\xdd\xdd\xee\xee\xff\xff\x1a\xaa\x2b\xbb";
  t.Attach(t.Add("a"), Ipv6Listen(longest, 1));
  EXPECT_EQ(t.host.RunCommand("disp server listen"),
            (Pages{"server listen[  0]: listenAddr(-v6i-)/port(1)/endPointIsNull(0)/"
                   "uriDataListIsEmpty(0)\n",
                   " ***total 1 server listen(s) ***\n"}));
}

TEST(SerDispTables, ObserveRecord_ShowsSetsTimerAndObservers) {
  ServerFixture t;
  CoapRpcSerUriVtbl *entry = t.AddObservable("obs");
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl"),
            "server Vtbl[  0]: uri(obs)/msgType(CON)/observe(1)/pktType(DEFAULT)/"
            "payloadFormat(JSON)/tupleChgListEmpty(1)/tupleSetEmpty(1)/UpdateTimer(Idel)/"
            "observerNum(0)/isSendingLargeBlock(0)/listen(notListen-:0)\n");

  entry->observerNum = 4294967295;
  entry->isSendingLargeBlock = 1;
  COAP_RpcSerUpdateTuple(&t.ctx, entry, "eth0", "1000");
  t.Attach(entry, Ipv4Listen(0x7F000001, 1234));
  t.host.Display().ForgetContext();
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl"),
            "server Vtbl[  0]: uri(obs)/msgType(CON)/observe(1)/pktType(DEFAULT)/"
            "payloadFormat(JSON)/tupleChgListEmpty(0)/tupleSetEmpty(0)/UpdateTimer(Running)/"
            "observerNum(4294967295)/isSendingLargeBlock(1)/listen(hasListen-127.0.0.1:1234)\n");
}

TEST(SerDispTables, Resource_ShowsWhetherAnythingIsBound) {
  ServerFixture t;
  t.Attach(t.Add("b"), Ipv4Listen(0x0A000001, 5683));
  const char uri[COAP_RPC_URI_SIZE] = "a";
  COAP_RpcSerAddUriRes(&t.ser, uri);
  EXPECT_EQ(t.host.RunCommand("disp server resource"),
            (Pages{"server resource[  0]: uri(a)/uriDataListIsEmpty(1)\n",
                   "server resource[  1]: uri(b)/uriDataListIsEmpty(0)\n",
                   " ***total 2 server resource(s) ***\n"}));
}

TEST(SerDispTables, Listen_ShowsEndPointAndEntries) {
  ServerFixture t;
  t.Attach(t.Add("a"), Ipv4Listen(0x0A000002, 80));
  const CoapRpcSerListenAddr bare = Ipv4Listen(0x09FFFFFF, 80);
  COAP_RpcSerConnAddListen(&t.ser, nullptr, &bare);
  EXPECT_EQ(t.host.RunCommand("disp server listen"),
            (Pages{"server listen[  0]: listenAddr(9.255.255.255)/port(80)/endPointIsNull(1)/"
                   "uriDataListIsEmpty(1)\n",
                   "server listen[  1]: listenAddr(10.0.0.2)/port(80)/endPointIsNull(0)/"
                   "uriDataListIsEmpty(0)\n",
                   " ***total 2 server listen(s) ***\n"}));
}

TEST(SerDispTables, HostileUris_ArePrintedAsTheyAre) {
  ServerFixture t;
  CoapRpcUriKey key = {};
  memset(key.uri, 'u', sizeof(key.uri));
  t.Add(key);
  t.Add("%s%n%x");
  t.Add("\x1b[2J\n\x7f");
  const Pages pages = t.host.RunCommand("disp server uriVtbl");
  ASSERT_EQ(pages.size(), 4u);
  EXPECT_EQ(pages[0].substr(0, 31), "server Vtbl[  0]: uri(\x1b[2J\n\x7f)/m");
  EXPECT_EQ(pages[1].substr(0, 31), "server Vtbl[  1]: uri(%s%n%x)/m");
  EXPECT_EQ(pages[2], "server Vtbl[  2]: uri(" + std::string(64, 'u') +
                          ")/msgType(CON)/observe(0)/pktType(DEFAULT)/payloadFormat(JSON)/"
                          "listen(notListen-:0)\n");
}

TEST(SerDispTables, ResourceWithoutTerminator_IsPrintedAndPassed) {
  ServerFixture t;
  char uri[COAP_RPC_URI_SIZE];
  memset(uri, 'u', sizeof(uri));
  COAP_RpcSerAddUriRes(&t.ser, uri);
  EXPECT_EQ(
      t.host.RunCommand("disp server resource"),
      (Pages{"server resource[  0]: uri(" + std::string(64, 'u') + ")/uriDataListIsEmpty(1)\n",
             " ***total 1 server resource(s) ***\n"}));
}

TEST(SerDispTables, SameUri_IsPagedByItsWholeKey) {
  ServerFixture t;
  for (uint32_t msgType : {0u, 1u}) {
    for (uint32_t pktType : {0u, 1u, 2u}) {
      t.Add("a", {.msgType = msgType, .pktType = pktType});
    }
  }
  const Pages pages = t.host.RunCommand("disp server uriVtbl");
  ASSERT_EQ(pages.size(), 7u);
  EXPECT_EQ(pages[4].substr(0, 72),
            "server Vtbl[  4]: uri(a)/msgType(NON)/observe(0)/pktType(BROADCAST)/payl");
  EXPECT_EQ(pages[6], " ***total 6 server uriVtbl(s) ***\n");
}

TEST(SerDispPaging, Position_IsTheWholeKeyAndAFourByteCounter) {
  ServerFixture t;
  const TestDisp &disp = t.host.Display();
  CoapRpcSerUriVtbl *entry = t.Add("a");
  t.Attach(entry, Ipv4Listen(0x0A000002, 80));

  t.host.InvokeOnce("disp server uriVtbl");
  EXPECT_EQ(disp.SavedKey(), std::string(reinterpret_cast<const char *>(&entry->key), 76));
  EXPECT_EQ(disp.SavedCounter(), std::string("\1\0\0\0", 4));
  t.host.InvokeOnce("disp server uriVtbl");
  EXPECT_FALSE(disp.HasContext());

  t.host.InvokeOnce("disp server resource");
  EXPECT_EQ(disp.SavedKey(), "a" + std::string(63, '\0'));
  EXPECT_EQ(disp.SavedCounter(), std::string("\1\0\0\0", 4));
  t.host.InvokeOnce("disp server resource");

  t.host.InvokeOnce("disp server listen");
  EXPECT_EQ(disp.SavedKey(), std::string(reinterpret_cast<const char *>(&entry->listen->key), 24));
  EXPECT_EQ(disp.SavedCounter(), std::string("\1\0\0\0", 4));
  t.host.InvokeOnce("disp server listen");
  EXPECT_FALSE(disp.HasContext());
}

TEST(SerDispPaging, RecordRemovedBetweenPages_DoesNotEndTheWalk) {
  ServerFixture t;
  CoapRpcSerUriVtbl *a = t.Add("a");
  CoapRpcSerUriVtbl *b = t.Add("b");
  t.Add("c");
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl").substr(0, 24), "server Vtbl[  0]: uri(a)");
  COAP_RpcSerDelUriVtbl(&t.ser, a);
  COAP_RpcSerDelUriVtbl(&t.ser, b);
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl").substr(0, 24), "server Vtbl[  1]: uri(c)");
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl"), " ***total 2 server uriVtbl(s) ***\n");
  EXPECT_FALSE(t.host.Display().HasContext());
}

TEST(SerDispPaging, RecordAddedBetweenPages_IsShownWhenItIsAhead) {
  ServerFixture t;
  t.Add("b");
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl").substr(0, 24), "server Vtbl[  0]: uri(b)");
  t.Add("a");
  t.Add("c");
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl").substr(0, 24), "server Vtbl[  1]: uri(c)");
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl"), " ***total 2 server uriVtbl(s) ***\n");
}

TEST(SerDispPaging, TableEmptiedBetweenPages_EndsWithTheCount) {
  ServerFixture t;
  CoapRpcSerUriVtbl *a = t.Add("a");
  t.host.InvokeOnce("disp server uriVtbl");
  COAP_RpcSerDelUriVtbl(&t.ser, a);
  EXPECT_EQ(t.host.InvokeOnce("disp server uriVtbl"), " ***total 1 server uriVtbl(s) ***\n");
}

TEST(SerDispPaging, TenThousandChangingRecords_AreWalkedToTheEnd) {
  ServerFixture t;
  t.ctx.log = 0;
  std::vector<CoapRpcSerUriVtbl *> entries;
  for (uint32_t i = 0; i < kNumMany; ++i) entries.push_back(t.Add(std::to_string(100'000 + i)));
  uint32_t numLines = 0;
  std::string page = t.host.InvokeOnce("disp server uriVtbl");
  while (t.host.Display().HasContext()) {
    ASSERT_EQ(page.find("uri(" + std::to_string(100'000 + numLines) + ")"),
              numLines < 1000 ? 18u : 19u);
    COAP_RpcSerDelUriVtbl(&t.ser, entries[numLines]);
    ++numLines;
    page = t.host.InvokeOnce("disp server uriVtbl");
  }
  EXPECT_EQ(numLines, kNumMany);
  EXPECT_EQ(page, " ***total 10000 server uriVtbl(s) ***\n");
}

TEST(SerDispTexts, AreCutAtTheBufferAndGiveIt) {
  ServerFixture t;
  CoapRpcSerUriVtbl *plain = t.Add("plain");
  CoapRpcSerUriVtbl *obs = t.AddObservable("obs");
  t.Attach(plain, Ipv4Listen(0x0A000001, 5683));
  char buf[10];
  EXPECT_EQ(COAP_RpcGetSerUriVtblStr_(plain, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "uri(plain");
  EXPECT_EQ(COAP_RpcGetSerUriVtblStr_(obs, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "uri(obs)/");
  EXPECT_EQ(COAP_RpcGetSerListenStr_(plain->listen, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "listenAdd");
  EXPECT_EQ(COAP_RpcGetSerUriResStr_(COAP_RpcSerFindFirstUriRes(&t.ser), buf, 1), buf);
  EXPECT_STREQ(buf, "");
}

}  // namespace
}  // namespace coap_rpc_test
