#include "config/notify_config.h"

#include <limits>

namespace tvx {

std::uint32_t MegabytesToBytes(std::int32_t megabytes) {
  constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
  if (megabytes < 0 || static_cast<std::uint32_t>(megabytes) > (kLargest >> 20)) return kLargest;
  return static_cast<std::uint32_t>(megabytes) << 20;
}

bool ClearAttachFlags(NotifyConfig& config) {
  bool any = false;
  for (auto& [id, profile] : config.profiles) {
    any = any || profile.attach;
    profile.attach = false;
  }
  return any;
}

}  // namespace tvx
