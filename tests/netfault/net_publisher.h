// net_publisher.h: keeps an observable URI in step with a table of network interfaces.
#ifndef NET_PUBLISHER_H
#define NET_PUBLISHER_H

#include <coap_svc/rpc/coap_rpc_ser.h>

#include "net_element.h"

// NetPublisher publishes a table under one URI: name of the interface as key, counters as value.
//
// An observer that comes, and one that asks whether it is up to date and is not, gets all tuples
// again, in one notification or several.  What was removed meanwhile is not among them.  So every
// element says to which full set it belongs, by a number that changes when a new one begins: an
// element with another number tells a mirror to forget what it had before.  The number is written
// when an element is built, and an element that is built again, because its notification did not
// arrive, still has it.
//
// The sum over the table is one more tuple (kNetSum).
class NetPublisher {
 public:
  // `firstSet`: another number than those of an earlier process, or a mirror takes the two for one.
  NetPublisher(const CoapRpcUriKey &key, uint8_t payloadFormat, uint32_t firstSet);
  NetPublisher(const NetPublisher &) = delete;
  NetPublisher &operator=(const NetPublisher &) = delete;

  virtual ~NetPublisher() = default;

  // Register makes the URI known to an instance, with all tuples.  Returns false when that fails.
  // Leave: the instance is gone.
  bool Register(CoapRpcCtx *ctx);
  void Leave() { ctx_ = nullptr; }

  // Publish makes `now` the table; Set and Erase change one tuple.
  void Publish(const NetTable &now);
  void Set(const NetName &name, const NetCounters &counters);
  void Erase(const NetName &name);

  CoapRpcCtx *Ctx() const { return ctx_; }
  const CoapRpcUriKey &Key() const { return key_; }
  const NetTable &Table() const { return table_; }

 private:
  virtual void OnObservers(uint32_t) {}
  void Put(const NetName &name, const NetCounters &counters);
  static NetPublisher &Of(uint64_t userData) { return *reinterpret_cast<NetPublisher *>(userData); }
  static void OnObserverNum(uint64_t userData, uint32_t num);
  static uint32_t BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out);
  static uint32_t BuildDelete(uint64_t userData, uint8_t *key, void *out);
  static uint32_t First(uint64_t userData, void *cursor, void *key, void *val);
  static uint32_t Next(uint64_t userData, void *cursor, const void *lastKey, void *key, void *val);
  uint32_t Write(const NetElement &element, void *out) const;

  const CoapRpcUriKey key_;
  const uint8_t payloadFormat_;
  CoapRpcCtx *ctx_ = nullptr;
  NetTable table_;
  uint64_t sum_ = 0;
  uint32_t set_;
  uint32_t numObservers_ = 0;
};

#endif  // NET_PUBLISHER_H
