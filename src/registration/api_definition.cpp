#include "registration/api_definition.h"

#include <json/reader.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "IOrvdClient.h"
#include "link/json_members.h"

const uint8_t ORVD_JSON_DEF_VER_ARR[1] = {2};

namespace {

constexpr std::string_view kMarker = "\x01ORVEX\x01";

bool ParseObject(const char* json, Json::Value& root, std::string& error) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(json, json + strlen(json), &root, &error)) {
    return false;
  }
  if (!root.isObject()) {
    error = "The definition is not an object";
    return false;
  }
  return true;
}

ApiDefinition ReadMembers(const Json::Value& orvex) {
  ApiDefinition definition;
  definition.opcode = TextMember(orvex, "opcode", "0");
  for (const Json::Value& subsystem : ListMember(orvex, "subsystems")) {
    definition.subsystems.push_back(UintMember(subsystem, "id"));
  }
  return definition;
}

// A member that is missing stands for an empty one; any other kind than the meant one is an error.
bool HasMembersOfRightKind(const Json::Value& root) {
  const Json::Value* orvex = FindMember(root, "Orvex");
  if (orvex == nullptr) {
    return true;
  }
  if (!orvex->isObject()) {
    return false;
  }
  const Json::Value* subsystems = FindMember(*orvex, "subsystems");
  return subsystems == nullptr ||
         (subsystems->isArray() &&
          std::all_of(subsystems->begin(), subsystems->end(),
                      [](const Json::Value& subsystem) { return subsystem.isObject(); }));
}

}  // namespace

// Deliberate: a marker that is cut short, or missing, is skipped as far as it goes; what decides is
// the version byte behind it.
ApiBlob SplitApiBlob(const char* api_def) {
  size_t i = 0;
  while (i < kMarker.size() && api_def[i] == kMarker[i]) {
    ++i;
  }
  return {static_cast<unsigned char>(api_def[i]), api_def + i + 1};
}

bool IsAcceptedVersion(unsigned char version) {
  return version == ORVD_JSON_DEF_VER_ARR[0];
}

std::optional<ApiDefinition> ParseApiDefinition(const char* json, std::string& error) {
  try {
    Json::Value root;
    if (!ParseObject(json, root, error)) {
      return std::nullopt;
    }
    if (!HasMembersOfRightKind(root)) {
      error = "The definition has members of the wrong kind";
      return std::nullopt;
    }
    return ReadMembers(root["Orvex"]);
  } catch (const Json::Exception& exception) {
    error = exception.what();
    return std::nullopt;
  }
}
