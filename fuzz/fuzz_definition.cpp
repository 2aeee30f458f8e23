// An API definition that a service hands in. Whatever it is, no exception comes back, and nothing is
// read as a kind that it is not.

#include <json/value.h>

#include "IOrvdClient.h"
#include "harness.h"

// In place of jsoncpp's own, which throws: ends the process, as a jsoncpp without exceptions does.
__attribute__((visibility("default"))) void Json::throwLogicError(const String& msg) {
  Require(false, msg.c_str());
  abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ResetService();
  MakeSendsFail(true);  // or the call would wait for the Manager
  const std::string blob(reinterpret_cast<const char*>(data), size);
  const int result = _orvd_svc_register_auth(7, kOpcode, blob.c_str(), "t");
  Require(result == -1 || result == -2, "result");
  CheckService();
  return 0;
}
