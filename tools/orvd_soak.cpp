// A stress test with two processes: a service, and a Manager that sends random valid messages and
// is often restarted. The test fails when an answer or a query result is missing, duplicate or
// wrong, when a notification is lost, or when the memory of the service grows. usage: orvd_soak
// [MINUTES], in a private /dev.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "orvex_simulator/json_text.h"
#include "orvex_simulator/manager_peer.h"
#include "soak.h"
#include "soak_ledger.h"
#include "soak_messages.h"

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using std::chrono::milliseconds;

constexpr const char* kPath = "/dev/socket/orvd";
constexpr uint32_t kSenders = 4;
constexpr Seconds kBetweenRestarts{3};
constexpr Seconds kBetweenSamples{0.2};
constexpr Seconds kPatience{10};
constexpr double kLargestGrowth = 5;      // percent
constexpr Seconds kLongEnoughToGrow{60};  // a shorter test only warms up
constexpr int64_t kStartKey = INT64_C(1) << 40;
constexpr int64_t kEndKey = INT64_C(2) << 40;

struct Session {
  uint32_t id = 0;
  std::vector<uint32_t> ssids;
};

class Soak {
 public:
  Soak(pid_t service, int report, Seconds length)
      : service_(service), report_(report), length_(length) {}

  void Run();
  // Prints the summary. Returns false when the test has failed.
  bool Judge();

 private:
  // --- One connection, from the readiness of the service to the loss.
  void Listen();
  void SetRules();
  bool Serve();
  void Leave(bool drained, bool listening_kept);
  void Quiesce();
  void StopSenders();

  // --- The sending threads.
  void SendAllTheTime(unsigned seed);
  void SendRound(Messages& messages);
  bool Begin(Messages& messages, Session& session);
  bool Burst(Messages& messages, const std::vector<Session>& sessions);
  bool SendOne(Messages& messages, const Session& session);
  bool EndPart(Session& session);
  bool Ask(int64_t key, const Exchange& exchange);

  // --- The main thread.
  bool Await(Seconds limit, const std::function<bool()>& condition);
  void Tick();
  void Sample();
  void PrintProgress();
  void EndService();
  void PrintCounts() const;
  Seconds Elapsed() const { return Clock::now() - begin_; }
  long ServiceStatus(const std::string& field) const;
  long RssAt(double fraction) const;
  bool Fail(const std::string& problem);

  const pid_t service_;
  const int report_;
  const Seconds length_;
  const Clock::time_point begin_ = Clock::now();

  Ledger ledger_;
  std::unique_ptr<orvd::ManagerPeer> peer_;
  std::vector<std::thread> senders_;
  std::atomic<bool> stopping_{false};
  std::atomic<std::size_t> ready_{0};
  std::atomic<uint32_t> sessions_{0};
  std::atomic<uint32_t> tasks_{0};
  std::atomic<uint64_t> notifications_{0};

  uint64_t restarts_ = 0;
  std::vector<long> rss_;  // kB
  std::vector<long> idle_threads_;
  Seconds next_progress_{10};
  ServiceCounts service_counts_;
  std::string problem_;
  bool ended_ = false;
};

bool Soak::Fail(const std::string& problem) {
  problem_ = problem_.empty() ? problem : problem_;
  return false;
}

// --- The main thread

long Soak::ServiceStatus(const std::string& field) const {
  std::ifstream status("/proc/" + std::to_string(service_) + "/status");
  std::string word;
  while (status >> word && word != field) {
  }
  long value = 0;
  status >> value;
  return value;
}

void Soak::Sample() {
  if (Elapsed() >= static_cast<double>(rss_.size()) * kBetweenSamples) {
    rss_.push_back(ServiceStatus("VmRSS:"));
  }
}

void Soak::PrintProgress() {
  if (Elapsed() >= next_progress_) {
    next_progress_ += Seconds(10);
    printf("%5.0f s  %u sessions, %u tasks, %llu answers, %llu restarts, %ld kB\n",
           Elapsed().count(), sessions_.load(), tasks_.load(),
           static_cast<unsigned long long>(ledger_.counts().answers),
           static_cast<unsigned long long>(restarts_), rss_.back());
  }
}

void Soak::Tick() {
  std::this_thread::sleep_for(milliseconds(10));
  int status = 0;
  if (waitpid(service_, &status, WNOHANG) == service_) {
    ended_ = true;
    Fail("the service ended by itself: " + (WIFSIGNALED(status)
                                                ? "signal " + std::to_string(WTERMSIG(status))
                                                : "status " + std::to_string(WEXITSTATUS(status))));
    return;
  }
  peer_->SkipAll();  // the rules have already checked these messages
  Sample();
  PrintProgress();
}

bool Soak::Await(Seconds limit, const std::function<bool()>& condition) {
  const Clock::time_point begin = Clock::now();
  while (!condition() && problem_.empty() && Clock::now() - begin < limit) {
    Tick();
  }
  return condition() && problem_.empty();
}

// --- The sending threads

