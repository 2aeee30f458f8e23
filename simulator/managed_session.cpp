#include "orvex_simulator/json_text.h"
#include "orvex_simulator/messages.h"
#include "simulated_manager_impl.h"

namespace orvd {
namespace {

constexpr Milliseconds kEndLimit{1000};

}  // namespace

class ManagedSession::Impl {
 public:
  Impl(std::shared_ptr<SimulatedManager::Impl> manager, std::uint32_t opcode,
       std::vector<std::uint32_t> subsystems)
      : manager_(std::move(manager)),
        id_(manager_->NewSession()),
        opcode_(opcode),
        subsystems_(std::move(subsystems)),
        connection_(manager_->peer().connections()) {
    manager_->Start(id_, opcode_, subsystems_);
  }
  ~Impl() {
    try {
      End();
    } catch (const std::exception&) {  // the service is away: its sessions have ended
      static_cast<void>(0);
    }
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  SimulatedManager::Impl& manager() const { return *manager_; }
  std::uint32_t id() const { return id_; }
  std::uint32_t opcode() const { return opcode_; }
  bool is_open() const { return !ended_ && is_connected(); }
  const std::vector<std::uint32_t>& subsystems() const { return subsystems_; }

  int Send(const std::string& function, const Json::Value& args,
           std::optional<std::uint32_t> subsystem) const {
    RequireOpen();
    try {
      return manager_->SendTask(id_, opcode_, subsystem.value_or(subsystems_.front()), function,
                                args);
    } catch (const ManagerError&) {
      // The peer's thread may not have read the end of the connection yet.
      manager_->peer().WaitEnded(connection_, kEndLimit);
      RequireConnection();
      throw;
    }
  }
  void Notify(const std::string& message) const {
    RequireOpen();
    manager_->Send(message);
  }
  void End() {
    if (ended_) {
      return;
    }
    ended_ = true;
    manager_->ForgetTasks(id_);
    RequireConnection();
    const Json::Value reply = manager_->Ask("end_session", id_, EndSessionMessage(id_));
    if (reply["Result"] != "Success") {
      throw ManagerError("the service does not end session " + std::to_string(id_) + ": " +
                         WriteCompact(reply));
    }
  }

 private:
  void RequireOpen() const {
    if (ended_) {
      throw ManagerError("session " + std::to_string(id_) + " has ended");
    }
    RequireConnection();
  }
  bool is_connected() const {
    return manager_->peer().connections() == connection_ && manager_->peer().client_pid();
  }
  void RequireConnection() const {
    if (!is_connected()) {
      throw ManagerError("session " + std::to_string(id_) + " has ended with its connection");
    }
  }

  const std::shared_ptr<SimulatedManager::Impl> manager_;
  const std::uint32_t id_;
  const std::uint32_t opcode_;
  const std::vector<std::uint32_t> subsystems_;
  const std::size_t connection_;
  bool ended_ = false;
};

ManagedSession::ManagedSession(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ManagedSession::~ManagedSession() = default;
ManagedSession::ManagedSession(ManagedSession&&) noexcept = default;
ManagedSession& ManagedSession::operator=(ManagedSession&&) noexcept = default;

std::uint32_t ManagedSession::id() const {
  return impl_->id();
}

std::uint32_t ManagedSession::opcode() const {
  return impl_->opcode();
}

bool ManagedSession::is_open() const {
  return impl_->is_open();
}

const std::vector<std::uint32_t>& ManagedSession::subsystems() const {
  return impl_->subsystems();
}

Answer ManagedSession::Call(const std::string& function,
                            const std::vector<std::string>& typed_arguments,
                            std::optional<std::uint32_t> subsystem) {
  return Await(Send(function, typed_arguments, subsystem));
}

int ManagedSession::Send(const std::string& function,
                         const std::vector<std::string>& typed_arguments,
                         std::optional<std::uint32_t> subsystem) {
  return SendArgs(function, Arguments(typed_arguments), subsystem);
}

int ManagedSession::SendArgs(const std::string& function, const Json::Value& args,
                             std::optional<std::uint32_t> subsystem) {
  return impl_->Send(function, args, subsystem);
}

Answer ManagedSession::Await(int transac_id, std::optional<Milliseconds> patience) {
  return impl_->manager().Await(transac_id, patience.value_or(impl_->manager().patience()));
}

void ManagedSession::NotifyState(const std::string& state, const std::string& value,
                                 const std::string& package) {
  impl_->Notify(StateChangeMessage(id(), state, value, package));
}

void ManagedSession::NotifySetting(const std::string& setting, const std::string& value,
                                   const std::string& package) {
  impl_->Notify(SettingChangeMessage(id(), setting, value, package));
}

void ManagedSession::NotifyPermission(const std::string& permission, bool granted,
                                      const std::string& package) {
  impl_->Notify(PermissionChangeMessage(id(), permission, granted, package));
}

void ManagedSession::End() {
  impl_->End();
}

ManagedSession SimulatedManager::OpenSession(std::uint32_t opcode,
                                             std::vector<std::uint32_t> subsystems) {
  const RegisteredApi api = impl_->WaitReady(opcode);
  if (subsystems.empty()) {
    if (api.subsystems.empty()) {
      throw ManagerError("the definition of opcode " + OpcodeText(opcode) + " lists no subsystem");
    }
    subsystems = {api.subsystems.front()};
  }
  return ManagedSession(
      std::make_unique<ManagedSession::Impl>(impl_, opcode, std::move(subsystems)));
}

}  // namespace orvd
