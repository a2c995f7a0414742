/* confirming_server.h: the server of sync_server.h, which hears what its two observers confirm. */
#ifndef CONFIRMING_SERVER_H
#define CONFIRMING_SERVER_H

#include <functional>
#include <vector>

#include "sync_server.h"

namespace coap_rpc_test {

class ConfirmingServer : public SyncServer {
 protected:
  ConfirmingServer() { other_.SetRemote(Address()); }

  // Confirming has leases of 1000 ms.
  CoapRpcSerSyncParam Confirming() {
    CoapRpcSerSyncParam param = {};
    param.leaseMs = 1000;
    param.userData = reinterpret_cast<uint64_t>(this);
    param.onConfirmed = [](uint64_t userData, uint64_t version) {
      auto *self = reinterpret_cast<ConfirmingServer *>(userData);
      self->confirmed_.push_back(version);
      if (self->onConfirmed_) self->onConfirmed_();
    };
    return param;
  }

  // OutliveTheLeaseOfPeer updates a tuple, which the other one confirms until peer_ has expired.
  void OutliveTheLeaseOfPeer() {
    Update("k001", "v001");
    for (int i = 0; i < 3; ++i) {
      PullSince(other_, 1);
      host_.AdvanceMs(500);
    }
  }

  RawPeer other_;
  std::vector<uint64_t> confirmed_;
  std::function<void()> onConfirmed_;
};

}  // namespace coap_rpc_test

#endif
