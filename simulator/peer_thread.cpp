#include "peer_thread.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>

namespace orvd {
namespace {

// Returns whether the client has closed the connection, or shut its sending side down.
bool HasEnded(const Descriptor& client) {
  pollfd watched{client.fd(), POLLRDHUP, 0};
  return poll(&watched, 1, 0) > 0 && (watched.revents & (POLLRDHUP | POLLHUP)) != 0;
}

// A client that does not read must not block the peer for ever.
void LimitSending(const Descriptor& client) {
  timeval limit{};
  limit.tv_sec = std::chrono::duration_cast<std::chrono::seconds>(kPatience).count();
  Checked(setsockopt(client.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)), "SO_SNDTIMEO");
}

}  // namespace

ManagerPeer::Impl::Impl(std::string path, bool listening)
    : path_(std::move(path)),
      wake_(Checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      listener_(listening ? ListenAt(path_) : Descriptor()),
      inode_(InodeOf(path_)),
      thread_([this] { Run(); }) {}

ManagerPeer::Impl::~Impl() {
  OnPeerThread([this] { stopping_ = true; });
  thread_.join();
  SetListening(false);
}

void ManagerPeer::Impl::Wake() const {
  const std::uint64_t one = 1;
  static_cast<void>(write(wake_.fd(), &one, sizeof(one)));
}

void ManagerPeer::Impl::RunTasks() {
  std::deque<std::packaged_task<void()>> tasks;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks.swap(tasks_);
  }
  for (auto& task : tasks) {
    task();
  }
}

ManagerPeer::Impl::SharedSocket ManagerPeer::Impl::client() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return client_;
}

std::vector<pollfd> ManagerPeer::Impl::Watched() {
  std::vector<pollfd> watched{{wake_.fd(), POLLIN, 0}};
  if (listener_) {
    watched.push_back({listener_.fd(), POLLIN, 0});
  }
  const SharedSocket present = client();
  if (present && reading_) {
    watched.push_back({present->fd(), POLLIN, 0});
  }
  return watched;
}

void ManagerPeer::Impl::Run() {
  while (!stopping_) {
    std::vector<pollfd> watched = Watched();
    if (poll(watched.data(), watched.size(), NextDeadline()) > 0) {
      Serve(watched);
    }
    SendDue();
  }
  End(Direction::kHungUp, false);
}

// Reads the client's messages first. Then it accepts a new client, and then it runs the tasks.
void ManagerPeer::Impl::Serve(const std::vector<pollfd>& ready) {
  const SharedSocket present = client();
  bool accept_one = false;
  for (const pollfd& watched : ready) {
    if (watched.revents == 0) {
      continue;
    }
    if (present && watched.fd == present->fd()) {
      ReadOrEnd();
    } else if (listener_ && watched.fd == listener_.fd()) {
      accept_one = true;
    } else {
      std::uint64_t count = 0;
      static_cast<void>(read(wake_.fd(), &count, sizeof(count)));
    }
  }
  if (accept_one) {
    Accept();
  }
  RunTasks();
}

void ManagerPeer::Impl::Accept() {
  const int fd = accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) {
    return;
  }
  auto newest = std::make_shared<Descriptor>(fd);
  GrowSendBuffer(fd, kLargestPacket);  // as large as the client can receive
  LimitSending(*newest);
  const SharedSocket oldest = client();
  End(oldest && HasEnded(*oldest) ? Direction::kEndOfFile : Direction::kHungUp, true);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    client_ = std::move(newest);
    ++connections_;
  }
  reading_ = true;
  Record(Direction::kConnected, "");
}

ssize_t ManagerPeer::Impl::ReadPacket(const Descriptor& socket, int flags) {
  const ssize_t size = ReceivePacket(socket.fd(), buffer_, flags);
  if (size > 0) {
    Receive(std::string(buffer_.data(), static_cast<std::size_t>(size)));
  }
  return size;
}

void ManagerPeer::Impl::ReadOrEnd() {
  const SharedSocket present = client();
  const ssize_t size = ReadPacket(*present, MSG_DONTWAIT);
  if (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR))) {
    return;
  }
  End(Direction::kEndOfFile, false);
}

// Puts the message into the inbox before it answers. So whoever sees the answer finds the message.
void ManagerPeer::Impl::Receive(const std::string& text) {
  Record(Direction::kFromService, text);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (discarding_ || !inbox_.Fits(text)) {
      lost_ += discarding_ ? 0 : 1;
    } else {
      inbox_.Push(text);
    }
    changed_.notify_all();
  }
  Answer(text);
}

