// demo_rpc.h: questions and answers between the two processes: calls to direct entries.
#ifndef DEMO_RPC_H
#define DEMO_RPC_H

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "demo_node.h"

// Answer gets the payload of an answer.
using Answer = std::function<void(std::string text)>;

// Caller posts texts to the other process.
class Caller {
 public:
  explicit Caller(Node &node) : node_(node) {}
  ~Caller() { Forget(); }
  Caller(const Caller &) = delete;
  Caller &operator=(const Caller &) = delete;

  // Post returns the call's id.  `answer` is not called when there is no answer with data: then
  // the call only ends.
  uint64_t Post(uint16_t port, const char *path, const std::string &text, Answer answer);

  bool IsOpen(uint64_t id) const { return pending_.contains(id); }

  // Forget cancels the calls that are not answered yet.
  void Forget();

 private:
  static void OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp);

  Node &node_;
  std::map<uint64_t, Answer> pending_;  // by id
};

// Rpc asks the other process at the asynchronous entry "ask", and answers its questions.
class Rpc {
 public:
  // Handler gets a question and answers it, now or later.
  using Handler = std::function<void(const std::string &question, Answer answer)>;

  Rpc(Node &node, Handler handler);

  // Start serves the entry.  Returns false after it said what is wrong.
  bool Start();

  uint64_t Ask(const std::string &question, Answer answer);

  // AskAndWait returns the answer, or nothing when there was none within a few seconds.
  std::string AskAndWait(const std::string &question);

  // AskMany asks one question many times, a few at once, and reports each answer.
  void AskMany(const std::string &question, uint32_t num, Answer answer);

  // Forget drops the questions that are not answered yet.
  void Forget() { caller_.Forget(); }

  uint32_t NumServed() const { return numServed_; }

 private:
  struct Series {
    std::string question;
    uint32_t numLeft;
    Answer answer;
  };

  static uint32_t OnAsk(uint64_t userData, uint8_t *payload, uint32_t len, void *async);
  void AskNext(const std::shared_ptr<Series> &series);

  Node &node_;
  Caller caller_{node_};
  const Handler handler_;
  uint32_t numServed_ = 0;
};

// PostBox takes notes at the synchronous entry "note" of its own port, and answers each with
// "<number> <note>".
constexpr uint16_t kNotePort = 5684;
constexpr char kNotePath[] = "note";

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
