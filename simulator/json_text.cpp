#include "orvex_simulator/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>

namespace orvd {

Json::Value ParseObject(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value root;
  const bool parsed = reader->parse(text.data(), text.data() + text.size(), &root, nullptr);
  return parsed && root.isObject() ? root : Json::Value(Json::objectValue);
}

std::string WriteCompact(const Json::Value& value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, value);
}

}  // namespace orvd
