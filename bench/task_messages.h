// The tasks that are measured: messages with arguments of a shape, as large as asked.

#pragma once

#include <cstddef>
#include <string>

namespace bench {

enum class Shape { kNone, kScalars, kStruct, kUint32s, kInt32s, kString };

const char* NameOf(Shape shape);

// Everything after "func": for scalars, a multiple of ten arguments; for a struct, its members; for
// vectors, their elements; for a string, its characters.
std::string FunctionText(Shape shape, std::size_t count);

// A whole message. The transaction id is written in nine digits, for a driver to overwrite.
std::string TaskMessage(const std::string& function_text);
inline constexpr std::size_t kTransactionDigits = 9;
std::size_t TransactionOffset();

// The `count` at which the message is of about `bytes`.
std::size_t CountFor(Shape shape, std::size_t bytes);

}  // namespace bench
