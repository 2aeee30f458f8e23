#include "recording.h"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <istream>
#include <ostream>

#include "byte_text.h"
#include "command_line.h"

namespace orvd {
namespace {

constexpr std::array kDirections{"to_manager", "to_service"};
constexpr std::array kEvents{"connected",    "service_closed", "manager_closed", "service_shut",
                             "manager_shut", "service_reset",  "manager_reset",  "manager_absent"};

// Returns the position of `word` in `words`, or nothing.
template <typename Words>
std::optional<std::size_t> Find(const Words& words, const Json::Value& word) {
  const auto found =
      word.isString() ? std::find(words.begin(), words.end(), word.asString()) : words.end();
  return found == words.end() ? std::nullopt
                              : std::optional<std::size_t>(std::distance(words.begin(), found));
}

bool NeedsEscape(char character) {
  return static_cast<unsigned char>(character) < 0x20 || character == '"' || character == '\\';
}

void AppendEscaped(std::string& line, std::string_view text) {
  while (!text.empty()) {
    const auto* const stop = std::find_if(text.begin(), text.end(), NeedsEscape);
    const auto plain = static_cast<std::size_t>(stop - text.begin());
    line.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) {
      return;
    }
    if (text[0] == '"' || text[0] == '\\') {
      line.push_back('\\');
      line.push_back(text[0]);
    } else {
      line += "\\u00";
      AppendHex(line, text.substr(0, 1));
    }
    text.remove_prefix(1);
  }
}

}  // namespace

const char* NameOf(PacketDirection direction) {
  return kDirections[static_cast<std::size_t>(direction)];
}

const char* NameOf(LinkEvent event) {
  return kEvents[static_cast<std::size_t>(event)];
}

RecordingReader::RecordingReader(std::istream& in, std::string name, bool notes)
    : in_(in),
      name_(std::move(name)),
      notes_(notes),
      buffer_(kLongestLine),
      json_(Json::CharReaderBuilder().newCharReader()) {
  Json::Value value;
  const auto line = ReadLine();
  if (!line || !Parse(*line, value) || value["orvd_recording"] != 1) {
    Fail(R"(no recording, expected {"orvd_recording":1})");
  }
}

// Returns nothing at the end of the file, and for a last line without an end of line.
std::optional<std::string_view> RecordingReader::ReadLine() {
  ++line_;
  in_.getline(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  const auto size = static_cast<std::size_t>(in_.gcount());
  if (in_.bad()) {
    Fail("cannot be read");
  }
  if (in_.eof()) {
    cut_ = size > 0;
    return std::nullopt;
  }
  if (in_.fail()) {
    Fail("the line is too long");
  }
  return std::string_view(buffer_.data(), size - 1);
}

bool RecordingReader::Parse(std::string_view line, Json::Value& value) const {
  try {
    return json_->parse(line.data(), line.data() + line.size(), &value, nullptr) &&
           value.isObject();
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
}

std::optional<RecordedLine> RecordingReader::Next() {
  if (cut_) {
    return std::nullopt;
  }
  const auto line = ReadLine();
  Json::Value value;
  if (line) {
    if (Parse(*line, value)) {
      return Convert(value);
    }
    if (in_.peek() != std::istream::traits_type::eof()) {
      Fail("not a JSON object");
    }
    cut_ = true;
  }
  if (cut_ && notes_) {
    Complain(name_ + ":" + std::to_string(line_) + ": the line is cut off and ignored");
  }
  return std::nullopt;
}

RecordedLine RecordingReader::Convert(const Json::Value& value) {
  RecordedLine line;
  if (!value["us"].isInt64() || value["us"].asInt64() < latest_.count()) {
    Fail("expected \"us\" as a number, not below the one of the line before");
  }
  latest_ = line.at = std::chrono::microseconds(value["us"].asInt64());
  if (!value["conn"].isInt() || value["conn"].asInt() < 1) {
    Fail("expected \"conn\" as a number from 1 on");
  }
  line.connection = value["conn"].asInt();
  if (value.isMember("event")) {
    const auto event = Find(kEvents, value["event"]);
    line.kind = RecordedLine::Kind::kEvent;
    line.event = static_cast<LinkEvent>(event ? *event : (Fail("unknown \"event\""), 0));
    return line;
  }
  const auto direction = Find(kDirections, value["dir"]);
  line.direction = static_cast<PacketDirection>(
      direction ? *direction : (Fail(R"(expected "dir" as "to_manager" or "to_service")"), 0));
  const Json::Value& text = value["text"];
  const auto bytes = text.isString()           ? text.asString()
                     : value["hex"].isString() ? BytesOf(value["hex"].asString())
                                               : std::nullopt;
  if (!bytes || bytes->size() > kLargestPacket) {
    Fail(R"(expected "text", or "hex" as pairs of the digits 0 to f, of up to 1 MiB)");
  }
  line.bytes = *bytes;
  return line;
}

void RecordingReader::Fail(const std::string& why) const {
  throw CannotRun(name_ + ":" + std::to_string(line_) + ": " + why);
}

RecordingFile::RecordingFile(const std::string& name, bool notes)
    : file_(name),
      reader_(file_ ? file_ : throw CannotRun(name + ": cannot be read"), name, notes) {}

RecordingWriter::RecordingWriter(std::ostream& out) : out_(out) {
  out_ << "{\"orvd_recording\":1}\n";
}

void RecordingWriter::Begin(std::chrono::microseconds at, int connection) {
  line_ = R"({"us":)";
  line_ += std::to_string(at.count());
  line_ += R"(,"conn":)";
  line_ += std::to_string(connection);
}

void RecordingWriter::End() {
  line_ += "\"}\n";
  out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
}

void RecordingWriter::WritePacket(std::chrono::microseconds at, int connection,
                                  PacketDirection direction, std::string_view bytes) {
  Begin(at, connection);
  line_ += R"(,"dir":")";
  line_ += NameOf(direction);
  if (!bytes.empty() && IsUtf8(bytes)) {
    line_ += R"(","text":")";
    AppendEscaped(line_, bytes);
  } else {
    line_ += R"(","hex":")";
    AppendHex(line_, bytes);
  }
  End();
}

void RecordingWriter::WriteEvent(std::chrono::microseconds at, int connection, LinkEvent event) {
  Begin(at, connection);
  line_ += R"(,"event":")";
  line_ += NameOf(event);
  End();
}

void RecordingWriter::Write(const RecordedLine& line) {
  if (line.kind == RecordedLine::Kind::kPacket) {
    WritePacket(line.at, line.connection, line.direction, line.bytes);
  } else {
    WriteEvent(line.at, line.connection, line.event);
  }
}

}  // namespace orvd
