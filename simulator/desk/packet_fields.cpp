#include "packet_fields.h"

#include <json/value.h>

#include <array>
#include <cstdio>

#include "byte_text.h"
#include "orvex_simulator/json_text.h"
#include "read_number.h"

namespace orvd {
namespace {

std::size_t EndOfString(std::string_view text, std::size_t begin) {
  for (std::size_t i = begin + 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      return i + 1;
    }
  }
  return text.size();
}

std::size_t EndOfValue(std::string_view text, std::size_t begin) {
  int depth = 0;
  for (std::size_t i = begin; i < text.size();) {
    switch (text[i]) {
      case '"':
        i = EndOfString(text, i);
        continue;
      case '{':
      case '[':
        ++depth;
        break;
      case '}':
      case ']':
        if (depth-- == 0) {
          return i;
        }
        break;
      case ',':
        if (depth == 0) {
          return i;
        }
        break;
      default:
        break;
    }
    ++i;
  }
  return text.size();
}

std::string_view Trimmed(std::string_view text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string_view::npos
             ? std::string_view()
             : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::string_view Unquoted(std::string_view value) {
  return value.size() >= 2 && value[0] == '"' ? value.substr(1, value.size() - 2) : value;
}

// Calls `take` with the name and the JSON of each member of an object, without its nested ones.
// Stops where the text is no JSON.
template <typename Take>
void ForEachMember(std::string_view object, Take take) {
  for (std::size_t at = object.find('"'); at < object.size(); at = object.find('"', at)) {
    const std::size_t name_end = EndOfString(object, at);
    const std::size_t colon = object.find_first_not_of(" \t\r\n", name_end);
    if (colon == std::string_view::npos || object[colon] != ':') {
      return;
    }
    const std::size_t value_end = EndOfValue(object, colon + 1);
    take(Unquoted(object.substr(at, name_end - at)),
         Trimmed(object.substr(colon + 1, value_end - colon - 1)));
    at = value_end;
  }
}

// A number, or a text of decimal digits, or of hexadecimal ones where `base` is 16.
std::optional<std::int64_t> NumberOf(std::string_view value, int base = 10) {
  const bool is_text = !value.empty() && value[0] == '"';
  value = Unquoted(value);
  if (is_text && base == 16 && value.substr(0, 2) == "0x") {
    value.remove_prefix(2);
  }
  return ReadWhole<std::int64_t>(value, is_text ? base : 10);
}

// The value of "opcodes": [{"id":"0xa001","subsystems":[{"id":1}]}].
void ReadPairs(std::string_view list, PacketFields& fields) {
  const Json::Value object = ParseObject("{\"list\":" + std::string(list) + "}");
  const auto number = [](const Json::Value& id) { return NumberOf(WriteCompact(id), 16); };
  for (const Json::Value& opcode : object["list"]) {
    const std::optional<std::int64_t> id = opcode.isObject() ? number(opcode["id"]) : std::nullopt;
    if (!id) {
      continue;
    }
    fields.opcode = fields.opcode ? fields.opcode : id;
    const Json::Value& subsystems = opcode["subsystems"];
    if (!subsystems.isArray() || subsystems.empty()) {
      fields.pairs.push_back({*id, std::nullopt});
      continue;
    }
    for (const Json::Value& subsystem : subsystems) {
      fields.pairs.push_back({*id, subsystem.isObject() ? number(subsystem["id"]) : std::nullopt});
    }
  }
}

std::string_view NameIn(std::string_view func) {
  std::string_view found;
  ForEachMember(func, [&found](std::string_view name, std::string_view value) {
    if (name == "name" && value.size() > 1 && value[0] == '"') {
      found = Unquoted(value);
    }
  });
  return found;
}

bool IsTask(std::string_view kind) {
  return kind == "exec_task";
}

// The members that count, as they stand in the JSON; empty if they are missing.
struct Members {
  std::string_view kind, opcode, opcodes, subsystem, session, transaction, query, func, name,
      result;
};

Members MembersOf(std::string_view object) {
  struct Row {
    std::string_view name;
    std::string_view Members::*member;
  };
  constexpr std::array kRows{Row{"req_type", &Members::kind},
                             Row{"opcode", &Members::opcode},
                             Row{"Opcode", &Members::opcode},
                             Row{"opcodes", &Members::opcodes},
                             Row{"subsys_id", &Members::subsystem},
                             Row{"session_id", &Members::session},
                             Row{"Session_Id", &Members::session},
                             Row{"sesson_id", &Members::session},
                             Row{"transac_id", &Members::transaction},
                             Row{"QueryId", &Members::query},
                             Row{"func", &Members::func},
                             Row{"name", &Members::name},
                             Row{"Result", &Members::result}};
  Members members;
  ForEachMember(object, [&](std::string_view name, std::string_view value) {
    for (const Row& row : kRows) {
      if (row.name == name) {
        members.*row.member = value;
        return;
      }
    }
  });
  return members;
}

void ReadMembers(std::string_view bytes, PacketFields& fields) {
  const Members members = MembersOf(bytes);
  fields.kind = Unquoted(members.kind);
  if (fields.kind.empty()) {
    fields.kind = members.result.empty() ? "json" : "short_answer";
  }
  fields.session = NumberOf(members.session);
  fields.transaction = NumberOf(members.transaction);
  fields.query = NumberOf(members.query);
  fields.query_text = Unquoted(members.query);
  // Tasks write the opcode in hexadecimal digits, the answers to AUTH and REDY in decimal ones.
  fields.opcode = NumberOf(members.opcode, IsTask(fields.kind) ? 16 : 10);
  if (fields.opcode) {
    fields.pairs.push_back({*fields.opcode, NumberOf(members.subsystem)});
  }
  if (!members.opcodes.empty()) {
    ReadPairs(members.opcodes, fields);
  }
  fields.function = Unquoted(members.name);
  if (IsTask(fields.kind) && fields.function.empty()) {
    fields.function = NameIn(members.func);
  }
}

}  // namespace

const char* KindOfBytes(std::string_view bytes) {
  if (bytes.empty()) {
    return "empty";
  }
  return bytes == "EXIT" ? "EXIT" : IsUtf8(bytes) ? "text" : "bytes";
}

PacketFields FieldsOf(std::string_view bytes) {
  PacketFields fields;
  const std::string_view trimmed = Trimmed(bytes.substr(0, bytes.find('\0')));  // as both sides do
  if (!trimmed.empty() && trimmed[0] == '{') {
    ReadMembers(trimmed, fields);
  } else {
    fields.kind = KindOfBytes(bytes);
  }
  return fields;
}

std::string HexText(std::int64_t number) {
  std::array<char, 24> text{};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "0x%llx", static_cast<long long>(number)));
  return text.data();
}

