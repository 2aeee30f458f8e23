// A Manager for the unit tests of a service, which runs sessions and typed calls:
//
//   orvd::SimulatedManager manager;
//   orvd::ManagedSession session = manager.OpenSession(0xa001);
//   const orvd::Answer answer = session.Call("set_limit", {"u8:3", "i16:-400"});
//   EXPECT_EQ(answer.func["limit"], -400);
//
// The service may be in another process or on another thread. Construct the manager before or after
// the service starts. It agrees to every registration, keeps what the service registered, grants
// all permissions and answers queries. After a loss of the connection it serves the service again;
// sessions have ended then. typed_arguments.h explains the texts of arguments.
//
// All functions may be called from any thread, but a function that waits must not be called by a
// rule or an observer of the peer. A function that waits ends with an exception after its patience,
// and after Interrupt. For the faults that a Manager can have, peer() closes the connection in
// several ways.

#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvex_simulator/manager_peer.h"
#include "orvex_simulator/typed_arguments.h"

namespace orvd {

// The service did not do what was asked: it is away, refuses, or does not answer in time.
class ManagerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ManagerOptions {
  std::string path = "/dev/socket/orvd";  // the library uses this one on builds for users
  int service_id = 7;
  Milliseconds patience = kPatience;  // how long each function waits that has no limit of its own
};

// One opcode that the service has registered.
struct RegisteredApi {
  std::uint32_t opcode = 0;
  std::vector<std::uint32_t> subsystems;  // of the definition, in its order
  Json::Value definition;                 // the object behind the prefix
  std::string token;
  bool ready = false;
};

// The answer to a task.
struct Answer {
  int return_code = 0;
  int status = 0;
  Json::Value func;  // what the function answers: an object, empty after a failure
  std::chrono::microseconds latency{0};
  std::string text;  // the whole message
  // Whether the function has succeeded: a return code of at least 0, and a status other than -1.
  bool ok() const { return return_code >= 0 && status != -1; }
};

// An open session. It can be moved. Its destructor ends the session and ignores failures.
class ManagedSession {
 public:
  ~ManagedSession();
  ManagedSession(ManagedSession&& other) noexcept;
  ManagedSession& operator=(ManagedSession&& other) noexcept;

  std::uint32_t id() const;
  std::uint32_t opcode() const;
  bool is_open() const;  // false after End and after a loss of the connection
  const std::vector<std::uint32_t>& subsystems() const;

  // Runs a function on the session's first subsystem, or on `subsystem`, and waits for the answer.
  // Throws BadArgument for a wrong argument. Throws ManagerError when the connection of the session
  // is lost, and when no answer comes: the library does not answer a task that it refuses.
  Answer Call(const std::string& function, const std::vector<std::string>& typed_arguments = {},
              std::optional<std::uint32_t> subsystem = {});

  // The same in two steps, for several tasks at the same time. Send returns the task's transac_id.
  // SendArgs takes the list of the protocol and does not check it. Await returns each answer once.
  int Send(const std::string& function, const std::vector<std::string>& typed_arguments = {},
           std::optional<std::uint32_t> subsystem = {});
  int SendArgs(const std::string& function, const Json::Value& args,
               std::optional<std::uint32_t> subsystem = {});
  Answer Await(int transac_id, std::optional<Milliseconds> patience = {});

  // Notifications. The service handles them before every later task of this manager.
  void NotifyState(const std::string& state, const std::string& value,
                   const std::string& package = "");
  void NotifySetting(const std::string& setting, const std::string& value,
                     const std::string& package = "");
  void NotifyPermission(const std::string& permission, bool granted,
                        const std::string& package = "");

  // Ends the session and waits for the answer. Throws ManagerError when the service refuses or does
  // not answer. A second call does nothing.
  void End();

 private:
  friend class SimulatedManager;
  class Impl;
  explicit ManagedSession(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

class SimulatedManager {
 public:
  // Listens on the path. Throws std::system_error if it cannot.
  explicit SimulatedManager(ManagerOptions options = {});
  ~SimulatedManager();
  SimulatedManager(const SimulatedManager&) = delete;
  SimulatedManager& operator=(const SimulatedManager&) = delete;

  // --- Answers to queries, from now on. ---
  void Deny(const std::string& permission);
  void Grant(const std::string& permission);
  // Without a value, a query for an item gets ERROR:unknown item.
  void SetInfo(const std::string& name, const std::string& value);

  // --- What the service offers on its present connection, in ascending order of opcodes. ---
  std::vector<RegisteredApi> registered() const;
  // Waits until the opcode is ready. Throws ManagerError.
  RegisteredApi WaitReady(std::uint32_t opcode);
  // Waits until an opcode is ready and nothing new was registered or made ready for `quiet`. Throws
  // ManagerError when no opcode becomes ready.
  std::vector<RegisteredApi> WaitSettled(Milliseconds quiet);

  // --- Sessions. ---
  // Waits until the opcode is ready, then starts the subsystems in a new session and makes them
  // ready. Without `subsystems` it takes the first one that the definition lists. Throws
  // ManagerError when the service is away, refuses a subsystem or does not answer.
  ManagedSession OpenSession(std::uint32_t opcode, std::vector<std::uint32_t> subsystems = {});

  // Sends a message as it is, such as a notification of messages.h. Throws ManagerError if no
  // service takes it.
  void Send(const std::string& message);
  // Waits until the service's receive thread has handled all earlier messages.
  void Settle();

  // --- The conversation. ---
  // Messages of the service with this "req_type", in order, as far as the peer's record has them.
  std::vector<std::string> Received(const std::string& req_type) const;
  // Answers to tasks that nobody waits for: double ones, and those after the patience.
  std::size_t unexpected_answers() const;
  // The Manager's side of the socket: its record, and the ways to close the connection. The manager
  // takes the received messages itself, so Next returns none.
  ManagerPeer& peer();

  // Makes all functions that wait throw ManagerError, now and later.
  void Interrupt();

  class Impl;  // defined in the source file

 private:
  const std::shared_ptr<Impl> impl_;
};

}  // namespace orvd
