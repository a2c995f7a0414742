/* disp_registry.h: display objects and their commands. */
#ifndef KESTREL_SRC_DISP_DISP_REGISTRY_H
#define KESTREL_SRC_DISP_DISP_REGISTRY_H

#include <cstdarg>
#include <map>
#include <string>
#include <vector>

#include "kst_disp.h"

namespace kestrel {

// DispCommand is one command of an object.
struct DispCommand {
  KST_DISP_FUNC handler = nullptr;
  std::string handlerName;
  std::string text;  // words separated by one blank
  uint32_t flags = 0;
  std::vector<std::string> params;       // their names
  std::string about;                     // for the operator; empty: nothing is said
  std::vector<std::string> paramsAbout;  // as many as there are parameters, or none

  // IsText tells a text parameter from a number.
  bool IsText(size_t param) const { return params[param].starts_with("pc"); }
};

struct DispObject {
  void *record = nullptr;
  uint64_t serial = 0;  // tells objects of one name apart that were registered one after the other
  std::map<std::string, DispCommand, std::less<>> commands;  // by text
};

// DispMatch is a command that a line begins with.
struct DispMatch {
  const std::string *objectName;
  const DispObject *object;
  const DispCommand *command;
  size_t wordCount;  // words of the line that the command takes
};

class DispRegistry {
 public:
  using Objects = std::map<std::string, DispObject, std::less<>>;

  // These return false where the interface returns non-zero.  They throw std::bad_alloc.
  bool AddObject(const char *name, void *record);
  bool RemoveObject(std::string_view name);
  bool AddCommand(std::string_view objName, DispCommand &&command);

  // Describe sets what is said about a command; at most one text for each parameter.
  bool Describe(std::string_view objName, std::string_view command, std::string &&about,
                std::vector<std::string> &&paramsAbout);

  const Objects &All() const { return objects_; }
  const DispObject *FindObject(std::string_view name) const;

  // Match finds the longest command that `words` begin with, in one object or (null) in all;
  // several if several objects have it, else none.
  std::vector<DispMatch> Match(const std::vector<std::string> &words, const char *objName) const;

 private:
  Objects objects_;
  uint64_t lastSerial_ = 0;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_DISP_DISP_REGISTRY_H */
