// Every member of the Manager's messages in docs/PROTOCOL.md: missing, and with each kind of value.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <map>
#include <set>

#include "docs/conversation.h"
#include "docs/member_path.h"
#include "json_text.h"
#include "link/never_destroyed.h"

namespace {

using std::string;

int child_writes_to = -1;

// By a signal, for an exit takes a second under a sanitizer.
[[noreturn]] void EndChild(const string& outcome) {
  static_cast<void>(write(child_writes_to, outcome.data(), outcome.size()));
  kill(getpid(), SIGKILL);
  abort();
}

// Runs in a process of its own, for the library's state is the process's; "ends" for one that ends
// by an exception.
string InChild(const std::function<string()>& run) {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    child_writes_to = ends[1];
    std::set_terminate([] { EndChild("ends"); });
    EndChild(run());
  }
  close(ends[1]);
  string outcome;
  std::array<char, 4096> part{};
  for (ssize_t size = 0; (size = read(ends[0], part.data(), part.size())) > 0;) {
    outcome.append(part.data(), static_cast<size_t>(size));
  }
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return outcome;
}

using Readings = std::map<string, std::map<string, string>>;  // by reading, then by value

Readings ReadReadings() {
  const string head = "| read as | `\"16\"` |";
  const string document = ReadSource("docs/PROTOCOL.md");
  const size_t begin = document.find(head);
  const auto values = Quoted(document.substr(begin, document.find('\n', begin) - begin));
  Readings readings;
  for (const Row& row : TableRows(head)) {
    for (size_t i = 0; i < values.size(); ++i) {
      const string cell = row.cells.at(i + 1);
      readings[Quoted(row.cells[0]).at(0)][values[i]] = cell[0] == '`' ? Quoted(cell)[0] : cell;
    }
  }
  EXPECT_EQ(readings.size(), 10U);
  return readings;
}

constexpr const char* kKinds[] = {
    "INIT",         "AUTH",       "REGS",          "REDY",          "start_session",
    "exec_task",    "PERMISSION", "ready_session", "INFO_QUERY",    "permission_change",
    "state_change", "INFO_MNTR",  "end_session",   "volume_change", "system_setting_change"};

// One kind of message, tried at its place in the conversation.
class ManagersMessage : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    at_ = std::find_if(all_.begin(), all_.end(), [](const Example& example) {
      return example.IsTried() && orvd::KindOf(example.text) == GetParam();
    });
    ASSERT_TRUE(at_ != all_.end());
  }

  string Outcome(const string& message, orvd::Milliseconds limit = orvd::kPatience) {
    const auto [known, is_new] = outcomes_.try_emplace(message);
    if (is_new) {
      known->second = InChild([&] {
        auto& conversation = ProcessWide<Conversation>();
        for (auto past = all_.begin(); past != at_ && !HasFailure(); ++past) {
          conversation.Play(*past);
        }
        return HasFailure() ? "" : conversation.Try(message, limit);
      });
    }
    EXPECT_NE(known->second, "") << message;
    return known->second;
  }

  // With another value than that of the example, these find no call that waits for the message.
  orvd::Milliseconds LimitFor(const string& path, const string& json) const {
    const std::set<string> selectors{"opcode", "QueryId"};
    return selectors.count(path) != 0 && WithMember(at_->text, path, json) != Canonical(at_->text)
               ? orvd::Milliseconds(50)
               : orvd::kPatience;
  }

  void TryValue(const string& path, const string& json, const string& cell) {
    const string same = cell == "refused" ? R"("refused")" : cell == "=" ? json : cell;
    const orvd::Milliseconds limit = LimitFor(path, same);
    const string outcome = Outcome(WithMember(at_->text, path, json), limit);
    EXPECT_EQ(outcome, cell == "ends" ? cell : Outcome(WithMember(at_->text, path, same), limit))
        << json;
    EXPECT_EQ(outcome == "ends", cell == "ends") << json;
  }

  void TryMissing(const string& path, const string& fallback, bool is_observable) {
    const string with_fallback = WithMember(at_->text, path, fallback);
    const orvd::Milliseconds limit = LimitFor(path, fallback);
    EXPECT_EQ(Outcome(WithMember(at_->text, path, std::nullopt), limit),
              Outcome(with_fallback, limit));
    if (is_observable && with_fallback != Canonical(at_->text)) {
      EXPECT_NE(Outcome(with_fallback, limit), Outcome(at_->text)) << "is not read";
    }
  }

  static string Canonical(const string& message) {
    return orvd::WriteCompact(orvd::ParseObject(message));
  }

  const std::vector<Example> all_ = Examples();
  std::vector<Example>::const_iterator at_;
  std::map<string, string> outcomes_;
};

INSTANTIATE_TEST_SUITE_P(, ManagersMessage, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return string(kind.param); });

TEST(ManagersMessages, AreAllTried) {
  std::multiset<string> tried;
  for (const Example& example : Examples()) {
    if (example.IsTried()) {
      tried.insert(orvd::KindOf(example.text));
    }
  }
  EXPECT_EQ(tried, std::multiset<string>(std::begin(kKinds), std::end(kKinds)));
}

TEST_P(ManagersMessage, MembersAreReadAsTheTableSays) {
  const Readings readings = ReadReadings();
  for (const Row& row : at_->members) {
    SCOPED_TRACE("docs/PROTOCOL.md:" + std::to_string(row.line));
    const string path = Quoted(row.cells.at(0)).at(0), reading = Quoted(row.cells.at(2)).at(0);
    if (row.cells.at(3) != "—") {
      // REGS is dropped whatever it holds, and the start time is only logged.
      TryMissing(path, Quoted(row.cells[3]).at(0),
                 string("REGS") != GetParam() && reading != "int64");
    }
    if (reading == "checked" || reading == "int64") {
      continue;
    }
    for (const auto& [json, cell] : readings.at(reading)) {
      ASSERT_FALSE(HasFailure());
      TryValue(path, json, cell);
    }
  }
}

}  // namespace
