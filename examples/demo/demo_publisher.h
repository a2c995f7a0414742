// demo_publisher.h: the serving side of a table.
#ifndef DEMO_PUBLISHER_H
#define DEMO_PUBLISHER_H

#include <string>

#include "demo_node.h"
#include "demo_table.h"

// Publisher keeps one observable URI in step with a table.
//
// A full set, for an observer that comes or is not up to date, does not say what was removed
// meanwhile.  So the rows of each set have a number of their own.
class Publisher {
 public:
  // `payloadFormat` is COAP_RPC_JSON or COAP_RPC_BYTE.
  Publisher(Node &node, const char *uri, uint8_t payloadFormat);

  // Start serves the URI.  Returns false after it said what is wrong.
  bool Start();

  // Set makes `now` the table; what differs goes to the observer with the next notification.
  void Set(Table now);

  const Table &Now() const { return table_; }
  uint32_t NumObservers() const { return numObservers_; }

 private:
  static Publisher &Of(uint64_t userData) { return *reinterpret_cast<Publisher *>(userData); }
  static void OnObserverNum(uint64_t userData, uint32_t num);
  static uint32_t BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out);
  static uint32_t BuildDelete(uint64_t userData, uint8_t *key, void *out);
  static uint32_t First(uint64_t userData, void *cursor, void *key, void *val);
  static uint32_t Next(uint64_t userData, void *cursor, const void *lastKey, void *key, void *val);
  uint32_t Write(const Row &row, void *out) const;
  uint32_t Give(Table::const_iterator it, void *key, void *val) const;

  Node &node_;
  const CoapRpcUriKey key_;
  const uint8_t payloadFormat_;
  Table table_;
  uint32_t numObservers_ = 0;
  uint32_t set_;  // number of the last full set
};

#endif  // DEMO_PUBLISHER_H
