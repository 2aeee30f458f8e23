#include "shell_words.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace orvd {
namespace {

// Appends what is between quotes to `word`. Returns the position behind the closing quote.
std::size_t TakeQuoted(const std::string& line, std::size_t at, std::string& word) {
  const char quote = line[at++];
  for (; at < line.size() && line[at] != quote; ++at) {
    const char next = at + 1 < line.size() ? line[at + 1] : '\0';
    if (quote == '"' && line[at] == '\\' && (next == '"' || next == '\\')) {
      ++at;
    }
    word += line[at];
  }
  if (at == line.size()) {
    throw std::invalid_argument(std::string("the quote ") + quote + " does not end");
  }
  return at + 1;
}

}  // namespace

std::vector<std::string> ShellWords(const std::string& line) {
  constexpr const char* kBlanks = " \t\r";
  std::vector<std::string> words;
  std::size_t at = line.find_first_not_of(kBlanks);
  while (at != std::string::npos && line[at] != '#') {
    std::string word;
    while (at < line.size() && std::string(kBlanks).find(line[at]) == std::string::npos) {
      if (line[at] == '\'' || line[at] == '"') {
        at = TakeQuoted(line, at, word);
        continue;
      }
      at += line[at] == '\\' && at + 1 < line.size() ? 1 : 0;
      word += line[at++];
    }
    words.push_back(word);
    at = line.find_first_not_of(kBlanks, at);
  }
  return words;
}

// Returns false after a signal.
bool LineReader::ReadMore() {
  std::array<pollfd, 2> watched{{{fd_, POLLIN, 0}, {signals_.fd(), POLLIN, 0}}};
  while (poll(watched.data(), watched.size(), -1) < 0) {  // interrupted
  }
  if (watched[1].revents != 0) {
    return false;
  }
  std::array<char, 4096> bytes{};
  const ssize_t size = read(fd_, bytes.data(), bytes.size());
  if (size < 0 && errno != EINTR && errno != EAGAIN) {
    throw std::system_error(errno, std::generic_category(), "standard input");
  }
  ended_ = size == 0;
  buffer_.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return true;
}

std::optional<std::string> LineReader::Next() {
  std::size_t end = buffer_.find('\n');
  for (; end == std::string::npos && !ended_; end = buffer_.find('\n')) {
    if (!ReadMore()) {
      return std::nullopt;
    }
  }
  if (end == std::string::npos && buffer_.empty()) {
    return std::nullopt;
  }
  std::string line = buffer_.substr(0, end);
  buffer_.erase(0, end == std::string::npos ? end : end + 1);
  return line;
}

}  // namespace orvd
