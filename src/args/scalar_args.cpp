// The walk over the arguments of a task.

#include "args/arg_types.h"
#include "args/type_names.h"
#include "link/json_members.h"
#include "orvex_args.h"

namespace {

constexpr PathWording kWording{"Arg type %s and type of value do not match while parsing",
                               "Out of range value for %s"};

int AddScalar(const Json::Value& value, orvex_data_type_t type, const std::string& type_name,
              int key, orvex_func_call_info_t* info) {
  // Without values: "none", unknown names, "cb".
  constexpr int kSkipped = 0;
  return VisitArgType(type, kSkipped, [&](auto row) {
    const auto holder = ReadHolder(row, value, type_name, kWording);
    if (!holder) {
      return -1;
    }
    QueueInsertion(info, key, holder, type);
    value_QueueInsertion(info, key, holder);
    return 0;
  });
}

int AddVector(Json::Value& arg, int position, int key, orvex_func_call_info_t* info) {
  if (!arg["value"].isArray()) {
    LOG_AT(kAlways, kWording.mismatch, "vector");
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
      return AddScalar(std::as_const(arg)["value"], type, type_name, key, info);
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
    LOG_AT(kAlways, "Num of args and size of arg array do not match while parsing");
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
