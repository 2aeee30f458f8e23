// A service that is measured: its process and the socket to it.

#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orvex_simulator/manager_peer.h"

namespace bench {

// Sends packets to one service and receives its packets. A call that fails throws
// std::runtime_error.
class Link {
 public:
  explicit Link(int fd) : fd_(fd), buffer_(1 << 20) {}
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void Send(std::string_view text) const;
  // The result is valid until the next call.
  std::string_view Receive();

 private:
  const int fd_;
  std::vector<char> buffer_;
};

class ServiceProcess {
 public:
  // Starts the program, accepts its registrations, and opens session 1 with pair 1 ready.
  ServiceProcess(orvd::ManagerPeer& manager, const std::vector<std::string>& command);
  ~ServiceProcess();
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;

  Link& link() { return *link_; }

 private:
  pid_t pid_;
  std::unique_ptr<Link> link_;
};

// `req_type` is "start_session", "ready_session" or "end_session". The message names the pairs 1 to
// `pairs`.
std::string SessionMessage(const char* req_type, uint32_t session_id, uint32_t pairs);

// Throws std::runtime_error when `text` does not contain `part`.
void RequirePart(std::string_view text, std::string_view part);

}  // namespace bench
