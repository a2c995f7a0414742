/* history_file.cpp: where the history of commands is kept. */
#include "history_file.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace console {

namespace {

std::filesystem::path StateFolder() {
  const char *state = std::getenv("XDG_STATE_HOME");
  if (state && *state == '/') return state;
  const char *home = std::getenv("HOME");
  if (!home || *home != '/') return {};
  return std::filesystem::path(home) / ".local" / "state";
}

}  // namespace

std::string HistoryPath() {
  const std::filesystem::path state = StateFolder();
  if (state.empty()) return "";
  const std::filesystem::path folder = state / "kestrel-console";
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  return error ? "" : (folder / "history").string();
}

}  // namespace console
