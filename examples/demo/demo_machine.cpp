#include "demo_machine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

void AddInterfaces(const char *path, Rows &table) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;  // a heading
    const size_t start = line.find_first_not_of(' ');
    uint64_t rx = 0, rxPackets = 0, tx = 0, txPackets = 0;
    if (std::sscanf(line.c_str() + colon + 1,
                    "%" SCNu64 " %" SCNu64 " %*u %*u %*u %*u %*u %*u %" SCNu64 " %" SCNu64, &rx,
                    &rxPackets, &tx, &txPackets) == 4) {
      table[RowKey(line.substr(start, colon - start))] = {rx, rxPackets, tx, txPackets};
    }
  }
}

// AddProcess reads /proc/<pid>/stat; the name stands in brackets and may contain anything.
void AddProcess(const fs::path &folder, Rows &table) {
  std::ifstream file(folder / "stat");
  std::string line;
  if (!std::getline(file, line)) return;
  const size_t open = line.find('('), close = line.rfind(')');
  if (open == std::string::npos || close == std::string::npos) return;
  uint64_t user = 0, system = 0, pages = 0;
  if (std::sscanf(line.c_str() + close + 1,
                  " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %" SCNu64 " %" SCNu64
                  " %*d %*d %*d %*d %*d %*d %*u %*u %" SCNu64,
                  &user, &system, &pages) != 3) {
    return;
  }
  const std::string name = line.substr(0, open) + line.substr(open + 1, close - open - 1);
  const auto pageKib = static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
  table[RowKey(name)] = {user + system, pages * pageKib, 0, 0};
}

}  // namespace

Rows ReadInterfaces() {
  Rows table;
  AddInterfaces("/proc/1/net/dev", table);
  AddInterfaces("/proc/self/net/dev", table);
  return table;
}

Rows ReadCpuTimes() {
  Rows table;
  std::ifstream file("/proc/stat");
  for (std::string line; std::getline(file, line) && line.starts_with("cpu");) {
    std::istringstream words(line);
    std::string name;
    uint64_t user = 0, nice = 0, system = 0, idle = 0, waiting = 0;
    words >> name >> user >> nice >> system >> idle >> waiting;
    table[RowKey(name)] = {user + nice, system, idle, waiting};
  }
  return table;
}

Rows ReadProcesses() {
  Rows table;
  std::error_code error;
  for (const auto &entry : fs::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos) AddProcess(entry, table);
  }
  return table;
}

Rows ReadFiles(size_t num) {
  Rows table;
  std::error_code error;
  const auto options = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator it("/usr", options, error), end;
       it != end && table.size() < num; it.increment(error)) {
    if (!it->is_regular_file(error) || it->is_symlink(error)) continue;
    struct stat file;
    if (lstat(it->path().c_str(), &file) != 0) continue;
    table[RowKey(std::to_string(file.st_ino))] = {static_cast<uint64_t>(file.st_size), 0, 0, 0};
  }
  while (table.size() < num) table[RowKey("none" + std::to_string(table.size()))] = {};
  return table;
}

std::string LoadText() {
  std::ifstream file("/proc/loadavg");
  std::string line;
  std::getline(file, line);
  return line;
}
