// The API definition that a service registers: marker, version byte, JSON text.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvd_client {

// The members that the library reads. The Manager reads the others.
struct ApiDefinition {
  std::string opcode;  // hexadecimal text
  std::vector<uint32_t> subsystems;
};

struct ApiBlob {
  unsigned char version;
  const char* json;  // valid only if the version is accepted
};

ApiBlob SplitApiBlob(const char* api_def);
bool IsAcceptedVersion(unsigned char version);

// Reads the definition. On failure it stores a text for the log in `error`. No exception of jsoncpp
// leaves this function. A jsoncpp that is built without exceptions aborts at a thousand nested
// levels, and in no other case.
std::optional<ApiDefinition> ParseApiDefinition(const char* json, std::string& error);

}  // namespace orvd_client
