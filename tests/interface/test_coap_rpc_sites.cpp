// The lists of failure and log sites: numbers that operators and scripts know, asserted one by one.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace {

struct Row {
  std::string name;
  std::string path;
  uint32_t code;
  uint32_t assertLine;
  std::string meaning;
};

std::vector<Row> Rows() {
#define ROW(name, path, code, assertLine, meaning) \
  {#name, coap_rpc::path, code, assertLine, meaning},
  return {COAP_RPC_SITES(ROW)};
#undef ROW
}

// The code of each function's failure, as fixed.
const std::multimap<uint32_t, std::string> kFixedCodes = {
    {1900000085, "COAP_RpcLogInit"},
    {1900000048, "COAP_RpcLibInit"},
    {1900000053, "COAP_RpcLibInit"},
    {1900000054, "COAP_RpcSerInit, COAP_RpcCliInit"},
    {1900000060, "COAP_RpcSerInit, COAP_RpcCliInit"},
    {1900000077, "COAP_RpcSerSetUri"},
    {1900000082, "COAP_RpcSerSetUri"},
    {1900000087, "COAP_RpcSerSetUri"},
    {1900000125, "COAP_RpcSerObserveDataUpdate"},
    {1900000130, "COAP_RpcSerObserveDataUpdate"},
    {1900000135, "COAP_RpcSerObserveDataUpdate"},
    {1900000169, "COAP_RpcSerRegVtbl"},
    {1900000076, "COAP_RpcCliNonReq"},
    {1900000071, "COAP_RpcCreateOrUpdateResource"},
    {1900000156, "COAP_RpcStartTaskTimer"},
    {1900000171, "COAP_RpcRefreshTaskTimer"},
    {1900000434, "COAP_RpcLibStartup_"},
    {1900000093, "COAP_RpcGetUriStr"},
    {1900000097, "COAP_RpcGetUriStr"},
    {1900000103, "COAP_RpcGetUriStr"},
    {1900000198, "COAP_GetRpcAndSerUriVtbl"},
    {1900000203, "COAP_GetRpcAndSerUriVtbl"},
    {1900000244, "COAP_RpcSvrHandleReqSync"},
    {1900000250, "COAP_RpcSvrHandleReqSync"},
    {1900000254, "COAP_RpcSvrHandleReqSync"},
    {1900000321, "COAP_RpcSvrHandleReqAsync"},
    {1900000331, "COAP_RpcSvrHandleReqAsync"},
    {1900000337, "COAP_RpcSvrHandleReqAsync"},
    {1900000369, "COAP_RpcSerHandleRequest"},
    {1900000382, "COAP_RpcSerHandleRequest"},
    {1900000414, "COAP_RpcSerSendAsyncResponse"},
    {1900000418, "COAP_RpcSerSendAsyncResponse"},
    {1900000438, "COAP_RpcSerHandleOneData"},
    {1900000443, "COAP_RpcSerHandleOneData"},
    {1900000457, "COAP_RpcSerHandleOneData"},
    {1900000469, "COAP_RpcSerHandleOneIdlMsg"},
    {1900000474, "COAP_RpcSerHandleOneIdlMsg"},
    {1900000608, "COAP_RpcSerHandleIdlGetPayload"},
    {1900000707, "COAP_RpcSerHandleObserveBatchUpdate"},
    {1900000714, "COAP_RpcSerHandleObserveBatchUpdate"},
    {1900000113, "COAP_RpcSerProcUpdateTuple"},
    {1900000167, "COAP_RpcSerAddUriObVtbl"},
    {1900000251, "COAP_RpcUriRegSerVtbl"},
    {1900000152, "COAP_RpcSerCreatListen"},
    {1900000157, "COAP_RpcSerCreatListen"},
    {1900000163, "COAP_RpcSerCreatListen"},
    {1900000177, "COAP_RpcSerUpdateListen"},
    {1900000041, "COAP_RpcSerProcTupleChg, COAP_RpcSerStartUriUpdateTimer"},
    {1900000050, "COAP_RpcSerProcTupleChg, COAP_RpcSerStartUriUpdateTimer"},
    {1900000098, "COAP_RpcSerAddTupleChgData"},
    {1900000129, "COAP_RpcSerProcTupleChg"},
    {1900000139, "COAP_RpcSerUpdateTuple"},
    {1900000144, "COAP_RpcSerUpdateTuple"},
};

TEST(Sites, FixedCodes_NameTheirFunction) {
  for (const auto &[code, function] : kFixedCodes) {
    EXPECT_EQ(std::string(COAP_RpcErrStr(code)).rfind(function + ": ", 0), 0u)
        << code << " is \"" << COAP_RpcErrStr(code) << "\"";
  }
}

TEST(Sites, ListHoldsNoOtherCodeBelow1000) {
  for (const Row &row : Rows()) {
    if (row.code == 0 || row.code > 1000) continue;
    EXPECT_EQ(kFixedCodes.count(coap_rpc::kCodeBase + row.code), 1u) << row.name;
  }
}

TEST(Sites, Numbers_AreUniqueInTheirFile) {
  std::set<std::pair<std::string, uint32_t>> codes;
  std::set<std::pair<std::string, uint32_t>> asserts;
  for (const Row &row : Rows()) {
    if (row.code != 0) {
      EXPECT_TRUE(codes.emplace(row.path, row.code).second) << row.name;
    }
    if (row.assertLine != 0) {
      EXPECT_TRUE(asserts.emplace(row.path, row.assertLine).second) << row.name;
    }
  }
}

TEST(Sites, OneCode_HasOneMeaning) {
  std::map<uint32_t, std::string> meanings;
  for (const Row &row : Rows()) {
    if (row.code == 0) continue;
    const auto [at, isNew] = meanings.emplace(row.code, row.meaning);
    EXPECT_TRUE(isNew || at->second == row.meaning) << row.name;
  }
}

TEST(Sites, Meaning_NamesAFunctionAndAReason) {
  for (const Row &row : Rows()) {
    EXPECT_NE(row.meaning.find(": "), std::string::npos) << row.name;
    EXPECT_EQ(row.meaning.rfind("COAP_", 0), 0u) << row.name;
  }
}

TEST(Sites, EverySite_HasANumber) {
  for (const Row &row : Rows()) EXPECT_NE(row.code + row.assertLine, 0u) << row.name;
}

TEST(Sites, Paths_AreFromTheProjectsRootWithoutExtension) {
  EXPECT_STREQ(coap_rpc::kSiteInitNullParam.path,
               "coap_server/src/coap_svc/rpc/init/coap_rpc_main");
  EXPECT_STREQ(coap_rpc::kSiteSerSetUriNullArg.path,
               "coap_server/src/coap_svc/rpc/init/coap_rpc_ser");
  EXPECT_STREQ(coap_rpc::kSiteCliNonReqNullArg.path,
               "coap_server/src/coap_svc/rpc/init/coap_rpc_cli");
  EXPECT_STREQ(coap_rpc::kSiteCliSessionHasRequests.path,
               "coap_server/src/coap_svc/rpc/client/coap_rpc_cli_session");
  EXPECT_STREQ(coap_rpc::kSiteOneDataNoObject.path,
               "coap_server/src/coap_svc/rpc/libadapter/coap_rpc_lib_handler");
  EXPECT_STREQ(coap_rpc::kSiteAddUriTupleKeyCopy.path,
               "coap_server/src/coap_svc/rpc/server/coap_rpc_ser_uri");
  EXPECT_STREQ(coap_rpc::kSiteAddTupleChgKeyCopy.path,
               "coap_server/src/coap_svc/rpc/server/coap_rpc_ser_observe");
}

TEST(Sites, AssertLines_AreFixed) {
  EXPECT_EQ(coap_rpc::kSiteSerSetUriNullArg.assertLine, 76u);
  EXPECT_EQ(coap_rpc::kSiteSerUnsetUriNullArg.assertLine, 114u);
  EXPECT_EQ(coap_rpc::kSiteObserveDataUpdateNullArg.assertLine, 124u);
  EXPECT_EQ(coap_rpc::kSiteObserveDataDelNullArg.assertLine, 149u);
  EXPECT_EQ(coap_rpc::kSiteSerRegVtblNullArg.assertLine, 168u);
  EXPECT_EQ(coap_rpc::kSiteCliNonReqNullArg.assertLine, 75u);
  EXPECT_EQ(coap_rpc::kSiteCliSessionHasRequests.assertLine, 176u);
  EXPECT_EQ(coap_rpc::kSiteOneDataNoObject.assertLine, 442u);
  EXPECT_EQ(coap_rpc::kSiteUpdateTupleNullArg.assertLine, 138u);
  EXPECT_EQ(coap_rpc::kSiteAddUriTupleKeyCopy.assertLine, 48u);
  EXPECT_EQ(coap_rpc::kSiteAddUriTupleValCopy.assertLine, 54u);
  EXPECT_EQ(coap_rpc::kSiteUpdateUriTupleValCopy.assertLine, 76u);
  EXPECT_EQ(coap_rpc::kSiteAddTupleChgKeyCopy.assertLine, 58u);
  EXPECT_EQ(coap_rpc::kSiteAddTupleChgValCopy.assertLine, 63u);
  EXPECT_EQ(coap_rpc::kSiteMergeTupleChgValCopy.assertLine, 82u);
}

TEST(ErrStr, Zero_IsSuccess) { EXPECT_STREQ(COAP_RpcErrStr(0), "success"); }

TEST(ErrStr, NumbersNeverReturned_AreUnknown) {
  EXPECT_STREQ(COAP_RpcErrStr(1), "unknown code");
  EXPECT_STREQ(COAP_RpcErrStr(1900000000), "unknown code");
  EXPECT_STREQ(COAP_RpcErrStr(1900009999), "unknown code");
  EXPECT_STREQ(COAP_RpcErrStr(0xFFFFFFFF), "unknown code");
}

}  // namespace
