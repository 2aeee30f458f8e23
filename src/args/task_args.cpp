// Decodes all arguments of a task.

#include <utility>

#include "args/scalar_value.h"
#include "args/type_names.h"
#include "base/json_members.h"
#include "orvex_args.h"

using namespace orvd_client;

namespace {

constexpr DecoderTexts kArgumentTexts{"Arg type %s and type of value do not match while parsing",
                                      "Out of range value for %s"};

int AddVector(Json::Value& arg, int position, int key, orvex_func_call_info_t* info) {
  if (!arg["value"].isArray()) {
    LOG_AT(kEveryLevel, kArgumentTexts.mismatch, "vector");
    return -1;
  }
  return AddVectorParams(arg, position, key, info);
}

int AddArgument(Json::Value& request, Json::Value& arg, int position,
                orvex_func_call_info_t* info) {
  const int key = IntMember(arg, "id", 0);
  const std::string type_name = TextMember(arg, "type", "");
  const orvex_data_type_t type = TypeOfName(type_name);
  switch (type) {
    case ORVEX_VECTOR:
      return AddVector(arg, position, key, info);
    case ORVEX_STRUCT:
      return AddStructParams(request, position, info);
    default:
      return DecodeScalar(std::as_const(arg)["value"], type, type_name, kArgumentTexts,
                          [&](const std::shared_ptr<ValuesInterface>& holder) {
                            QueueInsertion(info, key, holder, type);
                            value_QueueInsertion(info, key, holder);
                          });
  }
}

}  // namespace

int AddParamsToQueues(Json::Value& request, orvex_func_call_info_t* info) {
  *info = {};
  Json::Value& func = request["func"];
  info->func_name = TextMember(func, "name", "");
  info->num_of_args = IntMember(func, "num_of_args", 0);
  Json::Value& args = func["args"];
  if (static_cast<int64_t>(args.size()) != info->num_of_args) {
    LOG_AT(kEveryLevel, "Num of args and size of arg array do not match while parsing");
    return -1;
  }
  AsList(args);
  int position = 0;
  for (Json::Value& arg : args) {
    if (AddArgument(request, arg, position++, info) != 0) {
      return -1;
    }
  }
  return 0;
}
