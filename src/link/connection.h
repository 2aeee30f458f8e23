// The one connection to the Manager, and the one way to send on it.
//
// A connection is shared by its users. The last user closes it, so nobody ever receives or sends
// on a descriptor number that the system has given out again.
//
// The generation (state.h) grows when the service deinitialises and when it connects. A receive
// thread serves the generation in which it was started. Once that generation is over, the thread is
// outdated: it finishes the message at hand, finds no opcode ready, and does not reconnect. It sends
// nothing on a newer connection and touches no session and no flag of a newer generation.

#pragma once

#include <atomic>
#include <memory>

#include "link/state.h"
#include "orvex_args.h"

// The descriptor of the standing connection, -1 without one.
extern std::atomic<int> gMgrSocket_fd;

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

  // What the receive thread has read. Sessions survive a reset, but not an end of file.
  void NoteReset() { reset_ = true; }
  void NoteEndOfFile() { ended_ = true; }
  // Whether the peer has ended the connection without a reset, read or not read yet. An end of file
  // that this process caused does not count.
  bool PeerHasClosed() const;

 private:
  const int fd_;
  std::atomic<bool> leaving_{false};
  std::atomic<bool> shut_down_{false};
  std::atomic<bool> reset_{false};
  std::atomic<bool> ended_{false};
};

// The established connection (null without one) and the current generation, read together.
struct StandingConnection {
  std::shared_ptr<Connection> connection;
  Generation generation;
};
StandingConnection CurrentConnection();

Generation CurrentGeneration();
// Ends the current generation.
void BeginGeneration();
// Declares the calling thread the receive thread of this generation. Called once, at its start.
void ServeGeneration(Generation generation);
// The generation that this receive thread serves; the current one on any other thread.
Generation ServedGeneration();
// Whether this is a receive thread whose generation is over.
bool ThisThreadIsOutdated();
// From now on this thread may send on the current connection, also when it is an outdated receive
// thread: the service initialises or deinitialises in a callback.
void ActForService();
// On the receive thread, after it has read an end of file. Returns false, and notes nothing, when
// this process has begun to leave the connection or the generation is over: that is no loss.
bool NoteLoss(Connection& connection);

// Connects, unless the generation is over. Returns 0 or -1.
int ConnectFor(Generation generation);
// Sets or clears gMgrInitDone. Returns false, and changes nothing, on an outdated receive thread.
bool NoteInitDone(bool done);
// Sends "EXIT" on `connection` and leaves it. Returns -1 without a connection, or when somebody
// else has begun to leave it.
int Disconnect(const std::shared_ptr<Connection>& connection);

// The connection on which this thread may send now. Null without one, and on an outdated receive
// thread that does not act for the service.
std::shared_ptr<Connection> ConnectionToSendOn();
// Sends one text as one packet on `connection`, which may be null. Fails, like every send on a
// closed connection, once the connection is left. Releases the connection before it returns,
// because the caller may wait without limit. Returns 0 or -1.
int SendOn(std::shared_ptr<Connection> connection, const char* msg);

// Connects to the Manager's socket for this process. Returns 0 or -1.
ORVD_EXPORT int connect_to_manager();
// Sends "EXIT" and closes. Returns -1 when there is no connection, else 0, also when "EXIT" could
// not be sent.
ORVD_EXPORT int disconnect_from_manager();
// Sends one text as one packet on the standing connection. Returns 0 or -1. Any thread; one send at
// a time. Fails on an outdated receive thread, see ConnectionToSendOn().
ORVD_EXPORT int orvd_send_to_manager_raw(const char* msg);
