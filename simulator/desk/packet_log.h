// Prints and records packets on a thread of its own, so that passing them on is not delayed.
//
// The packets wait in a buffer of bounded size. When it is full, the caller waits: nothing is lost.

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "packet_lines.h"
#include "recording.h"
#include "relay.h"

namespace orvd {

class PacketLog : public RelayObserver {
 public:
  // Without a name, there is no recording. Throws CannotRun if the file cannot be written. A later
  // error of the file or of stdout sends SIGTERM to this process; Finish throws it.
  PacketLog(std::string recording, LineFilter filter);
  ~PacketLog() override;
  PacketLog(const PacketLog&) = delete;
  PacketLog& operator=(const PacketLog&) = delete;

  void OnPacket(int connection, PacketDirection direction, std::string_view bytes) override;
  void OnEvent(int connection, LinkEvent event) override;
  // Writes what waits. Prints `summary` behind it.
  void Finish(const std::string& summary);

  std::uint64_t packets() const { return packets_; }
  std::uint64_t bytes() const { return bytes_; }
  std::chrono::microseconds Now() const;

 private:
  struct Entry;
  void Add(Entry entry, std::string_view bytes);
  void Run();
  void WriteAll(const std::string& entries);
  void Stop();
  void Fail(const std::string& why);

  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const std::string name_;
  std::ofstream file_;
  std::optional<RecordingWriter> writer_;
  PacketLines lines_;
  std::string printed_;
  std::string failure_;
  std::atomic<std::uint64_t> packets_{0};
  std::atomic<std::uint64_t> bytes_{0};

  std::mutex mutex_;
  std::condition_variable added_;
  std::condition_variable taken_;
  std::string waiting_;    // guarded by mutex_
  bool stopping_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace orvd
