#include "config/event_types.h"

#include <map>

namespace tvx {

const std::string& EventTypeName(std::int32_t code) {
  static const std::map<std::int32_t, std::string> names = {
      {0, "Invalid"},
      {1, "Video Loss"},
      {2, "Video Motion"},
      {3, "Input Trigger"},
      {4, "Pos Port"},
      {5, "Pos Profile"},
      {6, "Button"},
      {7, "Temperature"},
      {8, "Storage"},
      {9, "IP Connection"},
      {10, "Record Content Age"},
      {11, "Archive Content Age"},
      {12, "Source Group"},
      {13, "Power Supply"},
      {14, "Outbound Connection"},
      {15, "Security Integrations Health"},
      {16, "Soft Trigger"},
      {17, "License"},
      {18, "Analytic"},
      {19, "Device Failure"},
      {20, "Audio Connection"},
      {21, "Device Connection"},
      {22, "Throttle"},
      {23, "Fan"},
      {24, "Time Trigger"},
      {25, "Hardware Temperature"},
      {26, "Hardware Fan"},
      {27, "Hardware Voltage"},
      {28, "Archive Connection"},
      {29, "Archive Task"},
      {30, "Security Integration Connection"},
      {31, "Security Integration Alarm"},
      {32, "Security Integration Alert"},
      {33, "Serial Port Connection"},
      {34, "Record Alarm"},
  };
  static const std::string unknown = "Unknown";
  const auto found = names.find(code);
  return found == names.end() ? unknown : found->second;
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
