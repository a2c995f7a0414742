/* host_disp.cpp: display commands, their parameters, pages and errors. */
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "host_support.h"
#include "kst_disp.h"

using host_test::HostPtr;

namespace {

// Output is what one command line gives.
struct Output {
  uint32_t result = 0;
  std::vector<std::string> texts;
  std::vector<std::string> errors;
  size_t maxTexts = SIZE_MAX;  // the sink stops after this many

  static uint32_t OnText(void *param, uint32_t error, const char *text, size_t len) {
    auto *self = static_cast<Output *>(param);
    (error != 0 ? self->errors : self->texts).emplace_back(text, len);
    return self->texts.size() >= self->maxTexts ? 1 : 0;
  }
};

// Object is the record of a display object; its handlers print to the service that it knows.
struct Object {
  Kestrel *host;
  uint32_t rows = 0;
  uint32_t innerResult = 0;

  uint64_t Disp() const { return KestrelDisp(host); }
};

uint32_t PrintAll(void *obj, ...) {
  va_list args;
  va_start(args, obj);
  const char *uri = va_arg(args, const char *);
  const uint32_t first = va_arg(args, uint32_t);
  const char *name = va_arg(args, const char *);
  const uint32_t second = va_arg(args, uint32_t);
  va_end(args);
  KST_DispPrintf_(static_cast<Object *>(obj)->Disp(), "%s,%u,%s,%u", uri, first, name, second);
  return 77;
}

uint32_t PrintText(void *obj, ...) {
  va_list args;
  va_start(args, obj);
  KST_DispPrintf_(static_cast<Object *>(obj)->Disp(), "<%s>", va_arg(args, const char *));
  va_end(args);
  return 0;
}

uint32_t PrintNumber(void *obj, ...) {
  va_list args;
  va_start(args, obj);
  KST_DispPrintf_(static_cast<Object *>(obj)->Disp(), "<%u>", va_arg(args, uint32_t));
  va_end(args);
  return 0;
}

uint32_t PrintHello(void *obj, ...) {
  KST_DispPrintf_(static_cast<Object *>(obj)->Disp(), "hello");
  return 0;
}

uint32_t PrintMegabyte(void *obj, ...) {
  const std::string text(1 << 20, 'x');
  KST_DispPrintf_(static_cast<Object *>(obj)->Disp(), "%s", text.c_str());
  return 0;
}

// PrintRows prints one row a page, with the position as key and counter.
uint32_t PrintRows(void *obj, ...) {
  auto *object = static_cast<Object *>(obj);
  uint32_t counter = 0;
  const void *key = KST_DispGetLastCtx_(object->Disp(), &counter);
  EXPECT_TRUE(!key || std::memcmp(key, "key", 3) == 0);
  if (counter == object->rows) {
    KST_DispPrintf_(object->Disp(), "total %u\n", counter);
    return 0;
  }
  KST_DispPrintf_(object->Disp(), "row %u\n", counter++);
  KST_DispSaveCtx_(object->Disp(), "key", 3, &counter, sizeof counter);
  return 0;
}

uint32_t UnregisterMyself(void *obj, ...) {
  auto *object = static_cast<Object *>(obj);
  KST_DispPrintf_(object->Disp(), "going");
  KST_DispSaveCtx_(object->Disp(), "k", 1, "c", 1);
  EXPECT_EQ(KST_DispUnregObj(object->Disp(), "one"), 0u);
  EXPECT_EQ(KST_DispRegObj(object->Disp(), "one", object), 0u);
  return 0;
}

uint32_t RunInside(void *obj, ...) {
  auto *object = static_cast<Object *>(obj);
  const KestrelDispRequest request{"disp hello", nullptr, 0, nullptr, nullptr};
  object->innerResult = KestrelDispRun(object->host, &request);
  KST_DispPrintf_(object->Disp(), "still here");
  return 0;
}

uint32_t SaveTooMuch(void *obj, ...) {
  const uint64_t disp = static_cast<Object *>(obj)->Disp();
  const char bytes[1025] = "";
  KST_DispSaveCtx_(disp, bytes, 1025, bytes, 4);
  KST_DispSaveCtx_(disp, bytes, 4, bytes, 17);
  KST_DispPrintf_(disp, "once");
  return 0;
}

uint32_t SaveEmptyAndFull(void *obj, ...) {
  const uint64_t disp = static_cast<Object *>(obj)->Disp();
  char counter[17] = "untouched.......";
  const void *key = KST_DispGetLastCtx_(disp, counter);
  KST_DispPrintf_(disp, "%s %.16s", key ? "key" : "first", counter);
  if (!key) KST_DispSaveCtx_(disp, nullptr, 0, "0123456789abcdef", 16);
  return 0;
}

class HostDisp : public testing::Test {
 protected:
  HostDisp() {
    KestrelParam param{};
    param.logSinks = KESTREL_SINK_NONE;
    host_.reset(KestrelNew(&param, nullptr, 0));
    one_.host = two_.host = host_.get();
    KST_DispRegObj(Disp(), "one", &one_);
  }

