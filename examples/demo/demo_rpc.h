// demo_rpc.h: questions and answers between the two processes.
#ifndef DEMO_RPC_H
#define DEMO_RPC_H

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "demo_node.h"

// Rpc asks the other process by asynchronous calls of the URI "ask", and answers its questions.
//
// The answer to an asynchronous call carries nothing that says which call it belongs to, so each
// question begins with a number and its answer repeats it.  Requests leave from the node's own
// address (packet type BROADCAST): that is where the answer goes.
class Rpc {
 public:
  using Answer = std::function<void(std::string text)>;
  // Handler gets a question and answers it, now or later.
  using Handler = std::function<void(const std::string &question, Answer answer)>;

  Rpc(Node &node, Handler handler);

  // Start serves and registers everything.  Returns false after it said what is wrong.
  bool Start();

  void Ask(const std::string &question, Answer answer);

  // AskAndWait returns the answer, or nothing when there was none within a few seconds.
  std::string AskAndWait(const std::string &question);

  // AskMany asks one question many times, a few at once, and reports each answer.
  void AskMany(const std::string &question, uint32_t num, Answer answer);

  // Forget drops the questions that are not answered yet.
  void Forget() { pending_.clear(); }

  uint32_t NumServed() const { return numServed_; }

 private:
  struct Series {
    std::string question;
    uint32_t numLeft;
    Answer answer;
  };

  static Rpc &Of(uint64_t userData) { return *reinterpret_cast<Rpc *>(userData); }
  static uint32_t OnAsk(uint64_t userData, uint8_t *payload, uint32_t len, void *async);
  static uint32_t OnAnswer(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                           const CoapRpcCliRspInfo *);
  void AskNext(const std::shared_ptr<Series> &series);

  Node &node_;
  const Handler handler_;
  std::map<uint64_t, Answer> pending_;
  uint64_t lastNumber_ = 0;
  uint32_t numServed_ = 0;
};

// Poster sends notes to the synchronous URI "note" of the other process; PostBox takes them.
// CoAP acknowledges them, with nothing for the application to see.
constexpr uint16_t kNotePort = 5684;

class Poster {
 public:
  explicit Poster(Node &node) : node_(node) {}
  bool Start();
  bool Post(std::string text);

 private:
  Node &node_;
};

class PostBox {
 public:
  explicit PostBox(Node &node) : node_(node) {}
  bool Start();
  uint32_t NumNotes() const { return numNotes_; }

 private:
  static int32_t OnNote(uint64_t userData, const CoapRpcSerReqInfo *info, uint8_t *payload,
                        uint32_t payloadLen, uint8_t *out, uint32_t outSize);

  Node &node_;
  uint32_t numNotes_ = 0;
};

#endif  // DEMO_RPC_H
