// Members of a message by paths like "opcodes[].subsystems[].id".

#pragma once

#include <json/value.h>

#include <optional>
#include <string>

// The member, or null; of lists, the first element that has it.
Json::Value* FindMemberAt(Json::Value& object, const std::string& path);

// `message` with this JSON as the member, or without the member.
std::string WithMember(const std::string& message, const std::string& path,
                       const std::optional<std::string>& json);
