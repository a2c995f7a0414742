/* sweep_requests.cpp: requests that the server answers, at once and later. */
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kSync = 0, kAsync = 1;
constexpr size_t kLarge = 5000;

void PrepareSync(Stage &stage) {
  stage.ServePlain(kSync);
  stage.app_.result = 3;
}
void PlayGet(Stage &stage) { stage.Say(stage.Get(CoapType::kCon, "plain", "q")); }
void WorksSync(Stage &stage) {
  stage.Forget();
  PlayGet(stage);
  EXPECT_TRUE(stage.HasHeard(Code(2, 1), std::string(4, '\0')));
}

void PreparePost(Stage &stage) {
  stage.ServePlain(kSync, COAP_RPC_UNICAST);
  stage.app_.result = 3;
}
void PlayPost(Stage &stage) { stage.Say(stage.Post(CoapType::kCon, "plain", "q")); }
void WorksPost(Stage &stage) {
  stage.Forget();
  PlayPost(stage);
  EXPECT_TRUE(stage.HasHeard(Code(2, 1), std::string(4, '\0')));
}

void PrepareSyncLarge(Stage &stage) {
  stage.ServePlain(kSync);
  stage.app_.result = kLarge;
}
void PlayGetLarge(Stage &stage) {
  CoapMessage get = stage.Get(CoapType::kCon, "plain", "q");
  stage.Say(get, 20);
}
void WorksSyncLarge(Stage &stage) {
  stage.Forget();
  PlayGetLarge(stage);
  EXPECT_TRUE(stage.HasHeardBytes(1024));
}

void PreparePostLarge(Stage &stage) {
  stage.ServePlain(kSync, COAP_RPC_UNICAST);
  stage.app_.result = kLarge;
}

// A request whose body comes in two blocks, the last one twice.
void PlayUpload(Stage &stage) {
  CoapMessage post;
  for (uint32_t num = 0; num < 2; ++num) {
    post = stage.Post(CoapType::kCon, "plain", std::string(1024, 'u'));
    post.AddBlock(kOptBlock1, {num, num == 0, 6}).AddUint(kOptSize1, 2048);
    stage.Say(post);
  }
  stage.Say(post);
}
void WorksUpload(Stage &stage) {
  stage.Forget();
  stage.app_.requests.clear();
  PlayUpload(stage);
  ASSERT_EQ(stage.app_.requests.size(), 1u);
  EXPECT_EQ(stage.app_.requests[0].payload, std::string(2048, 'u'));
}

void PrepareAsync(Stage &stage) { stage.ServePlain(kAsync); }

void AnswerAll(Stage &stage, const std::string &text) {
  for (void *handle : stage.app_.handles) {
    ExpectOneOf(COAP_RpcSerSendAsyncResponse(stage.Ctx(), handle,
                                             reinterpret_cast<const uint8_t *>(text.data()),
                                             static_cast<uint32_t>(text.size())),
                {0, 1900000418, 1900001302});
  }
}

void PlayAsync(Stage &stage) {
  PlayGet(stage);
  AnswerAll(stage, "later");
  stage.Listen(4);
}
// What could not be answered is, now that there is memory.
void WorksAsync(Stage &stage) {
  AnswerAll(stage, "later");
  stage.Listen(60);
  stage.app_.handles.clear();
  stage.Forget();
  PlayAsync(stage);
  EXPECT_EQ(stage.app_.handles.size(), 1u);
  EXPECT_TRUE(stage.HasHeard(kCodePost, "later"));
}

void PlayAsyncLarge(Stage &stage) {
  PlayGet(stage);
  AnswerAll(stage, std::string(kLarge, 'l'));
  stage.Listen(20);
}
void WorksAsyncLarge(Stage &stage) {
  AnswerAll(stage, "later");
  stage.Listen(60);
  stage.app_.handles.clear();
  stage.Forget();
  PlayAsyncLarge(stage);
  EXPECT_TRUE(stage.HasHeardBytes(kLarge));
}

// Several answers at once, one of which is taken back.
void PlayAsyncSeveral(Stage &stage) {
  for (int i = 0; i < 3; ++i) PlayGet(stage);
  AnswerAll(stage, "later");
  if (!stage.app_.handles.empty()) {
    COAP_RpcSerAbortAsyncResponse(stage.Ctx(), stage.app_.handles[0]);
  }
  stage.Listen(8);
}
void WorksAsyncSeveral(Stage &stage) {
  WorksAsync(stage);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(stage.Ctx()), 0u);
}

