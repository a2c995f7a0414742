// Link attributes of direct entries in /.well-known/core.
#include "direct_server.h"
#include "libcoap_memory.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kBadValue = 1900001556, kNoMemory = 1900001557;

class DirectLink : public Direct {
 protected:
  uint32_t SetLink(const char *name, const char *value) {
    return COAP_RpcSerSetLinkAttribute(Ctx(), &key_, name, value);
  }

  // Links asks for the links, all or those of a filter.
  std::string Links(const std::string &filter = "") {
    CoapMessage get = Get(CoapType::kCon, ".well-known/core");
    if (!filter.empty()) get.AddText(kOptUriQuery, filter);
    const CoapMessage answer = Ask(get);
    EXPECT_EQ(answer.code, Code(2, 5));
    EXPECT_EQ(answer.Uint(kOptContentFormat), 40u);
    return answer.Text();
  }
};

TEST_F(DirectLink, EachAttribute_AsTheFormatDemands) {
  ServeDirect(kModeSync);
  EXPECT_EQ(Links(), "</a/b>");
  EXPECT_EQ(SetLink("rt", "temperature-c sensor"), 0u);
  EXPECT_EQ(Links(), "</a/b>;rt=\"temperature-c sensor\"");
  EXPECT_EQ(SetLink("rt", nullptr), 0u);
  EXPECT_EQ(SetLink("if", "core.s"), 0u);
  EXPECT_EQ(Links(), "</a/b>;if=\"core.s\"");
  EXPECT_EQ(SetLink("if", nullptr), 0u);
  EXPECT_EQ(SetLink("ct", "40"), 0u);
  EXPECT_EQ(Links(), "</a/b>;ct=40");
  EXPECT_EQ(SetLink("ct", "0 41"), 0u);
  EXPECT_EQ(Links(), "</a/b>;ct=\"0 41\"");
  EXPECT_EQ(SetLink("ct", nullptr), 0u);
  EXPECT_EQ(SetLink("title", "Room 1, \xC3\xA4;  "), 0u);
  EXPECT_EQ(Links(), "</a/b>;title=\"Room 1, \xC3\xA4;  \"");
}

TEST_F(DirectLink, SeveralAttributes_OneIsReplaced) {
  ServeDirect(kModeSync);
  EXPECT_EQ(SetLink("title", "Room"), 0u);
  EXPECT_EQ(SetLink("ct", "50"), 0u);
  EXPECT_EQ(SetLink("if", "i"), 0u);
  EXPECT_EQ(SetLink("rt", "old"), 0u);
  EXPECT_EQ(SetLink("rt", "new"), 0u);
  EXPECT_EQ(SetLink("if", nullptr), 0u);
  EXPECT_EQ(SetLink("if", nullptr), 0u);
  EXPECT_EQ(Links(), "</a/b>;rt=\"new\";ct=50;title=\"Room\"");
}

TEST_F(DirectLink, Filter_ByEachAttribute) {
  ServeDirect(kModeSync);
  App other;
  Serve(KeyOf("c"), RegOf(&other, kModeSync));
  EXPECT_EQ(SetLink("rt", "Type1 Type2"), 0u);
  EXPECT_EQ(SetLink("if", "If1"), 0u);
  EXPECT_EQ(SetLink("ct", "50"), 0u);
  EXPECT_EQ(SetLink("title", "Room"), 0u);
  const std::string link = "</a/b>;title=\"Room\";ct=50;if=\"If1\";rt=\"Type1 Type2\"";
  for (const char *filter : {"rt=Type1", "rt=Type2", "rt=Ty*", "rt=*", "if=If1", "if=If*", "ct=50",
                             "title=Room", "title=R*", "href=/a*"}) {
    EXPECT_EQ(Links(filter), link) << filter;
  }
  for (const char *filter : {"rt=Type", "rt=Type1%20Type2", "rt=ype*", "rt=", "if=I", "ct=5",
                             "title=room", "rt=Type1x", "rt", "sz=1"}) {
    const bool isAll = std::string_view(filter) == "rt";
    if (!isAll) {
      EXPECT_EQ(Links(filter), "") << filter;
    }
  }
}

TEST_F(DirectLink, Filter_LongerThanTheLastWord_FindsNothing) {
  ServeDirect(kModeSync);
  EXPECT_EQ(SetLink("rt", (std::string(150, 'a') + " b").c_str()), 0u);
  EXPECT_EQ(Links("rt=b" + std::string(140, 'x') + "*"), "");
  EXPECT_EQ(Links("rt=b*").substr(0, 6), "</a/b>");
}

TEST_F(DirectLink, LongAttributes_LinksComeInBlocks) {
  ServeDirect(kModeSync);
  const std::string value(255, 'v');
  for (const char *name : {"rt", "if", "title"}) EXPECT_EQ(SetLink(name, value.c_str()), 0u);
  App other;
  const std::string uri(60, 'u');
  for (int i = 0; i < 5; ++i) Serve(KeyOf((std::to_string(i) + uri).c_str()), RegOf(&other, 0));
  const CoapMessage first = Ask(Get(CoapType::kCon, ".well-known/core"));
  const Bytes all = ReadBlocks(first, ".well-known/core", "", 0x4000,
                               [this](const CoapMessage &next) { return Ask(next); });
  const std::string text(all.begin(), all.end());
  for (const char *name : {"rt", "if", "title"}) {
    EXPECT_NE(text.find(";" + std::string(name) + "=\"" + value + "\""), std::string::npos);
  }
  EXPECT_GT(all.size(), 1024u);
}

// ---- when it is shown ----

