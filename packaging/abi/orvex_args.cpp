// Uses the holder (ParamValues) of every kind of argument, so that abidw finds these types. The
// library's functions only name their base class. The file must have the name of the header: the
// compiler then describes the templates of that header, but not those of the standard library.

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