void AbortAll(Stage &stage) {
  for (void *handle : stage.app_.handles) {
    ExpectOneOf(COAP_RpcSerAbortAsyncResponse(stage.Ctx(), handle), {0, 1900001302});
  }
}
void PlayAbort(Stage &stage) {
  PlayGet(stage);
  AbortAll(stage);
  stage.Listen(4);
}
void WorksAbort(Stage &stage) {
  AbortAll(stage);
  stage.Listen(60);
  stage.app_.handles.clear();
  stage.Forget();
  PlayAbort(stage);
  EXPECT_EQ(stage.app_.handles.size(), 1u);
  EXPECT_TRUE(stage.HasHeard(Code(2, 5), ""));
}

// ---- direct entries ----

void MakeDirect(Stage &stage) {
  const CoapRpcUriKey key = KeyOf("plain");
  ExpectOneOf(COAP_RpcSerSetDirect(stage.Ctx(), &key, nullptr), {0, 1900001467});
}

void PrepareDirect(Stage &stage) {
  stage.ServePlain(kSync);
  stage.app_.out = "xyz";
  stage.app_.result = 3;
}
// Made direct while memory fails; until it is, the entry is a base one.
void PlayDirect(Stage &stage) {
  MakeDirect(stage);
  const CoapMessage post = stage.Post(CoapType::kCon, "plain", "q");
  stage.Say(post);
  stage.Say(post);
}
void WorksDirect(Stage &stage) {
  MakeDirect(stage);
  stage.Forget();
  stage.app_.requests.clear();
  PlayDirect(stage);
  EXPECT_TRUE(stage.HasHeard(Code(2, 4), "xyz"));
  EXPECT_EQ(stage.app_.requests.size(), 1u);
}

void PrepareDirectLarge(Stage &stage) {
  PrepareDirect(stage);
  MakeDirect(stage);
  stage.app_.out = std::string(kLarge, 'l');
  stage.app_.result = kLarge;
}
void PlayDirectLarge(Stage &stage) { stage.Say(stage.Get(CoapType::kCon, "plain", "q"), 20); }
void WorksDirectLarge(Stage &stage) {
  stage.Forget();
  PlayDirectLarge(stage);
  EXPECT_TRUE(stage.HasHeardBytes(1024));
}

void PrepareDirectAsync(Stage &stage) {
  stage.ServePlain(kAsync);
  MakeDirect(stage);
}
void PlayDirectAsync(Stage &stage) {
  const CoapMessage post = stage.Post(CoapType::kCon, "plain", "q");
  stage.Say(post);
  AnswerAll(stage, "later");
  stage.Listen(4);
  stage.Say(post);
}
void WorksDirectAsync(Stage &stage) {
  AnswerAll(stage, "later");
  stage.Listen(60);
  stage.app_.handles.clear();
  stage.Forget();
  PlayDirectAsync(stage);
  EXPECT_EQ(stage.app_.handles.size(), 1u);
  EXPECT_TRUE(stage.HasHeard(Code(2, 4), "later"));
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(stage.Ctx()), 0u);
}

void FailAll(Stage &stage) {
  for (void *handle : stage.app_.handles) {
    ExpectOneOf(COAP_RpcSerFailAsync(stage.Ctx(), handle, 404, "no"), {0, 1900001474, 1900001302});
  }
}
void PlayDirectFail(Stage &stage) {
  stage.Say(stage.Get(CoapType::kNon, "plain", "q"));
  FailAll(stage);
  stage.Listen(4);
}
void WorksDirectFail(Stage &stage) {
  FailAll(stage);
  stage.Listen(60);
  stage.app_.handles.clear();
  stage.Forget();
  PlayDirectFail(stage);
  EXPECT_TRUE(stage.HasHeard(Code(4, 4), "no"));
}

constexpr std::initializer_list<uint32_t> kAddResults = {0, 1900001302, 1900001509, 1900001551};

void AddOptions(Stage &stage) {
  for (void *handle : stage.app_.handles) {
    for (const uint32_t number : {COAP_RPC_OPTION_ETAG, COAP_RPC_OPTION_LOCATION_QUERY}) {
      ExpectOneOf(COAP_RpcSerAddAsyncAnswerOption(stage.Ctx(), handle, number, "12345678", 8),
                  kAddResults);
    }
  }
}
// A small and a large answer with options, one of them added in the callback.
void PrepareDirectOptions(Stage &stage) {
  PrepareDirectAsync(stage);
  stage.app_.onAsync = [&stage](void *) {
    const std::string path(120, 'p');
    ExpectOneOf(
        COAP_RpcSerAddAnswerOption(stage.Ctx(), COAP_RPC_OPTION_LOCATION_PATH, path.data(), 120),
        kAddResults);
  };
}
void PlayDirectOptions(Stage &stage) {
  for (const std::string &text : {std::string("small"), std::string(kLarge, 'l')}) {
    stage.Say(stage.Post(CoapType::kCon, "plain", "q"));
    AddOptions(stage);
    AnswerAll(stage, text);
    stage.Listen(20);
  }
}
void WorksDirectOptions(Stage &stage) {
  AnswerAll(stage, "later");
  stage.Listen(60);
  stage.app_.handles.clear();
  stage.Forget();
  PlayDirectOptions(stage);
  EXPECT_TRUE(stage.HasHeard(Code(2, 4), "small"));
  EXPECT_TRUE(stage.HasHeardBytes(512));
}

