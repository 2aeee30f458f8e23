#include "replayer.h"

#include <json/value.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <vector>

#include "byte_text.h"
#include "difference.h"
#include "orvex_simulator/json_text.h"
#include "packet_lines.h"

namespace orvd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kContext = 5;  // lines before a difference
// A recording with more packets of the service in a row is compared in parts.
constexpr std::size_t kMostWaiting = 4096;
constexpr std::size_t kLongestShown = 2000;

std::string Shown(const std::string& bytes) {
  const std::string text = IsUtf8(bytes) && !bytes.empty() ? bytes : "hex " + HexOf(bytes);
  return text.size() > kLongestShown ? text.substr(0, kLongestShown) + "..." : text;
}

// Takes the first packet out of `packets` that `matches`.
template <typename Packets, typename Matches>
std::optional<typename Packets::value_type> TakeFirst(Packets& packets, Matches matches) {
  const auto found = std::find_if(packets.begin(), packets.end(), matches);
  if (found == packets.end()) {
    return std::nullopt;
  }
  auto packet = std::move(*found);
  packets.erase(found);
  return packet;
}

void Remove(Json::Value& value, const std::set<std::string>& names) {
  if (value.isObject()) {
    for (const std::string& name : names) {
      value.removeMember(name);
    }
  }
  if (value.isObject() || value.isArray()) {
    for (Json::Value& inner : value) {
      Remove(inner, names);
    }
  }
}

}  // namespace

Replayer::Replayer(RecordingReader& reader, std::string name, ReplayOptions options,
                   const StopSignals& stop, std::ostream& out)
    : reader_(reader),
      name_(std::move(name)),
      options_(std::move(options)),
      stop_(stop),
      out_(out),
      listener_(ListenAt(options_.path)),
      inode_(InodeOf(options_.path)),
      epoll_(Checked(epoll_create1(EPOLL_CLOEXEC), "epoll")) {
  Watch(stop.fd(), EPOLLIN);
  Watch(listener_.fd(), EPOLLIN | EPOLLET);
}

Replayer::~Replayer() {
  RemoveSocket(options_.path, inode_);
  for (auto& [number, connection] : connections_) {
    connection.socket.Close();
  }
}

ReplayScore Replayer::Play() {
  try {
    while (const auto line = reader_.Next()) {
      PlayLine(*line);
      latest_.emplace_back(reader_.line(), *line);
      if (latest_.size() > 2 * kContext) {
        latest_.pop_front();
      }
    }
    WaitForExpected(0);
    for (auto& [number, connection] : connections_) {
      ReportSurplus(connection);
    }
  } catch (const Over&) {
  }
  return score_;
}

void Replayer::PlayLine(const RecordedLine& line) {
  if (line.kind == RecordedLine::Kind::kPacket) {
    const auto found = connections_.find(line.connection);
    if (found == connections_.end()) {
      Report(reader_.line(), "the connection " + std::to_string(line.connection) +
                                 " is not open: the recording or the replay has lost it");
    } else if (line.direction == PacketDirection::kToManager) {
      Expect(found->second, line);
    } else {
      WaitForExpected(0);
      Pause(line.at - played_);
      Send(found->second, line);
    }
  } else if (line.event != LinkEvent::kManagerAbsent) {
    WaitForExpected(0);
    PlayEvent(line);
  }
  played_ = line.at;
}

void Replayer::PlayEvent(const RecordedLine& line) {
  if (line.event == LinkEvent::kConnected) {
    Accept(line.connection);
    return;
  }
  const auto found = connections_.find(line.connection);
  if (found == connections_.end()) {
    return;
  }
  const LinkEvent event = line.event;
  if (event == LinkEvent::kServiceClosed || event == LinkEvent::kServiceShut ||
      event == LinkEvent::kServiceReset) {
    WaitForEnd(found->second, line);
  } else {
    Pause(line.at - played_);
  }
  const bool over = event != LinkEvent::kServiceShut && event != LinkEvent::kManagerShut;
  if (over) {
    ReportSurplus(found->second);
  }
  CloseAs(found->second, event);
  if (over) {
    connections_.erase(found);
  }
}

