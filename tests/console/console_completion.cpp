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
  EXPECT_EQ(Texts{}, completion.choices);
  return completion.insert;
}

Texts Choices(std::string_view line) {
  const Completion completion = console::Complete(Example(), line);
  EXPECT_EQ("", completion.insert);
  return completion.choices;
}

}  // namespace

TEST(Complete, Words_AreInserted) {
  EXPECT_EQ("p ", Insert("dis"));
  EXPECT_EQ("p ", Insert("  dis"));
  EXPECT_EQ("erver ", Insert("disp s"));
  EXPECT_EQ("iVtbl ", Insert("disp server ur"));
  EXPECT_EQ("mat ", Insert("for"));
  EXPECT_EQ("json ", Insert("format "));
  EXPECT_EQ("ject", Insert("ob"));
}

TEST(Complete, Choices_AreShown) {
  EXPECT_EQ((Texts{"disp", "format", "help", "object", "objects", "watch"}), Choices(""));
  EXPECT_EQ((Texts{"client", "server"}), Choices("disp "));
  EXPECT_EQ((Texts{"resource", "tupleSetTree", "uriVtbl"}), Choices("disp server "));
  EXPECT_EQ((Texts{"object", "objects"}), Choices("object"));
}

TEST(Complete, Unknown_DoesNothing) {
  EXPECT_EQ(Texts{}, Choices("x"));
  EXPECT_EQ(Texts{}, Choices("disp nobody "));
  EXPECT_EQ(Texts{}, Choices("disp server uriVtbl "));
  EXPECT_EQ(Texts{}, Choices("disp client request 0 "));
}

TEST(Complete, Objects_AreNamed) {
  EXPECT_EQ((Texts{"demo", "shop"}), Choices("object "));
  EXPECT_EQ("hop ", Insert("object s"));
}

TEST(Complete, Parameters_AreNamedOrInserted) {
  EXPECT_EQ(Texts{"<uniStartIndex>"}, Choices("disp client request "));
  EXPECT_EQ(Texts{"<pcUri>"}, Choices("disp server tupleSetTree "));
  Catalog catalog = Example();
  catalog.Remember({{"uri", "shop/stock", 0}, {"observe", "1", 0}});
  catalog.Remember({{"uri", "two words", 0}});
  EXPECT_EQ("op/stock ", console::Complete(catalog, "disp server tupleSetTree sh").insert);
  EXPECT_EQ(Texts{"<pcUri>"}, console::Complete(catalog, "disp server tupleSetTree x").choices);
}

TEST(Complete, Watch_CompletesTheCommandBehindTheSeconds) {
  EXPECT_EQ("p ", Insert("watch 2 dis"));
  EXPECT_EQ((Texts{"client", "server"}), Choices("watch 2 disp "));
  EXPECT_EQ(Texts{}, Choices("watch 2 hel"));
}

TEST(Complete, LongLines_AreTaken) {
  EXPECT_EQ(Texts{}, Choices(std::string(1 << 20, 'x')));
  EXPECT_EQ(Texts{}, Choices(std::string(1 << 20, ' ') + "x"));
}

TEST(Complete, ParamOfAnyName_IsShown) {
  Catalog catalog;
  for (const char *name : {"", "p", "un", "pc", "uni", "x"}) {
    catalog.commands = {{"demo", "demo echo", {name}}};
    EXPECT_EQ(Texts{"<" + std::string(name) + ">"},
              console::Complete(catalog, "demo echo ").choices);
  }
}
