#include "registration/api_definition.h"

#include <json/reader.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include "IOrvdClient.h"
#include "base/json_members.h"

using namespace orvd_client;

const uint8_t ORVD_JSON_DEF_VER_ARR[1] = {2};

namespace {

constexpr std::string_view kMarker = "\x01ORVEX\x01";

// The parser throws at a thousand nested levels. Deliberate: this catches std::exception instead of
// Json::Exception, because a jsoncpp that is built without exceptions does not define that type.
bool ParseObject(const char* json, Json::Value& root, std::string& error) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    if (!reader->parse(json, json + strlen(json), &root, &error)) {
      return false;
    }
  } catch (const std::exception& exception) {
    error = exception.what();
    return false;
  }
  if (!root.isObject()) {
    error = "The definition is not an object";
    return false;
  }
  return true;
}

bool IsSubsystem(const Json::Value& element) {
  return element.isObject() && element["id"].isConvertibleTo(Json::uintValue);
}

// Returns whether ReadMembers can read every member. A missing member and null count as empty. The
// kinds are tested first, because a jsoncpp that is built without exceptions aborts on a wrong
// kind.
bool HasMembersOfRightKind(const Json::Value& orvex) {
  if (!orvex.isObject() && !orvex.isNull()) {
    return false;
  }
  const Json::Value& subsystems = orvex["subsystems"];
  return orvex["opcode"].isConvertibleTo(Json::stringValue) &&
         (subsystems.isArray() || subsystems.isNull()) &&
         std::all_of(subsystems.begin(), subsystems.end(), IsSubsystem);
}

ApiDefinition ReadMembers(const Json::Value& orvex) {
  ApiDefinition definition;
  definition.opcode = TextMember(orvex, "opcode", "0");
  for (const Json::Value& subsystem : orvex["subsystems"]) {
    definition.subsystems.push_back(UintMember(subsystem, "id"));
  }
  return definition;
}

}  // namespace

// Deliberate: the marker may be incomplete or missing. The version byte is the first byte that does
// not continue the marker. Services may have such definitions.
ApiBlob orvd_client::SplitApiBlob(const char* api_def) {
  size_t i = 0;
  while (i < kMarker.size() && api_def[i] == kMarker[i]) {
    ++i;
  }
  return {static_cast<unsigned char>(api_def[i]), api_def + i + 1};
}

bool orvd_client::IsAcceptedVersion(unsigned char version) {
  return version == ORVD_JSON_DEF_VER_ARR[0];
}

std::optional<ApiDefinition> orvd_client::ParseApiDefinition(const char* json, std::string& error) {
  Json::Value root;
  if (!ParseObject(json, root, error)) {
    return std::nullopt;
  }
  const Json::Value& orvex = std::as_const(root)["Orvex"];
  if (!HasMembersOfRightKind(orvex)) {
    error = "The definition has members of the wrong kind";
    return std::nullopt;
  }
  return ReadMembers(orvex);
}
