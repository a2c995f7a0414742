/* two_observe.h: a client that mirrors a table which a server publishes. */
#ifndef TWO_OBSERVE_H
#define TWO_OBSERVE_H

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "two_instances.h"

namespace coap_rpc_test {

class TwoObserve : public TwoInstances {
 protected:
  // Publish makes the URI "table" on the server and a client that keeps a mirror of it.
  void Publish(bool isJson) {
    isJson_ = isJson;
    server_.ServeObserve(key_, &app_, isJson);
    RegisterAsker();
  }

  void RegisterAsker() {
    asker_.Register(key_, &responses_);
    responses_.onPayload = [this](const std::string &payload) {
      if (isJson_) {
        mirror_.TakeJson(payload);
      } else {
        mirror_.TakeIdl(payload);
      }
    };
  }

  void Set(const std::string &key, const std::string &val) {
    app_.data[key] = val;
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(server_.Ctx(), &key_, key.data(), val.data()), 0u);
  }
  void Erase(const std::string &key) {
    app_.data.erase(key);
    COAP_RpcSerObserveDataDel(server_.Ctx(), &key_, key.data());
  }

  // Fill publishes tuples "0000" to at most "9999".
  void Fill(int num) {
    for (int i = 0; i < num; ++i) {
      const std::string text = std::to_string(10'000 + i).substr(1);
      Set(text, text);
    }
  }

  CoapRpcSerUriVtbl *Entry() { return COAP_RpcSerFindUriVtbl(server_.Ctx()->ser, &key_); }
  size_t NumObservers() { return Entry()->observerNum; }

  // IsMirrored moves time until the client has what the server has, and nothing is under way.
  bool IsMirrored() {
    return RunUntil([this] {
      return mirror_.tuples == app_.data && coap_rpc::LinkIsAlone(Entry()->tupleChgList) &&
             Entry()->isSendingLargeBlock == 0;
    });
  }

  void StartMirror() {
    EXPECT_EQ(asker_.Observe(key_, server_), 0u);
    ASSERT_TRUE(RunUntil([this] { return NumObservers() == 1; }));
    ASSERT_TRUE(IsMirrored());
  }

  const CoapRpcUriKey key_ = KeyOf("table", COAP_RPC_CON, 1);
  bool isJson_ = true;
  ObserveApp app_;
  Responses responses_;
  Mirror mirror_;
};

}  // namespace coap_rpc_test

#endif /* TWO_OBSERVE_H */
