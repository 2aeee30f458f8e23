// The inside of ManagerPeer: its thread, which accepts and reads, and what callers share with it.

#pragma once

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bounded_queue.h"
#include "orvex_simulator/manager_peer.h"
#include "unix_socket.h"

namespace orvd {

class ManagerPeer::Impl {
 public:
  using Clock = std::chrono::steady_clock;
  using SharedSocket = std::shared_ptr<Descriptor>;

  Impl(std::string path, bool listening);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void SetRule(const std::string& req_type, Rule rule);
  bool Send(const std::string& text);
  void SendLater(const std::string& text, Milliseconds delay);
  std::optional<std::string> Next(Milliseconds limit);
  void SkipAll();
  void DiscardMessages();
  void KeepTranscript(std::size_t entries, std::size_t bytes);
  template <typename Condition>
  bool WaitUntil(Milliseconds limit, Condition condition);
  void Record(Direction direction, const std::string& text);

  // Runs `task` on the peer's thread, and waits until it is done. The caller gets its exception.
  // Descriptors are opened, read and closed on the peer's thread only.
  template <typename Task>
  void OnPeerThread(Task task);
  void End(Direction end, bool reading);
  void ShutDownWriting();
  void SetReading(bool reading);
  void SetListening(bool listening);
  int HandOver();
  SharedSocket client();

  // Guarded by mutex_.
  std::size_t connections_ = 0;
  std::size_t ended_ = 0;  // the number of the latest connection that the client has ended
  BoundedQueue<TranscriptEntry> transcript_{kTranscriptEntries, kTranscriptBytes};
  std::function<void(const TranscriptEntry&)> observer_;
  SharedSocket client_;

  std::mutex mutex_;

 private:
  // An answer that is sent later, if its connection is then still there.
  struct Letter {
    std::size_t connection;
    std::string text;
  };

  void Run();
  void Wake() const;
  void Serve(const std::vector<pollfd>& ready);
  std::vector<pollfd> Watched();
  void Accept();
  ssize_t ReadPacket(const Descriptor& socket, int flags);
  void ReadOrEnd();
  void Receive(const std::string& text);
  void Answer(const std::string& text);
  void RunTasks();
  int NextDeadline();
  void SendDue();

  const std::string path_;
  const Clock::time_point start_ = Clock::now();
  const Descriptor wake_;
  std::condition_variable changed_;

  // Guarded by mutex_.
  BoundedQueue<std::string> inbox_{kUnreadMessages, kUnreadBytes};
  std::size_t lost_ = 0;  // messages that found the inbox full
  bool discarding_ = false;
  std::map<std::string, Rule> rules_;
  std::deque<std::packaged_task<void()>> tasks_;
  std::multimap<Clock::time_point, Letter> letters_;

  // Used on the peer's thread only.
  Descriptor listener_;
  std::uint64_t inode_ = 0;  // of the listening socket's file
  bool reading_ = true;
  bool stopping_ = false;
  std::vector<char> buffer_ = std::vector<char>(kLargestPacket);

  std::thread thread_;
};

template <typename Task>
void ManagerPeer::Impl::OnPeerThread(Task task) {
  if (std::this_thread::get_id() == thread_.get_id()) {
    task();
    return;
  }
  std::packaged_task<void()> packaged(std::move(task));
  std::future<void> done = packaged.get_future();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(packaged));
  }
  Wake();
  done.get();
}

template <typename Condition>
bool ManagerPeer::Impl::WaitUntil(Milliseconds limit, Condition condition) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, limit, condition);
}

}  // namespace orvd
