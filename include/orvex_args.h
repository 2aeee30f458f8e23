// The arguments of one task: data types, value holders, the two queues, and the decoders that fill
// them.

#pragma once

#include <json/forwards.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#ifndef ORVD_EXPORT
#define ORVD_EXPORT __attribute__((visibility("default")))
#endif

// The type of an argument. Its name in a message stands beside it. A vector is queued under
// ORVEX_VECTOR_OF(element type), 17 to 29, never under ORVEX_VECTOR.
enum orvex_data_type_t : int32_t {
  ORVEX_NONE = 0,       // "none", and every unknown name: skipped
  ORVEX_UINT8 = 1,      // "uint8"
  ORVEX_UINT16 = 2,     // "uint16"
  ORVEX_UINT32 = 3,     // "uint32"
  ORVEX_UINT64 = 4,     // "uint64"
  ORVEX_INT8 = 5,       // "int8"
  ORVEX_INT16 = 6,      // "int16"
  ORVEX_INT32 = 7,      // "int32"
  ORVEX_INT64 = 8,      // "int64"
  ORVEX_DOUBLE = 9,     // "double"
  ORVEX_STRING = 10,    // "string"
  ORVEX_BOOLEAN = 11,   // "boolean"
  ORVEX_ENUM = 12,      // "enum", held as int32_t
  ORVEX_BNRY_BLB = 13,  // "bnry_blb", held as the text it came as
  ORVEX_CB = 14,        // "cb": skipped
  ORVEX_VECTOR = 15,    // "vector"
  ORVEX_STRUCT = 16,    // "struct"
};

// The type under which a vector of `element` is queued.
constexpr orvex_data_type_t ORVEX_VECTOR_OF(orvex_data_type_t element) {
  return static_cast<orvex_data_type_t>(ORVEX_STRUCT + element);
}

// Holds one value. Made only by std::make_shared<ParamValues<T>>, so that the last reference
// destroys the whole object although there is no virtual destructor.
struct ValuesInterface {
  uint32_t reserved;  // 0
};

// The holder of a value of type T. Which T it is, only the type beside it in the typed queue says.
template <typename T>
struct ParamValues : ValuesInterface {
  // Holds `initial`.
  explicit ParamValues(T initial) : ValuesInterface{}, value(std::move(initial)) {}
  T value;  // the argument
};

// Holders by key.
using orvex_value_map_t = std::map<int, std::shared_ptr<ValuesInterface>>;
// Types and holders by key.
using orvex_typed_map_t =
    std::map<int, std::pair<orvex_data_type_t, std::shared_ptr<ValuesInterface>>>;

// The decoded arguments of one task.
//
// Key: the argument's "id"; for a struct its position in the list, counted from 0. Where two
// arguments have one key, the first stays and the other is dropped. Skipped arguments have no
// entry; with no entry at all both pointers are null. Holder of an entry, by its type in
// `typed_queue`:
//
//   1 to 13       ParamValues<T> of the type above
//   17 to 29      ParamValues<std::vector<T>> of the type less 16
//   16 (struct)   ParamValues<orvex_typed_map_t*> in `typed_queue`, and
//                 ParamValues<orvex_value_map_t*> in `value_queue`
//
// The maps of a struct hold its members by their "id", and belong to the service: the library never
// deletes them, so whoever gets a struct deletes both. When a later argument of the list is
// refused, or the key is taken, the maps of a struct decoded before are lost.
struct orvex_func_call_info_t {
  std::string func_name;           // the function's name; empty when the message has none
  int32_t num_of_args;             // as many as the list has, skipped ones too
  orvex_value_map_t* value_queue;  // holders
  orvex_typed_map_t* typed_queue;  // types and holders
};

// --- Queue functions
// Not synchronised: a record belongs to one thread at a time.

// Adds (type, value) under `key` to the typed queue, making the queue if there is none. Keeps what
// is already under `key`. Does nothing when `info` is null.
ORVD_EXPORT void QueueInsertion(orvex_func_call_info_t* info, int key,
                                std::shared_ptr<ValuesInterface> value, orvex_data_type_t type);

// The same for the value queue.
ORVD_EXPORT void value_QueueInsertion(orvex_func_call_info_t* info, int key,
                                      std::shared_ptr<ValuesInterface> value);

// Deletes both queues, not the member maps of structs. `info` is a copy: the caller's pointers
// dangle. For records that the caller has filled itself. Never call it with the arguments that a
// task function was given: the library deletes their queues when the function has returned.
ORVD_EXPORT void ClearParamsFromQueues(orvex_func_call_info_t info);

// --- Decoders
// The library calls them on the receive thread; they may be called from any thread, each with
// its own record. They return 0, or -1 after one log line that says why, always written. A
// scalar in the place of a list is an empty list. They throw the JSON library's exceptions for
// any other value of the wrong kind outside of "value" (a list or an object for a text or a
// number, a text for a number, a scalar for an object, an object for a list) and for an "id" or
// "num_of_args" beyond 32 bits; on the receive thread such an exception ends the process. A JSON
// library that is built without exceptions aborts instead.

// Decodes "func" of a whole "exec_task" message into `info`, which it resets first (old queues are
// not deleted). After -1 the arguments before the refused one are still queued; the caller clears
// them.
ORVD_EXPORT int AddParamsToQueues(Json::Value& request, orvex_func_call_info_t* info);

// Decodes one vector argument under `key`. 0 with nothing queued when "vec_type" names no element
// type; -1 after a log line when it is missing or "none".
ORVD_EXPORT int AddVectorParams(Json::Value& arg, int ignored, int key,
                                orvex_func_call_info_t* info);

// Decodes the struct argument at `position` of the message's argument list.
ORVD_EXPORT int AddStructParams(Json::Value& request, int position, orvex_func_call_info_t* info);

// Decodes one vector member of a struct under `key` into the two member maps. A missing "vec_type"
// returns -1 without a log line.
ORVD_EXPORT int AddStructVectorParams(Json::Value& member, int ignored, int key,
                                      orvex_typed_map_t* typed_members,
                                      orvex_value_map_t* member_values);
