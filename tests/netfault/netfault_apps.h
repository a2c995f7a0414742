/* netfault_apps.h: the applications on both sides: who publishes a table and who mirrors it.
 *
 * By the base interface a mirror is kept by hand: net_publisher.h, net_mirror.h, net_observer.h. */
#ifndef NETFAULT_APPS_H
#define NETFAULT_APPS_H

#include <memory>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "net_mirror.h"
#include "net_publisher.h"

namespace netfault {

inline constexpr uint16_t kCoapPort = 5683;

CoapRpcUriKey TableKey();

// PublisherApp is the example's, with or without an instance to publish its table.
class PublisherApp : public NetPublisher {
 public:
  explicit PublisherApp(bool isIdl);

  // Serve publishes the whole table on a new instance.
  bool Serve(CoapRpcCtx *ctx, const CoapRpcIpAddr &addr);
  bool Attach(const CoapRpcIpAddr &addr);
  void Detach();
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
