// An example service: a sensor hub. Copy this file and sensor_hub.h, and replace the functions
// there. The service waits for the Manager and starts anew after a loss of the Manager. SIGTERM and
// SIGINT stop it.

#include <orvex/service.h>

#include "sensor_hub.h"

int main() {
  orvex::Service service;
  sensor_hub::Offer(service);
  return service.Run();
}
