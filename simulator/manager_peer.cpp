#include "orvex_simulator/manager_peer.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>

#include "orvex_simulator/json_text.h"
#include "orvex_simulator/messages.h"
#include "peer_thread.h"

namespace orvd {
namespace {

using Clock = std::chrono::steady_clock;

Rule OpcodeRule(const char* req_type, int result) {
  return [req_type, result](const std::string& request) -> std::optional<std::string> {
    const Json::Value opcode = ParseObject(request)["Opcode"];
    return OpcodeAnswer(req_type, opcode.isUInt() ? opcode.asUInt() : 0, result);
  };
}

}  // namespace

std::string KindOf(const std::string& message) {
  const Json::Value kind = ParseObject(message)["req_type"];
  return kind.isString() ? kind.asString() : message;
}

ManagerPeer::ManagerPeer(std::string path, bool listening)
    : impl_(std::make_unique<Impl>(std::move(path), listening)) {}
ManagerPeer::~ManagerPeer() = default;

void ManagerPeer::SetRule(const std::string& req_type, Rule rule) {
  impl_->SetRule(req_type, std::move(rule));
}

void ManagerPeer::AnswerInit(int service_id) {
  SetRule("INIT", [service_id](const std::string&) { return InitAnswer(service_id); });
}

void ManagerPeer::AnswerAuth(int result) {
  SetRule("AUTH", OpcodeRule("AUTH", result));
}

void ManagerPeer::AnswerReady(int result) {
  SetRule("REDY", OpcodeRule("REDY", result));
}

void ManagerPeer::AgreeToEverything(int service_id) {
  AnswerInit(service_id);
  AnswerAuth(0);
  AnswerReady(0);
}

void ManagerPeer::WaitForRules() {
  impl_->OnPeerThread([] {});
}

bool ManagerPeer::Send(const std::string& text) {
  return impl_->Send(text);
}

void ManagerPeer::SendLater(const std::string& text, Milliseconds delay) {
  impl_->SendLater(text, delay);
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

void ManagerPeer::DiscardMessages() {
  impl_->DiscardMessages();
}

bool ManagerPeer::WaitConnected(Milliseconds limit) {
  return impl_->WaitUntil(limit, [this] { return impl_->client_ != nullptr; });
}

bool ManagerPeer::WaitConnections(std::size_t count, Milliseconds limit) {
  return impl_->WaitUntil(limit, [this, count] { return impl_->connections_ >= count; });
}

bool ManagerPeer::WaitEndOfFile(Milliseconds limit) {
  return impl_->WaitUntil(
      limit, [this] { return impl_->ended_ != 0 && impl_->ended_ == impl_->connections_; });
}

bool ManagerPeer::WaitEnded(std::size_t connection, Milliseconds limit) {
  return impl_->WaitUntil(limit, [this, connection] { return impl_->ended_ >= connection; });
}

std::size_t ManagerPeer::connections() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex_);
  return impl_->connections_;
}

std::optional<int> ManagerPeer::client_pid() const {
  const auto present = impl_->client();
  return present ? PeerPid(present->fd()) : std::nullopt;
}

void ManagerPeer::HangUp() {
  impl_->OnPeerThread([this] { impl_->End(Direction::kHungUp, true); });
}

bool ManagerPeer::HangUpWithReset(Milliseconds limit) {
  StopReading();
  bool unread = false;
  const auto present = impl_->client();
  if (present) {
    pollfd watched{present->fd(), POLLIN, 0};
    char byte = 0;
    unread = poll(&watched, 1, static_cast<int>(limit.count())) > 0 &&
             recv(present->fd(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
  }
  impl_->OnPeerThread([this] { impl_->End(Direction::kHungUp, false); });
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
  const std::deque<TranscriptEntry>& entries = impl_->transcript_.entries();
  return {entries.begin(), entries.end()};
}

void ManagerPeer::KeepTranscript(std::size_t entries, std::size_t bytes) {
  impl_->KeepTranscript(entries, bytes);
}

void ManagerPeer::SetObserver(std::function<void(const TranscriptEntry&)> observer) {
  const std::lock_guard<std::mutex> lock(impl_->mutex_);
  impl_->observer_ = std::move(observer);
}

}  // namespace orvd
