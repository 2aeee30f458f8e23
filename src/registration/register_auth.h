#pragma once

#include <json/value.h>

#include <condition_variable>
#include <cstdint>
#include <memory>

// One opcode whose registration waits for the Manager's verdict.
struct RegsAuthMetaData {
  std::shared_ptr<int32_t> status;
  std::shared_ptr<std::condition_variable> cv;
  std::shared_ptr<bool> received;
};

// The Manager's verdict on a registration with token.
void HandleAuthAnswer(const Json::Value& message);
// The same for registrations without token, of which there are none left.
void HandlePlainRegistrationAnswer(const Json::Value& message);
