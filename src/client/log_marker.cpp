#include "IOrvdClient.h"
#include "base/log.h"
#include "link/send.h"
#include "link/socket_path.h"

using namespace orvd_client;

void orvd_log_marker(const char* text) {
  constexpr const char* kMarkerName = "ORVEX_marker";
  LOG_INFO("%s : %s : ", kMarkerName, text);
  if (gMarkersEnabled && orvd_send_to_manager_raw(text) != 0) {
    LOG_AT(kFailure, "Message was not sent successfully %s", kMarkerName);
  }
}
