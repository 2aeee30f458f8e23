#include <algorithm>
#include <iostream>

#include "commands.h"
#include "orvex_simulator/json_text.h"
#include "orvex_simulator/messages.h"
#include "served.h"

namespace orvd {
namespace {

constexpr const char* kAbout =
    R"(Waits for a service, agrees to its registration, and prints each opcode that it has registered: whether
it is ready, the subsystems of its definition, and its token. Exit code 1 if no opcode becomes ready.
)";
constexpr std::int64_t kLongestSettle = 600000;

struct ListOptions {
  ServedOptions served;
  std::int64_t settle = 300;
  bool json = false;
};

std::string SubsystemText(const std::vector<std::uint32_t>& subsystems) {
  std::string text;
  for (const std::uint32_t subsystem : subsystems) {
    text += (text.empty() ? "" : ",") + std::to_string(subsystem);
  }
  return text.empty() ? "none" : text;
}

void PrintTable(const std::vector<RegisteredApi>& apis, int pid) {
  std::size_t width = std::string("subsystems").size();
  for (const RegisteredApi& api : apis) {
    width = std::max(width, SubsystemText(api.subsystems).size());
  }
  const auto line = [width](const std::string& opcode, const std::string& state,
                            std::string subsystems, const std::string& token) {
    subsystems.resize(width, ' ');
    std::cout << opcode << "  " << state << "  " << subsystems << "  " << token << '\n';
  };
  std::cout << "service process " << pid << ", " << apis.size() << " opcodes\n";
  line("opcode    ", "state     ", "subsystems", "token");
  for (const RegisteredApi& api : apis) {
    line(OpcodeText(api.opcode), api.ready ? "ready     " : "registered",
         SubsystemText(api.subsystems), api.token);
  }
}

void PrintJson(const std::vector<RegisteredApi>& apis, int pid) {
  Json::Value root;
  root["pid"] = pid;
  root["opcodes"] = Json::arrayValue;
  for (const RegisteredApi& api : apis) {
    Json::Value one;
    one["opcode"] = OpcodeText(api.opcode);
    one["ready"] = api.ready;
    one["subsystems"] = Json::arrayValue;
    for (const std::uint32_t subsystem : api.subsystems) {
      one["subsystems"].append(subsystem);
    }
    one["token"] = api.token;
    one["definition"] = api.definition;
    root["opcodes"].append(one);
  }
  std::cout << WriteCompact(root) << '\n';
}

int List(const ListOptions& options) {
  Served served(options.served);
  std::string failure;
  try {
    served.manager().WaitSettled(Milliseconds(options.settle));
  } catch (const ManagerError& error) {
    failure = error.what();
  }
  // An opcode that is registered, but not ready, is printed also after a failure.
  const std::vector<RegisteredApi> apis = served.manager().registered();
  if (failure.empty() || !apis.empty()) {
    (options.json ? PrintJson : PrintTable)(apis, served.manager().peer().client_pid().value_or(0));
  }
  if (!failure.empty()) {
    Fail(failure, options.json && apis.empty());
  }
  return failure.empty() ? kAsExpected : kNotAsExpected;
}

}  // namespace

int RunList(int argc, char** argv) {
  const CommandHelp help{"list", "", kAbout, "  orvd-sim list\n  orvd-sim list --json\n", 0, 0};
  ListOptions options;
  const auto operands = ReadCommandLine(
      help,
      Joined(ServedOptionList(options.served),
             {{"settle", "MS", "until nothing new was registered for so long (default 300)",
               StoreNumber(options.settle, 0, kLongestSettle)},
              {"json", nullptr, "print one JSON object, with the definitions",
               SetFlag(options.json)}}),
      argc, argv);
  return operands ? List(options) : kAsExpected;
}

}  // namespace orvd
