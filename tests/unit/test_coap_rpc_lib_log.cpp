/* test_coap_rpc_lib_log.cpp: libcoap's messages on their way to both sinks, with caller names. */
#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_caller.h"
#include "logging_functions.h"
#include "test_host.h"

// The C library's functions, under the control of this file: linked with --wrap.
extern "C" {
int __real_backtrace(void **frames, int size);
char **__real_backtrace_symbols(void *const *frames, int size);
int __wrap_backtrace(void **frames, int size);
char **__wrap_backtrace_symbols(void *const *frames, int size);
}

using namespace coap_rpc_test;

namespace {

constexpr int kOwnFrame = coap_rpc::kForeignFrames;

int g_missingFrames = 0;
bool g_failSymbols = false;
const char *g_symbol = nullptr;  // in place of every symbol
int g_numLookups = 0;

// LibLog is an instance without libcoap context whose sinks take libcoap's messages.
class LibLog : public testing::Test {
 protected:
  LibLog() {
    g_missingFrames = 0;
    g_failSymbols = false;
    g_symbol = nullptr;
    g_numLookups = 0;
    ctx_.log = host_.Log();
    ctx_.param.dbgHandle = host_.Dbg();
    CoapRpcLibSetLogRoot(&ctx_);
    coap_startup();
    coap_set_log_level(COAP_LOG_OSCORE);
    coap_set_log_handler(CORP_RpcLibCoapLog);
  }
  ~LibLog() override {
    coap_cleanup();
    CoapRpcLibSetLogRoot(nullptr);
  }

  // NameOf asks the look-up for its own caller's caller's caller, with a symbol of our making.
  std::string NameOf(const char *symbol, int32_t size = 256) {
    g_symbol = symbol;
    char buf[256] = "untouched";
    return COAP_RpcLibCoapGetLogCallFuncName_(buf, size);
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
};

struct LevelCase {
  coap_log_t level;
  uint32_t hostLevel;
  uint32_t line;
  bool isCounted;
  const char *text;
};

// Without it the record is shown byte by byte, with those between its fields that nobody set.
void PrintTo(const LevelCase &levelCase, std::ostream *out) { *out << levelCase.text; }

class LibLogLevel : public LibLog, public testing::WithParamInterface<LevelCase> {};

}  // namespace

int __wrap_backtrace(void **frames, int size) {
  std::vector<void *> all(static_cast<size_t>(size) + 1);
  int numFrames = __real_backtrace(all.data(), size + 1);
  if (numFrames > kOwnFrame) {
    all.erase(all.begin() + kOwnFrame);
    --numFrames;
  }
  numFrames -= g_missingFrames;
  for (int i = 0; i < numFrames; ++i) frames[i] = all[static_cast<size_t>(i)];
  return numFrames;
}

char **__wrap_backtrace_symbols(void *const *frames, int size) {
  ++g_numLookups;
  if (g_failSymbols) return nullptr;
  if (!g_symbol) return __real_backtrace_symbols(frames, size);
  auto **symbols = static_cast<char **>(calloc(static_cast<size_t>(size), sizeof(char *)));
  for (int i = 0; i < size; ++i) symbols[i] = const_cast<char *>(g_symbol);
  return symbols;
}

TEST_P(LibLogLevel, Message_MapsToHostLevelAndLine) {
  const LevelCase &expected = GetParam();
  LogFromNamedFunction(expected.level, "hello\n");

  std::vector<LogRecord> records = host_.Logs().Records();
  ASSERT_EQ(records.size(), expected.isCounted ? 4u : 3u);
  if (expected.isCounted) {
    EXPECT_EQ(records[0].kind, LogKind::kCount);
    EXPECT_EQ(records[0].module, "logDefault");
    EXPECT_EQ(records[0].line, expected.line);
    records.erase(records.begin());
  }
  EXPECT_EQ(records[0].kind, LogKind::kFirst);
  EXPECT_EQ(records[0].line, expected.line);
  EXPECT_EQ(records[0].level, expected.hostLevel);
  EXPECT_EQ(records[1].kind, LogKind::kSecond);
  EXPECT_EQ(records[1].module, "logDefault");
  EXPECT_EQ(records[1].line, expected.line);
  EXPECT_EQ(records[1].level, expected.hostLevel);
  EXPECT_EQ(records[1].func, "CORP_RpcLibCoapLog");
  EXPECT_EQ(records[1].format, "[CoapRpc][%s], level = %u, msg = %s");
  EXPECT_EQ(records[1].text, expected.text);
  EXPECT_EQ(records[2].kind, LogKind::kDebug);
  EXPECT_EQ(records[2].level, 1u);
  EXPECT_EQ(records[2].format, "[CoapRpc][%s], level = %u, msg = %s");
  EXPECT_EQ(records[2].text, expected.text);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, LibLogLevel,
    testing::Values(LevelCase{COAP_LOG_EMERG, 3, 80, true,
                              "[CoapRpc][LogFromNamedFunction], level = 0, msg = hello\n"},
                    LevelCase{COAP_LOG_ALERT, 3, 80, true,
                              "[CoapRpc][LogFromNamedFunction], level = 1, msg = hello\n"},
                    LevelCase{COAP_LOG_CRIT, 3, 80, true,
                              "[CoapRpc][LogFromNamedFunction], level = 2, msg = hello\n"},
                    LevelCase{COAP_LOG_ERR, 3, 80, true,
                              "[CoapRpc][LogFromNamedFunction], level = 3, msg = hello\n"},
                    LevelCase{COAP_LOG_WARN, 2, 77, true,
                              "[CoapRpc][LogFromNamedFunction], level = 4, msg = hello\n"},
                    LevelCase{COAP_LOG_NOTICE, 2, 77, true,
                              "[CoapRpc][LogFromNamedFunction], level = 5, msg = hello\n"},
                    LevelCase{COAP_LOG_INFO, 1, 74, false,
                              "[CoapRpc][LogFromNamedFunction], level = 6, msg = hello\n"},
                    LevelCase{COAP_LOG_DEBUG, 0, 71, false,
                              "[CoapRpc][LogFromNamedFunction], level = 7, msg = hello\n"},
                    LevelCase{COAP_LOG_OSCORE, 0, 71, false,
                              "[CoapRpc][LogFromNamedFunction], level = 8, msg = hello\n"},
                    LevelCase{COAP_LOG_DTLS_BASE, 0, 71, false,
                              "[CoapRpc][LogFromNamedFunction], level = 9, msg = hello\n"}));

TEST_F(LibLog, NoInstance_DoesNothing) {
  CoapRpcLibSetLogRoot(nullptr);
  LogFromNamedFunction(COAP_LOG_ERR, "hello\n");
  EXPECT_TRUE(host_.Logs().Records().empty());
  EXPECT_TRUE(TestHost::Process().NullDebugTexts().empty());
  EXPECT_EQ(g_numLookups, 0);
}

TEST_F(LibLog, NoHandles_DebugChannelIsCalledAllTheSame) {
  ctx_.log = 0;
  ctx_.param.dbgHandle = 0;
  LogFromNamedFunction(COAP_LOG_WARN, "hello\n");
  EXPECT_TRUE(host_.Logs().Records().empty());
  EXPECT_EQ(TestHost::Process().NullDebugTexts(),
            std::vector<std::string>{"[CoapRpc][LogFromNamedFunction], level = 4, msg = hello\n"});
}

TEST_F(LibLog, SuppressedRecord_IsCountedAndGoesToDebugChannel) {
  host_.Logs().SuppressSite("logDefault", 77);
  LogFromNamedFunction(COAP_LOG_WARN, "hello\n");
  EXPECT_EQ(host_.Logs().OfKind(LogKind::kCount).size(), 1u);
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kSecond).empty());
  EXPECT_TRUE(host_.HasDebug("[CoapRpc][LogFromNamedFunction], level = 4, msg = hello\n"));
}

