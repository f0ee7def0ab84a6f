#include "support/documents.h"

namespace tvx::bench {
namespace {

constexpr const char* kServer =
    "<smtp description=\"Mail server\" address=\"127.0.0.1\" port=\"25\" UseSSL=\"0\">"
    "<Authentication username=\"nvr\" password=\"secret\"/></smtp>";

std::string Profile(std::int32_t id, std::int32_t throttleSeconds) {
  return "<smtp ID=\"" + std::to_string(id) + "\" attach=\"0\" description=\"Gate\"" +
         " ThrottleSeconds=\"" + std::to_string(throttleSeconds) + "\" from=\"nvr@example.com\"" +
         " subject=\"{event type} at {source}\" MaxVideoSeconds=\"0\" EventEdge=\"0\">"
         "<to>guard@example.com</to><cc>office@example.com</cc>"
         "<body>{event type} at {source}, {date format=\"%Y-%m-%d\"}.&#13;&#10;Recorded by "
         "{system name}, serial number {serial}.&#13;&#10;</body></smtp>";
}

// Numbers are 8 bits wide, so more devices take another device part.
constexpr int kDevicesPerPart = 255;

std::string DeviceTag(int index) {
  return "<Device Number=\"" + std::to_string(index % kDevicesPerPart + 1) + "\">";
}

std::string DevicesTag(int index) {
  return "<Devices ID=\"" + std::to_string(65536 * (index / kDevicesPerPart + 1)) + "\">";
}

}  // namespace

std::string NotificationDocument(const Notification& notification) {
  std::string text = "<tDVR Delta=\"1\"><Notify ID=\"786432\" MaxRetrySeconds=\"172800\"";
  text += " MaxRetryQueue=\"" + std::to_string(notification.maxRetryQueue) + "\"";
  text += " EmailSizeLimitMB=\"" + std::to_string(notification.sizeLimitMb) + "\">";
  text += std::string("<Servers>") + (notification.withServer ? kServer : "") + "</Servers>";
  text += "<Profiles autoincrement=\"1\">";
  for (int i = 0; i < notification.profiles; ++i) {
    text += Profile(kFirstProfile + i, notification.throttleSeconds);
  }
  text += "</Profiles></Notify></tDVR>";
  return text;
}

std::string EventDocumentFor(std::int32_t profile) {
  return "<tDVR>\n  <Servers>\n"
         "    <Server Serial=\"A-1001\" Description=\"Main building\"/>\n  </Servers>\n"
         "  <Notify ID=\"786432\">\n    <Profiles>\n      <Profile ID=\"" +
         std::to_string(profile) +
         "\" Alarm=\"1\" Action=\"7\" Time=\"1500000000\" Milliseconds=\"250\">\n"
         "        <EventSource ID=\"66049\" Type=\"2\"/>\n      </Profile>\n    </Profiles>\n"
         "  </Notify>\n</tDVR>\n";
}

std::string SystemDocumentOf(int streams) {
  std::string devices;
  std::string events;
  for (int i = 0; i < streams; ++i) {
    const std::string input = "<Video><Input Number=\"1\"/></Video>";
    devices += DevicesTag(i) + DeviceTag(i) + "<Context>" + input +
               "<Codec><Encoder><Channel ID=\"" + std::to_string(i + 1) +
               "\" Number=\"1\" Width=\"1280\" Height=\"720\" Standard=\"5\"/></Encoder></Codec>"
               "</Context></Device></Devices>";
    events += "<Event ID=\"" + std::to_string(i + 1) + "\">" + DevicesTag(i) + DeviceTag(i) +
              input + "</Device></Devices><Action><Notify/></Action></Event>";
  }
  return "<tDVR Delta=\"0\">" + devices + "<Events>" + events + "</Events></tDVR>";
}

}  // namespace tvx::bench
