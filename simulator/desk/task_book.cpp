#include "task_book.h"

#include <json/value.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include "byte_text.h"
#include "orvex_simulator/json_text.h"
#include "packet_fields.h"

namespace orvd {
namespace {

constexpr std::int64_t kShortForm = -1;

std::size_t KindNumber(const std::string& name) {
  const auto* const found = std::find(std::begin(kPacketKinds), std::end(kPacketKinds), name);
  return static_cast<std::size_t>(found - std::begin(kPacketKinds));
}

std::optional<std::uint32_t> IdOf(std::optional<std::int64_t> number) {
  const bool fits = number && *number >= 0 && *number <= UINT32_MAX;
  return fits ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

std::string KindOfObject(const Json::Value& members) {
  const Json::Value& type = members["req_type"];
  const std::string name = type.isString() ? type.asString() : "other";
  if (name.empty() && members["Result"].isString()) {
    return "exec_task";
  }
  return KindNumber(name) == std::size(kPacketKinds) ? "other" : name;
}

std::vector<std::uint32_t> OpcodesOf(const PacketFields& fields) {
  std::set<std::uint32_t> opcodes;
  for (const OpcodePair& pair : fields.pairs) {
    if (const auto opcode = IdOf(pair.opcode)) {
      opcodes.insert(*opcode);
    }
  }
  return {opcodes.begin(), opcodes.end()};
}

std::int64_t ReadInt(const Json::Value& value) {
  return value.isInt64() ? value.asInt64() : 0;
}

std::string ReadText(const Json::Value& value) {
  return value.isString() ? value.asString() : std::string();
}

std::string FunctionOf(const Json::Value& members, bool is_answer) {
  const Json::Value& func = members["func"];
  return is_answer ? ReadText(members["name"]) : func.isObject() ? ReadText(func["name"]) : "";
}

bool Failed(const Json::Value& members) {
  return ReadInt(members["return"]) < 0 || ReadInt(members["status"]) == -1 ||
         ReadInt(members["result"]) < 0 || ReadInt(members["service_id"]) < 0 ||
         members["Result"] == "Failed" || members["Result"] == "-1";
}

}  // namespace

Packet ReadPacket(const std::string& bytes, bool to_manager) {
  const PacketFields fields = FieldsOf(bytes);
  // The whole JSON too: a Manager takes no packet that is none, and names have escape sequences.
  const Json::Value members = ParseObject(bytes.substr(0, bytes.find('\0')));
  Packet packet;
  packet.to_manager = to_manager;
  if (members.empty()) {
    packet.kind = KindNumber(KindOfBytes(bytes));
    return packet;
  }
  packet.kind = KindNumber(KindOfObject(members));
  packet.session = IdOf(fields.session);
  packet.opcodes = OpcodesOf(fields);
  packet.number = fields.query.value_or(0);
  packet.failed = Failed(members);
  if (packet.IsTask() || packet.IsAnswer()) {
    packet.number = fields.transaction.value_or(0);
    packet.subsystem = fields.pairs.empty() ? 0 : IdOf(fields.pairs[0].subsystem).value_or(0);
    packet.short_form = to_manager && !fields.transaction;
    packet.function = FunctionOf(members, to_manager);
  }
  return packet;
}

void TaskBook::Add(Packet& packet, std::size_t number, std::chrono::microseconds at) {
  if (packet.IsTask()) {
    Ask(packet, number, at);
  } else if (packet.IsAnswer()) {
    Answer(packet, number, at);
  } else if (packet.number != 0) {
    AddQuery(packet);
  }
}

void TaskBook::Ask(const Packet& packet, std::size_t number, std::chrono::microseconds at) {
  Open open{tasks_.size(), packet.session, packet.opcodes};
  tasks_.push_back({number, kNoPacket, at, {}, false});
  if (packet.number == kShortForm) {
    open_short_.push_back(std::move(open));
  } else {
    open_[{packet.session, packet.number}].push_back(std::move(open));
  }
}

// A number that is used again belongs to the newest task: the older one was rejected. The short
// form has no number, so it answers the oldest task.
void TaskBook::Answer(Packet& packet, std::size_t number, std::chrono::microseconds at) {
  const auto numbered = open_.find({packet.session, packet.number});
  if (packet.short_form ? open_short_.empty() : numbered == open_.end()) {
    return;
  }
  Open open;
  if (packet.short_form) {
    open = std::move(open_short_.front());
    open_short_.pop_front();
  } else {
    open = std::move(numbered->second.back());
    numbered->second.pop_back();
    if (numbered->second.empty()) {
      open_.erase(numbered);
    }
  }
  Task& task = tasks_[open.task];
  task.answer = number;
  task.answered = at;
  task.failed = packet.failed;
  packet.session = open.session;
  packet.opcodes = std::move(open.opcodes);
}

void TaskBook::AddQuery(Packet& packet) {
  if (packet.to_manager) {
    queries_[packet.number] = packet.session;
    return;
  }
  const auto query = queries_.find(packet.number);
  if (query != queries_.end()) {
    packet.session = query->second;
    queries_.erase(query);
  }
}

}  // namespace orvd
