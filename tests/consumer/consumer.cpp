// Uses the installed library in each of the ways that need something of it: C and C++ linkage, the
// JSON library's types, value holders.

#include <IOrvdClient.h>
#include <json/json.h>

#include <cstdio>
#include <string>

namespace {

bool Decodes() {
  Json::Value request;
  Json::Value arg;
  arg["id"] = 3;
  arg["type"] = "uint32";
  arg["value"] = 4000000000U;
  request["func"]["num_of_args"] = 1;
  request["func"]["args"].append(arg);
  orvex_func_call_info_t info{};
  if (AddParamsToQueues(request, &info) != 0) {
    return false;
  }
  const auto& holder = static_cast<const ParamValues<uint32_t>&>(*info.value_queue->at(3));
  const bool right = holder.value == 4000000000U;
  ClearParamsFromQueues(info);
  return right;
}

}  // namespace

int main() {
  std::string text;
  orvex_bool_to_string(true, &text);
  const bool right = Decodes() && orvd_svc_deinit(1) == -3 && text == "true";
  puts(right ? "the installed library works" : "the installed library does not work");
  return right ? 0 : 1;
}
