/* test_contract_disp.cpp: the display service. */
#include <cstdarg>
#include <cstring>
#include <string>

#include "contract_test.h"
#include "kst_disp.h"

namespace coap_rpc_test {
namespace {

// Shown is the display object of these tests.  Its handlers print to `disp`.
struct Shown {
  uint64_t disp = 0;
  int numPages = 0;        // of the paged command
  int numInvocations = 0;  // so far
  std::vector<int> seen;   // counters that the paged command got back
  std::string keySeen;     // key that it got back last
  std::string longText;
};

uint32_t ShowHello(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  ++shown->numInvocations;
  KST_DispPrintf_(shown->disp, "hello %d\n", 5);
  KST_DispPrintf_(shown->disp, "%s", "again");
  return 4711;  // must not matter
}

uint32_t ShowParams(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  va_list args;
  va_start(args, obj);
  const char *first = va_arg(args, const char *);
  const uint32_t second = va_arg(args, uint32_t);
  const char *third = va_arg(args, const char *);
  const uint32_t fourth = va_arg(args, uint32_t);
  va_end(args);
  KST_DispPrintf_(shown->disp, "%s|%u|%s|%u", first, second, third, fourth);
  return 0;
}

uint32_t ShowNumbers(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  va_list args;
  va_start(args, obj);
  const uint32_t first = va_arg(args, uint32_t);
  const uint32_t second = va_arg(args, uint32_t);
  va_end(args);
  KST_DispPrintf_(shown->disp, "%u|%u", first, second);
  return 0;
}

uint32_t ShowLong(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  KST_DispPrintf_(shown->disp, "%s", shown->longText.c_str());
  return 0;
}

// Prints one page per invocation and keeps its number in the counter.
uint32_t ShowPages(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  ++shown->numInvocations;
  int counter = -1;
  const auto *key = static_cast<const char *>(KST_DispGetLastCtx_(shown->disp, &counter));
  shown->seen.push_back(counter);
  if (key) shown->keySeen.assign(key, 8);
  const int page = key ? counter + 1 : 0;
  KST_DispPrintf_(shown->disp, "page %d\n", page);
  if (page + 1 < shown->numPages) {
    char saved[9] = "key-wxyz";
    KST_DispSaveCtx_(shown->disp, saved, 8, &page, sizeof page);
    std::memset(saved, 'X', sizeof saved);
  }
  return 0;
}

// Saves contexts of the greatest lengths, then ones that are too long.
uint32_t ShowLimits(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  uint8_t counter[KST_DISP_MAX_COUNTER_LEN] = {};
  const auto *key = static_cast<const uint8_t *>(KST_DispGetLastCtx_(shown->disp, counter));
  if (key) {
    KST_DispPrintf_(shown->disp, "%d %d", key[KST_DISP_MAX_KEY_LEN - 1],
                    counter[KST_DISP_MAX_COUNTER_LEN - 1]);
    return 0;
  }
  const std::vector<uint8_t> savedKey(KST_DISP_MAX_KEY_LEN + 1, 7);
  const std::vector<uint8_t> savedCounter(KST_DISP_MAX_COUNTER_LEN + 1, 9);
  KST_DispSaveCtx_(shown->disp, savedKey.data(), KST_DISP_MAX_KEY_LEN, savedCounter.data(),
                   KST_DISP_MAX_COUNTER_LEN);
  return 0;
}

uint32_t SaveTooLong(void *obj, ...) {
  auto *shown = static_cast<Shown *>(obj);
  ++shown->numInvocations;
  const std::vector<uint8_t> bytes(KST_DISP_MAX_KEY_LEN + 1, 7);
  KST_DispSaveCtx_(shown->disp, bytes.data(), KST_DISP_MAX_KEY_LEN + 1, bytes.data(), 1);
  KST_DispSaveCtx_(shown->disp, bytes.data(), 1, bytes.data(), KST_DISP_MAX_COUNTER_LEN + 1);
  return 0;
}

class ContractDisp : public ContractTest {
 protected:
  void SetUp() override {
    ContractTest::SetUp();
    shown_.disp = Disp();
    ASSERT_EQ(KST_DispRegObj(Disp(), "thing", &shown_), 0u);
  }

  uint32_t Reg(const char *command, KST_DISP_FUNC handler) {
    return KST_DispRegFunc_(Disp(), "Handler", handler, command, 128, "thing", 0);
  }

  std::string Output(const std::string &command, const std::vector<std::string> &args = {}) {
    const ContractDispResult result = Host().RunCommand("thing", command, args);
    EXPECT_TRUE(result.ran) << command;
    return result.output;
  }

  bool Runs(const std::string &objName, const std::string &command) {
    return Host().RunCommand(objName, command, {}).ran;
  }

