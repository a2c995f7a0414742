/* test_coap_rpc_lib_sync_query.cpp: the arguments of a reader. */
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_query.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace coap_rpc_test {
namespace {

using coap_rpc::SyncQuery;
using Args = std::vector<std::string>;

// Request owns a GET with arguments.
class Request {
 public:
  explicit Request(const Args &args)
      : pdu_(coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 65'000)) {
    for (const std::string &arg : args) {
      coap_add_option(pdu_, COAP_OPTION_URI_QUERY, arg.size(),
                      reinterpret_cast<const uint8_t *>(arg.data()));
    }
  }
  ~Request() { coap_delete_pdu(pdu_); }
  operator const coap_pdu_t *() const { return pdu_; }

 private:
  coap_pdu_t *pdu_;
};

bool Reads(const Args &args, SyncQuery *query = nullptr) {
  SyncQuery none;
  return coap_rpc::ReadSyncQuery(Request(args), query ? *query : none);
}

TEST(SyncQuery, AllArguments_InAnyOrder) {
  SyncQuery query;
  ASSERT_TRUE(
      Reads({"until=18446744073709551615", "full=1", "since=7", "_sync=1", "id=00fE"}, &query));
  EXPECT_EQ(query.id, 0xFEu);
  EXPECT_EQ(query.since, 7u);
  EXPECT_EQ(query.until, UINT64_MAX);
  EXPECT_EQ(query.found, 31u);
}

TEST(SyncQuery, OnlyTheProtocol) {
  SyncQuery query;
  ASSERT_TRUE(Reads({"_sync=1"}, &query));
  EXPECT_EQ(query.since, 0u);
  EXPECT_EQ(query.until, UINT64_MAX);
  EXPECT_EQ(query.found, coap_rpc::kSyncArgSync);
}

TEST(SyncQuery, WhatIsNotUnderstood_IsRefused) {
  const Args bad[] = {
      {},
      {"since=1"},
      {"_sync=2"},
      {"_sync="},
      {"_sync=1", "_sync=1"},
      {"_sync=1", "since="},
      {"_sync=1", "since=-1"},
      {"_sync=1", "since=+1"},
      {"_sync=1", "since= 1"},
      {"_sync=1", "since=1x"},
      {"_sync=1", "since=0x1"},
      {"_sync=1", "since=18446744073709551616"},
      {"_sync=1", "since=1", "since=1"},
      {"_sync=1", "since=2", "until=1"},
      {"_sync=1", "until=a"},
      {"_sync=1", "id="},
      {"_sync=1", "id=g"},
      {"_sync=1", "id=00000000000000001"},
      {"_sync=1", "full=0"},
      {"_sync=1", "full"},
      {"_sync=1", ""},
      {"_sync=1", "unknown=1"},
      {"_sync=1", std::string("since=1\0", 8)},
  };
  for (const Args &args : bad) EXPECT_FALSE(Reads(args)) << testing::PrintToString(args);
}

TEST(SyncQuery, ManyOptions_AreRefused) { EXPECT_FALSE(Reads(Args(300, "_sync=1"))); }

TEST(SyncQuery, IsSyncRequest_LooksForTheProtocolAlone) {
  EXPECT_TRUE(coap_rpc::IsSyncRequest(Request({"a", "_sync=7"})));
  EXPECT_FALSE(coap_rpc::IsSyncRequest(Request({"a", "_sync", "since=1"})));
  EXPECT_FALSE(coap_rpc::IsSyncRequest(Request({})));
}

}  // namespace
}  // namespace coap_rpc_test
