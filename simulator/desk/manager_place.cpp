#include "manager_place.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "command_line.h"

namespace orvd {
namespace {

// A Manager binds its socket shortly before it listens.
constexpr int kConnectAttempts = 50;
constexpr std::chrono::milliseconds kBetweenAttempts{1};

#ifndef RENAME_EXCHANGE
constexpr unsigned RENAME_EXCHANGE = 2;
#endif

// No service finds the path empty meanwhile.
void Exchange(const std::string& left, const std::string& right) {
  Checked(static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, left.c_str(), AT_FDCWD, right.c_str(),
                                   RENAME_EXCHANGE)),
          left + " cannot be exchanged with " + right);
}

// The kernel accepts whom the file's mode and owner accept.
void CopyRights(const std::string& from, const std::string& to) {
  struct stat original {};
  if (stat(from.c_str(), &original) == 0) {
    static_cast<void>(0 == chown(to.c_str(), original.st_uid, original.st_gid));
    static_cast<void>(chmod(to.c_str(), original.st_mode & 07777U));
  }
}

Descriptor WatchFolderOf(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  Descriptor watch(Checked(inotify_init1(IN_CLOEXEC | IN_NONBLOCK), "inotify"));
  const std::string name = folder.empty() ? "." : folder.string();
  Checked(inotify_add_watch(watch.fd(), name.c_str(), IN_CREATE | IN_DELETE | IN_MOVE), name);
  return watch;
}

}  // namespace

ManagerPlace::ManagerPlace(std::string path, std::string upstream)
    : path_(std::move(path)),
      moves_(upstream.empty()),
      upstream_(moves_ ? path_ + ".upstream" : std::move(upstream)),
      folder_(WatchFolderOf(path_)) {
  if (upstream_ == path_) {
    throw CannotRun(path_ + ": --upstream and --path are the same socket");
  }
  if (!moves_ && IsServed(path_)) {
    throw CannotRun(path_ + ": a Manager listens there");
  }
  if (moves_ && IsServed(upstream_)) {
    if (IsServed(path_)) {
      throw CannotRun(upstream_ + ": in use, perhaps by another monitor");
    }
    // A monitor that was killed has left it there.
    Checked(rename(upstream_.c_str(), path_.c_str()), upstream_);
  }
}

ManagerPlace::~ManagerPlace() {
  Leave();
}

// Whether there is a Manager whose place is not taken yet, and can be taken.
bool ManagerPlace::Appeared() const {
  return moves_ ? IsServed(path_) : IsServed(upstream_) && !IsServed(path_);
}

void ManagerPlace::Look() {
  std::array<char, 4096> changes{};
  while (read(folder_.fd(), changes.data(), changes.size()) > 0) {
  }
  if (listener_ && (!HoldsPath() || !IsServed(upstream_))) {
    Leave();
  }
  if (!listener_ && Appeared()) {
    Take();
  }
}

bool ManagerPlace::HoldsPath() const {
  return InodeOf(path_) == inode_;
}

void ManagerPlace::Take() {
  const std::string place = moves_ ? upstream_ : path_;
  listener_ = ListenAt(place);
  inode_ = InodeOf(place);
  CopyRights(moves_ ? path_ : upstream_, place);
  if (moves_) {
    Exchange(path_, upstream_);
  }
}

// After the Manager's death its socket stays at the path as it would have without the monitor.
void ManagerPlace::Leave() {
  if (listener_ && HoldsPath()) {
    if (!moves_ || rename(upstream_.c_str(), path_.c_str()) != 0) {
      unlink(path_.c_str());
    }
  } else if (listener_ && moves_) {
    unlink(upstream_.c_str());  // the Manager has removed its socket, or made a new one
  }
  listener_.Close();
}

Descriptor ManagerPlace::ConnectUpstream() const {
  for (int attempt = 0;; ++attempt) {
    Descriptor manager = ConnectTo(upstream_);
    if (manager || attempt == kConnectAttempts || !IsServed(upstream_)) {
      return manager;
    }
    std::this_thread::sleep_for(kBetweenAttempts);
  }
}

}  // namespace orvd
