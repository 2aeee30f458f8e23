// The tasks of a whole recording, each with its answer. packet_fields.h reads one packet.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvd {

inline constexpr const char* kPacketKinds[] = {"exec_task",
                                               "start_session",
                                               "ready_session",
                                               "end_session",
                                               "INIT",
                                               "AUTH",
                                               "REDY",
                                               "REGS",
                                               "DINT",
                                               "EXIT",
                                               "PERMISSION",
                                               "INFO_QUERY",
                                               "INFO_MNTR",
                                               "permission_change",
                                               "state_change",
                                               "text",
                                               "bytes",
                                               "empty",
                                               "system_setting_change",
                                               "other"};

struct Packet {
  bool to_manager = false;
  std::size_t kind = 0;  // index of kPacketKinds
  std::optional<std::uint32_t> session;
  std::vector<std::uint32_t> opcodes;  // sorted, each once
  std::uint32_t subsystem = 0;         // of a task
  std::int64_t number = 0;             // of a task or a query
  std::string function;                // of a task
  bool short_form = false;             // an answer that names no task
  bool failed = false;                 // an answer with a refusal or a failure

  const char* kind_name() const { return kPacketKinds[kind]; }
  bool IsTask() const { return kind == 0 && !to_manager; }
  bool IsAnswer() const { return kind == 0 && to_manager; }
};

Packet ReadPacket(const std::string& bytes, bool to_manager);

inline constexpr std::size_t kNoPacket = std::numeric_limits<std::size_t>::max();

struct Task {
  std::size_t request = kNoPacket;  // numbers of packets, as passed to TaskBook::Add
  std::size_t answer = kNoPacket;
  std::chrono::microseconds asked{0};
  std::chrono::microseconds answered{0};
  bool failed = false;
};

// Finds the answers of tasks, also on another connection, and the session of answers to queries.
class TaskBook {
 public:
  // Takes the next packet. Completes its session and opcodes if the request has them.
  void Add(Packet& packet, std::size_t number, std::chrono::microseconds at);
  const std::vector<Task>& tasks() const { return tasks_; }  // in the order of the requests

 private:
  struct Open {
    std::size_t task = 0;
    std::optional<std::uint32_t> session;
    std::vector<std::uint32_t> opcodes;
  };
  using Key = std::pair<std::optional<std::uint32_t>, std::int64_t>;  // session, task

  void Ask(const Packet& packet, std::size_t number, std::chrono::microseconds at);
  void Answer(Packet& packet, std::size_t number, std::chrono::microseconds at);
  void AddQuery(Packet& packet);

  std::vector<Task> tasks_;
  std::map<Key, std::deque<Open>> open_;
  std::deque<Open> open_short_;
  std::map<std::int64_t, std::optional<std::uint32_t>> queries_;
};

}  // namespace orvd
