// The connection of `orvd-sim load` to the service, one after the other. It reads and writes the
// descriptor itself; ManagerPeer only listens.

#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvex_simulator/manager_peer.h"
#include "unix_socket.h"

namespace orvd {

class LoadLink {
 public:
  explicit LoadLink(const std::string& path);

  // Waits up to `limit` for a service. Only when not open().
  bool Connect(Milliseconds limit);
  bool open() const { return static_cast<bool>(link_); }
  int pid() const { return pid_; }  // of the latest service; 0 if the kernel does not tell

  // Waits up to `limit` for a message, or for `stop` to be readable.
  void Wait(Milliseconds limit, int stop) const;
  // The next message, or nothing if none is there. Valid until the next call. Closes the connection
  // when the service has ended it.
  std::optional<std::string_view> Receive();

  // Keeps the message if the service does not take it now. A message after the end is dropped.
  void Send(std::string_view message);
  // Sends kept messages. Returns whether none is left.
  bool Flush();

  // Ends the connection. Receive() returns what is still to be read, until it closes.
  void Shut();             // both directions
  void ShutSending();      // the service can still send
  void SendEmptyPacket();  // the service ends the connection
  // Closes at once. The service reads ECONNRESET if a message of it is unread.
  void Close();
  // Waits up to `limit` for an unread message. Returns whether there is one.
  bool AwaitUnread(Milliseconds limit) const;

  void StopListening() { peer_.StopListening(); }
  void Listen() { peer_.Listen(); }

 private:
  bool TrySend(std::string_view message);

  ManagerPeer peer_;
  Descriptor link_;
  int pid_ = 0;
  bool may_send_ = false;
  std::deque<std::string> early_;  // read before this object had the descriptor
  std::deque<std::string> kept_;   // not sent yet
  std::string current_;
  std::vector<char> buffer_ = std::vector<char>(kLargestPacket);
};

}  // namespace orvd
