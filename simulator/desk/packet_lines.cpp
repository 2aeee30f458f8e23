#include "packet_lines.h"

#include <array>
#include <cstdio>

namespace orvd {
namespace {

constexpr std::size_t kMostRequests = 65536;  // older ones without an answer are forgotten

void AppendBeginning(std::string& out, std::chrono::microseconds at, int connection,
                     const char* what) {
  std::array<char, 64> text{};
  const int size = std::snprintf(text.data(), text.size(), "%12.6f %2d %-10s ",
                                 static_cast<double>(at.count()) / 1e6, connection, what);
  out.append(text.data(), static_cast<std::size_t>(size));
}

// A packet cannot break the line or drive the terminal.
void AppendVisible(std::string& out, std::string_view text) {
  for (const char character : text) {
    const auto value = static_cast<unsigned char>(character);
    out.push_back(value < 0x20 || value == 0x7f ? '?' : character);
  }
}

void AppendNumber(std::string& out, const char* name, std::optional<std::int64_t> number) {
  if (number) {
    out += name;
    out += std::to_string(*number);
  }
}

void AppendFields(std::string& out, const PacketFields& fields) {
  AppendVisible(out, fields.kind);
  for (const OpcodePair& pair : fields.pairs) {
    out += ' ';
    out += HexText(pair.opcode);
    AppendNumber(out, "::", pair.subsystem);
  }
  AppendNumber(out, " session=", fields.session);
  AppendNumber(out, " task=", fields.transaction);
  AppendNumber(out, " query=", fields.query);
  if (!fields.function.empty()) {
    out += " function=";
    AppendVisible(out, fields.function);
  }
}

void AppendLatency(std::string& out, std::chrono::microseconds latency) {
  std::array<char, 48> text{};
  const int size = std::snprintf(text.data(), text.size(), " latency=%.3fms",
                                 static_cast<double>(latency.count()) / 1e3);
  out.append(text.data(), static_cast<std::size_t>(size));
}

}  // namespace

bool PacketLines::Wants(const PacketFields& fields, PacketDirection direction) const {
  return (filter_.kind.empty() || filter_.kind == fields.kind) &&
         (filter_.direction.empty() || filter_.direction == NameOf(direction)) &&
         (!filter_.session || filter_.session == fields.session) &&
         (!filter_.opcode || filter_.opcode == fields.opcode);
}

void PacketLines::AppendPacket(std::string& out, std::chrono::microseconds at, int connection,
                               PacketDirection direction, std::string_view bytes) {
  const PacketFields fields = FieldsOf(bytes);
  const Exchange exchange = ExchangeOf(fields, direction);
  const Key key{connection, exchange.kind, exchange.id};
  std::optional<std::chrono::microseconds> asked;
  if (exchange.role == Role::kRequest) {
    Remember(key, at);
  } else if (exchange.role == Role::kAnswer) {
    asked = TakeTime(key);
  }
  if (!Wants(fields, direction)) {
    return;
  }
  AppendBeginning(out, at, connection, NameOf(direction));
  AppendFields(out, fields);
  AppendNumber(out, " bytes=", static_cast<std::int64_t>(bytes.size()));
  if (asked) {
    AppendLatency(out, at - *asked);
  }
  out += '\n';
}

void PacketLines::AppendEvent(std::string& out, std::chrono::microseconds at, int connection,
                              LinkEvent event) const {
  if (filter_.kind.empty() && !filter_.session && !filter_.opcode) {
    AppendBeginning(out, at, connection, "event");
    out += NameOf(event);
    out += '\n';
  }
}

void PacketLines::Remember(const Key& key, std::chrono::microseconds at) {
  open_[key] = at;
  latest_.emplace_back(key, at);
  if (latest_.size() > kMostRequests) {
    const auto [oldest, asked] = latest_.front();
    latest_.pop_front();
    const auto found = open_.find(oldest);
    if (found != open_.end() && found->second == asked) {
      open_.erase(found);
    }
  }
}

std::optional<std::chrono::microseconds> PacketLines::TakeTime(const Key& key) {
  const auto found = open_.find(key);
  if (found == open_.end()) {
    return std::nullopt;
  }
  const std::chrono::microseconds at = found->second;
  open_.erase(found);
  return at;
}

}  // namespace orvd
