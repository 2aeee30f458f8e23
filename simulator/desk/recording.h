// Reads and writes recordings of a conversation. docs/RECORDING.md describes the format. Both ways
// hold one line at a time.

#pragma once

#include <json/reader.h>

#include <chrono>
#include <fstream>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "unix_socket.h"

namespace orvd {

enum class PacketDirection { kToManager, kToService };

enum class LinkEvent {
  kConnected,
  kServiceClosed,
  kManagerClosed,
  kServiceShut,  // the service shut its sending side down
  kManagerShut,
  kServiceReset,  // the service closed with unread packets
  kManagerReset,
  kManagerAbsent,  // the service tried to connect, but no Manager was there
};

// The words of a recording.
const char* NameOf(PacketDirection direction);
const char* NameOf(LinkEvent event);

struct RecordedLine {
  enum class Kind { kPacket, kEvent };

  std::chrono::microseconds at{0};  // since the recording began, never decreasing
  int connection = 1;               // 1, 2, ...
  Kind kind = Kind::kPacket;
  PacketDirection direction = PacketDirection::kToManager;  // of a packet
  std::string bytes;                                        // of a packet
  LinkEvent event = LinkEvent::kConnected;                  // of an event

  bool IsPacket(PacketDirection wanted) const {
    return kind == Kind::kPacket && direction == wanted;
  }
  bool IsEvent(LinkEvent wanted) const { return kind == Kind::kEvent && event == wanted; }
};

// A packet whose bytes are all written as escape sequences has six times its size.
inline constexpr std::size_t kLongestLine = 8 * kLargestPacket;

// Throws CannotRun for a file that is no recording, with file and line in its text.
class RecordingReader {
 public:
  // Reads the first line.
  RecordingReader(std::istream& in, std::string name, bool notes = true);

  // Returns nothing at the end. Ignores a last line that is cut off, and tells this on stderr
  // unless `notes` is false.
  std::optional<RecordedLine> Next();
  bool cut() const { return cut_; }
  std::size_t line() const { return line_; }  // the number of the line that was read last

 private:
  std::optional<std::string_view> ReadLine();
  bool Parse(std::string_view line, Json::Value& value) const;
  RecordedLine Convert(const Json::Value& value);
  [[noreturn]] void Fail(const std::string& why) const;

  std::istream& in_;
  const std::string name_;
  const bool notes_;
  std::vector<char> buffer_;
  std::unique_ptr<Json::CharReader> json_;
  std::size_t line_ = 0;
  std::chrono::microseconds latest_{0};
  bool cut_ = false;
};

// A recording in a file. Throws CannotRun if the file cannot be read.
class RecordingFile {
 public:
  explicit RecordingFile(const std::string& name, bool notes = true);
  RecordingReader& reader() { return reader_; }

 private:
  std::ifstream file_;
  RecordingReader reader_;
};

class RecordingWriter {
 public:
  // Writes the first line. The caller looks after errors of `out`.
  explicit RecordingWriter(std::ostream& out);

  void WritePacket(std::chrono::microseconds at, int connection, PacketDirection direction,
                   std::string_view bytes);
  void WriteEvent(std::chrono::microseconds at, int connection, LinkEvent event);
  void Write(const RecordedLine& line);

 private:
  void Begin(std::chrono::microseconds at, int connection);
  void End();

  std::ostream& out_;
  std::string line_;
};

}  // namespace orvd
