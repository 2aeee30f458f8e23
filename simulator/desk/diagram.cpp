#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "command_line.h"
#include "commands.h"
#include "diagram_mermaid.h"
#include "diagram_page.h"
#include "recording.h"

namespace orvd {
namespace {

constexpr std::int64_t kMostPackets = 1'000'000;
constexpr std::int64_t kMermaidPackets = 200;

struct DiagramOptions {
  std::string output;
  bool mermaid = false;
  std::chrono::microseconds from{0};
  std::chrono::microseconds to{std::chrono::microseconds::max()};
  std::int64_t limit = 0;  // 0: the default of the format
};

std::function<void(const std::string&)> StoreSeconds(std::chrono::microseconds& time) {
  return [&time](const std::string& value) {
    constexpr double kMicrosecondsPerSecond = 1e6;
    constexpr double kMostSeconds = 1e12;
    std::size_t used = 0;
    double seconds = -1;
    try {
      seconds = std::stod(value, &used);
    } catch (const std::logic_error&) {
      used = 0;
    }
    if (used == 0 || used != value.size() || !(seconds >= 0 && seconds <= kMostSeconds)) {
      throw WrongUse("expected seconds since the recording began, got '" + value + "'");
    }
    time = std::chrono::microseconds(std::llround(seconds * kMicrosecondsPerSecond));
  };
}

// Chooses the lines that are drawn.
class Window {
 public:
  explicit Window(const DiagramOptions& options) : options_(options) {}

  bool Keep(const RecordedLine& line) {
    const bool packet = line.kind == RecordedLine::Kind::kPacket;
    const bool inside = line.at >= options_.from && line.at <= options_.to;
    full_ = full_ || (inside && packet && kept_ == options_.limit);
    const bool keep = inside && !full_;
    if (packet) {
      ++(keep ? kept_ : left_out_);
    }
    return keep;
  }
  std::int64_t left_out() const { return left_out_; }

 private:
  const DiagramOptions& options_;
  std::int64_t kept_ = 0;
  std::int64_t left_out_ = 0;
  bool full_ = false;
};

template <typename Diagram>
void AddAll(RecordingReader& reader, Window& window, Diagram& diagram) {
  while (const auto line = reader.Next()) {
    diagram.Add(*line, window.Keep(*line));
  }
}

std::string PageNote(const RecordingReader& reader, const Window& window) {
  std::string note;
  if (window.left_out() > 0) {
    note = std::to_string(window.left_out()) +
           " packets outside of the time window or above the limit are left out. ";
  }
  return note + (reader.cut() ? "The recording is cut off at its end." : "");
}

// Writes after the whole recording is read: a recording that cannot be used leaves the output as it
// is.
void Draw(const std::string& name, const DiagramOptions& options) {
  RecordingFile recording(name);
  Window window(options);
  if (options.mermaid) {
    MermaidDiagram diagram;
    AddAll(recording.reader(), window, diagram);
    WriteTo(options.output, name, [&](std::ostream& out) { diagram.Write(out); });
  } else {
    DiagramPage page;
    AddAll(recording.reader(), window, page);
    WriteTo(options.output, name, [&](std::ostream& out) {
      page.Write(out, name.substr(name.rfind('/') + 1), PageNote(recording.reader(), window));
    });
  }
}

}  // namespace

int RunDiagram(int argc, char** argv) {
  const CommandHelp help{
      "diagram",
      "FILE",
      R"(Draws the recording FILE as one HTML page, which needs no network: the packets, the tasks and the
connections on a time axis, and a table of the functions. A failure is an answer with a negative
"return" or with "status" -1. A task is not answered if the recording has no answer, on any
connection. With --from and --to, the tasks are those that were sent in this time.)",
      "  orvd-sim diagram --output field.html field.rec\n"
      "  orvd-sim diagram --mermaid --from 12.5 --to 13 field.rec\n",
      1,
      1};
  DiagramOptions options;
  const auto operands = ReadCommandLine(
      help,
      {{"output", "FILE", "write the page or the text to FILE (default: standard output)",
        StoreText(options.output)},
       {"mermaid", nullptr, "write the text of a Mermaid sequence diagram instead",
        SetFlag(options.mermaid)},
       {"from", "SECONDS", "draw from this time of the recording on", StoreSeconds(options.from)},
       {"to", "SECONDS", "draw up to this time of the recording", StoreSeconds(options.to)},
       {"limit", "N", "draw at most N packets (default 1000000, with --mermaid 200)",
        StoreNumber(options.limit, 1, kMostPackets)}},
      argc, argv);
  if (!operands) {
    return kAsExpected;
  }
  if (options.from > options.to) {
    throw WrongUse("--from is later than --to");
  }
  if (options.limit == 0) {
    options.limit = options.mermaid ? kMermaidPackets : kMostPackets;
  }
  Draw(operands->front(), options);
  return kAsExpected;
}

}  // namespace orvd
