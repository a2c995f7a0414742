/* state_serve.cpp: a table that changes in rounds, for state_read.
 *
 *   --kind rpc       the library, with versions of the tuples
 *   --kind libcoap   libcoap alone: the same number of bytes in one NON notification of each round,
 *                    and in each answer to a GET
 *   --tuples <n>     rows of the table (10,000)
 *   --changed <n>    rows that a round changes (100)
 *   --ip <address>   to serve at (127.0.0.1)
 *
 * Only the round's time is in what libcoap sends. */
#include <arpa/inet.h>

#include <string>

#include "clock.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "kst_tmr.h"
#include "options.h"
#include "state.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint32_t kTickMs = 1;
constexpr uint32_t kPageBytes = 1020;  // what a full page of the library has

uint32_t IpOf(const Options &options) {
  return ntohl(inet_addr(options.Text("--ip", "127.0.0.1")));
}

// Rounds makes one soon after it was asked for, outside of the I/O.
class Rounds {
 public:
  Rounds(Kestrel *host, void (*make)(void *owner), void *owner) : make_(make), owner_(owner) {
    KST_TmrStartLoop(KestrelTmr(host), Tick, kTickMs, this);
  }
  void Ask() { isAsked_ = true; }

 private:
  static uint32_t Tick(void *param) {
    auto *self = static_cast<Rounds *>(param);
    if (!self->isAsked_) return 0;
    self->isAsked_ = false;
    self->make_(self->owner_);
    return 0;
  }

  void (*make_)(void *owner);
  void *owner_;
  bool isAsked_ = false;
};

CoapRpcUriKey KeyOfUri(const char *uri, uint8_t observe) {
  CoapRpcUriKey key = {};
  snprintf(key.uri, sizeof(key.uri), "%s", uri);
  key.observe = observe;
  return key;
}

// Publisher is the library.
class Publisher {
 public:
  Publisher(WireHost &host, const Options &options)
      : ctx_(host.NewInstance()),
        numChanged_(options.Number("--changed", 100)),
        rounds_(host.Get(), Change, this) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = IpOf(options);
    addr.port = kStatePort;
    ServeRounds(addr);
    ServeTable(addr);
    for (uint32_t i = 0; i < options.Number("--tuples", 10'000); ++i) Update(i, 0);
  }

 private:
  void ServeRounds(const CoapRpcSerListenAddr &addr) {
    CoapRpcSerVtblReg reg = {};
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onRequest = [](uint64_t self, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *,
                       uint32_t) -> int32_t {
      reinterpret_cast<Publisher *>(self)->rounds_.Ask();
      return 0;
    };
    Serve(KeyOfUri(kGoUri, 0), reg, nullptr, addr);
  }
  void ServeTable(const CoapRpcSerListenAddr &addr) {
    const CoapRpcSerVtblReg reg = {};
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = kRowField;
    ob.tupleKeyCmp = [](const void *a, const void *b) -> int32_t {
      return memcmp(a, b, kRowField);
    };
    ob.keyToStr = [](const void *key, char *, uint32_t) { return static_cast<const char *>(key); };
    ob.valToStr = [](const void *val, char *buf, uint32_t size) -> const char * {
      snprintf(buf, size, "changed at %llu", static_cast<unsigned long long>(RoundOf(val)));
      return buf;
    };
    Serve(table_, reg, &ob, addr);
    if (COAP_RpcSerSetUriSync(ctx_, &table_, nullptr) != 0) abort();
  }
  void Serve(const CoapRpcUriKey &key, const CoapRpcSerVtblReg &reg, const CoapRpcSerObVtblReg *ob,
             const CoapRpcSerListenAddr &addr) {
    if (COAP_RpcSerRegVtbl(ctx_, &key, &reg, ob) != 0) abort();
    if (COAP_RpcSerSetUri(ctx_, &key, &addr) != 0) abort();
  }
  void Update(uint32_t index, uint64_t roundNs) {
    const RowField key = KeyOfRow(index);
    const RowField val = ValueOfRow(roundNs, index);
    COAP_RpcSerObserveDataUpdate(ctx_, &table_, key.bytes, val.bytes);
  }
  static void Change(void *param) {
    auto *self = static_cast<Publisher *>(param);
    const uint64_t nowNs = NowNs();
    for (uint32_t i = 0; i < self->numChanged_; ++i) self->Update(i, nowNs);
  }

  const CoapRpcUriKey table_ = KeyOfUri(kStateUri, 1);
  CoapRpcCtx *ctx_;
  uint32_t numChanged_;
  Rounds rounds_;
};

// Bare is libcoap alone.
struct Bare {
  coap_resource_t *table;
  std::string body;
  Rounds *rounds;
};

void OnTable(coap_resource_t *resource, coap_session_t *, const coap_pdu_t *, const coap_string_t *,
             coap_pdu_t *response) {
  const auto *bare = static_cast<Bare *>(coap_resource_get_userdata(resource));
  uint8_t format[2];
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
  coap_add_option(response, COAP_OPTION_CONTENT_FORMAT,
                  coap_encode_var_safe(format, sizeof(format), COAP_MEDIATYPE_APPLICATION_CBOR),
                  format);
  coap_add_data(response, bare->body.size(), reinterpret_cast<const uint8_t *>(bare->body.data()));
}

void OnGo(coap_resource_t *resource, coap_session_t *, const coap_pdu_t *, const coap_string_t *,
          coap_pdu_t *response) {
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
  static_cast<Bare *>(coap_resource_get_userdata(resource))->rounds->Ask();
}

void ChangeBare(void *param) {
  auto *bare = static_cast<Bare *>(param);
  const uint64_t nowNs = NowNs();
  memcpy(bare->body.data(), &nowNs, sizeof(nowNs));
  coap_resource_notify_observers(bare->table, nullptr);
}

coap_resource_t *AddBare(coap_context_t *context, const char *uri, coap_method_handler_t handler,
                         Bare *bare) {
  coap_resource_t *resource =
      coap_resource_init(coap_make_str_const(uri), COAP_RESOURCE_FLAGS_NOTIFY_NON_ALWAYS);
  coap_register_handler(resource, COAP_REQUEST_GET, handler);
  coap_resource_set_userdata(resource, bare);
  coap_add_resource(context, resource);
  return resource;
}

void RunBare(WireHost &host, const Options &options) {
  Bare bare = {nullptr, std::string(kPageBytes, 'r'), nullptr};
  Rounds rounds(host.Get(), ChangeBare, &bare);
  bare.rounds = &rounds;
  bare.body.replace(0, sizeof(uint64_t), sizeof(uint64_t), '\0');  // no round yet
  coap_context_t *context = host.NewContext();
  bare.table = AddBare(context, kStateUri, OnTable, &bare);
  coap_resource_set_get_observable(bare.table, 1);
  AddBare(context, kGoUri, OnGo, &bare);
  NewEndPoint(context, IpOf(options), kStatePort);
  host.Run();
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  WireHost host(Logging::kNone);
  if (options.Is("--kind", "libcoap")) {
    RunBare(host, options);
  } else {
    const Publisher publisher(host, options);
    host.Run();
  }
  return 0;
}
