// The functions of orvex/api.h.

#pragma once

#include <json/value.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "orvex/api.h"
#include "orvex/detail/core.h"
#include "orvex/detail/inline.h"

namespace orvex {

ORVEX_INLINE Api& Api::Serial() {
  Open("Api::Serial").serial = std::make_unique<detail::SerialQueue>();
  return *this;
}

ORVEX_INLINE Api& Api::Definition(const Json::Value& members) {
  detail::Offer& offer = Open("Api::Definition");
  if (!members.isObject() || !offer.blob.empty() || members.isMember("opcode")) {
    throw std::logic_error(
        "Api::Definition: takes an object without a member \"opcode\", and only for an offer "
        "without a definition of its own");
  }
  for (auto member = members.begin(); member != members.end(); ++member) {
    offer.definition[member.name()] = *member;
  }
  return *this;
}

ORVEX_INLINE Api& Api::OnSessionStart(std::function<bool(Session&)> handler) {
  Open("Api::OnSessionStart").on_session_start = std::move(handler);
  return *this;
}

ORVEX_INLINE Api& Api::OnSessionReady(std::function<void(Session&)> handler) {
  Open("Api::OnSessionReady").on_session_ready = std::move(handler);
  return *this;
}

ORVEX_INLINE Api& Api::OnSessionEnd(std::function<void(Session&)> handler) {
  Open("Api::OnSessionEnd").on_session_end = std::move(handler);
  return *this;
}

// Returns the offer while it may still change.
ORVEX_INLINE detail::Offer& Api::Open(const char* function) const {
  detail::CheckNotBegun(offer_.core, function);
  return offer_;
}

ORVEX_INLINE Api& Api::Add(std::string function, detail::Handler handler) {
  detail::Offer& offer = Open("Api::On");
  if (offer.Find(function) != nullptr) {
    throw std::logic_error("Api::On: there is a function '" + function + "' already");
  }
  offer.functions.push_back({std::move(function), std::move(handler)});
  return *this;
}

ORVEX_INLINE Api& Api::SetOtherwise(detail::Handler handler) {
  Open("Api::Otherwise").otherwise = std::move(handler);
  return *this;
}

}  // namespace orvex
