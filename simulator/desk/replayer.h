// Plays the Manager's side of a recording to a service, and compares the service's packets.
//
// A packet to the service is sent when all packets of the service that were recorded before it have
// come. Among these the order does not matter, because parallel tasks end in any order. What is
// held in memory is bounded by the packets that wait for their counterpart.

#pragma once

#include <chrono>
#include <deque>
#include <iosfwd>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "packet_fields.h"
#include "packet_socket.h"
#include "recording.h"
#include "stop_signals.h"

namespace orvd {

struct ReplayOptions {
  std::string path;
  std::set<std::string> ignored;  // members, at any depth
  bool timing = false;            // keep the recorded pauses
  bool keep_going = false;        // after a difference
  std::chrono::milliseconds patience{10000};
};

struct ReplayScore {
  std::uint64_t sent = 0;
  std::uint64_t compared = 0;
  std::uint64_t differences = 0;
  bool stopped = false;  // by a signal
};

class Replayer {
 public:
  // Listens at the path. Prints differences to `out`.
  Replayer(RecordingReader& reader, std::string name, ReplayOptions options,
           const StopSignals& stop, std::ostream& out);
  ~Replayer();
  Replayer(const Replayer&) = delete;
  Replayer& operator=(const Replayer&) = delete;

  ReplayScore Play();

 private:
  struct Packet {
    std::size_t line;  // of the recording, 0 for a received one
    std::string key;   // equal for packets that may be the same
    std::string kind;
    std::string bytes;
  };
  struct Connection {
    PacketSocket socket;
    bool ended = false;          // the service has closed, or shut its sending side
    bool shut = false;           // by the Manager: the service need not send any more
    std::list<Packet> expected;  // recorded, but not received yet
    std::list<Packet> early;     // received, but not found in the recording yet
    std::map<std::int64_t, std::int64_t> queries;  // recorded id, id of this service
  };
  class Over : public std::exception {};  // a difference, or a signal

  void PlayLine(const RecordedLine& line);
  void PlayEvent(const RecordedLine& line);
  void Accept(int number);
  void Expect(Connection& connection, const RecordedLine& line);
  void Take(Connection& connection, std::string_view bytes);
  void Compare(Connection& connection, const Packet& expected, const Packet& received);
  void Send(Connection& connection, const RecordedLine& line);
  static std::string Translated(Connection& connection, std::string_view bytes);
  static void CloseAs(Connection& connection, LinkEvent event);
  void WaitForEnd(Connection& connection, const RecordedLine& line);
  void WaitForExpected(std::size_t most);
  void ReportMissing(Connection& connection);
  void ReportSurplus(Connection& connection);
  void Pause(std::chrono::microseconds length);
  // Waits for a change at any socket, and reads all packets. Returns false at `deadline`.
  bool Wait(std::chrono::steady_clock::time_point deadline);
  void Watch(int fd, std::uint32_t events);
  void ReadAll(Connection& connection);
  Packet Describe(std::string_view bytes, std::size_t line) const;
  std::string WithoutIgnored(std::string_view bytes, bool without_query) const;
  void Report(std::size_t line, const std::string& text);
  std::chrono::steady_clock::time_point Deadline() const;

  RecordingReader& reader_;
  const std::string name_;
  const ReplayOptions options_;
  const StopSignals& stop_;
  std::ostream& out_;
  Descriptor listener_;
  const std::uint64_t inode_;  // of the listening socket's file
  Descriptor epoll_;
  std::map<int, Connection> connections_;
  std::deque<std::pair<std::size_t, RecordedLine>> latest_;  // with their line numbers
  std::chrono::microseconds played_{0};
  ReplayScore score_;
};

}  // namespace orvd
