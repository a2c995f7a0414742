/* exporter_table.cpp: tables, their changes, and what a viewer of the page gets. */
#include <gtest/gtest.h>

#include "page.h"
#include "table.h"
#include "viewer.h"

using exporter::HostView;
using exporter::TableBuilder;
using exporter::TableId;
using exporter::TablePtr;

namespace {

using Texts = std::vector<std::string>;

const TableId kId = {"shop", "disp server uriVtbl", ""};

TablePtr Build(const Texts &lines, const TablePtr &before = nullptr) {
  TableBuilder builder(kId);
  for (const std::string &line : lines) builder.Line(line);
  return builder.Finish(before);
}

HostView ViewOf(const TablePtr &table, uint64_t numRounds) {
  HostView view;
  view.name = "h";
  view.isUp = true;
  view.numRounds = numRounds;
  if (table) view.tables[kId] = table;
  return view;
}

// WithoutHost drops the event that every round has.
std::string WithoutHost(const std::string &events) {
  return events.substr(events.find("\n\n") + 2);
}

}  // namespace

TEST(TableBuilder, Rows_HaveColumnsAndKeys) {
  const TablePtr table =
      Build({"r[0]: uri(a)/n(1)", "r[1]: uri(b)/m(2)", "text", " ***total 2 r ***"});
  EXPECT_EQ(table->columns, (Texts{"uri", "n", "m"}));
  EXPECT_EQ(table->texts, Texts{"text"});
  ASSERT_EQ(table->rows.size(), 2u);
  EXPECT_NE(table->rows[0].key, table->rows[1].key);
  EXPECT_EQ(RowsJson(*table),
            "[{\"text\": \"text\"},\n{\"uri\": \"a\", \"n\": \"1\"},\n"
            "{\"uri\": \"b\", \"m\": \"2\"}]\n");
}

TEST(TableBuilder, SameTable_IsTheOneBefore) {
  const TablePtr before = Build({"uri(a)/n(1)"});
  EXPECT_EQ(Build({"uri(a)/n(1)"}, before), before);
}

TEST(TableBuilder, Changes_AreRowsThatDiffer) {
  const TablePtr before = Build({"uri(a)/n(1)", "uri(b)/n(1)", "uri(c)/n(1)"});
  const TablePtr now = Build({"uri(a)/n(1)", "uri(b)/n(2)", "uri(d)/n(1)"}, before);
  EXPECT_EQ(now->follows, before->version);
  EXPECT_EQ(
      now->changes,
      "{\"object\":\"shop\",\"command\":\"disp server uriVtbl\",\"argument\":\"\",\"texts\":[],"
      "\"changed\":[[\"b\\u001f\",[\"b\",\"2\"]],[\"d\\u001f\",[\"d\",\"1\"]]],"
      "\"gone\":[\"c\\u001f\"]}");
}

TEST(TableBuilder, OtherColumns_NeedTheWholeTable) {
  const TablePtr before = Build({"uri(a)/n(1)"});
  EXPECT_EQ(Build({"uri(a)/m(1)"}, before)->changes, "");
}

TEST(TableBuilder, RowsOfOneKey_AreToldApart) {
  const TablePtr table = Build({"uri(a)/n(1)", "uri(a)/n(2)", "uri(a)/n(3)"});
  EXPECT_NE(table->rows[0].key, table->rows[1].key);
  EXPECT_NE(table->rows[1].key, table->rows[2].key);
}

TEST(TableBuilder, MoreThanIsKept_IsCut) {
  TableBuilder rows(kId);
  for (size_t i = 0; i < exporter::kMaxRows; ++i) {
    ASSERT_TRUE(rows.Line("uri(" + std::to_string(i) + ")"));
  }
  EXPECT_FALSE(rows.Line("uri(more)"));
  const TablePtr table = rows.Finish(nullptr);
  EXPECT_TRUE(table->isCut);
  EXPECT_EQ(table->rows.size(), exporter::kMaxRows);

  TableBuilder texts(kId);
  size_t count = 0;
  while (texts.Line("text") && count < 100000) ++count;
  EXPECT_EQ(count, exporter::kMaxTexts);
  TableBuilder bytes(kId);
  EXPECT_FALSE(bytes.Line(std::string(exporter::kMaxTableBytes + 1, 'x')));
}

