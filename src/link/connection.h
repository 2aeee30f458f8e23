// The one connection to the Manager.
//
// Several threads can use a connection at the same time. They share its ownership, and the last
// user closes the file descriptor. So no thread receives or sends on a descriptor number that the
// system has reused.

#pragma once

#include <atomic>
#include <memory>

#include "link/generation.h"

namespace orvd_client {

inline constexpr int kNoSocket = -1;
// The file descriptor of the current connection; kNoSocket without one.
extern std::atomic<int> gMgrSocket_fd;

class Connection {
 public:
  explicit Connection(int fd) : fd_(fd) {}
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int fd() const { return fd_; }

  // Marks that this process disconnects. From then on, the peer's end of file is not a loss.
  // Returns false if the connection was marked before.
  bool BeginDisconnect() { return !is_disconnecting_.exchange(true); }
  bool is_disconnecting() const { return is_disconnecting_; }

  // Shuts both directions down, which wakes a blocked recvfrom. The descriptor stays open until the
  // last user releases the connection.
  void ShutDown();
  bool is_shut_down() const { return is_shut_down_; }

  // The receive thread records what it has read. Sessions survive a reset, but not an end of file.
  void RecordReset() { reset_received_ = true; }
  void RecordEndOfFile() { end_of_file_received_ = true; }
  // Returns whether the peer has closed the connection without a reset, even if the receive thread
  // has not read that yet. An end of file that this process caused does not count.
  bool PeerHasClosed() const;

 private:
  const int fd_;
  std::atomic<bool> is_disconnecting_{false};
  std::atomic<bool> is_shut_down_{false};
  std::atomic<bool> reset_received_{false};
  std::atomic<bool> end_of_file_received_{false};
};

// The established connection (null without one) and the current generation, read together.
struct ConnectionAndGeneration {
  std::shared_ptr<Connection> connection;
  Generation generation;
};
ConnectionAndGeneration CurrentConnection();

// The receive thread calls this after it has read an end of file. Returns false, and records
// nothing, if this process disconnects or if the generation has ended: then nothing was lost.
bool RecordLoss(Connection& connection);

// Makes `connection` the current one after connect has succeeded, and shuts the previous one down.
// Returns false, and changes nothing, if `generation` has ended. A service that initialises while
// the receive thread tries to reconnect must not use an unconnected socket.
bool Publish(const std::shared_ptr<Connection>& connection, Generation generation);
// Shuts `connection` down. After that it is not the current connection.
void Withdraw(const std::shared_ptr<Connection>& connection);

}  // namespace orvd_client
