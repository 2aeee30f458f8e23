// Builds the arguments of a task from short texts such as u8:5, f64[]:1,2.5 or str:skin.
//
// kTypedArgumentsHelp has the whole notation. A value is checked against its type: the library
// refuses a task with a value that does not fit, and does not answer it. These functions wait for
// nothing, keep nothing, and may be called from any thread.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvd {

// A text is no argument. what() has the text, what was expected and what came.
class BadArgument : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

enum class Check {
  kStrict,  // what does not fit throws BadArgument
  kNone,    // any type name and any value pass, to see how the library takes them
};

// The notation, for the help of a command. Ends with a line break.
extern const char* const kTypedArgumentsHelp;

// One element of "args". `id` counts when the text does not begin with @ID=. Throws BadArgument.
Json::Value Argument(int id, const std::string& typed_text, Check check = Check::kStrict);

// The whole "args", with the ids 1, 2, 3, ... Throws BadArgument, also when two arguments have the
// same key, because the library drops the second one. The key is the id; for a struct it is the
// position, counted from 0.
Json::Value Arguments(const std::vector<std::string>& typed_texts, Check check = Check::kStrict);

// A valid "args" with one struct, one value of each type and one vector of each type. The same
// seed gives the same arguments. Bounds of the types come often.
Json::Value GeneratedArguments(std::uint64_t seed);

}  // namespace orvd
