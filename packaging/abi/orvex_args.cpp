// Uses the value holder of every argument type, so that abidw describes them. The library's own
// functions use only the base class. The compiler describes a template only in a file that has the
// name of the template's header. So this file is named like orvex_args.h, and the templates of the
// standard library are not described.

#include "orvex_args.h"

template <typename... T>
void TakeScalars(ParamValues<T>... /*holders*/) {}

template <typename... T>
void TakeVectors(ParamValues<std::vector<T>>... /*holders*/) {}

extern const auto take_scalars =
    &TakeScalars<uint8_t, uint16_t, uint32_t, uint64_t, int8_t, int16_t, int32_t, int64_t, double,
                 std::string, bool, orvex_typed_map_t*, orvex_value_map_t*>;
extern const auto take_vectors = &TakeVectors<uint8_t, uint16_t, uint32_t, uint64_t, int8_t,
                                              int16_t, int32_t, int64_t, double, std::string, bool>;
