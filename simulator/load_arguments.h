// The generated arguments of `orvd-sim load`. They follow from a seed, which is an argument itself.
// So a service can make them again and compare. tools/checking_service.cpp does this.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace orvd {

inline constexpr int kSeedKey = 1000;             // the key of the seed, a "uint32"
inline constexpr std::uint32_t kLoadSeeds = 256;  // the seeds are the numbers below

// The list "args". Every fourth seed gives a struct, a value and a vector of each type; the others
// give one of these.
Json::Value LoadArguments(std::uint32_t seed);

// Appends one argument to the text of all arguments. `type` is the code of the type as in the table
// of docs/PROTOCOL.md, `value` one value or a list.
void AppendArgument(std::string& text, int key, int type, const Json::Value& value);
// The text of a list "args": its arguments and those of its struct, in the order of the keys.
std::string ArgumentsText(const Json::Value& args);

std::uint64_t Checksum(const std::string& text);

}  // namespace orvd
