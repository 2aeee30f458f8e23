#include "command_line.h"

#include <getopt.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "byte_text.h"
#include "read_number.h"

namespace orvd {
namespace {

constexpr int kHelp = 1;
constexpr int kFirstOption = 2;
constexpr std::size_t kHelpColumn = 26;
constexpr std::size_t kLongestComplaint = 2000;  // bytes of a line
constexpr std::int64_t kLongestPatience = 86400;

std::string UsageLine(const CommandHelp& help) {
  const std::string operands = help.operands;
  return std::string("usage: orvd-sim ") + help.name + " [OPTION...]" +
         (operands.empty() ? "" : " " + operands);
}

std::string OptionLine(const std::string& name, const char* value, const std::string& text) {
  std::string line = "  --" + name + (value == nullptr ? "" : std::string(" ") + value);
  line.resize(std::max(line.size() + 2, kHelpColumn), ' ');
  return line + text + "\n";
}

std::string HelpText(const CommandHelp& help, const std::vector<Option>& options) {
  std::string text = UsageLine(help) + "\n\n" + help.about + "\n\nOptions:\n";
  for (const Option& option : options) {
    text += OptionLine(option.name, option.value, option.help);
  }
  return text + OptionLine("help", nullptr, "print this text") + "\nExamples:\n" + help.examples;
}

std::vector<option> LongOptions(const std::vector<Option>& options) {
  std::vector<option> all{{"help", no_argument, nullptr, kHelp}};
  for (std::size_t i = 0; i < options.size(); ++i) {
    all.push_back({options[i].name, options[i].value == nullptr ? no_argument : required_argument,
                   nullptr, kFirstOption + static_cast<int>(i)});
  }
  all.push_back({nullptr, 0, nullptr, 0});
  return all;
}

[[noreturn]] void RefuseWord(int result, const char* word) {
  throw WrongUse(std::string(word) + (result == ':' ? " needs a value" : " is no option"));
}

void Take(const Option& option, const char* value) {
  try {
    option.take(value == nullptr ? "" : value);
  } catch (const WrongUse& reason) {
    throw WrongUse(std::string("--") + option.name + ": " + reason.what());
  }
}

// Returns false after --help.
bool TakeOptions(const std::vector<Option>& options, int argc, char** argv) {
  const std::vector<option> all = LongOptions(options);
  optind = 1;
  for (;;) {
    const int word = optind;
    const int result = getopt_long(argc, argv, ":", all.data(), nullptr);
    if (result == -1) {
      return true;
    }
    if (result == kHelp) {
      return false;
    }
    if (result < kFirstOption || result == ':' || result == '?') {
      RefuseWord(result, argv[std::max(word, optind - 1)]);
    }
    Take(options[static_cast<std::size_t>(result - kFirstOption)], optarg);
  }
}

}  // namespace

std::function<void(const std::string&)> SetFlag(bool& flag) {
  return [&flag](const std::string&) { flag = true; };
}

std::function<void(const std::string&)> StoreText(std::string& text) {
  return [&text](const std::string& value) { text = value; };
}

std::function<void(const std::string&)> AddText(std::vector<std::string>& texts) {
  return [&texts](const std::string& value) { texts.push_back(value); };
}

std::function<void(const std::string&)> StoreOneOf(std::string& text,
                                                   std::initializer_list<const char*> allowed) {
  return [&text, allowed = std::vector<std::string>(allowed.begin(), allowed.end())](
             const std::string& value) {
    if (std::find(allowed.begin(), allowed.end(), value) == allowed.end()) {
      std::string list;
      for (const std::string& one : allowed) {
        list += (list.empty() ? "" : ", ") + one;
      }
      throw WrongUse("expected one of " + list + ", got '" + value + "'");
    }
    text = value;
  };
}

std::function<void(const std::string&)> StoreNumber(std::int64_t& number, std::int64_t least,
                                                    std::int64_t most) {
  return [&number, least, most](const std::string& value) {
    const std::optional<std::int64_t> read = ReadNumber(value);
    if (!read || *read < least || *read > most) {
      throw WrongUse("expected a number from " + std::to_string(least) + " to " +
                     std::to_string(most) + ", got '" + value + "'");
    }
    number = *read;
  };
}

std::function<void(const std::string&)> StoreId(std::optional<std::uint32_t>& id) {
  return [&id](const std::string& value) { id = ReadUnsigned(value, "a number"); };
}

Option PathOption(std::string& path) {
  return {"path", "SOCKET", "the Manager's socket (default /dev/socket/orvd)", StoreText(path)};
}

Option PatienceOption(std::int64_t& seconds, const char* help) {
  return {"patience", "SECONDS", help, StoreNumber(seconds, 1, kLongestPatience)};
}

std::uint32_t ReadUnsigned(const std::string& text, const char* what) {
  const std::optional<std::int64_t> number = ReadNumber(text);
  if (!number || *number < 0 || *number > UINT32_MAX) {
    throw WrongUse("expected " + std::string(what) + " from 0 to 0xffffffff, got '" + text + "'");
  }
  return static_cast<std::uint32_t>(*number);
}

std::optional<std::int64_t> ReadNumber(const std::string& text) {
  const bool hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
  return hexadecimal ? ReadWhole<std::int64_t>(text.substr(2), 16) : ReadWhole<std::int64_t>(text);
}

std::optional<std::vector<std::string>> ReadCommandLine(const CommandHelp& help,
                                                        const std::vector<Option>& options,
                                                        int argc, char** argv) {
  try {
    if (!TakeOptions(options, argc, argv)) {
      std::cout << HelpText(help, options);
      return std::nullopt;
    }
    std::vector<std::string> operands(argv + optind, argv + argc);
    if (operands.size() < help.least_operands) {
      throw WrongUse("an operand is missing");
    }
    if (operands.size() > help.most_operands) {
      throw WrongUse("'" + operands[help.most_operands] + "' is one word too many");
    }
    return operands;
  } catch (const WrongUse& error) {
    throw WrongUse(std::string(error.what()) + "\n" + UsageLine(help));
  }
}

void Complain(const std::string& text) {
  std::string printed = "orvd-sim: ";
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    printed += PrintableBegin(line, kLongestComplaint) + '\n';
  }
  std::cerr << printed;
}

void RefuseSameFile(const std::string& output, const std::string& input) {
  std::error_code missing;
  if (std::filesystem::is_regular_file(input, missing) &&
      std::filesystem::equivalent(output, input, missing)) {
    throw CannotRun(output + ": is read and cannot be written");
  }
}

void WriteTo(const std::string& output, const std::string& input,
             const std::function<void(std::ostream&)>& write) {
  RefuseSameFile(output, input);
  std::ofstream file;
  if (!output.empty()) {
    file.open(output, std::ios::binary);
  }
  std::ostream& out = output.empty() ? std::cout : file;
  if (out) {
    write(out);
  }
  if (!out.flush()) {
    throw CannotRun((output.empty() ? "standard output" : output) + ": cannot be written");
  }
}

}  // namespace orvd
