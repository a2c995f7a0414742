/* contract_test.h: the fixture of the host-contract suite: one fresh host for each case. */
#ifndef CONTRACT_TEST_H
#define CONTRACT_TEST_H

#include <functional>

#include <gtest/gtest.h>

#include "contract_host.h"

namespace coap_rpc_test {

class ContractTest : public testing::Test {
 protected:
  void SetUp() override { Remake({}); }

  // Remake replaces the host by one that is set up as `param` says.
  void Remake(const ContractHostParam &param) {
    host_.reset();
    host_ = MakeContractHost(param);
    ASSERT_NE(host_, nullptr);
  }

  ContractHost &Host() { return *host_; }
  uint64_t Mem() { return host_->Mem(); }
  uint64_t Log() { return host_->Log(); }
  uint64_t Disp() { return host_->Disp(); }
  uint64_t Tmr() { return host_->Tmr(); }

  // RunUntil lets time pass until `isDone`, but no more than `maxMs`.  Returns isDone().
  bool RunUntil(const std::function<bool()> &isDone, uint32_t maxMs) {
    for (uint32_t i = 0; i < maxMs && !isDone(); ++i) host_->AdvanceMs(1);
    return isDone();
  }

 private:
  std::unique_ptr<ContractHost> host_;
};

}  // namespace coap_rpc_test

#endif /* CONTRACT_TEST_H */
