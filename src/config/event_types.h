// The host's event types: their names, and the groups of types that are treated alike.
//
// Threads: any; nothing here changes.
#pragma once

#include <cstdint>

namespace tvx {

namespace event_type {
constexpr std::int32_t kTestMessage = -1;
constexpr std::int32_t kInvalid = 0;
constexpr std::int32_t kVideoLoss = 1;
constexpr std::int32_t kVideoMotion = 2;
constexpr std::int32_t kInputTrigger = 3;
constexpr std::int32_t kPosPort = 4;
constexpr std::int32_t kPosProfile = 5;
constexpr std::int32_t kButton = 6;
constexpr std::int32_t kTemperature = 7;
constexpr std::int32_t kStorage = 8;
constexpr std::int32_t kIpConnection = 9;
constexpr std::int32_t kRecordContentAge = 10;
constexpr std::int32_t kArchiveContentAge = 11;
constexpr std::int32_t kSourceGroup = 12;
constexpr std::int32_t kPowerSupply = 13;
constexpr std::int32_t kOutboundConnection = 14;
constexpr std::int32_t kSoftTrigger = 16;
constexpr std::int32_t kLicense = 17;
constexpr std::int32_t kAnalytic = 18;
constexpr std::int32_t kDeviceFailure = 19;
constexpr std::int32_t kAudioConnection = 20;
constexpr std::int32_t kDeviceConnection = 21;
constexpr std::int32_t kThrottle = 22;
constexpr std::int32_t kFan = 23;
constexpr std::int32_t kTimeTrigger = 24;
constexpr std::int32_t kHardwareTemperature = 25;
constexpr std::int32_t kHardwareFan = 26;
constexpr std::int32_t kHardwareVoltage = 27;
constexpr std::int32_t kArchiveConnection = 28;
constexpr std::int32_t kArchiveTask = 29;
constexpr std::int32_t kSecurityIntegrationConnection = 30;
constexpr std::int32_t kSecurityIntegrationAlarm = 31;
constexpr std::int32_t kSecurityIntegrationAlert = 32;
constexpr std::int32_t kSerialPortConnection = 33;
constexpr std::int32_t kRecordAlarm = 34;
}  // namespace event_type

// The display name of a code; "Unknown" for a code that there is none for.
const char* EventTypeName(std::int32_t code);

// Types whose source is a camera.
bool IsVideoEvent(std::int32_t code);

// Types that concern the system as a whole and have no source object.
bool IsSystemEvent(std::int32_t code);

// Types that concern the health of one device.
bool IsDeviceHealthEvent(std::int32_t code);

}  // namespace tvx