Exchange ExchangeOf(const PacketFields& fields, PacketDirection direction) {
  struct Row {
    std::string_view kind;
    PacketDirection request;
    char answered_as;
    std::optional<std::int64_t> PacketFields::*id;
  };
  constexpr PacketDirection kUp = PacketDirection::kToManager;
  constexpr PacketDirection kDown = PacketDirection::kToService;
  // All queries share one sequence of ids. One kind of them may answer another.
  constexpr std::array kRows{Row{"exec_task", kDown, 't', &PacketFields::transaction},
                             Row{"INIT", kUp, 'i', nullptr},
                             Row{"AUTH", kUp, 'a', &PacketFields::opcode},
                             Row{"REDY", kUp, 'r', &PacketFields::opcode},
                             Row{"PERMISSION", kUp, 'q', &PacketFields::query},
                             Row{"INFO_QUERY", kUp, 'q', &PacketFields::query},
                             Row{"INFO_MNTR", kUp, 'q', &PacketFields::query},
                             Row{"start_session", kDown, 's', &PacketFields::session},
                             Row{"end_session", kDown, 'e', &PacketFields::session}};
  for (const Row& row : kRows) {
    if (row.kind == fields.kind) {
      return {direction == row.request ? Role::kRequest : Role::kAnswer, row.answered_as,
              row.id == nullptr ? 0 : (fields.*row.id).value_or(0)};
    }
  }
  return {};
}

}  // namespace orvd