TEST_F(LibLog, RealWarning_NamesTheLibcoapFunction) {
  coap_context_t *coapCtx = coap_new_context(nullptr);
  coap_address_t noFamily;
  coap_address_init(&noFamily);
  EXPECT_EQ(coap_new_endpoint(coapCtx, &noFamily, COAP_PROTO_UDP), nullptr);
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc][coap_socket_bind_udp], level = 4, msg = coap_socket_bind_udp: socket: "
      "Address family not supported by protocol\n"));
  coap_free_context(coapCtx);
}

TEST_F(LibLog, SamePlace_IsLookedUpOnce) {
  for (int i = 0; i < 3; ++i) LogFromOtherFunction(COAP_LOG_WARN, "hello");
  EXPECT_EQ(host_.LogsOf("CORP_RpcLibCoapLog").size(), 3u);
  EXPECT_LE(g_numLookups, 1);  // 0 when an earlier test had it looked up
  g_numLookups = 0;
  for (const LogRecord &record : host_.LogsOf("CORP_RpcLibCoapLog")) {
    EXPECT_EQ(record.text, "[CoapRpc][LogFromOtherFunction], level = 4, msg = other hello");
  }
  LogFromOtherFunction(COAP_LOG_WARN, "hello");
  EXPECT_EQ(g_numLookups, 0);
}

TEST_F(LibLog, FailedLookUp_IsTriedAgain) {
  g_failSymbols = true;
  LogFromThirdFunction(COAP_LOG_INFO, "here");
  EXPECT_TRUE(host_.HasLog("[CoapRpc][__get_str_ng__], level = 6, msg = here"));
  g_failSymbols = false;
  g_symbol = "bin/prog(SomeName+0x12) [0x1234]";
  LogFromThirdFunction(COAP_LOG_INFO, "here");
  EXPECT_TRUE(host_.HasLog("[CoapRpc][SomeName], level = 6, msg = here"));
  g_symbol = nullptr;
  LogFromThirdFunction(COAP_LOG_INFO, "here");
  EXPECT_EQ(host_.LogsOf("CORP_RpcLibCoapLog").back().text,
            "[CoapRpc][SomeName], level = 6, msg = here");
}

