/* sweep_stage.h: what a scenario of a sweep plays on: one instance, which serves and calls, and the
 * peers that it talks to. */
#ifndef SWEEP_STAGE_H
#define SWEEP_STAGE_H

#include <initializer_list>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "observe_server.h"
#include "sweep_allocators.h"

namespace coap_rpc_test {

// ClientApp is what the callbacks of a client's table were given.
struct ClientApp {
  size_t payloadLen = 0;  // what buildReq builds
  std::vector<std::string> responses;
  uint32_t numGone = 0;
};

class Stage : public ObserveServer {
 public:
  using Request = decltype(COAP_RpcCliConReq);

  Stage();
  ~Stage() override;
  void TestBody() override {}

  using ObserveServer::app_;
  using ObserveServer::Ctx;
  using ObserveServer::Delete;
  using ObserveServer::entry_;
  using ObserveServer::Get;
  using ObserveServer::host_;
  using ObserveServer::instance_;
  using ObserveServer::key_;
  using ObserveServer::Observe;
  using ObserveServer::Post;
  using ObserveServer::RegOf;
  using ObserveServer::Serve;

  FailPlan &PlanOf(Source source);
  bool IsRunning() const { return instance_->Get() != nullptr; }
  void Restart();

  // Server: one entry "plain" of each mode, and "obs", whose builders report what Jansson refuses.
  void ServePlain(uint8_t mode, uint32_t pktType = COAP_RPC_DEFAULT);
  void ServeObservable(uint8_t payloadFormat, size_t padding, uint32_t msgType = COAP_RPC_CON);
  uint32_t Attach(const CoapRpcUriKey &key, uint16_t port = kCoapPort);
  uint32_t Update(const std::string &key, const std::string &val);

  // Say sends a message to the server, from the asker; Listen moves the time by that many rounds.
  // All peers acknowledge what is confirmable, fetch what comes in blocks, and answer requests
  // with their path and kAnswer.
  void Say(const CoapMessage &message, int numRounds = 4);
  void Listen(int numRounds);

  // Heard says whether a message with this code and text, or with a body of this length, has come
  // since the last Forget.
  bool HasHeard(uint8_t code, const std::string &text) const;
  bool HasHeardBytes(size_t len) const;
  void Forget();

  // Client: calls go to a peer that answers unless it is silent.
  void RegisterClient(const CoapRpcUriKey &key);
  uint32_t Call(Request *call, const CoapRpcUriKey &key, const std::string &payload = "");
  CoapRpcCallAddr FarAddr() const;
  void SetSilent(bool isSilent) { isSilent_ = isSilent; }
  void SetAnswerLen(size_t len) { answerLen_ = len; }
  void Notify(const std::string &text);  // to the relation that the client has asked for

  // Tables is what the display commands show, without numbers that differ from run to run.
  std::string Tables();

  ClientApp client;

 private:
  void Hear(RawPeer &peer, const CoapMessage &message);
  void HearAll(RawPeer &peer);
  void Answer(RawPeer &peer, const CoapMessage &request);
  void FetchNext(RawPeer &peer, const CoapMessage &message);
  std::string Show(const std::string &command, const std::string &param = "");

  RawPeer asker_;
  RawPeer home_;  // where asynchronous answers go
  RawPeer far_;   // whom the client calls
  std::vector<CoapMessage> heard_;
  size_t numHeardBytes_ = 0;
  CoapMessage observeRequest_;
  bool isSilent_ = false;
  size_t answerLen_ = 0;
};

inline constexpr char kAnswer[] = "answer";

bool Has(const std::string &text, const std::string &part);

// ExpectOneOf expects a documented result.
void ExpectOneOf(uint32_t result, std::initializer_list<uint32_t> documented);

}  // namespace coap_rpc_test

#endif /* SWEEP_STAGE_H */
