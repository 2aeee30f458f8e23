#include "diagram_mermaid.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "byte_text.h"
#include "packet_fields.h"

namespace orvd {
namespace {

constexpr std::size_t kLongestLabel = 80;

// Cuts a long text, and writes characters that may have a meaning for Mermaid as "#NUMBER;".
std::string Escape(const std::string& text) {
  constexpr std::string_view kPlain = " _-.,:()+=/";
  const bool utf8 = IsUtf8(text);
  std::string escaped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool continues = utf8 && (byte & 0xc0U) == 0x80U;
    if (i >= kLongestLabel && !continues) {
      return escaped + "...";
    }
    const bool letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                        (byte >= '0' && byte <= '9');
    if (letter || kPlain.find(text[i]) != std::string_view::npos || (byte >= 0x80U && utf8)) {
      escaped += text[i];
    } else if (byte >= ' ' && byte < 0x7fU) {
      escaped += "#" + std::to_string(byte) + ";";
    } else {
      escaped += '?';
    }
  }
  return escaped;
}

std::string Label(const Packet& packet, const std::string& bytes) {
  std::string label = packet.kind_name();
  if (label == "text" || label == "other") {
    label += " " + bytes;
  }
  for (const std::uint32_t opcode : packet.opcodes) {
    label +=
        " " + HexText(opcode) + (packet.IsTask() ? "::" + std::to_string(packet.subsystem) : "");
  }
  if (!packet.function.empty()) {
    label += " " + packet.function;
  }
  if (packet.session) {
    label += " session " + std::to_string(*packet.session);
  }
  if (packet.IsTask() || (packet.IsAnswer() && !packet.short_form)) {
    label += " task " + std::to_string(packet.number);
  } else if (packet.number != 0) {
    label += " query " + std::to_string(packet.number);
  }
  return label + (packet.failed ? " failed" : "");
}

std::string Note(const std::string& text) {
  return "  Note over Manager,Service: " + Escape(text) + "\n";
}

std::string EventText(const RecordedLine& line) {
  std::string event = NameOf(line.event);
  std::replace(event.begin(), event.end(), '_', ' ');
  return "connection " + std::to_string(line.connection) + ": " + event;
}

}  // namespace

void MermaidDiagram::Add(const RecordedLine& line, bool keep) {
  if (line.kind == RecordedLine::Kind::kPacket) {
    AddPacket(line, keep);
  } else if (keep) {
    text_ += Note(EventText(line));
  }
}

void MermaidDiagram::AddPacket(const RecordedLine& line, bool keep) {
  Packet packet = ReadPacket(line.bytes, line.direction == PacketDirection::kToManager);
  book_.Add(packet, packets_++, line.at);
  if (!keep) {
    ++(kept_ == 0 ? before_ : after_);
    return;
  }
  ++kept_;
  text_ += packet.to_manager ? "  Service" : "  Manager";
  text_ += packet.IsAnswer() ? "-->>" : "->>";
  text_ += packet.to_manager ? "Manager: " : "Service: ";
  text_ += Escape(Label(packet, line.bytes)) + "\n";
}

void MermaidDiagram::Write(std::ostream& out) const {
  out << "sequenceDiagram\n  participant Manager\n  participant Service\n" << text_;
  if (before_ + after_ > 0) {
    out << Note("left out: " + std::to_string(before_) + " packets before, " +
                std::to_string(after_) + " after");
  }
}

}  // namespace orvd
