#include "orvex_simulator/simulated_manager.h"

#include <algorithm>
#include <climits>

#include "orvex_simulator/json_text.h"
#include "orvex_simulator/messages.h"
#include "simulated_manager_impl.h"

namespace orvd {
namespace {

std::uint32_t UnsignedOf(const Json::Value& value) {
  return value.isUInt() ? value.asUInt() : 0;
}

int IntegerOf(const Json::Value& value) {
  return value.isInt() ? value.asInt() : -1;
}

std::string TextOf(const Json::Value& value) {
  return value.isString() ? value.asString() : "";
}

std::string Within(Milliseconds patience) {
  return " within " + std::to_string(patience.count()) + " ms";
}

}  // namespace

SimulatedManager::Impl::Impl(ManagerOptions options)
    : options_(std::move(options)), peer_(std::make_unique<ManagerPeer>(options_.path, false)) {
  peer_->DiscardMessages();
  SetAnswers();
  peer_->Listen();
}

// A quick service would reconnect if the manager still listened. What the service has sent is read,
// because a close with unread packets resets the connection.
SimulatedManager::Impl::~Impl() {
  peer_->StopListening();
  peer_->HangUp();
}

// The rules send their answers themselves, so that each can choose what is known before the answer.
template <typename Handler>
void SimulatedManager::Impl::On(const std::string& req_type, Handler handler) {
  peer_->SetRule(req_type, [handler](const std::string& text) {
    handler(text, ParseObject(text));
    return std::nullopt;
  });
}

void SimulatedManager::Impl::SetAnswers() {
  On("INIT", [this](const std::string&, const Json::Value& request) {
    Forget();
    Reply(request);
  });
  On("AUTH", [this](const std::string&, const Json::Value& request) { Register(request); });
  On("REDY", [this](const std::string&, const Json::Value& request) { MakeReady(request); });
  for (const char* kind : {"DINT", "EXIT"}) {
    On(kind, [this](const std::string&, const Json::Value&) { Forget(); });
  }
  for (const std::string kind : {"start_session", "end_session"}) {
    On(kind,
       [this, kind](const std::string&, const Json::Value& reply) { TakeReply(kind, reply); });
  }
  On("exec_task",
     [this](const std::string& text, const Json::Value& answer) { TakeAnswer(text, answer); });
  for (const char* kind : {"PERMISSION", "INFO_QUERY", "INFO_MNTR"}) {
    On(kind, [this](const std::string&, const Json::Value& query) { Reply(query); });
  }
}

void SimulatedManager::Impl::Register(const Json::Value& request) {
  RegisteredApi api;
  api.opcode = UnsignedOf(request["Opcode"]);
  api.definition = request["api_def"];
  api.subsystems = SubsystemsOf(api.definition);
  api.token = TextOf(request["Token"]);
  const std::size_t connection = peer_->connections();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    offers_[api.opcode] = {api, connection};
    ++changes_;
    changed_.notify_all();
  }
  Reply(request);
}

// The opcode counts as ready after the answer, so that no session comes before it.
void SimulatedManager::Impl::MakeReady(const Json::Value& request) {
  const std::uint32_t opcode = UnsignedOf(request["Opcode"]);
  Reply(request);
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = offers_.find(opcode);
  if (found != offers_.end()) {
    found->second.api.ready = true;
    ++changes_;
    changed_.notify_all();
  }
}

void SimulatedManager::Impl::Forget() {
  const std::lock_guard<std::mutex> lock(mutex_);
  offers_.clear();
  ++changes_;
  changed_.notify_all();
}

void SimulatedManager::Impl::TakeReply(const std::string& req_type, const Json::Value& reply) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto awaited = replies_.find({req_type, UnsignedOf(reply["session_id"])});
  if (awaited != replies_.end()) {
    awaited->second = reply;
    changed_.notify_all();
  }
}

void SimulatedManager::Impl::TakeAnswer(const std::string& text, const Json::Value& answer) {
  const Clock::time_point now = Clock::now();
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = tasks_.find(IntegerOf(answer["transac_id"]));
  if (found == tasks_.end() || found->second.answer) {
    ++unexpected_;
    return;
  }
  const auto latency =
      std::chrono::duration_cast<std::chrono::microseconds>(now - found->second.sent);
  found->second.answer = Answer{IntegerOf(answer["return"]), IntegerOf(answer["status"]),
                                answer["func"], latency, text};
  changed_.notify_all();
}

void SimulatedManager::Impl::Reply(const Json::Value& request) {
  const std::optional<std::string> answer = AnswerRequest(request, options_.service_id, knowledge_);
  if (answer) {
    peer_->Send(*answer);
  }
}

bool SimulatedManager::Impl::IsGranted(const std::string& permission) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return denied_.count(permission) == 0;
}

