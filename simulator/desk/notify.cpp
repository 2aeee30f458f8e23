#include <iostream>
#include <optional>

#include "commands.h"
#include "orvex_simulator/messages.h"
#include "served.h"

namespace orvd {
namespace {

constexpr const char* kAbout =
    R"(Waits for a service, sends it one notification, and waits until the service has handled it:

  state NAME VALUE                     a state has changed
  setting NAME VALUE                   a system setting has changed
  permission NAME granted|withdrawn    a permission of a session has changed

The notification names a session, which is opened for it on the first opcode that is ready and ended
afterwards. --opcode takes another opcode; --session names a session and opens none.
)";

struct NotifyOptions {
  ServedOptions served;
  std::optional<std::uint32_t> opcode;
  std::optional<std::uint32_t> session;
  std::string package;
};

bool IsGranted(const std::string& word) {
  if (word != "granted" && word != "withdrawn") {
    throw WrongUse("expected granted or withdrawn, got '" + word + "'");
  }
  return word == "granted";
}

std::string MessageOf(const std::vector<std::string>& words, std::uint32_t session,
                      const std::string& package) {
  if (words[0] == "state") {
    return StateChangeMessage(session, words[1], words[2], package);
  }
  if (words[0] == "setting") {
    return SettingChangeMessage(session, words[1], words[2], package);
  }
  if (words[0] == "permission") {
    return PermissionChangeMessage(session, words[1], IsGranted(words[2]), package);
  }
  throw WrongUse("expected state, setting or permission, got '" + words[0] + "'");
}

std::uint32_t FirstReady(SimulatedManager& manager) {
  for (const RegisteredApi& api : manager.WaitSettled(Milliseconds(0))) {
    if (api.ready) {
      return api.opcode;
    }
  }
  throw ManagerError("the connection was lost");
}

void Notify(SimulatedManager& manager, const NotifyOptions& options,
            const std::vector<std::string>& words) {
  const std::uint32_t opcode = options.opcode ? *options.opcode : FirstReady(manager);
  manager.WaitReady(opcode);
  std::optional<ManagedSession> session;
  if (!options.session) {
    session = manager.OpenSession(opcode);
  }
  const std::uint32_t id = session ? session->id() : *options.session;
  manager.Send(MessageOf(words, id, options.package));
  manager.Settle();
  std::cout << words[0] << ' ' << words[1] << ' ' << words[2] << ": handled, session " << id
            << '\n';
  if (session) {
    session->End();
  }
}

}  // namespace

int RunNotify(int argc, char** argv) {
  const CommandHelp help{"notify",
                         "state|setting|permission NAME VALUE",
                         kAbout,
                         "  orvd-sim notify state screen on\n"
                         "  orvd-sim notify permission sensor.read withdrawn --opcode 0xa001\n",
                         3,
                         3};
  NotifyOptions options;
  const auto operands = ReadCommandLine(
      help,
      Joined(Joined(ServedOptionList(options.served), QueryOptionList(options.served)),
             {{"opcode", "OPCODE", "open the session on this opcode", StoreId(options.opcode)},
              {"session", "ID", "the session in the notification", StoreId(options.session)},
              {"package", "NAME", "the package in the notification (default none)",
               StoreText(options.package)}}),
      argc, argv);
  if (!operands) {
    return kAsExpected;
  }
  MessageOf(*operands, 0, "");  // wrong words are refused before a service comes
  Served served(options.served);
  try {
    Notify(served.manager(), options, *operands);
    return kAsExpected;
  } catch (const ManagerError& error) {
    Complain(error.what());
    return kNotAsExpected;
  }
}

}  // namespace orvd
