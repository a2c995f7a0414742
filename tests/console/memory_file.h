/* memory_file.h: a FILE whose content a test can look at. */
#ifndef MEMORY_FILE_H
#define MEMORY_FILE_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace console_test {

class MemoryFile {
 public:
  MemoryFile() : file_(open_memstream(&bytes_, &size_)) {}
  ~MemoryFile() {
    std::fclose(file_);
    std::free(bytes_);
  }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  FILE *Get() { return file_; }
  std::string Text() {
    std::fflush(file_);
    return std::string(bytes_, size_);
  }

 private:
  char *bytes_ = nullptr;
  size_t size_ = 0;
  FILE *file_;
};

}  // namespace console_test

#endif /* MEMORY_FILE_H */
