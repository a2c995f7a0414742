// net_publisher.h: keeps an observable URI in step with this machine's network interfaces.
#ifndef NET_PUBLISHER_H
#define NET_PUBLISHER_H

#include <utility>

#include "example.h"
#include "net_dev.h"

// NetPublisher feeds one URI: name of the interface as key, counters as value, once a second.
//
// A mirror that asks whether it is up to date, and is not, gets all tuples again.  Tuples that have
// gone in between are not among them, so the first element of such a full set is marked, and the
// mirror drops what it does not find in it.
class NetPublisher {
 public:
  // The builders write one element of the notification; see coap_rpc_ser.h.
  NetPublisher(Example &example, const char *uri, uint8_t payloadFormat, CoapRpcBuildUpdate update,
               CoapRpcBuildDelete gone);

  // Serve attaches the URI and starts the publishing.  Returns false after it said what is wrong.
  bool Serve(const char *address);

  // TakeMark says whether the element under construction is the first of a full set.
  bool TakeMark() { return std::exchange(isFullSet_, false); }

  static NetPublisher &Of(uint64_t userData) { return *reinterpret_cast<NetPublisher *>(userData); }

 private:
  static uint32_t Tick(void *self);
  static uint32_t First(uint64_t userData, void *cursor, void *key, void *val);
  static uint32_t Next(uint64_t userData, void *cursor, const void *lastKey, void *key, void *val);
  void Publish();

  Example &example_;
  CoapRpcUriKey key_;
  CoapRpcSerVtblReg reg_ = {};
  CoapRpcSerObVtblReg obReg_ = {};
  NetTable published_;
  bool isFullSet_ = false;
};

#endif  // NET_PUBLISHER_H
