/* exporter_metrics.cpp: tables as metrics. */
#include "metrics.h"

#include <gtest/gtest.h>

using exporter::HostView;
using exporter::TableBuilder;
using exporter::TableId;

namespace {

// MetricsText is that of a first scrape.
std::string MetricsText(const std::vector<HostView> &hosts, bool isOpenMetrics) {
  exporter::LeftOut leftOut;
  return exporter::MetricsText(hosts, isOpenMetrics, leftOut);
}

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

// Such a byte would make the scrape invalid.
TEST(MetricsText, NameOfAHost_IsUtf8) {
  HostView away;
  away.name = "h\xff";
  EXPECT_TRUE(HasLine(MetricsText({away}, true), "kestrel_up{host=\"h\\\\xff\"} 0"));
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
  EXPECT_TRUE(
      HasLine(text, "kestrel_exporter_left_out_total{metric=\"kestrel_server_uriVtbl_n\"} 500"));
}

TEST(MetricsText, SameSeriesTwice_IsThereOnce) {
  const std::string text = MetricsText({ViewOf(kServer, {"uri(a)/n(1)", "uri(a)/n(2)"})}, true);
  EXPECT_EQ(CountOf(text, "\nkestrel_server_uriVtbl_n{"), 1u);
  EXPECT_TRUE(
      HasLine(text, "kestrel_exporter_left_out_total{metric=\"kestrel_server_uriVtbl_n\"} 1"));
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
  EXPECT_NE(text.find("kestrel_exporter_left_out_total{metric=\"*\"}"), text.npos);
}

TEST(MetricsText, WhatIsLeftOut_IsCountedOverScrapes) {
  const std::vector<HostView> hosts = {ViewOf(kServer, {"uri(a)/n(1)", "uri(a)/n(2)"})};
  exporter::LeftOut leftOut;
  exporter::MetricsText(hosts, true, leftOut);
  const std::string text = exporter::MetricsText(hosts, true, leftOut);
  EXPECT_TRUE(HasLine(text, "# TYPE kestrel_exporter_left_out counter"));
  EXPECT_TRUE(
      HasLine(text, "kestrel_exporter_left_out_total{metric=\"kestrel_server_uriVtbl_n\"} 2"));
}

TEST(LeftOut, MetricsAreBounded) {
  exporter::LeftOut leftOut;
  for (size_t i = 0; i < exporter::kMaxMetrics; ++i) leftOut.Add({{std::to_string(i), 1}});
  leftOut.Add({{"more", 1}, {"0", 1}});
  const auto all = leftOut.Add({{"and more", 1}});
  EXPECT_EQ(all.size(), exporter::kMaxMetrics + 1);
  EXPECT_EQ(all.at("*"), 2u);
  EXPECT_EQ(all.at("0"), 2u);
}

// ---- tables that say what their rows are ----

const TableId kStats = {"shop", "disp server stats", ""};

TEST(MetricsText, Numbers_HaveNamesKindsAndUnits) {
  const std::string text = MetricsText(
      {ViewOf(
          kStats,
          {"server stats[  0]: name(in.requests)/of(get)/kind(counter)/unit(-)/value(5)",
           "server stats[  1]: name(in.requests)/of(put)/kind(counter)/unit(-)/value(6)",
           "server stats[  2]: name(in.bytes)/of(-)/kind(counter)/unit(bytes)/value(7)",
           "server stats[  3]: name(callbacks.time)/of(-)/kind(counter)/unit(ns)/value(1500000000)",
           "server stats[  4]: name(changes.oldest)/of(-)/kind(gauge)/unit(ms)/value(250)",
           "server stats[  5]: name(pool.used)/of(-)/kind(gauge)/unit(bytes)/value(8)"})},
      true);
  const std::string host = "{host=\"h\",object=\"shop\"";
  EXPECT_TRUE(HasLine(text, "# TYPE kestrel_server_in_requests counter"));
  EXPECT_TRUE(
      HasLine(text, "kestrel_server_in_requests_total{host=\"h\",object=\"shop\",of=\"get\"} 5"));
  EXPECT_TRUE(
      HasLine(text, "kestrel_server_in_requests_total{host=\"h\",object=\"shop\",of=\"put\"} 6"));
  EXPECT_TRUE(HasLine(text, "kestrel_server_in_bytes_total" + host + "} 7"));
  EXPECT_TRUE(HasLine(text, "kestrel_server_callbacks_time_seconds_total" + host + "} 1.5"));
  EXPECT_TRUE(HasLine(text, "# TYPE kestrel_server_changes_oldest_seconds gauge"));
  EXPECT_TRUE(HasLine(text, "kestrel_server_changes_oldest_seconds" + host + "} 0.25"));
  EXPECT_TRUE(HasLine(text, "kestrel_server_pool_used_bytes" + host + "} 8"));
  EXPECT_EQ(text.find("kestrel_server_stats"), text.npos);
}

TEST(MetricsText, Times_AreAHistogram) {
  const std::string text = MetricsText(
      {ViewOf({"shop", "disp client times", ""},
              {"client times[  0]: name(calls)/below(1000)/unit(ns)/count(3)",
               "client times[  1]: name(calls)/below(2000)/unit(ns)/count(4)",
               "client times[  2]: name(calls)/below(inf)/unit(ns)/count(1)/sum(9000000000)"})},
      true);
  const std::string name = "kestrel_client_calls_duration_seconds";
  const std::string host = "{host=\"h\",object=\"shop\"";
  EXPECT_TRUE(HasLine(text, "# TYPE " + name + " histogram"));
  EXPECT_TRUE(HasLine(text, name + "_bucket" + host + ",le=\"1e-06\"} 3")) << text;
  EXPECT_TRUE(HasLine(text, name + "_bucket" + host + ",le=\"2e-06\"} 7")) << text;
  EXPECT_TRUE(HasLine(text, name + "_bucket" + host + ",le=\"+Inf\"} 8"));
  EXPECT_TRUE(HasLine(text, name + "_count" + host + "} 8"));
  EXPECT_TRUE(HasLine(text, name + "_sum" + host + "} 9"));
}

TEST(MetricsText, Times_ThatAreTooManyAreNoFault) {
  const std::string text = MetricsText(
      {ViewOf({"shop", "disp client times", ""}, {"name(calls)/below(99999999999999999999999999)/"
                                                  "unit(ns)/count(99999999999999999999999999)"
                                                  "/sum(99999999999999999999999999999)"})},
      true);
  EXPECT_NE(text.find("_count{host=\"h\",object=\"shop\"} 1000000000000000000\n"), text.npos)
      << text;
}

TEST(MetricsText, Uris_HaveNamesOfTheirOwn) {
  const std::string text = MetricsText(
      {ViewOf({"shop", "disp server perUri", ""},
              {"server perUri[  0]: uri(a)/msgType(CON)/observe(1)/pktType(DEFAULT)/requests(1)"
               "/callbackNs(2000000000)/callbackMaxNs(500000000)/notifications(3)/delivered(2)/"
               "failed(1)"
               "/putBack(4)/tuples(5)/pending(6)/inFlight(7)/oldestMs(1500)/observers(8)"})},
      true);
  const auto has = [&](const std::string &name, const std::string &value) {
    return HasLine(text, "kestrel_server_uri_" + name +
                             "{host=\"h\",msgType=\"CON\",object=\"shop\",observe=\"1\",pktType="
                             "\"DEFAULT\",uri=\"a\"} " +
                             value);
  };
  EXPECT_TRUE(has("requests_total", "1")) << text;
  EXPECT_TRUE(has("callback_seconds_total", "2"));
  EXPECT_TRUE(has("callback_longest_seconds", "0.5"));
  EXPECT_TRUE(has("notifications_total", "3"));
  EXPECT_TRUE(has("notifications_delivered_total", "2"));
  EXPECT_TRUE(has("notifications_failed_total", "1"));
  EXPECT_TRUE(has("changes_putBack_total", "4"));
  EXPECT_TRUE(has("tuples", "5"));
  EXPECT_TRUE(has("changes_pending", "6"));
  EXPECT_TRUE(has("changes_inFlight", "7"));
  EXPECT_TRUE(has("changes_oldest_seconds", "1.5"));
  EXPECT_TRUE(has("observers", "8"));
}

// One table whose names are those of others would make the whole scrape invalid.
TEST(MetricsText, NamesOfOtherSeries_AreLeftOut) {
  const std::string text =
      MetricsText({ViewOf(kServer, {"uri(a)/count(1)/count_created(2)/count_total(3)/x_total(4)"}),
                   ViewOf({"shop", "disp server uriVtbl count", ""}, {"uri(a)/total(5)"})},
                  true);
  EXPECT_TRUE(HasLine(text, "# TYPE kestrel_server_uriVtbl_count counter"));
  EXPECT_EQ(CountOf(text, "\nkestrel_server_uriVtbl_count_"), 1u) << text;
  EXPECT_TRUE(HasLine(text, "# TYPE kestrel_server_uriVtbl_x_total gauge"));
  EXPECT_TRUE(HasLine(text, "kestrel_exporter_left_out_total{metric=\"*\"} 3"));
}

TEST(MetricsText, ColumnsNamedAsLabels_GetOtherNames) {
  const std::string text = MetricsText({ViewOf(kServer, {"host(a)/n(1)"})}, true);
  EXPECT_TRUE(HasLine(text, "kestrel_server_uriVtbl_n{host=\"h\",host_=\"a\",object=\"shop\"} 1"));
}

TEST(MetricsText, TimesWithoutOrder_AreNoHistogram) {
  const std::string text = MetricsText(
      {ViewOf({"shop", "disp client times", ""},
              {"name(calls)/below(2)/unit(ns)/count(1)", "name(calls)/below(1)/unit(ns)/count(1)",
               "name(calls)/below(inf)/unit(ns)/count(1)/sum(9)"})},
      true);
  EXPECT_EQ(text.find("histogram"), text.npos);
}

TEST(MetricsText, SumsOfTimes_DoNotOverflow) {
  std::vector<std::string> lines;
  for (int i = 0; i < 40; ++i) {
    lines.push_back("name(c)/below(" + std::to_string(i) + ")/unit(ns)/count(1000000000000000000)");
  }
  lines.emplace_back("name(c)/below(inf)/unit(ns)/count(1)/sum(9)");
  const std::string text = MetricsText({ViewOf({"shop", "disp client times", ""}, lines)}, true);
  EXPECT_NE(text.find("_count{host=\"h\",object=\"shop\"} 1000000000000000000\n"), text.npos);
}

TEST(MetricsText, OneNameOfTwoKinds_IsLeftOut) {
  const std::string text =
      MetricsText({ViewOf(kStats, {"name(x_total)/of(a)/kind(gauge)/unit(-)/value(1)",
                                   "name(x)/of(b)/kind(counter)/unit(-)/value(2)"})},
                  true);
  EXPECT_TRUE(HasLine(text, "kestrel_exporter_left_out_total{metric=\"*\"} 1")) << text;
}
