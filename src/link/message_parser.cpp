#include "link/message_parser.h"

#include <json/reader.h>

#include <cstring>

bool ParseMessage(const char* packet, size_t size, Json::Value& message) {
// Json::Reader accepts other texts than its successor does, and the Manager's messages were always
// read with it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  thread_local Json::Reader reader;  // which makes its working memory once
#pragma GCC diagnostic pop
  return reader.parse(packet, packet + strnlen(packet, size), message, true) && message.isObject();
}