TEST(TableBuilder, Columns_AreBounded) {
  TableBuilder builder(kId);
  for (int i = 0; i < 1000; ++i) builder.Line("c" + std::to_string(i) + "(1)");
  EXPECT_EQ(builder.Finish(nullptr)->columns.size(), exporter::kMaxColumns);
}

TEST(Viewer, FirstAWholeTable_ThenWhatChanged) {
  exporter::Viewer viewer;
  const TablePtr first = Build({"uri(a)/n(1)", "uri(b)/n(1)"});
  EXPECT_EQ(WithoutHost(viewer.Next(ViewOf(first, 1))),
            "event: table\ndata: {\"host\":\"h\",\"table\":" + TableJson(*first) + "}\n\n");
  EXPECT_EQ(viewer.Next(ViewOf(first, 1)), "");
  EXPECT_EQ(WithoutHost(viewer.Next(ViewOf(first, 2))), "");
  const TablePtr second = Build({"uri(a)/n(1)", "uri(b)/n(2)"}, first);
  EXPECT_EQ(WithoutHost(viewer.Next(ViewOf(second, 3))),
            "event: rows\ndata: {\"host\":\"h\",\"table\":" + second->changes + "}\n\n");
}

TEST(Viewer, WhoMissedAVersion_GetsTheWholeTable) {
  exporter::Viewer viewer;
  const TablePtr first = Build({"uri(a)/n(1)"});
  const TablePtr second = Build({"uri(a)/n(2)"}, first);
  const TablePtr third = Build({"uri(a)/n(3)"}, second);
  viewer.Next(ViewOf(first, 1));
  EXPECT_TRUE(WithoutHost(viewer.Next(ViewOf(third, 3))).starts_with("event: table\n"));
}

TEST(Viewer, HostThatGoes_TakesItsTablesAlong) {
  exporter::Viewer viewer;
  viewer.Next(ViewOf(Build({"uri(a)"}), 1));
  HostView away = ViewOf(nullptr, 1);
  away.isUp = false;
  away.reason = "gone";
  const std::string events = viewer.Next(away);
  EXPECT_TRUE(
      events.starts_with("event: host\ndata: {\"host\":\"h\",\"isUp\":false,\"reason\":\"gone\""));
  EXPECT_NE(events.find("event: gone\ndata: {\"host\":\"h\",\"object\":\"shop\""), events.npos);
  EXPECT_EQ(viewer.Next(away), "");
}

TEST(Page, HostileNames_AreText) {
  EXPECT_EQ(exporter::HtmlText("<b a=\"'&\x1b"), "&lt;b a=&quot;&#39;&amp;\\x1b");
  const std::string page =
      exporter::PageText({ViewOf(Build({"uri(</script><script>alert(1\\)//)/n(1)"}), 1)});
  EXPECT_EQ(page.find("<script>alert"), page.npos);
  EXPECT_NE(page.find("&lt;/script&gt;&lt;script&gt;alert"), page.npos);
  EXPECT_EQ(page.find("<!-- tables -->"), page.npos);
}

TEST(Page, Rows_AreBounded) {
  Texts lines;
  for (size_t i = 0; i < exporter::kMaxStaticRows + 5; ++i) {
    lines.push_back("uri(" + std::to_string(i) + ")");
  }
  const std::string page = exporter::PageText({ViewOf(Build(lines), 1)});
  EXPECT_NE(page.find("<p>and 5 more rows</p>"), page.npos);
}
