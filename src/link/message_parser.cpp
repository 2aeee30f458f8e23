#include "link/message_parser.h"

#include <json/reader.h>

#include <cstring>

namespace orvd_client {

bool ParseMessage(const char* packet, size_t size, Json::Value& message) {
// The deprecated Json::Reader accepts texts that its successor rejects, and the Managers in the
// field depend on that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  thread_local Json::Reader reader;  // reuses its working memory
#pragma GCC diagnostic pop
  return reader.parse(packet, packet + strnlen(packet, size), message, true) && message.isObject();
}

}  // namespace orvd_client
