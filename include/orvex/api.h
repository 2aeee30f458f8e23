// What a service offers under one opcode. A service includes orvex/service.h.

#pragma once

#include <json/value.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>

#include "orvex/handler.h"
#include "orvex/session.h"

namespace orvex {

namespace detail {
struct Offer;
}

// The functions and session handlers of one opcode. Every member function throws std::logic_error
// after Run has begun.
class Api {
 public:
  // The service makes it.
  explicit Api(detail::Offer& offer) noexcept : offer_(offer) {}
  Api(const Api&) = delete;
  Api& operator=(const Api&) = delete;

  // Adds a function. The handler is any callable. Its parameter i takes the argument with the id
  // i + 1. A parameter of the type orvex::Struct takes the struct at position i. A std::optional
  // parameter may be missing. A first parameter orvex::Call& takes the call, and
  // const orvex::Arguments& takes all arguments; neither counts as a position. Arguments that no
  // parameter takes are ignored. The handler returns an Object, or what converts to one, or
  // nothing. It runs on a thread of its own for each task and may block.
  // An argument that is missing or has another type, and every exception, make a failure answer:
  // "return" is the code of orvex::Failure or -1, "status" is -1, "func" is empty.
  // Throws std::logic_error when there is a function of this name, when the handler is null, and
  // when a struct and another parameter have the same key: a task has only one of them.
  template <typename Function>
  Api& On(std::string function, Function&& handler) {
    return Add(std::move(function), detail::MakeHandler(std::forward<Function>(handler)));
  }
  // The same, but parameter i takes the argument with the id keys[i], or the struct at the position
  // keys[i]. Throws std::logic_error also when there are more or fewer keys than such parameters.
  template <typename Function>
  Api& On(std::string function, std::initializer_list<int> keys, Function&& handler) {
    return Add(std::move(function), detail::MakeHandler(keys, std::forward<Function>(handler)));
  }

  // Runs for every function that was not added by its name.
  template <typename Function>
  Api& Otherwise(Function&& handler) {
    return SetOtherwise(detail::MakeHandler(std::forward<Function>(handler)));
  }

  // One task at a time, in the order in which the tasks' threads begin.
  Api& Serial();

  // Adds members to the definition, beside "opcode" and "subsystems". A member that is there
  // already is replaced. Throws std::logic_error when `members` is no object, has a member
  // "opcode", or when the offer has a definition of the author's own.
  Api& Definition(const Json::Value& members);

  // Runs once for each pair of a session, before its first task. When the handler returns false or
  // throws, the pair is refused. A handler that is set again replaces the one before.
  // After a reset of the connection the library still has the pairs of the lost sessions. When the
  // Manager starts one of them again, the handler runs, but the library refuses the start.
  Api& OnSessionStart(std::function<bool(Session&)> handler);
  // Runs once for each started pair, when the Manager makes it ready for tasks.
  Api& OnSessionReady(std::function<void(Session&)> handler);
  // Runs once for each started pair: when its session ends, when the Manager is lost, or when the
  // service stops. A pair that the Manager started a second time before it was ready is withdrawn
  // by the library, which tells nobody. It ends at its next start, at a loss, or at the stop.
  Api& OnSessionEnd(std::function<void(Session&)> handler);

 private:
  detail::Offer& Open(const char* function) const;
  Api& Add(std::string function, detail::Handler handler);
  Api& SetOtherwise(detail::Handler handler);

  detail::Offer& offer_;
};

}  // namespace orvex
