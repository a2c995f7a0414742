/* console_completion.cpp: what Tab does. */
#include "completion.h"

#include <gtest/gtest.h>

using console::Catalog;
using console::Completion;

namespace {

using Texts = std::vector<std::string>;

Catalog Example() {
  Catalog catalog;
  catalog.ownCommands = {{"help"}, {"object"}, {"objects"}, {"format", "json"}, {"watch"}};
  catalog.objects = {"demo", "shop"};
  catalog.commands = {{"shop", "disp server uriVtbl", {}},
                      {"shop", "disp server resource", {}},
                      {"shop", "disp server tupleSetTree", {"pcUri"}},
                      {"shop", "disp client request", {"uniStartIndex"}}};
  return catalog;
}

std::string Insert(std::string_view line) {
  const Completion completion = console::Complete(Example(), line);
  EXPECT_EQ(completion.choices, Texts{});
  return completion.insert;
}

Texts Choices(std::string_view line) {
  const Completion completion = console::Complete(Example(), line);
  EXPECT_EQ(completion.insert, "");
  return completion.choices;
}

}  // namespace

TEST(Complete, Words_AreInserted) {
  EXPECT_EQ(Insert("dis"), "p ");
  EXPECT_EQ(Insert("  dis"), "p ");
  EXPECT_EQ(Insert("disp s"), "erver ");
  EXPECT_EQ(Insert("disp server ur"), "iVtbl ");
  EXPECT_EQ(Insert("for"), "mat ");
  EXPECT_EQ(Insert("format "), "json ");
  EXPECT_EQ(Insert("ob"), "ject");
}

TEST(Complete, Choices_AreShown) {
  EXPECT_EQ(Choices(""), (Texts{"disp", "format", "help", "object", "objects", "watch"}));
  EXPECT_EQ(Choices("disp "), (Texts{"client", "server"}));
  EXPECT_EQ(Choices("disp server "), (Texts{"resource", "tupleSetTree", "uriVtbl"}));
  EXPECT_EQ(Choices("object"), (Texts{"object", "objects"}));
}

TEST(Complete, Unknown_DoesNothing) {
  EXPECT_EQ(Choices("x"), Texts{});
  EXPECT_EQ(Choices("disp nobody "), Texts{});
  EXPECT_EQ(Choices("disp server uriVtbl "), Texts{});
  EXPECT_EQ(Choices("disp client request 0 "), Texts{});
}

TEST(Complete, Objects_AreNamed) {
  EXPECT_EQ(Choices("object "), (Texts{"demo", "shop"}));
  EXPECT_EQ(Insert("object s"), "hop ");
}

TEST(Complete, Parameters_AreNamedOrInserted) {
  EXPECT_EQ(Choices("disp client request "), Texts{"<uniStartIndex>"});
  EXPECT_EQ(Choices("disp server tupleSetTree "), Texts{"<pcUri>"});
  Catalog catalog = Example();
  catalog.Remember({{"uri", "shop/stock", 0}, {"observe", "1", 0}});
  catalog.Remember({{"uri", "two words", 0}});
  EXPECT_EQ(console::Complete(catalog, "disp server tupleSetTree sh").insert, "op/stock ");
  EXPECT_EQ(console::Complete(catalog, "disp server tupleSetTree x").choices, Texts{"<pcUri>"});
}

TEST(Complete, Watch_CompletesTheCommandAfterTheSeconds) {
  EXPECT_EQ(Insert("watch 2 dis"), "p ");
  EXPECT_EQ(Choices("watch 2 disp "), (Texts{"client", "server"}));
  EXPECT_EQ(Choices("watch 2 hel"), Texts{});
}

TEST(Complete, LongLines_AreTaken) {
  EXPECT_EQ(Choices(std::string(1 << 20, 'x')), Texts{});
  EXPECT_EQ(Choices(std::string(1 << 20, ' ') + "x"), Texts{});
}

TEST(Complete, ParamOfAnyName_IsShown) {
  Catalog catalog;
  for (const char *name : {"", "p", "un", "pc", "uni", "x"}) {
    catalog.commands = {{"demo", "demo echo", {name}}};
    EXPECT_EQ(console::Complete(catalog, "demo echo ").choices,
              Texts{"<" + std::string(name) + ">"});
  }
}
