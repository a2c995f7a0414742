/* load_table.h: tables that are published, and their mirrors at the peer.
 *
 * A table says in one of its tuples what the digest of the others is.  By this a mirror knows
 * whether it is complete; one that stays different although its relation was renewed is rebuilt:
 * what was deleted in a payload that got lost, or while nobody observed, is in no later one. */
#ifndef LOAD_TABLE_H
#define LOAD_TABLE_H

#include "load_node.h"

namespace coap_rpc_test {

using Tuples = std::map<std::string, std::string>;

// TableKind is what the two sides know about a table.
struct TableKind {
  const char *uri;
  uint32_t msgType;  // of the notifications
  bool isJson;
  size_t padding;    // bytes added to each tuple
  uint32_t numKeys;  // that changes choose from
};

std::string DigestOf(const Tuples &tuples);

class PublishedTable {
 public:
  PublishedTable(LoadNode &node, const TableKind &kind) : node_(node), kind_(kind) {}
  PublishedTable(const PublishedTable &) = delete;
  PublishedTable &operator=(const PublishedTable &) = delete;

  void Start();  // registers
  void Attach();
  void Detach();
  void Change(uint32_t num);  // changes, adds or deletes some tuples
  void Reset();               // has all keys and values that are always the same
  void Set(const std::string &key, const std::string &val);  // one tuple, of the application
  const Tuples &Data() const { return app_.data; }
  uint64_t NumChanges() const { return numChanges_; }

 private:
  void Put(const std::string &key, const std::string &val);
  void Erase(const std::string &key);
  void PutDigest();

  LoadNode &node_;
  const TableKind kind_;
  ObserveApp app_;
  uint64_t numChanges_ = 0;
};

struct MirrorCounts {
  uint64_t payloads = 0;
  uint64_t bytes = 0;
  uint64_t renewals = 0;  // with a check code or for everything
  uint64_t cancels = 0;
  uint64_t rebuilt = 0;  // because the copy stayed different
};

class MirroredTable {
 public:
  struct Patience {
    uint64_t renewMs;  // between two renewals
    uint64_t doubtMs;  // from the first difference to a new beginning
    Side::Request *renewAtRest;
  };

  MirroredTable(LoadNode &node, const TableKind &kind, Patience patience)
      : node_(node), kind_(kind), patience_(patience) {}
  MirroredTable(const MirroredTable &) = delete;
  MirroredTable &operator=(const MirroredTable &) = delete;

  void Start();             // registers and observes
  void Leave();             // ends the relation
  void BeginAgain();        // forgets everything and observes
  void Step(bool isQuiet);  // renews, or rebuilds; at rest always the same way
  void Verify();            // renews the relation with the check code
  bool IsEqual() const { return differsSinceMs_ == 0; }
  const Tuples &Data() const { return mirror_.tuples; }
  const MirrorCounts &Counts() const { return counts_; }

 private:
  static uint32_t OnPayload(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                            const CoapRpcCliRspInfo *);

  CoapRpcUriKey Key() const { return KeyOf(kind_.uri, COAP_RPC_CON, 1); }
  void Observe(Side::Request *how);
  void Renew();
  void RenewBy(Side::Request *how);
  void NoteDigest();

  LoadNode &node_;
  const TableKind kind_;
  const Patience patience_;
  Mirror mirror_;
  MirrorCounts counts_;
  uint64_t differsSinceMs_ = 1;  // 0: it does not
  uint64_t nextRenewMs_ = 0;
};

}  // namespace coap_rpc_test

#endif /* LOAD_TABLE_H */
