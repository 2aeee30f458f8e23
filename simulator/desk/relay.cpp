#include "relay.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <string>
#include <thread>

#include "command_line.h"

namespace orvd {
namespace {

constexpr int kBetweenLooksMs = 50;

}  // namespace

class Relay::Link {
 public:
  Link(Relay& relay, int number, Descriptor service, Descriptor manager);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void Close();
  bool ended() const { return running_ == 0; }

 private:
  struct Side {
    PacketSocket socket;
    bool is_manager = false;
    bool reset = false;  // guarded by `sending`
    std::mutex sending;  // a send to this side takes over the socket's error
    std::thread thread;
  };

  Side& Other(const Side& side) { return sides_[side.is_manager ? 0 : 1]; }
  void CloseSockets();
  void Run(Side& from);
  void Pass(Side& from, std::string_view bytes);
  bool Announce(const Side& from, std::string_view bytes);
  void Send(Side& to, std::string_view bytes);
  void End(Side& from);
  void WaitForClose(Side& from);
  void Report(const Side& side, LinkEvent of_service, LinkEvent of_manager);

  Relay& relay_;
  const int number_;
  std::array<Side, 2> sides_;
  std::mutex mutex_;
  std::atomic<bool> over_{false};  // changed under mutex_
  bool resets_ = false;            // guarded by mutex_ until running_ is 0
  std::atomic<int> running_{2};
};

Relay::Link::Link(Relay& relay, int number, Descriptor service, Descriptor manager)
    : relay_(relay), number_(number) {
  sides_[0].socket = PacketSocket(std::move(service));
  sides_[1].socket = PacketSocket(std::move(manager));
  sides_[1].is_manager = true;
  for (Side& side : sides_) {
    side.thread = std::thread([this, &side] { Run(side); });
  }
}

Relay::Link::~Link() {
  Close();
  for (Side& side : sides_) {
    side.thread.join();
  }
}

void Relay::Link::Close() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!over_) {
    over_ = true;
    for (const Side& side : sides_) {
      shutdown(side.socket.fd(), SHUT_RDWR);
    }
  }
}

void Relay::Link::Run(Side& from) {
  for (;;) {
    std::string_view bytes;
    switch (from.socket.Receive(bytes)) {
      case Came::kPacket:
        Pass(from, bytes);
        break;
      case Came::kReset: {  // what was sent before can still be read
        const std::lock_guard<std::mutex> lock(from.sending);
        from.reset = true;
        break;
      }
      case Came::kNothing:
        break;
      case Came::kEnd:
        End(from);
        if (--running_ == 0) {
          CloseSockets();
        }
        return;
    }
  }
}

void Relay::Link::CloseSockets() {
  for (Side& side : sides_) {
    if (resets_) {
      side.socket.Reset();
    } else {
      side.socket.Close();
    }
  }
}

void Relay::Link::Pass(Side& from, std::string_view bytes) {
  if (Announce(from, bytes)) {
    Send(Other(from), bytes);
  } else {
    ++relay_.undelivered_;
  }
  from.socket.Handled(bytes.size());
}

// Returns false for a packet that nobody can take any more. It is not announced.
bool Relay::Link::Announce(const Side& from, std::string_view bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (over_) {
    return false;
  }
  if (bytes.size() > kLargestPacket) {
    Complain("a packet above 1 MiB cannot be passed on");
    return false;
  }
  relay_.observer_.OnPacket(
      number_, from.is_manager ? PacketDirection::kToService : PacketDirection::kToManager, bytes);
  return true;
}

void Relay::Link::Send(Side& to, std::string_view bytes) {
  const std::lock_guard<std::mutex> lock(to.sending);
  if (SendPacket(to.socket.fd(), bytes) >= 0) {
    return;
  }
  ++relay_.undelivered_;
  to.reset = to.reset || errno == ECONNRESET;
  if (errno == EMSGSIZE) {
    Complain("a packet of " + std::to_string(bytes.size()) +
             " bytes exceeds the system's limit and cannot be passed on");
  }
}

void Relay::Link::End(Side& from) {
  WaitForClose(from);
  Side& to = Other(from);
  const std::scoped_lock lock(from.sending, mutex_);
  if (over_) {
    return;
  }
  over_ = true;
  resets_ = from.reset;
  if (resets_) {
    Report(from, LinkEvent::kServiceReset, LinkEvent::kManagerReset);
    shutdown(to.socket.fd(), SHUT_RD);  // wakes its thread, which closes it
  } else {
    Report(from, LinkEvent::kServiceClosed, LinkEvent::kManagerClosed);
    shutdown(to.socket.fd(), SHUT_RDWR);
  }
}

// Passes on that only the sending side was shut down, if that is so.
void Relay::Link::WaitForClose(Side& from) {
  if (from.socket.HungUp(0)) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (over_) {
      return;
    }
    Report(from, LinkEvent::kServiceShut, LinkEvent::kManagerShut);
    shutdown(Other(from).socket.fd(), SHUT_WR);
  }
  while (!over_ && !from.socket.HungUp(kBetweenLooksMs)) {
  }
}

void Relay::Link::Report(const Side& side, LinkEvent of_service, LinkEvent of_manager) {
  relay_.observer_.OnEvent(number_, side.is_manager ? of_manager : of_service);
}

Relay::Relay(RelayObserver& observer) : observer_(observer) {}

Relay::~Relay() = default;

void Relay::Add(Descriptor service, Descriptor manager) {
  const auto has_ended = [](const std::unique_ptr<Link>& link) { return link->ended(); };
  links_.erase(std::remove_if(links_.begin(), links_.end(), has_ended), links_.end());
  ++connections_;
  if (manager) {
    observer_.OnEvent(connections_, LinkEvent::kConnected);
    links_.push_back(
        std::make_unique<Link>(*this, connections_, std::move(service), std::move(manager)));
  } else {
    observer_.OnEvent(connections_, LinkEvent::kManagerAbsent);
  }
}

void Relay::CloseAll() {
  links_.clear();
}

}  // namespace orvd
