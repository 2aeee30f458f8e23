// A Manager for the desk: the daemon's side of the socket, for tests, demos and benchmarks.
//
// A ManagerPeer listens on one path, serves one client at a time (the newest), records everything
// that crosses the socket, answers by rule, and can hang up in each of the ways a daemon can. It
// shares no code with the client library: what it knows of the protocol stands here.
//
// All functions may be called from any thread. One thread of the peer's own accepts, reads and
// answers by rule; a rule runs on that thread: it may send and hang up, but must not wait for
// messages or connections.

#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvd {

using Milliseconds = std::chrono::milliseconds;

// A limit for conditions that hold within microseconds unless something is broken.
inline constexpr Milliseconds kPatience{10000};

enum class Direction {
  kFromService,  // text received
  kToService,    // text sent
  kConnected,    // a client was accepted
  kEndOfFile,    // the client closed its end (or shut it down)
  kHungUp,       // this side ended the connection
};

struct TranscriptEntry {
  std::chrono::microseconds since_start;
  Direction direction;
  std::string text;
};

// Returns the answer to `message`, or nothing to stay silent.
using Rule = std::function<std::optional<std::string>(const std::string& message)>;

class ManagerPeer {
 public:
  // Listens on `path`, unless that is left to Listen(); makes the folder of the socket if it is
  // missing, replaces a socket left behind. Throws std::system_error when it cannot.
  explicit ManagerPeer(std::string path, bool listening = true);
  ~ManagerPeer();
  ManagerPeer(const ManagerPeer&) = delete;
  ManagerPeer& operator=(const ManagerPeer&) = delete;

  // --- Answers by rule. A message without a rule for its "req_type" is only recorded. ---
  void SetRule(const std::string& req_type, Rule rule);  // an empty rule removes it
  void AnswerInit(int service_id);                       // {"req_type":"INIT","service_id":N}
  void AnswerAuth(int result);   // {"req_type":"AUTH","opcode":"<decimal>","result":N}
  void AnswerReady(int result);  // {"req_type":"REDY","opcode":"<decimal>","result":N}
  // The three above with a service id and result 0: a Manager that agrees to everything.
  void AgreeToEverything(int service_id);

  // --- Sending. False when nobody is connected or the packet was not taken within kPatience. ---
  bool Send(const std::string& text);

  // --- Receiving: each message is handed out once, in the order of arrival, answered by rule or
  // not. ---
  std::optional<std::string> Next(Milliseconds limit = kPatience);
  // Skips messages until one with this "req_type" (or, for plain texts such as EXIT, this very
  // text) comes.
  std::optional<std::string> NextOf(const std::string& req_type, Milliseconds limit = kPatience);
  // Forgets messages not yet handed out.
  void SkipAll();

  // --- The connection. ---
  bool WaitConnected(Milliseconds limit = kPatience);  // a client is connected now
  bool WaitConnections(std::size_t count,
                       Milliseconds limit = kPatience);  // so many since the start
  bool WaitEndOfFile(Milliseconds limit = kPatience);    // the present or last client has closed
  std::size_t connections() const;
  std::optional<int> client_pid() const;  // the process behind the present connection

  // --- Hanging up. All but StopReading end the present connection as its client sees it. ---
  void HangUp();  // drains what was sent to it, then closes: the client reads end of file
  // Stops reading, waits for something unread, and closes: the client reads ECONNRESET. False when
  // nothing came.
  bool HangUpWithReset(Milliseconds limit = kPatience);
  void
  HangUpForWriting();  // shuts its sending side only: the client reads end of file, its sends go on
  void SendEmptyPacket();  // a packet of no bytes, which a client cannot tell from end of file
  void StopReading();      // leaves what the client sends in the socket
  void ResumeReading();
  void StopListening();  // the path disappears: new connections are refused
  void Listen();         // the path is back; throws as the constructor does

  // Hands the present connection to the caller, who closes the descriptor: nothing on it is read,
  // answered or recorded any more, and the peer takes the next client. -1 when nobody is connected.
  int HandOver();

  // --- The record of everything, in order. ---
  std::vector<TranscriptEntry> transcript() const;
  // Called for each entry as it is recorded, one at a time, on whichever thread records it. Must
  // not call the peer.
  void SetObserver(std::function<void(const TranscriptEntry&)> observer);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// The "req_type" of a message, or the whole text when it is not a JSON object that has one.
std::string KindOf(const std::string& message);

}  // namespace orvd
