#include <json/value.h>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "byte_text.h"
#include "command_line.h"
#include "commands.h"
#include "orvex_simulator/json_text.h"
#include "recording.h"
#include "task_book.h"

namespace orvd {
namespace {

constexpr const char* kAbout =
    R"(Writes a scenario that plays the Manager's side of RECORDING and expects what the service sent.
"orvd-sim play" runs it. A scenario serves one connection at a time.

Where the recording does not tell what the scenario needs, a comment says so: a service that ends by
itself gets a signal, a reset without an unread message becomes a close, and bytes that are no text
are not compared.)";

constexpr const char* kExamples =
    "  orvd-sim scenario field.jsonl > field.scenario\n"
    "  orvd-sim scenario field.jsonl --output field.scenario\n";

// Returns an empty value unless `text` is one object of which a step can hold all members.
Json::Value StrictObject(const std::string& text) {
  const std::optional<Json::Value> value = ParseValue(text);
  return value && value->isObject() ? *value : Json::Value();
}

bool IsOneLine(const std::string& text) {
  return !text.empty() && IsUtf8(text) && text.find_first_of("\r\n") == std::string::npos &&
         text.front() != ' ' && text.back() != ' ';
}

// What a step depends on in later lines. All numbers are those of lines.
struct Outlook {
  std::set<std::size_t> unanswered;  // tasks
  std::set<std::size_t> resets;      // a message, its unread answer, and the Manager's reset
  std::size_t last_end = 0;          // of a connection
};

struct NumberedPacket {
  std::size_t line = 0;
  Packet packet;
};

// Whether the steps silence, send and "hang-up reset" have the same effect.
bool CausesReset(const NumberedPacket& sent, const NumberedPacket& answer) {
  return sent.line != 0 && !sent.packet.to_manager && answer.packet.to_manager &&
         (!answer.packet.IsAnswer() ||
          (sent.packet.IsTask() && sent.packet.number == answer.packet.number));
}

bool IsEnd(LinkEvent event) {
  return event == LinkEvent::kServiceClosed || event == LinkEvent::kServiceReset ||
         event == LinkEvent::kManagerClosed || event == LinkEvent::kManagerReset;
}

Outlook LookAhead(RecordingReader& reader) {
  Outlook outlook;
  TaskBook book;
  NumberedPacket last_but_one;
  NumberedPacket last;
  while (const auto line = reader.Next()) {
    const std::size_t number = reader.line();
    if (line->kind == RecordedLine::Kind::kPacket) {
      last_but_one = last;
      last = {number, ReadPacket(line->bytes, line->direction == PacketDirection::kToManager)};
      book.Add(last.packet, number, line->at);
      continue;
    }
    if (line->event == LinkEvent::kManagerReset && CausesReset(last_but_one, last)) {
      outlook.resets.insert({last_but_one.line, last.line, number});
    }
    if (IsEnd(line->event)) {
      outlook.last_end = number;
    }
    last_but_one = last = {};
  }
  for (const Task& task : book.tasks()) {
    if (task.answer == kNoPacket) {
      outlook.unanswered.insert(task.request);
    }
  }
  return outlook;
}

class ScenarioMaker {
 public:
  ScenarioMaker(std::string name, Outlook outlook, std::ostream& out)
      : name_(std::move(name)), outlook_(std::move(outlook)), out_(out) {}

  void Make(RecordingReader& reader) {
    out_ << "# Made from a recording by orvd-sim scenario.\n";
    while (const auto line = reader.Next()) {
      const bool resets = !rejected_ && outlook_.resets.count(reader.line()) != 0;
      if (line->kind == RecordedLine::Kind::kEvent) {
        AddEvent(*line, reader.line(), resets);
      } else if (line->direction == PacketDirection::kToService) {
        out_ << (resets ? "silence\n" : "");
        AddToService(line->bytes, reader.line(), resets);
      } else if (!resets) {
        AddFromService(line->bytes);
      }
    }
    for (const int task : cut_off_) {
      out_ << "# The recording ends before this answer. Remove the task if there is none.\n"
           << "result {\"transac_id\":" << task << "}\n";
    }
  }

 private:
  void AddEvent(const RecordedLine& line, std::size_t number, bool resets) {
    switch (line.event) {
      case LinkEvent::kConnected:
        if (open_) {
          throw CannotRun(name_ + ":" + std::to_string(number) +
                          ": a second connection, a scenario serves one at a time");
        }
        out_ << "connection\n";
        open_ = true;
        ending_ = false;
        queries_.clear();
        return;
      case LinkEvent::kManagerAbsent:
        return;
      case LinkEvent::kManagerShut:
        AwaitRejections();
        out_ << "hang-up half\n";
        ending_ = true;
        return;
      case LinkEvent::kManagerReset:
      case LinkEvent::kManagerClosed:
        HangUp(line.event == LinkEvent::kManagerReset, resets);
        return;
      case LinkEvent::kServiceShut:
        return;
      case LinkEvent::kServiceClosed:
      case LinkEvent::kServiceReset:
        EndOfService("KILL");
        out_ << "end-of-file\n";
        open_ = rejected_ = false;
    }
  }

