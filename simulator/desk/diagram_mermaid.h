// Writes packets of a recording as a sequence diagram in the text format of Mermaid.

#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "recording.h"
#include "task_book.h"

namespace orvd {

class MermaidDiagram {
 public:
  // Draws the line if `keep` is set. All lines are needed: an answer belongs to an earlier task.
  void Add(const RecordedLine& line, bool keep);
  // Writes the diagram, with a note about what was left out.
  void Write(std::ostream& out) const;

 private:
  void AddPacket(const RecordedLine& line, bool keep);

  std::string text_;
  TaskBook book_;
  std::size_t packets_ = 0;
  std::size_t kept_ = 0;
  std::size_t before_ = 0;  // packets left out
  std::size_t after_ = 0;
};

}  // namespace orvd
