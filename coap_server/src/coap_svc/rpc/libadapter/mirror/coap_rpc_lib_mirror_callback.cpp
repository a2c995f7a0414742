#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_callback.h"

#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"

namespace coap_rpc {
namespace {

// Timed is a callback in front of the application's `member`.  The mirror outlives the call.
template <auto member, typename Callback>
struct Timed;
template <auto member, typename... Args>
struct Timed<member, void (*)(uint64_t, Args...)> {
  static void Call(uint64_t userData, Args... args) {
    auto *mirror = reinterpret_cast<CoapRpcMirror *>(userData);
    const CallbackTime time(mirror->ctx, mirror->key.uri, nullptr);
    (mirror->param.*member)(mirror->param.userData, args...);
  }
};

template <auto member, typename Callback>
void Time(Callback &callback) {
  if (callback) callback = Timed<member, Callback>::Call;
}

}  // namespace

CoapRpcMirrorParam TimedParam(CoapRpcMirror *mirror, const CoapRpcMirrorParam &param) {
  mirror->param = param;
  CoapRpcMirrorParam timed = param;
  timed.userData = reinterpret_cast<uint64_t>(mirror);
  Time<&CoapRpcMirrorParam::onAdded>(timed.onAdded);
  Time<&CoapRpcMirrorParam::onChanged>(timed.onChanged);
  Time<&CoapRpcMirrorParam::onRemoved>(timed.onRemoved);
  Time<&CoapRpcMirrorParam::onSynced>(timed.onSynced);
  Time<&CoapRpcMirrorParam::onState>(timed.onState);
  return timed;
}

}  // namespace coap_rpc
