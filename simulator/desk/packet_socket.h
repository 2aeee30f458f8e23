// A connected socket that receives packets, tells an empty packet from the end, and can reset its
// peer.
//
// The last small packet stays unread in the socket although Receive has returned it. A close with
// it resets the peer. Where the system has no SO_PEEK_OFF, no packet stays, and Reset is a close.

#pragma once

#include <memory>
#include <string_view>

#include "unix_socket.h"

namespace orvd {

enum class Came { kPacket, kReset, kEnd, kNothing };

class PacketSocket {
 public:
  PacketSocket() = default;
  // Makes the socket blocking.
  explicit PacketSocket(Descriptor socket);

  int fd() const { return socket_.fd(); }
  explicit operator bool() const { return static_cast<bool>(socket_); }
  // Waits, unless `flags` has MSG_DONTWAIT. `bytes` are valid until the next call. A packet above
  // kLargestPacket is cut to one byte more. After kReset, what was sent before can still be read.
  Came Receive(std::string_view& bytes, int flags = 0);
  // Call it after each packet, when it was handled: it takes the packet before out of the socket.
  void Handled(std::size_t size);
  // Whether the peer has closed, and not only shut down its sending side.
  bool HungUp(int limit_ms) const;
  // The peer reads what was sent before, and then the end.
  void Close();
  void Reset() { socket_.Close(); }

 private:
  Descriptor socket_;
  bool peeks_ = false;
  bool held_ = false;
  std::unique_ptr<char[]> buffer_;
};

}  // namespace orvd
