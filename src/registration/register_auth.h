// AUTH: registers an opcode with its API definition and a token.

#pragma once

#include <json/value.h>

#include <condition_variable>
#include <cstdint>
#include <memory>

namespace orvd_client {

// One opcode whose registration waits for the Manager's answer.
struct RegsAuthMetaData {
  std::shared_ptr<int32_t> status;
  std::shared_ptr<std::condition_variable> cv;
  std::shared_ptr<bool> received;
};

// Handles the Manager's answer to a registration with a token.
void HandleAuthAnswer(const Json::Value& message);
// Handles the answer to a registration without a token. The library no longer sends such requests.
void HandlePlainRegistrationAnswer(const Json::Value& message);

}  // namespace orvd_client
