/* tool_process.h: a command-line tool that runs beside a test. */
#ifndef TOOL_PROCESS_H
#define TOOL_PROCESS_H

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace coap_rpc_test {

// FindTool returns the path of the first of these programs that is installed; "" for none.
inline std::string FindTool(const std::vector<std::string> &names) {
  const char *path = getenv("PATH");
  for (const std::string &name : names) {
    std::istringstream dirs(path ? path : "/usr/bin:/bin");
    for (std::string dir; std::getline(dirs, dir, ':');) {
      if (access((dir + "/" + name).c_str(), X_OK) == 0) return dir + "/" + name;
    }
  }
  return "";
}

inline std::string ReadFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// TempFile is a file with a name of its own that goes with the object.
class TempFile {
 public:
  explicit TempFile(const std::string &content = "") {
    const char *dir = getenv("TMPDIR");
    path_ = std::string(dir ? dir : "/tmp") + "/coap_rpc_tool_XXXXXX";
    const int fd = mkstemp(path_.data());
    if (fd >= 0) close(fd);
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TempFile() { unlink(path_.c_str()); }
  TempFile(const TempFile &) = delete;
  TempFile &operator=(const TempFile &) = delete;

  const std::string &Path() const { return path_; }
  std::string Content() const { return ReadFile(path_); }

 private:
  std::string path_;
};

// ToolProcess runs a program; its output, both kinds, goes to a file.  It ends with the object.
class ToolProcess {
 public:
  explicit ToolProcess(const std::vector<std::string> &args) {
    std::vector<char *> argv;
    for (const std::string &arg : args) argv.push_back(const_cast<char *>(arg.c_str()));
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!freopen(output_.Path().c_str(), "wb", stdout)) _exit(126);
    dup2(STDOUT_FILENO, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  ~ToolProcess() { Kill(); }
  ToolProcess(const ToolProcess &) = delete;
  ToolProcess &operator=(const ToolProcess &) = delete;

  // HasEnded looks without waiting.
  bool HasEnded() {
    if (pid_ <= 0) return true;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) return false;
    pid_ = -1;
    return true;
  }
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

  std::string Output() const { return output_.Content(); }

 private:
  TempFile output_;
  pid_t pid_ = -1;
};

}  // namespace coap_rpc_test

#endif /* TOOL_PROCESS_H */
