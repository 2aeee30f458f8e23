#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>

#include "command_line.h"
#include "commands.h"
#include "manager_place.h"
#include "packet_log.h"
#include "relay.h"
#include "stop_signals.h"

namespace orvd {
namespace {

// The Manager's death is noticed at the end of a connection, or after this time.
constexpr int kBetweenLooksMs = 25;

constexpr const char* kAbout =
    R"(Stands between the services and the Manager, passes every packet on unchanged, and prints one
line for each: seconds since the start, number of the connection, direction, kind,
opcode::subsystem, session, task, size, and for an answer the time since its request.

Without --upstream it moves the Manager's socket aside, to SOCKET.upstream, and puts it back at its
end. Connections that exist already are not seen: start the monitor before the service.

Ends of connections pass in the way in which they came, and a service is refused while no Manager
is there. The differences to a direct connection:
  - SO_PEERCRED shows the process of the monitor to both sides. So the step "signal" of a scenario
    goes to the monitor.
  - Each direction buffers one packet more, and the send buffer of one socket more.
  - A reset after a last packet above 4096 bytes arrives as a close.
  - A Manager that starts anew at SOCKET may get a service for itself before it is moved aside.
    With --upstream this cannot happen.
  - Packets above 1 MiB are not passed on. Without privileges, the limit of the system is lower.
SIGINT, SIGTERM and SIGHUP end the monitor and the connections.)";

constexpr const char* kExamples =
    "  orvd-sim monitor --record field.jsonl\n"
    "  orvd-sim monitor --kind exec_task --session 9\n"
    "  orvd-sim monitor --upstream /dev/socket/orvd_real --path /dev/socket/orvd\n";

struct MonitorOptions {
  std::string path = kSocketPath;
  std::string upstream;
  std::string recording;
  LineFilter filter;
};

class Monitor : public RelayObserver {
 public:
  explicit Monitor(const MonitorOptions& options)
      : log_(options.recording, options.filter), place_(options.path, options.upstream) {
    Look();
  }

  void OnPacket(int connection, PacketDirection direction, std::string_view bytes) override {
    log_.OnPacket(connection, direction, bytes);
  }
  // A service that learns of the Manager's death is refused from then on.
  void OnEvent(int connection, LinkEvent event) override {
    log_.OnEvent(connection, event);
    if (event != LinkEvent::kConnected) {
      Look();
    }
  }

  void Run() {
    if (!place_.present()) {
      Complain("no Manager listens yet");
    }
    while (!stop_.Came()) {
      Wait();
      Look();
      AcceptAll();
    }
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      place_.Leave();
    }
    relay_.CloseAll();
    log_.Finish(Summary());
  }

 private:
  // Returns at a signal, a change at the path, or a new connection.
  void Wait() {
    std::array<pollfd, 3> watched{pollfd{stop_.fd(), POLLIN, 0},
                                  pollfd{place_.folder_fd(), POLLIN, 0},
                                  pollfd{ListenerNow(), POLLIN, 0}};
    poll(watched.data(), watched.size(), kBetweenLooksMs);
  }

  void Look() {
    const std::lock_guard<std::mutex> lock(mutex_);
    place_.Look();
  }

  // Another thread may close it at any time; Accept looks again.
  int ListenerNow() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return place_.listener_fd();
  }

  void AcceptAll() {
    while (Descriptor service{Accept()}) {
      relay_.Add(std::move(service), place_.ConnectUpstream());
    }
  }

  int Accept() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return place_.present() ? accept4(place_.listener_fd(), nullptr, nullptr, SOCK_CLOEXEC) : -1;
  }

  std::string Summary() const;

  const StopSignals stop_;
  PacketLog log_;
  std::mutex mutex_;  // guards changes of place_
  ManagerPlace place_;
  Relay relay_{*this};
};

std::string Monitor::Summary() const {
  std::array<char, 200> text{};
  static_cast<void>(std::snprintf(
      text.data(), text.size(),
      "%llu packets, %llu bytes, %d connections, %.3f seconds, %llu packets not delivered\n",
      static_cast<unsigned long long>(log_.packets()),
      static_cast<unsigned long long>(log_.bytes()), relay_.connections(),
      static_cast<double>(log_.Now().count()) / 1e6,
      static_cast<unsigned long long>(relay_.undelivered())));
  return text.data();
}

}  // namespace

int RunMonitor(int argc, char** argv) {
  const CommandHelp help{"monitor", "", kAbout, kExamples, 0, 0};
  MonitorOptions options;
  const auto operands = ReadCommandLine(
      help,
      {PathOption(options.path),
       {"upstream", "SOCKET", "connect to this socket, and take the place at --path",
        StoreText(options.upstream)},
       {"record", "FILE", "write a recording of all packets", StoreText(options.recording)},
       {"kind", "KIND", "print only this kind, such as exec_task", StoreText(options.filter.kind)},
       {"session", "ID", "print only packets of this session", StoreId(options.filter.session)},
       {"opcode", "OPCODE", "print only packets of this opcode", StoreId(options.filter.opcode)},
       {"direction", "WAY", "print only to_manager or to_service",
        StoreOneOf(options.filter.direction, {"to_manager", "to_service"})}},
      argc, argv);
  if (!operands) {
    return kAsExpected;
  }
  static_cast<void>(signal(SIGPIPE, SIG_IGN));  // the place is given back first
  Monitor(options).Run();
  return kAsExpected;
}

}  // namespace orvd
