/* kst_disp.cpp: display commands at the C interface. */
#include "kst_disp.h"

#include <cstdarg>

#include "disp/disp_service.h"
#include "host/edge.h"

using kestrel::DispCommand;
using kestrel::DispService;
using kestrel::FromHandle;
using kestrel::Guarded;
using kestrel::Quietly;

namespace {

const char *TextOrEmpty(const char *text) { return text ? text : ""; }

DispService &ServiceOf(uint64_t disp) { return *FromHandle<DispService>(disp); }

std::vector<std::string> TakeTexts(uint32_t count, va_list args) {
  std::vector<std::string> texts;
  for (uint32_t i = 0; i < count; ++i) {
    texts.emplace_back(TextOrEmpty(va_arg(args, const char *)));
  }
  return texts;
}

}  // namespace

uint32_t KST_DispRegObj(uint64_t disp, const char *name, void *obj) {
  if (disp == 0 || !name) return 1;
  return Guarded(1u, [&] { return ServiceOf(disp).Registry().AddObject(name, obj) ? 0u : 1u; });
}

uint32_t KST_DispUnregObj(uint64_t disp, const char *name) {
  if (disp == 0 || !name) return 1;
  return ServiceOf(disp).Registry().RemoveObject(name) ? 0 : 1;
}

uint32_t KST_DispRegFunc_(uint64_t disp, const char *handlerName, KST_DISP_FUNC handler,
                          const char *command, uint32_t flags, const char *objName,
                          uint32_t paramCount, ...) {
  if (disp == 0 || !command || !objName || paramCount > KST_DISP_MAX_PARAMS) {
    return 1;
  }
  va_list names;
  va_start(names, paramCount);
  const uint32_t ret = Guarded(1u, [&] {
    DispCommand record{handler, TextOrEmpty(handlerName), command, flags, {}, {}, {}};
    record.params = TakeTexts(paramCount, names);
    return ServiceOf(disp).Registry().AddCommand(objName, std::move(record)) ? 0u : 1u;
  });
  va_end(names);
  return ret;
}

uint32_t KST_DispDescribe(uint64_t disp, const char *objName, const char *command,
                          const char *about, uint32_t paramCount, ...) {
  if (disp == 0 || !objName || !command || paramCount > KST_DISP_MAX_PARAMS) return 1;
  va_list texts;
  va_start(texts, paramCount);
  const uint32_t ret = Guarded(1u, [&] {
    return ServiceOf(disp).Registry().Describe(objName, command, TextOrEmpty(about),
                                               TakeTexts(paramCount, texts))
               ? 0u
               : 1u;
  });
  va_end(texts);
  return ret;
}

void KST_DispPrintf_(uint64_t disp, const char *fmt, ...) {
  if (disp == 0 || !ServiceOf(disp).IsRunning()) return;
  va_list args;
  va_start(args, fmt);
  Quietly([&] { ServiceOf(disp).Print(kestrel::FormatV(fmt, args)); });
  va_end(args);
}

void KST_DispSaveCtx_(uint64_t disp, const void *key, uint32_t keyLen, const void *counter,
                      uint32_t counterLen) {
  if (disp == 0) return;
  Quietly([&] { ServiceOf(disp).SaveContext(key, keyLen, counter, counterLen); });
}

const void *KST_DispGetLastCtx_(uint64_t disp, void *counter) {
  return disp != 0 ? ServiceOf(disp).LastContext(counter) : nullptr;
}
