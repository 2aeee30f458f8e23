// What the Manager of the soak says, and the answers that it expects.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace soak {

// A message, and the answer to it as compact JSON.
struct Exchange {
  std::string message;
  std::string answer;
};

// Random but reproducible; belongs to one thread.
class Messages {
 public:
  explicit Messages(unsigned seed) : random_(seed) {}

  uint32_t Number(uint32_t low, uint32_t high);  // both included
  bool OneIn(uint32_t n) { return Number(1, n) == 1; }
  std::vector<uint32_t> Subsystems();  // one at least, ascending
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
// Without subsystems the whole session ends.
Exchange End(uint32_t session_id, const std::vector<uint32_t>& ssids);

// The answers to the service's questions.
std::string AnswerPermissions(const std::string& question);
std::string AnswerInfos(const std::string& question);

}  // namespace soak
