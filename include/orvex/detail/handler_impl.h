// The functions of orvex/handler.h.

#pragma once

#include <cstddef>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvex/detail/inline.h"
#include "orvex/handler.h"

namespace orvex::detail {

// The first parameter with a key has the "id" 1. For a struct it is position 0.
ORVEX_INLINE std::vector<int> DefaultKeys(std::initializer_list<ParameterInfo> parameters) {
  std::vector<int> keys;
  int position = 0;
  for (const ParameterInfo& parameter : parameters) {
    keys.push_back(parameter.is_struct ? position : position + 1);
    position += parameter.has_key ? 1 : 0;
  }
  return keys;
}

// One key for each parameter. The key of a parameter that needs none is 0.
ORVEX_INLINE std::vector<int> SpreadKeys(std::initializer_list<ParameterInfo> parameters,
                                         const std::vector<int>& given) {
  std::vector<int> keys;
  std::size_t used = 0;
  for (const ParameterInfo& parameter : parameters) {
    const bool has_key = parameter.has_key && used < given.size();
    keys.push_back(has_key ? given[used] : 0);
    used += parameter.has_key ? 1 : 0;
  }
  if (used != given.size()) {
    throw std::logic_error("the handler takes " + std::to_string(used) + " arguments, but " +
                           std::to_string(given.size()) + " keys are given");
  }
  return keys;
}

// Throws when no task can have all required arguments: the library keeps only one of a struct and
// another argument with the same key.
ORVEX_INLINE void RefuseSharedKeys(std::initializer_list<ParameterInfo> parameters,
                                   const std::vector<int>& keys) {
  const ParameterInfo* infos = parameters.begin();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (infos[i].is_required && infos[j].is_required && keys[i] == keys[j] &&
          infos[i].is_struct != infos[j].is_struct) {
        throw std::logic_error("the handler takes a struct and another argument under the key " +
                               std::to_string(keys[i]) + ", but a task has only one of them");
      }
    }
  }
}

ORVEX_INLINE std::vector<int> KeysOf(std::initializer_list<ParameterInfo> parameters,
                                     const std::vector<int>* given) {
  std::vector<int> keys =
      given != nullptr ? SpreadKeys(parameters, *given) : DefaultKeys(parameters);
  RefuseSharedKeys(parameters, keys);
  return keys;
}

ORVEX_INLINE Runnable::Runnable(std::initializer_list<ParameterInfo> parameters,
                                const std::vector<int>* keys)
    : keys_(KeysOf(parameters, keys)) {}

ORVEX_INLINE Handler::Handler(Runnable* runnable) : runnable_(runnable) {}

ORVEX_INLINE void ThrowNullHandler() {
  throw std::logic_error("a handler must not be null");
}

}  // namespace orvex::detail
