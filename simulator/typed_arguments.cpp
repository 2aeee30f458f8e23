#include "orvex_simulator/typed_arguments.h"

#include <algorithm>
#include <array>
#include <climits>
#include <limits>
#include <map>
#include <optional>
#include <set>

#include "orvex_simulator/json_text.h"
#include "read_number.h"

namespace orvd {

const char* const kTypedArgumentsHelp =
    R"(An argument is TYPE:VALUE. Its id is its place among the arguments, counted from 1; @7=TYPE:VALUE
gives it the id 7. Each type has a short and a full name:

  u8 u16 u32 u64 i8 i16 i32 i64   uint8 ... int64, decimal or hexadecimal: u8:5, u32:0xa001, i16:-400
  f64 (double), bool (boolean)    f64:21.5, bool:true
  str (string), blob (bnry_blb)   the text as it is, it may be empty: str:skin, blob:QUJD, str:
  enum                            like i32: enum:2
  cb, none                        the library skips these; a value is optional
  TYPE[]                          a vector: f64[]:1,2.5 str[]:red,green u8[]: or a JSON list, which
                                  texts with commas need: str[]:["a,b","c"]
  struct                          a JSON list of arguments: struct:["str:skin","f64[]:1,2"], or with
                                  ids: struct:{"1":"str:skin","7":"u16:400"}

A struct is found by its position, counted from 0, everything else by its id. So put structs first.
)";

