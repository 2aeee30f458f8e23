#include "unix_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace orvd {
namespace {

constexpr int kBacklog = 64;
constexpr const char* kSocketFolder = "/dev/socket/";

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
  }
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  return address;
}

Descriptor NewSocket(int type) {
  return Descriptor(Checked(socket(AF_UNIX, type | SOCK_CLOEXEC, 0), "socket"));
}

int Connect(int fd, const std::string& path) {
  const sockaddr_un address = AddressOf(path);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

// Does not follow a link, because rename replaces the link itself.
void RefuseOtherFiles(const std::string& path) {
  struct stat present {};
  if (lstat(path.c_str(), &present) == 0 && !S_ISSOCK(present.st_mode)) {
    throw std::system_error(EEXIST, std::generic_category(), path + " is not a socket");
  }
}

// A device has the folder. A misspelt path must not create another one.
void PrepareFolderOf(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (path.rfind(kSocketFolder, 0) == 0) {
    std::filesystem::create_directories(folder);
  } else if (!folder.empty() && !std::filesystem::is_directory(folder)) {
    throw std::system_error(ENOENT, std::generic_category(), folder.string());
  }
}

}  // namespace

int Checked(int result, const std::string& what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

// A client may wait for the socket's file and then connect at once. So the socket gets its name
// only when it listens.
Descriptor ListenAt(const std::string& path) {
  const std::string unfinished = path + ".new";
  const sockaddr_un address = AddressOf(unfinished);
  PrepareFolderOf(path);
  RefuseOtherFiles(path);
  RefuseOtherFiles(unfinished);
  if (IsServed(path)) {
    throw std::system_error(EADDRINUSE, std::generic_category(),
                            path + ": a Manager listens there");
  }
  unlink(unfinished.c_str());
  Descriptor listener = NewSocket(SOCK_SEQPACKET | SOCK_NONBLOCK);
  Checked(bind(listener.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), path);
  Checked(listen(listener.fd(), kBacklog), path);
  Checked(rename(unfinished.c_str(), path.c_str()), path);
  return listener;
}

std::uint64_t InodeOf(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

void RemoveSocket(const std::string& path, std::uint64_t inode) {
  if (InodeOf(path) == inode) {
    unlink(path.c_str());
  }
}

Descriptor ConnectTo(const std::string& path) {
  Descriptor client = NewSocket(SOCK_SEQPACKET | SOCK_NONBLOCK);
  return Connect(client.fd(), path) == 0 ? std::move(client) : Descriptor();
}

// The kernel looks for the address before it refuses the wrong type of socket.
bool IsServed(const std::string& path) {
  const Descriptor probe = NewSocket(SOCK_DGRAM);
  return Connect(probe.fd(), path) != 0 && errno == EPROTOTYPE;
}

void GrowSendBuffer(int fd, std::size_t bytes) {
  const int room = static_cast<int>(bytes);
  if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)) != 0) {
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
  }
}

// The send buffer grows only for a packet that needs it, so that a side which does not read stops
// the sender as early as possible.
ssize_t SendPacket(int fd, std::string_view bytes, int flags) {
  const ssize_t sent = send(fd, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL);
  if (sent >= 0 || errno != EMSGSIZE) {
    return sent;
  }
  GrowSendBuffer(fd, bytes.size());
  return send(fd, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL);
}

ssize_t ReceivePacket(int fd, std::vector<char>& buffer, int flags) {
  const ssize_t size = recv(fd, buffer.data(), buffer.size(), flags);
  return size < 0 && errno == ECONNRESET ? recv(fd, buffer.data(), buffer.size(), flags) : size;
}

std::optional<int> PeerPid(int fd) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0
             ? std::optional<int>(credentials.pid)
             : std::nullopt;
}

}  // namespace orvd
