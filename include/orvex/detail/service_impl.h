// The functions of orvex/service.h.

#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvex/detail/core.h"
#include "orvex/detail/inline.h"
#include "orvex/detail/run_loop.h"
#include "orvex/detail/task_slots.h"
#include "orvex/service.h"

namespace orvex {

namespace detail {

// The one service that runs.
class OnlyService {
 public:
  OnlyService() {
    if (IsTaken().exchange(true)) {
      throw std::logic_error("Service::Run: a service of this process runs already");
    }
  }
  ~OnlyService() { IsTaken() = false; }
  OnlyService(const OnlyService&) = delete;
  OnlyService& operator=(const OnlyService&) = delete;

 private:
  static std::atomic<bool>& IsTaken() {
    static std::atomic<bool> is_taken{false};
    return is_taken;
  }
};

}  // namespace detail

ORVEX_INLINE Service::Service(Options options)
    : core_(std::make_shared<detail::Core>(std::move(options))) {}

ORVEX_INLINE Service::~Service() {
  for (const auto& offer : core_->offers) {
    detail::TaskSlots::Free(offer->slot);
  }
}

ORVEX_INLINE Api& Service::Offer(uint32_t opcode, std::vector<uint32_t> subsystems,
                                 std::string token) {
  detail::Offer& offer = Add(opcode, token);
  offer.definition = detail::Definition(offer, subsystems);
  return offer.api;
}

ORVEX_INLINE Api& Service::Offer(uint32_t opcode, std::string blob, std::string token) {
  detail::Offer& offer = Add(opcode, token);
  offer.blob = std::move(blob);
  return offer.api;
}

ORVEX_INLINE detail::Offer& Service::Add(uint32_t opcode, const std::string& token) {
  detail::CheckNotBegun(*core_, "Service::Offer");
  auto& offers = core_->offers;
  offers.reserve(offers.size() + 1);  // nothing can fail once the slot is taken
  const auto place = std::partition_point(
      offers.begin(), offers.end(), [opcode](const auto& other) { return other->opcode < opcode; });
  if (place != offers.end() && (*place)->opcode == opcode) {
    throw std::logic_error("Service::Offer: opcode " + (*place)->opcode_text +
                           " is offered already");
  }
  auto offer = std::make_unique<detail::Offer>(*core_, opcode, token);
  offer->slot = detail::TaskSlots::Take(std::shared_ptr<detail::Offer>(core_, offer.get()));
  return **offers.insert(place, std::move(offer));
}

ORVEX_INLINE Service& Service::OnLost(std::function<void()> handler) {
  detail::CheckNotBegun(*core_, "Service::OnLost");
  core_->handlers.on_lost = std::move(handler);
  return *this;
}

ORVEX_INLINE Service& Service::OnBack(std::function<void()> handler) {
  detail::CheckNotBegun(*core_, "Service::OnBack");
  core_->handlers.on_back = std::move(handler);
  return *this;
}

ORVEX_INLINE Service& Service::OnStateChange(std::function<void(const StateChange&)> handler) {
  detail::CheckNotBegun(*core_, "Service::OnStateChange");
  core_->handlers.on_state_change = std::move(handler);
  return *this;
}

ORVEX_INLINE Service& Service::OnSystemSettingChange(
    std::function<void(const StateChange&)> handler) {
  detail::CheckNotBegun(*core_, "Service::OnSystemSettingChange");
  core_->handlers.on_system_setting_change = std::move(handler);
  return *this;
}

ORVEX_INLINE Service& Service::OnPermissionChange(
    std::function<void(const PermissionChange&)> handler) {
  detail::CheckNotBegun(*core_, "Service::OnPermissionChange");
  core_->handlers.on_permission_change = std::move(handler);
  return *this;
}

ORVEX_INLINE int Service::Run() {
  detail::HandlerScope::RefuseWaiting("Service::Run");
  if (core_->offers.empty()) {
    throw std::logic_error("Service::Run: nothing is offered");
  }
  const detail::OnlyService only_service;
  const std::shared_ptr<detail::Core> core = core_;  // exit may destroy a static service
  if (core->has_begun.exchange(true)) {
    throw std::logic_error("Service::Run: a service runs once");
  }
  core->offers.front()->is_lowest = true;
  return detail::RunLoop(*core).Run();
}

ORVEX_INLINE void Service::Stop() noexcept {
  core_->stop.Set();
}

}  // namespace orvex