namespace {

enum class Kind { kWhole, kReal, kTruth, kText, kSkipped };

struct Type {
  const char* name;
  const char* short_name;
  Kind kind;
  std::int64_t least = 0;
  std::uint64_t most = 0;
};

constexpr std::array kTypes{
    Type{"uint8", "u8", Kind::kWhole, 0, UINT8_MAX},
    Type{"uint16", "u16", Kind::kWhole, 0, UINT16_MAX},
    Type{"uint32", "u32", Kind::kWhole, 0, UINT32_MAX},
    Type{"uint64", "u64", Kind::kWhole, 0, UINT64_MAX},
    Type{"int8", "i8", Kind::kWhole, INT8_MIN, INT8_MAX},
    Type{"int16", "i16", Kind::kWhole, INT16_MIN, INT16_MAX},
    Type{"int32", "i32", Kind::kWhole, INT32_MIN, INT32_MAX},
    Type{"int64", "i64", Kind::kWhole, INT64_MIN, INT64_MAX},
    Type{"double", "f64", Kind::kReal},
    Type{"string", "str", Kind::kText},
    Type{"boolean", "bool", Kind::kTruth},
    Type{"enum", "enum", Kind::kWhole, INT32_MIN, INT32_MAX},
    Type{"bnry_blb", "blob", Kind::kText},
    Type{"cb", "cb", Kind::kSkipped},
    Type{"none", "none", Kind::kSkipped},
};
constexpr const char* kStruct = "struct";

const Type* FindType(const std::string& name) {
  const auto* const found = std::find_if(kTypes.begin(), kTypes.end(), [&](const Type& type) {
    return name == type.name || name == type.short_name;
  });
  return found == kTypes.end() ? nullptr : &*found;
}

std::string Quoted(const std::string& text) {
  return "'" + text + "'";
}

std::string Expectation(const Type& type) {
  switch (type.kind) {
    case Kind::kWhole:
      return std::string(type.name) + ", a whole number from " + std::to_string(type.least) +
             " to " + std::to_string(type.most);
    case Kind::kReal:
      return std::string(type.name) + ", a number";
    case Kind::kTruth:
      return std::string(type.name) + ", true or false";
    default:
      return std::string(type.name) + ", a text in quotation marks";
  }
}

std::string KnownTypes() {
  std::string names;
  for (const Type& type : kTypes) {
    names += std::string(type.short_name) + ", ";
  }
  return names + kStruct;
}

bool Fits(const Type& type, const Json::Value& value) {
  switch (type.kind) {
    case Kind::kWhole:
      if (value.type() == Json::intValue && value.asInt64() < 0) {
        return value.asInt64() >= type.least;
      }
      return (value.type() == Json::intValue || value.type() == Json::uintValue) &&
             value.asUInt64() <= type.most;
    case Kind::kReal:
      return value.isNumeric();
    case Kind::kTruth:
      return value.isBool();
    case Kind::kText:
      return value.isString();
    case Kind::kSkipped:
      return true;
  }
  return false;
}

std::optional<Json::Value> ReadHexadecimal(const std::string& text) {
  const auto number =
      text.rfind("0x", 0) == 0 ? ReadWhole<Json::UInt64>(text.substr(2), 16) : std::nullopt;
  return number ? std::optional<Json::Value>(*number) : std::nullopt;
}

// A text that is no JSON stays a text: no type but those of texts takes it.
Json::Value ReadScalar(const Type& type, const std::string& text) {
  if (type.kind == Kind::kText) {
    return text;
  }
  const auto number = type.kind == Kind::kWhole ? ReadHexadecimal(text) : std::nullopt;
  return number ? *number : ParseValue(text).value_or(text);
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; !text.empty() && begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

// The text of one argument while it is read.
class TextReader {
 public:
  TextReader(std::string whole, Check check) : whole_(std::move(whole)), check_(check) {}

  Json::Value Read(int id, bool is_member) {
    std::string rest = whole_;
    if (rest.rfind('@', 0) == 0) {
      id = TakeId(rest);
    }
    const std::size_t colon = rest.find(':');
    std::string name = rest.substr(0, colon);
    has_value_ = colon != std::string::npos;
    value_ = has_value_ ? rest.substr(colon + 1) : "";
    Json::Value argument;
    argument["id"] = id;
    if (name == kStruct) {
      Require(!is_member, "a member that is no struct (the library skips it)", name);
      ReadStruct(argument);
    } else if (name.size() > 2 && name.compare(name.size() - 2, 2, "[]") == 0) {
      name.resize(name.size() - 2);
      ReadVector(argument, TypeOf(name, is_member));
    } else {
      ReadOne(argument, TypeOf(name, is_member));
    }
    return argument;
  }

 private:
  void Require(bool condition, const std::string& expected, const std::string& came) const {
    if (!condition && check_ == Check::kStrict) {
      Refuse(expected, came);
    }
  }
  [[noreturn]] void Refuse(const std::string& expected, const std::string& came) const {
    throw BadArgument(Quoted(whole_) + ": expected " + expected + ", got " + Quoted(came));
  }

  int TakeId(std::string& rest) const {
    const std::size_t equals = rest.find('=');
    const std::string digits = rest.substr(1, equals == std::string::npos ? equals : equals - 1);
    const std::optional<int> id = ReadWhole<int>(digits);
    if (equals == std::string::npos || !id) {
      Refuse("@ID=TYPE:VALUE with a 32-bit number as ID", digits);
    }
    rest.erase(0, equals + 1);
    return *id;
  }

  // Without a check, an unknown name is a type whose values are not known either.
  Type TypeOf(const std::string& name, bool is_member) {
    const Type* const known = FindType(name);
    if (known != nullptr) {
      return *known;
    }
    std::string types = KnownTypes();
    if (is_member) {
      types.resize(types.rfind(','));
    }
    Require(false, "TYPE:VALUE with one of the types " + types, name);
    unknown_name_ = name;
    return {unknown_name_.c_str(), "", Kind::kSkipped};
  }

  void ReadOne(Json::Value& argument, const Type& type) {
    argument["type"] = type.name;
    if (type.kind == Kind::kSkipped && !has_value_) {
      return;
    }
    Require(has_value_, std::string(type.name) + ":VALUE", whole_);
    argument["value"] = Checked(type, ReadScalar(type, value_), value_);
  }

  Json::Value Checked(const Type& type, Json::Value value, const std::string& text) const {
    Require(Fits(type, value), Expectation(type), text);
    return value;
  }

  void ReadVector(Json::Value& argument, const Type& type) {
    Require(type.kind != Kind::kSkipped, "a vector of a type that has values", type.name);
    Require(has_value_, std::string(type.name) + "[]:VALUE,VALUE,...", whole_);
    argument["type"] = "vector";
    argument["vec_type"] = type.name;
    Json::Value& list = argument["value"] = Json::arrayValue;
    if (value_.rfind('[', 0) == 0) {
      for (const Json::Value& element : Parsed("a JSON list", Json::arrayValue)) {
        list.append(Checked(type, element, WriteCompact(element)));
      }
      return;
    }
    for (const std::string& element : SplitAtCommas(value_)) {
      list.append(Checked(type, ReadScalar(type, element), element));
    }
  }

  Json::Value Parsed(const char* expected, Json::ValueType type) const {
    std::optional<Json::Value> parsed = ParseValue(value_);
    if (!parsed || parsed->type() != type) {
      Refuse(expected, value_);
    }
    return *parsed;
  }

  void ReadStruct(Json::Value& argument) {
    argument["type"] = kStruct;
    Json::Value& members = argument["members"] = Json::arrayValue;
    if (value_.rfind('{', 0) == 0) {
      const Json::Value object = Parsed("a JSON object of members", Json::objectValue);
      std::map<int, Json::Value> in_order;
      for (const std::string& name : object.getMemberNames()) {
        std::string id = "@" + name + "=";
        in_order[TakeId(id)] = object[name];
      }
      for (const auto& [id, member] : in_order) {
        members.append(ReadMember(id, member));
      }
      return;
    }
    for (const Json::Value& member : Parsed("a JSON list of members", Json::arrayValue)) {
      members.append(ReadMember(static_cast<int>(members.size()) + 1, member));
    }
    RequireDifferentIds(members);
  }

  Json::Value ReadMember(int id, const Json::Value& member) const {
    if (!member.isString()) {
      Refuse("\"TYPE:VALUE\" as a member", WriteCompact(member));
    }
    try {
      return TextReader(member.asString(), check_).Read(id, true);
    } catch (const BadArgument& error) {
      throw BadArgument(Quoted(whole_) + ": member " + error.what());
    }
  }

  void RequireDifferentIds(const Json::Value& members) const {
    std::set<int> ids;
    for (const Json::Value& member : members) {
      const int id = member["id"].asInt();
      Require(ids.insert(id).second, "members with different ids", "@" + std::to_string(id));
    }
  }

  const std::string whole_;
  const Check check_;
  bool has_value_ = false;
  std::string value_;  // behind the colon
  std::string unknown_name_;
};

int KeyOf(const Json::Value& argument, int position) {
  return argument["type"] == kStruct ? position : argument["id"].asInt();
}

// The finaliser of splitmix64: the standard library's distributions differ between platforms.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t Next() {
    std::uint64_t mixed = state_ += 0x9e3779b97f4a7c15U;
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
    return mixed ^ (mixed >> 31U);
  }
  std::uint64_t Below(std::uint64_t limit) { return Next() % limit; }

