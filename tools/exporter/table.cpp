/* table.cpp: a table of a host, and what changed. */
#include "table.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <unordered_map>

#include "json.h"

namespace exporter {

namespace {

using console::Field;
using console::JsonText;
using console::Row;

// An identity is what the fixed commands and their younger neighbours name their records by.
constexpr std::string_view kIdentity[] = {
    "uri",    "msgType", "observe", "pktType",  "payloadFormat", "listenAddr", "port", "srcIp",
    "dstIp",  "dstPort", "key",     "codeType", "reqKeyRsv",     "name",       "peer", "local",
    "limit",  "method",  "code",    "reason",   "state",         "outcome",    "of",   "below",
    "handle", "id"};

std::string KeyOf(const Row &row) {
  std::string key;
  for (const Field &field : row) {
    if (IsIdentity(field.name)) key += field.value + '\x1f';
  }
  return key.empty() ? row.front().value : key;
}

// NumberRepeats makes the keys of a table different.
void NumberRepeats(std::vector<TableRow> &rows) {
  std::unordered_map<std::string, size_t> counts;
  for (TableRow &row : rows) {
    const size_t count = counts[row.key]++;
    if (count > 0) row.key += '#' + std::to_string(count);
  }
}

uint64_t NextVersion() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

bool AreEqual(const Row &a, const Row &b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const Field &x, const Field &y) {
    return x.name == y.name && x.value == y.value;
  });
}

template <typename Items, typename Text>
std::string JsonArray(const Items &items, Text text) {
  std::string json = "[";
  for (const auto &item : items) {
    if (json.size() > 1) json += ',';
    json += text(item);
  }
  return json += ']';
}

std::string IdJson(const Table &table) {
  return "\"object\":" + JsonText(table.id.object) + ",\"command\":" + JsonText(table.id.command) +
         ",\"argument\":" + JsonText(table.id.argument);
}

std::string TextsJson(const Table &table) { return JsonArray(table.texts, JsonText); }

// RowJson is the key and the values in the order of the columns; a value that is missing is null.
std::string RowJson(const Table &table, const TableRow &row) {
  return "[" + JsonText(row.key) + "," +
         JsonArray(table.columns,
                   [&](const std::string &column) {
                     const std::string *value = table.Value(row, column);
                     return value ? JsonText(*value) : std::string("null");
                   }) +
         "]";
}

// Difference is what a viewer needs who has seen the version before.
struct Difference {
  std::vector<const TableRow *> changed;
  std::vector<std::string> gone;

  bool IsEmpty() const { return changed.empty() && gone.empty(); }
};

Difference Compare(const Table &before, const Table &now) {
  std::unordered_map<std::string_view, const TableRow *> old;
  for (const TableRow &row : before.rows) old.emplace(row.key, &row);
  Difference difference;
  for (const TableRow &row : now.rows) {
    const auto found = old.find(row.key);
    if (found == old.end() || !AreEqual(found->second->fields, row.fields)) {
      difference.changed.push_back(&row);
    }
    if (found != old.end()) old.erase(found);
  }
  for (const auto &entry : old) difference.gone.emplace_back(entry.first);
  return difference;
}

std::string ChangesJson(const Table &table, const Difference &difference) {
  return "{" + IdJson(table) + ",\"texts\":" + TextsJson(table) + ",\"changed\":" +
         JsonArray(difference.changed, [&](const TableRow *row) { return RowJson(table, *row); }) +
         ",\"gone\":" + JsonArray(difference.gone, JsonText) + "}";
}

}  // namespace

bool IsIdentity(std::string_view column) {
  return std::find(std::begin(kIdentity), std::end(kIdentity), column) != std::end(kIdentity);
}

const std::string *Table::Value(const TableRow &row, std::string_view column) const {
  const auto found = std::find_if(row.fields.begin(), row.fields.end(),
                                  [&](const Field &field) { return field.name == column; });
  return found != row.fields.end() ? &found->value : nullptr;
}

bool TableBuilder::Line(std::string_view line) {
  numBytes_ += line.size();
  auto row = console::ParseRow(line);
  const bool isFull = numBytes_ > kMaxTableBytes || (row && table_.rows.size() >= kMaxRows) ||
                      (!row && table_.texts.size() >= kMaxTexts);
  if (isFull) {
    table_.isCut = true;
    return false;
  }
  if (row) {
    AddRow(std::move(*row));
  } else if (!console::IsTotal(line)) {
    table_.texts.emplace_back(line);
  }
  return true;
}

void TableBuilder::AddRow(Row &&row) {
  for (const Field &field : row) {
    const auto found = std::find(table_.columns.begin(), table_.columns.end(), field.name);
    if (found == table_.columns.end() && table_.columns.size() < kMaxColumns) {
      table_.columns.push_back(field.name);
    }
  }
  std::string key = KeyOf(row);
  table_.rows.push_back({std::move(key), std::move(row)});
}

TablePtr TableBuilder::Finish(const TablePtr &before) {
  NumberRepeats(table_.rows);
  table_.version = NextVersion();
  if (!before) return std::make_shared<const Table>(std::move(table_));
  const Difference difference = Compare(*before, table_);
  const bool isSameShape = before->columns == table_.columns;
  if (isSameShape && difference.IsEmpty() && before->texts == table_.texts) return before;
  table_.follows = before->version;
  if (isSameShape) table_.changes = ChangesJson(table_, difference);
  return std::make_shared<const Table>(std::move(table_));
}

std::string TableJson(const Table &table) {
  return "{" + IdJson(table) + ",\"isCut\":" + (table.isCut ? "true" : "false") +
         ",\"texts\":" + TextsJson(table) + ",\"columns\":" + JsonArray(table.columns, JsonText) +
         ",\"rows\":" +
         JsonArray(table.rows, [&](const TableRow &row) { return RowJson(table, row); }) + "}";
}

std::string RowsJson(const Table &table) {
  std::string json = "[";
  const auto add = [&](const std::string &object) {
    json += (json.size() > 1 ? ",\n" : "") + object;
  };
  for (const std::string &text : table.texts) add("{\"text\": " + JsonText(text) + "}");
  for (const TableRow &row : table.rows) {
    std::string object;
    for (const Field &field : row.fields) {
      object += (object.empty() ? "" : ", ") + JsonText(field.name) + ": " + JsonText(field.value);
    }
    add("{" + object + "}");
  }
  return json + "]\n";
}

}  // namespace exporter