bool Soak::Ask(int64_t key, const Exchange& exchange) {
  return ledger_.Open(key, exchange.answer) && peer_->Send(exchange.message);
}

bool Soak::Begin(Messages& messages, Session& session) {
  session = {++sessions_, messages.Subsystems()};
  const int64_t key = kStartKey + session.id;
  return Ask(key, Start(session.id, session.ssids)) &&
         (messages.OneIn(2) || ledger_.WaitAnswered(key)) &&
         peer_->Send(Ready(session.id, session.ssids));
}

bool Soak::SendOne(Messages& messages, const Session& session) {
  if (messages.OneIn(20)) {
    const bool sent = peer_->Send(messages.Notification(session.id));
    notifications_ += sent ? 1 : 0;
    return sent;
  }
  if (messages.OneIn(50)) {
    return peer_->Send(R"({"req_type":"of a newer Manager","session_id":"?"})");
  }
  const uint32_t chosen = messages.Number(0, static_cast<uint32_t>(session.ssids.size()) - 1);
  const auto transac_id = static_cast<int32_t>(++tasks_);
  return Ask(transac_id, messages.Task(session.id, session.ssids[chosen], transac_id));
}

bool Soak::Burst(Messages& messages, const std::vector<Session>& sessions) {
  for (uint32_t left = messages.Number(1, 60); left > 0; --left) {
    const uint32_t chosen = messages.Number(0, static_cast<uint32_t>(sessions.size()) - 1);
    if (!SendOne(messages, sessions[chosen])) {
      return false;
    }
  }
  return true;
}

// Tasks of this session may still run, because the end of a session does not end its tasks.
bool Soak::EndPart(Session& session) {
  const int64_t key = kEndKey + session.id;
  const std::vector<uint32_t> part{session.ssids.back()};
  session.ssids.pop_back();
  return session.ssids.empty() || (Ask(key, End(session.id, part)) && ledger_.WaitAnswered(key));
}

void Soak::SendRound(Messages& messages) {
  std::vector<Session> sessions(messages.Number(1, 4));
  const auto begin = [&](Session& session) { return Begin(messages, session); };
  const auto end_part = [&](Session& session) {
    return session.ssids.size() == 1 || messages.OneIn(2) || EndPart(session);
  };
  const auto end = [&](const Session& session) {
    return Ask(kEndKey + session.id, End(session.id, {}));
  };
  static_cast<void>(
      std::all_of(sessions.begin(), sessions.end(), begin) && Burst(messages, sessions) &&
      std::all_of(sessions.begin(), sessions.end(), end_part) && Burst(messages, sessions) &&
      std::all_of(sessions.begin(), sessions.end(), end));
}

void Soak::SendAllTheTime(unsigned seed) {
  Messages messages(seed);
  while (!stopping_) {
    SendRound(messages);
  }
}

// --- One connection

void Soak::SetRules() {
  const auto judged = [this](auto key_of) {
    return [this, key_of](const std::string& text) -> std::optional<std::string> {
      const Json::Value answer = orvd::ParseObject(text);
      ledger_.Answer(key_of(answer), orvd::WriteCompact(answer));
      return std::nullopt;
    };
  };
  const auto session_key = [](int64_t kind) {
    return [kind](const Json::Value& answer) { return kind + answer["session_id"].asInt64(); };
  };
  peer_->SetRule("exec_task",
                 judged([](const Json::Value& answer) { return answer["transac_id"].asInt64(); }));
  peer_->SetRule("start_session", judged(session_key(kStartKey)));
  peer_->SetRule("end_session", judged(session_key(kEndKey)));
  peer_->SetRule("PERMISSION", AnswerPermissions);
  peer_->SetRule("INFO_QUERY", AnswerInfos);
  peer_->SetRule("INFO_MNTR", AnswerInfos);
}

// A peer records all packets without limit, so there is a new peer each time that the Manager
// listens again.
void Soak::Listen() {
  peer_ = std::make_unique<orvd::ManagerPeer>(kPath, false);
  peer_->AgreeToEverything(7);
  SetRules();
  peer_->SetObserver([this](const orvd::TranscriptEntry& entry) {
    const bool ready = entry.direction == orvd::Direction::kToService &&
                       entry.text.find(R"("REDY")") != std::string::npos;
    ready_ += ready ? 1 : 0;
  });
  peer_->Listen();
}

bool Soak::Serve() {
  if (!Await(kPatience, [this] { return ready_ == std::size(kOpcodes); })) {
    return Fail("the service did not become ready");
  }
  stopping_ = false;
  for (unsigned i = 0; i < kSenders; ++i) {
    const auto seed = static_cast<unsigned>(restarts_ * kSenders + i);
    senders_.emplace_back(&Soak::SendAllTheTime, this, seed);
  }
  const Seconds left = std::min(kBetweenRestarts, length_ - Elapsed());
  Await(left, [] { return false; });
  return problem_.empty();
}

void Soak::StopSenders() {
  stopping_ = true;
  for (std::thread& sender : senders_) {
    sender.join();
  }
  senders_.clear();
}

