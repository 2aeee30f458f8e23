// The inside of SimulatedManager, which its sessions use: what the service has registered, the
// tasks and replies that somebody waits for, and the answers to queries.

#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "orvex_simulator/simulated_manager.h"
#include "requests.h"

namespace orvd {

class SimulatedManager::Impl {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Impl(ManagerOptions options);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  using ReplyKey = std::pair<std::string, std::uint32_t>;  // req_type, session

  void SetAnswers();
  void SetPermission(const std::string& permission, bool granted);
  void SetInfo(const std::string& name, const std::string& value);

  std::vector<RegisteredApi> Registered() const;
  RegisteredApi WaitReady(std::uint32_t opcode);
  std::vector<RegisteredApi> WaitSettled(Milliseconds quiet);

  void Send(const std::string& message);
  // Sends a message about a session, and waits for the reply of that kind.
  Json::Value Ask(const std::string& req_type, std::uint32_t session, const std::string& message);
  void Start(std::uint32_t session, std::uint32_t opcode,
             const std::vector<std::uint32_t>& subsystems);
  int SendTask(std::uint32_t session, std::uint32_t opcode, std::uint32_t subsystem,
               const std::string& function, const Json::Value& args);
  Answer Await(int transac_id, Milliseconds patience);
  void ForgetTasks(std::uint32_t session);

  std::uint32_t NewSession();
  void Interrupt();
  Milliseconds patience() const { return patience_; }
  ManagerPeer& peer() { return *peer_; }
  const ManagerPeer& peer() const { return *peer_; }
  std::size_t unexpected() const;

 private:
  struct Task {
    std::uint32_t session = 0;
    Clock::time_point sent;
    std::optional<Answer> answer;
  };
  struct Offer {
    RegisteredApi api;
    std::size_t connection = 0;  // the number of the connection on which it was registered
  };

  // The rules. Each runs on the peer's thread.
  void Register(const Json::Value& request);
  void MakeReady(const Json::Value& request);
  void TakeReply(const std::string& req_type, const Json::Value& reply);
  void TakeAnswer(const std::string& text, const Json::Value& answer);
  void Forget();
  void Reply(const Json::Value& request);
  bool IsGranted(const std::string& permission) const;
  std::optional<std::string> ValueOf(const std::string& item) const;

  template <typename Handler>
  void On(const std::string& req_type, Handler handler);
  // Waits until `condition` is true, with mutex_ locked. Returns false after `patience` and after
  // Interrupt.
  template <typename Condition>
  bool WaitFor(std::unique_lock<std::mutex>& lock, Milliseconds patience, Condition condition);
  // With mutex_ locked.
  [[noreturn]] void Fail(const std::string& text) const;  // after a wait
  std::vector<RegisteredApi> Present() const;
  std::string Reason(std::uint32_t opcode) const;
  std::string BrokenAnswer(int transac_id) const;

  const ManagerOptions options_;
  const Milliseconds patience_ = options_.patience;
  const Knowledge knowledge_{[this](const std::string& name) { return IsGranted(name); },
                             [this](const std::string& name) { return ValueOf(name); }};

  mutable std::mutex mutex_;  // may be held when the peer is called, but never the other way round
  std::condition_variable changed_;
  std::map<std::uint32_t, Offer> offers_;
  std::size_t changes_ = 0;                                 // of offers_
  std::map<ReplyKey, std::optional<Json::Value>> replies_;  // those that somebody waits for
  std::map<int, Task> tasks_;
  std::set<std::string> denied_;
  std::map<std::string, std::string> infos_;
  int last_transac_id_ = 0;
  std::uint32_t last_session_ = 0;
  std::size_t unexpected_ = 0;
  bool interrupted_ = false;

  std::unique_ptr<ManagerPeer> peer_;  // destroyed first: its thread runs the rules
};

}  // namespace orvd