TEST_F(DirectLink, SetBeforeTheEntryIsAttached) {
  const CoapRpcSerVtblReg reg = DirectReg(kModeSync);
  EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key_, &reg, nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  EXPECT_EQ(SetLink("rt", "early"), 0u);
  Serve(key_, reg);
  EXPECT_EQ(Links(), "</a/b>;rt=\"early\"");
}

TEST_F(DirectLink, DetachedAndAttachedAgain) {
  ServeDirect(kModeSync);
  App other;
  Serve(KeyOf("c"), RegOf(&other, kModeSync));
  EXPECT_EQ(SetLink("rt", "t"), 0u);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  Tick();
  EXPECT_EQ(Links(), "</c>");
  EXPECT_EQ(SetLink("if", "i"), 0u);
  EXPECT_EQ(Links(), "</c>");
  Serve(key_, DirectReg(kModeSync));
  EXPECT_EQ(Links("rt=t"), "</a/b>;if=\"i\";rt=\"t\"");
}

TEST_F(DirectLink, TwoEntriesOfAPath_TheFirstAttachedOnesCount) {
  ServeDirect(kModeSync);
  EXPECT_EQ(SetLink("rt", "first"), 0u);
  key_ = KeyOf("a/b", COAP_RPC_NON, 0, COAP_RPC_UNICAST);
  ServeDirect(kModeSync);
  EXPECT_EQ(SetLink("rt", "second"), 0u);
  EXPECT_EQ(SetLink("if", "second"), 0u);
  EXPECT_EQ(Links(), "</a/b>;if=\"second\";rt=\"first\"");
  key_ = KeyOf("a/b");
  EXPECT_EQ(SetLink("rt", nullptr), 0u);
  EXPECT_EQ(Links(), "</a/b>;if=\"second\";rt=\"second\"");
}

TEST_F(DirectLink, ObservablePath_KeepsObs) {
  key_.observe = 1;
  ServeDirect(kModeSync);
  EXPECT_EQ(SetLink("rt", "t"), 0u);
  EXPECT_EQ(Links(), "</a/b>;rt=\"t\";obs");
}

// ---- bad input ----

TEST_F(DirectLink, BadArguments) {
  EXPECT_EQ(COAP_RpcSerSetLinkAttribute(nullptr, &key_, "rt", "t"), 1900001554u);
  EXPECT_EQ(COAP_RpcSerSetLinkAttribute(Ctx(), nullptr, "rt", "t"), 1900001554u);
  EXPECT_EQ(COAP_RpcSerSetLinkAttribute(Ctx(), &key_, nullptr, "t"), 1900001554u);
  EXPECT_EQ(SetLink("rt", "t"), 1900001555u) << "not registered";
  Serve(key_, DirectReg(kModeSync));
  EXPECT_EQ(SetLink("rt", "t"), 1900001555u) << "not direct";
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  for (const char *name : {"", "r", "rtt", "RT", "obs", "sz", "href", "rel"}) {
    EXPECT_EQ(SetLink(name, "t"), kBadValue) << name;
    EXPECT_EQ(SetLink(name, nullptr), kBadValue) << name;
  }
  const std::string tooLong(256, 'x');
  for (const char *name : {"rt", "if", "ct", "title"}) {
    for (const char *value : {"", "a\"b", "a\\", "a\nb", "\x7F", "\x1F", tooLong.c_str()}) {
      EXPECT_EQ(SetLink(name, value), kBadValue) << name << " " << value;
    }
  }
  for (const char *value : {" a", "a ", "a  b", " "}) EXPECT_EQ(SetLink("rt", value), kBadValue);
  for (const char *value : {"a", "4x", "-1", "0,41", "0  41"}) {
    EXPECT_EQ(SetLink("ct", value), kBadValue) << value;
  }
  EXPECT_EQ(Links(), "</a/b>");
}

TEST_F(DirectLink, NoMemory_NothingChanges) {
  ServeDirect(kModeSync);
  EXPECT_EQ(SetLink("rt", "old"), 0u);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(SetLink("rt", "new"), kNoMemory);
  EXPECT_EQ(Links(), "</a/b>;rt=\"old\"");
  for (const char *name : {"rt", "if"}) {
    int refused = 0;
    for (int nth = 1; nth == 1 || refused != 0; ++nth) {
      const int64_t numLive = NumLibcoapLive();
      int num = 0;
      const NoMemory none([&](const Need &) { return ++num == nth; });
      const uint32_t ret = SetLink(name, "new");
      refused = none.NumRefused();
      if (refused == 0) break;
      EXPECT_EQ(ret, kNoMemory);
      EXPECT_EQ(NumLibcoapLive(), numLive);
    }
    EXPECT_EQ(SetLink(name, std::string_view(name) == "rt" ? "old" : nullptr), 0u);
    EXPECT_EQ(Links(), "</a/b>;rt=\"old\"");
  }
}

TEST_F(DirectLink, NoMemoryWhileItIsAttached_ServedAllTheSame) {
  const CoapRpcSerVtblReg reg = DirectReg(kModeSync);
  EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key_, &reg, nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  EXPECT_EQ(SetLink("rt", "t"), 0u);
  {
    const NoMemory none([](const Need &need) { return need.tag == COAP_RESOURCEATTR; });
    Serve(key_, reg);
    EXPECT_EQ(none.NumRefused(), 1);
  }
  EXPECT_EQ(Links(), "</a/b>");
  EXPECT_EQ(Ask(Message(kCodeGet)).code, Code(2, 5));
  EXPECT_EQ(SetLink("rt", "t"), 0u);
  EXPECT_EQ(Links(), "</a/b>;rt=\"t\"");
}

TEST_F(DirectLink, Uninit_TextsAreFreed) {
  ServeDirect(kModeSync);
  for (const char *name : {"rt", "if", "title"}) EXPECT_EQ(SetLink(name, "x"), 0u);
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
