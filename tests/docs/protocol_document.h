// docs/PROTOCOL.md as its tests read it.

#pragma once

#include <string>
#include <vector>

struct Row {
  int line;
  std::vector<std::string> cells;
};

// A fenced message, with what the paragraph above says of it.
struct Example {
  int line;
  bool from_manager;
  std::string text;
  std::string call;     // that makes the service send it
  std::string returns;  // what the call comes to with it
  std::string hears;    // the callback's events, one a line
  std::vector<Row> members;

  // A message of the Manager whose members the document lists.
  bool IsTried() const { return from_manager && !members.empty(); }
};

std::string ReadSource(const std::string& path);
// In the order of the document. Fails the test for a fence that is no example.
std::vector<Example> Examples();
// The rows of the tables whose heads begin so.
std::vector<Row> TableRows(const std::string& head);
// What stands between backticks in a cell or line.
std::vector<std::string> Quoted(const std::string& text);
