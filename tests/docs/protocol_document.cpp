#include "docs/protocol_document.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

namespace {

using Lines = std::vector<std::string>;

const Lines& Document() {
  static const Lines& lines = *[] {
    auto* read = new Lines;
    std::istringstream text(ReadSource("docs/PROTOCOL.md"));
    for (std::string line; std::getline(text, line);) {
      read->push_back(line);
    }
    return read;
  }();
  return lines;
}

bool StartsWith(const std::string& line, const char* prefix) {
  return line.rfind(prefix, 0) == 0;
}

Row RowOf(size_t i) {
  Row row{static_cast<int>(i) + 1, {}};
  std::istringstream cells(Document()[i].substr(1));
  for (std::string cell; std::getline(cells, cell, '|');) {
    row.cells.push_back(std::regex_replace(cell, std::regex("^ +| +$"), ""));
  }
  return row;
}

std::vector<Row> RowsBelow(size_t head) {
  std::vector<Row> rows;
  for (size_t i = head + 2; i < Document().size() && StartsWith(Document()[i], "|"); ++i) {
    rows.push_back(RowOf(i));
  }
  return rows;
}

// The first table of members before the next example or heading.
std::vector<Row> MembersBehind(size_t i) {
  for (; i < Document().size(); ++i) {
    const std::string& line = Document()[i];
    if (StartsWith(line, "| member |")) {
      return RowsBelow(i);
    }
    if (StartsWith(line, "```") || StartsWith(line, "#")) {
      break;
    }
  }
  return {};
}

// What `pattern` captures, or nothing.
std::string Captured(const std::string& text, const char* pattern) {
  std::smatch match;
  return std::regex_search(text, match, std::regex(pattern)) ? match.str(1) : "";
}

// The fence opens at `i`, which is moved to where it closes.
Example ExampleAt(size_t& i) {
  size_t above = i - 1;
  while (Document()[above].empty()) {
    --above;
  }
  const std::string& lead = Document()[above];
  const std::string sender = Captured(Document()[i], "^```(?:json|text) (manager|service)$");
  const char* speaker = sender == "manager" ? "**Manager**" : "**Service**";
  EXPECT_TRUE(!sender.empty() && StartsWith(lead, speaker)) << "no example: line " << i + 1;
  Example example{static_cast<int>(i) + 1, sender == "manager", "", "", "", "", {}};
  while (!StartsWith(Document()[++i], "```")) {
    example.text += (example.text.empty() ? "" : "\n") + Document()[i];
  }
  example.call = Captured(lead, "the call `([^`]+)` sends");
  example.returns = Captured(lead, "the call returns `([^`]+)`");
  for (const std::string& event : Quoted(Captured(lead, "the callback hears (.*)$"))) {
    example.hears += event + "\n";
  }
  example.members = MembersBehind(i + 1);
  return example;
}

}  // namespace

std::string ReadSource(const std::string& path) {
  std::ostringstream text;
  std::ifstream file(std::string(ORVEX_SOURCE_DIR) + "/" + path);
  EXPECT_TRUE(file) << path;
  text << file.rdbuf();
  return text.str();
}

std::vector<Example> Examples() {
  std::vector<Example> examples;
  for (size_t i = 0; i < Document().size(); ++i) {
    if (Document()[i].find("```") != std::string::npos) {
      examples.push_back(ExampleAt(i));
    }
  }
  return examples;
}

std::vector<Row> TableRows(const std::string& head) {
  std::vector<Row> rows;
  for (size_t i = 0; i < Document().size(); ++i) {
    if (StartsWith(Document()[i], head.c_str())) {
      const std::vector<Row> below = RowsBelow(i);
      rows.insert(rows.end(), below.begin(), below.end());
    }
  }
  return rows;
}

std::vector<std::string> Quoted(const std::string& text) {
  const std::regex quoted("`([^`]+)`");
  const std::sregex_token_iterator begin(text.begin(), text.end(), quoted, 1);
  return {begin, std::sregex_token_iterator()};
}
