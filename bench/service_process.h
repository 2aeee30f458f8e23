// A service under measurement: its process, and the socket to it once it is ready.

#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "manager_peer.h"

namespace bench {

// Packets to and from one service. What fails throws std::runtime_error.
class Link {
 public:
  explicit Link(int fd) : fd_(fd), buffer_(1 << 20) {}
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void Send(std::string_view text) const;
  // Valid until the next call.
  std::string_view Receive();

 private:
  const int fd_;
  std::vector<char> buffer_;
};

class ServiceProcess {
 public:
  // Starts the program, agrees to all it offers, and opens its first session with pair 1 ready.
  ServiceProcess(orvd::ManagerPeer& manager, const std::vector<std::string>& command);
  ~ServiceProcess();
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;

  Link& link() { return *link_; }

 private:
  pid_t pid_;
  std::unique_ptr<Link> link_;
};

// One of "start_session", "ready_session", "end_session" for the pairs 1 to `pairs`.
std::string SessionMessage(const char* req_type, uint32_t session_id, uint32_t pairs);

// Throws std::runtime_error unless `part` stands in `text`.
void RequirePart(std::string_view text, std::string_view part);

}  // namespace bench
