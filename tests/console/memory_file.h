/* memory_file.h: a FILE whose content a test can look at. */
#ifndef MEMORY_FILE_H
#define MEMORY_FILE_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace console_test {

class MemoryFile {
 public:
  MemoryFile() : m_file(open_memstream(&m_bytes, &m_size)) {}
  ~MemoryFile() {
    std::fclose(m_file);
    std::free(m_bytes);
  }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  FILE *Get() { return m_file; }
  std::string Text() {
    std::fflush(m_file);
    return std::string(m_bytes, m_size);
  }

 private:
  char *m_bytes = nullptr;
  size_t m_size = 0;
  FILE *m_file;
};

}  // namespace console_test

#endif /* MEMORY_FILE_H */
