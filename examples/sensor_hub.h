// The functions of the example service, a sensor hub. They are apart from the program, so that unit
// tests can run them: sensor_hub_test.cpp.

#pragma once

#include <orvex/service.h>

#include <atomic>
#include <iostream>
#include <numeric>
#include <string>
#include <vector>

#include "IOrvdClient.h"

namespace sensor_hub {

using orvex::Object;

// Each task runs on its own thread, any number at the same time. One may still run when main has
// returned, so this is no variable of main.
inline std::atomic<bool> is_screen_on{false};

// The state of one session. The layer deletes it after the session's last task.
struct Client {
  std::atomic<int> limit{0};
};

inline Object ReadTemperature() {
  return {{"celsius", 21.5}, {"sensor", "skin"}};
}

// The parameters take the arguments 1 to 4. A task without one of them is answered with a failure.
inline Object SetLimits(orvex::Call& call, uint8_t sensor, int16_t limit, uint32_t period_ms,
                        const std::string& label) {
  if (const auto client = call.State<Client>()) {
    client->limit = limit;
  }
  return {{"sensor", sensor}, {"limit", limit}, {"period_ms", period_ms}, {"label", label}};
}

inline Object Average(const std::vector<double>& samples) {
  if (samples.empty()) {
    throw orvex::Failure("there are no samples");
  }
  const double sum = std::accumulate(samples.begin(), samples.end(), 0.0);
  return {{"average", sum / static_cast<double>(samples.size())}, {"count", samples.size()}};
}

inline Object Configure(const orvex::Struct& sensor) {
  return {{"name", sensor.Get<std::string>(1)},
          {"rate", sensor.Get<uint16_t>(2)},
          {"axes", sensor.Get<std::vector<int32_t>>(3).size()}};
}

// Asks the Manager and waits for the answers. The layer keeps the permissions of a session.
inline Object CheckAccess(orvex::Call& call) {
  // While the user looks at the screen, the sensors also tell what he does.
  std::vector<std::string> needed{"sensor.read"};
  if (is_screen_on) {
    needed.emplace_back("user.activity");
  }
  if (!call.Granted(needed)) {
    throw orvex::Failure("not allowed");
  }
  const auto watched = orvd_info_monitor(call.session(), {"screen"});  // see OnStateChange
  return {{"granted", 1}, {"client", call.Info("client.name")}, {"watched", watched.size()}};
}

inline void Offer(orvex::Service& service) {
  service.Offer(0xa001, {1, 2}, "sensor-hub-token")
      .On("read_temperature", ReadTemperature)
      .On("set_limits", SetLimits)
      .On("average", Average)
      .On("configure", Configure)
      .On("check_access", CheckAccess)
      .OnSessionStart([](orvex::Session& session) {  // once for each subsystem, like the end
        session.Emplace<Client>();
        std::clog << "hub: session " << session.id() << " starts\n";
        return true;  // false would refuse the subsystem
      })
      .OnSessionEnd([](orvex::Session& session) {
        std::clog << "hub: session " << session.id() << " ends, its limit was "
                  << session.State<Client>()->limit << '\n';
      });
  service.OnStateChange(
      [](const orvex::StateChange& change) { is_screen_on = change.value == "on"; });
}

}  // namespace sensor_hub
