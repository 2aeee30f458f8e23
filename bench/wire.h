// Constants and messages that the driver and the services of the benchmark share.
//
// When the function name of a task is a command (see below), the service executes the command. The
// other tasks are measured. Their function name is the shape of their arguments.

#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace bench {

inline constexpr uint32_t kOpcode = 0xa001;
inline constexpr uint32_t kSubsystems = 64;  // their ids are 1 to 64
inline constexpr int kServiceId = 7;

// "ask ITEMS COUNT": the service sends COUNT permission queries of ITEMS items, one after another.
// "offer FIRST COUNT": the service registers COUNT opcodes from FIRST on, and makes them ready.
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

// An API definition as a service passes it to the library: header, version 2, JSON.
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

// What the layer's service and the raw service answer: the sum of all values of the arguments.
template <typename... T>
int64_t Sum(T... values) {
  return (static_cast<int64_t>(values) + ...);
}
inline constexpr int kMembers = 50;  // of the struct that they read

inline constexpr const char* kToken = "a token of some length";

}  // namespace bench
