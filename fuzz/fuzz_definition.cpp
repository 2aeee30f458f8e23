// Registers any text as an API definition. The call must not throw and must not read a JSON value
// as another kind.

#include <json/value.h>

#include "harness.h"

// Replaces jsoncpp's function, which throws. A jsoncpp without exceptions ends the process too.
__attribute__((visibility("default"))) void Json::throwLogicError(const String& msg) {
  Require(false, msg.c_str());
  abort();
}

void TryInput(const std::string& input) {
  sends_fail = true;  // otherwise the call would wait for the Manager
  const int result = _orvd_svc_register_auth(kServiceId, kOpcode, input.c_str(), "t");
  Require(result == -1 || result == -2, "result");
}
