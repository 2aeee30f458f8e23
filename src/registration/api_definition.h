// The blob that describes one API of the service: marker, version byte, JSON text.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the library reads of the JSON; the rest is the Manager's business.
struct ApiDefinition {
  std::string opcode;  // hexadecimal text
  std::vector<uint32_t> subsystems;
};

struct ApiBlob {
  unsigned char version;
  const char* json;  // meaningful only when the version is the accepted one
};

ApiBlob SplitApiBlob(const char* api_def);
bool IsAcceptedVersion(unsigned char version);

// Reads the definition; on failure leaves a text for the log in `error`. Throws nothing of the JSON
// library. A jsoncpp built without exceptions aborts when a thousand levels are nested, and on
// nothing else.
std::optional<ApiDefinition> ParseApiDefinition(const char* json, std::string& error);
