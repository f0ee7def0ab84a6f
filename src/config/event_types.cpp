#include "config/event_types.h"

#include <cstddef>
#include <iterator>

namespace tvx {

const char* EventTypeName(std::int32_t code) {
  static constexpr const char* kNames[] = {
      "Invalid",
      "Video Loss",
      "Video Motion",
      "Input Trigger",
      "Pos Port",
      "Pos Profile",
      "Button",
      "Temperature",
      "Storage",
      "IP Connection",
      "Record Content Age",
      "Archive Content Age",
      "Source Group",
      "Power Supply",
      "Outbound Connection",
      "Security Integrations Health",
      "Soft Trigger",
      "License",
      "Analytic",
      "Device Failure",
      "Audio Connection",
      "Device Connection",
      "Throttle",
      "Fan",
      "Time Trigger",
      "Hardware Temperature",
      "Hardware Fan",
      "Hardware Voltage",
      "Archive Connection",
      "Archive Task",
      "Security Integration Connection",
      "Security Integration Alarm",
      "Security Integration Alert",
      "Serial Port Connection",
      "Record Alarm",
  };
  const auto at = static_cast<std::size_t>(code);
  return code >= 0 && at < std::size(kNames) ? kNames[at] : "Unknown";
}

bool IsVideoEvent(std::int32_t code) {
  switch (code) {
    case event_type::kVideoLoss:
    case event_type::kVideoMotion:
    case event_type::kIpConnection:
    case event_type::kAnalytic:
      return true;
    default:
      return false;
  }
}

bool IsSystemEvent(std::int32_t code) {
  switch (code) {
    case event_type::kStorage:
    case event_type::kRecordContentAge:
    case event_type::kArchiveContentAge:
    case event_type::kLicense:
    case event_type::kThrottle:
    case event_type::kHardwareTemperature:
    case event_type::kHardwareFan:
    case event_type::kHardwareVoltage:
    case event_type::kArchiveConnection:
    case event_type::kArchiveTask:
      return true;
    default:
      return false;
  }
}

bool IsDeviceHealthEvent(std::int32_t code) {
  switch (code) {
    case event_type::kTemperature:
    case event_type::kPowerSupply:
    case event_type::kDeviceFailure:
    case event_type::kFan:
      return true;
    default:
      return false;
  }
}

}  // namespace tvx
