#include "diagram_page.h"

#include <json/value.h>

#include <cstdint>
#include <iterator>
#include <ostream>
#include <string_view>

#include "byte_text.h"
#include "orvex_simulator/json_text.h"

namespace orvd {
namespace {

// The fixed part, with two words that are replaced.
constexpr char kPage[] =
#include "diagram_page.html"
    ;
constexpr std::string_view kDataWord = "@DATA@";
constexpr std::string_view kTextsWord = "@TEXTS@";

// A text of JSON in ASCII that does not end a script element.
std::string JsonText(const std::string& text) {
  std::string json = WriteCompact(Json::Value(text));
  for (std::size_t i = json.find('<'); i != std::string::npos; i = json.find('<', i)) {
    json.replace(i, 1, "\\u003c");
  }
  return json;
}

// One line in which no character has a meaning for HTML: control characters, the backslash and "<"
// are written as \xHH. Bytes that are not UTF-8 are written as hexadecimal digits.
void AppendTextLine(std::string& texts, const std::string& bytes) {
  const std::string& text = IsUtf8(bytes) ? bytes : HexOf(bytes);
  constexpr unsigned kLowest = 0x20;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < kLowest || c == '\\' || c == '<') {
      texts += "\\x";
      AppendHex(texts, {&c, 1});
    } else {
      texts += c;
    }
  }
  texts += '\n';
}

void AppendItem(std::string& list, const std::string& item) {
  list += (list.empty() ? "" : ",") + item;
}

}  // namespace

void DiagramPage::Column::Add(std::int64_t value) {
  AppendItem(text_, std::to_string(value));
}

void DiagramPage::Add(const RecordedLine& line, bool keep) {
  if (keep && !started_) {
    start_ = last_kept_ = line.at;
    started_ = true;
  }
  if (keep) {
    end_ = line.at;
  }
  if (line.kind == RecordedLine::Kind::kPacket) {
    AddPacket(line, keep);
  } else {
    AddEvent(line);
  }
}

void DiagramPage::AddPacket(const RecordedLine& line, bool keep) {
  Packet packet = ReadPacket(line.bytes, line.direction == PacketDirection::kToManager);
  book_.Add(packet, packets_, line.at);
  if (keep) {
    KeepPacket(line, packet);
  }
  ++packets_;
}

void DiagramPage::KeepPacket(const RecordedLine& line, const Packet& packet) {
  if (kept_ == 0) {
    first_kept_ = packets_;
  }
  ++kept_;
  at_.Add((line.at - last_kept_).count());
  last_kept_ = line.at;
  connection_.Add(line.connection);
  kind_.Add(static_cast<std::int64_t>(packet.kind));
  to_manager_.Add(packet.to_manager ? 1 : 0);
  session_.Add(packet.session ? std::int64_t{*packet.session} : -1);
  opcodes_.Add(static_cast<std::int64_t>(OpcodesNumber(packet.opcodes)));
  size_.Add(static_cast<std::int64_t>(line.bytes.size()));
  AppendTextLine(texts_, line.bytes);
  if (packet.IsTask()) {
    tasks_.push_back({book_.tasks().size() - 1, FunctionNumber(packet)});
  }
}

void DiagramPage::AddEvent(const RecordedLine& line) {
  event_at_.Add(line.at.count());
  event_connection_.Add(line.connection);
  AppendItem(event_names_, JsonText(NameOf(line.event)));
}

std::size_t DiagramPage::FunctionNumber(const Packet& packet) {
  const std::uint32_t opcode = packet.opcodes.empty() ? 0 : packet.opcodes.front();
  const auto [found, is_new] =
      functions_.try_emplace({opcode, packet.subsystem, packet.function}, functions_.size());
  if (is_new) {
    AppendItem(function_list_, "[" + std::to_string(opcode) + "," +
                                   std::to_string(packet.subsystem) + "," +
                                   JsonText(packet.function) + "]");
  }
  return found->second;
}

std::size_t DiagramPage::OpcodesNumber(const std::vector<std::uint32_t>& opcodes) {
  const auto [found, is_new] = opcode_sets_.try_emplace(opcodes, opcode_sets_.size());
  if (is_new) {
    Column numbers;
    for (const std::uint32_t opcode : opcodes) {
      numbers.Add(opcode);
    }
    AppendItem(opcode_set_list_, "[" + numbers.text() + "]");
  }
  return found->second;
}

void DiagramPage::Write(std::ostream& out, const std::string& file, const std::string& note) const {
  const std::string_view page = kPage;
  const std::size_t data = page.find(kDataWord);
  const std::size_t texts = page.find(kTextsWord);
  out << page.substr(0, data);
  WriteData(out, file, note);
  out << page.substr(data + kDataWord.size(), texts - data - kDataWord.size()) << texts_
      << page.substr(texts + kTextsWord.size());
}

void DiagramPage::WriteData(std::ostream& out, const std::string& file,
                            const std::string& note) const {
  std::string kinds;
  for (const char* kind : kPacketKinds) {
    AppendItem(kinds, JsonText(kind));
  }
  out << "{\"file\":" << JsonText(file) << ",\"note\":" << JsonText(note)
      << ",\"start\":" << start_.count() << ",\"span\":" << (end_ - start_).count()
      << ",\"first\":" << (kept_ == 0 ? 0 : first_kept_) << ",\"kinds\":[" << kinds
      << "],\n\"opcodeSets\":[" << opcode_set_list_ << "],\n\"functions\":[" << function_list_
      << "],\n\"packets\":{\"at\":[" << at_.text() << "],\n\"connection\":[" << connection_.text()
      << "],\n\"kind\":[" << kind_.text() << "],\n\"toManager\":[" << to_manager_.text()
      << "],\n\"session\":[" << session_.text() << "],\n\"opcodes\":[" << opcodes_.text()
      << "],\n\"size\":[" << size_.text() << "]},\n\"events\":{\"at\":[" << event_at_.text()
      << "],\n\"connection\":[" << event_connection_.text() << "],\n\"event\":[" << event_names_
      << "]},\n\"tasks\":{";
  WriteTasks(out);
  out << "}}";
}

void DiagramPage::WriteTasks(std::ostream& out) const {
  constexpr std::int64_t kAnswered = 0;
  constexpr std::int64_t kFailed = 1;
  constexpr std::int64_t kNotAnswered = 2;
  Column request;
  Column answer;
  Column latency;
  Column function;
  Column outcome;
  for (const KeptTask& kept : tasks_) {
    const Task& task = book_.tasks()[kept.task];
    const bool answered = task.answer != kNoPacket;
    const bool answer_kept = answered && task.answer - first_kept_ < kept_;
    request.Add(static_cast<std::int64_t>(task.request - first_kept_));
    answer.Add(answer_kept ? static_cast<std::int64_t>(task.answer - first_kept_) : -1);
    latency.Add(answered ? (task.answered - task.asked).count() : -1);
    function.Add(static_cast<std::int64_t>(kept.function));
    outcome.Add(!answered ? kNotAnswered : task.failed ? kFailed : kAnswered);
  }
  out << "\"request\":[" << request.text() << "],\n\"answer\":[" << answer.text()
      << "],\n\"latency\":[" << latency.text() << "],\n\"function\":[" << function.text()
      << "],\n\"outcome\":[" << outcome.text() << "]";
}

}  // namespace orvd