std::optional<std::string> SimulatedManager::Impl::ValueOf(const std::string& item) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = infos_.find(item);
  return found == infos_.end() ? std::nullopt : std::optional(found->second);
}

void SimulatedManager::Impl::SetPermission(const std::string& permission, bool granted) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (granted) {
    denied_.erase(permission);
  } else {
    denied_.insert(permission);
  }
}

void SimulatedManager::Impl::SetInfo(const std::string& name, const std::string& value) {
  const std::lock_guard<std::mutex> lock(mutex_);
  infos_[name] = value;
}

// What was registered on an earlier connection does not count any more.
std::vector<RegisteredApi> SimulatedManager::Impl::Present() const {
  std::vector<RegisteredApi> present;
  if (!peer_->client_pid()) {
    return present;
  }
  const std::size_t connection = peer_->connections();
  for (const auto& [opcode, offer] : offers_) {
    if (offer.connection == connection) {
      present.push_back(offer.api);
    }
  }
  return present;
}

std::vector<RegisteredApi> SimulatedManager::Impl::Registered() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return Present();
}

template <typename Condition>
bool SimulatedManager::Impl::WaitFor(std::unique_lock<std::mutex>& lock, Milliseconds patience,
                                     Condition condition) {
  return changed_.wait_for(lock, patience, [&] { return interrupted_ || condition(); }) &&
         !interrupted_;
}

void SimulatedManager::Impl::Fail(const std::string& text) const {
  throw ManagerError(interrupted_ ? "interrupted" : text);
}

// Why an opcode is not ready, for the text of an error.
std::string SimulatedManager::Impl::Reason(std::uint32_t opcode) const {
  if (!peer_->client_pid()) {
    return "no service is connected to " + options_.path;
  }
  std::string registered;
  for (const RegisteredApi& api : Present()) {
    if (api.opcode == opcode) {
      return "the service has registered it, but not made it ready";
    }
    registered += (registered.empty() ? "" : ", ") + OpcodeText(api.opcode);
  }
  return "the service has registered " + (registered.empty() ? "nothing" : registered);
}

RegisteredApi SimulatedManager::Impl::WaitReady(std::uint32_t opcode) {
  std::unique_lock<std::mutex> lock(mutex_);
  std::optional<RegisteredApi> found;
  const bool is_ready = WaitFor(lock, patience_, [&] {
    for (const RegisteredApi& api : Present()) {
      found = api.opcode == opcode && api.ready ? api : found;
    }
    return found.has_value();
  });
  if (!is_ready) {
    Fail("opcode " + OpcodeText(opcode) + " is not ready" + Within(patience_) + ": " +
         Reason(opcode));
  }
  return *found;
}

std::vector<RegisteredApi> SimulatedManager::Impl::WaitSettled(Milliseconds quiet) {
  std::unique_lock<std::mutex> lock(mutex_);
  const auto is_any_ready = [this] {
    const std::vector<RegisteredApi> present = Present();
    return std::any_of(present.begin(), present.end(),
                       [](const RegisteredApi& api) { return api.ready; });
  };
  const Clock::time_point deadline = Clock::now() + patience_;
  std::size_t seen = 0;
  do {
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
    if (!WaitFor(lock, std::max(left, Milliseconds(0)), is_any_ready)) {
      Fail((peer_->client_pid() ? "the service has made no opcode ready"
                                : "no service is connected to " + options_.path) +
           Within(patience_));
    }
    seen = changes_;
  } while (WaitFor(lock, quiet, [&] { return changes_ != seen; }));
  return Present();
}

void SimulatedManager::Impl::Send(const std::string& message) {
  if (!peer_->Send(message)) {
    throw ManagerError("no service takes the message " + message);
  }
}

Json::Value SimulatedManager::Impl::Ask(const std::string& req_type, std::uint32_t session,
                                        const std::string& message) {
  const ReplyKey key{req_type, session};
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    replies_[key].reset();
  }
  const bool sent = peer_->Send(message);
  std::unique_lock<std::mutex> lock(mutex_);
  if (sent) {
    WaitFor(lock, patience_, [&] { return replies_[key].has_value(); });
  }
  const std::optional<Json::Value> reply = std::move(replies_[key]);
  replies_.erase(key);
  if (!reply) {
    Fail(sent ? "the service does not answer " + req_type + Within(patience_)
              : "no service takes the message " + message);
  }
  return *reply;
}

// ready_session names only pairs that have started: another one may end the service's process.
void SimulatedManager::Impl::Start(std::uint32_t session, std::uint32_t opcode,
                                   const std::vector<std::uint32_t>& subsystems) {
  const Json::Value reply =
      Ask("start_session", session, SessionMessage("start_session", session, opcode, subsystems));
  const std::vector<std::uint32_t> started = StartedSubsystems(reply);
  for (const std::uint32_t subsystem : subsystems) {
    if (std::find(started.begin(), started.end(), subsystem) == started.end()) {
      Ask("end_session", session, EndSessionMessage(session));
      throw ManagerError("the service refuses to start " + OpcodeText(opcode) +
                         "::" + std::to_string(subsystem) + " in a session");
    }
  }
  Send(SessionMessage("ready_session", session, opcode, subsystems));
}

