#include "conversation.h"

#include <array>

#include "byte_text.h"
#include "orvex_simulator/json_text.h"

namespace orvd {
namespace {

constexpr const char* kCyan = "\x1b[36m";
constexpr const char* kGreen = "\x1b[32m";
constexpr const char* kYellow = "\x1b[33m";
constexpr const char* kRed = "\x1b[31;1m";
constexpr const char* kBold = "\x1b[1m";
constexpr const char* kPlain = "\x1b[0m";

constexpr std::size_t kLongestValue = 68;

std::string Compact(const Json::Value& value) {
  std::string text = WriteCompact(value);
  if (text.size() > kLongestValue) {
    text = text.substr(0, kLongestValue) + "…";
  }
  return text;
}

// Writes [{"id":"0xa001","subsystems":[{"id":1},{"id":2}]}] as 0xa001::1 0xa001::2.
std::string Pairs(const Json::Value& opcodes) {
  std::string pairs;
  for (const Json::Value& opcode : opcodes) {
    for (const Json::Value& subsystem : opcode["subsystems"]) {
      pairs += " " + opcode["id"].asString() + "::" + subsystem["id"].asString();
    }
  }
  return pairs.empty() ? " all" : pairs;
}

// Writes {"name":"f","args":[...]} as f(1, [2,3]). The members of an answer are not changed.
std::string Function(const Json::Value& func) {
  if (!func.isMember("args")) {
    return " func=" + Compact(func);
  }
  std::string args;
  for (const Json::Value& arg : func["args"]) {
    args += args.empty() ? "" : ", ";
    args += Compact(arg.isMember("members") ? arg["members"] : arg["value"]);
  }
  return " " + func["name"].asString() + "(" + args + ")";
}

std::string Field(const std::string& name, const Json::Value& value) {
  if (name == "req_type" || name == "Token") {
    return "";
  }
  if (name == "opcodes") {
    return Pairs(value);
  }
  if (name == "func" && value.isObject()) {
    return Function(value);
  }
  return " " + name + "=" + (value.isString() ? value.asString() : Compact(value));
}

// The most important members come first, the others in alphabetical order.
std::string Fields(const Json::Value& message) {
  Json::Value rest = message;
  std::string fields;
  for (const char* name :
       {"session_id", "transac_id", "opcodes", "name", "func", "return", "status"}) {
    Json::Value value;
    if (rest.removeMember(name, &value)) {
      fields += Field(name, value);
    }
  }
  for (const std::string& name : rest.getMemberNames()) {
    fields += Field(name, rest[name]);
  }
  return fields;
}

std::string Describe(const std::string& text) {
  const Json::Value message = ParseObject(text);
  if (message.empty()) {
    return Printable(text);
  }
  std::array<char, 32> kind{};
  static_cast<void>(snprintf(kind.data(), kind.size(), "%-14s", KindOf(text).c_str()));
  try {
    return Printable(kind.data() + Fields(message));
  } catch (const Json::Exception&) {  // members of other types than the protocol has
    return Printable(text);
  }
}

struct Look {
  const char* color;
  const char* arrow;
};

Look LookOf(Direction direction) {
  switch (direction) {
    case Direction::kFromService:
      return {kGreen, "service ->          "};
    case Direction::kToService:
      return {kCyan, "        <- Manager  "};
    case Direction::kConnected:
      return {kYellow, "service connected"};
    case Direction::kEndOfFile:
      return {kYellow, "service closed the connection"};
    case Direction::kHungUp:
      break;
  }
  return {kYellow, "Manager hung up"};
}

}  // namespace

void Conversation::Line(const char* color, const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  static_cast<void>(
      fprintf(out_, "%s%s%s\n", color_ ? color : "", text.c_str(), color_ ? kPlain : ""));
  static_cast<void>(fflush(out_));
}

void Conversation::Print(const TranscriptEntry& entry) {
  std::array<char, 32> time{};
  static_cast<void>(snprintf(time.data(), time.size(), "%9.3f ms  ",
                             static_cast<double>(entry.since_start.count()) / 1000.0));
  const Look look = LookOf(entry.direction);
  const bool is_packet =
      entry.direction == Direction::kFromService || entry.direction == Direction::kToService;
  const bool is_empty = is_packet && entry.text.empty();
  Line(look.color, time.data() + std::string(look.arrow) +
                       (is_empty ? "(an empty packet)" : Describe(entry.text)));
}

void Conversation::Heading(const std::string& text) {
  Line(kBold, "--- " + text);
}

void Conversation::Failure(const std::string& text) {
  Line(kRed, "FAILED " + text);
}

}  // namespace orvd
