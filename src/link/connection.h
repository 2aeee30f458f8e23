// The one connection to the Manager, and the one way to send on it.
//
// A connection is shared by its users. The last user closes it, so nobody ever receives or sends
// on a descriptor number that the system has given out again.
//
// The generation is a number that grows when the service deinitialises and when it connects. A
// receive thread serves the generation in which it was started. Once that generation is over, the
// thread is outdated: it finishes the message at hand, finds no opcode ready, sends nothing on a
// newer connection, touches none of its sessions and flags, and does not reconnect.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "orvex_args.h"

// The descriptor of the standing connection, -1 without one.
extern std::atomic<int> gMgrSocket_fd;

using Generation = uint64_t;

class Connection {
 public:
  explicit Connection(int fd) : fd_(fd) {}
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int fd() const { return fd_; }

  // From now on this process is leaving the connection: the peer's end of file is no loss any more.
  // Returns false when that had begun before.
  bool BeginLeaving() { return !leaving_.exchange(true); }
  bool is_being_left() const { return leaving_; }

  // Ends the connection in both directions at once. The descriptor stays open until the last user
  // releases the connection.
  void ShutDown();
  bool is_shut_down() const { return shut_down_; }

  // The receive thread has read a reset. Sessions survive a reset, but not an end of file.
  void NoteReset() { reset_ = true; }
  // Whether the peer has closed the connection, or stopped sending, in order. False after a reset.
  bool PeerHasClosed() const;

 private:
  const int fd_;
  std::atomic<bool> leaving_{false};
  std::atomic<bool> shut_down_{false};
  std::atomic<bool> reset_{false};
};

// The standing connection (null without one) and the current generation, read together.
struct Link {
  std::shared_ptr<Connection> connection;
  Generation generation;
};
Link CurrentLink();

Generation CurrentGeneration();
// Ends the current generation. What the calling thread sends from now on belongs to the service.
void BeginGeneration();
// Declares the calling thread the receive thread of this generation. Called once, at its start.
void ServeGeneration(Generation generation);
// The generation that this receive thread serves; the current one on any other thread.
Generation ServedGeneration();
// Whether this is a receive thread whose generation is over.
bool ThisThreadIsOutdated();

// Connects, unless the generation is over. Returns 0 or -1.
int ConnectFor(Generation generation);
// Sets or clears gMgrInitDone. Returns false, and changes nothing, on an outdated receive thread.
bool NoteInitDone(bool done);
// Sends "EXIT" on `connection` and leaves it. Returns -1 without a connection, or when somebody
// else has begun to leave it.
int Disconnect(const std::shared_ptr<Connection>& connection);

// The connection on which this thread may send now. Null without one, and on an outdated receive
// thread, unless that thread has ended the generation itself: a callback may initialise again.
std::shared_ptr<Connection> ConnectionToSendOn();
// Sends one text as one packet on `connection`, which may be null. Fails, like every send on a
// closed connection, once the connection is left. Returns 0 or -1.
int SendOn(const std::shared_ptr<Connection>& connection, const char* msg);

// Connects to the Manager's socket for this process. Returns 0 or -1.
ORVD_EXPORT int connect_to_manager();
// Sends "EXIT" and closes. Returns -1 when there is no connection, else 0, also when "EXIT" could
// not be sent.
ORVD_EXPORT int disconnect_from_manager();
// Sends one text as one packet on the standing connection. Returns 0 or -1. Any thread; one send at
// a time. Fails on an outdated receive thread, see ConnectionToSendOn().
ORVD_EXPORT int orvd_send_to_manager_raw(const char* msg);
