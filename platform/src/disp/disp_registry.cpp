/* disp_registry.cpp: display objects and their commands. */
#include "disp/disp_registry.h"

#include <algorithm>

#include "disp/disp_line.h"

namespace kestrel {

namespace {

// IsTypeable: the text is words with one blank between them, so that a line can match it.
bool IsTypeable(const std::string &text) {
  std::string reason;
  const auto words = SplitDispLine(text, reason);
  if (!words || words->empty()) return false;
  std::string joined;
  for (const std::string &word : *words) joined += (joined.empty() ? "" : " ") + word;
  return joined == text;
}

bool HasKnownPrefix(const std::string &param) {
  return param.starts_with("pc") || param.starts_with("uni");
}

bool IsSound(const DispCommand &command) {
  return command.handler && IsTypeable(command.text) &&
         command.params.size() <= KST_DISP_MAX_PARAMS &&
         std::all_of(command.params.begin(), command.params.end(), HasKnownPrefix);
}

}  // namespace

bool DispRegistry::AddObject(const char *name, void *record) {
  const auto [entry, isNew] = objects_.try_emplace(name);
  if (!isNew) return false;
  entry->second.record = record;
  entry->second.serial = ++lastSerial_;
  return true;
}

bool DispRegistry::RemoveObject(std::string_view name) {
  const auto found = objects_.find(name);
  if (found == objects_.end()) return false;
  objects_.erase(found);
  return true;
}

bool DispRegistry::AddCommand(std::string_view objName, DispCommand &&command) {
  const auto found = objects_.find(objName);
  if (found == objects_.end() || !IsSound(command)) return false;
  std::string text = command.text;
  return found->second.commands.try_emplace(std::move(text), std::move(command)).second;
}

bool DispRegistry::Describe(std::string_view objName, std::string_view command, std::string &&about,
                            std::vector<std::string> &&paramsAbout) {
  const auto object = objects_.find(objName);
  if (object == objects_.end()) return false;
  const auto found = object->second.commands.find(command);
  if (found == object->second.commands.end()) return false;
  DispCommand &described = found->second;
  if (paramsAbout.size() > described.params.size()) return false;
  paramsAbout.resize(described.params.size());
  described.about = std::move(about);
  described.paramsAbout = std::move(paramsAbout);
  return true;
}

const DispObject *DispRegistry::FindObject(std::string_view name) const {
  const auto found = objects_.find(name);
  return found != objects_.end() ? &found->second : nullptr;
}

std::vector<DispMatch> DispRegistry::Match(const std::vector<std::string> &words,
                                           const char *objName) const {
  std::vector<DispMatch> longest;
  std::string text;
  for (size_t count = 1; count <= words.size(); ++count) {
    text += (count == 1 ? "" : " ") + words[count - 1];
    std::vector<DispMatch> matches;
    for (const auto &[name, object] : objects_) {
      if (objName && name != objName) continue;
      const auto found = object.commands.find(text);
      if (found != object.commands.end()) {
        matches.push_back({&name, &object, &found->second, count});
      }
    }
    if (!matches.empty()) longest = std::move(matches);
  }
  return longest;
}

}  // namespace kestrel
