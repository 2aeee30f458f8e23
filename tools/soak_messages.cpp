#include "soak_messages.h"

#include <cfloat>
#include <functional>
#include <iterator>
#include <map>

#include "orvex_simulator/json_text.h"
#include "soak.h"

namespace soak {
namespace {

using orvd::ParseObject;
using orvd::WriteCompact;

struct Type {
  const char* name;
  int bits;  // 0 for all types except integers
  bool is_signed;
};

// In the order of the type codes, which begin at 1.
constexpr Type kTypes[] = {{"uint8", 8, false},   {"uint16", 16, false}, {"uint32", 32, false},
                           {"uint64", 64, false}, {"int8", 8, true},     {"int16", 16, true},
                           {"int32", 32, true},   {"int64", 64, true},   {"double", 0, true},
                           {"string", 0, false},  {"boolean", 0, false}, {"enum", 32, true},
                           {"bnry_blb", 0, false}};
constexpr std::size_t kStructCode = 16;

std::size_t CodeOf(const Json::Value& name) {
  std::size_t code = 1;
  while (code <= std::size(kTypes) && name != kTypes[code - 1].name) {
    ++code;
  }
  return code;
}

// --- The arguments as one text, made from their JSON. The service makes the same text from the
// decoded arguments.

std::string ListText(const Json::Value& list);

// The result is empty for an argument that the library skips.
std::string ArgumentText(const Json::Value& arg) {
  if (arg["type"] == "struct") {
    return std::to_string(kStructCode) + ":" + ListText(arg["members"]) + ";";
  }
  if (arg["type"] == "vector") {
    std::string text = std::to_string(kStructCode + CodeOf(arg["vec_type"])) + ":";
    for (const Json::Value& element : arg["value"]) {
      text += element.asString() + ",";
    }
    return text + ";";
  }
  const std::size_t code = CodeOf(arg["type"]);
  return code > std::size(kTypes) ? "" : std::to_string(code) + ":" + arg["value"].asString() + ";";
}

std::string ListText(const Json::Value& list) {
  std::map<int, std::string> by_key;
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    const bool has_id = list[i].isMember("id");
    by_key[has_id ? list[i]["id"].asInt() : static_cast<int>(i)] = ArgumentText(list[i]);
  }
  std::string text;
  for (const auto& [key, argument] : by_key) {
    text += argument.empty() ? "" : std::to_string(key) + ":" + argument;
  }
  return text;
}

// --- Sessions

Json::Value Opcodes(const std::vector<uint32_t>& ssids, bool as_numbers) {
  std::map<uint32_t, Json::Value> by_opcode;
  for (const uint32_t ssid : ssids) {
    Json::Value subsystem;
    subsystem["id"] = ssid;
    by_opcode[OpcodeOf(ssid)].append(subsystem);
  }
  Json::Value opcodes(Json::arrayValue);
  for (const auto& [opcode, subsystems] : by_opcode) {
    Json::Value element;
    element["id"] = as_numbers ? Json::Value(opcode) : Json::Value(OpcodeText(opcode));
    element["subsystems"] = subsystems;
    opcodes.append(element);
  }
  return opcodes;
}

Json::Value SessionMessage(const char* req_type, uint32_t session_id) {
  Json::Value message;
  message["req_type"] = req_type;
  message["session_id"] = session_id;
  return message;
}

}  // namespace

uint32_t Messages::Number(uint32_t low, uint32_t high) {
  return std::uniform_int_distribution<uint32_t>(low, high)(random_);
}

std::vector<uint32_t> Messages::Subsystems() {
  const uint32_t chosen = Number(1, (1U << kSubsystems) - 1);
  std::vector<uint32_t> ssids;
  for (uint32_t ssid = 1; ssid <= kSubsystems; ++ssid) {
    if ((chosen >> (ssid - 1) & 1U) != 0) {
      ssids.push_back(ssid);
    }
  }
  return ssids;
}

// Four of the five choices are the bounds of the type as signed and as unsigned integer.
Json::Value Messages::Integer(int bits, bool is_signed) {
  const uint64_t all_ones = UINT64_MAX >> (64 - bits);
  const uint64_t choices[] = {0, all_ones, all_ones >> 1U, all_ones ^ (all_ones >> 1U),
                              random_() & all_ones};
  const uint64_t chosen = choices[Number(0, std::size(choices) - 1)];
  const bool negative = is_signed && chosen > all_ones >> 1U;
  return is_signed ? Json::Value(static_cast<Json::Int64>(negative ? chosen | ~all_ones : chosen))
                   : Json::Value(static_cast<Json::UInt64>(chosen));
}

Json::Value Messages::Double() {
  const double choices[] = {DBL_MAX, -DBL_MAX,
                            DBL_MIN, 0.0,
                            3.0,     std::uniform_real_distribution<double>(-1e6, 1e6)(random_)};
  return choices[Number(0, std::size(choices) - 1)];
}

Json::Value Messages::Text() {
  const char* const pieces[] = {"a", "\"", "\\", "\n", "\x01", "é", "€", "null", "{", ":;,"};
  std::string text;
  for (uint32_t left = Number(0, 12); left > 0; --left) {
    text += pieces[Number(0, std::size(pieces) - 1)];
  }
  return text;
}

