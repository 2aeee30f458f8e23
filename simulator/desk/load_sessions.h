// The sessions that `orvd-sim load` keeps open: one opcode each, with all its subsystems. Decides
// which message comes next; sends nothing itself.

#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orvd {

struct Pair {
  std::uint32_t session;
  std::uint32_t opcode;
  std::uint32_t ssid;
};

class Sessions {
 public:
  using Clock = std::chrono::steady_clock;
  using Send = std::function<void(const std::string& message)>;

  // The first session has the id behind `last_id`.
  Sessions(Send send, std::uint32_t last_id)
      : send_(std::move(send)), first_id_(last_id + 1), last_id_(last_id) {}

  // Opens `count` sessions of an opcode.
  void Open(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids, std::size_t count);
  // Takes the answers "start_session" and "end_session".
  void TakeAnswer(const Json::Value& answer);
  // The connection has ended.
  void Forget();

  // Whether it is the id of a session of this run, which may have ended.
  bool Opened(std::uint32_t id) const { return id >= first_id_ && id <= last_id_; }
  bool ready() const { return !ready_.empty(); }
  // The pair for the next task, in turn. Only when ready().
  const Pair& Next();
  // Ends one pair, or all pairs, of the next session that has no message outstanding, to begin them
  // again. Returns a pair that ends, or nullptr if all sessions wait.
  const Pair* Renew(bool whole);
  // Ends all sessions for good.
  void End();

  std::size_t waiting() const;  // sessions with a message that is not answered yet
  std::uint64_t started() const { return started_; }  // pairs
  std::uint64_t refused() const { return refused_; }  // pairs

 private:
  enum class Step { kIdle, kStarting, kEndingPart, kEndingAll, kLeaving };
  struct Session {
    std::uint32_t id;
    std::uint32_t opcode;
    std::vector<std::uint32_t> ready;
    std::vector<std::uint32_t> moving;  // that start or end
    Step step;
  };

  void Start(Session& session);
  void TakeStart(Session& session, const Json::Value& answer);
  void TakeEnd(Session& session, const Json::Value& answer);
  void ListReady();

  const Send send_;
  std::vector<Session> sessions_;
  std::vector<Pair> ready_;
  std::size_t next_ready_ = 0;
  std::size_t next_renewed_ = 0;
  const std::uint32_t first_id_;
  std::uint32_t last_id_;
  Pair ending_{};
  std::uint64_t started_ = 0;
  std::uint64_t refused_ = 0;
};

}  // namespace orvd
