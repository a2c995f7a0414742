/* netfault_apps.h: the applications on both sides: who publishes a table and who mirrors it.
 *
 * Tables and documents are those of the examples (examples/observe). */
#ifndef NETFAULT_APPS_H
#define NETFAULT_APPS_H

#include <memory>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "net_idl.h"
#include "net_mirror.h"

namespace netfault {

inline constexpr uint16_t kCoapPort = 5683;

CoapRpcUriKey TableKey();

// PublisherApp has a table, with or without an instance to publish it.
class PublisherApp {
 public:
  // With marks, the first element of a full set says so.
  PublisherApp(bool isIdl, bool isMarked) : isIdl_(isIdl), isMarked_(isMarked) {}
  PublisherApp(const PublisherApp &) = delete;
  PublisherApp &operator=(const PublisherApp &) = delete;

  // Serve publishes the whole table on a new instance; Leave: the instance is gone.
  bool Serve(CoapRpcCtx *ctx, const CoapRpcIpAddr &addr);
  void Leave() { ctx_ = nullptr; }
  bool Attach(const CoapRpcIpAddr &addr);
  void Detach();

  void Set(const NetName &name, const NetCounters &counters);
  void Erase(const NetName &name);

  const NetTable &Table() const { return table_; }
  uint64_t NumChanges() const { return numChanges_; }

 private:
  static PublisherApp &Of(uint64_t self) { return *reinterpret_cast<PublisherApp *>(self); }
  static uint32_t BuildUpdate(uint64_t self, uint8_t *key, uint8_t *val, void *out);
  static uint32_t BuildDelete(uint64_t self, uint8_t *key, void *out);
  static uint32_t First(uint64_t self, void *cursor, void *key, void *val);
  static uint32_t Next(uint64_t self, void *cursor, const void *last, void *key, void *val);
  uint32_t Write(const NetIdl &element, void *out) const;

  const bool isIdl_;
  const bool isMarked_;
  CoapRpcCtx *ctx_ = nullptr;
  NetTable table_;
  uint64_t numChanges_ = 0;
  bool isFullSet_ = false;
};

// Policy is what a mirror does to stay right.
struct Policy {
  enum Kind { kNone, kVerify, kBatch, kExample };  // kExample: that of the example's mirror
  Kind kind = kNone;
  uint32_t seconds = 30;  // between two questions
};

// MirrorNews is what the application was told.
struct MirrorNews {
  uint32_t numDocuments = 0;
  uint32_t numRefused = 0;      // documents that were not understood
  uint32_t numDisconnects = 0;  // calls of onDisconnect
  uint32_t numUpToDate = 0;     // answers that confirm the check code
  uint32_t numErrors = 0;       // responses of classes 4 and 5
  uint32_t numEnded = 0;        // registrations that no response came to, or one that nobody heard
};

class MirrorApp {
 public:
  virtual ~MirrorApp() = default;
  virtual bool Start() = 0;
  virtual const NetMirror &Mirror() const = 0;
  virtual MirrorNews News() const = 0;
};

struct MirrorSetup {
  CoapRpcCtx *ctx;
  uint64_t tmr;
  CoapRpcCliAddr peer;
  bool isIdl;
};

std::unique_ptr<MirrorApp> MakeMirror(const Policy &policy, const MirrorSetup &setup);

}  // namespace netfault

#endif /* NETFAULT_APPS_H */
