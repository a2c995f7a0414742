// demo_table.h: the tables that are published and mirrored, and how their rows look on the wire.
#ifndef DEMO_TABLE_H
#define DEMO_TABLE_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

using RowKey = std::array<char, 24>;       // text, padded with zeros
using RowValue = std::array<uint64_t, 4>;  // columns that a table does not have are 0
using Table = std::map<RowKey, RowValue>;

RowKey MakeRowKey(std::string_view text);

// DigestOf is a short text that two tables share only when they are equal: "<rows> rows <hash>".
std::string DigestOf(const Table &table);

// Row is an element of a notification: a row that exists, or one that was removed.
//
// It says to which full set it belongs: one with another number than the last tells a mirror to
// forget what it had before (demo_publisher.h).
//
// JSON: {"s":<set>,"k":<key>,"v":[<columns without zeros at the end>]}, and without "v" when it has
//       gone.
// IDL:  1 byte that is 1 for a row that is there, the set, the key with its terminator, then the
//       columns as in JSON.  Numbers are in groups of seven bits, lowest first, with bit 7 on all
//       but the last group.
struct Row {
  RowKey key = {};
  RowValue value = {};
  uint32_t set = 0;
  bool isThere = true;

  void WriteJson(void *element) const;    // a json_t object
  uint32_t WriteIdl(uint8_t *out) const;  // up to 71 bytes; returns how many
  bool ReadJson(const void *element);     // a json_t object
  bool ReadIdl(std::string_view bytes);
};

// CopiedTable is what a mirror has of a table.
struct CopiedTable {
  Table rows;
  uint32_t set = 0;  // of the last row that came
  uint32_t numFullSets = 0;
};

// Apply* bring a copy up to date with a notification.  They return the number of rows in it, or -1
// when it is not understood.
int ApplyJson(std::string_view document, CopiedTable &copy);
int ApplyIdl(std::string_view document, CopiedTable &copy);

#endif  // DEMO_TABLE_H
