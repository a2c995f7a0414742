/* load_calls.h: questions to the peer and answers to its questions.
 *
 * A question says how long its answer is to be; a call that is not answered in time is repeated.
 */
#ifndef LOAD_CALLS_H
#define LOAD_CALLS_H

#include "load_node.h"

namespace coap_rpc_test {

struct CallCounts {
  uint64_t asked = 0;
  uint64_t answered = 0;
  uint64_t repeated = 0;  // questions that were asked again
  uint64_t served = 0;    // questions of the peer
};

class Calls {
 public:
  Calls(LoadNode &node, uint64_t patienceMs, uint64_t maxPatienceMs)
      : node_(node), patienceMs_(patienceMs), maxPatienceMs_(maxPatienceMs) {}
  Calls(const Calls &) = delete;
  Calls &operator=(const Calls &) = delete;

  void Start();  // registers
  void Attach();
  void Detach();
  void Ask();   // puts one more question
  void Step();  // answers what is due, and asks again
  bool IsQuiet() const { return pending_.empty() && jobs_.empty(); }
  size_t NumPending() const { return pending_.size(); }
  const CallCounts &Counts() const { return counts_; }

 private:
  struct Question {
    bool isCon = true;
    std::string text;
    uint32_t answerLen = 0;
    uint64_t patienceMs = 0;
    uint64_t dueMs = 0;
  };
  struct Job {
    void *handle = nullptr;
    std::string answer;
    uint64_t dueMs = 0;
  };

  static Calls &Of(uint64_t userData) { return *reinterpret_cast<Calls *>(userData); }
  static uint32_t OnAsk(uint64_t userData, uint8_t *payload, uint32_t len, void *handle);
  static uint32_t OnAnswer(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                           const CoapRpcCliRspInfo *);

  void StartOf(uint32_t msgType);
  uint32_t Length();
  void Send(Question *question);

  LoadNode &node_;
  const uint64_t patienceMs_;
  const uint64_t maxPatienceMs_;
  std::map<uint64_t, Question> pending_;  // by number
  std::vector<Job> jobs_;
  CallCounts counts_;
};

}  // namespace coap_rpc_test

#endif /* LOAD_CALLS_H */
