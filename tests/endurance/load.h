/* load.h: everything at once between two instances: calls in both directions, small and in blocks,
 * posts, tables in JSON and IDL with their mirrors, relations renewed, cancelled and begun again.
 *
 * Each side runs one Load.  The effect of a post is seen in the mirror of the peer's first table; a
 * post whose effect is not seen in time is made again. */
#ifndef LOAD_H
#define LOAD_H

#include <array>

#include "load_calls.h"
#include "load_table.h"

namespace coap_rpc_test {

struct LoadParam {
  uint32_t selfIp;
  uint32_t peerIp;
  uint32_t seed;
  uint32_t callPeriodMs;  // between calls, on average; the rest follows it
  uint64_t patienceMs;    // until a call or post is repeated
  uint64_t renewMs;       // between two renewals of a relation
  uint64_t doubtMs;       // until a mirror that differs is rebuilt
  Side::Request *renewAtRest = COAP_RpcCliObserveReqBatch;  // how relations are renewed then
  uint64_t maxPatienceMs =
      0;  // a call waits twice as long each time, up to this; 0: always as long
};

struct LoadCounts {
  CallCounts calls;
  MirrorCounts mirrors;  // of all tables
  uint64_t posted = 0;
  uint64_t postsSeen = 0;
  uint64_t postsRepeated = 0;
  uint64_t changes = 0;

  LoadCounts &operator+=(const LoadCounts &other);
  std::string Text() const;
};

class Load {
 public:
  static constexpr size_t kNumTables = 3;

  Load(CoapRpcCtx *ctx, const LoadParam &param, uint64_t nowMs);
  Load(const Load &) = delete;
  Load &operator=(const Load &) = delete;

  void Step(uint64_t nowMs);
  void SetQuiet(bool isQuiet) { isQuiet_ = isQuiet; }  // nothing new is begun
  bool IsQuiet() const;           // all is answered and seen, and what is mirrored is equal
  void MoveTo(uint32_t selfIp);   // its own address is another one from now on
  void SetPeer(uint32_t peerIp);  // the peer's is
  void ResetTables();             // the same content each time
  void Verify();                  // all relations are renewed, the same way each time

  const Tuples &TableData(size_t i) const { return tables_[i].Data(); }
  const Tuples &MirrorData(size_t i) const { return mirrors_[i].Data(); }
  std::string TablesText() const;  // what the peer's MirrorsText is to be
  std::string MirrorsText() const;
  std::string StateText() const;  // what it waits for
  LoadCounts Counts() const;

 private:
  struct Post {
    std::string val;
    uint64_t dueMs = 0;
  };

  static int32_t OnPost(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                        uint32_t len, uint8_t *, uint32_t);

  void StartPosts();
  void Attach();  // all that it serves
  void Detach();
  void LeaveAll();
  void BeginAllAgain();
  void Begin();  // one of everything whose time has come
  void ChangeTables();
  void BeginPost();
  void SendPost(const std::string &key, Post *post);
  void LookAfterPosts();

  const LoadParam param_;
  LoadNode node_;
  Calls calls_;
  std::array<PublishedTable, kNumTables> tables_;
  std::array<MirroredTable, kNumTables> mirrors_;
  std::map<std::string, Post> posts_;  // by key in the peer's first table
  Pace callPace_, postPace_, smallPace_, bigPace_, wholePace_;
  LoadCounts counts_;
  bool isQuiet_ = false;
};

}  // namespace coap_rpc_test

#endif /* LOAD_H */
