#include "orvex_args.h"

// The keys of a message usually ascend. So each insertion first tries the end of the queue.

void QueueInsertion(orvex_func_call_info_t* info, int key, std::shared_ptr<ValuesInterface> value,
                    orvex_data_type_t type) {
  if (info == nullptr) {
    return;
  }
  if (info->typed_queue == nullptr) {
    info->typed_queue = new orvex_typed_map_t;
  }
  info->typed_queue->try_emplace(info->typed_queue->end(), key, type, std::move(value));
}

void value_QueueInsertion(orvex_func_call_info_t* info, int key,
                          std::shared_ptr<ValuesInterface> value) {
  if (info == nullptr) {
    return;
  }
  if (info->value_queue == nullptr) {
    info->value_queue = new orvex_value_map_t;
  }
  info->value_queue->try_emplace(info->value_queue->end(), key, std::move(value));
}

void ClearParamsFromQueues(orvex_func_call_info_t info) {
  delete info.value_queue;
  delete info.typed_queue;
}
