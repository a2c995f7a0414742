/* disp_call.cpp: builds the argument list of a variadic call, one value at a time. */
#include "disp/disp_call.h"

namespace kestrel {

namespace {

template <typename... Done>
void CallWith(KST_DISP_FUNC handler, void *obj, const DispArgs &args, Done... done) {
  constexpr size_t kDone = sizeof...(done);
  if constexpr (kDone < KST_DISP_MAX_PARAMS) {
    if (kDone < args.count) {
      const DispArg &next = args.values[kDone];
      if (next.isText) return CallWith(handler, obj, args, done..., next.text.c_str());
      return CallWith(handler, obj, args, done..., next.number);
    }
  }
  handler(obj, done...);
}

}  // namespace

void CallDispHandler(KST_DISP_FUNC handler, void *obj, const DispArgs &args) {
  CallWith(handler, obj, args);
}

}  // namespace kestrel