void ManagerPeer::Impl::Answer(const std::string& text) {
  Rule rule;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = rules_.find(KindOf(text));
    if (found == rules_.end()) {
      return;
    }
    rule = found->second;
  }
  const std::optional<std::string> answer = rule(text);
  if (answer) {
    Send(*answer);
  }
}

void ManagerPeer::Impl::Record(Direction direction, const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start_);
  TranscriptEntry entry{now, direction, text};
  if (observer_) {
    observer_(entry);
  }
  transcript_.PushNewest(std::move(entry));
  changed_.notify_all();
}

void ManagerPeer::Impl::SetRule(const std::string& req_type, Rule rule) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (rule) {
    rules_[req_type] = std::move(rule);
  } else {
    rules_.erase(req_type);
  }
}

// Records the message first, so that the record never has the reply before the message.
bool ManagerPeer::Impl::Send(const std::string& text) {
  const SharedSocket present = client();
  if (!present) {
    return false;
  }
  Record(Direction::kToService, text);
  return send(present->fd(), text.data(), text.size(), MSG_NOSIGNAL) >= 0;
}

void ManagerPeer::Impl::SendLater(const std::string& text, Milliseconds delay) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    letters_.emplace(Clock::now() + delay, Letter{connections_, text});
  }
  Wake();
}

// Returns the milliseconds until the next letter is due, for poll. Returns -1 if there is none.
int ManagerPeer::Impl::NextDeadline() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (letters_.empty()) {
    return -1;
  }
  const auto left = std::chrono::ceil<Milliseconds>(letters_.begin()->first - Clock::now());
  return static_cast<int>(
      std::clamp<Milliseconds::rep>(left.count(), 0, std::numeric_limits<int>::max()));
}

void ManagerPeer::Impl::SendDue() {
  std::vector<std::string> due;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto end = letters_.upper_bound(Clock::now());
    for (auto letter = letters_.begin(); letter != end; letter = letters_.erase(letter)) {
      if (letter->second.connection == connections_) {
        due.push_back(std::move(letter->second.text));
      }
    }
  }
  for (const std::string& text : due) {
    Send(text);
  }
}

std::optional<std::string> ManagerPeer::Impl::Next(Milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  const auto came = [this] { return !inbox_.entries().empty() || lost_ != 0; };
  if (!changed_.wait_for(lock, limit, came)) {
    return std::nullopt;
  }
  if (inbox_.entries().empty()) {
    throw std::overflow_error("the Manager peer has lost " + std::to_string(lost_) +
                              " messages, because too many were unread");
  }
  return inbox_.Pop();
}

void ManagerPeer::Impl::SkipAll() {
  const std::lock_guard<std::mutex> lock(mutex_);
  inbox_ = {kUnreadMessages, kUnreadBytes};
  lost_ = 0;
}

void ManagerPeer::Impl::DiscardMessages() {
  SkipAll();
  const std::lock_guard<std::mutex> lock(mutex_);
  discarding_ = true;
}

void ManagerPeer::Impl::KeepTranscript(std::size_t entries, std::size_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  BoundedQueue<TranscriptEntry> kept(entries, bytes);
  for (const TranscriptEntry& entry : transcript_.entries()) {
    kept.PushNewest(entry);
  }
  transcript_ = std::move(kept);
}

// A close with unread packets resets the connection. With `reading`, further packets are stopped,
// and those that have arrived are read. Their answers are not sent.
void ManagerPeer::Impl::End(Direction end, bool reading) {
  SharedSocket last;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    last.swap(client_);
  }
  if (!last) {
    return;
  }
  if (reading) {
    shutdown(last->fd(), SHUT_RDWR);
    while (ReadPacket(*last, MSG_DONTWAIT) > 0) {
    }
  }
  Record(end, "");
  if (end == Direction::kEndOfFile) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = connections_;
    changed_.notify_all();
  }
}

void ManagerPeer::Impl::ShutDownWriting() {
  const SharedSocket present = client();
  if (present) {
    shutdown(present->fd(), SHUT_WR);
    Record(Direction::kHungUp, "");
  }
}

void ManagerPeer::Impl::SetReading(bool reading) {
  reading_ = reading;
}

void ManagerPeer::Impl::SetListening(bool listening) {
  if (listening && !listener_) {
    listener_ = ListenAt(path_);
    inode_ = InodeOf(path_);
  } else if (!listening && listener_) {
    RemoveSocket(path_, inode_);
    listener_.Close();
  }
}

int ManagerPeer::Impl::HandOver() {
  const std::lock_guard<std::mutex> lock(mutex_);
  const int fd = client_ ? fcntl(client_->fd(), F_DUPFD_CLOEXEC, 0) : -1;
  client_.reset();
  return fd;
}

}  // namespace orvd
