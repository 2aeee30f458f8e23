#include "packet_log.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>

#include "command_line.h"

namespace orvd {
namespace {

// Entries wait up to this time, because waking a thread costs as much as passing a packet on.
constexpr std::chrono::milliseconds kPause{20};
constexpr std::size_t kMostBytes = 8 * kLargestPacket;

}  // namespace

// Stands in the buffer before the bytes of a packet.
struct PacketLog::Entry {
  std::chrono::microseconds at;
  std::size_t size;
  int connection;
  RecordedLine::Kind kind;
  PacketDirection direction;
  LinkEvent event;
};

PacketLog::PacketLog(std::string recording, LineFilter filter)
    : name_(std::move(recording)), lines_(std::move(filter)) {
  if (!name_.empty()) {
    file_.open(name_, std::ios::binary | std::ios::trunc);
    writer_.emplace(file_);
    if (!file_.flush()) {
      throw CannotRun(name_ + ": cannot be written");
    }
  }
  waiting_.reserve(kMostBytes + kLargestPacket + sizeof(Entry));
  thread_ = std::thread([this] { Run(); });
}

PacketLog::~PacketLog() {
  Stop();
}

std::chrono::microseconds PacketLog::Now() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               start_);
}

void PacketLog::OnPacket(int connection, PacketDirection direction, std::string_view bytes) {
  ++packets_;
  bytes_ += bytes.size();
  Add({{}, bytes.size(), connection, RecordedLine::Kind::kPacket, direction, LinkEvent::kConnected},
      bytes);
}

void PacketLog::OnEvent(int connection, LinkEvent event) {
  Add({{}, 0, connection, RecordedLine::Kind::kEvent, PacketDirection::kToManager, event}, "");
}

// The time is taken under the lock, so that it never decreases.
void PacketLog::Add(Entry entry, std::string_view bytes) {
  bool first = false;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    taken_.wait(lock, [this] { return waiting_.size() < kMostBytes; });
    entry.at = Now();
    first = waiting_.empty();
    waiting_.append(reinterpret_cast<const char*>(&entry), sizeof(entry));
    waiting_.append(bytes);
  }
  if (first) {
    added_.notify_one();
  }
}

void PacketLog::Run() {
  std::string entries;
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    added_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    if (waiting_.empty()) {
      return;
    }
    added_.wait_for(lock, kPause, [this] { return stopping_; });
    entries.swap(waiting_);
    taken_.notify_all();
    lock.unlock();
    WriteAll(entries);
    entries.clear();
    lock.lock();
  }
}

void PacketLog::WriteAll(const std::string& entries) {
  for (std::size_t at = 0; at < entries.size();) {
    Entry entry{};
    memcpy(&entry, entries.data() + at, sizeof(entry));
    at += sizeof(entry);
    const std::string_view bytes(entries.data() + at, entry.size);
    at += entry.size;
    if (entry.kind == RecordedLine::Kind::kPacket) {
      lines_.AppendPacket(printed_, entry.at, entry.connection, entry.direction, bytes);
      if (writer_) {
        writer_->WritePacket(entry.at, entry.connection, entry.direction, bytes);
      }
    } else {
      lines_.AppendEvent(printed_, entry.at, entry.connection, entry.event);
      if (writer_) {
        writer_->WriteEvent(entry.at, entry.connection, entry.event);
      }
    }
  }
  if (writer_ && !file_.flush()) {
    Fail(name_ + ": cannot be written");
  }
  const std::size_t written = fwrite(printed_.data(), 1, printed_.size(), stdout);
  if (written != printed_.size() || fflush(stdout) != 0) {
    Fail("stdout cannot be written");
  }
  printed_.clear();
}

void PacketLog::Fail(const std::string& why) {
  if (failure_.empty()) {
    failure_ = why;
    kill(getpid(), SIGTERM);
  }
}

void PacketLog::Stop() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  added_.notify_one();
  if (thread_.joinable()) {
    thread_.join();
  }
}

void PacketLog::Finish(const std::string& summary) {
  Stop();
  if (!failure_.empty()) {
    throw CannotRun(failure_);
  }
  if (fputs(summary.c_str(), stdout) < 0 || fflush(stdout) != 0) {
    throw CannotRun("stdout cannot be written");
  }
}

}  // namespace orvd
