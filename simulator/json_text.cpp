#include "orvex_simulator/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>

namespace orvd {

namespace {

std::optional<Json::Value> Parse(const Json::CharReaderBuilder& builder, const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  try {
    const bool parsed = reader->parse(text.data(), text.data() + text.size(), &root, nullptr);
    return parsed ? std::optional(root) : std::nullopt;
  } catch (const Json::Exception&) {  // nested too deeply
    return std::nullopt;
  }
}

}  // namespace

Json::Value ParseObject(const std::string& text) {
  const std::optional<Json::Value> root = Parse(Json::CharReaderBuilder(), text);
  return root && root->isObject() ? *root : Json::Value(Json::objectValue);
}

std::optional<Json::Value> ParseValue(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  return Parse(builder, text);
}

std::string WriteCompact(const Json::Value& value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, value);
}

}  // namespace orvd
