/* disp_call.h: calls a display handler with parameters whose types are known at run time only. */
#ifndef DISP_CALL_H
#define DISP_CALL_H

#include <vector>

#include "test_disp.h"

namespace coap_rpc_test {

// CallHandler hands each argument on with the type that its kind has: const char * or uint32_t.
// At most KST_DISP_MAX_PARAMS arguments; further ones are dropped.
template <typename... Typed>
void CallHandler(KST_DISP_FUNC handler, void *obj, const std::vector<DispArg> &args,
                 Typed... typed) {
  constexpr size_t kNumTyped = sizeof...(Typed);
  if constexpr (kNumTyped < KST_DISP_MAX_PARAMS) {
    if (kNumTyped < args.size()) {
      if (const auto *text = std::get_if<std::string>(&args[kNumTyped])) {
        CallHandler(handler, obj, args, typed..., text->c_str());
      } else {
        CallHandler(handler, obj, args, typed..., std::get<uint32_t>(args[kNumTyped]));
      }
      return;
    }
  }
  handler(obj, typed...);
}

}  // namespace coap_rpc_test

#endif /* DISP_CALL_H */
