// The Manager's side of the socket, for tests, demos and benchmarks on a host.
//
// A ManagerPeer (in short: the peer) listens on one path and serves one client at a time. A new
// client replaces the old one. The peer records the latest messages in both directions and answers
// by rules. It can close the connection in each way in which a daemon can. It shares no code with
// the client library: all that it knows of the protocol is in this folder.
//
// All functions may be called from any thread. The peer has one thread, which accepts connections,
// reads messages and runs the rules. A rule may send a message or close the connection. It must not
// wait for messages or connections.

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

// A time limit for conditions that become true within microseconds unless something is broken.
inline constexpr Milliseconds kPatience{10000};

// Limits of what a peer keeps. KeepTranscript and DiscardMessages change them.
inline constexpr std::size_t kTranscriptEntries = 10000;
inline constexpr std::size_t kTranscriptBytes = 64U << 20;
inline constexpr std::size_t kUnreadMessages = 100000;
inline constexpr std::size_t kUnreadBytes = 256U << 20;
inline constexpr std::size_t kUnlimited = static_cast<std::size_t>(-1);

enum class Direction {
  kFromService,  // a message was received
  kToService,    // a message was sent
  kConnected,    // a client was accepted
  kEndOfFile,    // the client closed the connection, or shut its sending side down
  kHungUp,       // the peer closed the connection, or shut its sending side down
};

struct TranscriptEntry {
  std::chrono::microseconds since_start;
  Direction direction;
  std::string text;
};

// Returns the answer to `message`, or nothing if there is no answer.
using Rule = std::function<std::optional<std::string>(const std::string& message)>;

class ManagerPeer {
 public:
  // Listens on `path`, or, with `listening` false, only after Listen() is called. Creates a missing
  // folder in /dev/socket, but no other one. Replaces a socket that no process has any more, but no
  // other file. The file appears when clients can connect to it. Until then the socket is called
  // `path`.new, so `path` may have 103 bytes. Throws std::system_error if the peer cannot listen.
  explicit ManagerPeer(std::string path, bool listening = true);
  ~ManagerPeer();
  ManagerPeer(const ManagerPeer&) = delete;
  ManagerPeer& operator=(const ManagerPeer&) = delete;

  // --- Answers. A rule answers messages of one "req_type". Other messages are only recorded. ---
  void SetRule(const std::string& req_type, Rule rule);  // an empty `rule` removes the rule
  void AnswerInit(int service_id);                       // {"req_type":"INIT","service_id":N}
  void AnswerAuth(int result);   // {"req_type":"AUTH","opcode":"<decimal>","result":N}
  void AnswerReady(int result);  // {"req_type":"REDY","opcode":"<decimal>","result":N}
  // Sets the three rules above, with `service_id` and with result 0.
  void AgreeToEverything(int service_id);
  // Returns when the rules of all messages have run that were returned by Next or NextOf. A message
  // is returned before its rule runs.
  void WaitForRules();

  // --- Sending. Returns false if no client is connected or if the client does not take the packet
  // within kPatience. ---
  bool Send(const std::string& text);
  // Sends after `delay` and does not wait for it. Sends nothing if the present connection has then
  // ended.
  void SendLater(const std::string& text, Milliseconds delay);

  // --- Receiving. Each message is returned once, in the order of arrival, also if a rule has
  // answered it. Up to kUnreadMessages messages and kUnreadBytes wait for Next or NextOf. Messages
  // beyond that are lost. Then Next and NextOf throw std::overflow_error, after they have returned
  // the messages that were kept. ---
  std::optional<std::string> Next(Milliseconds limit = kPatience);
  // Skips messages until one has this "req_type". For a plain text such as EXIT, `req_type` is the
  // whole text.
  std::optional<std::string> NextOf(const std::string& req_type, Milliseconds limit = kPatience);
  // Discards the messages that were not returned yet.
  void SkipAll();
  // From now on messages are not kept for Next and NextOf, for programs that only have rules or an
  // observer.
  void DiscardMessages();

  // --- The connection. ---
  bool WaitConnected(Milliseconds limit = kPatience);  // until a client is connected
  bool WaitConnections(std::size_t count,
                       Milliseconds limit = kPatience);  // until `count` clients have connected
  bool WaitEndOfFile(Milliseconds limit = kPatience);    // until the latest client has closed
  // Until the client has closed the connection with this number, or a later one. The first
  // connection has number 1.
  bool WaitEnded(std::size_t connection, Milliseconds limit = kPatience);
  std::size_t connections() const;
  std::optional<int> client_pid() const;  // the process of the connected client

  // --- Closing the connection, in several ways. ---
  void HangUp();  // reads what the client has sent, then closes: the client reads end of file
  // Stops reading, waits for an unread message, and closes: the client reads ECONNRESET. Returns
  // false if no message came.
  bool HangUpWithReset(Milliseconds limit = kPatience);
  void HangUpForWriting();  // shuts the sending side down: the client reads end of file, can send
  void SendEmptyPacket();   // 0 bytes: for a client the same as end of file
  void StopReading();       // what the client sends stays in the socket
  void ResumeReading();
  void StopListening();  // removes the socket: new connections are refused
  void Listen();         // creates it again; throws as the constructor does

  // Gives the connection to the caller, who closes the descriptor. The peer no longer reads or
  // answers on it, and accepts the next client. Returns -1 if no client is connected.
  int HandOver();

  // --- The record of messages and events, in order. ---
  // Returns the latest kTranscriptEntries entries, or fewer if their texts exceed kTranscriptBytes.
  std::vector<TranscriptEntry> transcript() const;
  // Sets other limits, for example kUnlimited.
  void KeepTranscript(std::size_t entries, std::size_t bytes = kTranscriptBytes);
  // `observer` is called with each new entry, one call at a time, on the thread that records it. It
  // must not call the peer.
  void SetObserver(std::function<void(const TranscriptEntry&)> observer);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// Returns the "req_type" of a message. Returns the whole text if it is not a JSON object with one.
std::string KindOf(const std::string& message);

}  // namespace orvd
