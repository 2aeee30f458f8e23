// The arguments of one task: data types, holders (objects that contain one value), the two "queues"
// (maps from a key to a holder), and the decoders that fill the queues.

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

// The type codes of arguments, with the name of each type in messages. The queues never contain
// ORVEX_VECTOR: a vector has the code ORVEX_VECTOR_OF(element type), which is 17 to 29.
enum orvex_data_type_t : int32_t {
  ORVEX_NONE = 0,       // "none" and every unknown name; gets no entry in the queues
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
  ORVEX_ENUM = 12,      // "enum"
  ORVEX_BNRY_BLB = 13,  // "bnry_blb"; a text, stored as it was received
  ORVEX_CB = 14,        // "cb"; gets no entry in the queues
  ORVEX_VECTOR = 15,    // "vector"
  ORVEX_STRUCT = 16,    // "struct"
};

// Returns the type code of a vector whose elements have the type `element`.
constexpr orvex_data_type_t ORVEX_VECTOR_OF(orvex_data_type_t element) {
  return static_cast<orvex_data_type_t>(ORVEX_STRUCT + element);
}

// The base of all holders. A holder contains one value.
// Make holders only with std::make_shared<ParamValues<T>>: the shared pointer then destroys the
// whole object, although there is no virtual destructor.
struct ValuesInterface {
  uint32_t reserved;  // 0
};

// The holder of a value of type T. The holder does not store what T is. The type code beside it in
// the typed queue determines T: see the table at orvex_func_call_info_t.
template <typename T>
struct ParamValues : ValuesInterface {
  // Makes a holder of `initial`.
  explicit ParamValues(T initial) : ValuesInterface{}, value(std::move(initial)) {}
  T value;  // the value
};

// Keys and holders.
using orvex_value_map_t = std::map<int, std::shared_ptr<ValuesInterface>>;
// Keys, type codes and holders.
using orvex_typed_map_t =
    std::map<int, std::pair<orvex_data_type_t, std::shared_ptr<ValuesInterface>>>;

// The decoded arguments of one task.
//
// An entry of the queues has a key. For a struct the key is its position in the argument list,
// counted from 0. For every other argument it is the "id" of the argument. If two arguments have
// the same key, the first stays and the other is dropped. An argument of the type "none" or
// "cb" has no entry. If there is no entry at all, `value_queue` and `typed_queue` are null.
//
// Both queues have an entry for the same keys. The type code in `typed_queue` determines the type
// of the holder:
//
//   1 to 13   one value: ParamValues<T>
//   17 to 29  a vector: ParamValues<std::vector<T>>
//   16        a struct: ParamValues<orvex_typed_map_t*> in `typed_queue`
//             and ParamValues<orvex_value_map_t*> in `value_queue`
//
// T depends on the type code:
//
//   1, 17   uint8_t
//   2, 18   uint16_t
//   3, 19   uint32_t
//   4, 20   uint64_t
//   5, 21   int8_t
//   6, 22   int16_t
//   7, 23   int32_t
//   8, 24   int64_t
//   9, 25   double
//   10, 26  std::string
//   11, 27  bool
//   12, 28  int32_t (enum)
//   13, 29  std::string (bnry_blb)
//
// The two maps of a struct are its member maps. The keys in them are the "id" of the members. A
// member is one value or a vector. A struct inside a struct is skipped.
//
// The service owns the member maps. The library never deletes them. A task function must delete
// both maps of every struct that it receives. No task function receives the maps in these cases,
// and their memory leaks:
//
//   a scalar member of the struct is refused  the maps of this struct
//   a later argument of the task is refused   the maps of all structs before it
//   the key of the struct is already taken    the maps of this struct
//
// A vector member that does not fit is left out, and the task runs without it. But if the "value"
// of a vector member is an object that is not empty, the decoder throws an exception. On the
// receive thread this exception ends the whole process. See "Decoders" below.
struct orvex_func_call_info_t {
  std::string func_name;           // the name of the function; empty if the message has none
  int32_t num_of_args;             // the number of arguments in the message, with skipped ones
  orvex_value_map_t* value_queue;  // keys and holders
  orvex_typed_map_t* typed_queue;  // keys, type codes and holders
};