// Each attribute is given and changed, and the entry attached again.
void PlayDirectLinks(Stage &stage) {
  const CoapRpcUriKey key = KeyOf("plain");
  for (const char *value : {"1", "2 3"}) {
    for (const char *name : {"rt", "if", "ct", "title"}) {
      ExpectOneOf(COAP_RpcSerSetLinkAttribute(stage.Ctx(), &key, name, value), {0, 1900001557});
    }
    stage.Say(stage.Get(CoapType::kCon, ".well-known/core"));
    COAP_RpcSerUnsetUri(stage.Ctx(), &key);
    stage.Listen(2);
    stage.Attach(key);
  }
  ExpectOneOf(COAP_RpcSerSetLinkAttribute(stage.Ctx(), &key, "rt", nullptr), {0, 1900001557});
}
void WorksDirectLinks(Stage &stage) {
  stage.Attach(KeyOf("plain"));
  PlayDirectLinks(stage);
  stage.Forget();
  stage.Say(stage.Get(CoapType::kCon, ".well-known/core"));
  EXPECT_TRUE(stage.HasHeard(Code(2, 5), "</plain>;title=\"2 3\";ct=\"2 3\";if=\"2 3\""));
}

// Numbers take no memory of the instance's.
void ReadStats(Stage &stage) {
  CoapRpcStats stats = {};
  stats.size = sizeof(stats);
  EXPECT_EQ(COAP_RpcGetStats(stage.Ctx(), &stats), 0u);
  EXPECT_EQ(stats.uris, 1u);
  uint32_t num = 0;
  const CoapRpcOnUriStats onUri = [](uint64_t, const CoapRpcUriKey *, const CoapRpcUriStats *) {};
  EXPECT_EQ(COAP_RpcVisitUriStats(stage.Ctx(), nullptr, 0, onUri, 0, &num), 0u);
  EXPECT_EQ(num, 1u);
}
void PlayStats(Stage &stage) {
  EXPECT_EQ(COAP_RpcShowStats(stage.Ctx()), 0u);
  ReadStats(stage);
  for (const char *command : {"disp server stats", "disp server times", "disp server perUri",
                              "disp server async", "disp client stats", "disp client call"}) {
    EXPECT_FALSE(stage.host_.RunCommand(command).empty()) << command;
  }
}

}  // namespace

const std::vector<Scenario> &RequestScenarios() {
  static const std::vector<Scenario> scenarios = {
      {"SyncGet", kPool | kLibcoap, PrepareSync, PlayGet, WorksSync, true},
      {"SyncPost", kPool | kLibcoap, PreparePost, PlayPost, WorksPost, true},
      {"SyncLargeAnswer", kPool | kLibcoap, PrepareSyncLarge, PlayGetLarge, WorksSyncLarge, true},
      {"Upload", kPool | kLibcoap, PreparePost, PlayUpload, WorksUpload, true},
      {"UploadLargeAnswer", kPool | kLibcoap, PreparePostLarge, PlayUpload, WorksUpload, true},
      {"AsyncAnswer", kPool | kLibcoap, PrepareAsync, PlayAsync, WorksAsync, true},
      {"AsyncLargeAnswer", kPool | kLibcoap, PrepareAsync, PlayAsyncLarge, WorksAsyncLarge, true},
      {"AsyncSeveralAnswers", kPool | kLibcoap, PrepareAsync, PlayAsyncSeveral, WorksAsyncSeveral,
       true},
      {"AsyncAbort", kPool | kLibcoap, PrepareAsync, PlayAbort, WorksAbort, true},
      {"Stats", 0, PrepareDirectAsync, PlayStats, PlayStats, true},
      {"DirectPost", kPool | kLibcoap, PrepareDirect, PlayDirect, WorksDirect, true},
      {"DirectLargeAnswer", kPool | kLibcoap, PrepareDirectLarge, PlayDirectLarge, WorksDirectLarge,
       true},
      {"DirectAsync", kPool | kLibcoap, PrepareDirectAsync, PlayDirectAsync, WorksDirectAsync,
       true},
      {"DirectAsyncFail", kPool | kLibcoap, PrepareDirectAsync, PlayDirectFail, WorksDirectFail,
       true},
      {"DirectOptions", kPool | kLibcoap, PrepareDirectOptions, PlayDirectOptions,
       WorksDirectOptions, true},
      {"DirectLinks", kPool | kLibcoap, PrepareDirectLarge, PlayDirectLinks, WorksDirectLinks,
       false},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
