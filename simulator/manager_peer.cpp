#include "orvex_simulator/manager_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "orvex_simulator/json_text.h"

namespace orvd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLargestPacket = 1 << 20;
constexpr int kBacklog = 64;

class Socket {
 public:
  explicit Socket(int fd) : fd_(fd) {}
  ~Socket() { close(fd_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

 private:
  const int fd_;
};

using SharedSocket = std::shared_ptr<Socket>;

int Checked(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
  }
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  return address;
}

SharedSocket ListenOn(const std::string& path) {
  const sockaddr_un address = AddressOf(path);
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  unlink(path.c_str());
  auto listener = std::make_shared<Socket>(
      Checked(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket"));
  Checked(bind(listener->fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
          path.c_str());
  Checked(listen(listener->fd(), kBacklog), path.c_str());
  return listener;
}

// Allows packets as large as the client can receive. Exceeding the system's limit needs privileges.
void MakeRoom(const Socket& client) {
  const int room = kLargestPacket;
  if (setsockopt(client.fd(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)) != 0) {
    setsockopt(client.fd(), SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
  }
}

// A client that does not read must not block the peer for ever.
void LimitSending(const Socket& client) {
  timeval limit{};
  limit.tv_sec = std::chrono::duration_cast<std::chrono::seconds>(kPatience).count();
  Checked(setsockopt(client.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)), "SO_SNDTIMEO");
}

std::string OpcodeAnswer(const std::string& request, const char* req_type, int result) {
  return std::string(R"({"req_type":")") + req_type + R"(","opcode":")" +
         ParseObject(request)["Opcode"].asString() + R"(","result":)" + std::to_string(result) +
         "}";
}

}  // namespace

std::string KindOf(const std::string& message) {
  const Json::Value kind = ParseObject(message)["req_type"];
  return kind.isString() ? kind.asString() : message;
}

class ManagerPeer::Impl {
 public:
  Impl(std::string path, bool listening);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void SetRule(const std::string& req_type, Rule rule);
  bool Send(const std::string& text);
  std::optional<std::string> Next(Milliseconds limit);
  void SkipAll();
  template <typename Condition>
  bool WaitUntil(Milliseconds limit, Condition condition);
  void Record(Direction direction, const std::string& text);

  // Runs `task` on the peer's thread, and waits until it is done. The caller gets its exception.
  // Descriptors are opened, read and closed on the peer's thread only.
  template <typename Task>
  void OnPeerThread(Task task);
  void HangUp();
  void Drop();
  void ShutDownWriting();
  void SetReading(bool reading);
  void SetListening(bool listening);
  int HandOver();
  SharedSocket client();

  // Guarded by mutex_.
  std::size_t connections_ = 0;
  bool end_of_file_ = false;
  std::vector<TranscriptEntry> transcript_;
  std::function<void(const TranscriptEntry&)> observer_;
  SharedSocket client_;

  std::mutex mutex_;

 private:
  void Run();
  void Wake() const;
  void Serve(const std::vector<pollfd>& ready);
  std::vector<pollfd> Watched();
  void Accept();
  ssize_t ReadPacket(const Socket& socket, int flags);
  void ReadOrEnd();
  void Receive(const std::string& text);
  void Answer(const std::string& text);
  void RunTasks();

  const std::string path_;
  const Clock::time_point start_ = Clock::now();
  const Socket wake_;
  std::condition_variable changed_;

  // Guarded by mutex_.
  std::deque<std::string> inbox_;
  std::map<std::string, Rule> rules_;
  std::deque<std::packaged_task<void()>> tasks_;

  // Used on the peer's thread only.
  SharedSocket listener_;
  bool reading_ = true;
  bool stopping_ = false;
  std::vector<char> buffer_ = std::vector<char>(kLargestPacket);

  std::thread thread_;
};

ManagerPeer::Impl::Impl(std::string path, bool listening)
    : path_(std::move(path)),
      wake_(Checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      listener_(listening ? ListenOn(path_) : nullptr),
      thread_([this] { Run(); }) {}

ManagerPeer::Impl::~Impl() {
  OnPeerThread([this] { stopping_ = true; });
  thread_.join();
  if (listener_) {
    unlink(path_.c_str());
  }
}

void ManagerPeer::Impl::Wake() const {
  const std::uint64_t one = 1;
  static_cast<void>(write(wake_.fd(), &one, sizeof(one)));
}

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

SharedSocket ManagerPeer::Impl::client() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return client_;
}

std::vector<pollfd> ManagerPeer::Impl::Watched() {
  std::vector<pollfd> watched{{wake_.fd(), POLLIN, 0}};
  if (listener_) {
    watched.push_back({listener_->fd(), POLLIN, 0});
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
    if (poll(watched.data(), watched.size(), -1) > 0) {
      Serve(watched);
    }
  }
  Drop();
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
    } else if (listener_ && watched.fd == listener_->fd()) {
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
  const int fd = accept4(listener_->fd(), nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) {
    return;
  }
  auto newest = std::make_shared<Socket>(fd);
  MakeRoom(*newest);
  LimitSending(*newest);
  HangUp();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    client_ = std::move(newest);
    end_of_file_ = false;
    ++connections_;
  }
  reading_ = true;
  Record(Direction::kConnected, "");
}

ssize_t ManagerPeer::Impl::ReadPacket(const Socket& socket, int flags) {
  const ssize_t size = recv(socket.fd(), buffer_.data(), buffer_.size(), flags);
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
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    client_.reset();
    end_of_file_ = true;
  }
  Record(Direction::kEndOfFile, "");
}

