// demo_mirror.h: the observing side of a table.
#ifndef DEMO_MIRROR_H
#define DEMO_MIRROR_H

#include "demo_node.h"
#include "demo_table.h"

// Mirror observes one URI of the other process and keeps a copy of its table.
class Mirror {
 public:
  Mirror(Node &node, const char *uri, uint8_t payloadFormat);

  bool Start();    // registers; false when that fails
  void Observe();  // asks for the set and for changes; goes out within a second
  void Verify();   // asks whether the copy is up to date, by the check code of the last document
  void Leave();    // ends the relation; the copy stays

  // BeginAgain forgets the copy and observes again, for a server that has forgotten us.
  void BeginAgain();

  const Table &Copy() const { return copy_.rows; }
  const std::string &Uri() const { return uri_; }
  uint32_t NumDocuments() const { return numDocuments_; }
  uint32_t NumFullSets() const { return copy_.numFullSets; }
  uint32_t NumRefused() const { return numRefused_; }
  uint64_t NumRows() const { return numRows_; }
  uint64_t NumBytes() const { return numBytes_; }
  uint32_t NumDisconnects() const { return numDisconnects_; }

 private:
  static Mirror &Of(uint64_t userData) { return *reinterpret_cast<Mirror *>(userData); }
  static uint32_t OnDocument(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *);
  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *);

  Node &node_;
  const std::string uri_;
  const uint8_t payloadFormat_;
  const CoapRpcUriKey key_;
  const CoapRpcCliReqParam param_ = {};
  const CoapRpcCliAddr peer_;
  CopiedTable copy_;
  uint32_t numDocuments_ = 0, numRefused_ = 0, numDisconnects_ = 0;
  uint64_t numRows_ = 0, numBytes_ = 0;
};

#endif  // DEMO_MIRROR_H
