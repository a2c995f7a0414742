/* exporter_metrics.cpp: tables as metrics. */
#include "metrics.h"

#include <gtest/gtest.h>

using exporter::HostView;
using exporter::MetricsText;
using exporter::TableBuilder;
using exporter::TableId;

namespace {

HostView ViewOf(const TableId &id, const std::vector<std::string> &lines) {
  HostView view;
  view.name = "h";
  view.isUp = true;
  TableBuilder builder(id);
  for (const std::string &line : lines) builder.Line(line);
  view.tables[id] = builder.Finish(nullptr);
  return view;
}

bool HasLine(const std::string &text, const std::string &line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

size_t CountOf(const std::string &text, const std::string &what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++count;
  return count;
}

const TableId kServer = {"shop", "disp server uriVtbl", ""};
const TableId kClient = {"shop", "disp client session", ""};

}  // namespace

TEST(MetricsText, HostAway_IsZero) {
  HostView away;
  away.name = "gone";
  EXPECT_TRUE(HasLine(MetricsText({away}, true), "kestrel_up{host=\"gone\"} 0"));
  EXPECT_TRUE(HasLine(MetricsText({ViewOf(kServer, {})}, true), "kestrel_up{host=\"h\"} 1"));
}

TEST(MetricsText, NumericColumns_AreSeriesOfTheirRow) {
  const std::string text = MetricsText(
      {ViewOf(kServer, {"uri(a)/observe(1)/observerNum(3)/UpdateTimer(Running)/mid(7)"})}, false);
  EXPECT_TRUE(HasLine(
      text,
      "kestrel_server_uriVtbl_observerNum{host=\"h\",object=\"shop\",observe=\"1\",uri=\"a\"} 3"));
  EXPECT_EQ(text.find("UpdateTimer"), text.npos);
  EXPECT_EQ(text.find("_mid"), text.npos);
}

TEST(MetricsText, FirstFieldThatIsText_IsALabel) {
  const std::string text =
      MetricsText({ViewOf({"shop", "disp server stats", ""}, {"what(requests)/count(5)"})}, true);
  EXPECT_TRUE(HasLine(text, "# TYPE kestrel_server_stats_count counter"));
  EXPECT_TRUE(HasLine(
      text, "kestrel_server_stats_count_total{host=\"h\",object=\"shop\",what=\"requests\"} 5"));
}

TEST(MetricsText, Counters_AreDescribedAsEachFormatWants) {
  const auto views = {ViewOf(kClient, {"srcIp(127.0.0.1)/ConMsgStatistic(4)"})};
  EXPECT_TRUE(
      HasLine(MetricsText(views, true), "# TYPE kestrel_client_session_ConMsgStatistic counter"));
  EXPECT_TRUE(MetricsText(views, true).ends_with("\n# EOF\n"));
  EXPECT_TRUE(HasLine(MetricsText(views, false),
                      "# TYPE kestrel_client_session_ConMsgStatistic_total counter"));
  EXPECT_EQ(MetricsText(views, false).find("EOF"), std::string::npos);
}

TEST(MetricsText, HostileNames_AreEscaped) {
  const std::string text = MetricsText({ViewOf(kServer, {"uri(a\"b\\c\x1b\xff)/n(1)"})}, true);
  EXPECT_TRUE(HasLine(text,
                      "kestrel_server_uriVtbl_n{host=\"h\",object=\"shop\","
                      "uri=\"a\\\"b\\\\c\\\\x1b\\\\xff\"} 1"))
      << text;
}

TEST(MetricsText, SeriesBeyondTheLimit_AreCounted) {
  std::vector<std::string> lines;
  for (int i = 0; i < 1500; ++i) lines.push_back("uri(u" + std::to_string(i) + ")/n(1)");
  const std::string text = MetricsText({ViewOf(kServer, lines)}, true);
  EXPECT_EQ(CountOf(text, "\nkestrel_server_uriVtbl_n{"), exporter::kMaxSeries);
  EXPECT_TRUE(HasLine(text, "kestrel_exporter_left_out{metric=\"kestrel_server_uriVtbl_n\"} 500"));
}

TEST(MetricsText, SameSeriesTwice_IsThereOnce) {
  const std::string text = MetricsText({ViewOf(kServer, {"uri(a)/n(1)", "uri(a)/n(2)"})}, true);
  EXPECT_EQ(CountOf(text, "\nkestrel_server_uriVtbl_n{"), 1u);
  EXPECT_TRUE(HasLine(text, "kestrel_exporter_left_out{metric=\"kestrel_server_uriVtbl_n\"} 1"));
}

TEST(MetricsText, Metrics_AreBounded) {
  HostView view = ViewOf(kServer, {});
  for (int i = 0; i < 20; ++i) {
    const TableId id = {"shop", "disp t" + std::to_string(i), ""};
    TableBuilder builder(id);
    for (int column = 0; column < 60; ++column) {
      builder.Line("uri(a)/c" + std::to_string(column) + "(1)");
    }
    view.tables[id] = builder.Finish(nullptr);
  }
  const std::string text = MetricsText({view}, true);
  EXPECT_LE(CountOf(text, "# TYPE "), exporter::kMaxMetrics + 1);
  EXPECT_NE(text.find("kestrel_exporter_left_out{metric=\"*\"}"), text.npos);
}