int SimulatedManager::Impl::SendTask(std::uint32_t session, std::uint32_t opcode,
                                     std::uint32_t subsystem, const std::string& function,
                                     const Json::Value& args) {
  int transac_id = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    transac_id = last_transac_id_ = last_transac_id_ % INT_MAX + 1;
    tasks_[transac_id] = {session, Clock::now(), std::nullopt};
  }
  try {
    Send(TaskMessage(session, opcode, subsystem, transac_id, function, args));
  } catch (const ManagerError&) {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.erase(transac_id);
    throw;
  }
  return transac_id;
}

// A result with an unescaped quotation mark makes the answer unreadable for a Manager.
std::string SimulatedManager::Impl::BrokenAnswer(int transac_id) const {
  const std::string mark = R"("transac_id":)" + std::to_string(transac_id) + ",";
  for (const TranscriptEntry& entry : peer_->transcript()) {
    if (entry.direction == Direction::kFromService && KindOf(entry.text) == entry.text &&
        entry.text.find(mark) != std::string::npos) {
      return "the answer to task " + std::to_string(transac_id) + " is not JSON: " + entry.text;
    }
  }
  return "";
}

Answer SimulatedManager::Impl::Await(int transac_id, Milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  const auto found = tasks_.find(transac_id);
  if (found == tasks_.end()) {
    throw ManagerError("task " + std::to_string(transac_id) + " is not awaited");
  }
  const std::string number = std::to_string(transac_id);
  const bool is_over = WaitFor(lock, patience, [&] {
    const auto task = tasks_.find(transac_id);
    return task == tasks_.end() || task->second.answer;
  });
  const auto task = tasks_.extract(transac_id);
  if (task && task.mapped().answer) {
    return *task.mapped().answer;
  }
  const std::string broken = BrokenAnswer(transac_id);
  if (!broken.empty()) {
    throw ManagerError(broken);
  }
  Fail(is_over ? "task " + number + " was awaited twice, or its session was ended"
               : "no answer to task " + number + Within(patience) +
                     ": the function still runs, or the library refuses the task and its "
                     "log says why");
}

void SimulatedManager::Impl::ForgetTasks(std::uint32_t session) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto task = tasks_.begin(); task != tasks_.end();) {
    task = task->second.session == session ? tasks_.erase(task) : std::next(task);
  }
  changed_.notify_all();
}

std::uint32_t SimulatedManager::Impl::NewSession() {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_session_ = last_session_ % (kNoSession - 1) + 1;
  return last_session_;
}

void SimulatedManager::Impl::Interrupt() {
  const std::lock_guard<std::mutex> lock(mutex_);
  interrupted_ = true;
  changed_.notify_all();
}

std::size_t SimulatedManager::Impl::unexpected() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return unexpected_;
}

SimulatedManager::SimulatedManager(ManagerOptions options)
    : impl_(std::make_shared<Impl>(std::move(options))) {}
SimulatedManager::~SimulatedManager() = default;

void SimulatedManager::Deny(const std::string& permission) {
  impl_->SetPermission(permission, false);
}

void SimulatedManager::Grant(const std::string& permission) {
  impl_->SetPermission(permission, true);
}

void SimulatedManager::SetInfo(const std::string& name, const std::string& value) {
  impl_->SetInfo(name, value);
}

std::vector<RegisteredApi> SimulatedManager::registered() const {
  return impl_->Registered();
}

RegisteredApi SimulatedManager::WaitReady(std::uint32_t opcode) {
  return impl_->WaitReady(opcode);
}

std::vector<RegisteredApi> SimulatedManager::WaitSettled(Milliseconds quiet) {
  return impl_->WaitSettled(quiet);
}

void SimulatedManager::Send(const std::string& message) {
  impl_->Send(message);
}

void SimulatedManager::Settle() {
  impl_->Ask("end_session", kNoSession, EndSessionMessage(kNoSession));
}

std::vector<std::string> SimulatedManager::Received(const std::string& req_type) const {
  std::vector<std::string> texts;
  for (const TranscriptEntry& entry : impl_->peer().transcript()) {
    if (entry.direction == Direction::kFromService && KindOf(entry.text) == req_type) {
      texts.push_back(entry.text);
    }
  }
  return texts;
}

std::size_t SimulatedManager::unexpected_answers() const {
  return impl_->unexpected();
}

ManagerPeer& SimulatedManager::peer() {
  return impl_->peer();
}

void SimulatedManager::Interrupt() {
  impl_->Interrupt();
}

}  // namespace orvd
