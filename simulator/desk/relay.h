// Passes packets and ends of connections between services and the Manager, unchanged.
//
// Each direction of a connection has a thread, which waits in recvmsg and sends what has come. So a
// side that does not read stops the other side.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "packet_socket.h"
#include "recording.h"
#include "unix_socket.h"

namespace orvd {

// Called before a packet or an event is passed on, so that a request is always seen before its
// answer. Each direction of a connection calls on a thread of its own.
class RelayObserver {
 public:
  virtual ~RelayObserver() = default;
  virtual void OnPacket(int connection, PacketDirection direction, std::string_view bytes) = 0;
  virtual void OnEvent(int connection, LinkEvent event) = 0;
};

class Relay {
 public:
  explicit Relay(RelayObserver& observer);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  // Takes a new connection of a service. Without `manager`, the service's one is closed.
  void Add(Descriptor service, Descriptor manager);
  // Closes all connections so that both sides read what was sent before, and then the end.
  void CloseAll();

  int connections() const { return connections_; }
  std::uint64_t undelivered() const { return undelivered_; }  // packets that nobody could take

 private:
  class Link;
  RelayObserver& observer_;
  std::vector<std::unique_ptr<Link>> links_;
  int connections_ = 0;
  std::atomic<std::uint64_t> undelivered_{0};
};

}  // namespace orvd
