// The one connection to the Manager: connect and disconnect.
//
// Several threads can use a connection at the same time. They share its ownership, and the last
// user closes the file descriptor. So no thread receives or sends on a descriptor number that the
// system has reused.

#pragma once

#include <atomic>
#include <memory>

#include "link/generation.h"
#include "orvex_args.h"

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

// Connects, unless `generation` has ended. Returns 0 or -1.
int ConnectFor(Generation generation);
// Sends "EXIT" on `connection` and closes it. Returns -1 without a connection, or if another thread
// has begun to disconnect it.
int Disconnect(const std::shared_ptr<Connection>& connection);

}  // namespace orvd_client

// Connects to the Manager's socket for this process. Returns 0 or -1.
ORVD_EXPORT int connect_to_manager();
// Sends "EXIT" and disconnects. Returns -1 if there is no connection. Otherwise it returns 0, even
// if "EXIT" could not be sent.
ORVD_EXPORT int disconnect_from_manager();
