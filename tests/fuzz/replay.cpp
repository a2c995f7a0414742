// <target> <file or folder>...: main program of a fuzz target in builds without libFuzzer. Gives
// the contents of each file to the target once, in the order of the names.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesOf(const fs::path &path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool Replay(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  size_t numFiles = 0;
  for (int i = 1; i < argc; i++) {
    for (const fs::path &path : FilesOf(argv[i])) {
      if (!Replay(path)) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
      }
      numFiles++;
    }
  }
  std::printf("%zu inputs\n", numFiles);
  return numFiles > 0 ? 0 : 1;
}
