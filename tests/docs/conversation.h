// The conversation of docs/PROTOCOL.md: the library, and a Manager that says what the document says.

#pragma once

#include <future>
#include <string>

#include "docs/protocol_document.h"
#include "support/service_fixture.h"

class Conversation {
 public:
  Conversation();

  // Fails the test where the service does not send, hear and return what the example says.
  void Play(const Example& example);
  // Whether the service has left, and said nothing more.
  bool IsOver();
  // What the library makes of `message`: result of the call that waits, events, log. A call that
  // has not returned within `limit` waits.
  std::string Try(const std::string& message, orvd::Milliseconds limit);

 private:
  void Call(const std::string& call);
  bool IsReady(orvd::Milliseconds limit) const;
  std::string Result(orvd::Milliseconds limit);

  orvd::ManagerPeer peer_{kDedicatedPath};
  Recorder& recorder_;
  std::future<std::string> call_;
};
