#include "load_answer.h"

#include <charconv>

namespace orvd {
namespace {

constexpr std::string_view kHead = R"({"opcode":")";
constexpr std::string_view kTransaction = R"(},"transac_id":)";
constexpr std::string_view kStatus = R"(,"status": )";
constexpr std::string_view kSession = R"(,"session_id":)";
constexpr std::size_t kLongestTail =
    kTransaction.size() + kStatus.size() + kSession.size() + sizeof("-2147483648") * 3;

bool Skip(std::string_view& text, std::string_view expected) {
  if (text.substr(0, expected.size()) != expected) {
    return false;
  }
  text.remove_prefix(expected.size());
  return true;
}

template <typename Number>
bool TakeNumber(std::string_view& text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return error == std::errc();
}

}  // namespace

std::optional<ScannedAnswer> ScanAnswer(std::string_view message) {
  if (message.substr(0, kHead.size()) != kHead) {
    return std::nullopt;
  }
  std::string_view tail = message;
  if (tail.size() > kLongestTail) {
    tail.remove_prefix(tail.size() - kLongestTail);
  }
  const std::size_t begin = tail.rfind(kTransaction);
  if (begin == std::string_view::npos) {
    return std::nullopt;
  }
  tail.remove_prefix(begin);
  ScannedAnswer answer{};
  const bool is_whole = Skip(tail, kTransaction) && TakeNumber(tail, answer.transac_id) &&
                        Skip(tail, kStatus) && TakeNumber(tail, answer.status) &&
                        Skip(tail, kSession) && TakeNumber(tail, answer.session_id) && tail == "}";
  return is_whole ? std::optional(answer) : std::nullopt;
}

}  // namespace orvd
