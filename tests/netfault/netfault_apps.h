/* netfault_apps.h: the applications on both sides: who publishes a table and who mirrors it.
 *
 * By the base interface a mirror is kept by hand: net_publisher.h, net_mirror.h, net_observer.h. */
#ifndef NETFAULT_APPS_H
#define NETFAULT_APPS_H

#include <cmath>
#include <functional>
#include <memory>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "net_mirror.h"
#include "net_publisher.h"

namespace netfault {

inline constexpr uint16_t kCoapPort = 5683;

CoapRpcUriKey TableKey();

// PublisherApp publishes with or without versions, and keeps its table while there is no instance.
class PublisherApp : public NetPublisher {
 public:
  PublisherApp(bool isIdl, bool hasVersions);

  // Serve publishes the whole table on a new instance.
  bool Serve(CoapRpcCtx *ctx, const CoapRpcIpAddr &addr);
  bool Attach(const CoapRpcIpAddr &addr);
  void Detach();

 private:
  const bool hasVersions_;
};

// Policy is what keeps a mirror right: nothing, questions of its application, an application that
// does all that the base interface allows (kHand: net_observer.h), or the library (kMirror).
struct Policy {
  enum Kind { kNone, kVerify, kBatch, kHand, kMirror };
  Kind kind = kNone;
  uint32_t seconds = 30;  // between two questions, or heartbeats

  // LimitSeconds is when the mirror has to be right after the last fault, if it is by itself.
  double LimitSeconds() const { return kind == kMirror ? seconds + 5 : HUGE_VAL; }
};

// MirrorNews is what the application was told.
struct MirrorNews {
  uint32_t numDocuments = 0;    // or rows
  uint32_t numRefused = 0;      // documents that were not understood
  uint32_t numDisconnects = 0;  // calls of onDisconnect, or times that a mirror was stale
  uint32_t numUpToDate = 0;     // answers that confirm the check code
  uint32_t numErrors = 0;       // responses of classes 4 and 5, or other codes of a mirror
  uint32_t numEnded = 0;        // registrations that no response came to, or one that nobody heard
};

class MirrorApp {
 public:
  virtual ~MirrorApp() = default;
  virtual bool Start() = 0;
  virtual const NetTable &Table() const = 0;
  virtual MirrorNews News() const = 0;

  // IsSure tells whether the mirror believes itself up to date.
  virtual bool IsSure() const = 0;
};

struct MirrorSetup {
  CoapRpcCtx *ctx;
  uint64_t tmr;
  CoapRpcCliAddr peer;
  bool isIdl;
  std::function<const CoapRpcCtx *()> publisher;  // null while it is not there
};

std::unique_ptr<MirrorApp> MakeMirror(const Policy &policy, const MirrorSetup &setup);

}  // namespace netfault

#endif /* NETFAULT_APPS_H */
