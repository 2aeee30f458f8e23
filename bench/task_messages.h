// Messages of the measured tasks. A shape is a kind of arguments.

#pragma once

#include <cstddef>
#include <string>

namespace bench {

enum class Shape { kNone, kScalars, kStruct, kUint32s, kInt32s, kString };

const char* NameOf(Shape shape);

// The value of "func". `count` is the number of scalars (a multiple of ten), of struct members, of
// vector elements or of characters in the string.
std::string FunctionText(Shape shape, std::size_t count);

// A whole message. Its transaction id has nine digits, which the driver overwrites.
std::string TaskMessage(const std::string& function_text);
inline constexpr std::size_t kTransactionDigits = 9;
std::size_t TransactionOffset();

// The `count` with which the message has about `bytes` bytes.
std::size_t CountFor(Shape shape, std::size_t bytes);

}  // namespace bench