  // Time for answers that must not come.
  void AwaitRejections() {
    if (rejected_ && !uncompared_) {
      out_ << "quiet 500\n";
    }
  }

  // A rejection needs the service's end of the connection.
  void HangUp(bool reset, bool unread) {
    AwaitRejections();
    out_ << (reset && !unread ? "# recorded as a reset\n" : "")
         << (rejected_ ? "hang-up half\nend-of-file\n"
             : unread  ? "hang-up reset\n"
                       : "hang-up close\n");
    open_ = rejected_ = false;
  }

  void EndOfService(const char* signal) {
    if (!ending_) {
      AwaitRejections();
      out_ << "# The service ended here. Remove the signal if it does so by itself.\nsignal "
           << signal << '\n';
    }
    ending_ = true;
  }

  void AddFromService(const std::string& bytes) {
    Json::Value message = StrictObject(bytes);
    const std::string kind = message["req_type"].isString() ? message["req_type"].asString() : "";
    Json::Value query;
    if (message.isObject() && message.removeMember("QueryId", &query)) {
      queries_[kind].push_back({query, Json::Value()});
    }
    if (kind == "DINT") {
      EndOfService("TERM");
    }
    if (kind == "exec_task" && message["transac_id"].isInt()) {
      out_ << "result " << WriteCompact(message) << '\n';
    } else if (IsOneLine(kind) && kind.find(' ') == std::string::npos) {
      out_ << "expect " << kind << ' ' << WriteCompact(message) << '\n';
    } else if (IsOneLine(bytes)) {
      out_ << "exactly " << bytes << '\n';
    } else {
      out_ << "# not compared: " << HexOf(bytes) << '\n';
      uncompared_ = true;
    }
  }

  // Returns whether the message answers a query. A query has another number in each run, so the
  // replies come in the order of the queries.
  bool AddReply(Json::Value message) {
    auto& queries = queries_[message["req_type"].asString()];
    const auto query = std::find_if(queries.begin(), queries.end(), [&message](const Query& one) {
      return one.number == message["QueryId"];
    });
    if (query == queries.end()) {
      return false;
    }
    message.removeMember("QueryId");
    query->reply = message;
    for (; !queries.empty() && !queries.front().reply.isNull(); queries.pop_front()) {
      out_ << "reply " << message["req_type"].asString() << ' '
           << WriteCompact(queries.front().reply) << '\n';
    }
    return true;
  }

  void AddToService(const std::string& bytes, std::size_t line, bool resets) {
    const Json::Value message = StrictObject(bytes);
    if (message.empty()) {
      out_ << "raw " << (bytes.empty() ? "\"\"" : HexOf(bytes)) << '\n';
      return;
    }
    if (message["req_type"].isString() && AddReply(message)) {
      return;
    }
    const bool is_task = !resets && message["req_type"] == "exec_task" &&
                         message["transac_id"].isInt() && message["transac_id"] != -1;
    out_ << (is_task ? "task " : "send ") << WriteCompact(message) << '\n';
    if (!is_task || outlook_.unanswered.count(line) == 0) {
      return;
    }
    if (line > outlook_.last_end) {
      cut_off_.push_back(message["transac_id"].asInt());
      return;
    }
    out_ << "rejected " << message["transac_id"].asInt() << '\n';
    rejected_ = true;
  }

  struct Query {
    Json::Value number;
    Json::Value reply;  // null: not yet
  };

  const std::string name_;
  const Outlook outlook_;
  std::ostream& out_;
  std::map<std::string, std::deque<Query>> queries_;  // by kind, without a reply so far
  std::vector<int> cut_off_;                          // tasks without an answer or an end
  bool uncompared_ = false;
  bool open_ = false;
  bool ending_ = false;    // the service has got a reason to close
  bool rejected_ = false;  // a step needs an end of the connection later on
};

int MakeScenario(const std::string& recording, const std::string& output) {
  RecordingFile first(recording);
  Outlook outlook = LookAhead(first.reader());
  RecordingFile second(recording, false);
  WriteTo(output, recording, [&](std::ostream& out) {
    ScenarioMaker(recording, std::move(outlook), out).Make(second.reader());
  });
  return kAsExpected;
}

}  // namespace

int RunScenario(int argc, char** argv) {
  const CommandHelp help{"scenario", "RECORDING", kAbout, kExamples, 1, 1};
  std::string output;
  const auto operands = ReadCommandLine(
      help, {{"output", "FILE", "write to FILE, not to stdout", StoreText(output)}}, argc, argv);
  return operands ? MakeScenario(operands->front(), output) : kAsExpected;
}

}  // namespace orvd
