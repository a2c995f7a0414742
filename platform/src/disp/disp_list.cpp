/* disp_list.cpp: listings of the display service for the operator's side. */
#include "disp/disp_list.h"

namespace kestrel {

namespace {

KestrelDispCommand DescriptionOf(const std::string &object, const DispCommand &command) {
  KestrelDispCommand description{object.c_str(),
                                 command.text.c_str(),
                                 command.handlerName.c_str(),
                                 command.flags,
                                 static_cast<uint32_t>(command.params.size()),
                                 {}};
  for (size_t i = 0; i < command.params.size(); ++i) {
    description.params[i] = command.params[i].c_str();
  }
  return description;
}

// VisitObjectCommands returns what ended the listing, or 0.
uint32_t VisitObjectCommands(const std::string &name, const DispObject &object,
                             std::string_view prefix, KestrelDispVisitCommand visit, void *param) {
  for (const auto &[text, command] : object.commands) {
    if (!text.starts_with(prefix)) continue;
    const KestrelDispCommand description = DescriptionOf(name, command);
    const uint32_t ret = visit(param, &description);
    if (ret != 0) return ret;
  }
  return 0;
}

}  // namespace

void ListDispObjects(const DispRegistry &registry, KestrelDispVisitObject visit, void *param) {
  for (const auto &entry : registry.All()) {
    if (visit(param, entry.first.c_str()) != 0) return;
  }
}

void ListDispCommands(const DispRegistry &registry, const char *object, std::string_view prefix,
                      KestrelDispVisitCommand visit, void *param) {
  for (const auto &[name, record] : registry.All()) {
    if (object && name != object) continue;
    if (VisitObjectCommands(name, record, prefix, visit, param) != 0) return;
  }
}

}  // namespace kestrel
