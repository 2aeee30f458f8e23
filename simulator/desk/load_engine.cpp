#include "load_engine.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <thread>

#include "orvex_simulator/json_text.h"
#include "orvex_simulator/messages.h"
#include "requests.h"

namespace orvd {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kTick{10};
constexpr milliseconds kBetweenSamples{50};
constexpr milliseconds kBetweenRenewals{20};
constexpr seconds kAbsence{1};
constexpr seconds kEndLimit{10};
constexpr milliseconds kSettling{100};
constexpr int kSettlings = 30;
constexpr int kBatch = 64;               // tasks that are sent before answers are read
constexpr std::uint64_t kSample = 64;    // one of so many answers is parsed as a whole
constexpr std::uint64_t kNotifyAt = 20;  // tasks for each notification

constexpr int kServiceId = 1;

// Refuses permissions "denied...", and knows no items "unknown...": the checking service asks so.
Knowledge KnowledgeOfLoad() {
  return {[](const std::string& permission) { return permission.rfind("denied", 0) != 0; },
          [](const std::string& item) {
            return item.rfind("unknown", 0) == 0 ? std::nullopt : std::optional(item);
          }};
}

// What ids begin behind, other than those of earlier Managers, whose tasks the service may still
// answer: the microseconds since the machine has started grow faster than any run uses ids.
std::int32_t IdsBehind() {
  constexpr std::int64_t kRange = 1 << 30;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::int32_t>(
      kRange + std::chrono::duration_cast<std::chrono::microseconds>(now).count() % kRange);
}

double SecondsOf(Load::Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

Load::Load(const LoadOptions& options, const StopSignals& stop)
    : options_(options),
      stop_(stop),
      link_(options.path),
      ledger_(static_cast<std::size_t>(options.outstanding), IdsBehind()),
      sessions_([this](const std::string& message) { link_.Send(message); },
                static_cast<std::uint32_t>(IdsBehind())) {}

// --- The loop

LoadResult Load::Run() {
  if (AwaitService()) {
    Settle();
    begin_ = last_answer_ = Clock::now();
    next_progress_ = begin_ + seconds(1);
    next_end_ = begin_ + seconds(options_.churn);
    const double own = OwnCpu();
    while (!Over() && Turn()) {
    }
    Drain();
    result_.seconds = SecondsOf(last_answer_ - begin_);
    result_.own_cpu = OwnCpu() - own;
    Sample();
    if (link_.open()) {
      sessions_.End();
      link_.Flush();
    }
  }
  counts_.sessions = sessions_.started();
  counts_.refused = sessions_.refused();
  result_.growth = memory_.Growth();
  ending_ = true;
  link_.Shut();
  AwaitEnd();
  return result_;
}

bool Load::Over() const {
  const auto count = static_cast<std::uint64_t>(options_.count);
  return !result_.problem.empty() || (count != 0 && counts_.sent >= count) ||
         (options_.seconds != 0 && Clock::now() - begin_ >= seconds(options_.seconds));
}

// Returns false when the run has to end.
bool Load::Turn() {
  if (!link_.open() && !AwaitService()) {
    return false;
  }
  link_.Wait(kTick, draining_ ? -1 : stop_.fd());
  ReadAll();
  const Clock::time_point now = Clock::now();
  if (now >= next_tick_) {
    next_tick_ = now + kTick;
    Tick(now);
  }
  if (link_.open() && !draining_ && !pausing_) {
    SendTasks(now);
  }
  return result_.problem.empty() && (draining_ || !stop_.Came());
}

// Waits until a service is connected and a pair is ready.
bool Load::AwaitService() {
  const Clock::time_point limit = Clock::now() + seconds(options_.wait);
  while (!sessions_.ready() && Clock::now() < limit && !stop_.Came()) {
    if (!link_.open()) {
      link_.Connect(kTick);
    } else {
      link_.Wait(kTick, stop_.fd());
      ReadAll();
    }
  }
  if (!sessions_.ready() && !stop_.Came()) {
    const std::string after = last_end_.empty() ? "" : " after the end '" + last_end_ + "'";
    result_.problem = (link_.open() ? "the service made no session ready within "
                                    : "no service connected within ") +
                      std::to_string(options_.wait) + " s" + after;
  }
  unready_since_ = Clock::now();
  if (begin_ != Clock::time_point()) {
    result_.longest_return =
        std::max(result_.longest_return, SecondsOf(unready_since_ - away_since_));
  }
  last_answer_ = unready_since_;
  Sample();
  return sessions_.ready();
}

// Reads for a moment. Before the run, until the service has started all that it needs without a
// task. After it, because a second answer may still come, and threads of tasks end after theirs.
void Load::Settle() {
  for (int left = kSettlings; left > 0 && link_.open(); --left) {
    const std::optional<ProcessState> last = draining_ ? result_.before : ReadProcess(link_.pid());
    const Clock::time_point end = Clock::now() + kSettling;
    while (link_.open() && Clock::now() < end) {
      link_.Wait(kTick, -1);
      ReadAll();
    }
    const std::optional<ProcessState> now = ReadProcess(link_.pid());
    (draining_ ? result_.after : result_.before) = now;
    if (!last || !now || (now->threads <= last->threads && now->descriptors <= last->descriptors)) {
      return;
    }
  }
}

// Waits for the outstanding answers, and for a service that is away.
void Load::Drain() {
  draining_ = true;
  if (!result_.problem.empty()) {
    counts_.lost += ledger_.GiveUp();
    return;
  }
  const Clock::time_point limit = Clock::now() + seconds(options_.answer_limit + 1);
  while ((ledger_.open() > 0 || sessions_.waiting() > 0) && Clock::now() < limit && Turn()) {
  }
  counts_.missing += ledger_.GiveUp();
  counts_.silent += sessions_.waiting();
  if (!link_.open()) {
    AwaitService();
  }
  Settle();
}

void Load::Tick(Clock::time_point now) {
  counts_.missing += ledger_.GiveUp(now - seconds(options_.answer_limit));
  if (now >= next_sample_) {
    next_sample_ = now + kBetweenSamples;
    Sample();
  }
  if (now >= next_progress_) {
    PrintProgress(now);
  }
  if (sessions_.ready() || draining_) {
    unready_since_ = now;
  } else if (link_.open() && now - unready_since_ > seconds(options_.wait)) {
    result_.problem = "the service keeps no session ready";
  }
  if (options_.churn == 0 || draining_ || !link_.open()) {
    return;
  }
  if (now >= next_renewal_) {
    next_renewal_ = now + kBetweenRenewals;
    RenewSession();
  }
  // Every second end waits for all answers: a task that an end interrupts cannot be missing.
  pausing_ = now >= next_end_ && ended_ % 2 == 0;
  if (now >= next_end_ && (!pausing_ || ledger_.open() == 0)) {
    EndLink();
    pausing_ = false;
    next_end_ = Clock::now() + seconds(options_.churn);
  }
}

void Load::Sample() {
  if (!link_.open()) {
    return;
  }
  const std::optional<ProcessState> state = ReadProcess(link_.pid());
  if (link_.pid() != result_.pid) {
    result_.pid = link_.pid();
    ++result_.processes;
    cpu_earlier_ = result_.service_cpu;
    cpu_before_ = state ? state->cpu : 0;
    result_.before = state;
    memory_.Clear();
  }
  if (state) {
    memory_.Add(state->memory);
    result_.service_cpu = cpu_earlier_ + state->cpu - cpu_before_;
  }
}

void Load::PrintProgress(Clock::time_point now) {
  const auto interval = seconds(isatty(STDERR_FILENO) == 1 ? 1 : 5);
  const Clock::time_point last = std::max(begin_, next_progress_ - interval);
  const double rate = static_cast<double>(counts_.answered - shown_) / SecondsOf(now - last);
  static_cast<void>(std::fprintf(
      stderr,
      "%6.0f s  %7.0f tasks/s, %llu answered, %zu outstanding, %llu missing, %llu duplicate, "
      "%llu late, %zu ends of the connection\n",
      SecondsOf(now - begin_), rate, static_cast<unsigned long long>(counts_.answered),
      ledger_.open(), static_cast<unsigned long long>(counts_.missing),
      static_cast<unsigned long long>(counts_.duplicate),
      static_cast<unsigned long long>(counts_.late), ended_));
  shown_ = counts_.answered;
  next_progress_ = now + interval;
}

// --- Receiving

void Load::ReadAll() {
  while (const auto message = link_.Receive()) {
    Take(*message);
  }
  if (!link_.open()) {
    LoseLink();
  }
}

void Load::Take(std::string_view message) {
  if (const auto answer = ScanAnswer(message)) {
    TakeAnswer(*answer, message);
  } else {
    TakeOther(std::string(message));
  }
}

void Load::TakeAnswer(const ScannedAnswer& answer, std::string_view message) {
  SentTask task;
  switch (ledger_.Close(answer.transac_id, task)) {
    case AnswerKind::kLate:
      ++counts_.late;
      return;
    case AnswerKind::kDuplicate:
      ++(sessions_.Opened(answer.session_id) ? counts_.duplicate : counts_.others);
      return;
    case AnswerKind::kFirst:
      break;
  }
  const Clock::time_point now = Clock::now();
  result_.latencies.Add(now - task.at);
  result_.longest_pause = std::max(result_.longest_pause, SecondsOf(now - last_answer_));
  last_answer_ = now;
  ++counts_.answered;
  counts_.failed += answer.status == 0 ? 0 : 1;
  counts_.wrong += Fits(task, answer, message) ? 0 : 1;
}

bool Load::Fits(const SentTask& task, const ScannedAnswer& answer, std::string_view message) const {
  if (answer.session_id != task.session) {
    return false;
  }
  if (options_.check && answer.status == 0) {
    const std::string sum = R"("func":{"sum":")" + std::to_string(task.sum) + R"("},"transac_id":)";
    if (message.find(sum) == std::string_view::npos) {
      return false;
    }
  }
  if (task.id % static_cast<std::int32_t>(kSample) != 0) {
    return true;
  }
  const Json::Value whole = ParseObject(std::string(message));
  return whole["req_type"] == "exec_task" && whole["subsys_id"] == std::to_string(task.ssid) &&
         whole["return"].isInt() && whole["func"].isObject();
}

void Load::TakeOther(const std::string& message) {
  const Json::Value object = ParseObject(message);
  const Json::Value& kind = object["req_type"];
  if (kind == "start_session" || kind == "end_session") {
    sessions_.TakeAnswer(object);
  } else if (kind == "exec_task" && object["transac_id"].isInt() && object["session_id"].isUInt()) {
    const bool has_status = object["status"].isInt();
    TakeAnswer({object["transac_id"].asInt(), has_status ? object["status"].asInt() : 0,
                object["session_id"].asUInt()},
               message);
  } else {
    TakeRequest(object);
  }
}

void Load::TakeRequest(const Json::Value& request) {
  const std::optional<std::string> answer = AnswerRequest(request, kServiceId, KnowledgeOfLoad());
  if (!answer) {
    ++counts_.others;
    return;
  }
  link_.Send(*answer);
  counts_.queries += request["QueryId"].isNull() ? 0 : 1;
  const Json::Value& opcode = request["Opcode"];
  if (request["req_type"] == "AUTH") {
    registered_[opcode.asUInt()] = SubsystemsOf(request["api_def"]);
  } else if (request["req_type"] == "REDY") {
    const auto ssids = registered_.extract(opcode.asUInt());
    const bool is_meant = !options_.opcode || *options_.opcode == opcode.asUInt();
    if (!ssids.empty() && is_meant && !ssids.mapped().empty()) {
      sessions_.Open(opcode.asUInt(), ssids.mapped(), static_cast<std::size_t>(options_.sessions));
    }
  }
}

// --- Sending

void Load::SendTasks(Clock::time_point now) {
  const auto count = static_cast<std::uint64_t>(options_.count);
  for (int left = kBatch; left > 0 && sessions_.ready() && !ledger_.full() && link_.Flush() &&
                          (count == 0 || counts_.sent < count);
       --left) {
    const Pair& pair = sessions_.Next();
    const TaskText& text = options_.tasks[next_task_++ % options_.tasks.size()];
    SentTask& task = ledger_.Open();
    task.session = pair.session;
    task.ssid = pair.ssid;
    task.sum = text.sum;
    task.at = now;
    link_.Send(TaskMessage(pair.session, pair.opcode, pair.ssid, task.id, text.members));
    ++counts_.sent;
    if (options_.notify && counts_.sent % kNotifyAt == 0) {
      Notify(pair.session);
    }
  }
}

// The package numbers the notifications of a connection, so that a service can find a loss.
void Load::Notify(std::uint32_t session) {
  const std::string number = std::to_string(++notified_);
  ++counts_.notifications;
  switch (notified_ % 3) {
    case 0:
      link_.Send(StateChangeMessage(session, "load", number, number));
      return;
    case 1:
      link_.Send(SettingChangeMessage(session, "load", number, number));
      return;
    default:
      link_.Send(PermissionChangeMessage(session, "load", true, number));
  }
}

// --- Ending sessions and the connection

void Load::RenewSession() {
  const bool whole = ++renewed_ % 4 == 0;
  const Pair* pair = sessions_.Renew(whole);
  if (pair == nullptr) {
    return;
  }
  if (whole) {
    // The library must not run this task: its session has ended.
    link_.Send(TaskMessage(pair->session, pair->opcode, pair->ssid, ledger_.TakeId(),
                           options_.tasks.front().members));
    ++counts_.rejected;
  }
  if (renewed_ % 5 == 0) {
    link_.Send(R"({"req_type":"of_a_newer_manager","session_id":"?"})");
  }
}

void Load::EndLink() {
  last_end_ = options_.ways[ended_++ % options_.ways.size()];
  ending_ = true;
  if (last_end_ == "close") {
    link_.Shut();
  } else if (last_end_ == "half-close") {
    link_.ShutSending();
  } else if (last_end_ == "empty") {
    link_.SendEmptyPacket();
  } else if (last_end_ == "reset") {
    // A message must be unread. The library answers this one also when no task is outstanding.
    link_.Send(EndSessionMessage(kNoSession));
    last_end_ = link_.AwaitUnread(kEndLimit) ? "reset" : "close";
    link_.Close();
  } else {
    link_.StopListening();
    link_.Close();
    stop_.Wait(kAbsence);
    link_.Listen();
  }
  ++counts_.ends[last_end_];
  AwaitEnd();
  LoseLink();
  ending_ = false;
}

// Reads what the service still sends, until it has closed the connection.
void Load::AwaitEnd() {
  const Clock::time_point limit = Clock::now() + kEndLimit;
  while (link_.open() && Clock::now() < limit) {
    link_.Wait(kTick, -1);
    ReadAll();
  }
  link_.Close();
}

void Load::LoseLink() {
  away_since_ = Clock::now();
  counts_.left += ending_ ? 0 : 1;
  counts_.lost += ledger_.GiveUp();
  sessions_.Forget();
  registered_.clear();
  notified_ = 0;
}

}  // namespace orvd
