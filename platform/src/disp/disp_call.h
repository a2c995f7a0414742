/* disp_call.h: calls a display handler with the parameters of its command. */
#ifndef KESTREL_SRC_DISP_DISP_CALL_H
#define KESTREL_SRC_DISP_DISP_CALL_H

#include <array>
#include <cstdint>
#include <string>

#include "kst_disp.h"

namespace kestrel {

// DispArg is one parameter value.
struct DispArg {
  bool isText = false;
  std::string text;     // of a text parameter
  uint32_t number = 0;  // of a number parameter
};

// DispArgs are the values of one command line.
struct DispArgs {
  std::array<DispArg, KST_DISP_MAX_PARAMS> values;
  uint32_t count = 0;
};

// CallDispHandler calls `handler` with `obj` and each value as an argument of its own type.
void CallDispHandler(KST_DISP_FUNC handler, void *obj, const DispArgs &args);

}  // namespace kestrel

#endif /* KESTREL_SRC_DISP_DISP_CALL_H */