// Puts the message into the inbox before it answers. So whoever sees the answer finds the message.
void ManagerPeer::Impl::Receive(const std::string& text) {
  Record(Direction::kFromService, text);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    inbox_.push_back(text);
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
  transcript_.push_back({now, direction, text});
  if (observer_) {
    observer_(transcript_.back());
  }
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

template <typename Condition>
bool ManagerPeer::Impl::WaitUntil(Milliseconds limit, Condition condition) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, limit, condition);
}

std::optional<std::string> ManagerPeer::Impl::Next(Milliseconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!changed_.wait_for(lock, limit, [this] { return !inbox_.empty(); })) {
    return std::nullopt;
  }
  std::string text = std::move(inbox_.front());
  inbox_.pop_front();
  return text;
}

void ManagerPeer::Impl::SkipAll() {
  const std::lock_guard<std::mutex> lock(mutex_);
  inbox_.clear();
}

// A close with unread packets would reset the connection. So this stops further packets and reads
// those that have arrived.
void ManagerPeer::Impl::HangUp() {
  const SharedSocket present = client();
  if (!present) {
    return;
  }
  shutdown(present->fd(), SHUT_RDWR);
  while (ReadPacket(*present, MSG_DONTWAIT) > 0) {
  }
  Drop();
}

void ManagerPeer::Impl::Drop() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!client_) {
      return;
    }
    client_.reset();
  }
  Record(Direction::kHungUp, "");
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
    listener_ = ListenOn(path_);
  } else if (!listening && listener_) {
    unlink(path_.c_str());
    listener_.reset();
  }
}

int ManagerPeer::Impl::HandOver() {
  const std::lock_guard<std::mutex> lock(mutex_);
  const int fd = client_ ? fcntl(client_->fd(), F_DUPFD_CLOEXEC, 0) : -1;
  client_.reset();
  return fd;
}

ManagerPeer::ManagerPeer(std::string path, bool listening)
    : impl_(std::make_unique<Impl>(std::move(path), listening)) {}
ManagerPeer::~ManagerPeer() = default;

void ManagerPeer::SetRule(const std::string& req_type, Rule rule) {
  impl_->SetRule(req_type, std::move(rule));
}

