// The task functions of the offers.
//
// The library calls a task function without user data, and the call record does not hold the
// opcode. So each offer has a task function of its own, from a fixed number of them.

#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "orvd_types.h"
#include "orvex/detail/task.h"

namespace orvex::detail {

inline constexpr unsigned kSlotBits = 6;
inline constexpr std::size_t kSlots = 1U << kSlotBits;

// Never destroyed, because task threads and receive threads outlive main. Any thread.
class TaskSlots {
 public:
  // Gives a slot to the offer. Throws std::length_error when none is free. The slot that was freed
  // last is given last, so that a late task of an old offer hardly ever meets a new one.
  static std::size_t Take(std::shared_ptr<Offer> offer) {
    TaskSlots& slots = All();
    const std::lock_guard<std::mutex> lock(slots.taking_);
    for (std::size_t i = 0; i < kSlots; ++i) {
      const std::size_t slot = slots.next_++ % kSlots;
      const std::lock_guard<std::mutex> slot_lock(slots.slots_[slot].mutex);
      if (slots.slots_[slot].offer == nullptr) {
        slots.slots_[slot].offer = std::move(offer);
        return slot;
      }
    }
    throw std::length_error("Service::Offer: the process offers 64 opcodes already");
  }

  static void Free(std::size_t slot) {
    std::shared_ptr<Offer> offer;  // destroyed without the mutex
    Slot& freed = All().slots_[slot];
    const std::lock_guard<std::mutex> lock(freed.mutex);
    offer.swap(freed.offer);
  }

  // Null when the slot is free.
  static std::shared_ptr<Offer> Find(std::size_t slot) {
    Slot& found = All().slots_[slot];
    const std::lock_guard<std::mutex> lock(found.mutex);
    return found.offer;
  }

  static orvd_task_function_t TaskFunction(std::size_t slot) {
    static const auto functions = Functions(std::make_index_sequence<kSlots>());
    return functions[slot];
  }

 private:
  struct Slot {
    std::mutex mutex;
    std::shared_ptr<Offer> offer;
  };

  static TaskSlots& All() {
    static TaskSlots& slots = *new TaskSlots;
    return slots;
  }

  template <std::size_t Number>
  static int RunTaskOfSlot(_orvex_call_info_t* call, orvex_func_call_info_t args) {
    return RunTaskOf(Number, call, args);
  }

  // Not a part of the function above, of which there are many. The library does not use the result.
  [[gnu::noinline]] static int RunTaskOf(std::size_t slot, _orvex_call_info_t* call,
                                         const orvex_func_call_info_t& args) {
    RunTask(Find(slot), *call, args);
    return 0;
  }

  template <std::size_t... Numbers>
  static std::array<orvd_task_function_t, kSlots> Functions(
      std::index_sequence<Numbers...> /*numbers*/) {
    return {RunTaskOfSlot<Numbers>...};
  }

  std::mutex taking_;
  std::size_t next_ = 0;
  std::array<Slot, kSlots> slots_;
};

}  // namespace orvex::detail
