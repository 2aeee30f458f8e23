// The one connection to the Manager, and the one way to send on it.
//
// A connection is shared by those who use it and closed by the last of them, so that nobody ever
// receives or sends on a descriptor number that has been given out again. A new tenure begins when
// the service connects or deinitialises. A receive thread of an older tenure serves out the message
// at hand; it neither sends on the new connection, nor ends its sessions, nor touches the flags,
// nor reconnects.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

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

  // From now on the peer's closing is no loss. False when that had begun before.
  bool BeginLeaving() { return !leaving_.exchange(true); }
  bool is_being_left() const { return leaving_; }

  // Ends the connection for both sides at once; the descriptor stays until the last user is done.
  void ShutDown();
  bool is_shut_down() const { return shut_down_; }

 private:
  const int fd_;
  std::atomic<bool> leaving_{false};
  std::atomic<bool> shut_down_{false};
};

// What a receive thread serves: the connection that stood when it started, for as long as nobody
// has left or replaced it.
struct Tenure {
  std::shared_ptr<Connection> connection;
  uint64_t number;
};

// On the receive thread, once: makes the present tenure this thread's own.
Tenure ServeCurrentTenure();
void BeginTenure();
bool IsCurrent(const Tenure& tenure);
uint64_t CurrentTenureNumber();

// Whether this is a receive thread whose tenure is over, unless it ended it itself: a callback may
// initialise again.
bool ThisThreadIsSuperseded();

// Connects, unless a newer tenure has begun meanwhile. Returns 0 or -1.
int ConnectFor(uint64_t tenure_number);
// Sets or clears gMgrInitDone for this receive thread's tenure. False when a newer one has begun.
bool NoteInitDone(bool done);
// Says goodbye on `connection` and leaves it. Returns -1 without a connection, or when it is left
// already.
int Disconnect(const std::shared_ptr<Connection>& connection);

// Connects to the Manager's socket for this process. Returns 0 or -1.
ORVD_EXPORT int connect_to_manager();
// Says goodbye and closes. Returns -1 when there is no connection, else 0 whatever became of the
// goodbye.
ORVD_EXPORT int disconnect_from_manager();
// Sends one text as one packet. Returns 0 or -1. Any thread; one send at a time.
ORVD_EXPORT int orvd_send_to_manager_raw(const char* msg);