// --- Queue functions
// These functions are not thread-safe: use a record on one thread at a time.

// Adds `type` and `value` to the typed queue with the key `key`. Makes the queue if there is none.
// Does nothing if the key is already there or if `info` is null.
ORVD_EXPORT void QueueInsertion(orvex_func_call_info_t* info, int key,
                                std::shared_ptr<ValuesInterface> value, orvex_data_type_t type);

// The same for the value queue.
ORVD_EXPORT void value_QueueInsertion(orvex_func_call_info_t* info, int key,
                                      std::shared_ptr<ValuesInterface> value);

// Deletes both queues, but not the member maps of structs. `info` is a copy: the pointers in the
// caller's record are invalid after the call.
// Call it only for a record that the caller has filled. Do not call it with the arguments of a task
// function: the library deletes their queues.
ORVD_EXPORT void ClearParamsFromQueues(orvex_func_call_info_t info);

// --- Decoders
// The library calls the decoders on the receive thread. A service may call them on any thread, with
// a record that no other thread uses.
//
// A decoder refuses a value that does not fit its type. It then writes one log line, at every debug
// level, and returns -1. Otherwise it returns 0. AddStructVectorParams
// returns -1 without a log line in one case, see its comment.
//
// A decoder throws an exception of the JSON library if one of these members has a wrong JSON type.
// The second column lists the wrong types:
//
//   "func", an argument, a struct member  every type except object and null
//   "name", "type", "vec_type"            a list or an object
//   "id", "num_of_args"                   a text, a list, an object, or a number beyond 32 bits
//
// Some members must be lists. The next table says what a decoder does if such a member is missing
// or is not a list. "Scalar" means a text, a number, a boolean or null.
//
//   "args"                        missing, scalar or empty object: read as an empty list
//                                 object whose number of members equals "num_of_args": throws
//                                 any other object: refused
//   "value" of a vector argument  missing, scalar or object: refused by AddParamsToQueues
//   "members" of a struct         missing, scalar or object: refused
//   "value" of a vector member    missing, scalar or empty object: read as an empty vector
//                                 other object: throws
//
// An exception on the receive thread ends the process. A JSON library that is built without
// exceptions aborts instead of throwing.

// Decodes "func" of a whole "exec_task" message into `info`. Refuses a list whose size is not
// "num_of_args".
// Resets `info` first, without deleting its queues. After -1 the arguments before the refused one
// are in the queues, and the caller must clear them.
ORVD_EXPORT int AddParamsToQueues(Json::Value& request, orvex_func_call_info_t* info);

// Decodes one vector argument and adds it with the key `key`. Refuses the vector if "vec_type" is
// missing or "none". If "vec_type" has any other value that cannot be an element type, for example
// "struct" or an unknown name, the function adds nothing and returns 0. AddParamsToQueues checks
// that "value" is a list. This function does not check it. If "value" is missing, a scalar or an
// empty object, AddVectorParams reads it as an empty vector. If "value" is an object that is not
// empty, AddVectorParams throws.
ORVD_EXPORT int AddVectorParams(Json::Value& arg, int ignored, int key,
                                orvex_func_call_info_t* info);

// Decodes the struct argument at `position` of the argument list of the message `request`.
// A vector member that AddStructVectorParams refuses is left out, and the call still succeeds. A
// scalar member that does not fit is refused, and so is the struct.
ORVD_EXPORT int AddStructParams(Json::Value& request, int position, orvex_func_call_info_t* info);

// Decodes one vector member of a struct and adds it to both member maps with the key `key`.
// Returns -1 without a log line if "vec_type" is missing or "none". If "vec_type" has any other
// value that cannot be an element type, for example "struct" or an unknown name, the function adds
// nothing and returns 0.
ORVD_EXPORT int AddStructVectorParams(Json::Value& member, int ignored, int key,
                                      orvex_typed_map_t* typed_members,
                                      orvex_value_map_t* member_values);
