#include "args/type_names.h"

#include <map>
#include <tuple>

#include "args/data_types.h"
#include "base/mutex.h"
#include "base/never_destroyed.h"

namespace orvd_client {

namespace {

// Names that are not in kDataTypes. The Manager sent them.
struct UnknownNames {
  Mutex mutex;
  std::map<std::string, orvex_data_type_t> types GUARDED_BY(mutex);
};

}  // namespace

// Deliberate: an unknown name is added as "none". So the types of a newer Manager do no harm: their
// arguments are skipped like every "none".
orvex_data_type_t TypeOfName(const std::string& name) {
  orvex_data_type_t type = ORVEX_NONE;
  const auto has_name = [&](const auto& row) {
    type = row.code;
    return row.name == name;
  };
  if (std::apply([&](const auto&... rows) { return (has_name(rows) || ...); }, kDataTypes)) {
    return type;
  }
  auto& unknown = NeverDestroyed<UnknownNames>();
  const MutexLock lock(unknown.mutex);
  return unknown.types[name];
}

}  // namespace orvd_client