void Soak::Quiesce() {
  StopSenders();
  ledger_.Drain();
  Await(milliseconds(200), [] { return false; });
  idle_threads_.push_back(ServiceStatus("Threads:"));
}

void Soak::Leave(bool drained, bool listening_kept) {
  drained ? Quiesce() : ledger_.GiveUp();
  stopping_ = true;
  ready_ = 0;
  if (listening_kept) {
    StopSenders();  // otherwise they would continue on the next connection
    peer_->HangUp();
  } else {
    peer_->StopListening();
    peer_->HangUp();
    StopSenders();
  }
  ledger_.LoseOpen();
  ++restarts_;
  if (!listening_kept) {
    std::this_thread::sleep_for(milliseconds(50));
    Listen();
  }
}

void Soak::Run() {
  Listen();
  while (Serve() && Elapsed() < length_) {
    Leave(restarts_ % 4 < 2, restarts_ % 2 == 0);
  }
  Quiesce();
  EndService();
}

void Soak::EndService() {
  if (!ended_) {
    kill(service_, problem_.empty() ? SIGTERM : SIGKILL);
  }
  const Clock::time_point begin = Clock::now();
  while (!ended_ && Clock::now() - begin < kPatience) {
    std::this_thread::sleep_for(milliseconds(10));
    ended_ = waitpid(service_, nullptr, WNOHANG) == service_;
  }
  if (!ended_) {
    kill(service_, SIGKILL);
    Fail("the service does not end");
  } else if (read(report_, &service_counts_, sizeof(service_counts_)) != sizeof(service_counts_)) {
    Fail("the service did not report");
  }
}

// The median of the quarter that ends at `fraction`: under load the memory varies by a tenth within
// seconds.
long Soak::RssAt(double fraction) const {
  const auto count = static_cast<double>(rss_.size());
  const auto end = static_cast<std::ptrdiff_t>(count * fraction);
  const auto begin = std::max<std::ptrdiff_t>(0, end - 1 - static_cast<std::ptrdiff_t>(count / 4));
  std::vector<long> quarter(rss_.begin() + begin, rss_.begin() + end);
  std::sort(quarter.begin(), quarter.end());
  return quarter.empty() ? 0 : quarter[quarter.size() / 2];
}

void Soak::PrintCounts() const {
  const Ledger::Counts counts = ledger_.counts();
  const std::pair<const char*, uint64_t> rows[] = {
      {"sessions", sessions_},
      {"tasks", tasks_},
      {"answers", counts.answers},
      {"lost with connection", counts.lost},
      {"  answered later", counts.late},
      {"missing", counts.missing},
      {"duplicates", counts.duplicates},
      {"wrong", counts.wrong},
      {"notifications", notifications_},
      {"  received by callbacks", service_counts_.notifications},
      {"queries", service_counts_.queries},
      {"  failed by a loss", service_counts_.cut},
      {"  wrong", service_counts_.wrong},
      {"restarts", restarts_}};
  printf("%-24s %10.1f\n", "minutes", Elapsed().count() / 60);
  for (const auto& [name, value] : rows) {
    printf("%-24s %10llu\n", name, static_cast<unsigned long long>(value));
  }
}

bool Soak::Judge() {
  PrintCounts();
  const long half = RssAt(0.5);
  const long end = RssAt(1);
  const double growth = 100.0 * static_cast<double>(end - half) / static_cast<double>(half);
  const auto [low, high] = std::minmax_element(idle_threads_.begin(), idle_threads_.end());
  printf("RSS: %ld kB warm, %ld half, %ld end; %.1f %% over the last half\n", RssAt(0.25), half,
         end, growth);
  printf("threads while idle: %ld to %ld\n", *low, *high);
  const Ledger::Counts counts = ledger_.counts();
  // The callbacks of all opcodes receive every notification.
  const uint64_t due = notifications_ * std::size(kOpcodes);
  if (counts.missing + counts.duplicates + counts.wrong + service_counts_.wrong != 0) {
    Fail("answers or query results are missing, duplicate or wrong");
  } else if (problem_.empty() && service_counts_.notifications != due) {
    Fail("notifications were lost");
  } else if (length_ >= kLongEnoughToGrow && growth > kLargestGrowth) {
    Fail("the service grows");
  }
  puts(problem_.empty() ? "passed" : ("FAILED: " + problem_).c_str());
  return problem_.empty();
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
  const double minutes = argc > 1 ? strtod(argv[1], nullptr) : 20;
  int report[2];
  if (minutes <= 0 || pipe(report) != 0) {
    static_cast<void>(fprintf(stderr, "usage: orvd_soak [MINUTES]\n"));
    return 2;
  }
  static_cast<void>(setvbuf(stdout, nullptr, _IOLBF, 0));
  const pid_t service = fork();  // before the first thread starts
  if (service == 0) {
    soak::RunService(report[1]);
  }
  close(report[1]);
  soak::Soak soak(service, report[0], std::chrono::duration<double>(minutes * 60));
  soak.Run();
  return soak.Judge() ? 0 : 1;
}
