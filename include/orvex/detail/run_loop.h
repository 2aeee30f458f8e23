// The life of a service on the thread that runs it: offers, serves, and starts anew after a loss.

#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "IOrvdClient.h"
#include "orvex/detail/answer_limit.h"
#include "orvex/detail/core.h"
#include "orvex/detail/session_state_callback.h"
#include "orvex/detail/stop_signals.h"
#include "orvex/detail/task_slots.h"

namespace orvex::detail {

class RunLoop {
 public:
  explicit RunLoop(Core& core) : core_(core), signals_(core.options.signals) {}

  // Returns 0 when the service was stopped, 1 when the Manager refused it.
  int Run() {
    bool was_lost = false;
    while (!IsStopping()) {
      const Outcome outcome = Connect();
      if (outcome == Outcome::kRefused) {
        return Finish(1);
      }
      if (outcome == Outcome::kAway) {
        Pause();
        continue;
      }
      pause_ = kFirstPause;
      was_silent_ = false;
      core_.log.Info({"serves with service id ", *service_id_, ", opcodes: ", core_.offers.size()});
      if (was_lost) {
        core_.Call("OnBack", core_.handlers.on_back);
      }
      was_lost = ServeUntilLost();
      if (was_lost) {
        Leave();
      }
    }
    return Finish(0);
  }

 private:
  using Milliseconds = std::chrono::milliseconds;
  enum class Outcome { kReady, kAway, kRefused };
  enum class Link { kGone, kSilent, kAnswers };

  static constexpr Milliseconds kFirstPause{50};
  static constexpr Milliseconds kLongestPause{5000};
  static constexpr std::chrono::seconds kQueryLimit{3};          // of the library
  static constexpr std::chrono::seconds kReceiveThreadLimit{1};  // for its end

  bool IsStopping() const { return Wait(Milliseconds(0), {core_.stop.fd(), signals_.fd()}); }

  static bool Wait(Milliseconds limit, std::initializer_list<int> fds) {
    return EventFd::Wait(fds, limit);
  }

  // Limits a call of the library that waits for the Manager, as long as the result exists.
  AnswerLimit Limit(const std::string& call, std::chrono::seconds own_time = {}) const {
    return {core_, {core_.stop.fd(), signals_.fd(), is_done_}, call, own_time};
  }

  // Asks for an information item. The result of a query that could not be sent has exactly one
  // empty text for one item.
  Link TestLink() const {
    const AnswerLimit limit = Limit("a heartbeat", kQueryLimit);
    const auto results = orvd_info_query(0, {"heartbeat"});
    if (results.empty()) {
      return Link::kSilent;
    }
    return results.size() == 1 && results.front().empty() ? Link::kGone : Link::kAnswers;
  }

  Outcome Connect() {
    epoch_ = core_.link->Begin();
    const int id = Initialise();
    if (id != kNoServiceId) {
      service_id_ = id;
    }
    if (id < 0) {
      return Judge("the initialisation", id);
    }
    const Outcome registered = ForEachOffer("the registration of opcode ", &RunLoop::Register);
    return registered == Outcome::kReady ? ForEachOffer("the readiness of opcode ", &RunLoop::Ready)
                                         : registered;
  }

  int Initialise() const {
    const AnswerLimit limit = Limit("the initialisation");
    return orvd_svc_init();
  }

  // In the order of the opcodes: the lowest is ready whenever any is, so it alone passes
  // notifications on.
  Outcome ForEachOffer(const char* step,
                       int32_t (RunLoop::*call)(const std::string&, const Offer&) const) {
    for (const auto& offer : core_.offers) {
      if (IsStopping()) {
        return Outcome::kAway;
      }
      const std::string name = step + offer->opcode_text;
      const int32_t result = (this->*call)(name, *offer);
      if (result != 0) {
        return Judge(name, result);
      }
    }
    return Outcome::kReady;
  }

  int32_t Register(const std::string& name, const Offer& offer) const {
    const AnswerLimit limit = Limit(name);
    return _orvd_svc_register_auth(static_cast<uint32_t>(*service_id_), offer.opcode,
                                   BlobOf(offer).c_str(), offer.token.c_str());
  }

  int32_t Ready(const std::string& name, const Offer& offer) const {
    const AnswerLimit limit = Limit(name);
    return _orvd_svc_ready(static_cast<uint32_t>(*service_id_), offer.opcode, OnSessionState,
                           UserData(offer.slot, epoch_), TaskSlots::TaskFunction(offer.slot));
  }