void ManagerPeer::AnswerInit(int service_id) {
  SetRule("INIT", [service_id](const std::string&) {
    return R"({"req_type":"INIT","service_id":)" + std::to_string(service_id) + "}";
  });
}

void ManagerPeer::AnswerAuth(int result) {
  SetRule("AUTH",
          [result](const std::string& request) { return OpcodeAnswer(request, "AUTH", result); });
}

void ManagerPeer::AnswerReady(int result) {
  SetRule("REDY",
          [result](const std::string& request) { return OpcodeAnswer(request, "REDY", result); });
}

void ManagerPeer::AgreeToEverything(int service_id) {
  AnswerInit(service_id);
  AnswerAuth(0);
  AnswerReady(0);
}

bool ManagerPeer::Send(const std::string& text) {
  return impl_->Send(text);
}

std::optional<std::string> ManagerPeer::Next(Milliseconds limit) {
  return impl_->Next(limit);
}

std::optional<std::string> ManagerPeer::NextOf(const std::string& req_type, Milliseconds limit) {
  const Clock::time_point deadline = Clock::now() + limit;
  for (;;) {
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
    auto message = Next(std::max(left, Milliseconds(0)));
    if (!message || KindOf(*message) == req_type) {
      return message;
    }
  }
}

void ManagerPeer::SkipAll() {
  impl_->SkipAll();
}

bool ManagerPeer::WaitConnected(Milliseconds limit) {
  return impl_->WaitUntil(limit, [this] { return impl_->client_ != nullptr; });
}

bool ManagerPeer::WaitConnections(std::size_t count, Milliseconds limit) {
  return impl_->WaitUntil(limit, [this, count] { return impl_->connections_ >= count; });
}

bool ManagerPeer::WaitEndOfFile(Milliseconds limit) {
  return impl_->WaitUntil(limit, [this] { return impl_->end_of_file_; });
}

std::size_t ManagerPeer::connections() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex_);
  return impl_->connections_;
}

std::optional<int> ManagerPeer::client_pid() const {
  const SharedSocket present = impl_->client();
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (!present || getsockopt(present->fd(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    return std::nullopt;
  }
  return credentials.pid;
}

void ManagerPeer::HangUp() {
  impl_->OnPeerThread([this] { impl_->HangUp(); });
}

bool ManagerPeer::HangUpWithReset(Milliseconds limit) {
  StopReading();
  bool unread = false;
  const SharedSocket present = impl_->client();
  if (present) {
    pollfd watched{present->fd(), POLLIN, 0};
    unread = poll(&watched, 1, static_cast<int>(limit.count())) > 0;
  }
  impl_->OnPeerThread([this] { impl_->Drop(); });
  return unread;
}

void ManagerPeer::HangUpForWriting() {
  impl_->OnPeerThread([this] { impl_->ShutDownWriting(); });
}

void ManagerPeer::SendEmptyPacket() {
  impl_->Send("");
}

void ManagerPeer::StopReading() {
  impl_->OnPeerThread([this] { impl_->SetReading(false); });
}

void ManagerPeer::ResumeReading() {
  impl_->OnPeerThread([this] { impl_->SetReading(true); });
}

void ManagerPeer::StopListening() {
  impl_->OnPeerThread([this] { impl_->SetListening(false); });
}

void ManagerPeer::Listen() {
  impl_->OnPeerThread([this] { impl_->SetListening(true); });
}

int ManagerPeer::HandOver() {
  int fd = -1;
  impl_->OnPeerThread([this, &fd] { fd = impl_->HandOver(); });
  return fd;
}

std::vector<TranscriptEntry> ManagerPeer::transcript() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex_);
  return impl_->transcript_;
}

void ManagerPeer::SetObserver(std::function<void(const TranscriptEntry&)> observer) {
  const std::lock_guard<std::mutex> lock(impl_->mutex_);
  impl_->observer_ = std::move(observer);
}

}  // namespace orvd
