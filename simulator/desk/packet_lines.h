// One printed line for each packet and event of a conversation.

#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "packet_fields.h"
#include "recording.h"

namespace orvd {

// A member without a value lets everything pass. Events pass unless `kind`, `session` or `opcode`
// is set.
struct LineFilter {
  std::string kind;
  std::string direction;
  std::optional<std::uint32_t> session;
  std::optional<std::uint32_t> opcode;
};

class PacketLines {
 public:
  explicit PacketLines(LineFilter filter) : filter_(std::move(filter)) {}

  // Append a line to `out`, unless the filter keeps it back.
  void AppendPacket(std::string& out, std::chrono::microseconds at, int connection,
                    PacketDirection direction, std::string_view bytes);
  void AppendEvent(std::string& out, std::chrono::microseconds at, int connection,
                   LinkEvent event) const;

 private:
  using Key = std::tuple<int, char, std::int64_t>;  // connection, and members of Exchange

  bool Wants(const PacketFields& fields, PacketDirection direction) const;
  void Remember(const Key& key, std::chrono::microseconds at);
  std::optional<std::chrono::microseconds> TakeTime(const Key& key);

  const LineFilter filter_;
  std::map<Key, std::chrono::microseconds> open_;  // requests without an answer
  std::deque<std::pair<Key, std::chrono::microseconds>> latest_;
};

}  // namespace orvd
