/* disp_list.h: listings of the display service for help and completion. */
#ifndef KESTREL_SRC_DISP_DISP_LIST_H
#define KESTREL_SRC_DISP_DISP_LIST_H

#include <string_view>

#include "disp/disp_registry.h"
#include "kestrel.h"

namespace kestrel {

// ListDispObjects and ListDispCommands are KestrelDispObjects and KestrelDispCommands.
void ListDispObjects(const DispRegistry &registry, KestrelDispVisitObject visit, void *param);
void ListDispCommands(const DispRegistry &registry, const char *object, std::string_view prefix,
                      KestrelDispVisitCommand visit, void *param);

}  // namespace kestrel

#endif /* KESTREL_SRC_DISP_DISP_LIST_H */
