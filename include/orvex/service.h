// A service: offers functions through the Manager, and survives the loss of the Manager.
//
//   orvex::Service service;
//   service.Offer(0xa001, {1, 2}, "token")
//       .On("read_temperature", [] { return orvex::Object{{"celsius", 21.5}}; });
//   return service.Run();
//
// This header is all that a service includes. Only the public interface of the library is used.
//
// Threads. Functions run on a thread of their own each, any number at the same time, and may wait
// for the Manager. Session handlers, notification handlers and loss handlers must return at once:
// most of them run on the library's receive thread, which reads nothing meanwhile. In these,
// Call::Granted, Call::Info and Service::Run throw std::logic_error; Service::Stop is allowed. In a
// session or notification handler the library holds a lock. So do not call the library's own
// functions there, except those for supported pairs, and hold no lock there that another thread
// holds while it calls the library.
//
// A handler that throws never ends the process: a function then answers with a failure, a session
// start is refused, and all others are only logged.

#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvex/api.h"
#include "orvex/arguments.h"
#include "orvex/call.h"
#include "orvex/changes.h"
#include "orvex/failure.h"
#include "orvex/handler.h"
#include "orvex/object.h"
#include "orvex/options.h"
#include "orvex/session.h"

namespace orvex {

namespace detail {
class Core;
struct Offer;
}  // namespace detail

// Only one service of a process can run at a time. When Run has returned, nothing of the service is
// called any more, with two exceptions, of which the log tells. A task that runs longer than
// Options::drain goes on. A session or notification handler that runs longer than a second goes on,
// and OnSessionEnd can follow it. So handlers own what they use, for example by a std::shared_ptr.
class Service {
 public:
  // Throws std::system_error when the process cannot open a file descriptor.
  explicit Service(Options options = {});
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Offers an opcode with a definition that lists the subsystems. The result belongs to the
  // service. Throws std::logic_error when the opcode is offered already, when the process offers 64
  // opcodes, or after Run has begun.
  Api& Offer(uint32_t opcode, std::vector<uint32_t> subsystems, std::string token);
  // The same. Without it, numbers in braces could also be the characters of a text.
  Api& Offer(uint32_t opcode, std::initializer_list<uint32_t> subsystems, std::string token) {
    return Offer(opcode, std::vector<uint32_t>(subsystems), std::move(token));
  }
  // The same with a definition of the author's own, with its prefix and version.
  Api& Offer(uint32_t opcode, std::string blob, std::string token);

  // The Manager was lost. Runs on Run's thread. The sessions have ended by then.
  Service& OnLost(std::function<void()> handler);
  // The Manager serves the service again after a loss. Runs on Run's thread.
  Service& OnBack(std::function<void()> handler);
  // A state has changed. Runs once for each notification, however many opcodes are offered.
  Service& OnStateChange(std::function<void(const StateChange&)> handler);
  // A system setting has changed. Runs once for each notification.
  Service& OnSystemSettingChange(std::function<void(const StateChange&)> handler);
  // A permission of a session was granted or withdrawn. Runs once for each notification.
  Service& OnPermissionChange(std::function<void(const PermissionChange&)> handler);

  // Serves until Stop, or until SIGTERM or SIGINT when Options::signals is set. Waits for the
  // Manager as long as there is none, and starts anew whenever it is lost. At the end it waits for
  // running tasks up to Options::drain and deinitialises.
  // Returns 0 when stopped, 1 when the service was refused.
  // Ends the process with the exit code 75 when the Manager does not answer within
  // Options::answer_limit, and with 0 when the service is stopped while it waits for such an
  // answer. Buffered output of the process is then lost.
  // Call it once, even if it throws. Throws std::logic_error for a second call, while another
  // service runs, in a handler, and when nothing is offered. Throws std::system_error when the
  // process cannot open a file descriptor.
  int Run();

  // Makes Run return, also when it is called before Run. Does not wait. Any thread, every handler,
  // and signal handlers.
  void Stop() noexcept;

 private:
  detail::Offer& Add(uint32_t opcode, const std::string& token);

  const std::shared_ptr<detail::Core> core_;
};

}  // namespace orvex

#ifndef ORVEX_SEPARATE_COMPILATION
#include "orvex/implementation.h"
#endif