Json::Value Messages::Scalar(std::size_t type) {
  const Type& row = kTypes[type];
  if (row.bits != 0) {
    return Integer(row.bits, row.is_signed);
  }
  const std::string name = row.name;
  return name == "double" ? Double() : name == "boolean" ? Json::Value(OneIn(2)) : Text();
}

Json::Value Messages::Vector(std::size_t type, uint32_t longest) {
  Json::Value elements(Json::arrayValue);
  for (uint32_t left = Number(0, longest); left > 0; --left) {
    elements.append(Scalar(type));
  }
  return elements;
}

Json::Value Messages::Argument(int id, uint32_t longest_vector) {
  const std::size_t type = Number(0, std::size(kTypes) - 1);
  Json::Value arg;
  arg["id"] = id;
  if (OneIn(3)) {
    arg["type"] = "vector";
    arg["vec_type"] = kTypes[type].name;
    arg["value"] = Vector(type, longest_vector);
  } else {
    arg["type"] = OneIn(20) ? "of a newer Manager" : kTypes[type].name;
    arg["value"] = Scalar(type);
  }
  return arg;
}

Json::Value Messages::Struct() {
  Json::Value arg;
  arg["type"] = "struct";
  arg["members"] = Json::Value(Json::arrayValue);
  for (int left = static_cast<int>(Number(0, 6)); left > 0; --left) {
    arg["members"].append(Argument(left, 20));
  }
  return arg;
}

// A struct's key is its position in the list. The ids of other arguments are different from all
// positions.
Json::Value Messages::Arguments() {
  Json::Value args(Json::arrayValue);
  const int count = static_cast<int>(Number(0, 4));
  for (int i = 0; i < count; ++i) {
    const int id = OneIn(2) ? 1000 + i : -1 - i;
    args.append(OneIn(4) ? Struct() : Argument(id, OneIn(20) ? 2000 : 20));
  }
  if (OneIn(200)) {
    Json::Value large;
    large["id"] = 5000;
    large["type"] = "bnry_blb";
    large["value"] = std::string(100000 + Number(0, 999), 'x');
    args.append(large);
  }
  return args;
}

Exchange Messages::Task(uint32_t session_id, uint32_t ssid, int32_t transac_id) {
  Json::Value task = SessionMessage("exec_task", session_id);
  task["opcode"] = OpcodeText(OpcodeOf(ssid));
  task["transac_id"] = transac_id;
  Json::Value answer = task;
  task["subsys_id"] = ssid;
  task["func"]["name"] = "digest_" + std::to_string(Number(0, 9));
  task["func"]["args"] = Arguments();
  const Json::Value& args = task["func"]["args"];
  task["func"]["num_of_args"] = args.size();
  answer["name"] = task["func"]["name"];
  answer["subsys_id"] = std::to_string(ssid);
  answer["return"] = args.size();
  answer["status"] = 0;
  answer["func"]["sum"] = std::to_string(std::hash<std::string>{}(ListText(args)));
  return {WriteCompact(task), WriteCompact(answer)};
}

std::string Messages::Notification(uint32_t session_id) {
  const char* const kinds[] = {"permission_change", "state_change", "system_setting_change"};
  Json::Value message = SessionMessage(kinds[Number(0, std::size(kinds) - 1)], session_id);
  message["sesson_id"] = std::to_string(session_id);  // the spelling in permission_change
  message["permission"] = "camera";
  message["status"] = OneIn(2) ? "1" : "0";
  message["state"] = "screen";
  message["value"] = std::string(Number(1, 100), 'v');
  message["package"] = "soak";
  return WriteCompact(message);
}

Exchange Start(uint32_t session_id, const std::vector<uint32_t>& ssids) {
  Json::Value message = SessionMessage("start_session", session_id);
  message["opcodes"] = Opcodes(ssids, false);
  Json::Value answer = message;
  answer["Result"] = "Success";
  return {WriteCompact(message), WriteCompact(answer)};
}

std::string Ready(uint32_t session_id, const std::vector<uint32_t>& ssids) {
  Json::Value message = SessionMessage("ready_session", session_id);
  message["opcodes"] = Opcodes(ssids, false);
  return WriteCompact(message);
}

Exchange End(uint32_t session_id, const std::vector<uint32_t>& ssids) {
  Json::Value message = SessionMessage("end_session", session_id);
  Json::Value answer = message;
  message["opcodes"] = Opcodes(ssids, true);
  answer["Result"] = "Success";
  return {WriteCompact(message), WriteCompact(answer)};
}

std::string AnswerPermissions(const std::string& query) {
  const Json::Value asked = ParseObject(query);
  Json::Value answer;
  answer["req_type"] = asked["req_type"];
  answer["QueryId"] = asked["QueryId"];
  answer["status"] = 0;
  for (const Json::Value& permission : asked["Permissions"]) {
    const auto number = static_cast<uint32_t>(std::stoul(permission.asString()));
    answer["PermRes"].append(Granted(asked["Session_Id"].asUInt(), number) ? 1 : 0);
  }
  return WriteCompact(answer);
}

std::string AnswerInfos(const std::string& query) {
  const Json::Value asked = ParseObject(query);
  Json::Value answer;
  answer["req_type"] = asked["req_type"];
  answer["QueryId"] = asked["QueryId"];
  for (const Json::Value& item : asked["QueryInfos"]) {
    answer["QueryInfosRes"].append(InfoOf(asked["Session_Id"].asUInt(), item.asString()));
  }
  return WriteCompact(answer);
}

}  // namespace soak
