// demo_table.h: the tables of the demo, which one process publishes and the other mirrors.
#ifndef DEMO_TABLE_H
#define DEMO_TABLE_H

#include <algorithm>
#include <array>
#include <coap_svc_rpc.hpp>
#include <functional>
#include <map>
#include <string>
#include <string_view>

// RowKey is a text, padded with zeros.
struct RowKey {
  std::array<char, 24> bytes = {};

  explicit RowKey(std::string_view text) {
    std::copy_n(text.data(), std::min(text.size(), bytes.size() - 1), bytes.data());
  }
  std::string text() const { return bytes.data(); }
  auto operator<=>(const RowKey &) const = default;
};

// RowValue has four columns; those that a table does not have are 0.
using RowValue = std::array<coaprpc::Big<uint64_t>, 4>;

using Rows = std::map<RowKey, RowValue>;
using TableMirror = coaprpc::Mirror<RowKey, RowValue>;
using PublishedTable = coaprpc::Table<RowKey, RowValue>;

// DigestOf is a short text that two tables share only when they are equal, chance aside.
inline std::string DigestOf(const Rows &table) {
  size_t hash = 0;
  for (const auto &[key, value] : table) {
    std::string row = key.text();
    for (const uint64_t column : value) row += " " + std::to_string(column);
    hash = std::hash<std::string>()(row + " " + std::to_string(hash));
  }
  return std::to_string(table.size()) + " rows, hash " + std::to_string(hash);
}

inline Rows RowsOf(const TableMirror &mirror) { return Rows(mirror.begin(), mirror.end()); }

constexpr size_t kNumFiles = 10000;

#endif  // DEMO_TABLE_H