  Shown shown_;
};

TEST_F(ContractDisp, RegObj_NameTaken_IsRefused) {
  Shown other;
  EXPECT_NE(KST_DispRegObj(Disp(), "thing", &other), 0u);
  EXPECT_EQ(KST_DispRegObj(Disp(), "other", &other), 0u);
}

TEST_F(ContractDisp, RegObj_Service0_IsRefused) {
  EXPECT_NE(KST_DispRegObj(0, "other", &shown_), 0u);
}

TEST_F(ContractDisp, RegObj_Name_IsCopied) {
  char name[] = "named";
  ASSERT_EQ(KST_DispRegObj(Disp(), name, &shown_), 0u);
  name[0] = 'X';
  EXPECT_NE(KST_DispRegObj(Disp(), "named", &shown_), 0u);
}

TEST_F(ContractDisp, UnregObj_ForgetsTheCommands) {
  ASSERT_EQ(Reg("show hello", ShowHello), 0u);
  EXPECT_TRUE(Runs("thing", "show hello"));
  EXPECT_EQ(KST_DispUnregObj(Disp(), "thing"), 0u);
  EXPECT_FALSE(Runs("thing", "show hello"));
  ASSERT_EQ(KST_DispRegObj(Disp(), "thing", &shown_), 0u);
  EXPECT_FALSE(Runs("thing", "show hello"));
  EXPECT_EQ(shown_.numInvocations, 1);
}

TEST_F(ContractDisp, UnregObj_Unknown_IsRefused) {
  EXPECT_EQ(KST_DispUnregObj(Disp(), "thing"), 0u);
  EXPECT_NE(KST_DispUnregObj(Disp(), "thing"), 0u);
  EXPECT_NE(KST_DispUnregObj(Disp(), "never"), 0u);
  EXPECT_NE(KST_DispUnregObj(0, "thing"), 0u);
}

TEST_F(ContractDisp, RegFunc_Texts_AreCopied) {
  char handlerName[] = "Handler";
  char command[] = "show numbers";
  char objName[] = "thing";
  char param[] = "uniFirst";
  ASSERT_EQ(KST_DispRegFunc_(Disp(), handlerName, ShowNumbers, command, 128, objName, 2, param,
                             "uniSecond"),
            0u);
  handlerName[0] = command[0] = objName[0] = param[0] = 'X';
  EXPECT_EQ(Output("show numbers", {"1", "2"}), "1|2");
}

TEST_F(ContractDisp, RegFunc_BadCalls_AreRefused) {
  ASSERT_EQ(Reg("show hello", ShowHello), 0u);
  EXPECT_NE(Reg("show hello", ShowPages), 0u);
  EXPECT_NE(KST_DispRegFunc_(0, "Handler", ShowHello, "a", 128, "thing", 0), 0u);
  EXPECT_NE(KST_DispRegFunc_(Disp(), "Handler", ShowHello, "a", 128, "never", 0), 0u);
  EXPECT_NE(KST_DispRegFunc_(Disp(), "Handler", ShowHello, "a", 128, "thing", 1, "text"), 0u);
  EXPECT_NE(
      KST_DispRegFunc_(Disp(), "Handler", ShowHello, "a", 128, "thing", 2, "pcText", "iNumber"),
      0u);
  EXPECT_FALSE(Runs("thing", "a"));
  EXPECT_EQ(Output("show hello"), "hello 5\nagain");
}

TEST_F(ContractDisp, RegFunc_SameCommandOnTwoObjects_RunsTheNamedOne) {
  Shown other;
  other.disp = Disp();
  ASSERT_EQ(KST_DispRegObj(Disp(), "other", &other), 0u);
  ASSERT_EQ(Reg("show hello", ShowHello), 0u);
  ASSERT_EQ(KST_DispRegFunc_(Disp(), "Handler", ShowHello, "show hello", 128, "other", 0), 0u);
  EXPECT_TRUE(Runs("other", "show hello"));
  EXPECT_EQ(other.numInvocations, 1);
  EXPECT_EQ(shown_.numInvocations, 0);
}

TEST_F(ContractDisp, Run_Unknown_DoesNotRun) {
  ASSERT_EQ(Reg("show hello", ShowHello), 0u);
  EXPECT_FALSE(Runs("thing", "show nothing"));
  EXPECT_FALSE(Runs("never", "show hello"));
  EXPECT_FALSE(Host().RunCommand("thing", "show hello", {"1"}).ran);
  EXPECT_EQ(shown_.numInvocations, 0);
}

TEST_F(ContractDisp, Run_FourParams_ArriveInOrderWithTheirTypes) {
  ASSERT_EQ(KST_DispRegFunc_(Disp(), "Handler", ShowParams, "show params", 128, "thing", 4,
                             "pcFirst", "uniSecond", "pcThird", "uniFourth"),
            0u);
  EXPECT_EQ(Output("show params", {"a/b", "4294967295", "text", "0"}), "a/b|4294967295|text|0");
}

TEST_F(ContractDisp, Printf_LongText_ArrivesWhole) {
  shown_.longText = std::string(300'000, 'x') + "end";
  ASSERT_EQ(Reg("show long", ShowLong), 0u);
  EXPECT_EQ(Output("show long"), shown_.longText);
}

TEST_F(ContractDisp, OutsideACommand_NothingHappens) {
  ASSERT_EQ(Reg("show pages", ShowPages), 0u);
  int counter = 77;
  for (const uint64_t disp : {Disp(), uint64_t{0}}) {
    KST_DispPrintf_(disp, "%s", "nobody sees this");
    KST_DispSaveCtx_(disp, "key-wxyz", 8, &counter, sizeof counter);
    EXPECT_EQ(KST_DispGetLastCtx_(disp, &counter), nullptr);
  }
  EXPECT_EQ(counter, 77);
  shown_.numPages = 1;
  EXPECT_EQ(Output("show pages"), "page 0\n");
  EXPECT_EQ(shown_.seen, std::vector<int>({-1}));
}

TEST_F(ContractDisp, Paged_SavedContext_ComesBackUntilNoneIsSaved) {
  ASSERT_EQ(Reg("show pages", ShowPages), 0u);
  shown_.numPages = 4;
  EXPECT_EQ(Output("show pages"), "page 0\npage 1\npage 2\npage 3\n");
  EXPECT_EQ(shown_.numInvocations, 4);
  EXPECT_EQ(shown_.seen, std::vector<int>({-1, 0, 1, 2}));
  EXPECT_EQ(shown_.keySeen, "key-wxyz");
}

TEST_F(ContractDisp, Paged_SecondRun_StartsAgain) {
  ASSERT_EQ(Reg("show pages", ShowPages), 0u);
  shown_.numPages = 2;
  EXPECT_EQ(Output("show pages"), "page 0\npage 1\n");
  EXPECT_EQ(Output("show pages"), "page 0\npage 1\n");
  EXPECT_EQ(shown_.seen, std::vector<int>({-1, 0, -1, 0}));
}

TEST_F(ContractDisp, SaveCtx_GreatestLengths_AreKept) {
  ASSERT_EQ(Reg("show limits", ShowLimits), 0u);
  EXPECT_EQ(Output("show limits"), "7 9");
}

TEST_F(ContractDisp, SaveCtx_TooLong_IsIgnored) {
  ASSERT_EQ(Reg("save too long", SaveTooLong), 0u);
  EXPECT_EQ(Output("save too long"), "");
  EXPECT_EQ(shown_.numInvocations, 1);
}

TEST(ContractMemStr, Groups_AreParted) {
  const uint8_t bytes[] = {0x01, 0xAB, 0xFF, 0x00, 0x7F};
  char buf[64];
  EXPECT_EQ(KST_GetMemStr(bytes, 5, 0, buf, sizeof buf), buf);
  EXPECT_STREQ(buf, "01abff007f");
  EXPECT_STREQ(KST_GetMemStr(bytes, 5, 1, buf, sizeof buf), "01 ab ff 00 7f");
  EXPECT_STREQ(KST_GetMemStr(bytes, 5, 2, buf, sizeof buf), "01ab ff00 7f");
  EXPECT_STREQ(KST_GetMemStr(bytes, 4, 4, buf, sizeof buf), "01abff00");
  EXPECT_STREQ(KST_GetMemStr(bytes, 5, 100, buf, sizeof buf), "01abff007f");
}

TEST(ContractMemStr, NoBytes_GiveAnEmptyText) {
  char buf[4] = "xxx";
  EXPECT_STREQ(KST_GetMemStr(nullptr, 0, 4, buf, sizeof buf), "");
}

TEST(ContractMemStr, SmallBuffer_IsCutAtWholeBytes) {
  const uint8_t bytes[] = {0x12, 0x34, 0x56};
  const char *const expected[] = {"", "", "", "12", "12", "1234", "1234", "123456", "123456"};
  for (uint32_t size = 1; size <= 8; ++size) {
    std::vector<char> buf(size, 'x');
    EXPECT_EQ(KST_GetMemStr(bytes, 3, 0, buf.data(), size), buf.data());
    EXPECT_STREQ(buf.data(), expected[size]) << size;
  }
}

TEST(ContractMemStr, Size0_TouchesNothing) {
  const uint8_t bytes[] = {0x12};
  char buf[2] = "x";
  EXPECT_EQ(KST_GetMemStr(bytes, 1, 0, buf, 0), buf);
  EXPECT_STREQ(buf, "x");
}

}  // namespace
}  // namespace coap_rpc_test
