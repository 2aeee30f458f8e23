#include "link/message_parser.h"

#include <json/reader.h>

#include <cstring>

namespace orvd_client {

bool ParseMessage(const char* packet, size_t size, Json::Value& message) {
// The deprecated Json::Reader accepts other texts than its successor does. The Managers' messages
// have always been read with it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  thread_local Json::Reader reader;  // reuses its working memory
#pragma GCC diagnostic pop
  return reader.parse(packet, packet + strnlen(packet, size), message, true) && message.isObject();
}

}  // namespace orvd_client
