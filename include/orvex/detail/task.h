// One task: from the library's call of the task function to the answer.

#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "orvd_types.h"
#include "orvex/arguments.h"
#include "orvex/call.h"
#include "orvex/detail/core.h"
#include "orvex/detail/escaped.h"
#include "orvex/detail/largest_packet.h"
#include "orvex/failure.h"

namespace orvex::detail {

inline constexpr int32_t kShortForm = -1;           // the transaction id of a task that asks for it
inline constexpr const char* kFailedResult = "-1";  // the result that marks a failure
inline constexpr std::size_t kLargestFixedAnswer = 180;  // an answer without the service's texts

// Counts a task as running, and holds its turn in a serial offer. Its thread keeps both until it
// ends, because the library sends the answer after the task function has returned.
class TaskTurn {
 public:
  ~TaskTurn() { Leave(); }
  TaskTurn() = default;
  TaskTurn(const TaskTurn&) = delete;
  TaskTurn& operator=(const TaskTurn&) = delete;

  // Waits for the turn in a serial offer.
  static Admission Take(const std::shared_ptr<Offer>& offer) {
    static thread_local TaskTurn turn;
    turn.Leave();
    const Admission admission = offer->core.tasks.Begin();
    if (admission != Admission::kAdmitted) {
      return admission;
    }
    turn.offer_ = offer;
    if (offer->serial) {
      offer->serial->Enter();
    }
    return offer->core.tasks.IsAbandoned() ? Admission::kStopping : admission;
  }

 private:
  void Leave() noexcept {
    if (offer_ == nullptr) {
      return;
    }
    if (offer_->serial) {
      offer_->serial->Leave();
    }
    offer_->core.tasks.End();
    offer_ = nullptr;
  }

  std::shared_ptr<Offer> offer_;
};

class Task {
 public:
  // Finds the state of the session now: the session may end while the task waits for its turn.
  Task(const Offer& offer, _orvex_call_info_t& record, const orvex_func_call_info_t& args)
      : offer_(offer),
        record_(record),
        args_(args),
        states_(offer.core.sessions.States(record.session_id, offer.opcode)) {
    record_.opcode = offer.opcode_text;
    record_.name = Escaped(args.func_name);
  }

  // Runs the handler and writes the answer.
  void Run() {
    try {
      Answer(Handle());
    } catch (const Failure& failure) {
      Fail(failure.what(), failure.code());
    } catch (const std::exception& exception) {
      Fail(exception.what());
    } catch (...) {
      Fail("the handler threw an exception of an unknown type");
    }
  }

  // Writes the answer of a task that is not run.
  void Refuse(Admission reason) {
    Fail(reason == Admission::kTooMany ? "too many tasks run" : "the service stops");
  }

 private:
  std::string Handle() {
    const Handler* found = offer_.Find(args_.func_name);
    const Handler& handler = found != nullptr ? *found : offer_.otherwise;
    if (!handler) {
      throw Failure("there is no such function");
    }
    const Arguments arguments(args_);
    Call call(offer_.core.sessions, states_, offer_.opcode, record_, args_.func_name, arguments);
    return handler(call, arguments).Members();
  }

  // The short form of the answer shows the result as a text.
  void Answer(std::string result) {
    if (record_.transac_id == kShortForm) {
      result = Escaped(result);
    }
    const std::size_t size = SizeWithoutResult() + result.size();
    if (size > LargestPacket()) {
      throw Failure("the answer has " + std::to_string(size) + " bytes, a packet takes " +
                    std::to_string(LargestPacket()));
    }
    record_.result = std::move(result);
    record_.ret = 0;
    record_.status = 0;
  }

  void Fail(std::string_view text, int32_t code = -1) noexcept {
    constexpr std::size_t kLongestLoggedName = 100;
    const std::string_view name = record_.name;
    offer_.core.log.Error({"function '", name.substr(0, kLongestLoggedName), "' of opcode ",
                           offer_.opcode_text, " in session ", record_.session_id,
                           " failed: ", text, "; answers with return ", code});
    if (SizeWithoutResult() > LargestPacket()) {
      record_.name.clear();  // the caller's own text
    }
    record_.result = kFailedResult;
    record_.ret = code;
    record_.status = -1;
  }

  std::size_t SizeWithoutResult() const noexcept {
    return kLargestFixedAnswer + record_.opcode.size() + record_.name.size();
  }

  const Offer& offer_;
  _orvex_call_info_t& record_;
  const orvex_func_call_info_t& args_;
  const std::shared_ptr<SessionStates> states_;
};

// The answer is a failure for a task that belongs to no offer, because its service was destroyed,
// and for one that there is no memory for.
inline void RunTask(const std::shared_ptr<Offer>& offer, _orvex_call_info_t& record,
                    const orvex_func_call_info_t& args) noexcept {
  const StructMembersOwner members(args);
  record.result = kFailedResult;
  record.ret = -1;
  record.status = -1;
  if (offer == nullptr) {
    return;
  }
  try {
    Task task(*offer, record, args);
    const Admission admission = TaskTurn::Take(offer);
    if (admission != Admission::kAdmitted) {
      return task.Refuse(admission);
    }
    task.Run();
    offer->core.tasks.FreePlace();
  } catch (const std::exception& exception) {
    offer->core.log.Error({"a task failed: ", exception.what(), "; answers with return -1"});
  }
}

}  // namespace orvex::detail
