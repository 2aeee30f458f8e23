// Takes the place of the Manager's socket as long as a Manager is there.
//
// While no Manager is there, nobody listens: a service is refused as without the monitor. A Manager
// that comes back at the path is moved aside again.

#pragma once

#include <cstdint>
#include <string>

#include "unix_socket.h"

namespace orvd {

class ManagerPlace {
 public:
  // With an empty `upstream`, the socket at `path` is the Manager's one, and is moved aside. Throws
  // CannotRun.
  ManagerPlace(std::string path, std::string upstream);
  ~ManagerPlace();
  ManagerPlace(const ManagerPlace&) = delete;
  ManagerPlace& operator=(const ManagerPlace&) = delete;

  // Looks for the Manager. Call it often, and whenever folder_fd() is readable.
  void Look();
  // Puts the Manager's socket back.
  void Leave();
  bool present() const { return static_cast<bool>(listener_); }
  int listener_fd() const { return listener_.fd(); }  // -1 without a Manager
  int folder_fd() const { return folder_.fd(); }      // readable after a change at the path
  Descriptor ConnectUpstream() const;

 private:
  bool Appeared() const;
  void Take();
  bool HoldsPath() const;

  const std::string path_;
  const bool moves_;
  const std::string upstream_;
  Descriptor folder_;
  Descriptor listener_;
  std::uint64_t inode_ = 0;  // of our socket at the path
};

}  // namespace orvd
