#include "args/scalar_args.h"

namespace orvd_client {

int AddScalarParam(const Json::Value& value, orvex_data_type_t type, const std::string& type_name,
                   int key, orvex_func_call_info_t* info) {
  constexpr int kSkipped = 0;
  return VisitDataType(type, kSkipped, [&](const auto& row) {
    const auto holder = ReadHolder(row, value, type_name, kArgumentTexts);
    if (!holder) {
      return -1;
    }
    QueueInsertion(info, key, holder, type);
    value_QueueInsertion(info, key, holder);
    return 0;
  });
}

}  // namespace orvd_client