 private:
  std::uint64_t state_;
};

Json::Value GeneratedNumber(const Type& type, Random& random) {
  const std::uint64_t choice = random.Below(4);
  if (choice == 0) {
    return static_cast<Json::Int64>(type.least);
  }
  if (choice == 1) {
    return static_cast<Json::UInt64>(type.most);
  }
  const auto offset = type.most - static_cast<std::uint64_t>(type.least);
  const auto number = offset == UINT64_MAX ? random.Next() : random.Below(offset + 1);
  const std::uint64_t sum = static_cast<std::uint64_t>(type.least) + number;
  return type.least < 0 ? Json::Value(static_cast<Json::Int64>(sum))
                        : Json::Value(static_cast<Json::UInt64>(sum));
}

// Letters, marks that JSON escapes, and characters of two and four bytes.
std::string GeneratedText(Random& random) {
  constexpr std::array kPieces{"a", "Z", "7", " ", "\"", "\\", "/", "\n", "ä", "😀"};
  std::string text;
  for (std::uint64_t left = random.Below(12); left > 0; --left) {
    text += kPieces.at(random.Below(kPieces.size()));
  }
  return text;
}

Json::Value GeneratedValue(const Type& type, Random& random) {
  switch (type.kind) {
    case Kind::kWhole:
      return GeneratedNumber(type, random);
    case Kind::kReal:
      return (static_cast<double>(random.Below(2000001)) - 1e6) / 64;
    case Kind::kTruth:
      return random.Below(2) == 1;
    default:
      return GeneratedText(random);
  }
}

void AppendGenerated(Json::Value& list, int& id, const Type& type, bool is_vector, Random& random) {
  Json::Value argument;
  argument["id"] = id++;
  if (!is_vector) {
    argument["type"] = type.name;
    argument["value"] = GeneratedValue(type, random);
    list.append(argument);
    return;
  }
  argument["type"] = "vector";
  argument["vec_type"] = type.name;
  Json::Value& elements = argument["value"] = Json::arrayValue;
  for (std::uint64_t left = random.Below(5); left > 0; --left) {
    elements.append(GeneratedValue(type, random));
  }
  list.append(argument);
}

void AppendEachType(Json::Value& list, int id, Random& random) {
  for (const bool is_vector : {false, true}) {
    for (const Type& type : kTypes) {
      if (type.kind != Kind::kSkipped) {
        AppendGenerated(list, id, type, is_vector, random);
      }
    }
  }
}

}  // namespace

Json::Value Argument(int id, const std::string& typed_text, Check check) {
  return TextReader(typed_text, check).Read(id, false);
}

Json::Value Arguments(const std::vector<std::string>& typed_texts, Check check) {
  Json::Value args = Json::arrayValue;
  std::map<int, int> keys;  // with the number of the argument that has it
  int number = 1;
  for (const std::string& text : typed_texts) {
    const std::string here = "argument " + std::to_string(number) + " ";
    try {
      args.append(Argument(number, text, check));
    } catch (const BadArgument& error) {
      throw BadArgument(here + error.what());
    }
    const int key = KeyOf(args[args.size() - 1], number - 1);
    const auto [other, is_new] = keys.emplace(key, number);
    if (!is_new && check == Check::kStrict) {
      throw BadArgument(here + Quoted(text) + ": has the key " + std::to_string(key) +
                        " like argument " + std::to_string(other->second) +
                        "; the key is the id, or the position of a struct, counted from 0");
    }
    ++number;
  }
  return args;
}

Json::Value GeneratedArguments(std::uint64_t seed) {
  Random random(seed);
  Json::Value members = Json::arrayValue;
  AppendEachType(members, 1, random);
  Json::Value first;
  first["id"] = 1;
  first["type"] = kStruct;
  first["members"] = members;
  Json::Value args = Json::arrayValue;
  args.append(first);
  AppendEachType(args, 2, random);
  return args;
}

}  // namespace orvd