  uint64_t Disp() const { return KestrelDisp(host_.get()); }

  uint32_t Register(KST_DISP_FUNC handler, const char *command, const char *object = "one") {
    return KST_DispRegFunc_(Disp(), "Handler", handler, command, 128, object, 0);
  }

  Output Run(const char *line, const char *object = nullptr, uint32_t maxPages = 0,
             size_t maxTexts = SIZE_MAX) {
    Output output;
    output.maxTexts = maxTexts;
    const KestrelDispRequest request{line, object, maxPages, Output::OnText, &output};
    output.result = KestrelDispRun(host_.get(), &request);
    return output;
  }

  void ExpectError(const Output &output, KestrelResult result, const char *reason) {
    EXPECT_EQ(output.result, static_cast<uint32_t>(result));
    EXPECT_EQ(output.errors, std::vector<std::string>{reason});
    EXPECT_EQ(output.texts.size(), 0u);
  }

  HostPtr host_;
  Object one_{}, two_{};
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(HostDisp, Parameters_ArriveByTheirTypes) {
  ASSERT_EQ(KST_DispRegFunc_(Disp(), "PrintAll", PrintAll, "disp all", 128, "one", 4, "pcUri",
                             "uniFirst", "pcName", "uniSecond"),
            0u);
  EXPECT_EQ(Run("disp all a/b 4294967295 \"x y\" 0").texts, Texts{"a/b,4294967295,x y,0"});
}

TEST_F(HostDisp, LongestCommand_IsTaken) {
  KST_DispRegFunc_(Disp(), "PrintText", PrintText, "disp", 128, "one", 1, "pcWhat");
  Register(PrintHello, "disp hello");
  EXPECT_EQ(Run("disp hello").texts, Texts{"hello"});
  EXPECT_EQ(Run("disp other").texts, Texts{"<other>"});
}

TEST_F(HostDisp, Errors_AreClear) {
  KST_DispRegFunc_(Disp(), "PrintText", PrintText, "disp uri", 128, "one", 1, "pcUri");
  KST_DispRegFunc_(Disp(), "PrintNumber", PrintNumber, "disp from", 128, "one", 1, "uniStart");
  ExpectError(Run("disp nothing"), KESTREL_UNKNOWN_COMMAND, "unknown command \"disp nothing\"");
  ExpectError(Run(""), KESTREL_UNKNOWN_COMMAND, "unknown command \"\"");
  ExpectError(Run("disp"), KESTREL_UNKNOWN_COMMAND, "unknown command \"disp\"");
  ExpectError(Run("disp uri x", "nobody"), KESTREL_UNKNOWN_OBJECT, "unknown object \"nobody\"");
  ExpectError(Run("disp uri"), KESTREL_MISSING_PARAM, "missing parameter pcUri");
  ExpectError(Run("disp uri a b"), KESTREL_EXTRA_PARAM, "unexpected parameter \"b\"");
  ExpectError(Run("disp from -1"), KESTREL_BAD_NUMBER,
              "parameter uniStart must be a decimal number up to 4294967295, not \"-1\"");
  ExpectError(Run("disp from 4294967296"), KESTREL_BAD_NUMBER,
              "parameter uniStart must be a decimal number up to 4294967295, not \"4294967296\"");
  EXPECT_EQ(Run("disp from 5").texts, Texts{"<5>"});
}

TEST_F(HostDisp, SeveralObjects_MustBeNamed) {
  KST_DispRegObj(Disp(), "two", &two_);
  Register(PrintHello, "disp hello", "one");
  Register(PrintHello, "disp hello", "two");
  Register(PrintRows, "disp rows", "two");
  ExpectError(Run("disp hello"), KESTREL_AMBIGUOUS,
              "several objects have this command, name one of: one, two");
  EXPECT_EQ(Run("disp hello", "two").texts, Texts{"hello"});
  EXPECT_EQ(Run("disp rows").texts, Texts{"total 0\n"});
  ExpectError(Run("disp rows", "one"), KESTREL_UNKNOWN_COMMAND, "unknown command \"disp rows\"");
}

TEST_F(HostDisp, HostileLines_AreRefused) {
  Register(PrintHello, "disp hello");
  const std::string mega(1 << 20, 'x');
  ExpectError(Run(mega.c_str()), KESTREL_BAD_LINE, "the command line is longer than 4096 bytes");
  ExpectError(Run("disp\x01hello"), KESTREL_BAD_LINE, "the command line has control characters");
  ExpectError(Run("disp \"hello"), KESTREL_BAD_LINE, "a double quote is not closed");
  const std::string object = "\"" + std::string(64, 'x') + "...\"";
  ExpectError(Run("disp hello", mega.c_str()), KESTREL_UNKNOWN_OBJECT,
              ("unknown object " + object).c_str());
  std::string manyWords;
  while (manyWords.size() < 4096) manyWords += "a ";
  EXPECT_EQ(static_cast<int>(Run(manyWords.c_str()).result), KESTREL_UNKNOWN_COMMAND);
  EXPECT_EQ(static_cast<int>(Run(nullptr).result), KESTREL_BAD_ARGUMENT);
  EXPECT_EQ(Run("disp hello\r\n").texts, Texts{"hello"});
}

TEST_F(HostDisp, LongestLine_IsTaken) {
  KST_DispRegFunc_(Disp(), "PrintText", PrintText, "disp", 128, "one", 1, "pcUri");
  const std::string uri(4096 - 5, 'u');
  EXPECT_EQ(Run(("disp " + uri + "\r\n").c_str()).texts, Texts{"<" + uri + ">"});
  EXPECT_EQ(static_cast<int>(Run(("disp u" + uri).c_str()).result), KESTREL_BAD_LINE);
  EXPECT_EQ(static_cast<int>(Run(("disp " + uri + "\rx").c_str()).result), KESTREL_BAD_LINE);
  EXPECT_EQ(static_cast<int>(Run(("disp " + uri + "\r\nx").c_str()).result), KESTREL_BAD_LINE);
}

TEST_F(HostDisp, Pages_FollowUntilNoContextIsSaved) {
  Register(PrintRows, "disp rows");
  one_.rows = 3;
  const Output output = Run("disp rows");
  EXPECT_EQ(static_cast<int>(output.result), KESTREL_OK);
  EXPECT_EQ(output.texts, (Texts{"row 0\n", "row 1\n", "row 2\n", "total 3\n"}));
  EXPECT_EQ(Run("disp rows").texts, (Texts{"row 0\n", "row 1\n", "row 2\n", "total 3\n"}));
}

TEST_F(HostDisp, Pages_AreLimited) {
  Register(PrintRows, "disp rows");
  one_.rows = 3;
  const Output output = Run("disp rows", nullptr, 2);
  EXPECT_EQ(static_cast<int>(output.result), KESTREL_MORE_PAGES);
  EXPECT_EQ(output.texts, (Texts{"row 0\n", "row 1\n"}));
  EXPECT_EQ(output.errors, Texts{"stopped after 2 pages, there are more"});
  EXPECT_EQ(static_cast<int>(Run("disp rows", nullptr, 4).result), KESTREL_OK);
}

TEST_F(HostDisp, Sink_StopsTheCommand) {
  Register(PrintRows, "disp rows");
  one_.rows = 1000;
  const Output output = Run("disp rows", nullptr, 0, 2);
  EXPECT_EQ(static_cast<int>(output.result), KESTREL_STOPPED);
  EXPECT_EQ(output.texts, (Texts{"row 0\n", "row 1\n"}));
  EXPECT_EQ(output.errors.size(), 0u);
}

TEST_F(HostDisp, EndlessHandler_StopsAtTheDefaultLimit) {
  Register(PrintRows, "disp rows");
  one_.rows = UINT32_MAX;
  const KestrelDispRequest request{"disp rows", nullptr, 0, nullptr, nullptr};
  EXPECT_EQ(static_cast<int>(KestrelDispRun(host_.get(), &request)), KESTREL_MORE_PAGES);
}

TEST_F(HostDisp, HandlerUnregistersItsObject) {
  Register(UnregisterMyself, "disp going");
  const Output output = Run("disp going");
  EXPECT_EQ(static_cast<int>(output.result), KESTREL_OK);
  EXPECT_EQ(output.texts, Texts{"going"});
  EXPECT_EQ(static_cast<int>(Run("disp going").result), KESTREL_UNKNOWN_COMMAND);
}

TEST_F(HostDisp, CommandInsideACommand_IsRefused) {
  Register(PrintHello, "disp hello");
  Register(RunInside, "disp inside");
  EXPECT_EQ(Run("disp inside").texts, Texts{"still here"});
  EXPECT_EQ(static_cast<int>(one_.innerResult), KESTREL_BUSY);
}

TEST_F(HostDisp, Context_HasLimits) {
  Register(SaveTooMuch, "disp much");
  Register(SaveEmptyAndFull, "disp edge");
  EXPECT_EQ(Run("disp much").texts, Texts{"once"});
  EXPECT_EQ(Run("disp edge").texts, (Texts{"first untouched.......", "key 0123456789abcdef"}));
}

TEST_F(HostDisp, OutsideACommand_NothingHappens) {
  char counter[4] = "abc";
  KST_DispPrintf_(Disp(), "lost");
  KST_DispSaveCtx_(Disp(), "k", 1, "c", 1);
  EXPECT_EQ(KST_DispGetLastCtx_(Disp(), counter), nullptr);
  EXPECT_STREQ(counter, "abc");
  KST_DispPrintf_(0, "lost");
  KST_DispSaveCtx_(0, "k", 1, "c", 1);
  EXPECT_EQ(KST_DispGetLastCtx_(0, counter), nullptr);
}

TEST_F(HostDisp, LongText_ArrivesWhole) {
  Register(PrintMegabyte, "disp big");
  const Output output = Run("disp big");
  ASSERT_EQ(output.texts.size(), 1u);
  EXPECT_TRUE(output.texts[0] == std::string(1 << 20, 'x'));
}

TEST_F(HostDisp, Registration_RefusesWhatIsUnsound) {
  EXPECT_NE(KST_DispRegObj(Disp(), "one", &two_), 0u);
  EXPECT_NE(KST_DispRegObj(0, "three", &two_), 0u);
  EXPECT_NE(KST_DispUnregObj(Disp(), "nobody"), 0u);
  EXPECT_NE(Register(PrintHello, "disp hello", "nobody"), 0u);
  EXPECT_NE(Register(nullptr, "disp hello"), 0u);
  for (const char *command : {"", " disp", "disp ", "disp  hello", "disp\nhello", "disp \"x\""}) {
    EXPECT_NE(Register(PrintHello, command), 0u) << command;
  }
  EXPECT_EQ(Register(PrintHello, "disp hello"), 0u);
  EXPECT_NE(Register(PrintHello, "disp hello"), 0u);
  EXPECT_NE(KST_DispRegFunc_(Disp(), "H", PrintText, "a", 0, "one", 1, "uri"), 0u);
  EXPECT_NE(KST_DispRegFunc_(Disp(), "H", PrintText, "a", 0, "one", 1, ""), 0u);
  EXPECT_NE(
      KST_DispRegFunc_(Disp(), "H", PrintText, "a", 0, "one", 5, "pcA", "pcB", "pcC", "pcD", "pcE"),
      0u);
  EXPECT_NE(KST_DispRegFunc_(0, "H", PrintText, "a", 0, "one", 0), 0u);
}

TEST_F(HostDisp, Listings_AreInOrder) {
  KST_DispRegObj(Disp(), "abc", &two_);
  Register(PrintRows, "disp rows");
  KST_DispRegFunc_(Disp(), "PrintText", PrintText, "disp uri", 128, "one", 2, "pcUri", "uniStart");
  Register(PrintHello, "disp hello", "abc");

  Texts found;
  const auto addObject = [](void *list, const char *object) {
    static_cast<Texts *>(list)->push_back(object);
    return 0u;
  };
  KestrelDispObjects(host_.get(), addObject, &found);
  EXPECT_EQ(found, (Texts{"abc", "one"}));

  const auto addCommand = [](void *list, const KestrelDispCommand *command) {
    std::string line = std::string(command->object) + ":" + command->command + ":" +
                       command->handlerName + ":" + std::to_string(command->flags);
    for (uint32_t i = 0; i < command->paramCount; ++i) {
      line += std::string(":") + command->params[i];
    }
    static_cast<Texts *>(list)->push_back(line);
    return 0u;
  };
  found.clear();
  KestrelDispCommands(host_.get(), nullptr, nullptr, addCommand, &found);
  EXPECT_EQ(found, (Texts{"abc:disp hello:Handler:128", "one:disp rows:Handler:128",
                          "one:disp uri:PrintText:128:pcUri:uniStart"}));
  found.clear();
  KestrelDispCommands(host_.get(), "one", "disp r", addCommand, &found);
  EXPECT_EQ(found, Texts{"one:disp rows:Handler:128"});
  found.clear();
  const auto stopAtFirst = [](void *list, const KestrelDispCommand *command) {
    static_cast<Texts *>(list)->push_back(command->command);
    return 1u;
  };
  KestrelDispCommands(host_.get(), nullptr, "", stopAtFirst, &found);
  EXPECT_EQ(found, Texts{"disp hello"});
}