void Replayer::Accept(int number) {
  const Clock::time_point deadline = Deadline();
  for (;;) {
    Descriptor service(accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (service) {
      Watch(service.fd(), EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET);
      connections_[number].socket = PacketSocket(std::move(service));
      return;
    }
    if (!Wait(deadline)) {
      Report(reader_.line(), "expected a connection of the service, none came");
      return;
    }
  }
}

void Replayer::CloseAs(Connection& connection, LinkEvent event) {
  switch (event) {
    case LinkEvent::kManagerShut:
      shutdown(connection.socket.fd(), SHUT_WR);
      connection.shut = true;
      break;
    case LinkEvent::kServiceShut:
      break;
    case LinkEvent::kManagerReset:
      connection.socket.Reset();
      break;
    default:
      connection.socket.Close();
  }
}

void Replayer::WaitForEnd(Connection& connection, const RecordedLine& line) {
  const Clock::time_point deadline = Deadline();
  while (!connection.ended) {
    if (!Wait(deadline)) {
      Report(reader_.line(),
             std::string("expected ") + NameOf(line.event) + ", the service keeps the connection");
      return;
    }
  }
}

Replayer::Packet Replayer::Describe(std::string_view bytes, std::size_t line) const {
  const PacketFields fields = FieldsOf(bytes);
  Packet packet{line, "", std::string(fields.kind), std::string(bytes)};
  const auto number = [](const std::optional<std::int64_t>& value) {
    return " " + (value ? std::to_string(*value) : "-");
  };
  if (fields.query) {
    packet.key = WithoutIgnored(bytes, true);
  } else if (ExchangeOf(fields, PacketDirection::kToManager).role != Role::kOther) {
    packet.key = packet.kind + number(fields.transaction) + number(fields.session);
    if (!fields.transaction && !fields.session) {
      packet.key += number(fields.opcode);
    }
  } else {
    packet.key = options_.ignored.empty() ? packet.bytes : WithoutIgnored(bytes, false);
  }
  return packet;
}

// Numbers that the Manager or the library gives anew do not count.
std::string Replayer::WithoutIgnored(std::string_view bytes, bool without_query) const {
  Json::Value message = ParseObject(std::string(bytes));
  if (message.empty()) {
    return std::string(bytes);
  }
  message.removeMember("Service_Id");
  message.removeMember("service_id");
  if (without_query) {
    message.removeMember("QueryId");
  }
  Remove(message, options_.ignored);
  return WriteCompact(message);
}

void Replayer::Expect(Connection& connection, const RecordedLine& line) {
  Packet packet = Describe(line.bytes, reader_.line());
  const auto received = TakeFirst(
      connection.early, [&packet](const Packet& early) { return early.key == packet.key; });
  if (received) {
    Compare(connection, packet, *received);
    return;
  }
  connection.expected.push_back(std::move(packet));
  WaitForExpected(kMostWaiting);
}

void Replayer::Take(Connection& connection, std::string_view bytes) {
  Packet packet = Describe(bytes, 0);
  const auto expected = TakeFirst(connection.expected,
                                  [&packet](const Packet& one) { return one.key == packet.key; });
  if (expected) {
    Compare(connection, *expected, packet);
    return;
  }
  connection.early.push_back(std::move(packet));
  if (connection.early.size() > kMostWaiting) {
    const std::string oldest = Shown(connection.early.front().bytes);
    connection.early.pop_front();
    Report(reader_.line(), "not in the recording so far\n  received: " + oldest);
  }
}

void Replayer::Compare(Connection& connection, const Packet& expected, const Packet& received) {
  ++score_.compared;
  const PacketFields recorded = FieldsOf(expected.bytes);
  if (recorded.query) {
    connection.queries[*recorded.query] = FieldsOf(received.bytes).query.value_or(*recorded.query);
  }
  if (expected.bytes == received.bytes) {
    return;
  }
  const std::string left = WithoutIgnored(expected.bytes, recorded.query.has_value());
  const std::string right = WithoutIgnored(received.bytes, recorded.query.has_value());
  if (left == right) {
    return;
  }
  const Json::Value wanted = ParseObject(left);
  const Json::Value came = ParseObject(right);
  std::string where;
  if (const auto difference = FindDifference(wanted, came)) {
    where = difference->path + ": expected " + difference->expected + ", received " +
            difference->received;
  } else if (const auto more = FindDifference(came, wanted)) {
    where = more->path + ": expected " + more->received + ", received " + more->expected;
  }
  Report(expected.line, (where.empty() ? "another packet" : where) + "\n  expected: " +
                            Shown(expected.bytes) + "\n  received: " + Shown(received.bytes));
}

void Replayer::Send(Connection& connection, const RecordedLine& line) {
  const std::string bytes = Translated(connection, line.bytes);
  const Clock::time_point deadline = Deadline();
  const int fd = connection.socket.fd();
  while (SendPacket(fd, bytes, MSG_DONTWAIT) < 0) {
    const bool full = errno == EAGAIN;
    if (!full || !Wait(deadline)) {
      Report(reader_.line(), full ? "the service does not take the packet"
                                  : "the service has closed the connection");
      return;
    }
  }
  ++score_.sent;
}

std::string Replayer::Translated(Connection& connection, std::string_view bytes) {
  const PacketFields fields = FieldsOf(bytes);
  const auto found =
      fields.query ? connection.queries.find(*fields.query) : connection.queries.end();
  if (found == connection.queries.end()) {
    return std::string(bytes);
  }
  const auto place = static_cast<std::size_t>(fields.query_text.data() - bytes.data());
  std::string text(bytes);
  text.replace(place, fields.query_text.size(), std::to_string(found->second));
  connection.queries.erase(found);
  return text;
}

// Waits until at most `most` packets of each connection are expected.
void Replayer::WaitForExpected(std::size_t most) {
  for (auto& [number, connection] : connections_) {
    Clock::time_point deadline = Deadline();
    for (std::size_t left = connection.expected.size(); left > most && !connection.shut;) {
      if (connection.ended || !Wait(deadline)) {
        ReportMissing(connection);
      }
      if (connection.expected.size() != left) {
        deadline = Deadline();
        left = connection.expected.size();
      }
    }
  }
}

// Shows what came instead, if that is of the same kind.
void Replayer::ReportMissing(Connection& connection) {
  const Packet expected = std::move(connection.expected.front());
  connection.expected.pop_front();
  const auto received = TakeFirst(
      connection.early, [&expected](const Packet& one) { return one.kind == expected.kind; });
  if (received) {
    Compare(connection, expected, *received);
    return;
  }
  Report(expected.line,
         std::string(connection.ended ? "the service has closed the connection" : "nothing came") +
             "\n  expected: " + Shown(expected.bytes));
}

void Replayer::ReportSurplus(Connection& connection) {
  ReadAll(connection);
  if (connection.shut) {
    return;
  }
  for (const Packet& packet : connection.early) {
    Report(reader_.line(), "not in the recording\n  received: " + Shown(packet.bytes));
  }
}

void Replayer::Pause(std::chrono::microseconds length) {
  const Clock::time_point deadline = Clock::now() + length;
  while (options_.timing && Wait(deadline)) {
  }
}

Clock::time_point Replayer::Deadline() const {
  return Clock::now() + options_.patience;
}

// A packet that was read may still be in its socket, so only changes count.
void Replayer::Watch(int fd, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  Checked(epoll_ctl(epoll_.fd(), EPOLL_CTL_ADD, fd, &event), "epoll");
}

bool Replayer::Wait(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  epoll_event event{};
  epoll_wait(epoll_.fd(), &event, 1, static_cast<int>(std::clamp<long long>(left, 0, 60000)));
  if (stop_.Came()) {
    score_.stopped = true;
    throw Over();
  }
  for (auto& [number, connection] : connections_) {
    ReadAll(connection);
  }
  return Clock::now() < deadline;
}

void Replayer::ReadAll(Connection& connection) {
  std::string_view bytes;
  while (!connection.ended) {
    const Came came = connection.socket.Receive(bytes, MSG_DONTWAIT);
    if (came == Came::kNothing) {
      return;
    }
    if (came == Came::kPacket) {
      Take(connection, bytes);
      connection.socket.Handled(bytes.size());
    }
    connection.ended = came == Came::kEnd;
  }
}

// Prints the packets before, and throws Over unless the replay goes on.
void Replayer::Report(std::size_t line, const std::string& text) {
  ++score_.differences;
  std::string printed;
  PacketLines lines(LineFilter{});
  const auto end = std::find_if(latest_.begin(), latest_.end(),
                                [line](const auto& numbered) { return numbered.first >= line; });
  const auto before_end = static_cast<std::size_t>(end - latest_.begin());
  for (std::size_t i = before_end - std::min(before_end, kContext); i < before_end; ++i) {
    const RecordedLine& before = latest_[i].second;
    if (before.kind == RecordedLine::Kind::kPacket) {
      lines.AppendPacket(printed, before.at, before.connection, before.direction, before.bytes);
    } else {
      lines.AppendEvent(printed, before.at, before.connection, before.event);
    }
  }
  out_ << printed << "DIFFERENCE " << name_ << ':' << line << ": " << text << std::endl;
  if (!options_.keep_going) {
    throw Over();
  }
}

}  // namespace orvd
