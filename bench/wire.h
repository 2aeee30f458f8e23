// What the driver and the services of the benchmark agree on.
//
// A task whose function name begins with a command below is the driver's order to the service; any
// other task is a measured one, named after the shape of its arguments.

#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace bench {

inline constexpr uint32_t kOpcode = 0xa001;
inline constexpr uint32_t kSubsystems = 64;  // ids 1 to 64
inline constexpr int kServiceId = 7;

// "ask ITEMS COUNT": ask the Manager COUNT times for ITEMS permissions, one query after another.
// "offer FIRST COUNT": register and ready COUNT opcodes from FIRST on.
struct Command {
  std::string what;
  uint32_t first;
  uint32_t count;
};

inline Command ParseCommand(const std::string& function_name) {
  Command command{};
  if (function_name.find(' ') != std::string::npos) {
    std::istringstream(function_name) >> command.what >> command.first >> command.count;
  }
  return command;
}

inline std::vector<std::string> Permissions(uint32_t items) {
  std::vector<std::string> permissions;
  for (uint32_t i = 0; i < items; ++i) {
    permissions.push_back("vendor.permission.number_" + std::to_string(i));
  }
  return permissions;
}

// As the service hands it over: version 2, with the blob's header.
inline std::string Definition(uint32_t opcode, uint32_t subsystems) {
  std::string list;
  for (uint32_t ssid = 1; ssid <= subsystems; ++ssid) {
    list += (ssid == 1 ? R"({"id":)" : R"(,{"id":)") + std::to_string(ssid) + "}";
  }
  char hex[16] = "";
  static_cast<void>(snprintf(hex, sizeof(hex), "0x%08x", opcode));
  return std::string("\x01ORVEX\x01\x02") + R"({"Orvex":{"opcode":")" + hex +
         R"(","subsystems":[)" + list + "]}}";
}

inline constexpr const char* kToken = "a token of some length";

}  // namespace bench
