#include "args/vector_elements.h"
#include "orvex_args.h"

using namespace orvd_client;

int AddVectorParams(Json::Value& arg, int /*ignored*/, int key, orvex_func_call_info_t* info) {
  const std::string type_name = ElementTypeName(arg);
  if (type_name == kNoElementType) {
    LOG_AT(kEveryLevel, "Json tag 'vec_type' is missing");
    return -1;
  }
  return DecodeVector(arg, type_name, [&](orvex_data_type_t type, const auto& holder) {
    QueueInsertion(info, key, holder, type);
    value_QueueInsertion(info, key, holder);
  });
}
