#include "docs/member_path.h"

#include <regex>

#include "json_text.h"

Json::Value* FindMemberAt(Json::Value& object, const std::string& path) {
  const size_t end = path.find_first_of(".[");
  const std::string name = path.substr(0, end);
  if (!object.isObject() || !object.isMember(name)) {
    return nullptr;
  }
  Json::Value& member = object[name];
  if (end == std::string::npos) {
    return &member;
  }
  if (path[end] == '.') {
    return FindMemberAt(member, path.substr(end + 1));
  }
  for (Json::Value& element : member) {
    Json::Value* found =
        end + 2 == path.size() ? &element : FindMemberAt(element, path.substr(end + sizeof("[]")));
    if (found != nullptr) {
      return found;
    }
  }
  return nullptr;
}

std::string WithMember(const std::string& message, const std::string& path,
                       const std::optional<std::string>& json) {
  const std::string mark = "\"@\"";
  Json::Value object = orvd::ParseObject(message);
  *FindMemberAt(object, path) = "@";
  std::string text = orvd::WriteCompact(object);
  return json ? text.replace(text.find(mark), mark.size(), *json)
              : std::regex_replace(text, std::regex(R"("\w+":"@",|,?"\w+":"@")"), "");
}