TEST_F(LibLog, CalledByOthersThanLibcoap_IsLookedUpEachTime) {
  g_symbol = "bin/prog(Direct+0x12) [0x1234]";
  CORP_RpcLibCoapLog(COAP_LOG_INFO, "direct");
  CORP_RpcLibCoapLog(COAP_LOG_INFO, "direct");
  EXPECT_EQ(g_numLookups, 2);
  EXPECT_TRUE(host_.HasLog("[CoapRpc][Direct], level = 6, msg = direct"));
}

TEST_F(LibLog, LookUp_ShortStack_GivesMarker) {
  g_missingFrames = 1;
  EXPECT_EQ(NameOf("bin/prog(Name+0x12) [0x1234]"), "__get_ptr_ng__");
  EXPECT_EQ(g_numLookups, 0);
}

TEST_F(LibLog, LookUp_NoSymbols_GivesMarker) {
  g_failSymbols = true;
  EXPECT_EQ(NameOf(nullptr), "__get_str_ng__");
}

TEST_F(LibLog, LookUp_EmptyText_GivesMarker) {
  EXPECT_EQ(NameOf(""), "__snprintf_str_ng__");
  EXPECT_EQ(NameOf("x"), "__snprintf_str_ng__");
  EXPECT_EQ(NameOf("bin/prog("), "__snprintf_str_ng__");
}

TEST_F(LibLog, LookUp_NoRoom_GivesMarker) {
  EXPECT_EQ(NameOf("bin/prog(Name+0x12)", 0), "__snprintf_str_ng__");
  EXPECT_EQ(NameOf("bin/prog(Name+0x12)", -1), "__snprintf_str_ng__");
}

TEST_F(LibLog, LookUp_Path_TakesTextAfterParenthesis) {
  EXPECT_EQ(NameOf("/usr/lib(old)/prog(Name+0x12) [0x1234]"), "Name");
}

TEST_F(LibLog, LookUp_NoSlash_SkipsFirstCharacterOfWholeText) {
  EXPECT_EQ(NameOf("prog(Name+0x12) [0x1234]"), "rog(Name");
}

TEST_F(LibLog, LookUp_NoParenthesisAfterSlash_SkipsFirstCharacterOfWholeText) {
  EXPECT_EQ(NameOf("(x)/prog [0x1234]"), "x)/prog [0x1234]");
}

TEST_F(LibLog, LookUp_NoName_KeepsText) {
  EXPECT_EQ(NameOf("bin/prog(+0x12) [0x1234]"), "+0x12) [0x1234]");
}

TEST_F(LibLog, LookUp_LongText_IsCut) {
  const std::string symbol = "/prog(" + std::string(10000, 'n') + "+0x1)";
  EXPECT_EQ(NameOf(symbol.c_str()), std::string(255, 'n'));
  EXPECT_EQ(NameOf(symbol.c_str(), 2), "n");
}

TEST(CallerNames, Find_GivesWhatWasRemembered) {
  static coap_rpc::CallerNames names;
  static const char code[16] = {};
  EXPECT_EQ(names.Find(&code[0]), nullptr);
  names.Remember(&code[0], "first");
  names.Remember(&code[1], "second");
  EXPECT_STREQ(names.Find(&code[0]), "first");
  EXPECT_STREQ(names.Find(&code[1]), "second");
  EXPECT_EQ(names.Find(&code[2]), nullptr);
}

TEST(CallerNames, NoCaller_IsNotRemembered) {
  static coap_rpc::CallerNames names;
  names.Remember(nullptr, "name");
  EXPECT_EQ(names.Find(nullptr), nullptr);
}

TEST(CallerNames, LongName_IsNotRemembered) {
  static coap_rpc::CallerNames names;
  static const char code[2] = {};
  names.Remember(&code[0], std::string(55, 'n').c_str());
  names.Remember(&code[1], std::string(56, 'n').c_str());
  EXPECT_STREQ(names.Find(&code[0]), std::string(55, 'n').c_str());
  EXPECT_EQ(names.Find(&code[1]), nullptr);
}

TEST(CallerNames, FullTable_NewNameReplacesOldOne) {
  static coap_rpc::CallerNames names;
  static const char code[4096] = {};
  for (const char &place : code) {
    names.Remember(&place, std::to_string(&place - code).c_str());
    ASSERT_STREQ(names.Find(&place), std::to_string(&place - code).c_str());
  }
  for (const char &place : code) {
    const char *name = names.Find(&place);
    if (name) {
      EXPECT_STREQ(name, std::to_string(&place - code).c_str());
    }
  }
}
