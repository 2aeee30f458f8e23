// Writes a recording as one HTML page that needs no network.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "recording.h"
#include "task_book.h"

namespace orvd {

// Collects the lines of a recording. The page has all events. It has the packets that Add is told
// to keep, and the tasks whose requests these are.
class DiagramPage {
 public:
  void Add(const RecordedLine& line, bool keep);
  // `note` tells the reader what the page leaves out.
  void Write(std::ostream& out, const std::string& file, const std::string& note) const;

 private:
  // The values of one column, as text: "1,2,3".
  class Column {
   public:
    void Add(std::int64_t value);
    const std::string& text() const { return text_; }

   private:
    std::string text_;
  };
  struct KeptTask {
    std::size_t task;
    std::size_t function;
  };

  void AddPacket(const RecordedLine& line, bool keep);
  void AddEvent(const RecordedLine& line);
  void KeepPacket(const RecordedLine& line, const Packet& packet);
  std::size_t FunctionNumber(const Packet& packet);
  std::size_t OpcodesNumber(const std::vector<std::uint32_t>& opcodes);
  void WriteData(std::ostream& out, const std::string& file, const std::string& note) const;
  void WriteTasks(std::ostream& out) const;

  TaskBook book_;
  std::size_t packets_ = 0;
  std::size_t first_kept_ = kNoPacket;
  std::size_t kept_ = 0;
  std::chrono::microseconds start_{0}, end_{0}, last_kept_{0};
  bool started_ = false;
  Column at_, connection_, kind_, to_manager_, session_, opcodes_, size_;
  Column event_at_, event_connection_;
  std::string event_names_;
  std::vector<KeptTask> tasks_;
  std::map<std::tuple<std::uint32_t, std::uint32_t, std::string>, std::size_t> functions_;
  std::string function_list_;
  std::map<std::vector<std::uint32_t>, std::size_t> opcode_sets_;
  std::string opcode_set_list_;
  std::string texts_;
};

}  // namespace orvd
