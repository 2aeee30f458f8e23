#include "service_process.h"

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "wire.h"

namespace bench {
namespace {

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what);
  }
}

pid_t Spawn(std::vector<std::string> command) {
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (std::string& word : command) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  pid_t pid = 0;
  Require(posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) == 0,
          "cannot start " + command[0]);
  return pid;
}

// After the answer to REDY the service expects no other answer, so the socket can be handed over.
int Handshake(orvd::ManagerPeer& manager) {
  manager.AgreeToEverything(kServiceId);
  manager.SkipAll();
  const bool ready = manager.NextOf("INIT") && manager.NextOf("AUTH") && manager.NextOf("REDY");
  return ready ? manager.HandOver() : -1;
}

}  // namespace

Link::~Link() {
  close(fd_);
}

void Link::Send(std::string_view text) const {
  Require(send(fd_, text.data(), text.size(), MSG_NOSIGNAL) >= 0, "the service is gone");
}

std::string_view Link::Receive() {
  const ssize_t size = recv(fd_, buffer_.data(), buffer_.size(), 0);
  Require(size > 0, "the service is gone");
  return {buffer_.data(), static_cast<std::size_t>(size)};
}

ServiceProcess::ServiceProcess(orvd::ManagerPeer& manager, const std::vector<std::string>& command)
    : pid_(Spawn(command)) {
  const int fd = Handshake(manager);
  Require(fd >= 0, "no handshake with " + command[0]);
  link_ = std::make_unique<Link>(fd);
  link_->Send(SessionMessage("start_session", 1, 1));
  RequirePart(link_->Receive(), "Success");
  link_->Send(SessionMessage("ready_session", 1, 1));
}

ServiceProcess::~ServiceProcess() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

std::string SessionMessage(const char* req_type, uint32_t session_id, uint32_t pairs) {
  std::string subsystems;
  for (uint32_t ssid = 1; ssid <= pairs; ++ssid) {
    subsystems += (ssid == 1 ? R"({"id":)" : R"(,{"id":)") + std::to_string(ssid) + "}";
  }
  // end_session names opcodes as numbers. The other two messages name them as texts.
  const bool numeric = strcmp(req_type, "end_session") == 0;
  return std::string(R"({"req_type":")") + req_type + R"(","session_id":)" +
         std::to_string(session_id) + R"(,"opcodes":[{"id":)" +
         (numeric ? std::to_string(kOpcode) : R"("0x0000a001")") + R"(,"subsystems":[)" +
         subsystems + "]}]}";
}

void RequirePart(std::string_view text, std::string_view part) {
  Require(text.find(part) != std::string_view::npos,
          "expected " + std::string(part) + ", got " + std::string(text.substr(0, 200)));
}

}  // namespace bench
