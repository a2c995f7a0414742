/* page.cpp: the live page. */
#include "page.h"

#include "escape.h"

namespace exporter {

// Of page.html, made by embed.cmake.
extern const std::string_view kPage;

namespace {

constexpr std::string_view kPlaceholder = "<!-- tables -->";

std::string TableTitle(const TableId &id) {
  return HtmlText(id.object + ": " + id.command + (id.argument.empty() ? "" : " " + id.argument));
}

std::string RowHtml(const Table &table, const TableRow &row) {
  std::string html = "<tr>";
  for (const std::string &column : table.columns) {
    const std::string *value = table.Value(row, column);
    html += "<td>" + (value ? HtmlText(*value) : "") + "</td>";
  }
  return html + "</tr>\n";
}

std::string TableHtml(const Table &table) {
  std::string html = "<h3>" + TableTitle(table.id) + "</h3>\n";
  for (const std::string &text : table.texts) html += "<p>" + HtmlText(text) + "</p>\n";
  html += "<table><thead><tr>";
  for (const std::string &column : table.columns) html += "<th>" + HtmlText(column) + "</th>";
  html += "</tr></thead><tbody>\n";
  for (size_t i = 0; i < table.rows.size() && i < kMaxStaticRows; ++i) {
    html += RowHtml(table, table.rows[i]);
  }
  html += "</tbody></table>\n";
  if (table.rows.size() > kMaxStaticRows) {
    html += "<p>and " + std::to_string(table.rows.size() - kMaxStaticRows) + " more rows</p>\n";
  }
  return html;
}

std::string HostHtml(const HostView &host) {
  std::string html = "<h2>" + HtmlText(host.name) + "</h2>\n";
  if (!host.isUp) return html + "<p>away: " + HtmlText(host.reason) + "</p>\n";
  for (const auto &entry : host.tables) html += TableHtml(*entry.second);
  return html;
}

}  // namespace

std::string HtmlText(std::string_view text) {
  std::string html;
  for (const char c : console::Escaped(text)) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

std::string PageText(const std::vector<HostView> &hosts) {
  std::string tables;
  for (const HostView &host : hosts) tables += HostHtml(host);
  const size_t at = kPage.find(kPlaceholder);
  return std::string(kPage.substr(0, at)) + tables +
         std::string(kPage.substr(at + kPlaceholder.size()));
}

}  // namespace exporter
