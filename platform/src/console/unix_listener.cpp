/* unix_listener.cpp: a listening UNIX socket and its file. */
#include "console/unix_listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace kestrel {

namespace {

constexpr mode_t kFileMode = 0600;
constexpr int kBacklog = 64;

OwnedFd NewSocket() {
  return OwnedFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

sockaddr_un AddressOf(const std::string &path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path, path.data(), path.size());
  return addr;
}

bool IsUsablePath(const std::string &path) {
  return !path.empty() && path.size() < sizeof(sockaddr_un::sun_path);
}

std::string FolderOf(const std::string &path) {
  const size_t slash = path.rfind('/');
  if (slash == path.npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// LockFolder keeps other hosts from looking at a socket file between its bind and its listen, or
// from replacing the same stale file.  A process that holds the lock for longer is not waited for.
OwnedFd LockFolder(const std::string &path) {
  constexpr int kTries = 200;
  constexpr timespec kOneMs{0, 1'000'000};
  OwnedFd folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) return folder;
  for (int i = 0; i < kTries; ++i) {
    if (flock(folder.Get(), LOCK_EX | LOCK_NB) == 0) return folder;
    nanosleep(&kOneMs, nullptr);
  }
  return OwnedFd();
}

bool Bind(int fd, const std::string &path) {
  const sockaddr_un addr = AddressOf(path);
  return bind(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) == 0;
}

// IsStale: the file is a socket that nobody listens on.
bool IsStale(const std::string &path) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) return false;
  const OwnedFd probe = NewSocket();
  const sockaddr_un addr = AddressOf(path);
  return connect(probe.Get(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0 &&
         errno == ECONNREFUSED;
}

}  // namespace

UnixListener::~UnixListener() {
  struct stat file {};
  if (path_.empty() || lstat(path_.c_str(), &file) != 0) return;
  if (file.st_dev == file_.st_dev && file.st_ino == file_.st_ino) unlink(path_.c_str());
}

uint32_t UnixListener::Open(const std::string &path) {
  if (!IsUsablePath(path)) return KESTREL_BAD_ARGUMENT;
  const OwnedFd lock = LockFolder(path);
  if (!lock.IsOpen()) return KESTREL_SYSTEM;
  return BindAndListen(path);
}

// The mode of the socket before it is bound becomes, less the umask, that of the file; the second
// chmod only undoes a umask that takes the owner's own rights.
uint32_t UnixListener::BindAndListen(const std::string &path) {
  socket_ = NewSocket();
  if (!socket_.IsOpen() || fchmod(socket_.Get(), kFileMode) != 0) return KESTREL_SYSTEM;
  if (!Bind(socket_.Get(), path)) {
    if (errno != EADDRINUSE) return KESTREL_SYSTEM;
    if (!IsStale(path)) return KESTREL_EXISTS;
    if (unlink(path.c_str()) != 0 || !Bind(socket_.Get(), path)) return KESTREL_SYSTEM;
  }
  path_ = path;
  if (lstat(path.c_str(), &file_) != 0 || chmod(path.c_str(), kFileMode) != 0) {
    return KESTREL_SYSTEM;
  }
  return listen(socket_.Get(), kBacklog) == 0 ? KESTREL_OK : KESTREL_SYSTEM;
}

OwnedFd UnixListener::Accept() const {
  return OwnedFd(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

bool IsAllowedPeer(int fd) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == 0 || peer.uid == geteuid();
}

}  // namespace kestrel
