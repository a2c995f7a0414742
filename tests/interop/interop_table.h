/* interop_table.h: an observable table with keys and values of four characters each. */
#ifndef INTEROP_TABLE_H
#define INTEROP_TABLE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "example.h"

enum class InteropFormat { kJson, kIdl };

/* InteropTable publishes its contents under one path of 127.0.0.2.  Registered by its address: it
 * must not be moved after Serve. */
class InteropTable {
 public:
  InteropTable(CoapRpcCtx *ctx, const char *uri, InteropFormat format);

  bool Serve();
  const std::string &Uri() const { return uri_; }
  const CoapRpcUriKey &Key() const { return key_; }

  /* Keys and values of another length are cut or filled with blanks. */
  void Set(const std::string &key, const std::string &val);
  void Remove(const std::string &key);

  /* The path is served no more. */
  void TakeAway();

 private:
  static InteropTable &Of(uint64_t userData);
  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *info, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t size);
  static void OnObserverNum(uint64_t userData, uint32_t num);
  static uint32_t BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out);
  static uint32_t BuildDelete(uint64_t userData, uint8_t *key, void *out);
  void Write(void *out, const std::string &key, const std::string *val) const;  // null: deleted
  static uint32_t First(uint64_t userData, void *cursor, void *key, void *val);
  static uint32_t Next(uint64_t userData, void *cursor, const void *lastKey, void *key, void *val);
  uint32_t Copy(std::map<std::string, std::string>::const_iterator at, void *key, void *val) const;

  CoapRpcCtx *ctx_;
  std::string uri_;
  InteropFormat format_;
  CoapRpcUriKey key_;
  std::map<std::string, std::string> rows_;
};

/* InteropTables are the tables that foreign clients observe: obs, obs-large (300 rows), obs-away,
 * obs-idl (messages), and gone/<peer> for each of these peers, to vanish from. */
class InteropTables {
 public:
  bool Serve(CoapRpcCtx *ctx, const std::vector<std::string> &peers);
  const std::vector<InteropTable> &All() const { return tables_; }

  /* Obey does "set <uri> <key> <value>", "del <uri> <key>" or "away <uri>".  Returns whether there
   * is such a table. */
  bool Obey(const std::string &order);

 private:
  bool Fill();

  std::vector<InteropTable> tables_;
};

#endif /* INTEROP_TABLE_H */
