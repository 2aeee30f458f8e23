#include "link/socket_path.h"

#include <android-base/properties.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "base/log.h"

namespace orvd_client {

std::atomic<bool> gDedicatedChannel{false};
std::atomic<bool> gMarkersEnabled{false};

namespace {

using android::base::GetProperty;

constexpr const char* kSharedPath = "/dev/socket/orvd";
constexpr const char* kDedicatedPath = "/dev/socket/orvex_one/orvd_one";

constexpr std::string_view kPlixPrefix = "plix_";
constexpr std::string_view kVendorPlixPrefix = "vendor.plix.";

struct Names {
  std::string own;
  std::string expected;
};

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool IsDebuggableBuild() {
  const std::string type = GetProperty("ro.build.type", "");
  return type == "userdebug" || type == "eng";
}

std::string ThreadName() {
  std::array<char, 33> name{};
  if (prctl(PR_GET_NAME, name.data()) != 0) {
    LOG_INFO("Error getting thread name.");
  }
  return name.data();
}

// Deliberate: the first five characters are removed, whatever they are, because services run under
// names with other prefixes of this length. A name of five characters or fewer becomes empty, and
// an empty name matches every expected name.
std::string OwnName() {
  const std::string name = ThreadName();
  return name.substr(std::min(kPlixPrefix.size(), name.size()));
}

Names ChooseNames() {
  std::string own = OwnName();
  const std::string service = GetProperty("vendor.orvex.one.service", "");
  const std::string plix = GetProperty("vendor.orvex.one.plix", "");
  if (StartsWith(plix, kPlixPrefix)) {
    return {std::move(own), plix.substr(kPlixPrefix.size())};
  }
  if (StartsWith(service, kVendorPlixPrefix)) {
    return {std::move(own), service.substr(kVendorPlixPrefix.size())};
  }
  if (service == "vendor.radioWarden") {
    return {"radioWarden", "radioWarden"};
  }
  return {std::move(own), service};
}

}  // namespace

SocketPath ChooseSocketPath() {
  if (!IsDebuggableBuild()) {
    return {kSharedPath, std::nullopt, std::nullopt};
  }
  const Names names = ChooseNames();
  const bool match = StartsWith(names.expected, names.own);
  const bool dedicated = match && !names.expected.empty();
  const bool markers =
      dedicated && android::base::GetBoolProperty("vendor.orvex.one.markers", false);
  // Deliberate: a match with an empty expected name makes this process the dedicated client, but on
  // the shared socket. A dedicated client sends DINT and EXIT even if the Manager never answered.
  return {dedicated ? kDedicatedPath : kSharedPath, match, markers};
}

void SetFlags(const SocketPath& chosen) {
  gDedicatedChannel = chosen.dedicated_channel.value_or(gDedicatedChannel);
  gMarkersEnabled = chosen.markers_enabled.value_or(gMarkersEnabled);
}

}  // namespace orvd_client
