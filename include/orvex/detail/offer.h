// One opcode that a service offers.

#pragma once

#include <json/value.h>
#include <json/writer.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvex/api.h"
#include "orvex/detail/escaped.h"
#include "orvex/detail/log.h"
#include "orvex/detail/serial_queue.h"
#include "orvex/handler.h"
#include "orvex/session.h"

namespace orvex::detail {

class Core;

struct Function {
  std::string name;
  Handler handler;
};

// The author fills it before Run begins. From then on it does not change.
struct Offer {
  Offer(Core& its_core, uint32_t its_opcode, const std::string& its_token)
      : core(its_core),
        opcode(its_opcode),
        opcode_text(OpcodeText(its_opcode)),
        token(Escaped(its_token)) {}

  Api api{*this};  // what the author sees of it
  Core& core;
  const uint32_t opcode;
  const std::string opcode_text;
  const std::string token;  // escaped
  std::string blob;         // empty: it is made of the definition
  Json::Value definition{Json::objectValue};
  std::size_t slot = 0;
  bool is_lowest = false;  // of the service's opcodes

  std::vector<Function> functions;
  Handler otherwise;
  std::unique_ptr<SerialQueue> serial;  // null: any number of tasks at a time
  std::function<bool(Session&)> on_session_start;
  std::function<void(Session&)> on_session_ready;
  std::function<void(Session&)> on_session_end;

  // Null when there is no function of this name.
  const Handler* Find(std::string_view function) const {
    for (const Function& candidate : functions) {
      if (candidate.name == function) {
        return &candidate.handler;
      }
    }
    return nullptr;
  }
};

// What the definition of an offer without a blob of its own begins with.
inline Json::Value Definition(const Offer& offer, const std::vector<uint32_t>& subsystems) {
  Json::Value definition(Json::objectValue);
  definition["opcode"] = offer.opcode_text;
  definition["subsystems"] = Json::Value(Json::arrayValue);
  for (const uint32_t id : subsystems) {
    Json::Value subsystem(Json::objectValue);
    subsystem["id"] = id;
    definition["subsystems"].append(std::move(subsystem));
  }
  return definition;
}

// The definition as the library takes it: prefix, version 2, JSON text.
inline std::string BlobOf(const Offer& offer) {
  if (!offer.blob.empty()) {
    return offer.blob;
  }
  Json::Value root(Json::objectValue);
  root["Orvex"] = offer.definition;
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return "\x01ORVEX\x01\x02" + Json::writeString(writer, root);
}

}  // namespace orvex::detail
