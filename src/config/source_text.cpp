#include "config/source_text.h"

#include "config/event_types.h"

namespace tvx {
namespace {

std::string Numbered(const char* words, SourceId source) {
  return words + (' ' + std::to_string(source.Number()));
}

}  // namespace

std::string SourceText(const SystemDirectory& directory, SourceId source, std::int32_t type) {
  constexpr const char* kUnknown = "Unknown";
  if (source.value == 0) return kUnknown;
  if (IsSystemEvent(type)) return {};
  switch (type) {
    case event_type::kVideoLoss:
    case event_type::kVideoMotion:
    case event_type::kIpConnection:
    case event_type::kAnalytic:
      return directory.Name(NameKind::VideoInput, source);
    case event_type::kInputTrigger:
    case event_type::kSecurityIntegrationAlarm:
    case event_type::kSecurityIntegrationAlert:
      return directory.Name(NameKind::TriggerInput, source);
    case event_type::kPosPort:
    case event_type::kPosProfile:
      return directory.Name(NameKind::PointOfSale, source);
    case event_type::kButton:
      return Numbered("Button", source);
    case event_type::kTemperature:
      return Numbered("Device Temperature", source);
    case event_type::kPowerSupply:
      return Numbered("Power Supply", source);
    case event_type::kDeviceFailure:
      return Numbered("Device Failure", source);
    case event_type::kFan:
      return Numbered("Device Fan", source);
    case event_type::kSourceGroup:
      return directory.Name(NameKind::SourceGroup, source);
    case event_type::kSoftTrigger:
      return directory.Name(NameKind::SoftTrigger, source);
    case event_type::kTimeTrigger:
      return directory.Name(NameKind::TimeTrigger, source);
    case event_type::kAudioConnection:
      return directory.Name(NameKind::AudioInput, source);
    case event_type::kOutboundConnection:
    case event_type::kDeviceConnection:
    case event_type::kSecurityIntegrationConnection:
    case event_type::kSerialPortConnection:
      return directory.Name(NameKind::Device, source);
    default:
      return kUnknown;
  }
}

}  // namespace tvx
