#include "args/type_names.h"

#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "link/mutex.h"
#include "link/never_destroyed.h"

namespace {

using TypeName = std::pair<std::string_view, orvex_data_type_t>;

constexpr TypeName kKnownTypes[] = {
    {"none", ORVEX_NONE},     {"uint8", ORVEX_UINT8},       {"uint16", ORVEX_UINT16},
    {"uint32", ORVEX_UINT32}, {"uint64", ORVEX_UINT64},     {"int8", ORVEX_INT8},
    {"int16", ORVEX_INT16},   {"int32", ORVEX_INT32},       {"int64", ORVEX_INT64},
    {"double", ORVEX_DOUBLE}, {"string", ORVEX_STRING},     {"boolean", ORVEX_BOOLEAN},
    {"enum", ORVEX_ENUM},     {"bnry_blb", ORVEX_BNRY_BLB}, {"cb", ORVEX_CB},
    {"vector", ORVEX_VECTOR}, {"struct", ORVEX_STRUCT},
};

struct TypeNames {
  Mutex mutex;
  std::map<std::string, orvex_data_type_t> types GUARDED_BY(mutex){std::begin(kKnownTypes),
                                                                   std::end(kKnownTypes)};
};

// Made when the library is loaded, before any thread of it runs.
TypeNames& type_names = ProcessWide<TypeNames>();

}  // namespace

// Deliberate: a look-up adds an unknown name as "none". That makes names of a newer Manager
// harmless: their arguments are skipped like every "none".
orvex_data_type_t TypeOfName(const std::string& name) {
  // Known names, looked up for every argument, need no lock.
  for (const auto& [known, type] : kKnownTypes) {
    if (known == name) {
      return type;
    }
  }
  const MutexLock lock(type_names.mutex);
  return type_names.types[name];
}
