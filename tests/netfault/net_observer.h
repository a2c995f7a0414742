// net_observer.h: keeps a mirror of a server's table by observing it, for as long as it takes.
#ifndef NET_OBSERVER_H
#define NET_OBSERVER_H

#include <coap_svc/rpc/coap_rpc_cli.h>

#include "net_mirror.h"

// NetObserver asks the server every now and then, by the check code of what it received last,
// whether it is up to date: when it is, nothing is sent, else the server sends everything again.
// That also renews the relation with a server that has lost it, or was started again.  When the sum
// over the table says that something is missing or wrong, it asks for everything: the check code
// says what came last, not what did not come.
//
// It keeps its relation and its table whatever happens.  A new relation would have the server send
// to both, and changes go to one of them; a table that is out of date is better than none, and the
// next full set takes its place (net_mirror.h).
class NetObserver {
 public:
  struct Setup {
    CoapRpcCtx *ctx;
    uint64_t tmr;  // the host's timers
    CoapRpcUriKey key;
    CoapRpcCliAddr peer;
    bool isIdl;
    bool isBatch;        // asks for everything in any case
    uint32_t askPeriod;  // in seconds
  };

  explicit NetObserver(const Setup &setup) : setup_(setup) {}
  virtual ~NetObserver() = default;
  NetObserver(const NetObserver &) = delete;
  NetObserver &operator=(const NetObserver &) = delete;

  bool Start();  // false when that fails

  const NetMirror &Mirror() const { return mirror_; }
  uint32_t NumDocuments() const { return numDocuments_; }
  uint32_t NumRefused() const { return numRefused_; }

 protected:
  // Called after each notification, and when the server is found gone.
  virtual void OnTable() {}
  virtual void OnLost() {}

 private:
  static NetObserver &Of(uint64_t userData) { return *reinterpret_cast<NetObserver *>(userData); }
  static uint32_t OnNotification(uint64_t userData, uint64_t zero, uint8_t *payload, uint32_t len,
                                 const CoapRpcCliRspInfo *info);
  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *peer);
  static uint32_t Tick(void *self);
  bool Take(std::string_view document);
  uint32_t Ask();

  const Setup setup_;
  const CoapRpcCliReqParam param_ = {};
  NetMirror mirror_;
  uint32_t numDocuments_ = 0, numRefused_ = 0;
  uint32_t sinceAsked_ = 0;  // in seconds
  bool isInDoubt_ = false;   // not to wait for the whole period
  bool needsAll_ = false;    // whatever the check code is
};

#endif  // NET_OBSERVER_H