  // A call has failed. It returns -1 when the Manager has refused it, but also when the Manager was
  // lost. After a loss the library may have connected again at once, and then nobody answers on
  // this connection until the next initialisation. So silence counts as a refusal the second time
  // only.
  Outcome Judge(const std::string& call, int32_t result) {
    const Link link = result == -1 ? TestLink() : Link::kAnswers;
    const bool was_silent = std::exchange(was_silent_, link == Link::kSilent);
    if (link == Link::kAnswers || (link == Link::kSilent && was_silent)) {
      core_.log.Error({call, " was refused (", result, "); the service ends"});
      return Outcome::kRefused;
    }
    Leave();
    core_.log.Error({call, " failed, the Manager ",
                     link == Link::kGone ? "cannot be reached" : "does not answer",
                     "; tries again in ", pause_.count(), " ms"});
    return Outcome::kAway;
  }

  void Pause() {
    Wait(pause_, {core_.stop.fd(), signals_.fd()});
    pause_ = std::min(2 * pause_, kLongestPause);
  }

  // Returns false when the service was stopped.
  bool ServeUntilLost() {
    const auto heartbeat = core_.options.heartbeat.count() != 0
                               ? Milliseconds(core_.options.heartbeat)
                               : Milliseconds(-1);
    bool is_told = false;
    while (!IsStopping()) {
      const EventFd& changed = core_.link->changed();
      changed.Clear();
      const LinkState state = core_.link->state();
      if (state.is_terminated && !is_told) {
        is_told = true;
        TellLoss("the Manager has closed the connection; the library tries to connect for 20 s");
      }
      if (state.is_over) {
        if (!is_told) {
          TellLoss("the connection was reset; the service starts anew");
        } else {
          core_.log.Info({state.is_reconnected ? "the Manager is back; the service starts anew"
                                               : "the Manager is not back; the service tries on"});
        }
        return true;
      }
      const bool is_silent = !Wait(is_told ? Milliseconds(-1) : heartbeat,
                                   {changed.fd(), core_.stop.fd(), signals_.fd()});
      if (is_silent && TestLink() == Link::kGone) {
        TellLoss("a heartbeat could not be sent; the service starts anew");
        return true;
      }
    }
    return false;
  }

  // The library has ended its sessions by now, but not after a reset.
  void TellLoss(const char* line) {
    core_.log.Error({line});
    core_.EndAllSessions();
    core_.Call("OnLost", core_.handlers.on_lost);
  }

  // Deinitialises, and waits for the receive thread, which may still run a handler.
  void Leave() {
    if (service_id_) {
      const AnswerLimit limit = Limit("the deinitialisation");
      orvd_svc_deinit(static_cast<unsigned>(*service_id_));
      service_id_.reset();
    }
    core_.link->End();
    const auto end = std::chrono::steady_clock::now() + kReceiveThreadLimit;
    while (core_.link->HasReceiveThread() && std::chrono::steady_clock::now() < end) {
      core_.link->changed().Clear();
      if (core_.link->HasReceiveThread()) {
        Wait(kReceiveThreadLimit, {core_.link->changed().fd()});
      }
    }
    if (core_.link->HasReceiveThread()) {
      core_.log.Error({"a session or notification handler has not returned for ",
                       kReceiveThreadLimit.count(), " s; the service goes on without waiting"});
    }
    core_.EndAllSessions();
  }

  int Finish(int result) {
    const std::size_t running = core_.tasks.Close();
    if (IsStopping()) {
      core_.log.Info({"was asked to stop; waits up to ", core_.options.drain.count(), " s for ",
                      running, " tasks"});
    }
    const std::size_t left = core_.tasks.AwaitEnd(core_.options.drain);
    core_.tasks.Abandon();
    if (left != 0) {
      core_.log.Error({left, " tasks still run; the service ends all the same"});
    }
    Leave();
    return result;
  }

  static constexpr int kNoServiceId = -1;

  Core& core_;
  const StopSignals signals_;
  const EventFd is_done_;  // the call that waits
  Milliseconds pause_ = kFirstPause;
  Epoch epoch_ = kNoEpoch;
  std::optional<int> service_id_;
  bool was_silent_ = false;  // at the last failure
};

}  // namespace orvex::detail
