// What a packet is about: its kind and the numbers by which an answer belongs to a request.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording.h"

namespace orvd {

struct OpcodePair {
  std::int64_t opcode = 0;
  std::optional<std::int64_t> subsystem;
};

struct PacketFields {
  std::string_view kind;  // "req_type", or "EXIT", "text", "bytes", "empty", "short_answer", "json"
  std::vector<OpcodePair> pairs;
  std::string_view function;
  std::optional<std::int64_t> opcode;  // the first one
  std::optional<std::int64_t> session;
  std::optional<std::int64_t> transaction;
  std::optional<std::int64_t> query;
  std::string_view query_text;  // the digits of `query`
};

// Reads without parsing JSON where it can: the monitor does this for every packet. The views last
// as long as `bytes`.
PacketFields FieldsOf(std::string_view bytes);
// The kind of a packet that is no JSON object: "empty", "EXIT", "text" or "bytes".
const char* KindOfBytes(std::string_view bytes);

// 0x and hexadecimal digits, without zeros before them.
std::string HexText(std::int64_t number);

enum class Role { kRequest, kAnswer, kOther };

struct Exchange {
  Role role = Role::kOther;
  char kind = 0;        // equal for a request and its answer
  std::int64_t id = 0;  // likewise, within the connection
};

Exchange ExchangeOf(const PacketFields& fields, PacketDirection direction);

}  // namespace orvd
