// The messages of the stress test's Manager, and the answers that it expects.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace soak {

// A message and the expected answer, both as compact JSON.
struct Exchange {
  std::string message;
  std::string answer;
};

// Makes random messages; the seed determines them. Not thread-safe.
class Messages {
 public:
  explicit Messages(unsigned seed) : random_(seed) {}

  uint32_t Number(uint32_t low, uint32_t high);  // both are included
  bool OneIn(uint32_t n) { return Number(1, n) == 1; }
  std::vector<uint32_t> Subsystems();  // at least one, in ascending order
  Exchange Task(uint32_t session_id, uint32_t ssid, int32_t transac_id);
  std::string Notification(uint32_t session_id);

 private:
  Json::Value Scalar(std::size_t type);
  Json::Value Integer(int bits, bool is_signed);
  Json::Value Double();
  Json::Value Text();
  Json::Value Vector(std::size_t type, uint32_t longest);
  Json::Value Argument(int id, uint32_t longest_vector);
  Json::Value Struct();
  Json::Value Arguments();

  std::mt19937_64 random_;
};

Exchange Start(uint32_t session_id, const std::vector<uint32_t>& ssids);
std::string Ready(uint32_t session_id, const std::vector<uint32_t>& ssids);
// Without subsystems the message ends the whole session.
Exchange End(uint32_t session_id, const std::vector<uint32_t>& ssids);

// The answers to the service's queries.
std::string AnswerPermissions(const std::string& query);
std::string AnswerInfos(const std::string& query);

}  // namespace soak
